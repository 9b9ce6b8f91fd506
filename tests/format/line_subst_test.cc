#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/tbl.h"
#include "format/field.h"
#include "template/blank.h"
#include "template/line.h"
#include "tests/test_util.h"
#include "textio/helpers.h"

namespace {

void SetField(FieldTab& tab, long n, const std::wstring& value) {
  tab.InsertField(n);
  tab.SetCurrent(n);
  tab.PutStr(value.c_str());
}

// Header 1 "Acme", 2 "X", 5 "abc|def", 9 two hundred "x";
// record 1 "Smith", 2 "12.50", 3 "hello world", 5 "abc|def"; no field 7.
void FillTables() {
  ResetRunState();
  SetField(Tbl::TabHdrField, 1, L"Acme");
  SetField(Tbl::TabHdrField, 2, L"X");
  SetField(Tbl::TabHdrField, 5,
           L"abc\x01"
           L"def");
  SetField(Tbl::TabHdrField, 9, std::wstring(200, L'x'));
  SetField(Tbl::TabRcdField, 1, L"Smith");
  SetField(Tbl::TabRcdField, 2, L"12.50");
  SetField(Tbl::TabRcdField, 3, L"hello world");
  SetField(Tbl::TabRcdField, 5,
           L"abc\x01"
           L"def");
}

class ConvStrTest : public testing::Test {
 protected:
  void TearDown() override { ResetRunState(); }

  // Writes the lines (UTF-8, each ended by a line feed) as one section file,
  // opens it in Blank::m_File and returns a Line for each.
  std::vector<Line> Section(const std::vector<std::string>& lines) {
    std::string bytes;
    std::vector<Line> result;
    for (const std::string& text : lines) {
      Line line{};
      line.pos = static_cast<int64_t>(bytes.size());
      result.push_back(line);
      bytes += text + "\n";
    }
    dir_.Write("form.1", bytes);
    EXPECT_TRUE(Blank::m_File.Open(dir_.WFile("form.1").c_str()));
    return result;
  }

  TempDir dir_;
};

TEST_F(ConvStrTest, Markers) {
  struct Row {
    std::string line;
    std::wstring expected;
    int count_before;
    int count_after;
    const char* note;
  };
  const std::vector<Row> rows = {
      {"", L"", 0, 0, "empty line"},
      {"    ", L"", 0, 0, "blanks only"},
      {"a\t@X", L"a       @X", 0, 0, "tab expanded, unknown marker stays"},
      {"a@", L"a@", 0, 0, "@ at the end"},
      {"@@X", L"@@X", 0, 0, "@@ without a number"},
      {"@@@5", L"@abc", 0, 0, "second @ starts the record marker"},
      {"@5 @5", L"abc abc", 0, 0, "header value twice"},
      {"@@5 @@5 @@5", L"abc def ", 0, 0, "record value consumed"},
      {"[@3]", L"[]", 0, 0, "absent header field"},
      {"[@@7]", L"[]", 0, 0, "absent record field"},
      {"Größe @1!", L"Größe Acme!", 0, 0, "multibyte text before"},
      {"a $7 b", L"a    b", 0, 0, "missing record field"},
      {"x&1", L"xAc", 0, 0, "&1 at the end is two wide"},
      {"$1&2", L"SmX ", 0, 0, "$1 ends before &2"},
      {"&1.......?|", L"Acme      |", 0, 0, "header stretch blanked"},
      {"$2.......?|", L"12.50.... |", 0, 0, "record stretch keeps filler"},
      {"[$1=     ?]", L"[  Smith  ]", 0, 0, "centred"},
      {"[$1>     ?]", L"[    Smith]", 0, 0, "right"},
      {"$$1|$1   ?", L"Smit      ", 0, 0, "$$ cuts and empties the field"},
      {"&1 ?&1 ?&&1?", L"Acme    Acme", 0, 0, "&& rewinds"},
      {"$3     ?|$3     ?", L"hello   |world   ", 0, 0, "wrap continues"},
      {"$99999999999999999999|", L"                     |", 0, 0,
       "huge field number"},
      {"[@99999999999999999999]", L"[]", 0, 0, "huge header number"},
      {"Page ##", L"Page  1", 0, 1, "one run"},
      {"# #", L"1 2", 0, 2, "two runs"},
      {"#x", L"10", 9, 10, "wider than the run"},
      {"ab#", L"ab100", 99, 100, "wider, past the end"},
      {"#$1", L"101", 9, 10, "counter eats a marker"},
  };
  std::vector<std::string> texts;
  for (const Row& row : rows) {
    texts.push_back(row.line);
  }
  const std::vector<Line> lines = Section(texts);
  for (size_t k = 0; k < rows.size(); ++k) {
    FillTables();
    Tbl::CountList = rows[k].count_before;
    EXPECT_EQ(rows[k].expected, lines[k].ConvStr()) << rows[k].note;
    EXPECT_EQ(rows[k].count_after, Tbl::CountList) << rows[k].note;
  }
}

TEST_F(ConvStrTest, DateAndTime) {
  const std::vector<Line> lines = Section({"d=@D;", "t=@T;"});
  FillTables();
  const std::wstring date_before = GetCurrentTimeString("%d.%m.%Y");
  const std::wstring time_before = GetCurrentTimeString("%d.%m.%Y %H:%M");
  const std::wstring d = lines[0].ConvStr();
  const std::wstring t = lines[1].ConvStr();
  const std::wstring date_after = GetCurrentTimeString("%d.%m.%Y");
  const std::wstring time_after = GetCurrentTimeString("%d.%m.%Y %H:%M");
  EXPECT_TRUE(d == L"d=" + date_before + L";" || d == L"d=" + date_after + L";")
      << "@D";
  EXPECT_TRUE(t == L"t=" + time_before + L";" || t == L"t=" + time_after + L";")
      << "@T";
  ASSERT_EQ(13u, d.size());
  EXPECT_EQ(L'.', d[4]);
  EXPECT_EQ(L'.', d[7]);
  ASSERT_EQ(19u, t.size());
  EXPECT_EQ(L' ', t[12]);
  EXPECT_EQ(L':', t[15]);
}

TEST_F(ConvStrTest, MacroCharacterBoundByHand) {
  // Nothing in the program binds a macro character; set one directly.
  const std::vector<Line> lines = Section({"N>     N|", "N=    N", "|N"});
  const std::vector<std::wstring> expected = {L"     Bob|", L"  Bob  ", L"|B"};
  for (size_t k = 0; k < lines.size(); ++k) {
    FillTables();
    SetField(Tbl::TabRcdField, 4, L"Bob");
    Tbl::TabRcdField.at(4)->m_Mac = L'N';
    EXPECT_EQ(expected[k], lines[k].ConvStr()) << "line " << k;
  }
}

TEST_F(ConvStrTest, BufferLimits) {
  const std::vector<Line> lines =
      Section({std::string(3895, 'a') + "@9", std::string(3896, 'a') + "@9",
               std::string(4094, 'a') + "#"});
  FillTables();
  const std::wstring fits = lines[0].ConvStr();
  EXPECT_EQ(std::wstring(3895, L'a') + std::wstring(200, L'x'), fits)
      << "exactly 4095 characters";
  EXPECT_THROW(lines[1].ConvStr(), std::length_error) << "one too many";
  Tbl::CountList = 99;
  EXPECT_EQ(std::wstring(4094, L'a') + L"1", lines[2].ConvStr())
      << "counter cut at the buffer's end";
  EXPECT_EQ(100, Tbl::CountList);
}

}  // namespace
