#include "template/classify.h"

#include <climits>
#include <cstring>
#include <cwchar>
#include <stdexcept>

#include "format/field.h"
#include "textio/helpers.h"

namespace {

// Message numbers of the catalogue that a line of its own can earn.
constexpr int kJumpFormat = 0;
constexpr int kBlockLines = 1;
constexpr int kBlockRepeats = 2;
constexpr int kMacroTwice = 4;
constexpr int kUnknownCommand = 5;

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

// Most characters that "@N" may copy into header texts in one run. A
// template can make a header text copy itself ("&0 @0@0" on line after
// line), which multiplies it at every reference; past this budget the run
// ends with a length error, as an append beyond a string's limit does,
// instead of first exhausting the machine. A legitimate copy of even a very
// large header value stays far below it.
constexpr size_t kMaxCopiedText = size_t{1} << 27;
size_t g_CopiedText = 0;

// The pieces of a header text from copy[j] on, up to the line's end or a
// "$", "&" or "?"; sets stopped when one of those ended it.
std::vector<HeaderPiece> HeaderPieces(const wchar_t* copy, size_t j,
                                      bool& stopped) {
  std::vector<HeaderPiece> pieces;
  std::wstring text;
  const auto flush = [&pieces, &text] {
    if (!text.empty()) {
      pieces.push_back({HeaderPiece::kText, text, 0});
      text.clear();
    }
  };
  stopped = false;
  for (;;) {
    const wchar_t c = copy[j];
    if (c == 0) {
      break;
    }
    if (c == L'$' || c == L'&' || c == L'?') {
      stopped = true;
      break;
    }
    if (c != L'@') {
      text.push_back(c);
      ++j;
      continue;
    }
    const wchar_t d = copy[j + 1];
    if (d == L'D' || d == L'T') {
      flush();
      pieces.push_back(
          {d == L'D' ? HeaderPiece::kDate : HeaderPiece::kDateTime, {}, 0});
      j += 2;
    } else if (IsDigit(d)) {
      flush();
      wchar_t* after = nullptr;
      const long other = wcstol(copy + j + 1, &after, 10);
      pieces.push_back({HeaderPiece::kCopy, {}, other});
      j = static_cast<size_t>(after - copy);
    } else {
      ++j;
    }
  }
  flush();
  return pieces;
}

// The header text defined by the "&" at index at of the line as read. The
// text is taken from the prepared copy at that same index; where a tab was
// expanded before it the two no longer match, and the text is taken from
// the copy all the same, as templates have always been read.
HeaderText ReadHeaderText(const wchar_t* copy, size_t at) {
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
  HeaderText text{number, at, {}, false};
  text.pieces = HeaderPieces(copy, j, text.stopped);
  return text;
}

}  // namespace

bool IsJumpLine(const wchar_t* raw) {
  return StartsWithAny(raw + 1, kJumpWords, 7);
}

bool IsRepeatLine(const wchar_t* raw) {
  return StartsWithAny(raw + 1, kRepeatWords, 6);
}

bool IsLabelLine(const wchar_t* raw) {
  return IsDigit(raw[1]);
}

bool IsDefineLine(const wchar_t* raw) {
  return raw[1] != 0 && raw[2] == L'=' && (raw[3] == L'&' || raw[3] == L'$');
}

Command ReadJump(const wchar_t* raw) {
  Command jump;
  jump.kind = Line::Jump;
  ScanChar table;
  ScanChar cond;
  // The C library's own scan, so that blanks, signs and overlong numbers
  // are read exactly as existing templates expect.
  static_cast<void>(swscanf(raw + 8, L"%ld %c%ld%c", &jump.number,
                            table.bytes, &jump.field, cond.bytes));
  const wchar_t table_char = table.Value();
  const wchar_t cond_char = cond.Value();
  if (table_char == 0) {
    return jump;
  }
  if (table_char == L'$') {
    jump.inRecord = 1;
  } else if (table_char != L'&') {
    jump.message = kJumpFormat;
    return jump;
  }
  if (cond_char == L'^') {
    jump.cond = 1;
  } else if (cond_char == 0 || cond_char == L' ' || cond_char == L'\n') {
    jump.cond = 2;
  } else {
    jump.message = kJumpFormat;
  }
  return jump;
}

Command ReadRepeat(const wchar_t* raw) {
  Command repeat;
  repeat.kind = Line::Repeat;
  static_cast<void>(
      swscanf(raw + 7, L"%d:%d", &repeat.blockLines, &repeat.repeats));
  // The limits are checked on the numbers as written, so a count that only
  // wraps into the entry's 16 bits is still refused.
  if (repeat.blockLines < 1 || repeat.blockLines > 100) {
    repeat.message = kBlockLines;
  } else if (repeat.repeats < 1 || repeat.repeats > 1000) {
    repeat.message = kBlockRepeats;
  }
  return repeat;
}

Command ReadLabel(const wchar_t* raw) {
  Command label;
  label.kind = Line::Label;
  label.number = wcstol(raw + 1, nullptr, 10);
  return label;
}

Command ReadDefine(const wchar_t* raw) {
  Command define;
  define.kind = Line::Define;
  define.symbol = raw[1];
  define.header = raw[3] == L'&';
  define.number = wcstol(raw + 4, nullptr, 10);
  return define;
}

Command ClassifyCommand(const wchar_t* raw) {
  if (IsJumpLine(raw)) {
    return ReadJump(raw);
  }
  if (IsRepeatLine(raw)) {
    return ReadRepeat(raw);
  }
  if (IsLabelLine(raw)) {
    return ReadLabel(raw);
  }
  if (IsDefineLine(raw)) {
    return ReadDefine(raw);
  }
  Command unknown;
  unknown.message = kUnknownCommand;
  return unknown;
}

int FindLabel(const Line* lines, int count, long label) {
  int k = 0;
  while (k < count &&
         !(lines[k].kind == Line::Label && lines[k].link == label)) {
    ++k;
  }
  return k;
}

int DefineMessage(const Command& define, FieldTab& header, FieldTab& record) {
  // A definition binds its symbol on one table and must not clash with the
  // other. The field store never records a symbol, so every definition
  // ends here with message 4; templates depend on the symbols staying
  // plain text.
  FieldTab& own = define.header ? header : record;
  FieldTab& other = define.header ? record : header;
  if (!own.InsertFieldMac(define.number, define.symbol) ||
      other.SetCurrentMac(define.symbol)) {
    return kMacroTwice;
  }
  return kNoMessage;
}

TextScan ScanTextLine(const wchar_t* raw) {
  TextScan scan;
  wchar_t copy[kLineBuf];
  Line::DelTab(raw, copy);
  for (size_t i = 0; raw[i] != 0; ++i) {
    if (raw[i] == L'$') {
      scan.records.push_back({wcstol(raw + i + 1, nullptr, 10), i});
    } else if (raw[i] == L'@') {
      if (raw[i + 1] == L'@' || raw[i + 1] == L'$') {
        scan.records.push_back({wcstol(raw + i + 2, nullptr, 10), i});
      }
    } else if (raw[i] == L'&') {
      scan.headers.push_back(ReadHeaderText(copy, i));
    }
  }
  return scan;
}

void ApplyHeaderText(const HeaderText& text, FieldTab& header) {
  header.InsertField(text.field);
  header.SetCurrent(text.field);
  for (const HeaderPiece& piece : text.pieces) {
    switch (piece.kind) {
      case HeaderPiece::kText:
        header.PutStr(piece.text.c_str());
        break;
      case HeaderPiece::kDate:
        header.PutStr(GetCurrentTimeString("%d.%m.%Y").c_str());
        break;
      case HeaderPiece::kDateTime:
        header.PutStr(GetCurrentTimeString("%d.%m.%Y %H:%M").c_str());
        break;
      case HeaderPiece::kCopy: {
        const std::wstring value = header.FirstValue(piece.field);
        g_CopiedText += value.size();
        if (g_CopiedText > kMaxCopiedText) {
          throw std::length_error("header text copied by the template too long");
        }
        header.PutStr(value.c_str());
        break;
      }
    }
  }
  if (text.stopped) {
    // The text stood inside a stretch: the blanks that fill the stretch
    // are not part of it.
    header.DelEndBlank();
  }
}

void ResetCopiedText() {
  g_CopiedText = 0;
}

HeaderCopyCount::HeaderCopyCount(const FieldTab& header) {
  for (const auto& entry : header) {
    const std::wstring& value = entry.second->m_Value;
    const size_t separator = value.find(kValueSeparator);
    m_Fields[entry.first] = {
        separator == std::wstring::npos ? value.size() : separator,
        separator != std::wstring::npos};
  }
}

bool HeaderCopyCount::Apply(const HeaderText& text) {
  Length& field = m_Fields[text.field];
  for (const HeaderPiece& piece : text.pieces) {
    size_t added = 0;
    switch (piece.kind) {
      case HeaderPiece::kText:
        added = piece.text.size();
        break;
      case HeaderPiece::kDate:
        added = 10;
        break;
      case HeaderPiece::kDateTime:
        added = 16;
        break;
      case HeaderPiece::kCopy: {
        const auto other = m_Fields.find(piece.field);
        added = other != m_Fields.end() ? other->second.first : 0;
        m_Copied += added;
        if (m_Copied > kMaxCopiedText) {
          return false;
        }
        break;
      }
    }
    if (!field.separated) {
      field.first += added;
    }
  }
  return true;
}
