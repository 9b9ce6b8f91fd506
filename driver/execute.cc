// Tbl::Execute: one whole run, from opening the document to the closing
// section.
#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>

#include "driver/run_observer.h"
#include "driver/tbl.h"
#include "template/blank.h"
#include "template/line.h"
#include "textio/output_file.h"

RunObserver* g_RunObserver = nullptr;

void SetRunObserver(RunObserver* observer) {
  g_RunObserver = observer;
  OutputFile::s_Tap = observer;
}

namespace {

// Tells the observer, if there is one, that the section has been loaded.
void Loaded(int section) {
  if (g_RunObserver != nullptr) {
    g_RunObserver->SectionLoaded(section);
  }
}

// Writes one line of the document with its line end in a single write.
void WriteLine(const Blank& blank, const Line& line, OutputFile& out) {
  if (g_RunObserver != nullptr) {
    g_RunObserver->LinePrinted(blank.m_Section,
                               static_cast<int>(&line - blank.m_Lines));
  }
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
    WriteLine(blank, *line, out);
  }
}

// Fills the record just read into the template, going on over
// continuation sheets while its text is left; false after reporting that
// the continuation section cannot be loaded.
bool WriteRecord(Blank& blank, OutputFile& out) {
  blank.ClrCount();
  bool first_continuation = true;
  int64_t previous_ost = 0;
  for (;;) {
    for (Line* line = blank.Next(0); line != nullptr; line = blank.Next(0)) {
      WriteLine(blank, *line, out);
      // A record ends as soon as nothing of it is left to print, even in
      // the middle of a section: the next record carries on from there.
      if (!Tbl::TabRcdField.Exist()) {
        break;
      }
    }
    if (!Tbl::TabRcdField.Exist()) {
      return true;
    }
    if (blank.Load(2) == 0) {
      Tbl::Report(Tbl::errTemplateLoad, Tbl::BlankFile + L".2", &out);
      return false;
    }
    Loaded(2);
    const int64_t ost = Tbl::TabRcdField.AllOst();
    if (first_continuation) {
      first_continuation = false;
    } else if (ost == previous_ost) {
      // A whole continuation sheet placed nothing and the next one would
      // do the same: drop the rest of this record, say so in the document,
      // and let the remaining records through.
      if (g_RunObserver != nullptr) {
        g_RunObserver->Message(Tbl::errNextCycle, 2, -1);
      }
      Tbl::Report(Tbl::errNextCycle, std::wstring(), &out, Tbl::kDocument);
      return true;
    }
    previous_ost = ost;
  }
}

}  // namespace

int Tbl::Execute() {
  // The document is declared before the template so that the template, which
  // writes its messages into it, is destroyed first on every return path.
  // It is given the characters of OutFile, never the shared console name:
  // without -O the document goes to a file named CON, where existing scripts
  // collect it.
  OutputFile out(OutFile.c_str(), Add != 0);
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
  Loaded(1);
  for (long number = 1; GetRecord() != 0; ++number) {
    if (g_RunObserver != nullptr) {
      g_RunObserver->RecordRead(number);
    }
    if (!WriteRecord(blank, out)) {
      return 1;
    }
    if (g_RunObserver != nullptr) {
      g_RunObserver->RecordDone(number);
    }
  }
  WriteClosing(blank, out);
  if (blank.Load(3) == 0) {
    return 0;
  }
  Loaded(3);
  WriteClosing(blank, out);
  return 0;
}
