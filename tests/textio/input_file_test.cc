// The input file: the decoder's failures, long lines, byte positions, and
// the block reads from the stream's buffer against a byte-by-byte model.
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"
#include "textio/input_file.h"

namespace {

constexpr int kMax = 4095;

// Each row pushes back the characters of `pushed` in turn, then reads by Get
// (one read per expected character, "!" for a failed one, which must leave
// its argument alone) or by GetLine (each line and "|", until it fails).
TEST(InputFileTest, DecodesLenientlyDropsCarriageReturnsAndCutsLongLines) {
  const std::wstring a4096(4096, L'a');
  const struct {
    bool by_line;
    std::string bytes, pushed;
    std::wstring expected;
    const char* note;
  } rows[] = {
      {false, "", "", L"!", "empty file"},
      {false, "a\r\n", "", L"a\r\n!", "line ends pass through"},
      {false, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "", L"\xE9\x20AC\x1F600!",
       "two, three and four bytes"},
      {false, "\xF7\xBF\xBF\xBF", "", L"\x1FFFFF!", "largest four-byte value"},
      {false, "\xC1\x81\xED\xA0\x80\xC3\x41", "", L"A\xD800\xC1!",
       "overlong, surrogate, continuation byte: all taken as they come"},
      {false, "\x80z\xF8y\xFFq", "", L"!z!y!q!", "bad lead byte consumed"},
      {false, "\xC3", "", L"!!", "cut two-byte sequence"},
      {false, "\xF0\x9F\x98", "", L"!!", "cut four-byte sequence"},
      {false, "\xEF\xBB\xBFz", "", L"\xFEFFz!", "no byte-order mark"},
      {false, "q", "ab", L"bq!", "one push-back slot: the last wins"},
      {true, "ab\r\nc\n", "", L"ab\n|c\n|", "CR before LF"},
      {true, "a\rb\n\r\r", "", L"ab\n|", "CR anywhere, CRs alone"},
      {true, "x\ny", "", L"x\n|y|", "last line without LF"},
      {true, "ab\x80xy\n", "", L"ab|xy\n|", "bad byte ends the line"},
      {true, "\x80x\n", "", L"", "bad byte at the start reads as the end"},
      {true, "ab\nq", "x", L"xab\n|q|", "pushed-back character first"},
      {true, "", "\r", L"", "pushed-back CR dropped"},
      {true, std::string(4095, 'a') + "\nb\n", "",
       std::wstring(4095, L'a') + L"\n|b\n|", "4095 characters and LF fit"},
      {true, std::string(4096, 'a') + "\r\nb\n", "", a4096 + L"|b\n|",
       "4096 characters: CR dropped, LF lost"},
      {true, std::string(4097, 'a') + "\nb\n", "", a4096 + L"|\n|b\n|",
       "4097 characters: the last one lost"},
  };
  TempDir dir;
  for (const auto& row : rows) {
    InputFile file(dir.Write("in", row.bytes).c_str());
    for (char c : row.pushed)
      file.PutBack(c);
    std::wstring got;
    // Exactly the room GetLine may use: the sanitizer build sees more.
    std::vector<wchar_t> buf(kMax + 2, L'#');
    while (row.by_line && got.size() < 20000 && file.GetLine(buf.data(), kMax))
      got += std::wstring(buf.data()) + L"|";
    EXPECT_TRUE(!row.by_line || buf[0] == 0)
        << row.note << ": empty at the end";
    for (size_t i = 0; !row.by_line && i < row.expected.size(); ++i) {
      wchar_t ch = L'!';
      got += file.Get(ch) || ch == L'!' ? ch : L'?';
    }
    EXPECT_EQ(got, row.expected) << row.note;
  }
}

TEST(InputFileTest, PositionsAreByteOffsets) {
  TempDir dir;
  InputFile file(
      dir.Write("in", "a\xC3\xB1\xE2\x82\xAC\xF0\x9F\x98\x80\nzz\n").c_str());
  wchar_t buf[kMax + 2], ch = 0;
  ASSERT_TRUE(file.GetLine(buf, kMax));
  EXPECT_EQ(file.GetFilePointer(), 11);
  file.SetFilePointer(1);
  ASSERT_TRUE(file.Get(ch));
  file.PutBack(ch);
  EXPECT_EQ(file.GetFilePointer(), 3) << "a pushed-back character still counts";
  ASSERT_TRUE(file.GetLine(buf, kMax));
  EXPECT_EQ(std::wstring(buf), L"\xF1\x20AC\x1F600\n");
}

// Reads one line from bytes at pos the slow way, a byte and a rule at a
// time, as GetLine is meant to; false when nothing was stored.
bool ModelLine(const std::string& bytes, size_t& pos, std::wstring& line) {
  line.clear();
  for (;;) {
    if (pos >= bytes.size())
      return !line.empty();
    const unsigned b0 = static_cast<unsigned char>(bytes[pos++]);
    int more = b0 < 0x80 ? 0 : (b0 & 0xE0) == 0xC0 ? 1
                             : (b0 & 0xF0) == 0xE0 ? 2
                             : (b0 & 0xF8) == 0xF0 ? 3 : -1;
    if (more < 0)
      return !line.empty();
    unsigned ch = more == 0 ? b0 : b0 & (0x3F >> more);
    for (; more > 0; --more) {
      if (pos >= bytes.size())
        return !line.empty();
      ch = ch << 6 | (static_cast<unsigned char>(bytes[pos++]) & 0x3F);
    }
    if (ch == L'\r')
      continue;
    if (line.size() > static_cast<size_t>(kMax))
      return true;
    line.push_back(static_cast<wchar_t>(ch));
    if (ch == L'\n')
      return true;
  }
}

// Random lines over many buffers' worth of file, read back after seeks to
// line starts near and far, forward and back, must agree with the model:
// the reader takes runs of plain text in blocks from the stream's buffer
// and moves inside that buffer instead of seeking.
TEST(InputFileTest, SeeksAndBlockReadsAgreeWithAByteByByteModel) {
  std::mt19937 rng(7);
  const std::vector<std::string> pieces = {
      "a", "Quantity 12, price 3.50 ", "\r", "\x0c", "\x0e", "\x7f", "\t",
      std::string(1, '\0'), "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
      "\x80", "\xC3", std::string(40, '-'), std::string(5000, 'x')};
  std::string bytes;
  while (bytes.size() < 300000) {
    const size_t n = rng() % 12;
    for (size_t k = 0; k < n; ++k) {
      // The long piece seldom: it crosses buffers and is cut by GetLine.
      size_t pick = rng() % (pieces.size() - 1);
      if (rng() % 200 == 0)
        pick = pieces.size() - 1;
      bytes += pieces[pick];
    }
    bytes += '\n';
  }
  // Where each read starts, a bad byte that ends a read included.
  std::vector<size_t> starts;
  std::wstring line;
  for (size_t pos = 0; pos < bytes.size(); ModelLine(bytes, pos, line))
    starts.push_back(pos);

  TempDir dir;
  const std::wstring name = dir.Write("in", bytes);
  // The library's buffer, and buffers of the reader's own: a size that
  // divides no block, and the table's.
  for (const size_t buffer : {size_t{0}, size_t{1000}, size_t{65536}}) {
  SCOPED_TRACE("buffer " + std::to_string(buffer));
  InputFile file;
  ASSERT_TRUE(file.Open(name.c_str(), buffer));
  std::vector<wchar_t> buf(kMax + 2);
  size_t at = 0;
  for (int step = 0; step < 20000; ++step) {
    // Mostly the next line or a few back (the template's loops), now and
    // then anywhere.
    const int kind = static_cast<int>(rng() % 10);
    if (kind < 5)
      at = at + 1 < starts.size() ? at + 1 : 0;
    else if (kind < 8)
      at = at >= 5 ? at - 1 - rng() % 5 : 0;
    else
      at = rng() % starts.size();
    size_t pos = starts[at];
    file.SetFilePointer(static_cast<long>(pos));
    const bool stored = ModelLine(bytes, pos, line);
    // The shape given is that of the C string, up to a null.
    InputFile::LineShape shape;
    ASSERT_EQ(file.GetLine(buf.data(), kMax, shape), stored) << "line " << at;
    const std::wstring text(buf.data(), shape.length);
    ASSERT_EQ(text, line.c_str()) << "line " << at;
    ASSERT_EQ(shape.tabs, text.find(L'\t') != text.npos) << "line " << at;
    ASSERT_EQ(file.GetFilePointer(), static_cast<long>(pos)) << "line " << at;
  }
  }
}

// A stream replaced by a second Open stays open, and readable, with the
// buffer it was given.
TEST(InputFileTest, AReplacedStreamKeepsItsOwnBuffer) {
  TempDir dir;
  const std::string first(5000, 'a');
  InputFile file;
  ASSERT_TRUE(file.Open(dir.Write("first", first).c_str(), 100));
  wchar_t ch = 0;
  ASSERT_TRUE(file.Get(ch));
  FILE* const replaced = file.m_Stream;
  ASSERT_TRUE(file.Open(dir.Write("second", "b").c_str(), 100));
  std::string rest;
  for (int c = getc(replaced); c != EOF; c = getc(replaced))
    rest.push_back(static_cast<char>(c));
  EXPECT_EQ(rest, first.substr(1));
  ASSERT_TRUE(file.Get(ch));
  EXPECT_EQ(ch, L'b');
}

}  // namespace

namespace {

// The table's way of reading a run of text (a block at a time from the
// stream's buffer, the stop decoded after it) against a plain loop of Get
// over the same bytes: the same characters, the same stops, the same end,
// with runs that cross the buffer and characters of every length.
TEST(InputFileTest, TakeUntilReadsWhatGetReads) {
  using Stops = ByteStops<0, '\n', '$', '@', '\\'>;
  const std::vector<std::string> pieces = {
      "plain text ", "$", "@", "\\", "\n", std::string(1, '\0'), "\xC3\xA9",
      "\xE2\x82\xAC", "\xF0\x9F\x98\x80", std::string(300, 'y'), "\x80"};
  std::mt19937 rng(3);
  TempDir dir;
  for (int trial = 0; trial < 40; ++trial) {
    std::string bytes;
    for (int k = static_cast<int>(rng() % 3000); k > 0; --k)
      bytes += pieces[rng() % pieces.size()];
    const std::wstring name = dir.Write("in", bytes);
    InputFile fast;
    InputFile plain;
    ASSERT_TRUE(fast.Open(name.c_str(), 1 + rng() % 5000));
    ASSERT_TRUE(plain.Open(name.c_str()));
    for (;;) {
      wchar_t run[64];
      size_t n = 0;
      wchar_t stop = 0;
      const size_t room = 1 + rng() % 64;
      const InputFile::RunEnd end = fast.TakeUntil<Stops>(run, room, n, stop);
      for (size_t k = 0; k < n; ++k) {
        wchar_t ch = 0;
        ASSERT_TRUE(plain.Get(ch));
        ASSERT_EQ(run[k], ch) << "trial " << trial;
        ASSERT_FALSE(ch < 0x80 && Stops::Stops(static_cast<unsigned char>(ch)));
      }
      wchar_t ch = 0;
      if (end == InputFile::RunEnd::kEnd) {
        ASSERT_FALSE(plain.Get(ch)) << "trial " << trial;
        if (fast.AtEndOfFile())
          break;
        continue;  // an undecodable byte: both go on after it
      }
      if (end == InputFile::RunEnd::kStop) {
        ASSERT_TRUE(plain.Get(ch));
        ASSERT_EQ(stop, ch) << "trial " << trial;
      } else {
        ASSERT_EQ(n, room);
      }
    }
  }
}

}  // namespace
