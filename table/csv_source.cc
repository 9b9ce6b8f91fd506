#include "table/csv_source.h"

#include <csv.h>
#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "table/csv_scan.h"
#include "table/records.h"

namespace formfill_table {

namespace {

// Large reads: few system calls, and few rows cut at a read's end.
constexpr size_t kChunk = 256 * 1024;

// Blanks and tabs at the edges of an unquoted field are part of its value:
// a leading blank is something the user typed.
int NoSpace(unsigned char) { return 0; }

}  // namespace

namespace {

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
  void LibraryCells();
  bool TakeNames();
  bool TakeRecord();
  long LineEndsBefore(size_t field) const;
  size_t TakeRows(char* data, size_t size, bool last);
  size_t ParseLine(const char* data, size_t size);
  bool ParseError(const char* what);
  void ParseFailure();
  void Finish();
  bool Fail(long line, const std::string& what);
  bool Fill(int fd, char* buffer, size_t kept, size_t* size, bool* last);

  const std::string m_Name;
  const CsvOptions& m_Options;
  TableWriter* const m_Writer;
  const char m_Delim;
  csv_parser m_Parser;
  // The row being read has been given to libcsv, which has not yet ended
  // it. Between rows, libcsv waits for the beginning of the next one.
  bool m_InParser = false;

  CsvRow m_Row;  // the fields of the row being read
  // The fields libcsv gave of the row it reads, back to back, and where
  // each ends.
  std::string m_LibraryText;
  std::vector<size_t> m_LibraryEnds;
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
    : m_Name(name),
      m_Options(options),
      m_Writer(writer),
      m_Delim(options.tsv ? '\t' : ',') {
  // Strict: a stray quote is an error, not a guess. Every line end is
  // reported, so that lines can be counted for messages.
  csv_init(&m_Parser, CSV_STRICT | CSV_STRICT_FINI | CSV_REPALL_NL);
  csv_set_space_func(&m_Parser, NoSpace);
  csv_set_delim(&m_Parser, static_cast<unsigned char>(m_Delim));
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
  source->m_LibraryText.append(static_cast<const char*>(data), size);
  source->m_LibraryEnds.push_back(source->m_LibraryText.size());
}

void CsvSource::OnRowEnd(int end, void* self) {
  auto* source = static_cast<CsvSource*>(self);
  source->m_InParser = false;
  source->LibraryCells();
  source->EndRow(end);
  source->m_LibraryText.clear();
  source->m_LibraryEnds.clear();
}

// The fields libcsv has given so far, as the row's cells.
void CsvSource::LibraryCells() {
  m_Row.cells.clear();
  m_Row.breaks = true;
  for (size_t f = 0, begin = 0; f < m_LibraryEnds.size();
       begin = m_LibraryEnds[f++])
    m_Row.cells.push_back(
        Cell{m_LibraryText.data() + begin, m_LibraryEnds[f] - begin});
}

long CsvSource::LineEndsBefore(size_t field) const {
  long n = 0;
  for (size_t f = 0; f < field && f < m_Row.cells.size(); ++f)
    n += CountLineEnds(m_Row.cells[f].data, m_Row.cells[f].size);
  return n;
}

void CsvSource::EndRow(int end) {
  if (m_Failed)
    return;
  if (!m_Row.cells.empty()) {
    if (m_Names.empty() ? !TakeNames() : !TakeRecord())
      return;
    if (m_Row.breaks)
      m_Line += LineEndsBefore(m_Row.cells.size());
    m_Row.cells.clear();
  }
  if (end == '\r' || (end == '\n' && !m_AfterCr))
    ++m_Line;
  m_AfterCr = end == '\r';
}

bool CsvSource::TakeNames() {
  for (const Cell& cell : m_Row.cells) {
    m_Names.emplace_back(cell.data, cell.size);
    const ValueCheck check = CheckValue(cell.data, cell.size);
    if (!check.ok())
      return Fail(m_Line + LineEndsBefore(m_Names.size() - 1),
                  "the name of column " + std::to_string(m_Names.size()) +
                      " holds " + FaultText(check.fault));
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
  return true;
}

bool CsvSource::TakeRecord() {
  const std::vector<Cell>& cells = m_Row.cells;
  if (cells.size() != m_Names.size())
    return Fail(m_Line, "a row of " + std::to_string(cells.size()) +
                            " fields, but the first row names " +
                            std::to_string(m_Names.size()) + " columns");
  CellFault fault;
  if (!m_Builder->Build(cells.data(), &fault)) {
    const Cell& cell = cells[fault.column];
    return Fail(m_Line + LineEndsBefore(fault.column) +
                    CountLineEnds(cell.data, fault.check.at),
                "column '" + m_Names[fault.column] + "' holds " +
                    FaultText(fault.check.fault));
  }
  const Cell& key = cells[m_KeyColumn];
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
  LibraryCells();
  const auto* partial = reinterpret_cast<const char*>(m_Parser.entry_buf);
  const size_t partial_size = partial == nullptr ? 0 : m_Parser.entry_pos;
  return Fail(m_Line + LineEndsBefore(m_Row.cells.size()) +
                  CountLineEnds(partial, partial_size),
              what);
}

void CsvSource::ParseFailure() {
  if (m_Failed)
    return;
  if (csv_error(&m_Parser) != CSV_EPARSE)
    ParseError(csv_strerror(csv_error(&m_Parser)));
  else if (m_Parser.quoted)
    ParseError("a quoted field goes on after its closing quote");
  else
    ParseError("a quote inside a field that does not begin with one");
}

// Gives libcsv data up to its first line end, where the row may end (the
// row's end comes at a line end or not at all); returns the bytes given.
size_t CsvSource::ParseLine(const char* data, size_t size) {
  size_t n = 0;
  while (n < size && data[n] != '\n' && data[n] != '\r')
    ++n;
  n += n < size;
  if (csv_parse(&m_Parser, data, n, OnField, OnRowEnd, this) != n)
    ParseFailure();
  return n;
}

// The rows in data; returns the bytes used: all of them, but for a row
// that data ends in, which waits for the next read unless the input ends
// (last) or it began at the start of a full buffer.
size_t CsvSource::TakeRows(char* data, size_t size, bool last) {
  size_t pos = 0;
  while (pos < size && !m_Failed) {
    if (m_InParser) {
      pos += ParseLine(data + pos, size - pos);
      continue;
    }
    // libcsv steps through every byte by a callback of its own: most rows
    // are read here instead, and libcsv gets the rest whole, so that every
    // fault is still found and placed by the library.
    size_t used;
    const RowScan scan =
        ScanCsvRow(data + pos, size - pos, m_Delim, &m_Row, &used);
    if (scan == RowScan::kRow) {
      m_AfterCr = m_AfterCr && m_Row.cells.empty();
      EndRow(m_Row.end);
      pos += used;
    } else if (scan == RowScan::kUnfinished && !last && pos > 0) {
      break;
    } else {
      m_Row.cells.clear();
      m_InParser = true;
    }
  }
  return pos;
}

// Reads into buffer after its first kept bytes until it is full or the
// input ends (*last); *size is the bytes then in buffer.
bool CsvSource::Fill(int fd, char* buffer, size_t kept, size_t* size,
                     bool* last) {
  *size = kept;
  *last = false;
  while (*size < kChunk) {
    const ssize_t n = read(fd, buffer + *size, kChunk - *size);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0) {
      m_Failed = true;
      m_Error = "cannot read " + m_Name + ": " + strerror(errno);
      return false;
    }
    if (n == 0) {
      *last = true;
      break;
    }
    *size += static_cast<size_t>(n);
  }
  return true;
}

void CsvSource::Finish() {
  // Told at the line where the field's opening quote stands.
  if (csv_fini(&m_Parser, OnField, OnRowEnd, this) != 0) {
    LibraryCells();
    Fail(m_Line + LineEndsBefore(m_Row.cells.size()),
         "a quoted field is not closed");
  }
  else if (m_Names.empty())
    Fail(1, "no rows: the first row must name the columns");
}

bool CsvSource::Run(int fd, std::string* err) {
  std::unique_ptr<char[]> buffer(new char[kChunk]);
  size_t kept = 0;  // an unfinished row, moved to the buffer's start
  for (bool first = true; !m_Failed; first = false) {
    size_t size;
    bool last;
    if (!Fill(fd, buffer.get(), kept, &size, &last))
      break;
    char* data = buffer.get();
    if (first && size >= 3 && memcmp(data, "\xEF\xBB\xBF", 3) == 0) {
      data += 3;
      size -= 3;
    }
    const size_t used = TakeRows(data, size, last);
    if (last && !m_Failed)
      Finish();
    if (last)
      break;
    kept = size - used;
    memmove(buffer.get(), data + used, kept);
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
