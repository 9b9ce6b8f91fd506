#include "format/field.h"

#include <string>

#include <gtest/gtest.h>

namespace {

// Makes a field holding value with its read position at read.
Field MakeField(const std::wstring& value, int64_t read) {
  Field f(1);
  f.PutStr(value.c_str());
  f.m_Read = read;
  return f;
}

TEST(FieldTest, ReadCursorStopsAtTheEnds) {
  Field f = MakeField(L"ab", 0);
  EXPECT_EQ(f.GetSym(), L'a');
  EXPECT_EQ(f.GetSym(), L'b');
  EXPECT_EQ(f.GetSym(), 0);
  EXPECT_EQ(f.m_Read, 2);
  f.ReturnSym();
  EXPECT_EQ(f.GetSym(), L'b');
  f.First();
  f.ReturnSym();
  EXPECT_EQ(f.m_Read, 0);
}

TEST(FieldTest, OstatokAndDelSeparatorMeasureOneValue) {
  const struct {
    std::wstring value;
    int64_t read;
    int ostatok;
    int64_t read_after_del;
    const char* note;
  } cases[] = {
      {L"ab\x01"
       L"cde",
       0, 2, 0, "first value"},
      {L"ab\x01"
       L"cde",
       1, 1, 1, "inside the first value"},
      {L"ab\x01"
       L"cde",
       2, 0, 3, "on the separator"},
      {L"ab\x01"
       L"cde",
       3, 3, 3, "last value"},
      {L"ab\x01"
       L"cde",
       6, 0, 6, "at the end"},
      {L"", 0, 0, 0, "empty value"},
      {L"\x01\x01", 0, 0, 1, "two separators"},
  };
  for (const auto& c : cases) {
    Field f = MakeField(c.value, c.read);
    EXPECT_EQ(f.Ostatok(), c.ostatok) << c.note;
    f.DelSeparator();
    EXPECT_EQ(f.m_Read, c.read_after_del) << c.note;
  }
}

TEST(FieldTest, TrimRightAndGoPosPut) {
  const struct {
    std::wstring value, trimmed;
  } trims[] = {
      {L"ab \t\r\n", L"ab"},
      {L" \t", L""},
      {L"a b", L"a b"},
      {L"", L""},
  };
  for (const auto& c : trims) {
    Field f = MakeField(c.value, 0);
    f.TrimRight();
    EXPECT_EQ(f.m_Value, c.trimmed) << testing::PrintToString(c.value);
  }

  Field fresh = MakeField(L"abc", 0);
  fresh.GoPosPut();
  EXPECT_EQ(fresh.m_Value, L"") << "saved position 0 empties the field";

  Field f = MakeField(L"ab", 0);
  f.SavPosPut();
  f.PutStr(L"cd");
  f.GoPosPut();
  EXPECT_EQ(f.m_Value, L"ab");
  f.GoPosPut();
  EXPECT_EQ(f.m_Value, L"ab");
}

class FieldTabTest : public testing::Test {
 protected:
  FieldTab tab_;
};

TEST_F(FieldTabTest, FillsValuesWithSeparatorsAndReadsThemBack) {
  ASSERT_TRUE(tab_.InsertField(3));
  EXPECT_EQ(tab_.m_Current, nullptr) << "InsertField keeps the current field";
  ASSERT_TRUE(tab_.SetCurrent(3));
  tab_.InsSeparator();
  EXPECT_EQ(tab_.FirstValue(3), L"") << "empty value gets no separator";
  tab_.PutStr(L"x y  ");
  tab_.InsSeparator();
  tab_.PutStr(L" \t");
  tab_.InsSeparator();
  tab_.PutStr(L"z");
  EXPECT_EQ(tab_.m_Current->m_Value, L"x y\x01\x01z")
      << "blank value trimmed, separator kept";
  EXPECT_EQ(tab_.FirstValue(3), L"x y");
  EXPECT_EQ(tab_.FirstValue(4), L"");
  EXPECT_EQ(tab_.AllOst(), 6);

  EXPECT_EQ(tab_.Ostatok(), 3);
  EXPECT_EQ(tab_.GetSym(), L'x');
  EXPECT_EQ(tab_.GetSym(), L' ');
  EXPECT_EQ(tab_.GetSym(), L'y');
  EXPECT_EQ(tab_.Ostatok(), 0);
  tab_.DelSeparator();
  tab_.DelSeparator();
  EXPECT_EQ(tab_.Ostatok(), 1);
  EXPECT_EQ(tab_.AllOst(), 1);
  EXPECT_EQ(tab_.FirstValue(3), L"x y") << "read position does not matter";
  EXPECT_TRUE(tab_.ExistOst(3));
  EXPECT_EQ(tab_.GetSym(), L'z');
  EXPECT_FALSE(tab_.Exist());
  EXPECT_FALSE(tab_.ExistOst(3));
  EXPECT_FALSE(tab_.ExistOst(99));

  tab_.First(99);
  tab_.First(3);
  EXPECT_EQ(tab_.AllOst(), 6);
  tab_.SavPosPut();
  tab_.PutSym(L'!');
  tab_.GoPosPut();
  EXPECT_EQ(tab_.FirstValue(3), L"x y");
  EXPECT_EQ(tab_.AllOst(), 6) << "GoPosPut dropped the appended character";
}

TEST_F(FieldTabTest, ExistAndAllOstSumOverEveryField) {
  EXPECT_EQ(tab_.AllOst(), 0);
  EXPECT_FALSE(tab_.Exist());
  for (long n : {1L, 2L}) {
    tab_.InsertField(n);
    tab_.SetCurrent(n);
    tab_.PutStr(L"abc");
  }
  EXPECT_FALSE(tab_.InsertField(2));
  EXPECT_EQ(tab_.FirstValue(2), L"abc") << "existing field kept";
  tab_.GetSym();
  EXPECT_EQ(tab_.AllOst(), 5);
  tab_.First();
  EXPECT_EQ(tab_.AllOst(), 6);
  tab_.SetCurrent(1);
  tab_.ClearField();
  EXPECT_EQ(tab_.AllOst(), 3);
  tab_.Clear();
  EXPECT_EQ(tab_.size(), 2u);
  EXPECT_FALSE(tab_.Exist());

  tab_.SetCurrent(2);
  tab_.PutStr(L"q \n");
  tab_.DelEndBlankField();
  EXPECT_EQ(tab_.FirstValue(2), L"q");
  tab_.SetCurrent(1);
  tab_.PutStr(L"r\t");
  tab_.DelEndBlank();
  EXPECT_EQ(tab_.FirstValue(1), L"r");
}

TEST_F(FieldTabTest, NoCurrentFieldMeansNoAction) {
  tab_.InsertField(1);
  tab_.SetCurrent(1);
  EXPECT_FALSE(tab_.SetCurrent(2));
  EXPECT_EQ(tab_.m_Current, nullptr);
  tab_.PutSym(L'a');
  tab_.PutStr(L"bc");
  tab_.InsSeparator();
  EXPECT_EQ(tab_.GetSym(), 0);
  EXPECT_EQ(tab_.Ostatok(), 0);
  tab_.ReturnSym();
  tab_.GoPosPut();
  EXPECT_EQ(tab_.AllOst(), 0);

  // freeAll leaves the table usable, with no current field.
  tab_.SetCurrent(1);
  tab_.freeAll();
  EXPECT_TRUE(tab_.empty());
  EXPECT_EQ(tab_.GetSym(), 0);
  tab_.PutSym(L'a');
  EXPECT_TRUE(tab_.InsertField(1));

  tab_.SetCurrent(1);
  tab_.PutStr(L" \t ");
  tab_.InsSeparator();
  EXPECT_EQ(tab_.m_Current->m_Value, L"\x01") << "blanks only";
}

TEST_F(FieldTabTest, MacroCharactersAreNeverStored) {
  EXPECT_FALSE(tab_.InsertFieldMac(5, L'#'));
  EXPECT_EQ(tab_.size(), 1u);
  EXPECT_FALSE(tab_.InsertFieldMac(5, L'#')) << "still not bound";
  EXPECT_EQ(tab_.size(), 1u);
  EXPECT_TRUE(tab_.InsertFieldMac(2, 0));

  tab_.SetCurrent(5);
  EXPECT_FALSE(tab_.SetCurrentMac(L'#'));
  ASSERT_NE(tab_.m_Current, nullptr) << "a failed search keeps the current";
  EXPECT_EQ(tab_.m_Current->m_Number, 5);
  EXPECT_TRUE(tab_.SetCurrentMac(0));
  EXPECT_EQ(tab_.m_Current->m_Number, 2) << "lowest number first";
}

}  // namespace
