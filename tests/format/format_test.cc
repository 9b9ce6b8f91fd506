// Field store, placement and line substitution: the edge rows that whole runs
// reach only by chance (cursor and separator rules, cuts at the buffer's end,
// macro characters that only a test can bind).
#include <algorithm>
#include <climits>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/tbl.h"
#include "format/field.h"
#include "template/blank.h"
#include "template/line.h"
#include "tests/test_util.h"

namespace {

// Makes field n of tab current, holding value ("^" stands for the value
// separator).
void Fill(FieldTab& tab, long n, std::wstring value) {
  std::replace(value.begin(), value.end(), L'^', kValueSeparator);
  tab.InsertField(n);
  tab.SetCurrent(n);
  tab.PutStr(value.c_str());
}

// Runs ops on field 1 holding value, then appends "=", the value and "@"
// with the read position. Ops: g GetSym (appends the character, "0" for
// none), r ReturnSym, o Ostatok (appends it), d DelSeparator, s SavPosPut,
// p GoPosPut, i InsSeparator, t DelEndBlankField, x PutSym('x'), n makes a
// missing field current, m InsertFieldMac(1, '#') and c SetCurrentMac('#')
// (both append their result).
std::string Script(const std::wstring& value, const std::string& ops) {
  FieldTab tab;
  Fill(tab, 1, value);
  std::string out;
  auto put = [&out](wchar_t c) {
    out += c == 0 ? '0' : c == kValueSeparator ? '^' : static_cast<char>(c);
  };
  const std::map<char, std::function<void()>> run = {
      {'g', [&] { put(tab.GetSym()); }},
      {'r', [&] { tab.ReturnSym(); }},
      {'o', [&] { out += std::to_string(tab.Ostatok()); }},
      {'d', [&] { tab.DelSeparator(); }},
      {'s', [&] { tab.SavPosPut(); }},
      {'p', [&] { tab.GoPosPut(); }},
      {'i', [&] { tab.InsSeparator(); }},
      {'t', [&] { tab.DelEndBlankField(); }},
      {'x', [&] { tab.PutSym(L'x'); }},
      {'n', [&] { tab.SetCurrent(2); }},
      {'m', [&] { out += std::to_string(tab.InsertFieldMac(1, L'#')); }},
      {'c', [&] { out += std::to_string(tab.SetCurrentMac(L'#')); }},
  };
  for (char op : ops)
    run.at(op)();
  out += "=";
  for (wchar_t c : tab.at(1)->m_Value)
    put(c);
  return out + "@" + std::to_string(tab.at(1)->m_Read);
}

TEST(FieldTest, CursorAndSeparatorRules) {
  const struct {
    std::wstring value;
    std::string ops, expected;
    const char* note;
  } rows[] = {
      {L"ab", "gggrg", "ab0b=ab@2", "GetSym stops at the end"},
      {L"ab", "rgr", "a=ab@0", "ReturnSym stops at the start"},
      {L"ab^cde", "ogogodo", "2a1b03=ab^cde@3", "Ostatok measures a value"},
      {L"", "od", "0=@0", "empty value"},
      {L"^^", "oddd", "0=^^@2", "one separator per DelSeparator"},
      {L"ab", "dg", "a=ab@1", "DelSeparator skips nothing else"},
      {L"ab \t\r\n", "t", "=ab@0", "trims blanks, tabs, CR and LF"},
      {L" \t", "t", "=@0", "trims to nothing"},
      {L"a b", "t", "=a b@0", "inner blank kept"},
      {L"abc", "p", "=@0", "GoPosPut without SavPosPut empties"},
      {L"ab", "sxxpp", "=ab@0", "GoPosPut drops what came after SavPosPut"},
      {L"", "i", "=@0", "no separator after an empty value"},
      {L"ab  ", "ix", "=ab^x@0", "value trimmed before the separator"},
      {L" \t ", "i", "=^@0", "blanks only: separator all the same"},
      {L"ab", "nxgirop", "00=ab@0", "no current field: nothing happens"},
      // Declarations of macro characters can only be refused.
      {L"ab", "mmcg", "000a=ab@1",
       "macro character never stored; a failed search keeps the current"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Script(row.value, row.ops), row.expected) << row.note;
}

// Fields come and go in any order of numbers, small and large, and every
// lookup in between must find exactly the fields there are.
TEST(FieldTest, LookupsFindExactlyTheFieldsThereAre) {
  const long numbers[] = {0, 1, 2, 7, 254, 255, 256, 1000, -1, -300, LONG_MAX};
  std::mt19937 rng(3);
  for (int round = 0; round < 50; ++round) {
    FieldTab tab;
    std::set<long> made;
    for (int step = 0; step < 40; ++step) {
      const long n = numbers[rng() % std::size(numbers)];
      if (rng() % 3 == 0) {
        EXPECT_EQ(tab.InsertField(n), made.insert(n).second);
        // Every field made holds text, so that ExistOst finds it too.
        tab.SetCurrent(n);
        tab.PutSym(L'x');
      }
      if (rng() % 20 == 0) {
        tab.freeAll();
        made.clear();
      }
      for (long q : numbers) {
        ASSERT_EQ(tab.ExistOst(q), made.count(q) == 1) << q;
        ASSERT_EQ(tab.SetCurrent(q), made.count(q) == 1) << q;
        ASSERT_EQ(tab.m_Current != nullptr && tab.m_Current->m_Number == q,
                  made.count(q) == 1)
            << q;
      }
    }
  }
}

TEST(PutPolTest, PlacesAlignsWrapsAndCuts) {
  const Line::typAlign L = Line::AlignLeft, C = Line::AlignCenter,
                       R = Line::AlignRight;
  const struct {
    const wchar_t* value;
    const wchar_t* line;
    int start, end;
    Line::typAlign align;
    bool truncate;
    const wchar_t* expected;  // the line, "|", what the field has left
    const char* note;
  } rows[] = {
      {L"hello world", L"        ", 0, 7, L, false, L"hello   |world", "left"},
      {L"hello world", L"        ", 0, 7, R, false, L"   hello|world", "right"},
      {L"hello world", L"        ", 0, 7, C, false, L" hello  |world",
       "centre"},
      {L"ab,cdef", L"    ", 0, 3, L, false, L"ab, |cdef", "comma kept"},
      {L"ab.cdefg", L"    ", 0, 3, R, false, L"ab.c|defg", "hard cut"},
      {L"abcd^next", L"    ", 0, 3, L, false, L"abcd|next", "exact fit"},
      {L"^next", L"    ", 0, 3, L, false, L"    |next", "empty, left"},
      {L"^next", L"    ", 0, 3, R, false, L"    |next", "empty, right"},
      {L"abcdefgh", L"   ", 0, 2, L, true, L"abc|", "truncated"},
      {L"ab cdefgh", L"     ", 0, 4, L, true, L"ab cd|", "truncated, no wrap"},
      {L"ab", L"     ", 0, 4, C, false, L" ab  |", "odd room"},
      {L"ab", L".....", 0, 4, R, false, L"...ab|", "filler kept"},
      {L" abcd", L"   ", 0, 2, R, false, L"   |abcd", "blank at the start"},
  };
  for (const auto& row : rows) {
    FieldTab tab;
    Fill(tab, 1, row.value);
    std::vector<wchar_t> buf(kLineBuf, 0);
    std::wstring(row.line).copy(buf.data(), kMaxLine);
    Line::PutPol(buf.data(), row.align, row.start, row.end, &tab, row.truncate);
    std::wstring got = std::wstring(buf.data()) + L"|";
    for (wchar_t c = tab.GetSym(); c != 0; c = tab.GetSym())
      got.push_back(c);
    EXPECT_EQ(got, row.expected) << row.note;
  }
  for (wchar_t c : std::wstring(L" ,?!;)]"))
    EXPECT_TRUE(Line::IsRasdel(c)) << static_cast<int>(c);
  for (wchar_t c : std::wstring(L".:-(a") + L'\0')
    EXPECT_FALSE(Line::IsRasdel(c)) << static_cast<int>(c);
  // A list of one's own replaces the whole set.
  const wchar_t* const saved = Line::Rasdel;
  Line::Rasdel = L".";
  EXPECT_TRUE(Line::IsRasdel(L'.'));
  EXPECT_FALSE(Line::IsRasdel(L' '));
  Line::Rasdel = saved;
}

TEST(DelTabTest, TrimsExpandsAndCuts) {
  const struct {
    std::wstring src, expected;
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
  for (const auto& row : rows) {
    std::vector<wchar_t> dst(kLineBuf, L'#');  // exactly the working buffer
    Line::DelTab(row.src.c_str(), dst.data());
    EXPECT_EQ(std::wstring(dst.data()), row.expected) << row.note;
  }
}

// Header 1 "Acme", 2 "X", 5 "abc^def"; record 1 "Smith", 2 "12.50", 4 "Bob"
// bound by hand to the macro character N, 5 "abc^def".
void FillTables() {
  FieldTab &hdr = Tbl::TabHdrField, &rcd = Tbl::TabRcdField;
  hdr.freeAll();
  rcd.freeAll();
  Fill(hdr, 1, L"Acme");
  Fill(hdr, 2, L"X");
  Fill(hdr, 5, L"abc^def");
  Fill(rcd, 1, L"Smith");
  Fill(rcd, 2, L"12.50");
  Fill(rcd, 4, L"Bob");
  Fill(rcd, 5, L"abc^def");
  rcd.at(4)->SetMac(L'N');
}

TEST(ConvStrTest, MarkerEdges) {
  const struct {
    std::string line;
    std::wstring expected;
    int count_before, count_after;
    const char* note;
  } rows[] = {
      {"@@@5", L"@abc", 0, 0, "second @ starts the record marker"},
      {"@5 @5", L"abc abc", 0, 0, "header value not consumed"},
      {"@@5 @@5 @@5", L"abc def ", 0, 0, "record value consumed"},
      {"[@@7]", L"[]", 0, 0, "absent record field"},
      {"a $7 b", L"a    b", 0, 0, "missing record field"},
      {"fee $ per $x", L"fee $ per $x", 0, 0, "a bare $ is text"},
      {"x&1", L"xAc", 0, 0, "&1 at the end is two wide"},
      {"$1&2", L"SmX ", 0, 0, "$1 ends before &2"},
      {"&1.......?|", L"Acme      |", 0, 0, "header stretch blanked"},
      {"$2.......?|", L"12.50.... |", 0, 0, "record stretch keeps filler"},
      {"$$1|$1   ?", L"Smit      ", 0, 0, "$$ cuts and empties the field"},
      {"&1 ?&1 ?&&1?", L"Acme    Acme", 0, 0, "&& rewinds"},
      {"$99999999999999999999|", std::wstring(21, L' ') + L"|", 0, 0,
       "huge field number"},
      {"[@99999999999999999999]", L"[]", 0, 0, "huge header number"},
      {"# #", L"1 2", 0, 2, "two runs, two pages"},
      {"ab#", L"ab100", 99, 100, "counter wider than the run at the end"},
      {"#$1", L"101", 9, 10, "counter over a marker"},
      {"############", L" -2147483648", INT32_MAX, INT32_MIN,
       "the counter wraps to the smallest value"},
      {"###########", L"-2147483647", INT32_MIN, INT32_MIN + 1,
       "a negative counter"},
      {"N>     N|", L"     Bob|", 0, 0, "macro stretch, right"},
      {std::string(4094, 'a') + "#", std::wstring(4094, L'a') + L"1", 99, 100,
       "counter cut at the buffer's end"},
  };
  std::string section;
  for (const auto& row : rows)
    section += row.line + "\n";
  TempDir dir;
  ASSERT_TRUE(Blank::m_File.Open(dir.Write("form.1", section).c_str()));
  Line line{};
  for (const auto& row : rows) {
    FillTables();
    Tbl::CountList = row.count_before;
    EXPECT_EQ(line.ConvStr(), row.expected) << row.note;
    EXPECT_EQ(Tbl::CountList, row.count_after) << row.note;
    line.pos += static_cast<int64_t>(row.line.size()) + 1;
  }
}

}  // namespace
