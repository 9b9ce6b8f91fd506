// Path splitting, current-time formatting and the catalogue's wide string.
#ifndef FORMFILL_TEXTIO_HELPERS_H_
#define FORMFILL_TEXTIO_HELPERS_H_

#include <cstddef>
#include <cstdint>
#include <string>

// An ASCII decimal digit: the only digits of field numbers, labels and
// counts, whatever the locale says.
inline bool IsDigit(wchar_t c) {
  return c >= L'0' && c <= L'9';
}

// Splits path into directory (with its final '/', backslashes turned into
// slashes), base name and extension (after the last dot of the file name,
// without the dot). Earlier contents of the outputs are discarded.
void _wsplitpath(std::wstring const& path, std::wstring& dir,
                 std::wstring& name, std::wstring& ext);

// Room for the decimal text of any 64-bit value.
constexpr size_t kDecimalDigits = 24;
// Writes value in decimal ("-" first when negative, nothing else) to out,
// which holds kDecimalDigits characters, and returns how many it wrote.
size_t FormatDecimal(int64_t value, wchar_t* out);

// The current local time formatted by the strftime format, each byte
// widened as it is. A result that does not fit in 79 bytes gives "".
std::wstring GetCurrentTimeString(char const* format);

// The wide string in which the message catalogue returns its texts.
class DBString : public std::wstring {
 public:
  // Decodes the zero-terminated UTF-8 text as FromUtf8 does; null gives an
  // empty string and bytes that FromUtf8 refuses give "?utf-32?" for the
  // whole text. Never throws.
  explicit DBString(char const* text);
};

#endif  // FORMFILL_TEXTIO_HELPERS_H_
