// Loading a template section. The section's fields are registered in the
// run's shared tables of driver/tbl.h, and messages go into its document.
#include "template/blank.h"

#include <unistd.h>

#include <cwchar>
#include <string>
#include <vector>

#include "driver/tbl.h"
#include "format/field.h"
#include "template/classify.h"
#include "textio/helpers.h"
#include "textio/utf8.h"

InputFile Blank::m_File;

namespace {

// The file name of section n: the template's name with ".n" after it.
std::wstring SectionName(std::wstring const& name, int section) {
  wchar_t suffix[16];
  swprintf(suffix, 16, L".%d", section);
  return name + suffix;
}

}  // namespace

Blank::Blank(wchar_t const* name, OutputFile& out)
    : m_Lines(nullptr),
      m_Section(-1),
      m_Current(-1),
      m_Count(0),
      m_Name(name),
      m_Out(out) {
  std::wstring dir;
  std::wstring base;
  std::wstring ext;
  _wsplitpath(m_Name, dir, base, ext);
  ResetCopiedText();
  // The section number is the file's extension; a name that brings its own
  // leaves the template unusable, and every load fails.
  if (ext.empty()) {
    m_Section = 0;
  }
}

Blank::~Blank() {
  delete[] m_Lines;
  for (Line* lines : m_Retired) {
    delete[] lines;
  }
}

std::wstring Blank::SectionPath(std::wstring const& name, int section) {
  return Tbl::PathBlank + SectionName(name, section);
}

bool Blank::FileExist(std::wstring const& dir, std::wstring const& name) {
  const std::string path = ToUtf8(dir + L"/" + name);
  return access(path.c_str(), F_OK) == 0;
}

int Blank::Load(int section) {
  if (m_Section < 0) {
    return 0;
  }
  Tbl::TabHdrField.First();
  if (m_Section == section) {
    // The continuation sheet is used again and again: it is parsed once
    // and only rewound, its loop guards left as they stand.
    m_Current = -1;
    return 1;
  }

  std::vector<wchar_t> raw(kRawLineBuf);
  // Set before the file is touched: after a failed load, loading the same
  // section again reports success, and the run stops on the failure anyway.
  m_Section = section;
  // The directory of -P is given with its trailing "/". The existence test
  // adds one of its own, the open does not: a directory given without the
  // slash passes the test and then fails to open, as it always has.
  const bool opened =
      (Tbl::PathBlank.empty() ||
       FileExist(Tbl::PathBlank, SectionName(m_Name, section))) &&
      m_File.Open(SectionPath(m_Name, section).c_str());
  if (!opened) {
    return 0;
  }

  int count = 0;
  while (m_File.GetLine(raw.data(), kMaxLine)) {
    ++count;
  }
  // Lines handed out from the previous section stay valid until the Blank
  // is destroyed.
  if (m_Lines != nullptr) {
    m_Retired.push_back(m_Lines);
  }
  m_Lines = new Line[count]();
  m_Count = count;
  m_File.SetFilePointer(0);

  for (m_Current = 0; m_Current < m_Count; ++m_Current) {
    Line& entry = m_Lines[m_Current];
    entry.pos = m_File.GetFilePointer();
    m_File.GetLine(raw.data(), kMaxLine);
    if (!LoadLine(entry, raw.data())) {
      return 0;
    }
  }
  return ResolveJumps();
}

bool Blank::LoadLine(Line& entry, const wchar_t* raw) {
  if (raw[0] != L'>') {
    entry.kind = Line::Text;
    entry.link = m_Current + 1;
    const TextScan scan = ScanTextLine(raw);
    for (const RecordUse& use : scan.records) {
      Tbl::TabRcdField.InsertField(use.field);
    }
    for (const HeaderText& text : scan.headers) {
      ApplyHeaderText(text, Tbl::TabHdrField);
    }
    return true;
  }
  Command command = ClassifyCommand(raw);
  if (command.kind == Line::Define) {
    // A definition leaves its entry untouched unless it is accepted.
    command.message =
        DefineMessage(command, Tbl::TabHdrField, Tbl::TabRcdField);
    if (command.message != kNoMessage) {
      command = Command{Line::Text, 0, 0, 0, 0, 0, 0, 0, false,
                        command.message};
    } else {
      command.number = m_Current + 1;
    }
  }
  entry.kind = command.kind;
  entry.link = command.number;
  entry.field = command.field;
  entry.inRecord = command.inRecord;
  entry.cond = command.cond;
  entry.blockLines = static_cast<uint16_t>(command.blockLines);
  entry.repeats = static_cast<uint16_t>(command.repeats);
  int message = command.message;
  std::wstring what = raw;
  if (message == kNoMessage && command.kind == Line::Label &&
      FindLabel(m_Lines, m_Current, command.number) < m_Current) {
    message = Tbl::errLabelTwice;
    what = std::to_wstring(command.number);
  }
  if (message == kNoMessage) {
    return true;
  }
  Tbl::Report(static_cast<Tbl::numErr>(message), what, &m_Out);
  return false;
}

int Blank::ResolveJumps() {
  // Jumps may go forward, so labels are looked up once the whole section
  // is known.
  for (m_Current = 0; m_Current < m_Count; ++m_Current) {
    Line& jump = m_Lines[m_Current];
    if (jump.kind != Line::Jump) {
      continue;
    }
    const int target = FindLabel(m_Lines, m_Count, jump.link);
    if (target == m_Count) {
      Tbl::Report(Tbl::errNoLabel, std::to_wstring(jump.link), &m_Out);
      return 0;
    }
    jump.link = target;
  }
  m_Current = -1;
  return 1;
}
