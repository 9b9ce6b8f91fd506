#include "template/blank.h"

#include <unistd.h>

#include <climits>
#include <cstring>
#include <cwchar>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/tbl.h"
#include "format/field.h"
#include "textio/helpers.h"
#include "textio/output_file.h"
#include "textio/utf8.h"

InputFile Blank::m_File;

namespace {

// The keywords as typed, and as they read when a template saved in code
// page 866 is taken for code page 1251 text: such files were converted
// once, wrongly, and are still in use.
const wchar_t* const kJumpWords[] = {
    L"ПЕРЕХОД", L"jump to", L"\u040F\u2026\u0452\u2026\u2022\u040B\u201E"};
const wchar_t* const kRepeatWords[] = {L"ПОВТОР", L"repeat",
                                       L"\u040F\u040B\u201A\u2019\u040B\u0452"};

bool StartsWithAny(const wchar_t* text, const wchar_t* const (&words)[3],
                   size_t length) {
  for (const wchar_t* word : words) {
    if (wcsncmp(text, word, length) == 0) {
      return true;
    }
  }
  return false;
}

bool IsDigit(wchar_t c) {
  return c >= L'0' && c <= L'9';
}

// Writes message n followed by what it is about, first on standard output,
// then into the document. Returns 0, the result of a failed load.
template <typename What>
int Report(OutputFile& out, Tbl::numErr n, What what) {
  const std::wstring text = Tbl::Err(n);
  std::wcout << text << what << std::endl;
  out << text << what << L"\n";
  return 0;
}

// Reads one character of a jump's arguments the way "%c" does in a wide
// scan: the character is converted to its multibyte form in the current
// locale and those bytes are stored. The jump's characters have always
// been kept in a wide character zeroed beforehand, so an ASCII character
// reads as itself, any other character as its multibyte bytes (never one
// of the characters the jump syntax knows), and a character the locale
// cannot convert stops the scan and leaves zero. The bytes are taken into
// a buffer big enough for any multibyte form, then into the wide
// character as they always lay in memory.
struct ScanChar {
  char bytes[MB_LEN_MAX + sizeof(wchar_t)] = {};
  wchar_t Value() const {
    wchar_t value = 0;
    memcpy(&value, bytes, sizeof value);
    return value;
  }
};

// Classifies a ">" line into entry; returns 0 after reporting an error.
int ClassifyCommand(Blank& blank, int index, const wchar_t* raw) {
  Line& entry = blank.m_Lines[index];
  if (StartsWithAny(raw + 1, kJumpWords, 7)) {
    long label = 0;
    long field = 0;
    ScanChar table;
    ScanChar cond;
    // The C library's own scan, so that blanks, signs and overlong numbers
    // are read exactly as existing templates expect.
    static_cast<void>(swscanf(raw + 8, L"%ld %c%ld%c", &label, table.bytes,
                              &field, cond.bytes));
    entry.kind = Line::Jump;
    entry.link = label;
    entry.field = field;
    const wchar_t table_char = table.Value();
    const wchar_t cond_char = cond.Value();
    if (table_char == 0) {
      entry.cond = 0;
      return 1;
    }
    if (table_char == L'$') {
      entry.inRecord = 1;
    } else if (table_char == L'&') {
      entry.inRecord = 0;
    } else {
      return Report(blank.m_Out, Tbl::errJumpFormat, raw);
    }
    if (cond_char == L'^') {
      entry.cond = 1;
    } else if (cond_char == 0 || cond_char == L' ' || cond_char == L'\n') {
      entry.cond = 2;
    } else {
      return Report(blank.m_Out, Tbl::errJumpFormat, raw);
    }
    return 1;
  }

  if (StartsWithAny(raw + 1, kRepeatWords, 6)) {
    int lines = 0;
    int repeats = 0;
    static_cast<void>(swscanf(raw + 7, L"%d:%d", &lines, &repeats));
    entry.kind = Line::Repeat;
    // The entry keeps 16 bits; the limits are checked on the numbers as
    // written, so a count that only wraps into range is still refused.
    entry.blockLines = static_cast<uint16_t>(lines);
    entry.repeats = static_cast<uint16_t>(repeats);
    if (lines < 1 || lines > 100) {
      return Report(blank.m_Out, Tbl::errBlockLines, raw);
    }
    if (repeats < 1 || repeats > 1000) {
      return Report(blank.m_Out, Tbl::errBlockRepeats, raw);
    }
    return 1;
  }

  if (IsDigit(raw[1])) {
    const long label = wcstol(raw + 1, nullptr, 10);
    entry.kind = Line::Label;
    entry.link = label;
    for (int k = 0; k < index; ++k) {
      if (blank.m_Lines[k].kind == Line::Label &&
          blank.m_Lines[k].link == label) {
        return Report(blank.m_Out, Tbl::errLabelTwice, label);
      }
    }
    return 1;
  }

  // A macro declaration binds its symbol on one table and must not clash
  // with the other. The field store never records a symbol, so every
  // declaration ends here with message 4, the field created all the same;
  // templates depend on the symbols staying plain text.
  if (raw[1] != 0 && raw[2] == L'=' && (raw[3] == L'&' || raw[3] == L'$')) {
    const wchar_t symbol = raw[1];
    const long field = wcstol(raw + 4, nullptr, 10);
    const bool header = raw[3] == L'&';
    FieldTab& own = header ? Tbl::TabHdrField : Tbl::TabRcdField;
    FieldTab& other = header ? Tbl::TabRcdField : Tbl::TabHdrField;
    if (!own.InsertFieldMac(field, symbol) || other.SetCurrentMac(symbol)) {
      return Report(blank.m_Out, Tbl::errMacroTwice, raw);
    }
    entry.kind = Line::Define;
    entry.link = index + 1;
    return 1;
  }

  return Report(blank.m_Out, Tbl::errUnknownCommand, raw);
}

// Most characters that "@N" may copy into header texts in one run. A
// template can make a header text copy itself ("&0 @0@0" on line after
// line), which multiplies it at every reference; past this budget the run
// ends with a length error, as an append beyond a string's limit does,
// instead of first exhausting the machine. A legitimate copy of even a very
// large header value stays far below it.
constexpr size_t kMaxCopiedText = size_t{1} << 27;
size_t g_CopiedText = 0;

// Appends the text that follows a header reference to its field. The text
// is taken from the prepared copy at the index found in the line as read;
// where a tab was expanded before it the two no longer match, and the text
// is taken from the copy all the same, as templates have always been read.
void DefineHeaderText(const wchar_t* copy, size_t at) {
  const size_t length = wcslen(copy);
  size_t j = at + 1 < length ? at + 1 : length;
  long number = 0;
  if (IsDigit(copy[j])) {
    wchar_t* after = nullptr;
    number = wcstol(copy + j, &after, 10);
    j = static_cast<size_t>(after - copy);
  }
  if (copy[j] == L'=' || copy[j] == L'>') {
    ++j;
  }
  FieldTab& tab = Tbl::TabHdrField;
  tab.InsertField(number);
  tab.SetCurrent(number);
  for (;;) {
    const wchar_t c = copy[j];
    if (c == 0) {
      return;
    }
    if (c == L'$' || c == L'&' || c == L'?') {
      // The text stood inside a stretch: the blanks that fill the stretch
      // are not part of it.
      tab.DelEndBlank();
      return;
    }
    if (c != L'@') {
      tab.PutSym(c);
      ++j;
      continue;
    }
    const wchar_t d = copy[j + 1];
    if (d == L'D') {
      tab.PutStr(GetCurrentTimeString("%d.%m.%Y").c_str());
      j += 2;
    } else if (d == L'T') {
      tab.PutStr(GetCurrentTimeString("%d.%m.%Y %H:%M").c_str());
      j += 2;
    } else if (IsDigit(d)) {
      wchar_t* after = nullptr;
      const long other = wcstol(copy + j + 1, &after, 10);
      const std::wstring value = tab.FirstValue(other);
      g_CopiedText += value.size();
      if (g_CopiedText > kMaxCopiedText) {
        throw std::length_error("header text copied by the template too long");
      }
      tab.PutStr(value.c_str());
      j = static_cast<size_t>(after - copy);
    } else {
      ++j;
    }
  }
}

// Registers the record fields a text line refers to and defines the header
// texts it carries. The line itself is not changed.
void ScanText(const wchar_t* raw, wchar_t* copy) {
  Line::DelTab(raw, copy);
  for (size_t i = 0; raw[i] != 0; ++i) {
    if (raw[i] == L'$') {
      Tbl::TabRcdField.InsertField(wcstol(raw + i + 1, nullptr, 10));
    } else if (raw[i] == L'@') {
      if (raw[i + 1] == L'@' || raw[i + 1] == L'$') {
        Tbl::TabRcdField.InsertField(wcstol(raw + i + 2, nullptr, 10));
      }
    } else if (raw[i] == L'&') {
      DefineHeaderText(copy, i);
    }
  }
}

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
  g_CopiedText = 0;
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

  std::vector<wchar_t> copy(kLineBuf);
  for (m_Current = 0; m_Current < m_Count; ++m_Current) {
    Line& entry = m_Lines[m_Current];
    entry.pos = m_File.GetFilePointer();
    m_File.GetLine(raw.data(), kMaxLine);
    if (raw[0] == L'>') {
      if (ClassifyCommand(*this, m_Current, raw.data()) == 0) {
        return 0;
      }
    } else {
      entry.kind = Line::Text;
      entry.link = m_Current + 1;
      ScanText(raw.data(), copy.data());
    }
  }

  // Jumps may go forward, so labels are looked up once the whole section
  // is known.
  for (m_Current = 0; m_Current < m_Count; ++m_Current) {
    Line& jump = m_Lines[m_Current];
    if (jump.kind != Line::Jump) {
      continue;
    }
    int target = 0;
    while (target < m_Count && !(m_Lines[target].kind == Line::Label &&
                                 m_Lines[target].link == jump.link)) {
      ++target;
    }
    if (target == m_Count) {
      return Report(m_Out, Tbl::errNoLabel, static_cast<long>(jump.link));
    }
    jump.link = target;
  }
  m_Current = -1;
  return 1;
}
