// The bytes of a template section or a table that are not UTF-8, read a
// block at a time so that a table of any size takes little memory.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>

#include "check/static_checks.h"

namespace {

// Length of the valid UTF-8 sequence at p (avail bytes there), 0 when it
// is not valid, -1 when the bytes end inside it.
int Sequence(const unsigned char* p, size_t avail) {
  const unsigned c = p[0];
  if (c < 0x80)
    return 1;
  int n = c >= 0xC2 && c <= 0xDF ? 2 : c >= 0xE0 && c <= 0xEF ? 3
          : c >= 0xF0 && c <= 0xF4 ? 4 : 0;
  if (n == 0)
    return 0;
  for (int k = 1; k < n; ++k) {
    if (static_cast<size_t>(k) >= avail)
      return -1;
    if ((p[k] & 0xC0) != 0x80)
      return 0;
  }
  if ((c == 0xE0 && p[1] < 0xA0) || (c == 0xF0 && p[1] < 0x90) ||
      (c == 0xF4 && p[1] >= 0x90))
    return 0;
  return n;
}

// Whether formfill's own decoder stops at the byte c (it takes any other
// lead byte and whatever follows it).
bool FormfillStops(unsigned c) {
  return (c >= 0x80 && c <= 0xBF) || c >= 0xF8;
}

void Report(CheckState& s, const std::string& file, long line,
            long long column, long long at, const char* what, bool stops) {
  s.Add(file, line, static_cast<long>(column) + 1, Severity::kWarning,
        "byte " + std::to_string(at) + " is not UTF-8 (" + what +
            " must be UTF-8): formfill " +
            (stops ? "stops reading there"
                   : "reads it and the bytes after it as another character"),
        "encoding");
}

// Counts the line feeds of the file's bytes [counted, to), which p holds
// from offset on, into line, and notes where the last line begins.
void CountLines(const unsigned char* p, long long offset, long long& counted,
                long long to, long& line, long long& line_start) {
  if (to <= counted)
    return;
  const unsigned char* from = p + (counted - offset);
  const unsigned char* end = p + (to - offset);
  line += static_cast<long>(std::count(from, end, '\n'));
  for (const unsigned char* k = end; k > from; --k) {
    if (k[-1] == '\n') {
      line_start = offset + (k - p);
      break;
    }
  }
  counted = to;
}

// Where the next byte from 0x80 up is in bytes[from, size), or size. A
// table is nearly all ASCII: eight bytes are tested at a time.
size_t NextHigh(const unsigned char* p, size_t from, size_t size) {
  while (from + 8 <= size) {
    uint64_t word;
    std::memcpy(&word, p + from, sizeof word);
    if ((word & 0x8080808080808080ull) != 0)
      break;
    from += 8;
  }
  while (from < size && p[from] < 0x80)
    ++from;
  return from;
}

}  // namespace

EncodingScan CheckEncoding(CheckState& s, const std::string& file,
                           const char* what) {
  EncodingScan scan;
  std::ifstream in(file, std::ios::binary);
  std::string bytes;
  std::string block(1 << 16, '\0');
  // Lines are counted only up to the bytes reported.
  long line = 1;
  long long line_start = 0;
  long long counted = 0;
  long long offset = 0;  // of bytes[0] in the file
  int reported = 0;
  long last_line = 0;
  for (;;) {
    in.read(&block[0], static_cast<std::streamsize>(block.size()));
    const size_t got = static_cast<size_t>(in.gcount());
    if (scan.stop_offset >= 0)  // the records after the stop, roughly
      scan.ends_after_stop += std::count(block.begin(), block.begin() + got, '@');
    bytes.append(block, 0, got);
    const bool last = got == 0 || !in;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t i = 0;
    for (;;) {
      i = NextHigh(p, i, bytes.size());
      if (i >= bytes.size())
        break;
      const int n = Sequence(p + i, bytes.size() - i);
      if (n < 0 && !last)
        break;  // the sequence goes on in the next block
      if (n > 0) {
        i += static_cast<size_t>(n);
        continue;
      }
      const long long at = offset + static_cast<long long>(i);
      const bool stops = n < 0 || FormfillStops(p[i]);
      if (stops && scan.stop_offset < 0) {
        scan.stop_offset = at;
        for (size_t k = i + 1; k < bytes.size(); ++k)
          scan.ends_after_stop += p[k] == '@' && p[k - 1] != '\\';
      }
      CountLines(p, offset, counted, at, line, line_start);
      if (line != last_line && ++reported <= 5) {
        Report(s, file, line, at - line_start, at, what, stops);
      }
      last_line = line;
      ++i;
    }
    // Lines before what is kept are counted before it goes.
    CountLines(p, offset, counted, offset + static_cast<long long>(i), line,
               line_start);
    offset += static_cast<long long>(i);
    bytes.erase(0, i);
    if (last)
      break;
  }
  return scan;
}
