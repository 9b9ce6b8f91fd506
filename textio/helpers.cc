#include "textio/helpers.h"

#include <time.h>

#include <string>

#include "textio/utf8.h"

size_t FormatDecimal(int64_t value, wchar_t* out) {
  // Unsigned, so that the smallest value has a magnitude too.
  uint64_t magnitude = value < 0 ? 0u - static_cast<uint64_t>(value)
                                 : static_cast<uint64_t>(value);
  wchar_t reversed[kDecimalDigits];
  size_t n = 0;
  do {
    reversed[n++] = static_cast<wchar_t>(L'0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  size_t count = 0;
  if (value < 0) {
    out[count++] = L'-';
  }
  while (n > 0) {
    out[count++] = reversed[--n];
  }
  return count;
}

void _wsplitpath(std::wstring const& path, std::wstring& dir,
                 std::wstring& name, std::wstring& ext) {
  dir.clear();
  name.clear();
  ext.clear();
  // Template names may still be written with backslashes.
  std::wstring copy = path;
  for (wchar_t& c : copy) {
    if (c == L'\\')
      c = L'/';
  }
  std::wstring rest;
  const size_t slash = copy.rfind(L'/');
  if (slash != std::wstring::npos) {
    dir = copy.substr(0, slash + 1);
    rest = copy.substr(slash + 1);
  } else {
    rest = copy;
  }
  const size_t dot = rest.rfind(L'.');
  if (dot != std::wstring::npos) {
    name = rest.substr(0, dot);
    ext = rest.substr(dot + 1);
  } else {
    name = rest;
  }
}

std::wstring GetCurrentTimeString(char const* format) {
  char buf[80];
  const time_t now = time(nullptr);
  // The program has one thread, so the shared broken-down time is safe.
  const struct tm* local = localtime(&now);
  size_t len = 0;
  if (local != nullptr) {
    // strftime gives 0 when the text does not fit; the buffer's content is
    // then undefined, so nothing of it is used.
    len = strftime(buf, sizeof(buf), format, local);
  }
  // The formats in use give ASCII only: each byte is its own character.
  std::wstring out;
  out.reserve(len);
  for (size_t i = 0; i < len; ++i) {
    out.push_back(static_cast<wchar_t>(static_cast<unsigned char>(buf[i])));
  }
  return out;
}

DBString::DBString(char const* text) {
  if (text == nullptr)
    return;
  try {
    assign(FromUtf8(text));
  } catch (...) {
    // A damaged catalogue text shows as a marker instead of ending the run.
    assign(L"?utf-32?");
  }
}
