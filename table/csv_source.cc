#include "table/csv_source.h"

#include <csv.h>
#include <errno.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "table/bytes.h"
#include "table/records.h"

namespace formfill_table {

namespace {

// Large reads: few system calls, and few rows cut at a read's end.
constexpr size_t kChunk = 256 * 1024;

// Line ends in text: an LF, a CR not followed by LF, and CRLF count one each.
long CountLineEnds(const char* text, size_t size) {
  long n = 0;
  for (size_t i = 0; i < size; ++i)
    n += text[i] == '\n' || (text[i] == '\r' && (i + 1 == size ||
                                                 text[i + 1] != '\n'));
  return n;
}

// The bytes that end an unquoted field or make it one for libcsv: the
// delimiter, the quote, CR and LF.
constexpr std::array<char, 4> kCommaStops = {',', '"', '\r', '\n'};
constexpr std::array<char, 4> kTabStops = {'\t', '"', '\r', '\n'};

// The first of kStops from p on, or end.
template <const auto& kStops>
const char* FindStop(const char* p, const char* end) {
  for (; end - p >= 16; p += 16) {
    const uint32_t marks = ByteMarks<kStops, false>::Find(
        reinterpret_cast<const unsigned char*>(p));
    if (marks != 0)
      return p + FirstMark(marks);
  }
  while (p < end && memchr(kStops.data(), *p, kStops.size()) == nullptr)
    ++p;
  return p;
}

// The quoted field whose opening quote is before p, up to its closing
// quote: the value (a doubled quote stands for one) appended to *row, the
// byte after the closing quote in *next. False when the text ends first,
// also right after a quote, which may still be the first of two.
bool ScanQuoted(const char* p, const char* end, CsvRow* row,
                const char** next) {
  for (;;) {
    const auto* quote =
        static_cast<const char*>(memchr(p, '"', static_cast<size_t>(end - p)));
    if (quote == nullptr || quote + 1 == end)
      return false;
    const bool doubled = quote[1] == '"';
    row->text.append(p, static_cast<size_t>(quote - p) + doubled);
    if (!doubled) {
      *next = quote + 1;
      return true;
    }
    p = quote + 2;
  }
}

// Blanks and tabs at the edges of an unquoted field are part of its value:
// a leading blank is something the user typed.
int NoSpace(unsigned char) { return 0; }

}  // namespace

RowScan ScanCsvRow(const char* text, size_t size, char delim, CsvRow* row,
                   size_t* used) {
  row->text.clear();
  row->ends.clear();
  const char* p = text;
  const char* const end = text + size;
  // A line end where a row would begin: libcsv reports an empty row.
  if (p < end && (*p == '\r' || *p == '\n')) {
    row->end = *p;
    *used = 1;
    return RowScan::kRow;
  }
  for (;;) {
    if (p < end && *p == '"') {
      if (!ScanQuoted(p + 1, end, row, &p))
        return RowScan::kUnfinished;
    } else {
      const char* q = delim == '\t' ? FindStop<kTabStops>(p, end)
                                    : FindStop<kCommaStops>(p, end);
      if (q < end && *q == '"')
        return RowScan::kOther;  // strict CSV refuses it: libcsv says where
      row->text.append(p, static_cast<size_t>(q - p));
      p = q;
    }
    if (p == end)
      return RowScan::kUnfinished;
    row->ends.push_back(row->text.size());
    const char c = *p++;
    if (c == '\r' || c == '\n') {
      row->end = c;
      *used = static_cast<size_t>(p - text);
      return RowScan::kRow;
    }
    if (c != delim)
      return RowScan::kOther;  // text after a closing quote
  }
}

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
  bool TakeNames();
  bool TakeRecord();
  long LineEndsBefore(size_t field) const;
  size_t TakeRows(const char* data, size_t size, bool last);
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
  source->m_Row.text.append(static_cast<const char*>(data), size);
  source->m_Row.ends.push_back(source->m_Row.text.size());
}

void CsvSource::OnRowEnd(int end, void* self) {
  auto* source = static_cast<CsvSource*>(self);
  source->m_InParser = false;
  source->EndRow(end);
}

long CsvSource::LineEndsBefore(size_t field) const {
  long n = 0;
  const std::vector<size_t>& ends = m_Row.ends;
  for (size_t f = 0, begin = 0; f < field && f < ends.size(); ++f) {
    n += CountLineEnds(m_Row.text.data() + begin, ends[f] - begin);
    begin = ends[f];
  }
  return n;
}

void CsvSource::EndRow(int end) {
  if (m_Failed)
    return;
  if (!m_Row.ends.empty()) {
    if (m_Names.empty() ? !TakeNames() : !TakeRecord())
      return;
    // Most rows hold no line break: two quick scans tell.
    const std::string& text = m_Row.text;
    if (memchr(text.data(), '\n', text.size()) != nullptr ||
        memchr(text.data(), '\r', text.size()) != nullptr)
      m_Line += LineEndsBefore(m_Row.ends.size());
    m_Row.text.clear();
    m_Row.ends.clear();
  }
  if (end == '\r' || (end == '\n' && !m_AfterCr))
    ++m_Line;
  m_AfterCr = end == '\r';
}

bool CsvSource::TakeNames() {
  size_t begin = 0;
  for (size_t end : m_Row.ends) {
    m_Names.emplace_back(m_Row.text, begin, end - begin);
    const ValueCheck check =
        CheckValue(m_Row.text.data() + begin, end - begin);
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
  const std::vector<size_t>& ends = m_Row.ends;
  if (ends.size() != m_Names.size())
    return Fail(m_Line, "a row of " + std::to_string(ends.size()) +
                            " fields, but the first row names " +
                            std::to_string(m_Names.size()) + " columns");
  for (size_t f = 0, begin = 0; f < ends.size(); begin = ends[f++])
    m_Cells[f] = Cell{m_Row.text.data() + begin, ends[f] - begin};
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
  return Fail(m_Line + LineEndsBefore(m_Row.ends.size()) +
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
size_t CsvSource::TakeRows(const char* data, size_t size, bool last) {
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
      m_AfterCr = m_AfterCr && m_Row.ends.empty();
      EndRow(m_Row.end);
      pos += used;
    } else if (scan == RowScan::kUnfinished && !last && pos > 0) {
      break;
    } else {
      m_Row.text.clear();
      m_Row.ends.clear();
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
  if (csv_fini(&m_Parser, OnField, OnRowEnd, this) != 0)
    Fail(m_Line + LineEndsBefore(m_Row.ends.size()),
         "a quoted field is not closed");
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
    const char* data = buffer.get();
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
