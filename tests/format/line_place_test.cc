#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "format/field.h"
#include "template/line.h"

namespace {

// Places value into line[start..end] of a working buffer; returns the line
// and what is left unread in the field, parted by "|".
std::wstring Place(const wchar_t* value, const wchar_t* line, int start,
                   int end, Line::typAlign align, bool truncate) {
  FieldTab tab;
  tab.InsertField(1);
  tab.SetCurrent(1);
  tab.PutStr(value);
  std::vector<wchar_t> buf(kLineBuf, 0);
  std::wstring(line).copy(buf.data(), kMaxLine);
  Line::PutPol(buf.data(), align, start, end, &tab, truncate);
  std::wstring result = std::wstring(buf.data()) + L"|";
  for (wchar_t c = tab.GetSym(); c != 0; c = tab.GetSym()) {
    result.push_back(c);
  }
  return result;
}

TEST(PutPolTest, PlacesAlignsWrapsAndCuts) {
  const Line::typAlign L = Line::AlignLeft, C = Line::AlignCenter,
                       R = Line::AlignRight;
  struct Row {
    const wchar_t* value;
    const wchar_t* line;
    int start, end;
    Line::typAlign align;
    bool truncate;
    const wchar_t* expected;  // line, "|", remainder
    const char* note;
  } rows[] = {
      {L"hello world", L"        ", 0, 7, L, false, L"hello   |world", "left"},
      {L"hello world", L"        ", 0, 7, R, false, L"   hello|world", "right"},
      {L"hello world", L"        ", 0, 7, C, false, L" hello  |world",
       "centre"},
      {L"ab,cdef", L"    ", 0, 3, L, false, L"ab, |cdef", "comma kept"},
      {L"ab,cdef", L"    ", 0, 3, R, false, L" ab,|cdef", "comma, right"},
      {L"abcdefghij", L"    ", 0, 3, R, false, L"abcd|efghij", "hard cut"},
      {L"abcd\x01next", L"    ", 0, 3, L, false, L"abcd|next", "exact fit"},
      {L"\x01next", L"    ", 0, 3, L, false, L"    |next", "empty, left"},
      {L"\x01next", L"    ", 0, 3, R, false, L"    |next", "empty, right"},
      {L"ab\x01z", L"    ", 0, 3, L, false, L"ab  |z", "first value only"},
      {L"abcdefgh", L"   ", 0, 2, L, true, L"abc|", "truncated"},
      {L"ab cdefgh", L"     ", 0, 4, L, true, L"ab cd|", "truncated, no wrap"},
      {L"ab", L"     ", 0, 4, C, false, L" ab  |", "odd room"},
      {L"ab", L".....", 0, 4, R, false, L"...ab|", "template kept"},
      {L" abcd", L"   ", 0, 2, R, false, L"   |abcd", "blank at the start"},
      {L"abc", L"0123", 3, 2, R, false, L"0123|abc", "start past end"},
      {L"abc", L"0123", 3, 1, R, true, L"0123|", "no room, truncated"},
      {L"abc", L"0123", -2, 1, L, false, L"0123|abc", "negative start"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(
        Place(row.value, row.line, row.start, row.end, row.align, row.truncate),
        row.expected)
        << row.note;
  }
}

TEST(PutPolTest, SeparatorSet) {
  for (wchar_t c : std::wstring(L" ,?!;)]")) {
    EXPECT_TRUE(Line::IsRasdel(c)) << static_cast<int>(c);
  }
  for (wchar_t c : std::wstring(L".:-([a") + L'\0') {
    EXPECT_FALSE(Line::IsRasdel(c)) << static_cast<int>(c);
  }
}

TEST(DelTabTest, TrimsExpandsAndCuts) {
  struct Row {
    std::wstring src;
    std::wstring expected;
    const char* note;
  } rows[] = {
      {L"a\tb", L"a       b", "tab to the next stop"},
      {L"\t\tx", std::wstring(15, L' ') + L"x", "stop from the source index"},
      {L"ab  \n", L"ab", "trailing blanks and line feed"},
      {L" \n \n  ", L"", "only blanks and line feeds"},
      {L"a\r\n", L"a\r", "carriage return stays"},
      {L" a\t \n", L" a      ", "trailing tab stays"},
      {std::wstring(4096, L'a'), std::wstring(4095, L'a'), "4096 characters"},
      {L"\t" + std::wstring(4094, L'a'), L"        " + std::wstring(4087, L'a'),
       "expansion passes the end"},
      {std::wstring(4090, L'a') + L"\t\t", std::wstring(4090, L'a') + L"     ",
       "cut inside a tab"},
  };
  for (const Row& row : rows) {
    // Exactly the working buffer: the sanitizer build sees a write past it.
    std::vector<wchar_t> dst(kLineBuf, L'#');
    Line::DelTab(row.src.c_str(), dst.data());
    EXPECT_EQ(std::wstring(dst.data()), row.expected) << row.note;
  }
}

}  // namespace
