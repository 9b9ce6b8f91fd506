// The command line and the environment, as formfill will take them.
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <locale>
#include <stdexcept>

#include "check/static_checks.h"
#include "driver/tbl.h"
#include "textio/helpers.h"
#include "textio/utf8.h"

std::wstring SectionFile(const Options& o, int n) {
  return o.path + o.blank + L"." + std::to_wstring(n);
}

std::string FormfillMessage(int n) {
  return "message " + std::to_string(n) + " \"" +
         SafeUtf8(Tbl::Err(static_cast<Tbl::numErr>(n))) + "\"";
}

namespace {

// The bytes formfill opens for a name it was given: each character of the
// widened argument converted to UTF-8 on its own.
std::string OpenedName(const std::wstring& name) {
  return SafeUtf8(name, "");
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa;
  struct stat sb;
  if (stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0) {
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  }
  return a == b;
}

void CheckLang(CheckState& s) {
  const char* lang = std::getenv("LANG");
  if (lang == nullptr) {
    s.Add("", 0, 0, Severity::kError,
          "LANG is not set: formfill aborts before it reads its options",
          "lang");
    s.no_run = true;
    return;
  }
  try {
    std::locale probe(lang);
    static_cast<void>(probe);
  } catch (const std::runtime_error&) {
    s.Add("", 0, 0, Severity::kError,
          std::string("LANG=") + lang +
              " names a locale this machine does not have: formfill aborts "
              "before it reads its options",
          "lang");
    s.no_run = true;
  }
}

void CheckNames(CheckState& s) {
  const Options& o = s.options;
  for (const std::wstring* name : {&o.blank, &o.table, &o.out, &o.params,
                                   &o.path}) {
    for (wchar_t c : *name) {
      if (c >= 0x80) {
        s.Add("", 0, 0, Severity::kError,
              "'" + NarrowBytes(*name) +
                  "' is not ASCII: formfill takes each byte of it for a "
                  "character of its own and opens a name made of other bytes",
              "name-encoding");
        s.no_run = true;
        break;
      }
    }
  }
  std::wstring dir, base, ext;
  _wsplitpath(o.blank, dir, base, ext);
  if (!ext.empty()) {
    s.Add("", 0, 0, Severity::kError,
          "the template name '" + NarrowBytes(o.blank) +
              "' has an extension: formfill adds the section number itself "
              "and loads nothing (" + FormfillMessage(11) + ")",
          "template-name");
    s.no_run = true;
  }
}

void CheckPath(CheckState& s) {
  const Options& o = s.options;
  if (o.path.find(L';') != std::wstring::npos && !o.params.empty()) {
    s.Add("", 0, 0, Severity::kError,
          "-P holds a list with ';' and -F names a parameters file: formfill "
          "searches the list for ever and never ends (the search is not "
          "run here)",
          "path-list");
    s.no_run = true;
  } else if (!o.path.empty() && o.path.back() != L'/' &&
             o.path.find(L';') == std::wstring::npos) {
    s.Add("", 0, 0, Severity::kError,
          "-P" + NarrowBytes(o.path) +
              " has no trailing '/': formfill tests '" + NarrowBytes(o.path) +
              "/" + NarrowBytes(o.blank) + ".1' but opens '" +
              NarrowBytes(SectionFile(o, 1)) + "'; write -P" +
              NarrowBytes(o.path) + "/",
          "path-slash");
    s.no_run = true;
  }
}

void CheckFiles(CheckState& s) {
  const Options& o = s.options;
  const std::string table = OpenedName(o.table);
  if (access(table.c_str(), R_OK) != 0) {
    s.Add("", 0, 0, Severity::kError,
          "the table '" + table + "' cannot be read: formfill stops with " +
              FormfillMessage(9),
          "missing-file");
    s.no_run = true;
  }
  const std::string out = OpenedName(o.out);
  const size_t slash = out.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : out.substr(0, slash + 1);
  if (access(dir.c_str(), W_OK) != 0) {
    s.Add("", 0, 0, Severity::kError,
          "the document '" + out + "' cannot be created there: formfill "
          "stops with " + FormfillMessage(10),
          "output");
    s.no_run = true;
  }
  if (!o.out_given) {
    s.Add("", 0, 0, Severity::kNote,
          "no -O: formfill writes the document to a file named CON here",
          "default-output");
  }
  std::vector<std::string> inputs = {table};
  for (int n = 1; n <= 3; ++n)
    inputs.push_back(OpenedName(SectionFile(o, n)));
  if (!o.params.empty())
    inputs.push_back(OpenedName(o.params));
  for (const std::string& input : inputs) {
    if (!out.empty() && SameFile(out, input)) {
      s.Add("", 0, 0, Severity::kError,
            "-O names '" + input +
                "', which formfill also reads: it empties the file before "
                "reading it and writes the document over it",
            "output-overwrites");
    }
  }
}

}  // namespace

void CheckCommandLine(CheckState& state) {
  for (const Diagnostic& d : state.options.findings) {
    state.reporter.Report(d);
  }
  CheckLang(state);
  CheckNames(state);
  CheckPath(state);
  CheckFiles(state);
}
