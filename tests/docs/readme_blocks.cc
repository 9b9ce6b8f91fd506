#include "tests/docs/readme_blocks.h"

#include <sstream>

namespace {

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::string TrimRight(std::string text) {
  text.erase(text.find_last_not_of(" \t\r") + 1);
  return text;
}

// The words of a marker line ("test", the action, its argument), or none
// when the line is no marker.
std::vector<std::string> MarkerWords(const std::string& line) {
  const std::string open = "<!-- test ", close = " -->";
  if (line.rfind(open, 0) != 0 || line.size() < open.size() + close.size() ||
      line.compare(line.size() - close.size(), close.size(), close) != 0)
    return {};
  std::istringstream in(line.substr(5, line.size() - 5 - close.size()));
  std::vector<std::string> words;
  for (std::string word; in >> word;)
    words.push_back(word);
  return words;
}

class Parser {
 public:
  explicit Parser(const std::string& text) : m_Lines(SplitLines(text)) {}

  ReadmeText Parse() {
    for (m_At = 0; m_At < m_Lines.size(); ++m_At) {
      const std::string& line = m_Lines[m_At];
      if (line.rfind("#", 0) == 0)
        m_Heading = line;
      else if (line.rfind("```", 0) == 0) {
        m_Result.blocks.push_back({Number(), line.substr(3), false});
        SkipBlock();
      } else if (!MarkerWords(line).empty())
        Marker(MarkerWords(line));
    }
    return m_Result;
  }

 private:
  int Number() const { return static_cast<int>(m_At) + 1; }

  // From the opening fence at m_At to its closing one; the lines between.
  std::string SkipBlock() {
    std::string text;
    while (++m_At < m_Lines.size() && m_Lines[m_At] != "```")
      text += m_Lines[m_At] + "\n";
    return text;
  }

  void Error(const std::string& what) {
    m_Result.errors.push_back("README.md:" + std::to_string(Number()) + ": " +
                              what);
  }

  void Marker(const std::vector<std::string>& words) {
    const std::string& action = words[1];
    const std::string argument = words.size() > 2 ? words[2] : "";
    if (action == "in") {
      m_Result.sessions.push_back({Number(), m_Heading, argument, {}});
      return;
    }
    if (m_Result.sessions.empty())
      return Error("a step before any \"test in\"");
    const int line = Number();
    std::vector<ReadmeStep>& steps = m_Result.sessions.back().steps;
    if (action == "same")
      return steps.push_back({ReadmeStep::kSame, line, argument, ""});
    const ReadmeStep::Kind kind = action == "file"     ? ReadmeStep::kFile
                                  : action == "append" ? ReadmeStep::kAppend
                                                       : ReadmeStep::kRun;
    if (action != "file" && action != "append" && action != "run")
      return Error("unknown test marker \"" + action + "\"");
    if (++m_At >= m_Lines.size() || m_Lines[m_At].rfind("```", 0) != 0)
      return Error("the marker is not followed by a fenced block");
    m_Result.blocks.push_back({Number(), m_Lines[m_At].substr(3), true});
    steps.push_back({kind, line, argument, SkipBlock()});
  }

  std::vector<std::string> m_Lines;
  size_t m_At = 0;
  std::string m_Heading;
  ReadmeText m_Result;
};

// The word that ends a here-document the command opens ("<<'EOF'",
// "<<EOF"), or empty.
std::string HereDocumentEnd(const std::string& command) {
  const size_t at = command.find("<<");
  if (at == std::string::npos)
    return "";
  std::string word = command.substr(at + 2);
  word = word.substr(0, word.find(' '));
  if (word.size() > 1 && (word[0] == '\'' || word[0] == '"'))
    word = word.substr(1, word.size() - 2);
  return word;
}

bool Matches(const std::vector<std::string>& shown, size_t s,
             const std::vector<std::string>& got, size_t g) {
  if (s == shown.size())
    return g == got.size();
  if (shown[s] == "...") {
    for (size_t skip = g; skip <= got.size(); ++skip)
      if (Matches(shown, s + 1, got, skip))
        return true;
    return false;
  }
  return g < got.size() && TrimRight(shown[s]) == TrimRight(got[g]) &&
         Matches(shown, s + 1, got, g + 1);
}

}  // namespace

ReadmeText ParseReadme(const std::string& text) {
  return Parser(text).Parse();
}

std::vector<ConsoleCommand> ParseConsole(const std::string& block) {
  std::vector<ConsoleCommand> commands;
  const std::vector<std::string> lines = SplitLines(block);
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].rfind("$ ", 0) != 0) {
      if (!commands.empty())
        commands.back().shown.push_back(lines[i]);
      continue;
    }
    std::string command = lines[i].substr(2);
    // A line ending in "\" or "|" goes on on the next, as in the shell.
    while (!command.empty() && (command.back() == '\\' || command.back() == '|') &&
           i + 1 < lines.size())
      command += "\n" + lines[++i];
    const std::string end = HereDocumentEnd(command);
    while (!end.empty() && i + 1 < lines.size()) {
      command += "\n" + lines[++i];
      if (lines[i] == end)
        break;
    }
    commands.push_back({command, {}});
  }
  return commands;
}

bool OutputMatches(const std::vector<std::string>& shown,
                   const std::string& output) {
  return Matches(shown, 0, SplitLines(output), 0);
}
