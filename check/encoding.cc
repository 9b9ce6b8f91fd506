// The bytes of a template section or a table that are not UTF-8, read a
// block at a time so that a table of any size takes little memory.
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

}  // namespace

EncodingScan CheckEncoding(CheckState& s, const std::string& file,
                           const char* what) {
  EncodingScan scan;
  std::ifstream in(file, std::ios::binary);
  std::string block(1 << 16, '\0');
  std::string carry;
  long line = 1;
  long column = 1;
  int reported = 0;
  long long offset = 0;
  bool line_reported = false;
  bool escaped = false;
  for (;;) {
    in.read(&block[0], static_cast<std::streamsize>(block.size()));
    const size_t got = static_cast<size_t>(in.gcount());
    std::string bytes = carry + block.substr(0, got);
    carry.clear();
    const bool last = got == 0 || !in;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t i = 0;
    while (i < bytes.size()) {
      int n = Sequence(p + i, bytes.size() - i);
      if (n < 0 && !last) {
        carry = bytes.substr(i);
        break;
      }
      if (n <= 0) {
        if (scan.stop_offset < 0 && (n < 0 || FormfillStops(p[i])))
          scan.stop_offset = offset + static_cast<long long>(i);
        if (!line_reported && ++reported <= 5) {
          s.Add(file, line, column, Severity::kWarning,
                "byte " + std::to_string(offset + static_cast<long long>(i)) +
                    " is not UTF-8 (" + what + " must be UTF-8): formfill " +
                    (n < 0 || FormfillStops(p[i])
                         ? "stops reading there"
                         : "reads it and the bytes after it as another "
                           "character"),
                "encoding");
        }
        line_reported = true;
        n = 1;
      } else if (p[i] == '\n') {
        ++line;
        column = 0;
        line_reported = false;
      } else if (p[i] == '@' && !escaped && scan.stop_offset >= 0) {
        ++scan.ends_after_stop;
      }
      escaped = p[i] == '\\' && !escaped;
      ++column;
      i += static_cast<size_t>(n);
    }
    offset += static_cast<long long>(bytes.size() - carry.size());
    if (last && carry.empty())
      break;
  }
  return scan;
}
