// Runs the built formfill binary on every case folder under tests/e2e/ (the
// folder format is described in tests/e2e/README.md).
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr int kTimeoutSeconds = 10;

bool IsControlFile(const std::string& name) {
  return name == "args" || name == "argv0" || name == "env" ||
         name == "doc_name" || name.rfind("expected.", 0) == 0;
}

std::vector<std::string> CaseNames() {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(FORMFILL_E2E_DIR, ec)) {
    if (entry.is_directory()) {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool ReadFile(const fs::path& path, std::string* bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return false;
  }
  std::ostringstream all;
  all << in.rdbuf();
  *bytes = all.str();
  return true;
}

// One entry per line; the final line feed does not start another entry.
std::vector<std::string> ReadLines(const fs::path& path) {
  std::vector<std::string> lines;
  std::string bytes;
  if (!ReadFile(path, &bytes) || bytes.empty()) {
    return lines;
  }
  if (bytes.back() == '\n') {
    bytes.pop_back();
  }
  std::string::size_type start = 0;
  for (;;) {
    const auto end = bytes.find('\n', start);
    lines.push_back(bytes.substr(start, end - start));
    if (end == std::string::npos) {
      break;
    }
    start = end + 1;
  }
  return lines;
}

std::string Now(const char* format) {
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char buf[80];
  const size_t n = strftime(buf, sizeof buf, format, &local);
  return std::string(buf, n);
}

struct Clock {
  std::string date;
  std::string datetime;
};

Clock ReadClock() {
  return {Now("%d.%m.%Y"), Now("%d.%m.%Y %H:%M")};
}

std::string Expand(std::string text, const Clock& clock) {
  const std::pair<std::string, std::string> subs[] = {
      {"{DATETIME}", clock.datetime}, {"{DATE}", clock.date}};
  for (const auto& sub : subs) {
    for (auto at = text.find(sub.first); at != std::string::npos;
         at = text.find(sub.first, at + sub.second.size())) {
      text.replace(at, sub.first.size(), sub.second);
    }
  }
  return text;
}

struct RunResult {
  bool timed_out = false;
  int wait_status = 0;
  std::string out;
  std::string err;
};

// Runs argv (argv[0] is what the program sees as its own path) in dir with
// the environment env, collecting standard output and standard error.
RunResult RunProgram(const std::string& dir,
                     const std::vector<std::string>& argv,
                     const std::vector<std::string>& env) {
  RunResult result;
  int out_pipe[2];
  int err_pipe[2];
  if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0) {
    ADD_FAILURE() << "pipe: " << std::strerror(errno);
    return result;
  }
  std::vector<char*> args;
  for (const std::string& a : argv) {
    args.push_back(const_cast<char*>(a.c_str()));
  }
  args.push_back(nullptr);
  std::vector<char*> envp;
  for (const std::string& e : env) {
    envp.push_back(const_cast<char*>(e.c_str()));
  }
  envp.push_back(nullptr);

  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out_pipe[1], 1);
    dup2(err_pipe[1], 2);
    close(out_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[0]);
    close(err_pipe[1]);
    if (chdir(dir.c_str()) != 0) {
      _exit(126);
    }
    execve(FORMFILL_BIN, args.data(), envp.data());
    _exit(127);
  }
  close(out_pipe[1]);
  close(err_pipe[1]);
  if (pid < 0) {
    ADD_FAILURE() << "fork: " << std::strerror(errno);
    close(out_pipe[0]);
    close(err_pipe[0]);
    return result;
  }

  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(kTimeoutSeconds);
  struct pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int open_fds = 2;
  while (open_fds > 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timed_out = true;
      kill(pid, SIGKILL);
      break;
    }
    if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) {
      break;
    }
    for (int k = 0; k < 2; ++k) {
      if (fds[k].fd < 0 || fds[k].revents == 0) {
        continue;
      }
      char buf[4096];
      const ssize_t n = read(fds[k].fd, buf, sizeof buf);
      if (n > 0) {
        sinks[k]->append(buf, static_cast<size_t>(n));
      } else {
        close(fds[k].fd);
        fds[k].fd = -1;
        --open_fds;
      }
    }
  }
  for (const auto& fd : fds) {
    if (fd.fd >= 0) {
      close(fd.fd);
    }
  }
  waitpid(pid, &result.wait_status, 0);
  return result;
}

// The test process's environment with LANG=C.UTF-8, then the case's "env"
// lines: NAME=value sets, -NAME removes.
std::vector<std::string> Environment(const fs::path& case_dir) {
  std::vector<std::string> env;
  for (char** e = environ; *e != nullptr; ++e) {
    env.push_back(*e);
  }
  auto drop = [&env](const std::string& name) {
    env.erase(std::remove_if(env.begin(), env.end(),
                             [&name](const std::string& e) {
                               return e.rfind(name + "=", 0) == 0;
                             }),
              env.end());
  };
  drop("LANG");
  env.push_back("LANG=C.UTF-8");
  for (const std::string& line : ReadLines(case_dir / "env")) {
    if (!line.empty() && line[0] == '-') {
      drop(line.substr(1));
    } else if (line.find('=') != std::string::npos) {
      drop(line.substr(0, line.find('=')));
      env.push_back(line);
    }
  }
  return env;
}

std::string Describe(int wait_status) {
  if (WIFEXITED(wait_status)) {
    return std::to_string(WEXITSTATUS(wait_status));
  }
  if (WIFSIGNALED(wait_status)) {
    return WTERMSIG(wait_status) == SIGABRT
               ? "abort"
               : "signal " + std::to_string(WTERMSIG(wait_status));
  }
  return "unknown";
}

class E2eTest : public testing::TestWithParam<std::string> {};

TEST_P(E2eTest, Case) {
  const fs::path case_dir = fs::path(FORMFILL_E2E_DIR) / GetParam();
  TempDir work;
  for (const auto& entry : fs::directory_iterator(case_dir)) {
    const std::string name = entry.path().filename().string();
    if (!IsControlFile(name)) {
      fs::copy(entry.path(), fs::path(work.path()) / name,
               fs::copy_options::recursive);
    }
  }

  std::vector<std::string> argv = {FORMFILL_BIN};
  const std::vector<std::string> argv0 = ReadLines(case_dir / "argv0");
  if (!argv0.empty()) {
    argv[0] = argv0[0];
  }
  for (const std::string& arg : ReadLines(case_dir / "args")) {
    argv.push_back(arg);
  }

  const Clock before = ReadClock();
  const RunResult run = RunProgram(work.path(), argv, Environment(case_dir));
  const Clock after = ReadClock();
  ASSERT_FALSE(run.timed_out) << "killed after " << kTimeoutSeconds << " s";

  std::string want_status = "0";
  ReadFile(case_dir / "expected.status", &want_status);
  want_status.erase(want_status.find_last_not_of(" \n") + 1);
  EXPECT_EQ(want_status, Describe(run.wait_status)) << "exit status; stderr:\n"
                                                    << run.err;

  // A value carrying the date may have been formed on either side of a
  // minute's turn.
  auto expect_text = [&](const std::string& what, const std::string& want,
                         const std::string& got) {
    if (got != Expand(want, after)) {
      EXPECT_EQ(Expand(want, before), got) << what;
    }
  };

  std::string want_out;
  ReadFile(case_dir / "expected.stdout", &want_out);
  expect_text("standard output", want_out, run.out);

  std::string doc_name = "CON";
  const std::vector<std::string> doc_name_lines =
      ReadLines(case_dir / "doc_name");
  if (!doc_name_lines.empty()) {
    doc_name = doc_name_lines[0];
  }
  std::string got_doc;
  const bool doc_exists = ReadFile(fs::path(work.path()) / doc_name, &got_doc);
  std::string want_doc;
  if (ReadFile(case_dir / "expected.doc", &want_doc)) {
    ASSERT_TRUE(doc_exists) << "no document " << doc_name;
    expect_text("document " + doc_name, want_doc, got_doc);
  } else {
    EXPECT_FALSE(doc_exists) << "unexpected document " << doc_name;
  }
}

std::string CaseTestName(const testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) {
      c = '_';
    }
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Cases, E2eTest, testing::ValuesIn(CaseNames()),
                         CaseTestName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(E2eTest);

}  // namespace
