// The manual pages as man shows them: rendered by groff without a single
// warning, with their UTF-8 text (the Russian messages, "×", the dashes)
// coming out as written whatever the reader's locale, and formfill(5)'s
// message catalogue the one the program prints.
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "driver/tbl.h"
#include "tests/table/program.h"
#include "tests/test_util.h"
#include "textio/utf8.h"

namespace {

const std::string kSource = FORMFILL_SOURCE_DIR;
const char* const kPages[] = {"formfill.1", "formfill-check.1",
                              "formfill-table.1", "formfill.5"};

// The page rendered for a terminal, Latin-1 being what groff takes a page
// without an encoding line for (as it does in the C locale); warnings to
// err.
RunResult Render(const std::string& page, bool check_only) {
  TempDir temp;
  const std::string work = temp.path() + "/work";
  std::filesystem::create_directory(work);
  std::string command = "groff -k -D latin1 -man -Tutf8 -ww ";
  if (check_only)
    command += "-z ";
  return RunProgram(work, {"/bin/sh", "-c", command + "\"$0\"", page});
}

// The characters beyond ASCII in UTF-8 text, each as its bytes.
std::set<std::string> NonAscii(const std::string& text) {
  std::set<std::string> found;
  for (size_t i = 0; i < text.size(); ++i) {
    if (static_cast<unsigned char>(text[i]) < 0xC0)
      continue;
    size_t end = i + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
      ++end;
    found.insert(text.substr(i, end - i));
  }
  return found;
}

class ManualPageTest : public testing::TestWithParam<const char*> {};

TEST_P(ManualPageTest, RendersWithoutWarningsInItsDeclaredEncoding) {
  const std::string page = kSource + "/" + GetParam();
  const std::string source = ReadFile(page);
  ASSERT_EQ(source.substr(0, source.find('\n')), ".\\\" -*- coding: UTF-8 -*-");
  const RunResult check = Render(page, true);
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.err, "") << GetParam();
  const RunResult shown = Render(page, false);
  ASSERT_EQ(shown.status, 0) << shown.err;
  for (const std::string& c : NonAscii(source))
    EXPECT_NE(shown.out.find(c), std::string::npos)
        << GetParam() << ": \"" << c << "\" is lost in the rendering";
}

INSTANTIATE_TEST_SUITE_P(Pages, ManualPageTest, testing::ValuesIn(kPages),
                         [](const testing::TestParamInfo<const char*>& info) {
                           std::string name;
                           for (const char* c = info.param; *c != 0; ++c)
                             name += isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
                           return name;
                         });

// Each message stands on a line of its own in formfill(5), right after its
// number, in roff's spelling of "-" and "\".
TEST(ManualPageTest, CatalogueIsTheProgramsOwn) {
  std::string page = ReadFile(kSource + "/formfill.5");
  for (const auto& [roff, plain] : {std::pair{"\\-", "-"}, {"\\e", "\\"}})
    for (size_t at; (at = page.find(roff)) != std::string::npos;)
      page.replace(at, 2, plain);
  for (int n = 0; n <= 12; ++n) {
    const std::string text = ToUtf8(Tbl::Err(static_cast<Tbl::numErr>(n)));
    const std::string entry = ".B " + std::to_string(n) + "\n" + text + "\n";
    EXPECT_NE(page.find(entry), std::string::npos)
        << "message " << n << " \"" << text << "\" is missing from formfill.5";
  }
}

}  // namespace
