#include <signal.h>
#include <stdlib.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/tbl.h"
#include "format/field.h"
#include "tests/test_util.h"

namespace {

// The table as "n=value|" per field; "^" stands for the value separator,
// "{code}" for a character outside ASCII.
std::string Dump(const FieldTab& tab) {
  std::string out;
  for (const auto& entry : tab) {
    out += std::to_string(entry.first) + "=";
    for (wchar_t c : entry.second->m_Value) {
      if (c == kValueSeparator) {
        out += '^';
      } else if (c >= 0 && c < 0x80) {
        out += static_cast<char>(c);
      } else {
        out += "{" + std::to_string(static_cast<long>(c)) + "}";
      }
    }
    out += "|";
  }
  return out;
}

class TableReaderTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetRunState(); }
  void TearDown() override { ResetRunState(); }

  void UseTable(const std::string& bytes) {
    Tbl::InpFile = Widen(m_Dir.Write("table.txt", bytes));
  }

  // Every GetRecord call up to and including the first 0, each as
  // "result/FirstOst dump", joined by " # ".
  std::string ReadAll(Tbl& tbl) {
    std::string out;
    for (int i = 0; i < 10; ++i) {
      int got = tbl.GetRecord();
      if (!out.empty())
        out += " # ";
      out += std::to_string(got) + "/" + std::to_string(Tbl::FirstOst) + " " +
             Dump(Tbl::TabRcdField);
      if (got == 0)
        break;
    }
    return out;
  }

  TempDir m_Dir;
};

TEST_F(TableReaderTest, Header) {
  struct Row {
    bool field0;  // header field 0 exists beforehand, holding "stale"
    std::string table;
    std::string header;
    const char* note;
  } rows[] = {
      {false, "&1;Title\n&2;first line  \ncontinued\n",
       "1=Title|2=first line continued|", "line end: trim, one blank"},
      {false, "&;zero\n", "0=zero|", "no digits: field 0"},
      {false, "&1;a\n&1;a\n", "1=a^a|", "repeated selector"},
      {false, "&1;a\n&2;b\n&1;c\n", "1=a^c|2=b|", "reselected later"},
      {true, "lead &12x\n", "0=lead &12x|", "digits without ;"},
      {false, "lead &12x\n&3;y", "3=y|", "no field 0: text dropped"},
      {false, "&1;a &5&6;b", "1=a &5|6=b|", "marker again restarts"},
      {false, "&1;a&&2;b", "1=a&|2=b|", "marker alone then selector"},
      {false, "&1;x\n $2;y\n", "1=x  $2;y|", "$ after a blank is text"},
      {false, "&1;x\n\t@1\n", "1=x \t@1|", "@ after a tab is text"},
      {false, "&1;a@b>c$d\n", "1=a@b>c$d|", "end marks mid-line"},
      {false, "&1;a\\&2;b\\$\\@\\>\\\\c", "1=a&2;b$@>\\c|", "escapes"},
      {false, "&1;a  \\\n  b\n", "1=a  \n  b|", "escaped line end"},
      {false, "&1;a\\\n$2;b\n", "1=a\n$2;b|", "no line start after \\LF"},
      {false, "&1;a\r\nb\r\n", "1=a b|", "CRLF"},
      {false, "&1;\xd0\x96\xc3\xa9\n", "1={1046}{233}|", "UTF-8"},
      {false, "&1;a\\", "1=a|", "escape at the end"},
      {true, "&1;a\n&12", "0=|1=a &12|", "end inside a selector"},
      {false, "&18446744073709551615;w\n&18446744073709551616;z", "-1=w|0=z|",
       "number wraps at 64 bits"},
      {false, "", "", "empty table"},
  };
  for (const Row& row : rows) {
    ResetRunState();
    if (row.field0) {
      // A value left from before must not survive the new header.
      Tbl::TabHdrField.InsertField(0);
      Tbl::TabHdrField.SetCurrent(0);
      Tbl::TabHdrField.PutStr(L"stale");
    }
    UseTable(row.table);
    Tbl tbl;
    ASSERT_TRUE(tbl.GetHider()) << row.note;
    EXPECT_EQ(row.header, Dump(Tbl::TabHdrField)) << row.note;
  }
}

TEST_F(TableReaderTest, MissingTableFails) {
  Tbl::InpFile = m_Dir.WFile("absent.txt");
  Tbl tbl;
  EXPECT_FALSE(tbl.GetHider());
  EXPECT_EQ(0, tbl.GetRecord());
}

TEST_F(TableReaderTest, Records) {
  struct Row {
    std::vector<long> fields;  // record fields the template would make
    std::string table;
    std::string records;
    int breaks;
    const char* note;
  } rows[] = {
      // clang-format off
      {{1, 2}, "&1;T\n$1;Smith\n$2;12.50\n@\n$1;Jones\n@\n",
       "1/10 1=Smith|2=12.50| # 1/5 1=Jones|2=| # 0/0 1=|2=|", 0, "two records"},
      {{}, "", "0/0 ", 0, "empty table"},
      {{1}, "&1;T", "0/0 1=|", 0, "header only"},
      {{1, 6}, "$1;a$5$6;x\n@", "1/4 1=a$5|6=x| # 0/0 1=|6=|", 0, "$5$6;"},
      {{1, 2}, "$1;a $2b\n@", "1/5 1=a $2b|2=| # 0/0 1=|2=|", 0, "no ;"},
      {{1}, "$1;a\n$1;b\n@", "1/3 1=a^b| # 0/0 1=|", 0, "repeated selector"},
      {{0, 1}, "$;z\n$1;y\n@", "1/2 0=z|1=y| # 0/0 0=|1=|", 0, "$; is field 0"},
      {{1}, "$1;a\n$7;lost\n$1;b@", "1/3 1=a^b| # 0/0 1=|", 0,
       "missing field dropped"},
      {{1}, "$1;\\@\\$2;\\>\\\\\\\nx@", "1/8 1=@$2;>\\\nx| # 0/0 1=|", 0,
       "escapes"},
      {{1}, "$1;a@$1;b\n@", "1/1 1=a| # 1/1 1=b| # 0/0 1=|", 0, "@ mid-line"},
      {{1}, "&1;T\n>\n$1;a\n>x\n>\n@", "1/3 1=a x| # 0/0 1=|", 3,
       "page marks, the first right after the header"},
      {{1}, "$1;a\n>>x\n\\>>b@", "1/8 1=a >x >>b| # 0/0 1=|", 1,
       "one page mark per line start; escaped > is text"},
      {{1}, "$1;a>b\n >c@", "1/7 1=a>b  >c| # 0/0 1=|", 0,
       "> not at line start"},
      {{1}, "$1;a\\\n>b@", "1/4 1=a\n>b| # 0/0 1=|", 0,
       "> after an escaped line end"},
      {{1}, "$1;a\r\nb\r\n@\r\n", "1/3 1=a b| # 0/0 1=|", 0, "CRLF"},
      {{1, 2}, "$1;a\n$2;b", "0/0 1=a |2=b|", 0, "no closing @"},
      {{1}, "$1;a\n$12", "0/0 1=a $12|", 0, "end inside a selector"},
      {{1}, "$1;a\\", "0/0 1=a|", 0, "end after an escape"},
      // clang-format on
  };
  for (const Row& row : rows) {
    ResetRunState();
    for (long n : row.fields)
      Tbl::TabRcdField.InsertField(n);
    UseTable(row.table);
    Tbl tbl;
    ASSERT_TRUE(tbl.GetHider()) << row.note;
    EXPECT_EQ(row.records, ReadAll(tbl)) << row.note;
    EXPECT_EQ(row.breaks, Tbl::totBreak) << row.note;
  }
}

TEST_F(TableReaderTest, ParametersFillOnlyMissingHeaderFields) {
  struct Row {
    std::string table;
    std::string params;
    std::string header;
    const char* note;
  } rows[] = {
      {"&1;table\n", "&1;param1\n&2;param2\nmore\n&2;again\n&3;three",
       "1=table|2=param2 more|3=three|", "header wins, first value only"},
      {"&0;zero\n", "lead\n&4;a$b@c>d\\e\n", "0=zero|4=a$b@c>d\\e|",
       "no escapes or end marks; text before a selector skipped"},
      {"", "&4;x &12y\n&1;p", "1=p|4=x &12y|", "digits without ; kept"},
      {"&1;t\n", "&1;skip &12y\n&5;q", "1=t|5=q|", "skipped text not stored"},
      {"&1;t\n", "&5;a  \n  \n", "1=t|5=a|", "trailing blanks trimmed"},
  };
  for (const Row& row : rows) {
    ResetRunState();
    UseTable(row.table);
    m_Dir.Write("params.txt", row.params);
    Tbl::BegParam = L"params.txt";
    Tbl::PathBlank = Widen(m_Dir.path());
    Tbl tbl;
    ASSERT_TRUE(tbl.GetHider()) << row.note;
    tbl.GetBegin();
    EXPECT_EQ(row.header, Dump(Tbl::TabHdrField)) << row.note;
  }
}

TEST_F(TableReaderTest, ParametersDirectory) {
  m_Dir.Write("p.txt", "&1;found");
  struct Row {
    std::wstring path;
    std::wstring param;
    std::string header;
    const char* note;
  } rows[] = {
      {Widen(m_Dir.path()), L"p.txt", "1=found|", "dir without /"},
      {Widen(m_Dir.path() + "/"), L"p.txt", "1=found|", "dir with /"},
      {L"", L"p.txt", "1=found|", "no dir: working directory"},
      {L"", Widen(m_Dir.File("p.txt")), "1=found|", "full name"},
      {Widen(m_Dir.path()), L"absent.txt", "", "missing file"},
      {Widen(m_Dir.path()), L"", "", "no parameters file"},
  };
  ScopedChdir in_dir(m_Dir.path());
  for (const Row& row : rows) {
    ResetRunState();
    UseTable("");
    Tbl::PathBlank = row.path;
    Tbl::BegParam = row.param;
    Tbl tbl;
    ASSERT_TRUE(tbl.GetHider()) << row.note;
    tbl.GetBegin();
    EXPECT_EQ(row.header, Dump(Tbl::TabHdrField)) << row.note;
  }
}

// Two directories never finish: the list keeps its ";" head and the empty
// directory in front of it is tried forever. Runs in a child under a time
// limit, never in the test process.
TEST_F(TableReaderTest, DirectoryListWithSemicolonNeverEnds) {
  TempDir other;
  m_Dir.Write("p.txt", "&1;found");
  pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    setenv("LANG", "C.UTF-8", 1);
    if (chdir(other.path().c_str()) != 0)
      _exit(2);
    Tbl::BegParam = L"p.txt";
    Tbl::PathBlank = Widen(m_Dir.path() + ";" + other.path());
    Tbl tbl;
    tbl.GetBegin();
    _exit(0);
  }
  sleep(1);
  int status = 0;
  pid_t done = waitpid(child, &status, WNOHANG);
  if (done == 0) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  EXPECT_EQ(0, done) << "GetBegin returned (status " << status << ")";
}

}  // namespace
