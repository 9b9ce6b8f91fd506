// Reads the rows of SQLite queries into tables.
#ifndef FORMFILL_TABLE_SQLITE_SOURCE_H_
#define FORMFILL_TABLE_SQLITE_SOURCE_H_

#include <map>
#include <string>

#include "table/table_writer.h"

struct sqlite3;

namespace formfill_table {

// A database opened read-only. Every bool function returns false with *err
// filled (SQLite's own message where it has one) on failure.
class SqliteSource {
 public:
  SqliteSource() = default;
  ~SqliteSource();
  SqliteSource(const SqliteSource&) = delete;
  SqliteSource& operator=(const SqliteSource&) = delete;

  bool Open(const std::string& path, std::string* err);
  // Header fields 1 to k from the first row of sql's k columns, added to
  // *fields where it has no entry yet. A NULL gives no field, so that
  // formfill's parameters file can still give one; no row gives none.
  bool AddHeaderFields(const std::string& sql, std::map<long, std::string>* fields,
                       std::string* err);
  // Every row of sql becomes a record given to writer (which must have been
  // started): its i-th column the field $i, NULL an empty value, numbers as
  // SQLite turns them into text. split_by names the column whose values
  // split ("" for none).
  bool Convert(const std::string& sql, const std::string& split_by,
               TableWriter* writer, std::string* err);

 private:
  sqlite3* m_Db = nullptr;
};

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_SQLITE_SOURCE_H_
