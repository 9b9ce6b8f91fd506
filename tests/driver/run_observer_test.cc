// What a run tells its observer, checked against what it writes.
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <locale>
#include <string>

#include <gtest/gtest.h>

#include "driver/run_observer.h"
#include "driver/tbl.h"
#include "tests/test_util.h"
#include "textio/utf8.h"

namespace {

// Writes every event as a line of text, and the document as written.
class Log : public RunObserver {
 public:
  std::string events;
  std::wstring written;

  void SectionLoaded(int section) override { Add("loaded", section); }
  void RecordRead(long number) override { Add("read", number); }
  void RecordDone(long number) override { Add("done", number); }
  void LinePrinted(int section, int index) override {
    Add("line", section, index);
  }
  void Placed(const Placement& p) override {
    events += std::string("placed ") + (p.record ? "$" : "&") +
              std::to_string(p.field) + " " + std::to_string(p.start) + "-" +
              std::to_string(p.end) + (p.truncating ? " cut " : " ") +
              std::to_string(p.placed) + "/" + std::to_string(p.cut) + "/" +
              std::to_string(p.left) + "\n";
  }
  void Message(int n, int section, int index) override {
    Add("message", n, section, index);
  }
  void Step(int section, int index) override { Add("step", section, index); }
  void Wrote(const wchar_t* text, size_t n) override { written.append(text, n); }

 private:
  template <typename... Numbers>
  void Add(const char* what, Numbers... numbers) {
    events += what;
    ((events += " " + std::to_string(numbers)), ...);
    events += "\n";
  }
};

TEST(RunObserverTest, EventsFollowTheRunAndTheTapSeesTheDocument) {
  TempDir dir;
  dir.Write("form.1", "Name: $1     ?\nCode $$2?\n>repeat 5:1\nend\n");
  dir.Write("table.txt", "$1;Alice\n$2;ABCDEFGH\n@\n");
  const pid_t child = fork();
  if (child == 0) {
    if (chdir(dir.path().c_str()) != 0 || !freopen("/dev/null", "w", stdout))
      _exit(2);
    std::locale::global(std::locale("C.UTF-8"));
    std::setlocale(LC_ALL, "C.UTF-8");
    Log log;
    SetRunObserver(&log);
    Tbl::BlankFile = L"form";
    Tbl::InpFile = L"table.txt";
    Tbl::OutFile = L"doc";
    const int status = Tbl().Execute();
    SetRunObserver(nullptr);
    FILE* out = fopen("events", "wb");
    const std::string written = ToUtf8(log.written);
    fprintf(out, "%s--\n%s", log.events.c_str(), written.c_str());
    fclose(out);
    _exit(status);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  const std::string document = ReadFile(dir.path() + "/doc");
  EXPECT_EQ(ReadFile(dir.path() + "/events"),
            "loaded 1\n"
            "read 1\n"
            "line 1 0\n"
            "placed $1 6-13 5/0/0\n"
            "line 1 1\n"
            "placed $2 5-8 cut 4/4/0\n"
            "done 1\n"
            "step 1 2\n"
            "message 7 1 2\n"
            "line 1 3\n"
            "--\n" +
                document);
  EXPECT_EQ(document.substr(0, 25), "Name: Alice   \nCode ABCD\n");
}

}  // namespace
