#include <clocale>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/tbl.h"
#include "template/blank.h"
#include "tests/test_util.h"
#include "textio/output_file.h"

namespace {

class BlankLoadTest : public testing::Test {
 protected:
  void SetUp() override {
    m_Blank.reset();
    ResetRunState();
    Tbl::PathBlank = Widen(m_Dir.path() + "/");
    m_Out = std::make_unique<OutputFile>(m_Dir.WFile("doc").c_str(), false);
  }

  Blank& MakeBlank(const wchar_t* name = L"form") {
    m_Blank = std::make_unique<Blank>(name, *m_Out);
    return *m_Blank;
  }

  int Load(const std::string& text) {
    m_Dir.Write("form.1", text);
    return MakeBlank().Load(1);
  }

  // Closes the document and returns its bytes.
  std::string Document() {
    m_Blank.reset();
    m_Out.reset();
    return m_Dir.Read("doc");
  }

  static std::wstring Value(long n) {
    FieldTab& tab = Tbl::TabHdrField;
    return tab.count(n) != 0 ? tab.at(n)->m_Value : L"<missing>";
  }

  TempDir m_Dir;
  std::unique_ptr<OutputFile> m_Out;
  std::unique_ptr<Blank> m_Blank;
};

TEST_F(BlankLoadTest, CommandsAndTheirMessages) {
  struct Row {
    const char* form;
    int result;
    const char* document;
  } rows[] = {
      {">repeat 100:1000\n>ПОВТОР 1:1\n>7\n", 1, ""},
      {">jump to 10 x3\n", 0,
       "Ошибка в формате команды ПЕРЕХОД:>jump to 10 x3\n\n"},
      {">10\n>jump to 10 $3x\n", 0,
       "Ошибка в формате команды ПЕРЕХОД:>jump to 10 $3x\n\n"},
      {">repeat 101:2\n", 0, "Неверное число строк в блоке:>repeat 101:2\n\n"},
      {">repeat 3\n", 0, "Неверное число повторений в блоке:>repeat 3\n\n"},
      {">repeat 2:1001", 0,
       "Неверное число повторений в блоке:>repeat 2:1001\n"},
      {"a\n>7\nb\n>7\n", 0, "Повторное появление метки:7\n"},
      {">x=&5\n", 0, "Переопределение макросимвола или поля:>x=&5\n\n"},
      {">S=$3\n", 0, "Переопределение макросимвола или поля:>S=$3\n\n"},
      {">\n", 0, "Неизвестная команда:>\n\n"},
      {">jump to 9\n>1\n", 0, "Метка не найдена:9\n"},
      {"ok\n>what\n>jump to 9\n", 0, "Неизвестная команда:>what\n\n"},
  };
  for (const Row& row : rows) {
    SetUp();
    EXPECT_EQ(Load(row.form), row.result) << row.form;
    EXPECT_EQ(Document(), row.document) << row.form;
  }
  SetUp();
  Load(">x=&5\n");
  EXPECT_EQ(Value(5), L"") << "the declared field exists";
}

TEST_F(BlankLoadTest, JumpArguments) {
  struct Row {
    const char* form;  // a jump to label 5 and the label
    int in_record;
    long field;
    int cond;
  } rows[] = {
      {">ПЕРЕХОД 5\n>5\n", 0, 0, 0},
      {">\u040F\u2026\u0452\u2026\u2022\u040B\u201E 5\n>5\n", 0, 0, 0},
      {">jump tox\n>0\n", 0, 0, 0},
      {">jump to 5 $3^\n>5\n", 1, 3, 1},
      {">jump to 5 &2\n>5\n", 0, 2, 2},
      {">jump to 5 $\n>5\n", 1, 0, 2},
      {">jump to 5 $3 ^\n>5\n", 1, 3, 2},
      {">5\n>jump to 5 $3", 1, 3, 2},
      {">jump to  +5  & -2^\n>5\n", 0, -2, 1},
  };
  for (const Row& row : rows) {
    SetUp();
    ASSERT_EQ(Load(row.form), 1) << row.form;
    const int at = m_Blank->m_Lines[0].kind == Line::Jump ? 0 : 1;
    const Line& jump = m_Blank->m_Lines[at];
    EXPECT_EQ(jump.link, 1 - at) << row.form;
    EXPECT_EQ(jump.inRecord, row.in_record) << row.form;
    EXPECT_EQ(jump.field, row.field) << row.form;
    EXPECT_EQ(jump.cond, row.cond) << row.form;
  }
}

// A jump's characters go through the locale's multibyte form: in the C
// locale a character outside ASCII cannot, which ends the scan there.
TEST_F(BlankLoadTest, NonAsciiJumpCharacterFollowsTheLocale) {
  const std::string old_locale = setlocale(LC_ALL, nullptr);
  setlocale(LC_ALL, "C");
  EXPECT_EQ(Load(">jump to 5 ж\n>5\n"), 1);
  EXPECT_EQ(m_Blank->m_Lines[0].cond, 0);
  EXPECT_EQ(Load(">jump to 5 $3ж\n>5\n"), 1);
  EXPECT_EQ(m_Blank->m_Lines[0].cond, 2);
  if (setlocale(LC_ALL, "C.UTF-8") != nullptr) {
    EXPECT_EQ(Load(">jump to 5 ж\n>5\n"), 0);
  }
  setlocale(LC_ALL, old_locale.c_str());
}

TEST_F(BlankLoadTest, TextLinesRegisterFieldsAndHeaderTexts) {
  Tbl::TabHdrField.InsertField(7);
  Tbl::TabHdrField.SetCurrent(7);
  Tbl::TabHdrField.PutStr(L"X\x01Y");
  ASSERT_EQ(Load("$3 and @@4, @$5, $$ and $ 7\n"
                 "&2 Total @7 units  ?\n"
                 "&1=ab $9\n"
                 "&5>x@Qy&6\n"
                 "\t&4x\n"
                 "&8@T\n"
                 "&3 cd\t\n"),
            1);
  std::vector<long> record;
  for (const auto& entry : Tbl::TabRcdField) {
    record.push_back(entry.first);
  }
  EXPECT_EQ(record, (std::vector<long>{0, 3, 4, 5, 7, 9}));
  EXPECT_EQ(Value(2), L" Total X units") << "cut at the ?";
  EXPECT_EQ(Value(1), L"ab") << "= skipped, ended at $";
  EXPECT_EQ(Value(5), L"xQy") << "unknown @ marker";
  EXPECT_EQ(Value(6), L"");
  EXPECT_EQ(Value(0), L"") << "index taken before the tab expanded";
  EXPECT_EQ(Value(4), L"<missing>");
  EXPECT_EQ(Value(8).size(), 16u) << "dd.mm.yyyy HH:MM";
  EXPECT_EQ(Value(3), L" cd   ") << "no cut at the end of the line";
}

TEST_F(BlankLoadTest, FindsTheSectionFile) {
  m_Dir.Write("form.1", "a\n");
  m_Dir.Write("form.txt.1", "a\n");
  EXPECT_EQ(MakeBlank().Load(1), 1) << "-P with its slash";
  Tbl::PathBlank = Widen(m_Dir.path());
  EXPECT_EQ(MakeBlank().Load(1), 0) << "-P without the slash";
  Tbl::PathBlank.clear();
  ScopedChdir here(m_Dir.path());
  EXPECT_EQ(MakeBlank().Load(1), 1) << "working directory";
  EXPECT_EQ(MakeBlank(L"form.txt").Load(1), 0) << "name with an extension";
}

TEST_F(BlankLoadTest, SectionsAreRewoundAndEarlierLinesStayValid) {
  ASSERT_EQ(Load("ab\r\nжж\n\nc"), 1);
  Blank& blank = *m_Blank;
  std::vector<int64_t> pos;
  for (int k = 0; k < blank.m_Count; ++k) {
    pos.push_back(blank.m_Lines[k].pos);
  }
  EXPECT_EQ(pos, (std::vector<int64_t>{0, 4, 9, 10}));

  Line* second = blank.Next(0);
  second = blank.Next(0);
  m_Dir.Write("form.1", ">what\n");
  EXPECT_EQ(blank.Load(1), 1) << "rewound, not read again";
  EXPECT_EQ(blank.m_Current, -1);
  EXPECT_EQ(blank.Load(2), 0) << "no form.2";
  EXPECT_EQ(blank.Load(2), 1) << "counts as loaded all the same";
  m_Dir.Write("form.3", "");
  ASSERT_EQ(blank.Load(3), 1);
  EXPECT_EQ(blank.m_Count, 0);
  EXPECT_EQ(blank.Next(0), nullptr);
  EXPECT_EQ(second->pos, 4);
  EXPECT_EQ(Document(), "");
}

}  // namespace
