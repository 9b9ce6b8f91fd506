// Text files and helpers: the decoder's failures, long lines, byte positions
// and the console mode, which whole runs show poorly or not at all.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <codecvt>
#include <iostream>
#include <locale>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/test_util.h"
#include "textio/char_blocks.h"
#include "textio/helpers.h"
#include "textio/input_file.h"
#include "textio/output_file.h"
#include "textio/stream_bytes.h"
#include "textio/utf8.h"
#include "textio/wide_vectors.h"

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
  for (const size_t buffer : {size_t{0}, size_t{1000}, size_t{65536}})
  for (const bool wide : {false, true}) {
  SCOPED_TRACE(wide ? "32-byte blocks" : "16-byte blocks");
  SCOPED_TRACE("buffer " + std::to_string(buffer));
  VectorWidth width(wide);
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

// The run of plain bytes taken from a stream's buffer against the bytes of
// the file: all of them plain and the next one a stop, unless the room or
// the buffer ran out. With the stops of the table's text, at random rooms,
// over text whose stops come close together and far apart.
TEST(StreamBytesTest, TakeWhileStopsAtTheFirstStopByte) {
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
  for (const bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "32-byte blocks" : "16-byte blocks");
    VectorWidth width(wide);
    InputFile file(name.c_str());
    std::vector<wchar_t> out(200);
    size_t pos = 0;
    while (pos < bytes.size()) {
      const size_t room = 1 + rng() % out.size();
      const size_t taken = TakeWhile<Stops>(file.m_Stream, out.data(), room);
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
        ASSERT_TRUE(taken == room || pos % 4096 == 0) << "at " << pos;
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
  for (const bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "32-byte blocks" : "16-byte blocks");
    VectorWidth width(wide);
    CheckFindFirstOf<L'?', L'$', L'&'>(
        {L' ', L'a', L'\x7F', L'\x424', L'\x13F', L'\x10026', L'\x8000',
         static_cast<wchar_t>(-220)});
    CheckFindFirstOf<L'\x01', L'\0'>(
        {L' ', L'a', L'\x100', L'\x10000', L'\x101',
         static_cast<wchar_t>(-256), static_cast<wchar_t>(-1)});
  }
}

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
    // Both sets of block loops, by turns.
    VectorWidth width(i % 4 < 2);
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

TEST(OutputFileTest, ConsoleOnlyForTheSharedConstantAndAppendStartsEmpty) {
  std::ostringstream sink;
  std::streambuf* const old = std::cout.rdbuf(sink.rdbuf());
  {
    OutputFile console(kConName, false);
    EXPECT_EQ(console.m_Stream, nullptr) << "no file opened";
    console << L"\x41F\n" << -15L << LONG_MIN;
  }
  std::cout.rdbuf(old);
  EXPECT_EQ(sink.str(), "\xD0\x9F\n-15-9223372036854775808");

  TempDir dir;
  const std::wstring name = dir.Write("doc", "earlier run\n");
  {
    OutputFile out(name.c_str(), true);
    out << L"new";
  }
  EXPECT_EQ(ReadFile(dir.path() + "/doc"), "new") << "emptied, then written";
}

// A run that ends abnormally must leave the document as far as a stream
// with the library's own buffer would have written it, though it is
// written through a larger one: after any number of writes, short lines
// and long ones (past the library's buffer), ASCII and not, with or
// without a last write refused for a character above U+10FFFF, the file
// must hold what the same bytes given to fwrite have put in a file.
TEST(OutputFileTest, AnAbnormalEndLeavesWhatTheLibrarysBufferWould) {
  TempDir dir;
  std::mt19937 rng(5);
  for (int trial = 0; trial < 80; ++trial) {
    const std::string doc = dir.path() + "/doc" + std::to_string(trial);
    const std::string ref = dir.path() + "/ref" + std::to_string(trial);
    OutputFile out(Widen(doc).c_str(), false);
    FILE* const plain = fopen(ref.c_str(), "wb");
    ASSERT_NE(plain, nullptr);
    for (int i = static_cast<int>(rng() % 400); i > 0; --i) {
      std::wstring line(rng() % 8 == 0 ? rng() % 9000 : rng() % 120, L'x');
      for (wchar_t& c : line)
        c = rng() % 10 == 0 ? L'\x416' : static_cast<wchar_t>(L'a' + rng() % 26);
      const std::string bytes = ToUtf8(line);
      out << line;
      fwrite(bytes.data(), 1, bytes.size(), plain);
    }
    if (trial % 2 == 0) {
      EXPECT_THROW(out << std::wstring(L"tail \x110000"), std::range_error);
    }
    out.LeaveAsLibraryWould();
    // The reference is read as its stream has left it on disk.
    EXPECT_EQ(ReadFile(doc), ReadFile(ref)) << "trial " << trial;
    fclose(plain);
  }
}

// A document that the run reads back, named there in another spelling,
// holds after every write what a plain stream would have put on disk.
TEST(OutputFileTest, ADocumentReadBackHasTheLibrarysBlocksOnDisk) {
  TempDir dir;
  const std::string doc = dir.path() + "/doc";
  const std::string ref = dir.path() + "/ref";
  OutputFile out(Widen(doc).c_str(), false,
                 {Widen(dir.path() + "/./doc"), L"elsewhere"});
  FILE* const plain = fopen(ref.c_str(), "wb");
  ASSERT_NE(plain, nullptr);
  for (size_t size : {100, 3000, 5000, 20000, 10}) {
    const std::string text(size, 'q');
    out << Widen(text);
    fwrite(text.data(), 1, text.size(), plain);
    EXPECT_EQ(ReadFile(doc).size(), ReadFile(ref).size()) << "after " << size;
  }
  fclose(plain);
}

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
