#include "textio/output_file.h"

#include <climits>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tests/test_util.h"

namespace {

// Sends std::cout into a string for its lifetime.
class CoutCapture {
 public:
  CoutCapture() : m_Old(std::cout.rdbuf(m_Sink.rdbuf())) {}
  ~CoutCapture() { std::cout.rdbuf(m_Old); }
  std::string Text() const { return m_Sink.str(); }

 private:
  std::ostringstream m_Sink;
  std::streambuf* m_Old;
};

TEST(OutputFileTest, WritesUtf8WithNothingAdded) {
  const struct {
    std::wstring text;
    std::string bytes;
    const char* note;
  } cases[] = {
      {L"\x41F\x440\x438", "\xD0\x9F\xD1\x80\xD0\xB8", "Cyrillic"},
      {L"\n", "\n", "a line end is one LF"},
      {L"a\r\n", "a\r\n", "CR written as it stands"},
      {L"", "", "empty text"},
      {L"\xD800", "\xED\xA0\x80", "surrogate as three bytes"},
      {L"\x10FFFF", "\xF4\x8F\xBF\xBF", "largest code point"},
  };
  TempDir dir;
  for (const auto& c : cases) {
    {
      OutputFile out(dir.WFile("out.txt").c_str(), false);
      out << c.text;
    }
    EXPECT_EQ(dir.Read("out.txt"), c.bytes) << c.note;
  }
}

TEST(OutputFileTest, WritesLongsAndChains) {
  TempDir dir;
  {
    OutputFile out(dir.WFile("out.txt").c_str(), false);
    out << 0L << L"|" << -7L << L"|" << LONG_MIN << L"|" << LONG_MAX
        << std::wstring(L"\n");
  }
  EXPECT_EQ(dir.Read("out.txt"),
            "0|-7|-9223372036854775808|9223372036854775807\n");
}

TEST(OutputFileTest, RefusesTextsItCannotWrite) {
  TempDir dir;
  {
    OutputFile out(dir.WFile("out.txt").c_str(), false);
    out << L"ok";
    for (wchar_t bad :
         {static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)}) {
      try {
        out << std::wstring(1, bad);
        ADD_FAILURE() << "no throw for " << static_cast<long>(bad);
      } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "wstring_convert::to_bytes");
      }
    }
    const wchar_t* null_text = nullptr;
    EXPECT_THROW(out << null_text, std::logic_error);
  }
  EXPECT_EQ(dir.Read("out.txt"), "ok");
}

TEST(OutputFileTest, ConsoleOnlyForTheSharedConstant) {
  TempDir dir;
  ScopedChdir chdir(dir.path());
  {
    CoutCapture capture;
    OutputFile console(kConName, false);
    EXPECT_TRUE(console.m_Console);
    EXPECT_EQ(console.m_Stream, nullptr);
    console << L"\x41F\n" << -15L;
    EXPECT_EQ(capture.Text(), "\xD0\x9F\n-15");
  }
  EXPECT_EQ(dir.Read("CON"), "") << "the constant opens no file";

  const std::wstring copy = kConName;
  {
    CoutCapture capture;
    OutputFile file(copy.c_str(), false);
    EXPECT_FALSE(file.m_Console);
    file << L"doc";
    EXPECT_EQ(capture.Text(), "");
  }
  EXPECT_EQ(dir.Read("CON"), "doc");
}

TEST(OutputFileTest, AppendStartsEmptyAndMissingDirectoryIsUnopened) {
  TempDir dir;
  dir.Write("out.txt", "earlier run\n");
  {
    OutputFile out(dir.WFile("out.txt").c_str(), true);
    ASSERT_NE(out.m_Stream, nullptr);
    EXPECT_EQ(dir.Read("out.txt"), "");
    out << L"new";
  }
  EXPECT_EQ(dir.Read("out.txt"), "new");

  OutputFile lost(dir.WFile("missing/out.txt").c_str(), false);
  EXPECT_EQ(lost.m_Stream, nullptr);
  EXPECT_FALSE(lost.m_Console);
  lost << L"dropped" << 1L;
}

}  // namespace
