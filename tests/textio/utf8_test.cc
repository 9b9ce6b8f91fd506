// The program's UTF-8 converters against the standard facet.
#include <codecvt>
#include <locale>
#include <random>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tests/test_util.h"
#include "textio/utf8.h"

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
using Facet = std::wstring_convert<std::codecvt_utf8<wchar_t>>;
#pragma GCC diagnostic pop

// What a conversion gave, or the message it threw.
template <typename Fn>
std::string Outcome(Fn convert) {
  try {
    return "ok:" + testing::PrintToString(convert());
  } catch (const std::range_error& e) {
    return std::string("threw:") + e.what();
  }
}

// The program's own converters stand in for the standard facet: same text,
// same refusals, on random text rich in the values where the rules change.
TEST(Utf8Test, AgreesWithTheStandardFacet) {
  const long edges[] = {0,      0x80,    0x800,    0xD800,
                        0xE000, 0x10000, 0x110000, 0x80000000};
  const unsigned char bytes[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F,
                                 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0,
                                 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xF8, 0xFF};
  Facet facet;
  std::mt19937 rng(7);
  for (int i = 0; i < 40000; ++i) {
    std::wstring w;
    std::string s;
    // Short texts of such values, and longer ones of mostly ASCII, where
    // the encoder's blocks meet them at any place.
    const bool mostly_ascii = i % 2 == 1;
    for (int n = mostly_ascii ? rng() % 100 : rng() % 6; n > 0; --n) {
      const uint32_t v = rng();  // an edge, one below it, or any code point
      long c = v % 3 == 2 ? v % 0x110000 : edges[v % 8] - v % 2;
      if (mostly_ascii) {
        // Now and then an edge or one below it (a null, a negative value).
        c = v % 8 != 0 ? L' ' + v % 95 : edges[rng() % 8] - rng() % 2;
      }
      w.push_back(static_cast<wchar_t>(c));
      s.push_back(static_cast<char>(bytes[rng() % sizeof bytes]));
    }
    EXPECT_EQ(Outcome([&] { return ToUtf8(w); }),
              Outcome([&] { return facet.to_bytes(w); }))
        << testing::PrintToString(w);
    EXPECT_EQ(Outcome([&] { return FromUtf8(s); }),
              Outcome([&] { return facet.from_bytes(s); }))
        << testing::PrintToString(s);
  }
}

}  // namespace
