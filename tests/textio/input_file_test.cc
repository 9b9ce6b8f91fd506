#include "textio/input_file.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"

namespace {

constexpr long kFail = -1;  // Marks a Get that returned false.
constexpr int kMax = 4095;

class InputFileTest : public testing::Test {
 protected:
  // Writes bytes to a fresh file and opens it in file_.
  void OpenBytes(const std::string& bytes) {
    const std::string path = dir_.Write("in.txt", bytes);
    ASSERT_TRUE(file_.Open(Widen(path).c_str()));
  }

  // Calls GetLine until it returns false; the final call must leave an
  // empty, terminated buffer.
  std::vector<std::wstring> ReadLines() {
    std::vector<std::wstring> lines;
    std::vector<wchar_t> buf(kMax + 2, L'#');
    for (int guard = 0; guard < 100 && file_.GetLine(buf.data(), kMax);
         ++guard) {
      lines.emplace_back(buf.data());
    }
    EXPECT_EQ(buf[0], 0);
    return lines;
  }

  TempDir dir_;
  InputFile file_;
};

TEST_F(InputFileTest, DecodesLenientlyOneCharacterAtATime) {
  const struct {
    std::string bytes;
    std::vector<long> expected;
    const char* note;
  } cases[] = {
      {"", {kFail}, "empty file"},
      {"a\r\n", {'a', 0x0D, 0x0A, kFail}, "line ends pass through"},
      {"\xC3\xA9", {0xE9, kFail}, "two bytes"},
      {"\xE2\x82\xAC", {0x20AC, kFail}, "three bytes"},
      {"\xF0\x9F\x98\x80", {0x1F600, kFail}, "four bytes"},
      {"\xF7\xBF\xBF\xBF", {0x1FFFFF, kFail}, "largest four-byte value"},
      {"\xC1\x81", {'A', kFail}, "overlong form delivered as is"},
      {"\xED\xA0\x80", {0xD800, kFail}, "surrogate delivered as is"},
      {"\xC3\x41", {0xC1, kFail}, "continuation byte not checked"},
      {"\x80z", {kFail, 'z', kFail}, "lone continuation byte consumed"},
      {"\xF8z\xFFq", {kFail, 'z', kFail, 'q', kFail}, "F8 and FF"},
      {"\xC3", {kFail, kFail}, "cut two-byte sequence"},
      {"\xF0\x9F\x98", {kFail, kFail}, "cut four-byte sequence"},
      {"\xEF\xBB\xBFz", {0xFEFF, 'z', kFail}, "no byte-order mark"},
  };
  for (const auto& c : cases) {
    const std::string path = dir_.Write("in.txt", c.bytes);
    InputFile file(Widen(path).c_str());
    for (size_t i = 0; i < c.expected.size(); ++i) {
      wchar_t ch = L'#';
      const bool ok = file.Get(ch);
      if (c.expected[i] == kFail) {
        EXPECT_FALSE(ok) << c.note << ", read " << i;
        EXPECT_EQ(ch, L'#') << c.note << ", read " << i;
      } else {
        EXPECT_TRUE(ok) << c.note << ", read " << i;
        EXPECT_EQ(static_cast<long>(ch), c.expected[i])
            << c.note << ", read " << i;
      }
    }
  }
}

TEST_F(InputFileTest, GetLineSplitsCutsAndDropsCarriageReturns) {
  const std::wstring a4095(4095, L'a');
  const std::wstring a4096(4096, L'a');
  const struct {
    std::string bytes;
    std::vector<std::wstring> expected;
    const char* note;
  } cases[] = {
      {"", {}, "empty file"},
      {"ab\r\nc\n", {L"ab\n", L"c\n"}, "CR before LF"},
      {"a\rb\n", {L"ab\n"}, "CR inside the line"},
      {"\r\r\r", {}, "carriage returns only"},
      {"x\ny", {L"x\n", L"y"}, "last line without LF"},
      {"ab\x80xy\n", {L"ab", L"xy\n"}, "bad byte ends the line"},
      {"\x80x\n", {}, "bad byte at line start reads as the end"},
      {"\xD0\x9F\xE2\x82\xAC\n", {L"\x41F\x20AC\n"}, "multi-byte"},
      {std::string(4095, 'a') + "\nb\n",
       {a4095 + L"\n", L"b\n"},
       "4095 characters and LF fit"},
      {std::string(4096, 'a') + "\nb\n",
       {a4096, L"b\n"},
       "4096 characters: the LF is lost"},
      {std::string(4096, 'a') + "\r\nb\n",
       {a4096, L"b\n"},
       "4096 characters: CR dropped, LF lost"},
      {std::string(4097, 'a') + "\nb\n",
       {a4096, L"\n", L"b\n"},
       "4097 characters: the last one is lost"},
  };
  for (const auto& c : cases) {
    OpenBytes(c.bytes);
    EXPECT_EQ(ReadLines(), c.expected) << c.note;
  }
}

TEST_F(InputFileTest, PushBackHasOneSlotAndComesFirst) {
  OpenBytes("ab\nq");
  file_.PutBack(L'x');
  wchar_t buf[kMax + 2];
  ASSERT_TRUE(file_.GetLine(buf, kMax));
  EXPECT_EQ(std::wstring(buf), L"xab\n");

  file_.PutBack(L'a');
  file_.PutBack(L'b');
  wchar_t ch = 0;
  ASSERT_TRUE(file_.Get(ch));
  EXPECT_EQ(ch, L'b');
  ASSERT_TRUE(file_.Get(ch));
  EXPECT_EQ(ch, L'q');

  file_.PutBack(L'\r');
  EXPECT_FALSE(file_.GetLine(buf, kMax)) << "a pushed-back CR is dropped";
  EXPECT_EQ(buf[0], 0);
}

TEST_F(InputFileTest, FilePointerCountsBytes) {
  OpenBytes("a\xC3\xB1\xE2\x82\xAC\xF0\x9F\x98\x80\nzz\n");
  wchar_t buf[kMax + 2];
  EXPECT_EQ(file_.GetFilePointer(), 0);
  ASSERT_TRUE(file_.GetLine(buf, kMax));
  const long second = file_.GetFilePointer();
  EXPECT_EQ(second, 11);
  ASSERT_TRUE(file_.GetLine(buf, kMax));
  EXPECT_FALSE(file_.GetLine(buf, kMax));

  file_.SetFilePointer(second);
  ASSERT_TRUE(file_.GetLine(buf, kMax));
  EXPECT_EQ(std::wstring(buf), L"zz\n");
  file_.SetFilePointer(0);
  ASSERT_TRUE(file_.GetLine(buf, kMax));
  EXPECT_EQ(std::wstring(buf), L"a\xF1\x20AC\x1F600\n");

  // A pushed-back character is not counted back.
  file_.SetFilePointer(1);
  wchar_t ch = 0;
  ASSERT_TRUE(file_.Get(ch));
  file_.PutBack(ch);
  EXPECT_EQ(file_.GetFilePointer(), 3);
}

TEST_F(InputFileTest, OpenReplacesTheFileAndKeepsThePushBack) {
  OpenBytes("first");
  wchar_t ch = 0;
  ASSERT_TRUE(file_.Get(ch));
  file_.PutBack(L'x');
  const std::string other = dir_.Write("other.txt", "second");
  ASSERT_TRUE(file_.Open(Widen(other).c_str()));
  ASSERT_TRUE(file_.Get(ch));
  EXPECT_EQ(ch, L'x');
  ASSERT_TRUE(file_.Get(ch));
  EXPECT_EQ(ch, L's');

  EXPECT_FALSE(file_.Open(L""));
  EXPECT_FALSE(file_.Get(ch));
  wchar_t buf[kMax + 2];
  EXPECT_FALSE(file_.GetLine(buf, kMax));
  EXPECT_EQ(buf[0], 0);
}

}  // namespace
