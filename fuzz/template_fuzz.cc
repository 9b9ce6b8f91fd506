// Fuzzes template loading, line iteration and line substitution: the input
// is section 1 and, after each "\n%%\n", sections 2 and 3. Records come from
// a small fixed table whose values are given to every record field the
// template registers. The run follows the driver's steps, with two limits,
// because a template can loop for ever by design: a cap on the lines handed
// out (a backward conditional jump that goes on printing once nothing is
// left), and a stop where a cycle of non-text lines would spin inside one
// Blank::Next call (nothing left to print, so the loop guard stands aside).
// The standard exceptions that end a run on purpose (a line pushed past the
// working buffer, a character the UTF-8 writer cannot write) are expected
// outcomes; any other exception is a finding.
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/tbl.h"
#include "fuzz/fuzz_util.h"
#include "template/blank.h"
#include "template/line.h"
#include "textio/output_file.h"

namespace {

constexpr int kMaxLinesOut = 150;

// Short and long values, several values in one field, empty values and a
// single word too long for any stretch.
const std::vector<std::wstring>& RecordValues() {
  static const std::vector<std::wstring> values = {
      L"alpha beta, gamma delta; epsilon",
      L"x",
      L"",
      L"one\x01two\x01three",
      L"a-very-long-word-without-any-separator-at-all-to-force-a-hard-cut",
      L"\x01\x01",
      L"tab\there (x) [y] z! end? \u0416\u0436 \U0001F600",
  };
  return values;
}

// A header value longer than a whole line, so that "@4" can push a line
// past the working buffer.
std::wstring LongValue() {
  std::wstring value;
  while (value.size() < 4200) {
    value += L"lorem ipsum, dolor sit amet; ";
  }
  return value;
}

// True when the section has a cycle made only of non-text entries. Once
// nothing is left to print such a cycle never ends inside one Blank::Next
// call (unless it passes the call's start), which is an accepted endless
// run, not a finding. Every non-text entry goes on to the entry after it
// (a label, a declaration, a repeat, a jump not taken or refused); a jump
// may also go to its target. Text entries end a call and break the cycle.
bool HasSilentCycle(const Blank& blank) {
  const int n = blank.m_Count;
  std::vector<int> state(n, 0);  // 0 new, 1 on the stack, 2 done
  std::vector<std::pair<int, int>> stack;
  auto next_of = [&](int i, int k) -> int {
    const Line& line = blank.m_Lines[i];
    if (k == 0) {
      return i + 1;
    }
    if (k == 1 && line.kind == Line::Jump) {
      return static_cast<int>(line.link);
    }
    return -1;
  };
  for (int root = 0; root < n; ++root) {
    if (state[root] != 0 || blank.m_Lines[root].kind == Line::Text) {
      continue;
    }
    stack.push_back({root, 0});
    state[root] = 1;
    while (!stack.empty()) {
      const int i = stack.back().first;
      const int k = stack.back().second++;
      if (k > 1) {
        state[i] = 2;
        stack.pop_back();
        continue;
      }
      const int j = next_of(i, k);
      if (j < 0 || j >= n || blank.m_Lines[j].kind == Line::Text) {
        continue;
      }
      if (state[j] == 1) {
        return true;
      }
      if (state[j] == 0) {
        state[j] = 1;
        stack.push_back({j, 0});
      }
    }
  }
  return false;
}

void FillRecord(int record) {
  const auto& values = RecordValues();
  size_t k = static_cast<size_t>(record);
  for (auto& entry : Tbl::TabRcdField) {
    entry.second->Clear();
    entry.second->PutStr(values[k++ % values.size()].c_str());
  }
  Tbl::FirstOst = Tbl::TabRcdField.AllOst();
}

class Runner {
 public:
  Runner(Blank& blank, OutputFile& out) : m_Blank(blank), m_Out(out) {}

  // The driver's run over three records. Where the real run would not end
  // (or the line cap is reached) the run stops there.
  void Run() {
    if (Load(1) == 0) {
      return;
    }
    m_SilentCycle = HasSilentCycle(m_Blank);
    for (int record = 0; record < 3; ++record) {
      FillRecord(record);
      Tbl::totBreak += record;  // page marks
      m_Blank.ClrCount();
      bool first_continuation = true;
      int64_t previous = 0;
      for (;;) {
        if (!Lines(0, true)) {
          return;
        }
        if (!Tbl::TabRcdField.Exist()) {
          break;
        }
        if (Load(2) == 0) {
          return;  // the run stops with message 11
        }
        m_SilentCycle = HasSilentCycle(m_Blank);
        const int64_t ost = Tbl::TabRcdField.AllOst();
        if (first_continuation) {
          first_continuation = false;
        } else if (ost == previous) {
          m_Out << Tbl::Err(Tbl::errNextCycle) << L"\n";
          break;
        }
        previous = ost;
      }
    }
    if (!Lines(1, false) || Load(3) == 0) {
      return;
    }
    m_SilentCycle = HasSilentCycle(m_Blank);
    Lines(1, false);
  }

  ~Runner() {
    for (FILE* stream : m_Replaced) {
      fclose(stream);
    }
  }

 private:
  // Blank::Load opens each new section over the previous one without
  // closing it; a run does so at most three times and the streams go with
  // the process. Here they are closed with the input, so that the input
  // frees what it allocated and libFuzzer's leak check stays quiet.
  int Load(int section) {
    FILE* before = Blank::m_File.m_Stream;
    const int loaded = m_Blank.Load(section);
    if (before != nullptr && Blank::m_File.m_Stream != before) {
      m_Replaced.push_back(before);
    }
    return loaded;
  }

  bool MayIterate() const {
    if (m_LinesOut >= kMaxLinesOut) {
      return false;
    }
    return !(m_SilentCycle &&
             Tbl::TabRcdField.AllOst() + Tbl::TabHdrField.AllOst() <= 0);
  }

  // Writes lines of the loaded section until Next gives none (or, in a
  // record, until nothing of the record is left). False when stopped by a
  // limit.
  bool Lines(int mode, bool in_record) {
    for (;;) {
      if (!MayIterate()) {
        return false;
      }
      Line* line = m_Blank.Next(mode);
      if (line == nullptr) {
        return true;
      }
      ++m_LinesOut;
      m_Out << line->ConvStr() << L"\n";
      if (in_record && !Tbl::TabRcdField.Exist()) {
        return true;
      }
    }
  }

  Blank& m_Blank;
  OutputFile& m_Out;
  bool m_SilentCycle = false;
  int m_LinesOut = 0;
  std::vector<FILE*> m_Replaced;
};

bool StartsWith(const char* text, const char* prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // As the program starts with LANG=C.UTF-8: a jump's table and condition
  // characters are scanned, and the messages written, in that locale.
  std::locale::global(std::locale("C.UTF-8"));
  std::setlocale(LC_ALL, "C.UTF-8");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto parts = SplitInput(data, size, 3);
  ResetFuzzState();
  for (size_t s = 0; s < 3; ++s) {
    const std::string name = "form." + std::to_string(s + 1);
    if (s < parts.size()) {
      WriteScratch(name, parts[s].first, parts[s].second);
    } else {
      WriteScratch(name, data, 0);
    }
  }
  Tbl::PathBlank = WidenPath(ScratchDir());
  // A third of the inputs run with empty header values, so that the totals
  // the loop guard looks at can reach 0.
  static const std::wstring long_value = LongValue();
  const bool empty_header = size % 3 == 0;
  const wchar_t* const header[] = {L"Hdr", L"Header two, wraps",
                                   L"h3 first\x01h3 second",
                                   long_value.c_str()};
  for (long n = 1; n <= 4; ++n) {
    Tbl::TabHdrField.InsertField(n);
    Tbl::TabHdrField.SetCurrent(n);
    Tbl::TabHdrField.PutStr(empty_header ? L"" : header[n - 1]);
  }
  try {
    // The document is converted as for a file and thrown away.
    OutputFile out(L"/dev/null", false);
    Blank blank(L"form", out);
    Runner(blank, out).Run();
  } catch (const std::length_error& e) {
    // A value pushed the line past the working buffer: the run ends there.
    // A container's own length error would be a fault.
    if (StartsWith(e.what(), "basic_string") ||
        StartsWith(e.what(), "vector")) {
      throw;
    }
  } catch (const std::range_error& e) {
    // A character above U+10FFFF reached the UTF-8 writer.
    if (strcmp(e.what(), "wstring_convert::to_bytes") != 0) {
      throw;
    }
  }
  // Everything the input made is released within it, so that libFuzzer's
  // leak check, which runs whenever an input allocated more than it freed,
  // stays quiet and cheap.
  ResetFuzzState();
  return 0;
}
