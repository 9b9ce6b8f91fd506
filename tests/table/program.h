// Runs the built programs in a directory of their own, as a user would.
#ifndef FORMFILL_TESTS_TABLE_PROGRAM_H_
#define FORMFILL_TESTS_TABLE_PROGRAM_H_

#include <string>
#include <vector>

struct RunResult {
  int status = -1;  // exit status, or -1 after a signal or timeout
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs argv[0] (a path) with argv in dir, LANG=C.UTF-8, standard input
// read from input, for at most 60 seconds. path, when not empty, becomes
// PATH.
RunResult RunProgram(const std::string& dir,
                     const std::vector<std::string>& argv,
                     const std::string& input = "",
                     const std::string& path = "");

// The names in dir, sorted, one a line.
std::string ListDir(const std::string& dir);

#endif  // FORMFILL_TESTS_TABLE_PROGRAM_H_
