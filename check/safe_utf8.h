// Text for the checker's messages and names.
#ifndef FORMFILL_CHECK_SAFE_UTF8_H_
#define FORMFILL_CHECK_SAFE_UTF8_H_

#include <stdexcept>
#include <string>

#include "textio/utf8.h"

// text as UTF-8, or fallback when it holds a character beyond Unicode.
inline std::string SafeUtf8(const std::wstring& text,
                            const char* fallback = "?") {
  try {
    return ToUtf8(text);
  } catch (const std::range_error&) {
    return fallback;
  }
}

#endif  // FORMFILL_CHECK_SAFE_UTF8_H_
