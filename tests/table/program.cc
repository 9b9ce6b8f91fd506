#include "tests/table/program.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/test_util.h"

RunResult RunProgram(const std::string& dir,
                     const std::vector<std::string>& argv,
                     const std::string& input, const std::string& path) {
  const std::string io = dir + "/../io-";
  std::ofstream(io + "in", std::ios::binary) << input;
  const pid_t pid = fork();
  if (pid == 0) {
    setenv("LANG", "C.UTF-8", 1);
    if (!path.empty())
      setenv("PATH", path.c_str(), 1);
    std::vector<char*> args;
    for (const std::string& a : argv)
      args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const int in = open((io + "in").c_str(), O_RDONLY);
    const int out = open((io + "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = open((io + "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    alarm(60);
    if (chdir(dir.c_str()) == 0 && dup2(in, 0) == 0 && dup2(out, 1) == 1 &&
        dup2(err, 2) == 2)
      execv(argv[0].c_str(), args.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  RunResult result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = ReadFile(io + "out");
  result.err = ReadFile(io + "err");
  return result;
}

std::string ListDir(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  std::string list;
  for (const std::string& name : names)
    list += name + "\n";
  return list;
}
