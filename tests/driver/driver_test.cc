// Message catalogue and the parameters-file directory list: what a run
// cannot show (the English texts, damaged catalogue images, a search that
// never ends).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/catalogue.h"
#include "driver/table_observer.h"
#include "driver/tbl.h"
#include "tests/test_util.h"
#include "textio/utf8.h"

namespace {

// The English image is reached by the flag and by its fixed-language
// lookup alike, the Russian one by the other; numbers without a text give
// the fallback of the language in use. (The Russian texts are what runs
// write: the end-to-end cases hold every one of them byte for byte.)
TEST(CatalogueTest, LanguagesAndFallbacks) {
  for (int n = 0; n < 13; ++n) {
    const auto message = static_cast<Tbl::numErr>(n);
    g_StringENU = false;
    const std::wstring russian = Tbl::Err(message);
    EXPECT_EQ(LoadStringFromResource(11104 + n), russian) << n;
    g_StringENU = true;
    const std::wstring english = Tbl::Err(message);
    EXPECT_EQ(LoadStringFromResourceENU(11104 + n), english) << n;
    EXPECT_NE(english, russian) << n;
    EXPECT_EQ(english.find(L"ENU"), std::wstring::npos) << n;
  }
  EXPECT_EQ(Tbl::Err(static_cast<Tbl::numErr>(6)), L"Label not fount:");
  EXPECT_EQ(Tbl::Err(static_cast<Tbl::numErr>(13)), L"ENU0");
  EXPECT_EQ(_S_(11119), L"ENU11119") << "absent string";
  g_StringENU = false;
  EXPECT_EQ(Tbl::Err(static_cast<Tbl::numErr>(-1)), L"RUS0");
  EXPECT_EQ(_S_(11117), L"RUS11117") << "absent string";
}

// value as width bytes, lowest first.
std::string LittleEndian(uint32_t value, int width) {
  std::string out;
  for (int k = 0; k < width; ++k)
    out += static_cast<char>(value >> 8 * k);
  return out;
}

// A catalogue block: header, then each text after its length byte.
std::string Block(uint16_t type, uint16_t number,
                  const std::vector<std::string>& texts) {
  std::string data;
  for (const std::string& text : texts)
    data += static_cast<char>(text.size()) + text;
  return "\xFF" + LittleEndian(type, 2) + "\xFF" + LittleEndian(number, 2) +
         LittleEndian(0x1030, 2) + LittleEndian(data.size(), 4) + data;
}

TEST(CatalogueTest, LoadStringWalksCraftedImages) {
  const std::string hello = Block(6, 695, {"hello"}),
                    world = Block(6, 695, {"world"}),
                    first = Block(6, 1, {"zero", "one"});
  std::string damaged = hello, oversized = hello, cut = Block(6, 695, {"hi"});
  damaged[3] = 0;
  oversized[8] = '\xFF';  // claims more data than the image holds
  cut[12] = 9;            // the string runs past the end of the data
  const struct {
    std::string image;
    uint16_t id;
    uint64_t size;
    std::string expected;  // bytes copied; the result is their count
    const char* note;
  } rows[] = {
      {first + hello, 11104, 256, "hello", "second block"},
      {first + hello, 1, 256, "one", "first block, second string"},
      {Block(5, 695, {"x"}) + hello, 11104, 256, "hello", "other type skipped"},
      {Block(5, 695, {"x"}), 11104, 256, "", "only another type"},
      {Block(6, 695, {""}) + world, 11104, 256, "world", "absent, then found"},
      {hello + world, 11104, 256, "hello", "first holder wins"},
      {first + damaged + world, 11104, 256, "", "damaged marker ends the walk"},
      {Block(6, 695, {"a", "", "c"}), 11106, 256, "c", "after an absent one"},
      {Block(6, 695, {"a"}), 11107, 256, "", "past the data"},
      {Block(6, 0, {"low", "high"}), 65521, 256, "high", "block 0 wraps"},
      {oversized, 11104, 256, "hello", "size past the end"},
      {cut, 11104, 256, "", "string past the data"},
      {Block(6, 695, {std::string(255, 'x')}), 11104, 256,
       std::string(255, 'x'), "255 bytes whole"},
      {hello, 11104, 3, "hel", "short buffer"},
      {hello, 11104, 0, "", "buffer size 0"},
      {hello.substr(0, 7), 11104, 256, "", "header cut off"},
      {"", 11104, 256, "", "empty image"},
  };
  for (const auto& row : rows) {
    std::string buf(300, 0);
    buf[row.expected.size()] = 'Z';  // must survive right behind the copy
    const auto* begin =
        reinterpret_cast<const unsigned char*>(row.image.data());
    const uint64_t count =
        LoadString(reinterpret_cast<unsigned char*>(buf.data()), row.size,
                   begin, begin + row.image.size(), row.id);
    EXPECT_EQ(std::to_string(count) + ":" + buf.substr(0, count + 1),
              std::to_string(row.expected.size()) + ":" + row.expected + "Z")
        << row.note;
  }
}

// Record text goes into its field in runs of up to 128 characters; a
// character of two, three or four bytes at any place around a run's end,
// and a value of many runs, must come through whole.
TEST(TableReaderTest, LongValuesWithWideCharactersAroundRunEnds) {
  TempDir dir;
  Tbl::TabRcdField.freeAll();
  Tbl::TabRcdField.InsertField(1);
  Tbl::TabRcdField.InsertField(2);
  for (const std::string wide : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    for (size_t before = 120; before < 136; ++before) {
      const std::string value =
          std::string(before, 'a') + wide + std::string(300, 'b') + wide;
      Tbl::InpFile = dir.Write("t", "&1;h\n$1;" + value + "\n$2;x\n@\n");
      Tbl table;
      ASSERT_TRUE(table.GetHider());
      ASSERT_EQ(table.GetRecord(), 1);
      EXPECT_EQ(ToUtf8(Tbl::TabRcdField.FirstValue(1)), value)
          << before << " before";
      EXPECT_EQ(Tbl::TabRcdField.FirstValue(2), L"x");
    }
  }
}

// Two directories never finish: the list keeps its ";" head and the empty
// directory in front of it is tried forever. The search runs in a child
// that counts the reads of the file, and ends itself once the same file has
// been read a thousand times.
TEST(ParametersTest, DirectoryListWithSemicolonNeverEnds) {
  TempDir dir;
  dir.Write("p.txt", "&1;found");
  const pid_t child = fork();
  if (child == 0) {
    setenv("LANG", "C.UTF-8", 1);
    if (chdir(dir.path().c_str()) != 0)
      _exit(2);
    struct CountReads : TableObserver {
      int reads = 0;
      void InputEnd(bool) override {
        if (++reads == 1000)
          _exit(3);
      }
    } counter;
    SetTableObserver(&counter);
    Tbl::BegParam = L"p.txt";
    Tbl::PathBlank = Widen(dir.path() + ";" + dir.path());
    alarm(10);  // should the reads stop being told
    Tbl().GetBegin();
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3)
      << "GetBegin returned or stalled (status " << status << ")";
}

}  // namespace
