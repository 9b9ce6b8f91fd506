// formfill-check as its users run it: each mistake found, the near miss
// beside it not, sound inputs left in peace, and the program's contract
// (exit status, JSON, nothing written).
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"

namespace {

namespace fs = std::filesystem;

struct Result {
  int status;
  std::string out;
  std::string err;
};

// Runs formfill-check with args in dir.
Result Check(const std::string& dir, const std::vector<std::string>& args) {
  TempDir logs;
  const std::string out = logs.path() + "/out";
  const std::string err = logs.path() + "/err";
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("LANG", "C.UTF-8", 1);
    std::vector<char*> argv{const_cast<char*>(FORMFILL_CHECK_BIN)};
    for (const std::string& a : args)
      argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    alarm(30);
    if (chdir(dir.c_str()) == 0 && dup2(o, 1) == 1 && dup2(e, 2) == 2)
      execv(FORMFILL_CHECK_BIN, argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out),
          ReadFile(err)};
}

// The kinds of the warnings and errors printed, "name@line".
std::set<std::string> Kinds(const std::string& err) {
  std::set<std::string> kinds;
  std::istringstream lines(err);
  for (std::string line; std::getline(lines, line);) {
    const size_t w = line.rfind(" [-W");
    if (w == std::string::npos || line.find(": note: ") != std::string::npos)
      continue;
    std::string where;
    const size_t colon = line.find(':');
    if (line.rfind("formfill-check:", 0) != 0 && colon != std::string::npos)
      where = "@" + line.substr(colon + 1, line.find(':', colon + 1) - colon - 1);
    kinds.insert(line.substr(w + 4, line.size() - w - 5) + where);
  }
  return kinds;
}

const std::vector<std::string> kArgs = {"-Bform", "-It.txt", "-Oout.txt"};
// A record line whose stretch holds every value of these tables.
const std::string kWide = "$1                    ?\n";

TEST(CheckTest, EachMistakeAndItsNearMiss) {
  const struct {
    const char* note;
    std::string form1, table;
    std::set<std::string> expected;
  } rows[] = {
      {"unknown command, all load errors", ">hello\n>jump to 9\n$1\n",
       "$1;a\n@\n", {"load-error@1", "load-error@2"}},
      {"a sound command", ">jump to 9\n>9\n$1\n", "$1;a\n@\n", {}},
      {"a stretch runs over text", "Name: $1 ID: $2\n", "$1;a\n$2;b\n@\n",
       {"open-stretch@1"}},
      {"a closed stretch", "Name: $1      ? ID: $2\n", "$1;a\n$2;b\n@\n", {}},
      {"ID # prints a page number", "ID # $1\n", "$1;a\n@\n",
       {"page-counter@1"}},
      {"Page ### is meant", "Page ### $1\n", "$1;a\n@\n", {}},
      {"@Docs prints a date", "see @Docs $1\n", "$1;a\n@\n",
       {"value-marker@1"}},
      {"@D alone is meant", "on @D $1\n", "$1;a\n@\n", {}},
      {"fee $5 per copy", "fee $5 per copy $1\n", "$1;a\n@\n",
       {"field-not-given@1", "open-stretch@1"}},
      {"an e-mail address splits a record", "$1                    ?\n",
       "$1;ann@example.org\n@\n", {"at-in-line@1"}},
      {"the escaped address", "$1                    ?\n", "$1;ann\\@example.org\n@\n", {}},
      // The unfinished record's text is lost too: the closing text does not
      // print it.
      {"a last record without @", kWide, "$1;a\n@\n$1;b\n",
       {"no-end-mark@3", "lost-text@3"}},
      {"a field selected twice", kWide + "$2  ?\n", "$1;a\n$1;b\n$2;c\n@\n",
       {"field-twice@2"}},
      {"a field no section uses, told once", kWide,
       "$1;a\n$7;b\n@\n$1;c\n$7;d\n@\n", {"unused-field@2"}},
      {"one field in each of two records", kWide, "$1;a\n@\n$1;b\n@\n", {}},
      {"a large field number twice, then once", kWide + "$70000     ?\n",
       "$1;x\n$70000;a\n$70000;b\n@\n$1;y\n$70000;c\n@\n",
       {"field-twice@3", "lost-text@1", "message-12@1"}},
      {"a selector without ;", kWide, "$1;a $12 b\n@\n", {"no-semicolon@1"}},
      {"a value line starting with >", kWide, "$1;a\n>b\n@\n",
       {"page-mark-in-record@2"}},
      {"a page mark between records", kWide, "$1;a\n@\n>\n$1;b\n@\n", {}},
      {"no records at all", kWide, "&1;h\n", {"no-records@1"}},
      {"Latin-1 in the table", kWide, "$1;caf\xE9 ok\n@\n",
       {"encoding@1"}},
      {"a byte formfill cannot read", kWide,
       "$1;a\n@\n$1;gr\xFC\xDF e\n@\n$1;c\n@\n",
       {"encoding@3", "table-cut@3", "lost-text@3"}},
      {"&N text meant as literal", "&1 Ltd\n" + kWide, "&1;Acme\n$1;a\n@\n",
       {"header-text@1", "open-stretch@1"}},
      {"&N with its stretch closed", "&1      ? Ltd\n" + kWide,
       "&1;Acme\n$1;a\n@\n", {}},
      {"a tab that misses its stop", "a\tb\tc $1\n", "$1;a\n@\n", {"tab@1"}},
  };
  for (const auto& row : rows) {
    TempDir dir;
    dir.Write("form.1", row.form1);
    dir.Write("form.2", kWide);
    dir.Write("form.3", "end\n");
    dir.Write("t.txt", row.table);
    const Result r = Check(dir.path(), kArgs);
    EXPECT_EQ(Kinds(r.err), row.expected) << row.note << "\n" << r.err;
    EXPECT_EQ(r.status, row.expected.empty() ? 0 : 1) << row.note;
  }
}

TEST(CheckTest, CommandLineAndEnvironment) {
  TempDir dir;
  dir.Write("form.1", "$1\n");
  dir.Write("form.3", "end\n");
  dir.Write("t.txt", "$1;a\n@\n");
  const struct {
    std::vector<std::string> args;
    std::set<std::string> expected;
  } rows[] = {
      {{"-Bform", "-It.txt", "-Ot.txt"}, {"output-overwrites"}},
      {{"-Bform", "-I", "t.txt", "-Oout.txt"}, {"separate-value"}},
      {{"-Bform.txt", "-It.txt", "-Oout.txt"}, {"template-name", "missing-file@1"}},
      {{"-Bform", "-It.txt", "-Oout.txt", "-P."}, {"path-slash", "missing-file@1"}},
      {{"-Bform", "-It.txt", "-Oout.txt", "-P./", "-Fp", "-Pa;b"},
       {"path-list", "missing-file@1"}},
      {{"-Bform", "-Imissing.txt", "-Oout.txt"}, {"missing-file"}},
      {{"-Bform", "-It.txt", "-Oout.txt", "-x"}, {"ignored-option"}},
      {{"-bform", "-it.txt", "-oout.txt"}, {}},
  };
  for (const auto& row : rows) {
    const Result r = Check(dir.path(), row.args);
    EXPECT_EQ(Kinds(r.err), row.expected) << r.err;
  }
  dir.Write("p.par", "&2;M\xFCller\n");
  EXPECT_EQ(Kinds(Check(dir.path(), {"-Bform", "-It.txt", "-Oout.txt",
                                     "-Fp.par"}).err),
            (std::set<std::string>{"encoding@1"}))
      << "the parameters file's bytes";
  EXPECT_EQ(Check(dir.path(), {"--bogus"}).status, 2);
  EXPECT_EQ(Check(dir.path(), {"--sheet-lines", "x"}).status, 2);
  const Result help = Check(dir.path(), {"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: formfill-check"), std::string::npos);
}

TEST(CheckTest, JsonOneObjectALineAndNothingWritten) {
  TempDir dir;
  dir.Write("form.1", ">hello\n$1 $2\n");
  dir.Write("t.txt", "$1;a\n@\n");
  const auto before = std::distance(fs::directory_iterator(dir.path()),
                                    fs::directory_iterator());
  const Result r = Check(dir.path(), {"--format=json", "-Bform", "-It.txt",
                                      "-Oout.txt", "-Wno-no-closing"});
  EXPECT_EQ(r.status, 1);
  std::istringstream lines(r.err);
  int objects = 0;
  for (std::string line; std::getline(lines, line); ++objects) {
    EXPECT_EQ(line.front(), '{') << line;
    EXPECT_EQ(line.back(), '}') << line;
    EXPECT_NE(line.find("\"severity\":"), std::string::npos) << line;
  }
  EXPECT_GE(objects, 1);
  EXPECT_EQ(r.err.find("no-closing"), std::string::npos) << "silenced";
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()),
                          fs::directory_iterator()),
            before)
      << "the checker wrote a file";
}

// Sound inputs: the examples, the end-to-end cases made to be right, and
// the shared benchmark kit where it is at hand.
TEST(CheckTest, NoFalseAlarms) {
  const std::vector<std::string> sound = {
      "benchmark_kit_three_records", "continuation_sheets", "date_and_time",
      "empty_record_ends_after_one_line", "jump_conditions",
      "loop_guard_compares_every_second_arrival", "loop_guard_per_record",
      "multi_record_form", "page_mark_drops_rest_of_repeat",
      "section3_missing", "template_lines_with_crlf_and_multibyte"};
  for (const std::string& name : sound) {
    const fs::path dir = fs::path(FORMFILL_E2E_DIR) / name;
    std::vector<std::string> args;
    std::istringstream lines(ReadFile(dir / "args"));
    for (std::string line; std::getline(lines, line);)
      args.push_back(line);
    TempDir copy;
    fs::copy(dir, copy.path(), fs::copy_options::recursive);
    const Result r = Check(copy.path(), args);
    EXPECT_EQ(r.status, 0) << name << "\n" << r.err;
  }
  TempDir examples;
  fs::copy(FORMFILL_EXAMPLES_DIR, examples.path(), fs::copy_options::recursive);
  const Result r = Check(examples.path(), {"-Bform", "-Itable.txt",
                                           "-Odelivery.txt", "-Fletterhead.par"});
  EXPECT_EQ(r.status, 0) << r.err;
  const fs::path kit = fs::path(FORMFILL_SOURCE_DIR) / ".." / "shared" / "bench";
  if (fs::exists(kit / "gen_table.py")) {
    TempDir k;
    for (const char* f : {"form.1", "form.2", "form.3"})
      fs::copy(kit / f, fs::path(k.path()) / f);
    const std::string make = "python3 " + (kit / "gen_table.py").string() +
                             " 300 -o " + k.path() + "/table.txt";
    ASSERT_EQ(system(make.c_str()), 0);
    const Result kr = Check(k.path(), {"-Bform", "-Itable.txt", "-Oout.txt"});
    EXPECT_EQ(kr.status, 0) << kr.err;
  }
}

TEST(CheckTest, TraceToAFileAndDryRunFindings) {
  TempDir dir;
  dir.Write("form.1", "Pay $$1>  ?\n");
  dir.Write("form.3", "end\n");
  dir.Write("t.txt", "$1;13500000.00\n@\n");
  const Result r = Check(dir.path(), {"--trace", "trace.txt", "-Bform",
                                      "-It.txt", "-Oout.txt"});
  EXPECT_EQ(Kinds(r.err), (std::set<std::string>{"cut-number@1"}));
  const std::string trace = ReadFile(dir.path() + "/trace.txt");
  EXPECT_NE(trace.find("form.1:1 r1 t.txt:1"), std::string::npos) << trace;
  EXPECT_NE(trace.find(" | Pay 1350000\n"), std::string::npos) << trace;
  EXPECT_EQ(Kinds(Check(dir.path(), {"--no-run", "-Bform", "-It.txt",
                                     "-Oout.txt"}).err),
            std::set<std::string>{});
}

}  // namespace
