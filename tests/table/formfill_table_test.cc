// formfill-table run as a user runs it: CSV and TSV in, tables out, the
// messages of bad input, split tables and SQLite queries.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/table/program.h"
#include "tests/test_util.h"

namespace {

class FormfillTableTest : public testing::Test {
 protected:
  FormfillTableTest() : m_Work(m_Tmp.path() + "/work") {
    std::filesystem::create_directory(m_Work);
  }

  RunResult Table(std::vector<std::string> args, const std::string& input = "") {
    args.insert(args.begin(), FORMFILL_TABLE_BIN);
    return RunProgram(m_Work, args, input);
  }
  void Write(const std::string& name, const std::string& bytes) {
    m_Tmp.Write("work/" + name, bytes);
  }
  std::string Read(const std::string& name) { return ReadFile(m_Work + "/" + name); }
  // Builds shop.db with the sqlite3 program from SQL text.
  void MakeDatabase(const std::string& sql) {
    const RunResult made = RunProgram(m_Work, {"/usr/bin/sqlite3", "shop.db"}, sql);
    ASSERT_EQ(made.status, 0) << made.err;
  }

  TempDir m_Tmp;
  const std::string m_Work;
};

TEST_F(FormfillTableTest, ConvertsCsv) {
  static const struct {
    std::vector<std::string> args;
    const char* input;
    const char* table;
    const char* note;
  } kCases[] = {
      {{}, "a,b\r\n1,2\r\n", "$1;1\n$2;2\n@\n", "CRLF"},
      {{}, "\xEF\xBB\xBF" "a,b\n1,2", "$1;1\n$2;2\n@\n",
       "byte-order mark, no last line end"},
      {{}, "a,b\n\n1,2\n\r\n3,4\n", "$1;1\n$2;2\n@\n$1;3\n$2;4\n@\n",
       "blank lines skipped"},
      {{}, "a,b\n  x ,\"y,\"\"z\"\"\r\nw\"\n",
       "$1;  x\n$2;y,\"z\" w\n@\n", "blanks, quotes, commas, a line break"},
      {{}, "a,b\n,\"\"\n", "$1;\n$2;\n@\n", "empty values"},
      {{}, "a\n\"\"\n", "$1;\n@\n", "one column, empty value quoted"},
      {{}, "a,b\n@x,>$1;\\\n", "$1;\\@x\n$2;\\>\\$1;\\\\\n@\n", "escapes"},
      {{"--fields", "b,1,b"}, "a,b\n1,2\n", "$1;2\n$2;1\n$3;2\n@\n",
       "--fields by name and number, repeated"},
      {{"--fields", "2"}, "2,x\n1,2\n", "$1;1\n@\n", "a name wins over a number"},
      {{"--set", "3=A & B", "--set", "1=x", "--set", "3=C\nD "}, "a\n1\n",
       "&1;x\n&3;C D\n$1;1\n@\n", "--set, last wins, normalised"},
      {{"--tsv"}, "a\tb\n x,y\t\"q\tr\"\n", "$1; x,y\n$2;q\tr\n@\n", "TSV"},
      {{}, "a,b\n", "", "header row only"},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> args = c.args;
    args.push_back("-");
    const RunResult run = Table(args, c.input);
    EXPECT_EQ(run.status, 0) << c.note << "\n" << run.err;
    EXPECT_EQ(run.out, c.table) << c.note;
  }
}

TEST_F(FormfillTableTest, NamesTheLineOfBadInput) {
  static const struct {
    std::vector<std::string> args;
    std::string input;
    const char* message;
  } kCases[] = {
      {{}, "a,b\n1,\"2\n3\n", "in.csv:2: a quoted field is not closed\n"},
      {{}, "a,b\n1,2\n\n1,2,3\n",
       "in.csv:4: a row of 3 fields, but the first row names 2 columns\n"},
      {{}, "a,b\n1,x\"y\n",
       "in.csv:2: a quote inside a field that does not begin with one\n"},
      {{}, "a,b\n1,2\"\n",
       "in.csv:2: a quote inside a field that does not begin with one\n"},
      {{}, "a,b\n\"a\"b,c\n",
       "in.csv:2: a quoted field goes on after its closing quote\n"},
      {{}, "a,b\nx,\"a\"\"\"b\"\n",
       "in.csv:2: a quoted field goes on after its closing quote\n"},
      {{}, "a,b\r\n\"1\r\n\",\"x\" \n",
       "in.csv:3: a quoted field goes on after its closing quote\n"},
      {{}, "a,b\n1,\"x\n\ny\xC3(\"\n",
       "in.csv:4: column 'b' holds bytes that are not UTF-8\n"},
      {{"--fields", "a"}, "a,b\n1,\"x\ry\xFF\"\n",
       "in.csv:3: column 'b' holds bytes that are not UTF-8\n"},
      {{}, std::string("a\n\"x\0\"\n", 7),
       "in.csv:2: column 'a' holds a character U+0000, which a table "
       "cannot hold\n"},
      {{}, "a\nx\x01y\n",
       "in.csv:2: column 'a' holds a character U+0001, formfill's value "
       "separator\n"},
      {{}, "a,\xFF\n", "in.csv:1: the name of column 2 holds bytes that are "
                       "not UTF-8\n"},
      {{"--fields", "a,c"}, "a,b\n",
       "in.csv:1: --fields: no column 'c' (the columns are 'a', 'b')\n"},
      {{"--split-by", "0", "-o", "{}.tbl"}, "a\n",
       "in.csv:1: --split-by: no column '0' (the columns are 'a')\n"},
      {{}, "", "in.csv:1: no rows: the first row must name the columns\n"},
  };
  for (const auto& c : kCases) {
    Write("in.csv", c.input);
    std::vector<std::string> args = {"-o", "out.tbl"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    args.push_back("in.csv");
    const RunResult run = Table(args);
    EXPECT_EQ(run.status, 1) << c.message;
    EXPECT_EQ(run.err, std::string("formfill-table: ") + c.message);
    EXPECT_EQ(ListDir(m_Work), "in.csv\n") << "nothing left behind";
  }
}

// Rows of every length up to a few hundred bytes cross the ends of the
// reads, two fields are longer than a read, and a fault after them all is
// still told at its line.
TEST_F(FormfillTableTest, ReadsRowsAcrossAndLongerThanItsReads) {
  std::string csv = "n,v\r\n";
  std::string table;
  const auto add = [&](const std::string& value, bool quoted) {
    const std::string n = std::to_string(table.size() % 1000);
    // A quoted value takes a quote and a line break after it.
    csv += n + "," + (quoted ? "\"" + value + "\"\"\r\nx\"" : value) + "\r\n";
    table += "$1;" + n + "\n$2;" + value + (quoted ? "\" x" : "") + "\n@\n";
  };
  for (int i = 0; csv.size() < 700 * 1024; ++i) {
    add(std::string(static_cast<size_t>(i % 500), 'a' + i % 26), i % 3 == 0);
    if (i == 600) {
      add(std::string(300 * 1024, 'u'), false);
      add(std::string(300 * 1024, 'q'), true);
    }
  }
  Write("in.csv", csv);
  const RunResult run = Table({"-o", "out.tbl", "in.csv"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Read("out.tbl") == table) << "the table differs";

  const size_t line = std::count(csv.begin(), csv.end(), '\n') + 1;
  Write("in.csv", csv + "1,x\"y\r\n");
  const RunResult bad = Table({"-o", "out.tbl", "in.csv"});
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.err, "formfill-table: in.csv:" + std::to_string(line) +
                         ": a quote inside a field that does not begin "
                         "with one\n");
}

TEST_F(FormfillTableTest, RefusesArgumentsThatMakeNoSense) {
  const std::vector<std::string> kCases[] = {
      {"--set", "x=1"},
      {"--set", "1"},
      {"--query", "SELECT 1"},
      {"--sqlite", "shop.db"},
      {"--sqlite", "shop.db", "--query", "SELECT 1", "in.csv"},
      {"--split-by", "a", "-o", "out.tbl"},
      {"--split-by", "a"},
      {"a.csv", "b.csv"},
      {"--no-such-option"},
      {"-o"},
  };
  for (const auto& args : kCases) {
    const RunResult run = Table(args);
    EXPECT_EQ(run.status, 2) << args[0];
    EXPECT_NE(run.err.find("usage: formfill-table"), std::string::npos);
  }
  const RunResult help = Table({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--split-by COLUMN"), std::string::npos);
}

TEST_F(FormfillTableTest, SplitsByColumnWithTheHeaderInEveryTable) {
  // 40 customers interleaved, more than the files kept open at once.
  std::string csv = "customer,item\n";
  for (int round = 0; round < 3; ++round)
    for (int c = 0; c < 40; ++c)
      csv += "K " + std::to_string(c) + "," + std::to_string(round) + "\n";
  Write("orders.csv", csv);
  const RunResult run = Table({"--split-by", "customer", "--fields", "item",
                               "--set", "1=Notes", "-o", "note-{}.tbl",
                               "orders.csv"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::string names;
  for (int c = 0; c < 40; ++c)
    names += "note-K_" + std::to_string(c) + ".tbl\n";
  EXPECT_EQ(run.out, names) << "in order of first appearance";
  for (int c : {0, 7, 39})
    EXPECT_EQ(Read("note-K_" + std::to_string(c) + ".tbl"),
              "&1;Notes\n$1;0\n@\n$1;1\n@\n$1;2\n@\n");
}

// -o naming a link writes the file it names; naming a pipe (or a device
// such as /dev/null) writes into it and leaves it what it was.
TEST_F(FormfillTableTest, WritesThroughLinksAndPipes) {
  Write("orders.csv", "item\nx\n");
  Write("real.tbl", "old\n");
  std::filesystem::create_symlink("real.tbl", m_Work + "/link.tbl");
  RunResult run = Table({"-o", "link.tbl", "orders.csv"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(std::filesystem::is_symlink(m_Work + "/link.tbl"));
  EXPECT_EQ(Read("real.tbl"), "$1;x\n@\n");

  // The reading end is open before the run and the table fits in the
  // pipe's buffer, so no thread is needed and a replaced pipe cannot hang.
  const std::string pipe = m_Work + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int fd = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(fd, 0);
  run = Table({"-o", "pipe", "orders.csv"});
  char got[64];
  const ssize_t n = read(fd, got, sizeof got);
  close(fd);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(std::string(got, n > 0 ? static_cast<size_t>(n) : 0), "$1;x\n@\n");
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
  EXPECT_EQ(ListDir(m_Work), "link.tbl\norders.csv\npipe\nreal.tbl\n");
}

// A full disk is told whether the table fails in its last buffer or in
// one written while the conversion goes on.
TEST_F(FormfillTableTest, TellsAFailedWrite) {
  std::string big = "item\n";
  while (big.size() < 2 * 1024 * 1024)
    big += "a row long enough to fill a few buffers of the table\n";
  for (const std::string& csv : {std::string("item\nx\n"), big}) {
    Write("orders.csv", csv);
    const RunResult run = Table({"-o", "/dev/full", "orders.csv"});
    EXPECT_EQ(run.status, 1) << csv.size();
    EXPECT_EQ(run.err, "formfill-table: cannot write /dev/full: No space "
                       "left on device\n");
  }
}

// Stopped by a signal while it waits for more input, a run dies of the
// signal and leaves no temporary file; a signal that was ignored when the
// run started (nohup) stays ignored, and the table is written.
TEST_F(FormfillTableTest, AStoppedRunLeavesNoTemporaryFile) {
  static const struct {
    int sig;
    bool ignored;
  } kCases[] = {{SIGINT, false}, {SIGTERM, false}, {SIGHUP, false},
                {SIGHUP, true}};
  ASSERT_EQ(mkfifo((m_Work + "/in.csv").c_str(), 0600), 0);
  for (const auto& c : kCases) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      if (c.ignored)
        signal(c.sig, SIG_IGN);
      setenv("LANG", "C.UTF-8", 1);
      if (chdir(m_Work.c_str()) == 0)
        execl(FORMFILL_TABLE_BIN, FORMFILL_TABLE_BIN, "-o", "out.tbl",
              "in.csv", static_cast<char*>(nullptr));
      _exit(127);
    }
    // Open once the run opens it; the table's file is made right after.
    const int fd = open((m_Work + "/in.csv").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "a\nx\n", 4), 4);
    for (int i = 0; i < 3000 && ListDir(m_Work) == "in.csv\n"; ++i)
      usleep(10000);
    EXPECT_NE(ListDir(m_Work).find("out.tbl."), std::string::npos) << c.sig;
    kill(pid, c.sig);
    close(fd);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    if (c.ignored) {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
      EXPECT_EQ(Read("out.tbl"), "$1;x\n@\n");
      std::filesystem::remove(m_Work + "/out.tbl");
    } else {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == c.sig) << c.sig;
    }
    EXPECT_EQ(ListDir(m_Work), "in.csv\n") << c.sig;
  }
}

TEST_F(FormfillTableTest, SplitValuesGivingOneNameAreAnError) {
  Write("orders.csv", "customer,item\nA B,1\nC,2\nA/B,3\n");
  const RunResult run =
      Table({"--split-by", "1", "-o", "n-{}.tbl", "orders.csv"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "formfill-table: the values 'A B' and 'A/B' both give "
                     "the file name n-A_B.tbl\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(ListDir(m_Work), "orders.csv\n");
}

TEST_F(FormfillTableTest, ReadsSqliteQueries) {
  MakeDatabase(
      "CREATE TABLE item(customer TEXT, pos INTEGER, text TEXT, kg REAL);"
      "INSERT INTO item VALUES('K1', 1, '  a@b\n  >c ', 2.5),"
      "  ('K2', 2, NULL, 10), ('K1', 3, '$1;', NULL);"
      "CREATE TABLE cust(no TEXT, name TEXT);"
      "INSERT INTO cust VALUES('K1', 'Nørre & Co');");
  const std::string kQuery = "SELECT customer, pos, text, kg FROM item";
  const RunResult one = Table(
      {"--sqlite", "shop.db", "--header-query",
       "SELECT NULL, name, no FROM cust", "--set", "3=set wins", "--query",
       kQuery + " WHERE customer = 'K1' ORDER BY pos;"});
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(one.out,
            "&2;Nørre \\& Co\n&3;set wins\n"
            "$1;K1\n$2;1\n$3;  a\\@b \\>c\n$4;2.5\n@\n"
            "$1;K1\n$2;3\n$3;\\$1;\n$4;\n@\n");

  const RunResult split = Table(
      {"--sqlite", "shop.db", "--query", kQuery, "--split-by", "customer",
       "-o", "{}.tbl"});
  EXPECT_EQ(split.status, 0) << split.err;
  EXPECT_EQ(split.out, "K1.tbl\nK2.tbl\n");
  EXPECT_EQ(Read("K2.tbl"), "$1;K2\n$2;2\n$3;\n$4;10.0\n@\n");

  static const struct {
    std::vector<std::string> args;
    const char* message;
  } kErrors[] = {
      {{"--query", "SELECT missing FROM item"},
       "--query: no such column: missing"},
      {{"--query", "SELECT 1; SELECT 2"}, "--query: more than one statement"},
      {{"--query", "DELETE FROM item"},
       "--query: the statement returns no columns"},
      {{"--query", "SELECT 1", "--header-query", "SELEC 1"},
       "--header-query: near \"SELEC\": syntax error"},
  };
  for (const auto& e : kErrors) {
    std::vector<std::string> args = {"--sqlite", "shop.db", "-o", "x.tbl"};
    args.insert(args.end(), e.args.begin(), e.args.end());
    const RunResult run = Table(args);
    EXPECT_EQ(run.status, 1) << e.message;
    EXPECT_EQ(run.err, std::string("formfill-table: ") + e.message + "\n");
  }
  const RunResult missing = Table({"--sqlite", "none.db", "--query", "SELECT 1"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "formfill-table: none.db: unable to open database file\n");
  EXPECT_EQ(ListDir(m_Work), "K1.tbl\nK2.tbl\nshop.db\n");
}

}  // namespace
