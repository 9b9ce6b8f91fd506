#include "table/sqlite_source.h"

#include <sqlite3.h>

#include <vector>

#include "table/records.h"

namespace formfill_table {

namespace {

// One prepared statement, finalized on every path out.
class Statement {
 public:
  Statement() = default;
  ~Statement() { sqlite3_finalize(m_Stmt); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool Prepare(sqlite3* db, const std::string& sql, const char* what,
               std::string* err);
  sqlite3_stmt* get() const { return m_Stmt; }

 private:
  sqlite3_stmt* m_Stmt = nullptr;
};

bool Statement::Prepare(sqlite3* db, const std::string& sql, const char* what,
                        std::string* err) {
  const char* tail = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()) + 1,
                         &m_Stmt, &tail) != SQLITE_OK) {
    *err = std::string(what) + ": " + sqlite3_errmsg(db);
    return false;
  }
  if (m_Stmt == nullptr) {
    *err = std::string(what) + ": no statement";
    return false;
  }
  // A second statement would be silently ignored: better said.
  for (; tail != nullptr && *tail != '\0'; ++tail) {
    if (*tail != ' ' && *tail != '\t' && *tail != '\n' && *tail != '\r' &&
        *tail != ';') {
      *err = std::string(what) + ": more than one statement";
      return false;
    }
  }
  if (sqlite3_column_count(m_Stmt) == 0) {
    *err = std::string(what) + ": the statement returns no columns";
    return false;
  }
  return true;
}

Cell ColumnCell(sqlite3_stmt* stmt, int i) {
  const auto* text =
      reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
  // The size must be asked after the text: the conversion may change it.
  const int size = sqlite3_column_bytes(stmt, i);
  if (text == nullptr)
    return Cell{"", 0};
  return Cell{text, static_cast<size_t>(size)};
}

}  // namespace

SqliteSource::~SqliteSource() { sqlite3_close(m_Db); }

bool SqliteSource::Open(const std::string& path, std::string* err) {
  if (sqlite3_open_v2(path.c_str(), &m_Db, SQLITE_OPEN_READONLY, nullptr) !=
      SQLITE_OK) {
    *err = path + ": " + sqlite3_errmsg(m_Db);
    return false;
  }
  return true;
}

bool SqliteSource::AddHeaderFields(const std::string& sql,
                                   std::map<long, std::string>* fields,
                                   std::string* err) {
  Statement stmt;
  if (!stmt.Prepare(m_Db, sql, "--header-query", err))
    return false;
  const int rc = sqlite3_step(stmt.get());
  if (rc == SQLITE_DONE)
    return true;
  if (rc != SQLITE_ROW) {
    *err = std::string("--header-query: ") + sqlite3_errmsg(m_Db);
    return false;
  }
  for (int i = 0; i < sqlite3_column_count(stmt.get()); ++i) {
    if (sqlite3_column_type(stmt.get(), i) == SQLITE_NULL)
      continue;
    const Cell cell = ColumnCell(stmt.get(), i);
    fields->emplace(i + 1, std::string(cell.data, cell.size));
  }
  return true;
}

bool SqliteSource::Convert(const std::string& sql, const std::string& split_by,
                           TableWriter* writer, std::string* err) {
  Statement stmt;
  if (!stmt.Prepare(m_Db, sql, "--query", err))
    return false;
  const int width = sqlite3_column_count(stmt.get());
  std::vector<std::string> names;
  std::vector<size_t> columns;
  for (int i = 0; i < width; ++i) {
    const char* name = sqlite3_column_name(stmt.get(), i);
    names.push_back(name == nullptr ? "" : name);
    columns.push_back(static_cast<size_t>(i));
  }
  size_t key = 0;
  if (!split_by.empty() && !FindColumn(names, split_by, &key, err)) {
    *err = "--split-by: " + *err;
    return false;
  }
  RecordBuilder builder(columns, names.size());
  std::vector<Cell> cells(names.size());
  int rc;
  for (long row = 1; (rc = sqlite3_step(stmt.get())) == SQLITE_ROW; ++row) {
    for (int i = 0; i < width; ++i)
      cells[i] = ColumnCell(stmt.get(), i);
    CellFault fault;
    if (!builder.Build(cells.data(), &fault)) {
      *err = "--query: row " + std::to_string(row) + ", column '" +
             names[fault.column] + "' holds " + FaultText(fault.check.fault);
      return false;
    }
    const TextBuffer& text = builder.text();
    if (!writer->Write(cells[key].data, cells[key].size, text.data(),
                       text.size(), err))
      return false;
  }
  if (rc != SQLITE_DONE) {
    *err = std::string("--query: ") + sqlite3_errmsg(m_Db);
    return false;
  }
  return true;
}

}  // namespace formfill_table
