#include "check/options.h"

#include <cstdlib>

std::wstring WidenBytes(const std::string& bytes) {
  std::wstring wide;
  for (unsigned char c : bytes) {
    wide.push_back(static_cast<wchar_t>(c));
  }
  return wide;
}

std::string NarrowBytes(const std::wstring& text) {
  std::string bytes;
  for (wchar_t c : text) {
    bytes.push_back(static_cast<char>(c));
  }
  return bytes;
}

namespace {

// formfill's setting for option letter c, either case; null for another.
std::wstring* Setting(Options& o, char c) {
  switch (c | 0x20) {
    case 'b':
      return &o.blank;
    case 'f':
      return &o.params;
    case 'i':
      return &o.table;
    case 'o':
      o.out_given = true;
      return &o.out;
    case 'p':
      return &o.path;
    default:
      return nullptr;
  }
}

void Finding(Options& o, Severity severity, const std::string& message,
             const std::string& name) {
  o.findings.push_back({"", 0, 0, severity, message, name});
}

// The checker's own long options; false when arg is none of them.
bool LongOption(Options& o, const std::string& arg, int& i, int argc,
                char** argv) {
  const auto value = [&](const std::string& option) -> std::string {
    if (arg.size() > option.size() && arg[option.size()] == '=')
      return arg.substr(option.size() + 1);
    if (i + 1 < argc)
      return argv[++i];
    o.usage_error = option + " needs a value";
    return "";
  };
  if (arg == "--help") {
    o.help = true;
  } else if (arg == "--version") {
    o.version = true;
  } else if (arg == "--format=json") {
    o.json = true;
  } else if (arg == "--format=text") {
    o.json = false;
  } else if (arg == "--no-run") {
    o.run = false;
  } else if (arg.rfind("--trace", 0) == 0 &&
             (arg.size() == 7 || arg[7] == '=')) {
    o.trace = value("--trace");
  } else if (arg.rfind("--sheet-lines", 0) == 0 &&
             (arg.size() == 13 || arg[13] == '=')) {
    const std::string n = value("--sheet-lines");
    char* end = nullptr;
    o.sheet_lines = std::strtol(n.c_str(), &end, 10);
    if (n.empty() || *end != 0 || o.sheet_lines < 1)
      o.usage_error = "--sheet-lines takes a number of lines above 0";
  } else if (arg.rfind("-Wno-", 0) == 0 && arg.size() > 5) {
    o.silenced.insert(arg.substr(5));
  } else {
    return false;
  }
  return true;
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc && o.usage_error.empty(); ++i) {
    const std::string arg = argv[i];
    if (LongOption(o, arg, i, argc, argv)) {
      continue;
    }
    if (arg.rfind("--", 0) == 0) {
      o.usage_error = "unknown option " + arg;
      break;
    }
    std::wstring* setting =
        arg.size() >= 2 && arg[0] == '-' ? Setting(o, arg[1]) : nullptr;
    if (setting == nullptr) {
      Finding(o, Severity::kWarning,
              "formfill ignores the argument '" + arg +
                  "' (its options are -B -F -I -O -P, each value glued to "
                  "its letter)",
              "ignored-option");
      continue;
    }
    std::string value = arg.substr(2);
    if (value.empty() && i + 1 < argc && argv[i + 1][0] != '-') {
      value = argv[++i];
      Finding(o, Severity::kWarning,
              "formfill needs the value glued to its letter: write " +
                  arg + value + "; given as '" + arg + " " + value +
                  "', formfill takes an empty value and ignores '" + value +
                  "'",
              "separate-value");
    }
    *setting = WidenBytes(value);
  }
  return o;
}
