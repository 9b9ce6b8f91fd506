// Fuzzes template loading, line iteration and line substitution: the input
// is section 1 and, from its first "\n%%\n" on, section 2. Records come from
// a small fixed table. Lines handed out are capped, because a template can
// loop for ever by design (a backward conditional jump once nothing is left
// to print); the standard exceptions that end a run on purpose (a line
// pushed past the working buffer, a character the UTF-8 writer cannot
// write) are expected outcomes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "driver/tbl.h"
#include "template/blank.h"
#include "template/line.h"
#include "fuzz/fuzz_util.h"
#include "textio/output_file.h"

namespace {

constexpr int kMaxLinesOut = 400;

const wchar_t* const kRecordValues[] = {
    L"alpha beta, gamma delta; epsilon",
    L"x",
    L"",
    L"one\x01two\x01three",
    L"a-very-long-word-without-any-separator-at-all-to-force-a-hard-cut",
};

// True when the section has a cycle made only of non-text entries. Such a
// cycle never ends inside one Blank::Next call once nothing is left to
// print, which is an accepted endless run, not a finding.
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
      auto& [i, k] = stack.back();
      if (k > 1) {
        state[i] = 2;
        stack.pop_back();
        continue;
      }
      int j = next_of(i, k++);
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
  int k = record;
  for (auto& [number, field] : Tbl::TabRcdField) {
    (void)number;
    field->Clear();
    field->PutStr(kRecordValues[k++ % 5]);
  }
  Tbl::FirstOst = Tbl::TabRcdField.AllOst();
}

void Run(const std::string& out_path) {
  OutputFile out(WidenPath(out_path).c_str(), false);
  Blank blank(L"form", out);
  if (blank.Load(1) == 0) {
    return;
  }
  bool silent_cycle = HasSilentCycle(blank);
  int lines_out = 0;
  auto may_iterate = [&] {
    if (lines_out >= kMaxLinesOut) {
      return false;
    }
    if (silent_cycle && Tbl::TabRcdField.AllOst() + Tbl::TabHdrField.AllOst() <= 0) {
      return false;
    }
    return true;
  };
  for (int record = 0; record < 3; ++record) {
    FillRecord(record);
    Tbl::totBreak += record;
    blank.ClrCount();
    for (int sheet = 0; sheet < 4 && may_iterate(); ++sheet) {
      Line* line;
      while (may_iterate() && (line = blank.Next(0)) != nullptr) {
        ++lines_out;
        out << line->ConvStr() << L"\n";
        if (!Tbl::TabRcdField.Exist()) {
          break;
        }
      }
      if (!Tbl::TabRcdField.Exist() || blank.Load(2) == 0) {
        break;
      }
      silent_cycle = HasSilentCycle(blank);
    }
  }
  Line* line;
  while (may_iterate() && (line = blank.Next(1)) != nullptr) {
    ++lines_out;
    out << line->ConvStr() << L"\n";
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char kSplit[] = "\n%%\n";
  size_t first_size = size;
  for (size_t i = 0; i + 4 <= size; ++i) {
    if (memcmp(data + i, kSplit, 4) == 0) {
      first_size = i;
      break;
    }
  }
  ResetFuzzState();
  WriteScratch("form.1", data, first_size);
  size_t second_at = first_size == size ? size : first_size + 4;
  WriteScratch("form.2", data + second_at, size - second_at);
  Tbl::PathBlank = WidenPath(ScratchDir());
  for (long n = 1; n <= 3; ++n) {
    Tbl::TabHdrField.InsertField(n);
    Tbl::TabHdrField.SetCurrent(n);
    Tbl::TabHdrField.PutStr(n == 2 ? L"Header two, wraps" : L"Hdr");
  }
  try {
    Run(ScratchDir() + "out.txt");
  } catch (const std::length_error&) {
    // A value pushed the line past the working buffer: the run ends there.
  } catch (const std::range_error&) {
    // A character above U+10FFFF reached the UTF-8 writer.
  }
  return 0;
}
