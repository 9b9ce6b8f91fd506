#include "table/table_text.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "table/bytes.h"

namespace formfill_table {

namespace {

enum Kind : uint8_t {
  kPlain,      // copied as it is
  kEscaped,    // special to the table reader somewhere: gets a backslash
  kBlank,      // blank or tab: kept unless it ends the value or meets a break
  kBreak,      // CR or LF
  kForbidden,  // U+0000 or U+0001
  kLead2,      // first byte of a two-byte sequence
  kLead3,
  kLead4,
  kInvalid,  // a continuation byte out of place, or never valid in UTF-8
};

constexpr std::array<Kind, 256> MakeKinds() {
  std::array<Kind, 256> kinds{};
  for (int c = 0x80; c < 0x100; ++c)
    kinds[c] = kInvalid;
  for (int c = 0xC2; c <= 0xDF; ++c)
    kinds[c] = kLead2;
  for (int c = 0xE0; c <= 0xEF; ++c)
    kinds[c] = kLead3;
  for (int c = 0xF0; c <= 0xF4; ++c)
    kinds[c] = kLead4;
  kinds[0] = kinds[1] = kForbidden;
  kinds[' '] = kinds['\t'] = kBlank;
  kinds['\r'] = kinds['\n'] = kBreak;
  for (const char c : kEscapedBytes)
    kinds[static_cast<unsigned char>(c)] = kEscaped;
  return kinds;
}

constexpr std::array<Kind, 256> kKinds = MakeKinds();
constexpr std::array<char, 2> kForbiddenBytes = {'\0', '\1'};

bool Continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length of the well-formed sequence at p (lead byte of kind k, end the end
// of the value), or 0. Overlong forms, surrogates and code points above
// U+10FFFF are refused: formfill's reader would take them, but they are no
// text, and a value that is no text is better refused here than printed.
size_t SequenceLength(const unsigned char* p, const unsigned char* end,
                      Kind k) {
  const size_t n = k == kLead2 ? 2 : k == kLead3 ? 3 : 4;
  if (static_cast<size_t>(end - p) < n)
    return 0;
  for (size_t i = 1; i < n; ++i)
    if (!Continuation(p[i]))
      return 0;
  const unsigned char lead = p[0];
  const unsigned char next = p[1];
  if ((lead == 0xE0 && next < 0xA0) || (lead == 0xED && next > 0x9F) ||
      (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next > 0x8F))
    return 0;
  return n;
}

ValueCheck Fault(ValueFault fault, const unsigned char* at,
                 const unsigned char* begin) {
  ValueCheck check;
  check.fault = fault;
  check.at = static_cast<size_t>(at - begin);
  return check;
}

// The bytes that are not simply copied: all but ASCII from the blank up
// and the escaped. A blank is copied only where no run of blanks ends,
// which the callers see to.
using NotCopied = ByteMarks<kEscapedBytes, true>;

// n, less the blanks just before p + n.
size_t LessBlanks(const unsigned char* p, size_t n) {
  while (n > 0 && p[n - 1] == ' ')
    --n;
  return n;
}

// Whether all of a value of 1 to 15 bytes is copied as it is. Two loads
// that overlap (or three bytes) cover it without reading past its end.
bool ShortCopied(const unsigned char* p, size_t size) {
  uint64_t low;
  uint64_t high;
  if (size >= 8) {
    low = LoadEight(p);
    high = LoadEight(p + size - 8);
  } else if (size >= 4) {
    uint32_t first, last;
    memcpy(&first, p, 4);
    memcpy(&last, p + size - 4, 4);
    low = high = first | static_cast<uint64_t>(last) << 32;
  } else {
    low = high = 0x6161616161000000 | p[0] | p[size / 2] << 8 |
                 p[size - 1] << 16;  // the rest 'a'
  }
  return NotCopied::Find(low, high) == 0 && p[size - 1] != ' ';
}

// How many bytes at the start of the size bytes at p are copied as they
// are: those up to the first other byte, sixteen at a time, less a run of
// blanks just before it or at the end (it may meet a line break or end
// the value). A short value is either copied whole or left to the caller.
size_t CopiedPrefix(const unsigned char* p, size_t size) {
  if (size < 16)
    return size > 0 && ShortCopied(p, size) ? size : 0;
  for (size_t at = 0;; at += 16) {
    if (at + 16 > size)
      at = size - 16;  // the last block overlaps the one before
    const uint32_t marks = NotCopied::Find(p + at);
    if (marks != 0)
      return LessBlanks(p, at + FirstMark(marks));
    if (at + 16 == size)
      return LessBlanks(p, size);
  }
}

// The end of the run of blanks, tabs and line breaks that starts at p, and
// whether it holds a line break.
const unsigned char* SpaceRun(const unsigned char* p, const unsigned char* end,
                              bool* has_break) {
  *has_break = false;
  for (; p < end; ++p) {
    const Kind k = kKinds[*p];
    if (k == kBreak)
      *has_break = true;
    else if (k != kBlank)
      break;
  }
  return p;
}

// WriteValue past the first byte it does not simply copy, p, with w where
// it goes. Kept apart, so that the values copied whole take a short way.
__attribute__((noinline)) char* WriteRest(const unsigned char* begin,
                                          const unsigned char* p,
                                          const unsigned char* end, char* w,
                                          ValueCheck* check) {
  while (p < end) {
    // Most text is plain: copied a word at a time where it is.
    if (*p < 0x80) {
      const size_t n = CopiedPrefix(p, static_cast<size_t>(end - p));
      if (n > 0) {
        CopyBytes(w, p, n);
        w += n;
        p += n;
        continue;
      }
    }
    const unsigned char c = *p;
    const Kind k = kKinds[c];
    if (k == kPlain) {
      *w++ = static_cast<char>(c);
      ++p;
    } else if (k == kEscaped) {
      w[0] = '\\';
      w[1] = static_cast<char>(c);
      w += 2;
      ++p;
    } else if (k == kBlank || k == kBreak) {
      bool has_break;
      const unsigned char* run_end = SpaceRun(p, end, &has_break);
      if (run_end == end)
        break;  // trailing: formfill would trim it anyway
      if (has_break) {
        *w++ = ' ';
      } else {
        CopyBytes(w, p, static_cast<size_t>(run_end - p));
        w += run_end - p;
      }
      p = run_end;
    } else if (k == kForbidden) {
      *check = Fault(c == 0 ? ValueFault::kNul : ValueFault::kSeparator, p,
                     begin);
      return nullptr;
    } else {
      const size_t n = k == kInvalid ? 0 : SequenceLength(p, end, k);
      if (n == 0) {
        *check = Fault(ValueFault::kNotUtf8, p, begin);
        return nullptr;
      }
      CopyBytes(w, p, n);
      w += n;
      p += n;
    }
  }
  return w;
}

// Whether the sixteen bytes at p are ASCII but U+0000 and U+0001, and
// whole two-byte sequences, as text in most alphabets is.
bool SimpleBlock(const unsigned char* p) {
  if (ByteMarks<kForbiddenBytes, false>::Find(p) != 0)
    return false;
  const uint32_t high = HighMarks(p);
  if (high == 0)
    return true;
  uint32_t leads;
  uint32_t continuations;
  TwoByteMarks(p, &leads, &continuations);
  return (high & ~(leads | continuations)) == 0 &&
         continuations == ((leads << 1) & 0xFFFF) && (leads & 0x8000) == 0;
}

}  // namespace

const char* FaultText(ValueFault fault) {
  switch (fault) {
    case ValueFault::kNone:
      return "no fault";
    case ValueFault::kNotUtf8:
      return "bytes that are not UTF-8";
    case ValueFault::kNul:
      return "a character U+0000, which a table cannot hold";
    case ValueFault::kSeparator:
      return "a character U+0001, formfill's value separator";
  }
  return "unknown fault";
}

char* TextBuffer::Reserve(size_t n) {
  if (m_Capacity - m_Size < n) {
    size_t capacity = m_Capacity < 4096 ? 4096 : m_Capacity * 2;
    while (capacity - m_Size < n)
      capacity *= 2;
    std::unique_ptr<char[]> data(new char[capacity]);
    if (m_Size > 0)
      memcpy(data.get(), m_Data.get(), m_Size);
    m_Data = std::move(data);
    m_Capacity = capacity;
  }
  return m_Data.get() + m_Size;
}

void TextBuffer::Release() {
  m_Data.reset();
  m_Size = 0;
  m_Capacity = 0;
}

void TextBuffer::Append(const char* data, size_t n) {
  CopyBytes(Reserve(n), data, n);
  m_Size += n;
}

char* WriteValue(const char* value, size_t size, ValueShape shape, char* w,
                 ValueCheck* check) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(value);
  if (shape == ValueShape::kPlain ||
      (shape == ValueShape::kText && CheckValue(value, size).ok())) {
    CopyBytes(w, value, size);
    return w + size;
  }
  const size_t n = CopiedPrefix(begin, size);
  CopyBytes(w, begin, n);
  if (n == size)
    return w + n;
  return WriteRest(begin, begin + n, begin + size, w + n, check);
}

ValueCheck AppendValue(const char* value, size_t size, TextBuffer* out) {
  ValueCheck check;
  // Every byte may gain a backslash; nothing else grows.
  char* const w = WriteValue(value, size, ValueShape::kUnknown,
                             out->Reserve(2 * size), &check);
  if (w != nullptr)
    out->Advance(w);
  return check;
}

ValueCheck CheckValue(const char* value, size_t size) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(value);
  const auto* const end = begin + size;
  for (const unsigned char* p = begin; p < end;) {
    // Sixteen bytes at a time while they are simple, else a character at a
    // time up to the end of those sixteen.
    const unsigned char* block_end = end - p >= 16 ? p + 16 : end;
    if (block_end == p + 16 && SimpleBlock(p)) {
      p = block_end;
      continue;
    }
    while (p < block_end) {
      const Kind k = kKinds[*p];
      if (k == kForbidden)
        return Fault(*p == 0 ? ValueFault::kNul : ValueFault::kSeparator, p,
                     begin);
      if (k < kForbidden) {
        ++p;
        continue;
      }
      const size_t n = k == kInvalid ? 0 : SequenceLength(p, end, k);
      if (n == 0)
        return Fault(ValueFault::kNotUtf8, p, begin);
      p += n;
    }
  }
  return ValueCheck();
}

std::string Selector(char marker, long number) {
  return marker + std::to_string(number) + ";";
}

}  // namespace formfill_table
