// The document writer: console mode, append, and what reaches the disk
// when a run ends abnormally or reads its own document.
#include <climits>
#include <cstdio>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tests/test_util.h"
#include "textio/input_file.h"
#include "textio/output_file.h"
#include "textio/utf8.h"

namespace {

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

// A document that the run reads back, opened for reading under another
// spelling of its name, holds from then on after every write what a plain
// stream would have put on disk; so does it when opened before any write.
TEST(OutputFileTest, ADocumentReadBackHasTheLibrarysBlocksOnDisk) {
  for (const size_t before : {size_t{0}, size_t{70000}}) {
    TempDir dir;
    const std::string doc = dir.path() + "/doc";
    const std::string ref = dir.path() + "/ref";
    OutputFile out(Widen(doc).c_str(), false);
    FILE* const plain = fopen(ref.c_str(), "wb");
    ASSERT_NE(plain, nullptr);
    const auto write_both = [&](size_t size) {
      const std::string text(size, 'q');
      out << Widen(text);
      fwrite(text.data(), 1, text.size(), plain);
    };
    if (before != 0) {
      write_both(before);
    }
    InputFile reader(Widen(dir.path() + "/./doc").c_str());
    EXPECT_EQ(ReadFile(doc).size(), ReadFile(ref).size()) << "when read";
    for (size_t size : {100, 3000, 5000, 20000, 10}) {
      write_both(size);
      EXPECT_EQ(ReadFile(doc).size(), ReadFile(ref).size()) << "after " << size;
    }
    fclose(plain);
  }
}

}  // namespace
