// contrib/vim in a headless Vim: the tutorial's files are recognised and
// their markers highlighted, and formfill-check's diagnostics land in the
// quickfix list with their places and kinds.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/table/program.h"
#include "tests/test_util.h"

namespace {

const std::string kSource = FORMFILL_SOURCE_DIR;

// Loads contrib/vim, runs script and gives what it wrote with Out(); an
// error anywhere ends Vim with a status other than 0.
RunResult RunVim(const std::string& script) {
  TempDir temp;
  const std::string work = temp.path() + "/work";
  std::filesystem::copy(kSource + "/examples/tutorial", work);
  std::ofstream(work + "/test.vim")
      << "let g:out = []\n"
         "function Out(text)\n  call add(g:out, a:text)\nendfunction\n"
         "function Group(line, col)\n"
         "  return synIDattr(synID(a:line, a:col, 1), 'name')\nendfunction\n"
      << script
      << "if v:errmsg != '' | call Out('error: ' . v:errmsg) | endif\n"
         "call writefile(g:out, 'out.txt')\nqa!\n";
  RunResult run = RunProgram(
      work, {"/bin/sh", "-c",
             "vim -Nu NONE -i NONE -es --cmd \"set rtp^=$0\" -S test.vim",
             kSource + "/contrib/vim"});
  run.out = ReadFile(work + "/out.txt");
  return run;
}

bool HaveVim() {
  std::istringstream path(getenv("PATH") != nullptr ? getenv("PATH") : "");
  for (std::string dir; std::getline(path, dir, ':');)
    if (!dir.empty() && access((dir + "/vim").c_str(), X_OK) == 0)
      return true;
  return false;
}

TEST(VimTest, HighlightsTemplatesAndTables) {
  if (!HaveVim())
    GTEST_SKIP() << "no vim here";
  const struct {
    const char* file;
    int line, col;
    const char* group;
  } cases[] = {
      {"form.1", 1, 1, "formfillHeaderField"},    // &1=
      {"form.1", 2, 50, "formfillCounter"},       // ##
      {"form.1", 6, 1, "formfillLabel"},          // >10
      {"form.1", 7, 7, "formfillRecordField"},    // $2
      {"form.1", 7, 36, "formfillStretchEnd"},    // ?
      {"form.1", 8, 1, "formfillJump"},           // >jump to
      {"form.1", 8, 13, "formfillCondition"},     // $
      {"form.1", 16, 12, "formfillRecordField"},  // $$5
      {"form.3", 1, 43, "formfillHeaderField"},   // &4>
      {"table.txt", 1, 1, "formfillHeaderSelector"},
      {"table.txt", 1, 9, "formfillEscape"},      // \&
      {"table.txt", 5, 1, "formfillRecordSelector"},
      {"table.txt", 9, 1, "formfillRecordEnd"},
      {"table.txt", 27, 1, "formfillPageMark"},
  };
  std::string script = "filetype on\nsyntax on\n";
  std::string expected;
  std::string file;
  for (const auto& c : cases) {
    if (file != c.file)
      script += std::string("edit ") + (file = c.file) + "\n";
    const std::string place = std::to_string(c.line) + ", " + std::to_string(c.col);
    script += "call Out(&filetype . ' ' . Group(" + place + "))\n";
    expected += std::string(c.file == std::string("table.txt") ? "formfilltable "
                                                               : "formfill ") +
                c.group + "\n";
  }
  const RunResult run = RunVim(script);
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.out, expected);
}

TEST(VimTest, QuickfixReadsTheCheckersDiagnostics) {
  if (!HaveVim())
    GTEST_SKIP() << "no vim here";
  const RunResult run = RunVim(
      "compiler! formfill\n"
      "call Out(&makeprg)\n"
      "cgetexpr ['form.1:3:7: warning: open [-Wopen-stretch]', ' Name: $1',"
      " '       ^', 'table.txt:9:2: error: lost [-Wlost-text]',"
      " 'formfill-check: note: no form.3 [-Wno-closing]']\n"
      "for e in getqflist()\n"
      "  call Out(bufname(e.bufnr) . ':' . e.lnum . ':' . e.col . ' ' ."
      " e.type . ' ' . e.text)\n"
      "endfor\n");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "formfill-check\n"
            "form.1:3:7 w open [-Wopen-stretch]\n"
            "table.txt:9:2 e lost [-Wlost-text]\n"
            ":0:0 n no form.3 [-Wno-closing]\n");
}

}  // namespace
