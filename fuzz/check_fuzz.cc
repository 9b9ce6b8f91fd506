// Fuzzes formfill-check: the input is section 1 and, after each "\n%%\n",
// sections 2 and 3, the table and the parameters file. The checks that
// need no run read them all; then the dry run must end (the budget stops
// formfill's endless loops), every line of its trace must carry a gutter,
// and only the failures formfill itself ends with may stop it.
#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "check/dry_run.h"
#include "check/static_checks.h"
#include "driver/tbl.h"
#include "template/classify.h"
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::locale::global(std::locale("C.UTF-8"));
  std::setlocale(LC_ALL, "C.UTF-8");
  return 0;
}

namespace {

std::wstring Widen(const std::string& bytes) {
  return std::wstring(bytes.begin(), bytes.end());
}

// The messages of the exceptions formfill lets end a run.
bool ExpectedAbort(const std::string& message) {
  for (const char* known : {"header text copied by the template too long",
                            "the header texts copy themselves",
                            "template line too long after substitution",
                            "wstring_convert::to_bytes"}) {
    if (message.find(known) != std::string::npos)
      return true;
  }
  return false;
}

// How many "@" and a digit the sections hold. Header texts that copy
// header texts compound at every copy, and an input with many of them
// spends its time copying megabytes (as formfill would): such inputs teach
// the fuzzer nothing and are left out.
size_t Copies(const std::vector<std::pair<const uint8_t*, size_t>>& parts) {
  size_t copies = 0;
  for (size_t k = 0; k < parts.size() && k < 3; ++k) {
    for (size_t i = 0; i + 1 < parts[k].second; ++i) {
      copies += parts[k].first[i] == '@' && parts[k].first[i + 1] >= '0' &&
                parts[k].first[i + 1] <= '9';
    }
  }
  return copies;
}

// Whether a section repeats a block into more lines than a few thousand.
// Such inputs print the same lines over and over and teach the fuzzer no
// more than a small count does; they are left out too.
bool RepeatsMuch(const std::vector<std::pair<const uint8_t*, size_t>>& parts) {
  for (size_t k = 0; k < parts.size() && k < 3; ++k) {
    const std::string text(reinterpret_cast<const char*>(parts[k].first),
                           parts[k].second);
    for (size_t at = text.find(">repeat"); at != std::string::npos;
         at = text.find(">repeat", at + 1)) {
      const std::wstring line = Widen(text.substr(at, 40)) + L"\n";
      const Command repeat = ReadRepeat(line.c_str());
      if (static_cast<long>(repeat.blockLines) * repeat.repeats > 2000)
        return true;
    }
  }
  return false;
}

// Whether the table's records times the sections' lines run past a few
// thousand: every record prints the sections again, and an input of many
// tiny records spends its time writing the same lines, as a large repeat
// does.
bool PrintsMuch(const std::vector<std::pair<const uint8_t*, size_t>>& parts) {
  if (parts.size() < 4)
    return false;
  size_t lines = 0;
  for (size_t k = 0; k < 3; ++k) {
    lines += 1 + static_cast<size_t>(std::count(
                     parts[k].first, parts[k].first + parts[k].second, '\n'));
  }
  const size_t records = 1 + static_cast<size_t>(std::count(
                                 parts[3].first,
                                 parts[3].first + parts[3].second, '@'));
  return lines * records > 4000;
}

// Takes the trace and checks, line by line as it comes, that every line
// has its gutter; keeps nothing.
class GutterCheck : public std::streambuf {
 public:
  bool ok() const { return m_Ok && (!m_Open || m_Seen == 3); }

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    const char* const end = s + n;
    while (s < end) {
      if (m_Seen == 3) {
        // The gutter is found: only the line's end matters now.
        const void* nl = memchr(s, '\n', static_cast<size_t>(end - s));
        m_Open = true;
        if (nl == nullptr)
          break;
        s = static_cast<const char*>(nl);
      }
      overflow(static_cast<unsigned char>(*s++));
    }
    return n;
  }

  int_type overflow(int_type c) override {
    if (c == '\n') {
      m_Ok = m_Ok && m_Seen == 3;
      m_Seen = 0;
      m_Open = false;
      return c;
    }
    m_Open = true;
    if (m_Seen < 3) {
      m_Seen = c == " | "[m_Seen] ? m_Seen + 1 : (c == ' ' ? 1 : 0);
    }
    return c;
  }

 private:
  bool m_Ok = true;
  bool m_Open = false;  // a line has begun and not ended
  int m_Seen = 0;       // characters of " | " matched so far; 3 once found
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto parts = SplitInput(data, size, 5);
  if (Copies(parts) > 6 || RepeatsMuch(parts) || PrintsMuch(parts)) {
    return -1;  // not added to the corpus
  }
  ResetFuzzState();
  const char* const names[] = {"form.1", "form.2", "form.3", "table.txt",
                               "params.txt"};
  for (size_t k = 0; k < 5; ++k) {
    if (k < parts.size())
      WriteScratch(names[k], parts[k].first, parts[k].second);
    else
      WriteScratch(names[k], data, 0);
  }
  RunSettings settings;
  settings.blank = L"form";
  settings.path = WidenPath(ScratchDir());
  settings.table = WidenPath(ScratchDir() + "table.txt");
  settings.params = L"params.txt";
  settings.sheet_lines = static_cast<long>(size % 7);
  // The checks that need no run, their diagnostics thrown away.
  Options options;
  options.blank = settings.blank;
  options.path = settings.path;
  options.table = settings.table;
  options.params = settings.params;
  std::ostream nowhere(nullptr);
  // JSON for one input in eight: its serialiser costs much and varies little.
  Reporter reporter(nowhere, size % 8 == 0, {});
  CheckState state(options, reporter);
  CheckTemplate(state);
  CheckTable(state);
  CheckUses(state);
  ResetFuzzState();

  GutterCheck check;
  std::ostream trace(&check);
  for (const RunFinding& f : DryRun(settings, &trace)) {
    if (f.name == "abort" && !ExpectedAbort(f.message))
      abort();
  }
  // A last line without a line end has its gutter too.
  if (!check.ok())
    abort();
  ResetFuzzState();
  return 0;
}
