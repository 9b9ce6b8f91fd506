// Field placement for Line, whose record is declared in template/line.h:
// one field's value written into a stretch of a line, and the preparation
// of a raw template line.
#include <cstdint>

#include "format/field.h"
#include "template/line.h"

// The comma is listed twice; the set is kept as old templates were written
// against it, and the duplicate changes nothing.
const wchar_t* Line::Rasdel = L" ,?!,;)]";

bool Line::IsRasdel(wchar_t c) {
  if (Rasdel == nullptr || c == 0) {
    return false;
  }
  for (const wchar_t* s = Rasdel; *s != 0; ++s) {
    if (*s == c) {
      return true;
    }
  }
  return false;
}

void Line::DelTab(const wchar_t* src, wchar_t* dst) {
  // One past the last character that is neither a blank nor a line feed.
  // Carriage returns and tabs at the end stay: old templates rely on a
  // trailing tab to keep a line's width.
  int64_t keep = 0;
  for (int64_t k = 0; src[k] != 0; ++k) {
    if (src[k] != L' ' && src[k] != L'\n') {
      keep = k + 1;
    }
  }
  // The tab stop comes from the tab's index in the source, not from the
  // output column, so a second tab does not reach the next stop of the
  // output; templates were laid out with the tab widths this gives.
  int n = 0;
  for (int64_t k = 0; k < keep; ++k) {
    if (src[k] == L'\t') {
      for (int b = 8 - static_cast<int>(k % 8); b > 0 && n < kMaxLine; --b) {
        dst[n++] = L' ';
      }
    } else {
      dst[n++] = src[k];
    }
    if (n >= kMaxLine) {
      break;  // The working buffer holds kMaxLine characters and a terminator.
    }
  }
  dst[n] = 0;
}

void Line::PutPol(wchar_t* line, typAlign align, int start, int end,
                  FieldTab* tab, bool truncate) {
  // A stretch that begins before the line has no room at all: nothing is
  // written, and the field is treated as for any stretch without room.
  const bool usable = start >= 0;
  const int64_t width = usable ? int64_t{end} - start + 1 : 0;
  int64_t pad = width - tab->Ostatok();
  bool overflow = false;
  if (pad < 0) {
    overflow = true;
    pad = 0;
  }
  int64_t p = start;
  if (align == AlignCenter) {
    p += pad / 2;
  } else if (align != AlignLeft) {
    p += pad;
  }

  bool on_separator = false;
  while (usable && p <= end) {
    const wchar_t c = tab->GetSym();
    if (c == 0) {
      break;
    }
    if (c == kValueSeparator) {
      on_separator = true;
      break;
    }
    line[p++] = c;
  }
  // A value that filled the stretch exactly still has its separator
  // pending; stepping over it makes the next placement print the next value.
  if (!on_separator) {
    tab->DelSeparator();
  }
  if (!overflow) {
    return;
  }
  if (truncate) {
    tab->ClearField();
    return;
  }
  if (!usable || start > end) {
    return;
  }

  int m = end;
  while (m >= start && !IsRasdel(line[m])) {
    --m;
  }
  if (m < start) {
    return;  // One word longer than the stretch: cut hard, go on mid-word.
  }
  for (m = end; !IsRasdel(line[m]); --m) {
    tab->ReturnSym();
    line[m] = L' ';
  }
  // A blank that ended the text is not part of it; a comma or a question
  // mark is, and stays with the word before it.
  const int q = (line[m] == L' ' && m > start) ? m - 1 : m;
  int r = end - q;
  if (align == AlignLeft) {
    return;
  }
  if (align == AlignCenter) {
    r /= 2;
  }
  if (r < 1) {
    return;
  }
  for (int k = q; k >= start; --k) {
    line[k + r] = line[k];
  }
  for (int k = start; k < start + r; ++k) {
    line[k] = L' ';
  }
}
