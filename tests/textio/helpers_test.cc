// Path splitting and the time text.
#include <string>

#include <gtest/gtest.h>

#include "tests/test_util.h"
#include "textio/helpers.h"

namespace {

TEST(HelpersTest, WsplitpathKeepsTheSlashAndSplitsAtTheLastDot) {
  const struct {
    std::wstring path, expected;  // dir|name|ext
  } rows[] = {
      {L"dir\\form.txt", L"dir/|form|txt"},
      {L"form", L"|form|"},
      {L"dir/", L"dir/||"},
      {L"a.b.c", L"|a.b|c"},
      {L"dir.1/form", L"dir.1/|form|"},
      {L".hidden", L"||hidden"},
      {L"form.", L"|form|"},
      {L"", L"||"},
      {L"/x\\y/f.1", L"/x/y/|f|1"},
  };
  for (const auto& row : rows) {
    std::wstring dir = L"old", name = L"old", ext = L"old";
    _wsplitpath(row.path, dir, name, ext);
    EXPECT_EQ(dir + L"|" + name + L"|" + ext, row.expected)
        << testing::PrintToString(row.path);
  }
}

TEST(HelpersTest, TimeTooLongForItsBufferGivesNothing) {
  EXPECT_EQ(GetCurrentTimeString(std::string(79, 'x').c_str()),
            std::wstring(79, L'x'));
  EXPECT_EQ(GetCurrentTimeString(std::string(80, 'x').c_str()), L"");
}

}  // namespace
