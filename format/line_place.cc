// Field placement for Line, whose record is declared in template/line.h:
// one field's value written into a stretch of a line, and the preparation
// of a raw template line.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>

#include "driver/run_observer.h"
#include "driver/tbl.h"
#include "format/field.h"
#include "textio/char_blocks.h"
#include "template/line.h"

namespace {

// The comma is listed twice; the set is kept as old templates were written
// against it, and the duplicate changes nothing.
constexpr wchar_t kSeparators[] = L" ,?!,;)]";

// kSeparators as one bit per ASCII code, bit c % 64 of word c / 64.
struct AsciiSet {
  uint64_t word[2];
};

constexpr AsciiSet SetOf(const wchar_t* s) {
  AsciiSet set{{0, 0}};
  for (; *s != 0; ++s) {
    set.word[*s / 64] |= uint64_t{1} << (*s % 64);
  }
  return set;
}

constexpr AsciiSet kSeparatorSet = SetOf(kSeparators);

}  // namespace

const wchar_t* Line::Rasdel = kSeparators;

bool Line::IsRasdel(wchar_t c) {
  // A wrapped value is searched backwards for a separator character by
  // character; with the set the program starts with, two tests of a bit
  // instead of a walk over the list. Anyone who points Rasdel elsewhere
  // gets the walk.
  if (Rasdel == kSeparators) {
    const uint32_t code = static_cast<uint32_t>(c);
    return code < 128 && ((kSeparatorSet.word[code / 64] >> (code % 64)) & 1u);
  }
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
  static_cast<void>(DelTabLength(src, std::wcslen(src), dst));
}

int Line::DelTabLength(const wchar_t* src, size_t src_len, wchar_t* dst) {
  const size_t keep = KeptLength(src, src_len);
  // Every printed line passes through here; most have no tab and are
  // copied as they stand, or left where they are.
  if (dst == src || std::wmemchr(src, L'\t', keep) == nullptr) {
    const size_t n = keep < size_t{kMaxLine} ? keep : size_t{kMaxLine};
    if (dst != src) {
      // memcpy, not wmemcpy: the library's wmemcpy is a call around it.
      std::memcpy(dst, src, n * sizeof(wchar_t));
    }
    dst[n] = 0;
    return static_cast<int>(n);
  }
  // The tab stop comes from the tab's index in the source, not from the
  // output column, so a second tab does not reach the next stop of the
  // output; templates were laid out with the tab widths this gives.
  int n = 0;
  for (size_t k = 0; k < keep; ++k) {
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
  return n;
}

namespace {

// FieldTab::Ostatok, counted no further than limit characters, and
// whether a null comes within that count. A placement only needs to know
// whether the value is longer than its stretch; a value of many megabytes,
// continued line after line, would otherwise be measured to its end at
// every line, and the document would take hours.
struct Remainder {
  int64_t count;
  bool null_inside;
};

Remainder RemainderUpTo(const FieldTab* tab, int64_t limit) {
  const Field* field = tab->m_Current;
  if (field == nullptr) {
    return {0, false};
  }
  size_t unread = 0;
  const wchar_t* from = field->Unread(unread);
  const size_t span =
      unread < static_cast<size_t>(limit) ? unread : static_cast<size_t>(limit);
  if (span == 0) {
    return {0, false};
  }
  // One pass finds the separator, or a null before it, which is rare.
  const size_t stop = FindFirstOf<kValueSeparator, L'\0'>(from, 0, span);
  if (stop == span || from[stop] == kValueSeparator) {
    return {static_cast<int64_t>(stop), false};
  }
  const wchar_t* separator =
      std::wmemchr(from + stop, kValueSeparator, span - stop);
  return {separator != nullptr ? separator - from : static_cast<int64_t>(span),
          true};
}

// The fill of a placement: the current field's characters go into line[p]
// onwards, at most room of them, as a loop of GetSym would hand them out.
// That loop stops at the end of the value, at its separator and at a null
// character (the last two consumed, not written), or when the room is used
// up; a separator left pending then is stepped over all the same, so that
// the next placement prints the next value. The remainder tells how many
// characters come before the separator or the end (at least as many as
// there is room for) and whether a null is among them, so the text is
// copied in one go, and every way of stopping ends with DelSeparator.
void Fill(wchar_t* line, int64_t p, int64_t room, FieldTab* tab,
          Remainder left) {
  Field* const field = tab->m_Current;
  int64_t take = room < left.count ? room : left.count;
  if (field != nullptr && take > 0) {
    size_t unread = 0;
    const wchar_t* from = field->Unread(unread);
    const wchar_t* null =
        left.null_inside ? std::wmemchr(from, L'\0', static_cast<size_t>(take))
                         : nullptr;
    if (null != nullptr) {
      take = null - from;
      field->Skip(1);  // the null, consumed and not written
    }
    std::memcpy(line + p, from, static_cast<size_t>(take) * sizeof(wchar_t));
    field->Skip(static_cast<size_t>(take));
  }
  tab->DelSeparator();
}

}  // namespace

void Line::PutPol(wchar_t* line, typAlign align, int start, int end,
                  FieldTab* tab, bool truncate) {
  if (g_RunObserver != nullptr) {
    PutPolObserved(line, align, start, end, tab, truncate);
  } else {
    Place(line, align, start, end, tab, truncate);
  }
}

void Line::PutPolObserved(wchar_t* line, typAlign align, int start, int end,
                          FieldTab* tab, bool truncate) {
  const Field* const field = tab->m_Current;
  const size_t before = field != nullptr ? field->LenToEnd() : 0;
  // The value a truncating stretch is about to cut, kept for the observer;
  // one buffer for the whole run.
  static std::wstring value;
  value.clear();
  if (field != nullptr && truncate) {
    size_t unread = 0;
    const wchar_t* from = field->Unread(unread);
    value.assign(from, static_cast<size_t>(RemainderUpTo(tab, unread).count));
  }
  Place(line, align, start, end, tab, truncate);
  const size_t after = field != nullptr ? field->LenToEnd() : 0;
  const size_t used = before - after;
  // A value cut by a truncating stretch leaves nothing; what it had
  // beyond the stretch's width is what was dropped.
  const size_t width = end >= start ? static_cast<size_t>(end - start + 1) : 0;
  const Placement placement{tab == &Tbl::TabRcdField,
                            field != nullptr ? field->m_Number : 0,
                            start,
                            end,
                            truncate,
                            used < width ? used : width,
                            truncate && used > width ? used - width : 0,
                            after,
                            value.data(),
                            value.size()};
  g_RunObserver->Placed(placement);
}

void Line::Place(wchar_t* line, typAlign align, int start, int end,
                 FieldTab* tab, bool truncate) {
  // A stretch that begins before the line has no room at all: nothing is
  // written, and the field is treated as for any stretch without room.
  const bool usable = start >= 0;
  const int64_t width = usable ? int64_t{end} - start + 1 : 0;
  // One character past the stretch tells a value that does not fit.
  const Remainder left = RemainderUpTo(tab, (width > 0 ? width : 0) + 1);
  int64_t pad = width - left.count;
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

  Fill(line, p, usable ? end - p + 1 : 0, tab, left);
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

  Wrap(line, align, start, end, tab);
}

void Line::Wrap(wchar_t* line, typAlign align, int start, int end,
                FieldTab* tab) {
  int m = end;
  while (m >= start && !IsRasdel(line[m])) {
    --m;
  }
  if (m < start) {
    return;  // One word longer than the stretch: cut hard, go on mid-word.
  }
  // What follows the separator goes back to the field and is blanked.
  for (int k = end; k > m; --k) {
    tab->ReturnSym();
    line[k] = L' ';
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
