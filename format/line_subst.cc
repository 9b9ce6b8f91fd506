// Line::ConvStr: turns a template line into output text. Line is declared in
// template/line.h; its formatting members are defined here in format/. The
// line is re-read from the template's file (template/blank.h), and values
// come from the run's shared field tables (driver/tbl.h).
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cwchar>
#include <stdexcept>
#include <string>

#include "driver/tbl.h"
#include "format/field.h"
#include "template/blank.h"
#include "template/line.h"
#include "textio/char_blocks.h"
#include "textio/helpers.h"
#include "textio/input_file.h"

namespace {

// True for the characters that may begin a marker: a field reference ("$",
// "&"), the page counter ("#") or a value marker ("@").
bool MayStartMarker(wchar_t c) {
  return c == L'#' || c == L'$' || c == L'&' || c == L'@';
}

// Index of the first character from k on that may begin a marker, or len,
// the line's end. No null comes before len: the line is a C string of that
// length, and values are placed and inserted only up to a null.
int NextMarker(const wchar_t* line, int k, int len) {
  return static_cast<int>(FindFirstOf<L'#', L'$', L'&', L'@'>(
      line, static_cast<size_t>(k), static_cast<size_t>(len)));
}

// Index of the character at which the stretch whose text starts at k
// stops: the first "?" (which closes it), "$" or "&" (the marker of the
// next reference) from k on, or len.
int StretchStop(const wchar_t* line, int k, int len) {
  return static_cast<int>(FindFirstOf<L'?', L'$', L'&'>(
      line, static_cast<size_t>(k), static_cast<size_t>(len)));
}

// Reads the decimal number whose digits start at line[*k] and leaves *k on
// the first character after them; with blank_digits the digits are blanked.
// A number too large for a long reads as LONG_MAX, which names no field in
// practice, instead of wrapping around to some other field's number.
long ReadNumber(wchar_t* line, int* k, bool blank_digits) {
  constexpr unsigned long kMax = LONG_MAX;
  // Below this, any digit can follow without passing kMax.
  constexpr unsigned long kRoomy = (kMax - 9) / 10;
  unsigned long n = 0;
  while (IsDigit(line[*k])) {
    const unsigned long digit = static_cast<unsigned long>(line[*k] - L'0');
    if (n <= kRoomy || n <= (kMax - digit) / 10) {
      n = n * 10 + digit;
    } else {
      n = kMax;
    }
    if (blank_digits) {
      line[*k] = L' ';
    }
    ++*k;
  }
  return static_cast<long>(n);
}

// Replaces line[at, at + old_len) by text[0, text_len), moving the rest of
// the line (terminator included). A line that would no longer fit the
// working buffer ends the run: nothing sensible can be printed for it, and
// writing on would overrun the buffer.
void Replace(wchar_t* line, int* len, int at, int old_len, const wchar_t* text,
             size_t text_len) {
  const size_t new_len = static_cast<size_t>(*len - old_len) + text_len;
  if (new_len > static_cast<size_t>(kMaxLine)) {
    throw std::length_error("template line too long after substitution");
  }
  const size_t tail = static_cast<size_t>(*len - at - old_len) + 1;
  std::wmemmove(line + at + text_len, line + at + old_len, tail);
  std::wmemcpy(line + at, text, text_len);
  *len = static_cast<int>(new_len);
}

// True when some field of tab carries a macro character. Nothing in the
// program binds one, so this lets the scan skip two table walks for every
// character of every line without changing what it finds; while no field
// at all is bound, the tables are not even looked at.
bool HasMacros(const FieldTab& tab) {
  if (Field::BoundCount() == 0) {
    return false;
  }
  for (const auto& entry : tab) {
    if (entry.second != nullptr && entry.second->Mac() != 0) {
      return true;
    }
  }
  return false;
}

// The alignment character at line[*k] ("=" centred, ">" right), blanked and
// stepped over; any other character means left and stays.
Line::typAlign ReadAlign(wchar_t* line, int* k) {
  if (line[*k] == L'=') {
    line[(*k)++] = L' ';
    return Line::AlignCenter;
  }
  if (line[*k] == L'>') {
    line[(*k)++] = L' ';
    return Line::AlignRight;
  }
  return Line::AlignLeft;
}

// "$N" / "&N" / "$$N" / "&&N" at i, with "=" / ">" alignment and a "?" end;
// len is the line's length. Returns where the scan goes on.
int ConvField(wchar_t* line, int len, int i) {
  const bool header = line[i] == L'&';
  FieldTab& tab = header ? Tbl::TabHdrField : Tbl::TabRcdField;
  line[i] = L' ';
  int k = i + 1;
  bool rewind = false;
  bool truncate = false;
  if (line[k] == L'&') {
    line[k++] = L' ';
    rewind = true;
  } else if (line[k] == L'$') {
    line[k++] = L' ';
    truncate = true;
  }
  const long n = ReadNumber(line, &k, true);
  const Line::typAlign align = ReadAlign(line, &k);
  // A record stretch keeps the template's characters where the value does
  // not reach, so a form can carry filler such as dots after a short value;
  // a header stretch is cleared.
  const int stop = StretchStop(line, k, len);
  if (header) {
    std::wmemset(line + k, L' ', static_cast<size_t>(stop - k));
  }
  k = stop;
  int end = k - 1;
  if (line[k] == L'?') {
    line[k] = L' ';
    end = k;
  }
  if (!tab.SetCurrent(n)) {
    return i + 1;
  }
  if (rewind) {
    tab.m_Current->First();
  }
  Line::PutPol(line, align, i, end, &tab, truncate);
  return end + 1;
}

// A macro character at i standing for the current field of tab: its stretch
// runs over the blanks up to the same character again. Returns where the
// scan goes on.
int ConvMacro(wchar_t* line, int i, FieldTab& tab) {
  const wchar_t mac = line[i];
  line[i] = L' ';
  int k = i + 1;
  const Line::typAlign align = ReadAlign(line, &k);
  while (line[k] == L' ') {
    ++k;
  }
  int end = k - 1;
  if (line[k] == mac) {
    line[k] = L' ';
    end = k;
  }
  Line::PutPol(line, align, i, end, &tab, false);
  return end + 1;
}

// The run of "#" at i becomes the advanced page counter, right-aligned in
// the run's width. A number wider than the run goes on over the characters
// after it (and past the line's end if need be), but never past the buffer.
void ConvPageCounter(wchar_t* line, int* len, int i) {
  int run_end = i;
  while (line[run_end] == L'#') {
    line[run_end++] = L' ';
  }
  const int width = run_end - i;
  // Wraps instead of overflowing; no form gets anywhere near two billion
  // pages, but the arithmetic stays defined.
  Tbl::CountList =
      static_cast<int32_t>(static_cast<uint32_t>(Tbl::CountList) + 1u);
  wchar_t digits[kDecimalDigits];
  const int count = static_cast<int>(FormatDecimal(Tbl::CountList, digits));
  const int at = count < width ? run_end - count : i;
  int stop = at + count;
  if (stop > kMaxLine) {
    stop = kMaxLine;
  }
  for (int p = at; p < stop; ++p) {
    line[p] = digits[p - at];
  }
  if (stop > *len) {
    line[stop] = L'\0';
    *len = stop;
  }
}

// "@D", "@T", "@N", "@@N" at i. Returns where the scan goes on.
int ConvValue(wchar_t* line, int* len, int i) {
  const wchar_t d = line[i + 1];
  if (d == L'D' || d == L'T') {
    const std::wstring now =
        GetCurrentTimeString(d == L'D' ? "%d.%m.%Y" : "%d.%m.%Y %H:%M");
    Replace(line, len, i, 2, now.data(), now.size());
    return i + static_cast<int>(now.size());
  }
  if (IsDigit(d)) {
    int k = i + 1;
    const long n = ReadNumber(line, &k, false);
    const std::wstring value = Tbl::TabHdrField.FirstValue(n);
    // The line is a C string: a value with an embedded null ends there.
    const size_t value_len = std::wcslen(value.c_str());
    Replace(line, len, i, k - i, value.c_str(), value_len);
    return i + static_cast<int>(value_len);
  }
  if (d == L'@' && IsDigit(line[i + 2])) {
    int k = i + 2;
    const long n = ReadNumber(line, &k, false);
    // Reused between calls so that printing a record costs no allocation.
    static std::wstring taken;
    taken.clear();
    FieldTab& rcd = Tbl::TabRcdField;
    if (rcd.SetCurrent(n)) {
      for (wchar_t c = rcd.GetSym(); c != L'\0' && c != kValueSeparator;
           c = rcd.GetSym()) {
        taken.push_back(c);
      }
    }
    Replace(line, len, i, k - i, taken.data(), taken.size());
    return i + static_cast<int>(taken.size());
  }
  return i + 1;
}

}  // namespace

// The run writes from ConvInto's buffer; ConvStr is the same conversion as
// a string, for callers that want one line (the tests, the fuzzers).
std::wstring Line::ConvStr() const {
  wchar_t line[kRawLineBuf];
  const int len = ConvInto(line);
  return std::wstring(line, static_cast<size_t>(len));
}

int Line::ConvInto(wchar_t* line) const {
  int len = 0;
  {
    line[0] = L'\0';
    InputFile::LineShape shape;
    if (Blank::m_File.IsOpen()) {
      Blank::m_File.SetFilePointer(static_cast<long>(pos));
      Blank::m_File.GetLine(line, kMaxLine, shape);
    }
    if (!shape.tabs) {
      // Most lines: nothing to expand, the line is cut where it was read.
      len = static_cast<int>(std::min(Line::KeptLength(line, shape.length),
                                      size_t{kMaxLine}));
      line[len] = L'\0';
    } else {
      wchar_t raw[kRawLineBuf];
      std::wmemcpy(raw, line, shape.length);
      raw[shape.length] = L'\0';
      len = Line::DelTabLength(raw, shape.length, line);
    }
  }
  if (len == 0) {
    return 0;
  }

  FieldTab& hdr = Tbl::TabHdrField;
  FieldTab& rcd = Tbl::TabRcdField;
  const bool hdr_macros = HasMacros(hdr);
  const bool rcd_macros = HasMacros(rcd);
  const bool macros = hdr_macros || rcd_macros;

  int i = 0;
  while (line[i] != L'\0') {
    const wchar_t c = line[i];
    if (macros && ((hdr_macros && hdr.SetCurrentMac(c)) ||
                   (rcd_macros && rcd.SetCurrentMac(c)))) {
      // A character bound in both tables is the record's.
      const bool in_record = rcd_macros && rcd.SetCurrentMac(c);
      i = ConvMacro(line, i, in_record ? rcd : hdr);
      continue;
    }
    if (!MayStartMarker(c)) {
      i = macros ? i + 1 : NextMarker(line, i + 1, len);
      continue;
    }
    const wchar_t next = line[i + 1];
    if ((c == L'$' || c == L'&') &&
        (IsDigit(next) || (next == c && IsDigit(line[i + 2])))) {
      i = ConvField(line, len, i);
    } else if (c == L'#') {
      ConvPageCounter(line, &len, i);
      ++i;
    } else if (c == L'@') {
      i = ConvValue(line, &len, i);
    } else {
      ++i;
    }
  }
  return len;
}
