#include "check/diagnostics.h"

#include <fstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "textio/utf8.h"

const char* SeverityName(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kWarning:
      return "warning";
    case Severity::kError:
      return "error";
  }
  return "error";
}

void Reporter::Report(const Diagnostic& d) {
  if (m_Silenced.count(d.name) != 0) {
    return;
  }
  if (d.severity == Severity::kError) {
    ++m_Errors;
  } else if (d.severity == Severity::kWarning) {
    ++m_Warnings;
  }
  if (m_Json) {
    PrintJson(d);
  } else {
    PrintText(d);
  }
}

void Reporter::PrintJson(const Diagnostic& d) {
  nlohmann::json j = {{"severity", SeverityName(d.severity)},
                      {"message", d.message},
                      {"name", d.name}};
  if (!d.file.empty()) {
    j["file"] = d.file;
    j["line"] = d.line;
    j["column"] = d.column;
  }
  // Names and texts may hold bytes that are not UTF-8: they are replaced
  // rather than refused.
  m_Out << j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
        << '\n';
}

void Reporter::PrintText(const Diagnostic& d) {
  const std::string kind = d.name.empty() ? "" : " [-W" + d.name + "]";
  if (d.file.empty()) {
    m_Out << "formfill-check: " << SeverityName(d.severity) << ": "
          << d.message << kind << '\n';
    return;
  }
  m_Out << d.file << ':' << d.line << ':' << d.column << ": "
        << SeverityName(d.severity) << ": " << d.message << kind << '\n';
  const std::string source = SourceLine(d.file, d.line);
  if (source.empty()) {
    return;
  }
  m_Out << ' ' << source << "\n ";
  // The caret stands under the column'th character: one blank for each
  // character before it (a tab stays a tab, so that it lines up).
  long column = 1;
  for (size_t k = 0; k < source.size() && column < d.column; ++k) {
    const unsigned char c = static_cast<unsigned char>(source[k]);
    if ((c & 0xC0) == 0x80) {
      continue;
    }
    m_Out << (c == '\t' ? '\t' : ' ');
    ++column;
  }
  m_Out << "^\n";
}

std::string Reporter::SourceLine(const std::string& file, long n) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    return "";
  }
  Cursor& cursor = m_Cursors[file];
  if (n < cursor.line) {
    cursor = Cursor();
  }
  in.seekg(cursor.offset);
  std::string line;
  for (; cursor.line < n; ++cursor.line) {
    if (!std::getline(in, line)) {
      cursor = Cursor();
      return "";
    }
    cursor.offset = static_cast<long long>(in.tellg());
  }
  if (!std::getline(in, line)) {
    return "";
  }
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
  constexpr size_t kShown = 200;
  if (line.size() > kShown) {
    line = line.substr(0, kShown) + "...";
  }
  return line;
}
