// Runs the built formfill on every case folder under tests/e2e/ (the folder
// format is described in tests/e2e/README.md).
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"

namespace {

namespace fs = std::filesystem;

// The lines of a control file, without their line feeds; none if absent.
std::vector<std::string> Lines(const fs::path& file) {
  std::istringstream in(ReadFile(file));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

// text with {DATE} and {DATETIME} filled in for the local time when.
std::string Expand(std::string text, time_t when) {
  for (const auto& [key, format] : {std::pair{"{DATETIME}", "%d.%m.%Y %H:%M"},
                                    std::pair{"{DATE}", "%d.%m.%Y"}}) {
    char value[32];
    strftime(value, sizeof value, format, localtime(&when));
    for (size_t at; (at = text.find(key)) != std::string::npos;)
      text.replace(at, strlen(key), value);
  }
  return text;
}

// Runs argv in work with the case's environment changes, standard output
// and error going to the files out and err; gives the exit status, "abort",
// "signal N" or "timeout" (after 60 seconds: the case that copies header
// texts up to the run's limit takes seconds alone, more on a busy machine
// or under the sanitizers).
std::string RunProgram(const fs::path& work,
                       const std::vector<std::string>& argv,
                       const std::vector<std::string>& env, const fs::path& out,
                       const fs::path& err) {
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("LANG", "C.UTF-8", 1);
    for (const std::string& e : env)
      e[0] == '-' ? unsetenv(e.c_str() + 1)
                  : putenv(const_cast<char*>(e.c_str()));
    std::vector<char*> args;
    for (const std::string& a : argv)
      args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const int out_fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err_fd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    alarm(60);  // outlives exec and ends a run that hangs
    if (chdir(work.c_str()) == 0 && dup2(out_fd, 1) == 1 &&
        dup2(err_fd, 2) == 2)
      execv(FORMFILL_BIN, args.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFSIGNALED(status))
    return std::to_string(WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  return signal == SIGABRT   ? "abort"
         : signal == SIGALRM ? "timeout"
                             : "signal " + std::to_string(signal);
}

class E2eTest : public testing::TestWithParam<std::string> {};

TEST_P(E2eTest, Case) {
  const fs::path dir = fs::path(FORMFILL_E2E_DIR) / GetParam();
  TempDir tmp;
  const fs::path work = fs::path(tmp.path()) / "work";
  fs::create_directory(work);
  for (const auto& entry : fs::directory_iterator(dir)) {
    const std::string name = entry.path().filename();
    if (name != "args" && name != "argv0" && name != "env" &&
        name != "doc_name" && name.rfind("expected.", 0) != 0)
      fs::copy(entry.path(), work / name, fs::copy_options::recursive);
  }
  std::vector<std::string> argv = Lines(dir / "argv0");
  argv.resize(1, FORMFILL_BIN);
  for (const std::string& arg : Lines(dir / "args"))
    argv.push_back(arg);

  const time_t before = time(nullptr);
  const std::string status = RunProgram(
      work, argv, Lines(dir / "env"), tmp.path() + "/out", tmp.path() + "/err");
  const time_t after = time(nullptr);
  const std::vector<std::string> want_status = Lines(dir / "expected.status");
  EXPECT_EQ(status, want_status.empty() ? "0" : want_status[0])
      << "standard error:\n"
      << ReadFile(tmp.path() + "/err");

  // A date may have been read on either side of a minute's turn.
  auto expect = [&](const std::string& what, const std::string& expected,
                    const std::string& actual) {
    if (actual != Expand(expected, before)) {
      EXPECT_EQ(actual, Expand(expected, after)) << what;
    }
  };
  expect("standard output", ReadFile(dir / "expected.stdout"),
         ReadFile(tmp.path() + "/out"));
  const std::vector<std::string> doc_name = Lines(dir / "doc_name");
  const fs::path doc = work / (doc_name.empty() ? "CON" : doc_name[0]);
  if (fs::exists(dir / "expected.doc")) {
    ASSERT_TRUE(fs::exists(doc)) << "no document " << doc;
    expect("document", ReadFile(dir / "expected.doc"), ReadFile(doc));
  } else {
    EXPECT_FALSE(fs::exists(doc)) << "unexpected document " << doc;
  }
}

std::vector<std::string> CaseNames() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(FORMFILL_E2E_DIR))
    if (entry.is_directory())
      names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// Folder names are test names: letters, digits and "_" only.
INSTANTIATE_TEST_SUITE_P(Cases, E2eTest, testing::ValuesIn(CaseNames()),
                         [](const auto& info) { return info.param; });

}  // namespace
