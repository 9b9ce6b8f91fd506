#include "textio/helpers.h"

#include <codecvt>
#include <locale>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "textio/utf8.h"

namespace {

TEST(WsplitpathTest, SplitsDirectoryNameAndExtension) {
  const struct {
    std::wstring path, dir, name, ext;
  } cases[] = {
      {L"dir\\form.txt", L"dir/", L"form", L"txt"},
      {L"form", L"", L"form", L""},
      {L"dir/", L"dir/", L"", L""},
      {L"a.b.c", L"", L"a.b", L"c"},
      {L"dir.1/form", L"dir.1/", L"form", L""},
      {L".hidden", L"", L"", L"hidden"},
      {L"form.", L"", L"form", L""},
      {L"", L"", L"", L""},
      {L"/x\\y/f.1", L"/x/y/", L"f", L"1"},
  };
  for (const auto& c : cases) {
    std::wstring dir = L"old", name = L"old", ext = L"old";
    _wsplitpath(c.path, dir, name, ext);
    const std::string note(c.path.begin(), c.path.end());
    EXPECT_EQ(dir, c.dir) << note;
    EXPECT_EQ(name, c.name) << note;
    EXPECT_EQ(ext, c.ext) << note;
  }
}

TEST(GetCurrentTimeStringTest, FormatsDateAndGuardsItsBuffer) {
  const std::wstring date = GetCurrentTimeString("%d.%m.%Y");
  ASSERT_EQ(date.size(), 10u);
  EXPECT_EQ(date[2], L'.');
  EXPECT_EQ(date[5], L'.');
  EXPECT_GE(std::stoi(date.substr(6)), 2024);

  EXPECT_EQ(GetCurrentTimeString(std::string(79, 'x').c_str()),
            std::wstring(79, L'x'));
  EXPECT_EQ(GetCurrentTimeString(std::string(80, 'x').c_str()), L"");
}

TEST(DBStringTest, DecodesOrMarksTheWholeText) {
  const struct {
    const char* text;
    std::wstring expected;
    const char* note;
  } cases[] = {
      {nullptr, L"", "null"},
      {"", L"", "empty"},
      {"\xD0\x9E\xD0\xBA", L"\x41E\x43A", "Cyrillic"},
      {"\xFF", L"?utf-32?", "byte that cannot begin a sequence"},
      {"a\x80z", L"?utf-32?", "stray continuation byte"},
      {"\xD0z", L"?utf-32?", "bad continuation byte"},
      {"\xC0\x80", L"?utf-32?", "overlong"},
      {"\xF4\x90\x80\x80", L"?utf-32?", "above U+10FFFF"},
      {"\xED\xA0\x80", L"\xD800", "encoded surrogate accepted"},
      {"ab\xE2\x82", L"ab", "cut sequence at the end ends the text"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(static_cast<const std::wstring&>(DBString(c.text)), c.expected)
        << c.note;
  }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
using Facet = std::wstring_convert<std::codecvt_utf8<wchar_t>>;
#pragma GCC diagnostic pop

// What a conversion gave: its text, or the message it threw.
template <typename Fn>
std::string Outcome(Fn convert) {
  try {
    return "ok:" + convert();
  } catch (const std::range_error& e) {
    return std::string("threw:") + e.what();
  }
}

std::string Bytes(const std::wstring& w) {
  std::string s;
  for (wchar_t c : w)
    s += std::to_string(static_cast<long>(c)) + ",";
  return s;
}

TEST(Utf8Test, ToUtf8MatchesTheStandardFacet) {
  Facet facet;
  std::vector<std::wstring> inputs;
  const long edges[] = {0,       0x7F,     0x80,     0x7FF,      0x800,
                        0xD7FF,  0xD800,   0xDFFF,   0xE000,     0xFFFF,
                        0x10000, 0x10FFFF, 0x110000, 0x7FFFFFFF, -1};
  for (long e : edges) {
    inputs.push_back(std::wstring(1, static_cast<wchar_t>(e)));
    inputs.push_back(L"a" + std::wstring(1, static_cast<wchar_t>(e)) + L"b");
  }
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> length(0, 6), kind(0, 9);
  std::uniform_int_distribution<uint32_t> any;
  for (int i = 0; i < 3000; ++i) {
    std::wstring w;
    for (int n = length(rng); n > 0; --n) {
      const uint32_t v = any(rng);
      // Mostly valid code points of every length, sometimes anything.
      const uint32_t limits[] = {0x80, 0x800, 0x10000, 0x110000};
      w.push_back(static_cast<wchar_t>(kind(rng) == 0 ? v : v % limits[v % 4]));
    }
    inputs.push_back(w);
  }
  for (const auto& w : inputs) {
    EXPECT_EQ(Outcome([&] { return ToUtf8(w); }),
              Outcome([&] { return facet.to_bytes(w); }))
        << Bytes(w);
  }
}

TEST(Utf8Test, FromUtf8MatchesTheStandardFacet) {
  Facet facet;
  auto check = [&](const std::string& s) {
    const auto mine = Outcome([&] { return Bytes(FromUtf8(s)); });
    const auto real = Outcome([&] { return Bytes(facet.from_bytes(s)); });
    if (mine != real) {
      ADD_FAILURE() << "bytes " << testing::PrintToString(s) << ": " << mine
                    << " vs " << real;
    }
  };
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      check({static_cast<char>(a), static_cast<char>(b)});
    }
  }
  // Bytes that decide the rules: ASCII, continuation edges, every kind of
  // lead byte and the edges that make overlong or too-large forms.
  const unsigned char pool[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0,
                                0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xED,
                                0xEF, 0xF0, 0xF3, 0xF4, 0xF5, 0xF8, 0xFF};
  std::mt19937 rng(11);
  std::uniform_int_distribution<size_t> pick(0, sizeof(pool) - 1);
  std::uniform_int_distribution<int> length(1, 7);
  for (int i = 0; i < 40000; ++i) {
    std::string s;
    for (int n = length(rng); n > 0; --n) {
      s.push_back(static_cast<char>(pool[pick(rng)]));
    }
    check(s);
  }
}

}  // namespace
