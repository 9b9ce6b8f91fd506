// formfill-check's command line: formfill's own options, read by
// formfill's rules, and the checker's.
#ifndef FORMFILL_CHECK_OPTIONS_H_
#define FORMFILL_CHECK_OPTIONS_H_

#include <set>
#include <string>
#include <vector>

#include "check/diagnostics.h"

struct Options {
  // formfill's settings, each byte of an argument one character, as
  // formfill takes them; and the arguments as the user typed them.
  std::wstring blank;
  std::wstring table = L"NULL";
  std::wstring out = L"CON";
  std::wstring params;
  std::wstring path;
  bool out_given = false;

  bool json = false;
  bool run = true;
  std::string trace;  // "-" for standard output; "" for none
  long sheet_lines = 0;
  std::set<std::string> silenced;

  bool help = false;
  bool version = false;
  std::string usage_error;  // the checker misused: exit status 2
  // What the command line itself shows about formfill's run.
  std::vector<Diagnostic> findings;
};

Options ParseOptions(int argc, char** argv);

// Each byte one character, as formfill widens its arguments.
std::wstring WidenBytes(const std::string& bytes);
// The characters back as bytes (each below 256 by construction).
std::string NarrowBytes(const std::wstring& text);

#endif  // FORMFILL_CHECK_OPTIONS_H_
