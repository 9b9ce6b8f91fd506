// The README's examples that are run by the tests, read from its text.
//
// An HTML comment on a line of its own, invisible once the README is
// rendered, says what to do with what follows:
//
//   <!-- test in DIR -->      a fresh directory, holding a copy of DIR's
//                             files (DIR relative to the source tree; none:
//                             an empty directory); the steps after it run
//                             there, up to the next "test in"
//   <!-- test file NAME -->   the next fenced block becomes file NAME
//   <!-- test append NAME --> the next fenced block is added to file NAME
//   <!-- test run -->         the next fenced block is a console session:
//                             "$ " lines are commands, the lines up to the
//                             next command are what it prints
//   <!-- test same DIR -->    every file of DIR equals the directory's file
//                             of the same name as the steps left it
#ifndef FORMFILL_TESTS_DOCS_README_BLOCKS_H_
#define FORMFILL_TESTS_DOCS_README_BLOCKS_H_

#include <string>
#include <vector>

struct ReadmeStep {
  enum Kind { kFile, kAppend, kRun, kSame } kind;
  int line;          // of the marker, for the messages
  std::string name;  // kFile, kAppend: the file; kSame: the directory
  std::string text;  // kFile, kAppend, kRun: the block's lines
};

struct ReadmeSession {
  int line;             // of the "test in" marker
  std::string heading;  // the section it stands in
  std::string from;     // the directory copied, or empty
  std::vector<ReadmeStep> steps;
};

struct FencedBlock {
  int line;          // of the opening fence
  std::string info;  // what follows the opening "```"
  bool marked;       // a test marker stands right before it
};

struct ReadmeText {
  std::vector<ReadmeSession> sessions;
  std::vector<FencedBlock> blocks;
  std::vector<std::string> errors;  // markers that cannot be followed
};

ReadmeText ParseReadme(const std::string& text);

// One command of a console block and what it is shown to print.
struct ConsoleCommand {
  std::string command;  // with its continuation lines and here-document
  std::vector<std::string> shown;
};

std::vector<ConsoleCommand> ParseConsole(const std::string& block);

// Whether the output's lines are the ones shown. Trailing blanks do not
// count on either side (a README does not show them), and a line "..."
// among the ones shown stands for any number of lines.
bool OutputMatches(const std::vector<std::string>& shown,
                   const std::string& output);

#endif  // FORMFILL_TESTS_DOCS_README_BLOCKS_H_
