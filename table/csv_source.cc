#include "table/csv_source.h"

#include <csv.h>
#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "table/records.h"

namespace formfill_table {

namespace {

constexpr size_t kChunk = 64 * 1024;

// Line ends in text: an LF, a CR not followed by LF, and CRLF count one each.
long CountLineEnds(const char* text, size_t size) {
  long n = 0;
  for (size_t i = 0; i < size; ++i)
    n += text[i] == '\n' || (text[i] == '\r' && (i + 1 == size ||
                                                 text[i + 1] != '\n'));
  return n;
}

// Blanks and tabs at the edges of an unquoted field are part of its value:
// a leading blank is something the user typed.
int NoSpace(unsigned char) { return 0; }

class CsvSource {
 public:
  CsvSource(const std::string& name, const CsvOptions& options,
            TableWriter* writer);
  ~CsvSource() { csv_free(&m_Parser); }
  CsvSource(const CsvSource&) = delete;
  CsvSource& operator=(const CsvSource&) = delete;

  bool Run(int fd, std::string* err);

 private:
  static void OnField(void* data, size_t size, void* self);
  static void OnRowEnd(int end, void* self);
  void EndRow(int end);
  bool TakeNames();
  bool TakeRecord();
  long LineEndsBefore(size_t field) const;
  bool ParseError(const char* what);
  bool Fail(long line, const std::string& what);
  bool Read(int fd, char* buffer, size_t min, size_t* got);

  const std::string m_Name;
  const CsvOptions& m_Options;
  TableWriter* const m_Writer;
  csv_parser m_Parser;

  std::string m_Row;           // the row's fields back to back
  std::vector<size_t> m_Ends;  // where each field of the row ends in m_Row
  std::vector<Cell> m_Cells;
  long m_Line = 1;  // the line the row being read began on
  bool m_AfterCr = false;
  bool m_Failed = false;
  std::string m_Error;

  std::vector<std::string> m_Names;  // empty until the first row
  std::unique_ptr<RecordBuilder> m_Builder;
  size_t m_KeyColumn = 0;
};

CsvSource::CsvSource(const std::string& name, const CsvOptions& options,
                     TableWriter* writer)
    : m_Name(name), m_Options(options), m_Writer(writer) {
  // Strict: a stray quote is an error, not a guess. Every line end is
  // reported, so that lines can be counted for messages.
  csv_init(&m_Parser, CSV_STRICT | CSV_STRICT_FINI | CSV_REPALL_NL);
  csv_set_space_func(&m_Parser, NoSpace);
  if (options.tsv)
    csv_set_delim(&m_Parser, '\t');
}

bool CsvSource::Fail(long line, const std::string& what) {
  if (!m_Failed) {
    m_Failed = true;
    m_Error = m_Name + ":" + std::to_string(line) + ": " + what;
  }
  return false;
}

void CsvSource::OnField(void* data, size_t size, void* self) {
  auto* source = static_cast<CsvSource*>(self);
  source->m_AfterCr = false;
  if (source->m_Failed)
    return;
  source->m_Row.append(static_cast<const char*>(data), size);
  source->m_Ends.push_back(source->m_Row.size());
}

void CsvSource::OnRowEnd(int end, void* self) {
  static_cast<CsvSource*>(self)->EndRow(end);
}

long CsvSource::LineEndsBefore(size_t field) const {
  long n = 0;
  for (size_t f = 0, begin = 0; f < field && f < m_Ends.size(); ++f) {
    n += CountLineEnds(m_Row.data() + begin, m_Ends[f] - begin);
    begin = m_Ends[f];
  }
  return n;
}

void CsvSource::EndRow(int end) {
  if (m_Failed)
    return;
  if (!m_Ends.empty()) {
    if (m_Names.empty() ? !TakeNames() : !TakeRecord())
      return;
    // Most rows hold no line break: one quick pass tells.
    size_t breaks = 0;
    for (char c : m_Row)
      breaks += c == '\n' || c == '\r';
    if (breaks > 0)
      m_Line += LineEndsBefore(m_Ends.size());
    m_Row.clear();
    m_Ends.clear();
  }
  if (end == '\r' || (end == '\n' && !m_AfterCr))
    ++m_Line;
  m_AfterCr = end == '\r';
}

bool CsvSource::TakeNames() {
  size_t begin = 0;
  for (size_t end : m_Ends) {
    m_Names.emplace_back(m_Row, begin, end - begin);
    const ValueCheck check = CheckValue(m_Row.data() + begin, end - begin);
    if (!check.ok())
      return Fail(m_Line + LineEndsBefore(m_Names.size() - 1),
                  "the name of column " + std::to_string(m_Names.size()) +
                      " holds " + FaultText(check.fault));
    begin = end;
  }
  std::vector<size_t> columns;
  std::string err;
  if (m_Options.fields.empty()) {
    for (size_t c = 0; c < m_Names.size(); ++c)
      columns.push_back(c);
  } else if (!FindColumns(m_Names, m_Options.fields, &columns, &err)) {
    return Fail(m_Line, "--fields: " + err);
  }
  if (!m_Options.split_by.empty() &&
      !FindColumn(m_Names, m_Options.split_by, &m_KeyColumn, &err))
    return Fail(m_Line, "--split-by: " + err);
  m_Builder = std::make_unique<RecordBuilder>(columns, m_Names.size());
  m_Cells.resize(m_Names.size());
  return true;
}

bool CsvSource::TakeRecord() {
  if (m_Ends.size() != m_Names.size())
    return Fail(m_Line, "a row of " + std::to_string(m_Ends.size()) +
                            " fields, but the first row names " +
                            std::to_string(m_Names.size()) + " columns");
  for (size_t f = 0, begin = 0; f < m_Ends.size(); begin = m_Ends[f++])
    m_Cells[f] = Cell{m_Row.data() + begin, m_Ends[f] - begin};
  CellFault fault;
  if (!m_Builder->Build(m_Cells.data(), &fault)) {
    const Cell& cell = m_Cells[fault.column];
    return Fail(m_Line + LineEndsBefore(fault.column) +
                    CountLineEnds(cell.data, fault.check.at),
                "column '" + m_Names[fault.column] + "' holds " +
                    FaultText(fault.check.fault));
  }
  const Cell& key = m_Cells[m_KeyColumn];
  const TextBuffer& text = m_Builder->text();
  std::string err;
  if (!m_Writer->Write(key.data, key.size, text.data(), text.size(), &err)) {
    m_Failed = true;
    m_Error = err;
    return false;
  }
  return true;
}

bool CsvSource::ParseError(const char* what) {
  const auto* partial = reinterpret_cast<const char*>(m_Parser.entry_buf);
  const size_t partial_size = partial == nullptr ? 0 : m_Parser.entry_pos;
  return Fail(m_Line + LineEndsBefore(m_Ends.size()) +
                  CountLineEnds(partial, partial_size),
              what);
}

bool CsvSource::Read(int fd, char* buffer, size_t min, size_t* got) {
  *got = 0;
  while (*got < min) {
    const ssize_t n = read(fd, buffer + *got, kChunk - *got);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0) {
      m_Failed = true;
      m_Error = "cannot read " + m_Name + ": " + strerror(errno);
      return false;
    }
    if (n == 0)
      break;
    *got += static_cast<size_t>(n);
  }
  return true;
}

bool CsvSource::Run(int fd, std::string* err) {
  std::unique_ptr<char[]> buffer(new char[kChunk]);
  bool first = true;
  for (;;) {
    size_t size;
    // The first read takes enough to see a byte-order mark whole.
    if (!Read(fd, buffer.get(), first ? 3 : 1, &size))
      break;
    if (size == 0) {
      // Told at the line where the field's opening quote stands.
      if (csv_fini(&m_Parser, OnField, OnRowEnd, this) != 0)
        Fail(m_Line + LineEndsBefore(m_Ends.size()),
             "a quoted field is not closed");
      else if (m_Names.empty())
        Fail(1, "no rows: the first row must name the columns");
      break;
    }
    const char* data = buffer.get();
    if (first && size >= 3 && memcmp(data, "\xEF\xBB\xBF", 3) == 0) {
      data += 3;
      size -= 3;
    }
    first = false;
    if (csv_parse(&m_Parser, data, size, OnField, OnRowEnd, this) != size &&
        !m_Failed) {
      if (csv_error(&m_Parser) != CSV_EPARSE)
        ParseError(csv_strerror(csv_error(&m_Parser)));
      else if (m_Parser.quoted)
        ParseError("a quoted field goes on after its closing quote");
      else
        ParseError("a quote inside a field that does not begin with one");
    }
    if (m_Failed)
      break;
  }
  *err = m_Error;
  return !m_Failed;
}

}  // namespace

bool ConvertCsv(int fd, const std::string& name, const CsvOptions& options,
                TableWriter* writer, std::string* err) {
  CsvSource source(name, options, writer);
  return source.Run(fd, err);
}

}  // namespace formfill_table
