// Runs of plain bytes taken from a stream's own buffer, and the block
// search over wide text.
#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"
#include "textio/char_blocks.h"
#include "textio/input_file.h"
#include "textio/stream_buffer.h"

namespace {

// The run of plain bytes taken from a stream's buffer against the bytes of
// the file: all of them plain and the next one a stop, unless the room or
// the buffer ran out. With the stops of the table's text, at random rooms,
// over text whose stops come close together and far apart.
TEST(StreamBufferTest, TakeWhileStopsAtTheFirstStopByte) {
  using Stops = ByteStops<0, '\n', '$', '@', '\\'>;
  const std::string stops_and_more = std::string("\n$@\\\x01\x7F\x80\xC3\xFF", 9) +
                                     std::string(1, '\0');
  std::mt19937 rng(5);
  std::string bytes;
  while (bytes.size() < 100000) {
    const size_t plain = rng() % 4 == 0 ? rng() % 300 : rng() % 12;
    for (size_t k = 0; k < plain; ++k)
      bytes.push_back(static_cast<char>(' ' + rng() % 95));
    bytes.push_back(stops_and_more[rng() % stops_and_more.size()]);
  }
  TempDir dir;
  const std::wstring name = dir.Write("in", bytes);
  {
    InputFile file(name.c_str());
    std::vector<wchar_t> out(200);
    size_t pos = 0;
    while (pos < bytes.size()) {
      const size_t room = 1 + rng() % out.size();
      const size_t taken = StreamBuffer::TakeWhile<Stops>(file.m_Stream, out.data(), room);
      ASSERT_LE(taken, room);
      for (size_t k = 0; k < taken; ++k) {
        ASSERT_EQ(out[k], static_cast<wchar_t>(
                              static_cast<unsigned char>(bytes[pos + k])))
            << "at " << pos + k;
        ASSERT_FALSE(Stops::Stops(static_cast<unsigned char>(bytes[pos + k])))
            << "at " << pos + k;
      }
      pos += taken;
      const int next = getc(file.m_Stream);
      ASSERT_EQ(next, static_cast<unsigned char>(bytes[pos])) << "at " << pos;
      // A plain byte left behind: the room was used up, or the stream's
      // buffer, which holds whole blocks of the file.
      if (!Stops::Stops(static_cast<unsigned char>(next))) {
        ASSERT_TRUE(taken == room || pos % 4096 == 0 ||
                    !FORMFILL_STREAM_INTERNALS)
            << "at " << pos;
      }
      ++pos;
    }
  }
}

// The block search against a plain loop, over text full of characters that
// share their low bits with a wanted one (a narrowing that cut instead of
// saturating would take them for it), at every start and many ends, so that
// short ranges, whole blocks and the overlapping last block all come up.
// Once for the stretch ends of a line, once for the separator or null
// that ends a field's value.
template <wchar_t... Cs>
void CheckFindFirstOf(const std::vector<wchar_t>& others) {
  const std::vector<wchar_t> wanted = {Cs...};
  std::mt19937 rng(11);
  for (int round = 0; round < 200; ++round) {
    std::wstring text(rng() % 80, L' ');
    for (wchar_t& c : text) {
      // Mostly characters that are not wanted, as in a line's text.
      c = rng() % 8 == 0 ? wanted[rng() % wanted.size()]
                         : others[rng() % others.size()];
    }
    for (size_t from = 0; from <= text.size(); ++from) {
      for (size_t to = from; to <= text.size(); to += 1 + rng() % 7) {
        size_t expected = from;
        while (expected < to && std::find(wanted.begin(), wanted.end(),
                                          text[expected]) == wanted.end()) {
          ++expected;
        }
        ASSERT_EQ(FindFirstOf<Cs...>(text.data(), from, to), expected)
            << "round " << round << " from " << from << " to " << to;
      }
    }
  }
}

TEST(CharBlocksTest, FindFirstOfAgreesWithAPlainLoop) {
  {
    CheckFindFirstOf<L'?', L'$', L'&'>(
        {L' ', L'a', L'\x7F', L'\x424', L'\x13F', L'\x10026', L'\x8000',
         static_cast<wchar_t>(-220)});
    CheckFindFirstOf<L'\x01', L'\0'>(
        {L' ', L'a', L'\x100', L'\x10000', L'\x101',
         static_cast<wchar_t>(-256), static_cast<wchar_t>(-1)});
  }
}

}  // namespace
