// Fuzzes the UTF-8 reader and writer: whatever the lenient reader delivers
// and the writer accepts must read back unchanged, and the writer and the
// strict decoder must agree with the standard conversion facet.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
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

std::wstring ReadAll(const std::string& path) {
  InputFile in(WidenPath(path).c_str());
  std::wstring text;
  wchar_t ch;
  while (in.Get(ch)) {
    text.push_back(ch);
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string in_path = WriteScratch("in.txt", data, size);
  std::wstring decoded = ReadAll(in_path);

  std::string out_path = ScratchDir() + "out.txt";
  bool writable = true;
  {
    OutputFile out(WidenPath(out_path).c_str(), false);
    try {
      out << decoded;
    } catch (const std::range_error&) {
      writable = false;  // a character above U+10FFFF
    }
  }
  if (writable && ReadAll(out_path) != decoded) {
    abort();
  }

  std::wstring_convert<std::codecvt_utf8<wchar_t>> facet;
  std::string mine_bytes;
  bool mine_ok = true;
  try {
    mine_bytes = ToUtf8(decoded);
  } catch (const std::range_error&) {
    mine_ok = false;
  }
  std::string facet_bytes;
  bool facet_ok = true;
  try {
    facet_bytes = facet.to_bytes(decoded);
  } catch (const std::range_error&) {
    facet_ok = false;
  }
  if (mine_ok != facet_ok || (mine_ok && mine_bytes != facet_bytes)) {
    abort();
  }

  std::string raw(reinterpret_cast<const char*>(data), size);
  std::wstring mine_text;
  mine_ok = true;
  try {
    mine_text = FromUtf8(raw);
  } catch (const std::range_error&) {
    mine_ok = false;
  }
  std::wstring facet_text;
  facet_ok = true;
  try {
    facet_text = facet.from_bytes(raw);
  } catch (const std::range_error&) {
    facet_ok = false;
  }
  if (mine_ok != facet_ok || (mine_ok && mine_text != facet_text)) {
    abort();
  }
  return 0;
}
