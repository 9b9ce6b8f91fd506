#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "driver/tbl.h"
#include "template/blank.h"
#include "tests/test_util.h"
#include "textio/output_file.h"

namespace {

const char kRepeatMessage[] = "Неверное число строк в блоке повторения\n";
const char kCycleMessage[] = "Циклический переход в бланке\n";

class BlankNextTest : public testing::Test {
 protected:
  void SetUp() override {
    m_Blank.reset();
    ResetRunState();
    Tbl::PathBlank = Widen(m_Dir.path() + "/");
    m_Out = std::make_unique<OutputFile>(m_Dir.WFile("doc").c_str(), false);
  }

  void Load(const std::string& text) {
    m_Dir.Write("form.1", text);
    m_Blank = std::make_unique<Blank>(L"form", *m_Out);
    ASSERT_EQ(m_Blank->Load(1), 1);
  }

  static void Fill(FieldTab& tab, long n, const wchar_t* value) {
    tab.InsertField(n);
    tab.SetCurrent(n);
    tab.ClearField();
    tab.PutStr(value);
  }

  // The text of the next line handed out (ASCII only), "" for null.
  std::string NextText(int mode = 0) {
    Line* line = m_Blank->Next(mode);
    wchar_t text[kRawLineBuf] = L"";
    if (line != nullptr) {
      Blank::m_File.SetFilePointer(static_cast<long>(line->pos));
      Blank::m_File.GetLine(text, kMaxLine);
    }
    std::string narrow;
    for (const wchar_t* p = text; *p != 0 && *p != L'\n'; ++p) {
      narrow.push_back(static_cast<char>(*p));
    }
    return narrow;
  }

  // The lines handed out until null, at most limit of them, joined by ",".
  std::string Run(int mode = 0, int limit = 20) {
    std::string all;
    for (std::string text; limit-- > 0 && !(text = NextText(mode)).empty();) {
      all += (all.empty() ? "" : ",") + text;
    }
    return all;
  }

  std::string Document() {
    m_Blank.reset();
    m_Out.reset();
    return m_Dir.Read("doc");
  }

  TempDir m_Dir;
  std::unique_ptr<OutputFile> m_Out;
  std::unique_ptr<Blank> m_Blank;
};

TEST_F(BlankNextTest, ControlFlow) {
  struct Row {
    const char* form;
    const wchar_t* record1;  // value of record field 1
    int mode;
    int breaks;  // pending page marks before and after
    const char* lines;
    const char* document;
    int breaks_left;
    const char* note;
  } rows[] = {
      {">repeat 2:3\nfirst\nsecond\n", L"", 0, 0,
       "first,second,first,second,first,second", "", 0, "repeat 2:3"},
      {"a\n>repeat 1:2\nb\n>1\nc\n", L"", 0, 0, "a,b,b,c", "", 0, "one line"},
      {">repeat 3:2\na\nb\n", L"", 0, 0, "a,b", kRepeatMessage, 0,
       "block longer than the section"},
      {">1\n>repeat 1:2\nx\n>jump to 1 $1\n", L"x", 0, 0, "x,x,x,x", "", 0,
       "block rebuilt on every arrival"},
      {">repeat 1:3\nx\ny\n", L"", 0, 1, "x,y", "", 0, "mark ends the block"},
      {">1\n>2\n", L"", 0, 0, "", "", 0, "labels only"},
      {">1\n>jump to 1\n", L"", 0, 0, "", kCycleMessage, 0, "cycle"},
      {">1\n>jump to 1\n", L"x", 0, 0, "", kCycleMessage, 0,
       "cycle, text left"},
      {">1\nl\n>jump to 1 $1\n", L"x", 0, 0, "l,l", "", 0, "guard, last line"},
      {">1\nl\n>jump to 1 $1\nz\n", L"x", 0, 0, "l,l,z", "", 0, "guard"},
      {">1\nl\n>jump to 1 $1\n", L"x", 1, 0, "l,l", "", 0, "mode 1, ^ jump"},
      {">1\na\n>jump to 1\nb\n", L"", 1, 1, "a,b", "", 1, "mode 1, back"},
      {">jump to 1\ns\n>1\nb\n", L"", 1, 0, "b", "", 0, "mode 1, forward"},
      {">jump to 1\ns\n>1\nb\n", L"", 0, 1, "s,b", "", 0, "mark stops a jump"},
      {">jump to 1\ns\n>1\nb\n", L"", 0, 2, "s,b", "", 1, "one mark a jump"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.note);
    SetUp();
    Load(row.form);
    Fill(Tbl::TabRcdField, 1, row.record1);
    Tbl::totBreak = row.breaks;
    EXPECT_EQ(Run(row.mode), row.lines);
    EXPECT_EQ(Tbl::totBreak, row.breaks_left);
    EXPECT_EQ(Document(), row.document);
  }
}

TEST_F(BlankNextTest, JumpConditions) {
  struct Row {
    const char* jump;
    const wchar_t* record1;
    const wchar_t* header2;
    int printed;  // characters of the record output so far
    bool jumps;
  } rows[] = {
      {">jump to 1 $1^", L"x", L"", 0, false},
      {">jump to 1 $1^", L"", L"", 0, true},
      {">jump to 1 $1", L"x", L"", 0, true},
      {">jump to 1 $7^", L"x", L"", 0, true},
      {">jump to 1 $0^", L"x", L"", 0, false},
      {">jump to 1 $0^", L"x", L"", 1, true},
      {">jump to 1 $0", L"x", L"", 0, true},
      {">jump to 1 $0", L"x", L"", 1, false},
      {">jump to 1 &2^", L"", L"h", 0, false},
      {">jump to 1 &2", L"", L"h", 0, true},
      {">jump to 1 &0", L"x", L"", 0, false},
  };
  for (const Row& row : rows) {
    SetUp();
    Load(std::string(row.jump) + "\nskipped\n>1\nend\n");
    Fill(Tbl::TabRcdField, 1, row.record1);
    Fill(Tbl::TabHdrField, 2, row.header2);
    Tbl::FirstOst = Tbl::TabRcdField.AllOst() + row.printed;
    for (int mode = 0; mode < 2; ++mode) {
      m_Blank->Load(1);
      EXPECT_EQ(Run(mode), row.jumps ? "end" : "skipped,end")
          << row.jump << " printed " << row.printed << " mode " << mode;
    }
  }
}

TEST_F(BlankNextTest, PageMarkDropsTheRestOfABlock) {
  Load(">repeat 2:3\na\nb\nc\n");
  EXPECT_EQ(Run(0, 3), "a,b,a");
  Tbl::totBreak = 1;
  EXPECT_EQ(Run(), "b,c");
  EXPECT_EQ(Tbl::totBreak, 0);
}

// Text is printed only on every second line: a guard that compared on
// every arrival would stop the loop after three lines.
TEST_F(BlankNextTest, GuardComparesOnEverySecondArrival) {
  Load(">1\nline\n>jump to 1 $1\n");
  Fill(Tbl::TabRcdField, 1, L"abc");
  int lines = 0;
  while (lines < 20 && !NextText().empty()) {
    if (++lines % 2 == 0) {
      Tbl::TabRcdField.GetSym();
    }
  }
  EXPECT_EQ(lines, 6);

  // The guard's state outlives a rewind and is cleared per record.
  Load(">1\nline\n>jump to 1 $1\n");
  Fill(Tbl::TabRcdField, 1, L"x");
  EXPECT_EQ(Run(), "line,line");
  m_Blank->Load(1);
  EXPECT_EQ(Run(), "line");
  m_Blank->Load(1);
  m_Blank->ClrCount();
  EXPECT_EQ(Run(), "line,line");
}

}  // namespace
