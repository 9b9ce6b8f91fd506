// The checker's dry run: formfill's own engine fills the template from the
// table with the document thrown away, and what the run did is compared
// with what the author most likely meant.
#ifndef FORMFILL_CHECK_DRY_RUN_H_
#define FORMFILL_CHECK_DRY_RUN_H_

#include <ostream>
#include <string>
#include <vector>

// formfill's settings, as its command line gives them.
struct RunSettings {
  std::wstring blank;   // -B
  std::wstring table;   // -I
  std::wstring params;  // -F
  std::wstring path;    // -P
  // With --sheet-lines: the longest sheet the paper takes; 0 for no check.
  long sheet_lines = 0;
};

enum class RunSeverity { kNote, kWarning, kError };

// One thing the run showed, at a place in a template section or the table.
struct RunFinding {
  std::string name;  // the kind, as -Wno-NAME silences it
  RunSeverity severity;
  std::string file;  // as the user named it
  long line;         // 1-based
  long column;       // 1-based, in characters
  std::string message;
};

// Runs the engine once over settings. Findings come in the order the run
// met them, each kind summed up where it repeats. With trace, the document
// is written there as formfill would write it, each line behind a gutter
// that names the template line and the record that made it, then " | ".
std::vector<RunFinding> DryRun(const RunSettings& settings,
                               std::ostream* trace);

#endif  // FORMFILL_CHECK_DRY_RUN_H_
