// Tbl::Execute: one whole run, from opening the document to the closing
// section.
#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "driver/tbl.h"
#include "template/blank.h"
#include "template/line.h"
#include "textio/output_file.h"

namespace {

// Writes one line of the document with its line end in a single write.
void WriteLine(const Line& line, OutputFile& out) {
  wchar_t text[kRawLineBuf];
  const int len = line.ConvInto(text);
  // The line end takes the terminator's place: a line holds at most
  // kMaxLine characters, one fewer than the buffer.
  text[len] = L'\n';
  out << std::wstring_view(text, static_cast<size_t>(len) + 1);
}

// Writes the rest of the loaded section in closing mode, where backward
// unconditional jumps are no longer taken, so that a loop meant for records
// runs out.
void WriteClosing(Blank& blank, OutputFile& out) {
  for (Line* line = blank.Next(1); line != nullptr; line = blank.Next(1)) {
    WriteLine(*line, out);
  }
}

}  // namespace

int Tbl::Execute() {
  // The document is declared before the template so that the template, which
  // writes its messages into it, is destroyed first on every return path.
  // It is given the characters of OutFile, never the shared console name:
  // without -O the document goes to a file named CON, where existing scripts
  // collect it.
  std::vector<std::wstring> read_back{InpFile};
  for (int section = 1; section <= 3; ++section) {
    read_back.push_back(Blank::SectionPath(BlankFile, section));
  }
  OutputFile out(OutFile.c_str(), Add != 0, read_back);
  Blank blank(BlankFile.c_str(), out);
  totBreak = 0;

  if (!out.m_Console && out.m_Stream == nullptr) {
    Report(errOutputOpen, OutFile, &out, kScreen);
    return 1;
  }
  if (!GetHider()) {
    Report(errNoInput, InpFile, &out);
    return 1;
  }
  GetBegin();
  if (blank.Load(1) == 0) {
    Report(errTemplateLoad, BlankFile + L".1", &out);
    return 1;
  }

  for (int first_continuation = GetRecord(); first_continuation != 0;
       first_continuation = GetRecord()) {
    blank.ClrCount();
    int64_t previous_ost = 0;
    for (;;) {
      for (Line* line = blank.Next(0); line != nullptr; line = blank.Next(0)) {
        WriteLine(*line, out);
        // A record ends as soon as nothing of it is left to print, even in
        // the middle of a section: the next record carries on from there.
        if (!TabRcdField.Exist()) {
          break;
        }
      }
      if (!TabRcdField.Exist()) {
        break;
      }
      if (blank.Load(2) == 0) {
        Report(errTemplateLoad, BlankFile + L".2", &out);
        return 1;
      }
      const int64_t ost = TabRcdField.AllOst();
      if (first_continuation != 0) {
        first_continuation = 0;
      } else if (ost == previous_ost) {
        // A whole continuation sheet placed nothing and the next one would do
        // the same: drop the rest of this record, say so in the document, and
        // let the remaining records through.
        Report(errNextCycle, std::wstring(), &out, kDocument);
        break;
      }
      previous_ost = ost;
    }
  }

  WriteClosing(blank, out);
  if (blank.Load(3) == 0) {
    return 0;
  }
  WriteClosing(blank, out);
  return 0;
}
