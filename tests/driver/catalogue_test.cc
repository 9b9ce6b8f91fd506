#include "driver/catalogue.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/tbl.h"

namespace {

using Bytes = std::vector<unsigned char>;

const char* const kRussian[13] = {
    "Ошибка в формате команды ПЕРЕХОД:",
    "Неверное число строк в блоке:",
    "Неверное число повторений в блоке:",
    "Повторное появление метки:",
    "Переопределение макросимвола или поля:",
    "Неизвестная команда:",
    "Метка не найдена:",
    "Неверное число строк в блоке повторения",
    "Циклический переход в бланке",
    "Не найден входной файл:",
    "Невозможно открыть выходной файл:",
    "Ошибка при загрузке бланка:",
    "!!! Обработка прекращена из-за зацикливания бланка последующих листов "
    "!!!",
};

const char* const kEnglish[13] = {
    "Bad format operation JUMP:",
    "Incorrect line number in block:",
    "Incorrect repeat number in block:",
    "Repeated label declaration:",
    "Repeated macro symbol or field declaration:",
    "Unknown operation:",
    "Label not fount:",
    "Incorrect line number in repeat block",
    "Cycling jump in template",
    "No find input file:",
    "Error open output file:",
    "Error template load:",
    "!!! Processing aborted as a result of cycling template nextes pages !!!",
};

// A block: header with the given markers, type and number, then data.
Bytes Block(uint16_t type, uint16_t number, const Bytes& data,
            unsigned char marker = 0xFF) {
  uint32_t size = static_cast<uint32_t>(data.size());
  Bytes out = {marker,
               static_cast<unsigned char>(type & 0xFF),
               static_cast<unsigned char>(type >> 8),
               0xFF,
               static_cast<unsigned char>(number & 0xFF),
               static_cast<unsigned char>(number >> 8),
               0x30,
               0x10,
               static_cast<unsigned char>(size & 0xFF),
               static_cast<unsigned char>((size >> 8) & 0xFF),
               static_cast<unsigned char>((size >> 16) & 0xFF),
               static_cast<unsigned char>(size >> 24)};
  out.insert(out.end(), data.begin(), data.end());
  return out;
}

// String data: each text with its length byte; "" is an absent string.
Bytes Strings(const std::vector<std::string>& texts) {
  Bytes out;
  for (const std::string& text : texts) {
    out.push_back(static_cast<unsigned char>(text.size()));
    out.insert(out.end(), text.begin(), text.end());
  }
  return out;
}

Bytes Join(const std::vector<Bytes>& blocks) {
  Bytes out;
  for (const Bytes& block : blocks)
    out.insert(out.end(), block.begin(), block.end());
  return out;
}

std::wstring Wide(const char* utf8) {
  return DBString(utf8);
}

class CatalogueTest : public ::testing::Test {
 protected:
  void TearDown() override { g_StringENU = false; }
};

// Walks the built-in images byte by byte: one block 695 holding the
// thirteen texts and three absent strings, nothing after it.
TEST_F(CatalogueTest, ImagesHoldTheMessageBlock) {
  struct Image {
    const unsigned char* begin;
    const unsigned char* end;
    const char* const* texts;
    const char* note;
  } images[] = {
      {kRusImageBegin, kRusImageEnd, kRussian, "Russian"},
      {kEnuImageBegin, kEnuImageEnd, kEnglish, "English"},
  };
  for (const Image& image : images) {
    Bytes bytes(image.begin, image.end);
    ASSERT_GE(bytes.size(), 12u) << image.note;
    Bytes header(bytes.begin(), bytes.begin() + 8);
    EXPECT_EQ((Bytes{0xFF, 0x06, 0x00, 0xFF, 0xB7, 0x02, 0x30, 0x10}), header)
        << image.note;
    uint32_t size = bytes[8] | (bytes[9] << 8) | (bytes[10] << 16) |
                    (static_cast<uint32_t>(bytes[11]) << 24);
    EXPECT_EQ(bytes.size() - 12, size) << image.note;
    size_t at = 12;
    for (int i = 0; i < 16; ++i) {
      ASSERT_LT(at, bytes.size()) << image.note << " string " << i;
      size_t len = bytes[at];
      std::string text(bytes.begin() + at + 1, bytes.begin() + at + 1 + len);
      EXPECT_EQ(i < 13 ? image.texts[i] : "", text)
          << image.note << " string " << 11104 + i;
      at += 1 + len;
    }
    EXPECT_EQ(bytes.size(), at) << image.note;
  }
}

TEST_F(CatalogueTest, ErrGivesEveryMessageInBothLanguages) {
  for (int n = 0; n < 13; ++n) {
    g_StringENU = false;
    EXPECT_EQ(Wide(kRussian[n]), Tbl::Err(static_cast<Tbl::numErr>(n)))
        << "message " << n;
    EXPECT_EQ(Wide(kEnglish[n]), LoadStringFromResourceENU(11104 + n))
        << "message " << n;
    g_StringENU = true;
    EXPECT_EQ(Wide(kEnglish[n]), Tbl::Err(static_cast<Tbl::numErr>(n)))
        << "message " << n;
    EXPECT_EQ(Wide(kRussian[n]), LoadStringFromResource(11104 + n))
        << "message " << n;
  }
}

TEST_F(CatalogueTest, FallbackTexts) {
  struct Row {
    bool english;
    int message;  // -100: ask _S_ for id instead
    uint16_t id;
    std::wstring expected;
    const char* note;
  } rows[] = {
      {false, 13, 0, L"RUS0", "message above 12"},
      {false, -1, 0, L"RUS0", "negative message"},
      {true, 13, 0, L"ENU0", "English, message above 12"},
      {true, 6, 0, L"Label not fount:", "English text kept as shipped"},
      {false, -100, 11117, L"RUS11117", "absent string"},
      {true, -100, 11119, L"ENU11119", "absent string, English"},
      {false, -100, 11103, L"RUS11103", "before the block"},
      {true, -100, 11120, L"ENU11120", "after the block"},
      {false, -100, 65535, L"RUS65535", "top of the range"},
  };
  for (const Row& row : rows) {
    g_StringENU = row.english;
    std::wstring got = row.message == -100
                           ? std::wstring(_S_(row.id))
                           : Tbl::Err(static_cast<Tbl::numErr>(row.message));
    EXPECT_EQ(row.expected, got) << row.note;
  }
}

TEST_F(CatalogueTest, LoadStringWalksTheBlocks) {
  const std::string long_text(255, 'x');
  const Bytes other = Block(5, 695, Strings({"not a string table"}));
  const Bytes first = Block(6, 1, Strings({"zero", "one"}));
  const Bytes absent = Block(6, 695, Strings({""}));
  const Bytes hello = Block(6, 695, Strings({"hello"}));
  const Bytes world = Block(6, 695, Strings({"world"}));
  Bytes damaged = hello;
  damaged[3] = 0x00;
  Bytes oversized = hello;
  oversized[8] = 0xFF;  // claims more data than the image holds
  Bytes cut = Strings({"hi"});
  cut[0] = 9;  // the string runs past the end of the data
  struct Row {
    Bytes image;
    uint16_t id;
    uint64_t size;
    std::string expected;  // bytes copied; the count is its length
    const char* note;
  } rows[] = {
      {hello, 11104, 256, "hello", "one block"},
      {Join({first, hello}), 11104, 256, "hello", "second string block"},
      {Join({first, hello}), 1, 256, "one", "first block, second string"},
      {Join({other, hello}), 11104, 256, "hello", "other type skipped"},
      {other, 11104, 256, "", "only another type"},
      {Join({absent, world}), 11104, 256, "world", "absent, then found"},
      {Join({hello, world}), 11104, 256, "hello", "first holder wins"},
      {Join({first, damaged, world}), 11104, 256, "", "damaged marker"},
      {Block(6, 695, Strings({"a", "", "c"})), 11105, 256, "", "empty string"},
      {Block(6, 695, Strings({"a", "", "c"})), 11106, 256, "c",
       "after an empty string"},
      {Block(6, 695, Strings({"a"})), 11107, 256, "", "past the data"},
      {Block(6, 0, Strings({"low", "high"})), 65521, 256, "high",
       "block 0 wraps to the top"},
      {Block(6, 4096 + 695, Strings({"x"})), 11104, 256, "x",
       "block number taken modulo 4096"},
      {oversized, 11104, 256, "hello", "size past the end"},
      {Block(6, 695, cut), 11104, 256, "", "string past the data"},
      {Block(6, 695, Strings({long_text})), 11104, 256, long_text,
       "255 bytes whole"},
      {hello, 11104, 3, "hel", "short buffer"},
      {hello, 11104, 0, "", "buffer size 0"},
      {Bytes(hello.begin(), hello.begin() + 7), 11104, 256, "",
       "header cut off"},
      {Bytes{}, 11104, 256, "", "empty image"},
  };
  for (const Row& row : rows) {
    // Zero-filled, with a marker byte that must survive behind the copy.
    std::vector<unsigned char> buf(300, 0);
    buf[row.expected.size()] = 'Z';
    const unsigned char* begin = row.image.data();
    uint64_t got = LoadString(buf.data(), row.size, begin,
                              begin + row.image.size(), row.id);
    EXPECT_EQ(row.expected.size(), got) << row.note;
    EXPECT_EQ(row.expected,
              std::string(buf.begin(), buf.begin() + row.expected.size()))
        << row.note;
    EXPECT_EQ('Z', buf[row.expected.size()]) << row.note;
  }
}

}  // namespace
