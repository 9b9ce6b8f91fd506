// The checker's diagnostics: one per problem, printed as compilers print
// theirs (FILE:LINE:COL: SEVERITY: MESSAGE [-WNAME], the source line and a
// caret), or as one JSON object a line.
#ifndef FORMFILL_CHECK_DIAGNOSTICS_H_
#define FORMFILL_CHECK_DIAGNOSTICS_H_

#include <map>
#include <ostream>
#include <set>
#include <string>

#include "check/safe_utf8.h"

enum class Severity { kNote, kWarning, kError };

struct Diagnostic {
  std::string file;  // empty: a problem of the command line itself
  long line = 0;     // 1-based
  long column = 0;   // 1-based, in characters
  Severity severity = Severity::kWarning;
  std::string message;
  std::string name;  // the kind, as -Wno-NAME silences it
};

class Reporter {
 public:
  Reporter(std::ostream& out, bool json, std::set<std::string> silenced)
      : m_Out(out), m_Json(json), m_Silenced(std::move(silenced)) {}

  // Prints d unless its kind is silenced.
  void Report(const Diagnostic& d);

  bool errors() const { return m_Errors > 0; }
  // 1 with at least one error or warning, else 0.
  int Status() const { return m_Errors + m_Warnings > 0 ? 1 : 0; }

 private:
  void PrintText(const Diagnostic& d);
  void PrintJson(const Diagnostic& d);
  // Line n of file, as UTF-8 without its line end; "" when there is none.
  std::string SourceLine(const std::string& file, long n);

  std::ostream& m_Out;
  bool m_Json;
  std::set<std::string> m_Silenced;
  long m_Errors = 0;
  long m_Warnings = 0;
  // Where the last line was fetched from each file, to go on from there.
  struct Cursor {
    long line = 1;
    long long offset = 0;
  };
  std::map<std::string, Cursor> m_Cursors;
};

const char* SeverityName(Severity severity);

#endif  // FORMFILL_CHECK_DIAGNOSTICS_H_
