// Fuzzes the UTF-8 reader and writer: whatever the lenient reader delivers
// and the writer accepts must read back unchanged, and the writer and the
// strict decoder must agree with the standard conversion facet. The reader
// and the writer work on memory streams, so no file is touched.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <stdio.h>
#include <stdlib.h>

#include <codecvt>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_util.h"
#include "textio/input_file.h"
#include "textio/output_file.h"
#include "textio/utf8.h"

namespace {

// Everything InputFile::Get delivers from the bytes, up to the first
// failed read.
std::wstring ReadAll(const void* bytes, size_t size) {
  std::wstring text;
  if (size == 0) {
    return text;
  }
  InputFile in;
  in.m_Stream = fmemopen(const_cast<void*>(bytes), size, "rb");
  if (in.m_Stream == nullptr) {
    abort();
  }
  wchar_t ch;
  while (in.Get(ch)) {
    text.push_back(ch);
  }
  return text;
}

// What OutputFile writes for text; false when it refuses a character.
bool WriteAll(const std::wstring& text, std::string& bytes) {
  char* buffer = nullptr;
  size_t length = 0;
  bool ok = true;
  {
    // Made on the console name, so that no file is opened, then pointed at
    // a memory stream.
    OutputFile out(kConName, false);
    out.m_Console = false;
    out.m_Stream = open_memstream(&buffer, &length);
    if (out.m_Stream == nullptr) {
      abort();
    }
    try {
      out << text;
    } catch (const std::range_error& e) {
      if (std::string(e.what()) != "wstring_convert::to_bytes") {
        abort();
      }
      ok = false;  // a character above U+10FFFF
    }
  }
  bytes.assign(buffer, length);
  free(buffer);
  return ok;
}

// Runs a conversion; false when it refused the text with std::range_error,
// the only failure either converter may report.
template <typename Convert>
bool Converts(Convert convert) {
  try {
    convert();
  } catch (const std::range_error&) {
    return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::wstring decoded = ReadAll(data, size);

  std::string written;
  const bool writable = WriteAll(decoded, written);
  if (writable && ReadAll(written.data(), written.size()) != decoded) {
    abort();
  }
  if (!writable && !written.empty()) {
    abort();  // a refused text writes nothing
  }

  std::wstring_convert<std::codecvt_utf8<wchar_t>> facet;
  std::string mine_bytes, facet_bytes;
  const bool mine_ok = Converts([&] { mine_bytes = ToUtf8(decoded); });
  const bool facet_ok =
      Converts([&] { facet_bytes = facet.to_bytes(decoded); });
  if (mine_ok != facet_ok || (mine_ok && mine_bytes != facet_bytes)) {
    abort();
  }
  if (writable != mine_ok || (writable && written != mine_bytes)) {
    abort();
  }

  const std::string raw(reinterpret_cast<const char*>(data), size);
  std::wstring mine_text, facet_text;
  const bool mine_read = Converts([&] { mine_text = FromUtf8(raw); });
  const bool facet_read =
      Converts([&] { facet_text = facet.from_bytes(raw); });
  if (mine_read != facet_read || (mine_read && mine_text != facet_text)) {
    abort();
  }
  return 0;
}
