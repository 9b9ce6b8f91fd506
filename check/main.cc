// formfill-check: finds the mistakes of a template, a table and a
// formfill command line before formfill makes them into a document, and
// explains that document line by line.
//
//   formfill-check [--format=json] [--no-run] [--trace FILE]
//                  [--sheet-lines N] [-Wno-NAME]... FORMFILL-OPTIONS...
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <locale>
#include <stdexcept>

#include "check/dry_run.h"
#include "check/options.h"
#include "check/static_checks.h"

namespace {

const char kUsage[] =
    "usage: formfill-check [OPTIONS] -B<template> -I<table> [-O<document>]\n"
    "                      [-F<parameters>] [-P<directory/>]\n"
    "\n"
    "Checks what formfill would do with the same command line, without\n"
    "writing any document: the template's sections, the table, the\n"
    "parameters file and the command line itself; then runs formfill's\n"
    "engine over the table with the document thrown away and reports what\n"
    "the data makes go wrong. Diagnostics go to standard error as\n"
    "FILE:LINE:COL: SEVERITY: MESSAGE [-WNAME].\n"
    "\n"
    "  --format=json     one JSON object a diagnostic, one a line\n"
    "  --no-run          only the checks that need no run\n"
    "  --trace FILE      write the document with a gutter naming the\n"
    "                    template line and the record of each line\n"
    "                    (\"-\": standard output)\n"
    "  --sheet-lines N   report every sheet longer than N lines\n"
    "  -Wno-NAME         silence diagnostics of kind NAME\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 0 no error or warning, 1 at least one, 2 misuse.\n"
    "See formfill-check(1) and formfill(5).\n";

// The checker's own work is done in a UTF-8 locale, whatever LANG says
// (its checks say what formfill will make of LANG).
void SetLocale() {
  const char* lang = std::getenv("LANG");
  try {
    std::locale::global(std::locale(lang != nullptr ? lang : "C.UTF-8"));
    std::setlocale(LC_ALL, lang);
  } catch (const std::runtime_error&) {
    std::locale::global(std::locale("C.UTF-8"));
    std::setlocale(LC_ALL, "C.UTF-8");
  }
  std::setlocale(LC_NUMERIC, "C.UTF-8");
}

Severity FromRun(RunSeverity severity) {
  switch (severity) {
    case RunSeverity::kNote:
      return Severity::kNote;
    case RunSeverity::kWarning:
      return Severity::kWarning;
    case RunSeverity::kError:
      break;
  }
  return Severity::kError;
}

void Run(const Options& o, CheckState& state) {
  std::ofstream file;
  std::ostream* trace = nullptr;
  if (o.trace == "-") {
    trace = &std::cout;
  } else if (!o.trace.empty()) {
    file.open(o.trace, std::ios::binary | std::ios::trunc);
    if (!file) {
      state.Add("", 0, 0, Severity::kError,
                "cannot write the trace to '" + o.trace + "'", "trace");
      return;
    }
    trace = &file;
  }
  const RunSettings settings{o.blank, o.table, o.params, o.path,
                             o.sheet_lines};
  for (const RunFinding& f : DryRun(settings, trace)) {
    state.Add(f.file, f.line, f.column, FromRun(f.severity), f.message,
              f.name);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = ParseOptions(argc, argv);
  if (!o.usage_error.empty() || (o.run == false && !o.trace.empty())) {
    std::cerr << "formfill-check: error: "
              << (o.usage_error.empty() ? "--trace needs the run; drop --no-run"
                                        : o.usage_error)
              << "\nTry 'formfill-check --help'.\n";
    return 2;
  }
  if (o.help) {
    std::cout << kUsage;
    return 0;
  }
  if (o.version) {
    std::cout << "formfill-check " FORMFILL_VERSION "\n";
    return 0;
  }
  SetLocale();
  Reporter reporter(std::cerr, o.json, o.silenced);
  CheckState state(o, reporter);
  CheckCommandLine(state);
  CheckTemplate(state);
  CheckTable(state);
  CheckUses(state);
  if (o.run && !state.no_run) {
    Run(o, state);
  } else if (!o.trace.empty()) {
    state.Add("", 0, 0, Severity::kError,
              "no trace: formfill would not run to the end (see above)",
              "trace");
  }
  return reporter.Status();
}
