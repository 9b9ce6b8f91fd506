#include "table/csv_scan.h"

#include <array>
#include <cstring>
#include <vector>

#include "table/bytes.h"

namespace formfill_table {

long CountLineEnds(const char* text, size_t size) {
  long n = 0;
  for (size_t i = 0; i < size; ++i)
    n += text[i] == '\n' || (text[i] == '\r' && (i + 1 == size ||
                                                 text[i + 1] != '\n'));
  return n;
}

namespace {

// The bytes that end an unquoted field or make it one for libcsv: the
// delimiter, the quote, CR and LF; and those that end a stretch of a quoted
// field: its quote and the line breaks, which are counted.
constexpr std::array<char, 4> kCommaStops = {',', '"', '\r', '\n'};
constexpr std::array<char, 4> kTabStops = {'\t', '"', '\r', '\n'};
constexpr std::array<char, 3> kQuotedStops = {'"', '\r', '\n'};
constexpr std::array<char, 1> kComma = {','};
constexpr std::array<char, 1> kTab = {'\t'};
constexpr std::array<char, 1> kQuote = {'"'};

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

// The marks of sixteen bytes at p, or of the fewer up to end followed by
// stops: where fields end and why, and what the bytes between are like.
template <const auto& kStops, const auto& kDelim>
struct Block {
  Block(const char* p, const char* end) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(p);
    unsigned char last[16];
    if (end - p < 16) {
      memset(last, kStops[0], sizeof last);
      memcpy(last, p, static_cast<size_t>(end - p));
      bytes = last;
    }
    stops = ByteMarks<kStops, false>::Find(bytes);
    delims = ByteMarks<kDelim, false>::Find(bytes);
    quotes = ByteMarks<kQuote, false>::Find(bytes);
    high = HighMarks(bytes);
    // Control characters and escaped bytes; the signed compare for the
    // former takes the high bytes too.
    special = ByteMarks<kEscapedBytes, true>::Find(bytes) & ~high;
  }
  uint32_t stops;
  uint32_t delims;
  uint32_t quotes;
  uint32_t high;     // bytes from 0x80 up
  uint32_t special;  // bytes that are neither plain nor high
};

// What the bytes of a field are like, all its blocks' marks taken
// together. A blank at the end may meet a line break of a later field or
// be trimmed: left to the full rule.
ValueShape Shape(bool special, bool high, const char* begin,
                 const char* end) {
  if (special || (end > begin && end[-1] == ' '))
    return ValueShape::kUnknown;
  return high ? ValueShape::kText : ValueShape::kPlain;
}

// Reads the unquoted fields from p on into *cells, a block of sixteen bytes
// at a time whatever the fields in it, and returns the byte that ended the
// last: a line end; a quote, which opens the next field right after a
// delimiter and is a stray one anywhere else; or end when the text ends
// first.
template <const auto& kStops, const auto& kDelim>
const char* UnquotedFields(const char* p, const char* end,
                           std::vector<Cell>* cells) {
  const char* field = p;
  bool special = false;
  bool high = false;
  for (const char* b = p;; b += 16) {
    const Block<kStops, kDelim> block(b, end);
    // The field's bits: from its first byte, or all when it began before.
    uint32_t from = field > b ? static_cast<uint32_t>(field - b) : 0;
    for (uint32_t stops = block.stops; stops != 0; stops &= stops - 1) {
      const unsigned at = FirstMark(stops);
      const uint32_t mask = ((1u << at) - 1) >> from << from;
      const char* stop = b + at;
      if (stop >= end)
        return end;
      if ((block.quotes >> at & 1) != 0)
        return stop;
      cells->push_back(Cell{field, static_cast<size_t>(stop - field),
                            Shape(special || (block.special & mask) != 0,
                                  high || (block.high & mask) != 0, field,
                                  stop)});
      if ((block.delims >> at & 1) == 0)
        return stop;
      field = stop + 1;
      from = at + 1;
      special = high = false;
    }
    const uint32_t rest = 0xFFFFu >> from << from;
    special = special || (block.special & rest) != 0;
    high = high || (block.high & rest) != 0;
  }
}

// The quoted field whose opening quote is before p, up to its closing
// quote: the value, its doubled quotes still doubled, in *cell, the byte
// after the closing quote in *next. False when the text ends first, also
// right after a quote, which may still be the first of two.
bool ScanQuoted(char* p, const char* end, Cell* cell, bool* doubled,
                bool* breaks, char** next) {
  cell->data = p;
  for (;;) {
    p += FindStop<kQuotedStops>(p, end) - p;
    if (p == end)
      return false;
    if (*p != '"') {
      *breaks = true;
      ++p;
      continue;
    }
    if (p + 1 == end)
      return false;
    if (p[1] != '"') {
      cell->size = static_cast<size_t>(p - cell->data);
      *next = p + 1;
      return true;
    }
    *doubled = true;
    p += 2;
  }
}

// Makes each doubled quote of the cell, which lies in text, one; the value
// only shrinks, so it stays where it is.
void Undouble(char* text, Cell* cell) {
  char* const begin = text + (cell->data - text);
  const char* r = begin;
  const char* const end = begin + cell->size;
  char* w = begin;
  while (const auto* quote = static_cast<const char*>(
             memchr(r, '"', static_cast<size_t>(end - r)))) {
    const size_t n = static_cast<size_t>(quote - r) + 1;  // one quote kept
    memmove(w, r, n);
    w += n;
    r = quote + 2;
  }
  memmove(w, r, static_cast<size_t>(end - r));
  cell->size = static_cast<size_t>(w + (end - r) - begin);
}

// The fields of the row at the start of text, which does not begin with a
// line end, as ScanCsvRow reads them.
RowScan ScanFields(char* text, size_t size, char delim, CsvRow* row,
                   size_t* used) {
  char* p = text;
  const char* const end = text + size;
  for (;;) {
    if (p < end && *p == '"') {
      Cell cell;
      bool doubled = false;
      if (!ScanQuoted(p + 1, end, &cell, &doubled, &row->breaks, &p))
        return RowScan::kUnfinished;
      if (doubled)
        row->doubled.push_back(row->cells.size());
      row->cells.push_back(cell);
    } else {
      const char* q =
          delim == '\t'
              ? UnquotedFields<kTabStops, kTab>(p, end, &row->cells)
              : UnquotedFields<kCommaStops, kComma>(p, end, &row->cells);
      p += q - p;
      if (p < end && *p == '"') {
        if (p[-1] != delim)
          return RowScan::kOther;  // strict CSV refuses it: libcsv says where
        continue;  // a quoted field next
      }
    }
    if (p == end)
      return RowScan::kUnfinished;
    const char c = *p++;
    if (c == '\r' || c == '\n') {
      row->end = c;
      *used = static_cast<size_t>(p - text);
      for (const size_t f : row->doubled)
        Undouble(text, &row->cells[f]);
      return RowScan::kRow;
    }
    if (c != delim)
      return RowScan::kOther;  // text after a closing quote
  }
}

}  // namespace

RowScan ScanCsvRow(char* text, size_t size, char delim, CsvRow* row,
                   size_t* used) {
  row->cells.clear();
  row->doubled.clear();
  row->breaks = false;
  // A line end where a row would begin: libcsv reports an empty row.
  if (size > 0 && (text[0] == '\r' || text[0] == '\n')) {
    row->end = text[0];
    *used = 1;
    return RowScan::kRow;
  }
  const RowScan scan = ScanFields(text, size, delim, row, used);
  if (scan != RowScan::kRow)
    row->cells.clear();
  return scan;
}

}  // namespace formfill_table
