// The README's examples, run as a reader would run them: each marked
// console block's commands in a directory of their own with the built
// programs first on PATH, their output compared with the output the README
// shows (the markers are described in readme_blocks.h). Editing a command,
// an output or the program without the other fails here.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/docs/readme_blocks.h"
#include "tests/table/program.h"
#include "tests/test_util.h"

// Names a session in gtest's messages.
void PrintTo(const ReadmeSession& session, std::ostream* out) {
  *out << "README.md:" << session.line << " " << session.heading;
}

namespace {

namespace fs = std::filesystem;

const std::string kSource = FORMFILL_SOURCE_DIR;

const ReadmeText& Readme() {
  static const ReadmeText readme =
      ParseReadme(ReadFile(kSource + "/README.md"));
  return readme;
}

class ReadmeSessionTest : public testing::TestWithParam<ReadmeSession> {
 protected:
  // The directory the commands run in; a subdirectory, as RunProgram keeps
  // its standard streams beside the directory it runs in.
  std::string Work() const { return m_Temp.path() + "/work"; }

  void Setup(const std::string& from) {
    fs::create_directory(Work());
    if (!from.empty())
      fs::copy(kSource + "/" + from, Work(), fs::copy_options::recursive);
  }

  void Write(const ReadmeStep& step) {
    const auto mode = step.kind == ReadmeStep::kAppend
                          ? std::ios::binary | std::ios::app
                          : std::ios::binary;
    std::ofstream(Work() + "/" + step.name, mode) << step.text;
  }

  void Run(const ReadmeStep& step) {
    const std::string path =
        std::string(FORMFILL_BIN_DIR) + ":/usr/local/bin:/usr/bin:/bin";
    for (const ConsoleCommand& c : ParseConsole(step.text)) {
      const RunResult run =
          RunProgram(Work(), {"/bin/sh", "-c", "exec 2>&1\n" + c.command}, "",
                     path);
      std::string shown;
      for (const std::string& line : c.shown)
        shown += line + "\n";
      EXPECT_TRUE(OutputMatches(c.shown, run.out))
          << "README.md:" << step.line << ": $ " << c.command
          << "\n--- the README shows:\n" << shown
          << "--- the command printed:\n" << run.out;
    }
  }

  void Same(const ReadmeStep& step) {
    for (const auto& entry : fs::directory_iterator(kSource + "/" + step.name)) {
      const std::string name = entry.path().filename();
      EXPECT_EQ(ReadFile(Work() + "/" + name), ReadFile(entry.path()))
          << "README.md:" << step.line << ": the README's " << name
          << " differs from " << step.name << "/" << name;
    }
  }

 private:
  TempDir m_Temp;
};

TEST_P(ReadmeSessionTest, ShowsWhatTheProgramsPrint) {
  const ReadmeSession& session = GetParam();
  SCOPED_TRACE("README.md:" + std::to_string(session.line) + " " +
               session.heading);
  Setup(session.from);
  for (const ReadmeStep& step : session.steps) {
    switch (step.kind) {
      case ReadmeStep::kFile:
      case ReadmeStep::kAppend:
        Write(step);
        break;
      case ReadmeStep::kRun:
        Run(step);
        break;
      case ReadmeStep::kSame:
        Same(step);
        break;
    }
  }
}

// By order and heading, not by line: an edit above a session leaves its
// name alone.
std::string SessionName(const testing::TestParamInfo<ReadmeSession>& info) {
  std::string name = "session_" + std::to_string(info.index + 1) + "_";
  for (char c : info.param.heading)
    if (isalnum(static_cast<unsigned char>(c)))
      name += c;
  return name;
}

INSTANTIATE_TEST_SUITE_P(Readme, ReadmeSessionTest,
                         testing::ValuesIn(Readme().sessions), SessionName);

TEST(ReadmeTest, EveryExampleRunIsTested) {
  EXPECT_TRUE(Readme().errors.empty()) << Readme().errors.front();
  EXPECT_GE(Readme().sessions.size(), 5u);
  // A console block shows commands with what they print; one that no test
  // runs would go stale unnoticed.
  for (const FencedBlock& block : Readme().blocks)
    EXPECT_TRUE(block.marked || block.info != "console")
        << "README.md:" << block.line << ": a console block without "
        << "<!-- test run -->";
}

TEST(ReadmeTest, ShownOutputMatches) {
  const struct {
    std::vector<std::string> shown;
    std::string output;
    bool matches;
  } cases[] = {
      {{"a", "b"}, "a  \nb\n", true},
      {{"a", "b"}, "a\nb\nc\n", false},
      {{"a", "...", "d"}, "a\nb\nc\nd\n", true},
      {{"a", "...", "d"}, "a\nd\n", true},
      {{"...", "x"}, "a\nb\n", false},
      {{}, "", true},
      {{}, "surprise\n", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(OutputMatches(c.shown, c.output), c.matches) << c.output;
}

}  // namespace
