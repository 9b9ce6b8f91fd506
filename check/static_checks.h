// The checks made without running formfill: its command line and
// environment, every section of the template, the table and the
// parameters file, and what they say of one another.
#ifndef FORMFILL_CHECK_STATIC_CHECKS_H_
#define FORMFILL_CHECK_STATIC_CHECKS_H_

#include <map>
#include <set>
#include <string>

#include "check/diagnostics.h"
#include "check/options.h"

// Where a field is first used.
struct Use {
  std::string file;
  long line = 0;
  long column = 0;
  int section = 0;
};

struct CheckState {
  CheckState(const Options& o, Reporter& r) : options(o), reporter(r) {}

  const Options& options;
  Reporter& reporter;

  // Something makes formfill refuse, abort or hang: no dry run.
  bool no_run = false;
  // The fields the template uses, by number, and where first.
  std::map<long, Use> record_uses;
  std::map<long, Use> header_uses;
  // Record fields used in each section.
  std::set<long> section_records[3];
  // Header fields the template gives a text of its own, and where each
  // text with words in it stands, with its words.
  std::set<long> template_header;
  std::map<long, std::pair<Use, std::string>> header_words;
  // What the table and the parameters file give.
  std::set<long> table_header;
  std::set<long> params_header;
  std::set<long> table_records;
  long records = 0;
  long page_marks = 0;
  bool table_read = false;
  bool section_exists[3] = {false, false, false};

  void Add(const std::string& file, long line, long column, Severity severity,
           const std::string& message, const std::string& name) {
    reporter.Report({file, line, column, severity, message, name});
  }
};

// What a scan of a file's bytes found: where formfill's reader stops at a
// byte it cannot decode (-1: nowhere), and how many "@" come after it.
struct EncodingScan {
  long long stop_offset = -1;
  long ends_after_stop = 0;
};
// Reports the bytes of file that are not UTF-8 (the first of a line, a few
// lines at most); what names the kind of file.
EncodingScan CheckEncoding(CheckState& state, const std::string& file,
                           const char* what);

// The section file n as formfill names it, and as the user reads it.
std::wstring SectionFile(const Options& o, int n);

void CheckCommandLine(CheckState& state);
void CheckTemplate(CheckState& state);
void CheckTable(CheckState& state);
void CheckUses(CheckState& state);

// The message formfill prints for message n, for the diagnostics that
// name it.
std::string FormfillMessage(int n);

#endif  // FORMFILL_CHECK_STATIC_CHECKS_H_
