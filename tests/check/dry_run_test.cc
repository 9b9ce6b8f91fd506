// The checker's dry run: what it finds in runs made to go wrong, that it
// finds nothing in sound ones, and that its trace is the document.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <filesystem>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "check/dry_run.h"
#include "tests/test_util.h"

namespace {

namespace fs = std::filesystem;

// Runs DryRun in dir (the settings' names are relative to it); the findings
// as "name@file:line", sorted.
std::vector<std::string> Findings(const std::string& dir, RunSettings settings,
                                  std::string* trace = nullptr) {
  std::locale::global(std::locale("C.UTF-8"));
  std::setlocale(LC_ALL, "C.UTF-8");
  const fs::path back = fs::current_path();
  fs::current_path(dir);
  std::ostringstream out;
  const std::vector<RunFinding> found =
      DryRun(settings, trace != nullptr ? &out : nullptr);
  fs::current_path(back);
  if (trace != nullptr)
    *trace = out.str();
  std::vector<std::string> names;
  for (const RunFinding& f : found)
    names.push_back(f.name + "@" + f.file + ":" + std::to_string(f.line));
  std::sort(names.begin(), names.end());
  return names;
}

RunSettings Settings(long sheet_lines = 0) {
  RunSettings s;
  s.blank = L"form";
  s.table = L"t.txt";
  s.sheet_lines = sheet_lines;
  return s;
}

TEST(DryRunTest, FindsWhatTheDataMakesGoWrong) {
  const struct {
    const char* note;
    std::string form1, form2, table;
    long sheet_lines;
    std::vector<std::string> expected;
  } rows[] = {
      {"a continuation sheet that places nothing", "Name $1  ?\n",
       "nothing\n", "$1;abcdefghijkl\n@\n", 0,
       {"lost-text@t.txt:1", "message-12@form.2:1"}},
      {"numbers cut, words cut", "Pay $$1>  ?\nWho $$2?\n", "",
       "$1;13500000.00\n$2;Smith Jones\n@\n", 0,
       {"cut-number@form.1:1", "cut-text@form.1:2"}},
      {"an optional line without its guard",
       ">1\nName: $1         ?\nDept: $2         ?\n>jump to 1\n",
       "", "$1;Ann\n$2;Sales\n@\n$1;Bob\n@\n$1;Cy\n$2;HR\n@\n$1;Di\n$2;IT\n@\n",
       0, {"record-start@form.1:3"}},
      // A record that ends after its name resumes at the guard, which sends
      // a fresh record back to the top.
      {"the guarded form of the same",
       ">1\nName: $1         ?\n>jump to 1 $\nDept: $2         ?\n>jump to 1\n",
       "", "$1;Ann\n$2;Sales\n@\n$1;Bob\n@\n$1;Cy\n$2;HR\n@\n$1;Di\n$2;IT\n@\n",
       0, {}},
      // Records after the first begin on the wrap line and go back up to
      // the item line: the item line lacks its guard.
      {"a wrap line without the guard before it",
       ">10\n$1 $2      ?\n>20\n   $2      ?\n>jump to 20 $2\n>jump to 10\n",
       "", "$1;1\n$2;Tea\n@\n$1;2\n$2;Sencha\n@\n$1;3\n$2;Assam blend\n@\n",
       0, {"record-start@form.1:4"}},
      {"the same with its guards",
       ">10\n$1 $2      ?\n>jump to 40 $\n>20\n   $2      ?\n>jump to 40 $\n"
       ">jump to 20 $2\n>40\n>jump to 10\n",
       "", "$1;1\n$2;Tea\n@\n$1;2\n$2;Sencha\n@\n$1;3\n$2;Assam blend\n@\n",
       0, {}},
      {"a closing loop that never ends", ">1\nt\n>jump to 1 $\n", "", "", 0,
       {"endless-loop@form.1:3"}},
      {"a header text that copies itself, doubling at every copy",
       "&1 @1@1@1@1@1@1@1@1\n&1 @1@1@1@1@1@1@1@1\n&1 @1@1@1@1@1@1@1@1\n"
       "&1 @1@1@1@1@1@1@1@1\n&1 @1@1@1@1@1@1@1@1\n",
       "", "&1;abc\n", 0, {"abort@form.1:4"}},
      {"a repeat past the section's end", ">repeat 3:2\n$1\n", "",
       "$1;a\n@\n", 0, {"message-7@form.1:1"}},
      {"a sheet too long", "Head\n>1\n$1\n>jump to 1\n", "",
       "$1;a\n@\n$1;b\n@\n$1;c\n@\n$1;d\n@\n", 3, {"sheet-length@t.txt:5"}},
  };
  for (const auto& row : rows) {
    TempDir dir;
    dir.Write("form.1", row.form1);
    if (!row.form2.empty())
      dir.Write("form.2", row.form2);
    dir.Write("t.txt", row.table);
    EXPECT_EQ(Findings(dir.path(), Settings(row.sheet_lines)), row.expected)
        << row.note;
  }
}

// Runs the built formfill with args in dir; its document (named out) or
// "" when it wrote none.
std::string RunFormfill(const std::string& dir,
                        const std::vector<std::string>& args,
                        const std::string& out) {
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("LANG", "C.UTF-8", 1);
    const int null = open("/dev/null", O_WRONLY);
    std::vector<char*> argv{const_cast<char*>(FORMFILL_BIN)};
    for (const std::string& a : args)
      argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    alarm(20);
    if (chdir(dir.c_str()) == 0 && dup2(null, 1) == 1)
      execv(FORMFILL_BIN, argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return ReadFile(dir + "/" + out);
}

// Each line with everything up to and including its first " | " cut off.
std::string StripGutters(const std::string& trace) {
  std::string doc;
  size_t at = 0;
  while (at < trace.size()) {
    size_t end = trace.find('\n', at);
    end = end == std::string::npos ? trace.size() : end + 1;
    const std::string line = trace.substr(at, end - at);
    const size_t bar = line.find(" | ");
    doc += bar == std::string::npos ? "<no gutter>" : line.substr(bar + 3);
    at = end;
  }
  return doc;
}

// The options of a formfill command line that the run uses: letter and
// value glued, either case, the last one wins.
RunSettings ParseArgs(const std::vector<std::string>& args, std::string& out) {
  RunSettings s;
  s.table = L"NULL";
  out = "CON";
  for (const std::string& a : args) {
    if (a.size() < 2 || a[0] != '-')
      continue;
    const std::wstring value = Widen(a.substr(2));
    switch (a[1] | 0x20) {
      case 'b': s.blank = value; break;
      case 'f': s.params = value; break;
      case 'i': s.table = value; break;
      case 'o': out = a.substr(2); break;
      case 'p': s.path = value; break;
    }
  }
  return s;
}

// The traced document against formfill's own, in a copy of folder.
void ExpectTraceIsDocument(const fs::path& folder,
                           const std::vector<std::string>& args) {
  std::string out;
  const RunSettings settings = ParseArgs(args, out);
  TempDir real;
  TempDir dry;
  for (const TempDir* dir : {&real, &dry})
    fs::copy(folder, dir->path(), fs::copy_options::recursive);
  const std::string document = RunFormfill(real.path(), args, out);
  std::string trace;
  Findings(dry.path(), settings, &trace);
  EXPECT_EQ(StripGutters(trace), document) << folder;
}

TEST(DryRunTest, TheTraceIsTheDocumentOfEveryCase) {
  const fs::path e2e = FORMFILL_E2E_DIR;
  for (const auto& entry : fs::directory_iterator(e2e)) {
    const fs::path dir = entry.path();
    // Cases about the environment or the program's own path, those whose
    // document is one of the run's inputs (read back while written), and
    // those that end abnormally (their document is what the buffer had
    // written) are not runs the checker repeats.
    if (!entry.is_directory() || fs::exists(dir / "env") ||
        fs::exists(dir / "argv0") || !fs::exists(dir / "expected.doc") ||
        ReadFile(dir / "expected.status").rfind("abort", 0) == 0 ||
        dir.filename().string().find("read_back") != std::string::npos)
      continue;
    std::vector<std::string> args;
    std::istringstream lines(ReadFile(dir / "args"));
    for (std::string line; std::getline(lines, line);)
      args.push_back(line);
    ExpectTraceIsDocument(dir, args);
  }
  ExpectTraceIsDocument(FORMFILL_EXAMPLES_DIR,
                        {"-Bform", "-Itable.txt", "-Odoc.txt",
                         "-Fletterhead.par"});
}

// The shared benchmark kit, 3000 records of it, where the kit is at hand.
TEST(DryRunTest, TheTraceIsTheDocumentOfTheKit) {
  const fs::path kit = fs::path(FORMFILL_SOURCE_DIR) / ".." / "shared" / "bench";
  if (!fs::exists(kit / "gen_table.py"))
    GTEST_SKIP() << "no benchmark kit next to the sources";
  TempDir dir;
  for (const char* name : {"form.1", "form.2", "form.3"})
    fs::copy(kit / name, fs::path(dir.path()) / name);
  const std::string make = "python3 " + (kit / "gen_table.py").string() +
                           " 3000 -o " + dir.path() + "/table.txt";
  ASSERT_EQ(system(make.c_str()), 0);
  dir.Write("t.txt", ReadFile(dir.path() + "/table.txt"));
  ExpectTraceIsDocument(dir.path(), {"-Bform", "-Itable.txt", "-Oout.txt"});
  // The kit's truncating stretches cut words only: notes, nothing more.
  const fs::path back = fs::current_path();
  fs::current_path(dir.path());
  for (const RunFinding& f : DryRun(Settings(), nullptr)) {
    EXPECT_EQ(f.severity, RunSeverity::kNote) << f.name << ": " << f.message;
  }
  fs::current_path(back);
}

}  // namespace
