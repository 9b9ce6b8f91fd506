#include "driver/catalogue.h"

#include <cstdio>
#include <string>

#include "driver/tbl.h"

bool g_StringENU = false;

namespace {

// Block header: 0xFF, type (16 bits), 0xFF, block number (16 bits),
// memory flags (16 bits), data size (32 bits); all little-endian.
constexpr size_t kBlockHeader = 12;
constexpr uint16_t kStringTable = 6;
constexpr uint16_t kMemoryFlags = 0x1030;
constexpr size_t kMaxText = 255;

// Block b holds strings ((b - 1) & 0xFFF) * 16 up to 15 more.
constexpr uint16_t kMessageBlock = kFirstMessageString / 16 + 1;
static_assert(kMessageBlock == 695 && kFirstMessageString % 16 == 0,
              "the messages must start a block of their own");

// The sixteen strings of the message block; null is an absent string.
// The texts are the ones earlier releases shipped, spelling included:
// tools that scan documents for them match them byte for byte.
constexpr const char* kRusTexts[16] = {
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
    nullptr,
    nullptr,
    nullptr,
};

constexpr const char* kEnuTexts[16] = {
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
    nullptr,
    nullptr,
    nullptr,
};

constexpr size_t Length(const char* text) {
  size_t n = 0;
  if (text != nullptr) {
    while (text[n] != '\0')
      ++n;
  }
  return n;
}

constexpr bool AllFit(const char* const (&texts)[16]) {
  for (const char* text : texts) {
    if (Length(text) > kMaxText)
      return false;
  }
  return true;
}

constexpr size_t DataSize(const char* const (&texts)[16]) {
  size_t size = 0;
  for (const char* text : texts)
    size += 1 + Length(text);
  return size;
}

static_assert(AllFit(kRusTexts) && AllFit(kEnuTexts),
              "a length byte holds at most 255");

template <size_t N>
struct Image {
  unsigned char bytes[N];
};

// One string-table block, number kMessageBlock, holding texts.
template <size_t N>
constexpr Image<N> MakeImage(const char* const (&texts)[16]) {
  Image<N> image{};
  const size_t data = N - kBlockHeader;
  image.bytes[0] = 0xFF;
  image.bytes[1] = kStringTable & 0xFF;
  image.bytes[2] = kStringTable >> 8;
  image.bytes[3] = 0xFF;
  image.bytes[4] = kMessageBlock & 0xFF;
  image.bytes[5] = kMessageBlock >> 8;
  image.bytes[6] = kMemoryFlags & 0xFF;
  image.bytes[7] = kMemoryFlags >> 8;
  image.bytes[8] = static_cast<unsigned char>(data & 0xFF);
  image.bytes[9] = static_cast<unsigned char>((data >> 8) & 0xFF);
  image.bytes[10] = static_cast<unsigned char>((data >> 16) & 0xFF);
  image.bytes[11] = static_cast<unsigned char>((data >> 24) & 0xFF);
  size_t at = kBlockHeader;
  for (const char* text : texts) {
    const size_t len = Length(text);
    image.bytes[at++] = static_cast<unsigned char>(len);
    for (size_t i = 0; i < len; ++i) {
      image.bytes[at++] = static_cast<unsigned char>(text[i]);
    }
  }
  return image;
}

constexpr size_t kRusSize = kBlockHeader + DataSize(kRusTexts);
constexpr size_t kEnuSize = kBlockHeader + DataSize(kEnuTexts);
constexpr Image<kRusSize> kRusImage = MakeImage<kRusSize>(kRusTexts);
constexpr Image<kEnuSize> kEnuImage = MakeImage<kEnuSize>(kEnuTexts);

uint16_t Le16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

uint32_t Le32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

// Moves pos to the first string-table block at or after it and sets next
// to the offset right after that block. False when the walk ends first: at
// the end of the image, at a header cut off by it, or at a block without
// its 0xFF markers, after which nothing in the image can be trusted.
bool FindStringTable(const unsigned char* begin, uint64_t avail, uint64_t& pos,
                     uint64_t& next) {
  for (;;) {
    if (pos >= avail || avail - pos < kBlockHeader)
      return false;
    const unsigned char* block = begin + pos;
    if (block[0] != 0xFF || block[3] != 0xFF)
      return false;
    next = pos + kBlockHeader + Le32(block + 8);
    if (Le16(block + 1) == kStringTable)
      return true;
    if (next >= avail)
      return false;
    pos = next;
  }
}

DBString Load(const unsigned char* begin, const unsigned char* end,
              const char* fallback, uint16_t id) {
  // Zero-filled and one longer than any string can be, so the text copied
  // in is always terminated.
  unsigned char buf[kMaxText + 1] = {};
  if (LoadString(buf, sizeof buf, begin, end, id) == 0) {
    std::snprintf(reinterpret_cast<char*>(buf), sizeof buf, fallback,
                  static_cast<int>(id));
  }
  return DBString(reinterpret_cast<const char*>(buf));
}

}  // namespace

const unsigned char* const kRusImageBegin = kRusImage.bytes;
const unsigned char* const kRusImageEnd = kRusImage.bytes + kRusSize;
const unsigned char* const kEnuImageBegin = kEnuImage.bytes;
const unsigned char* const kEnuImageEnd = kEnuImage.bytes + kEnuSize;

uint64_t LoadString(unsigned char* buf, uint64_t size,
                    const unsigned char* begin, const unsigned char* end,
                    uint16_t id) {
  if (size == 0)
    return 0;
  if (begin == nullptr || end == nullptr || !(begin < end))
    return 0;
  const uint64_t avail = static_cast<uint64_t>(end - begin);
  uint64_t pos = 0;
  uint64_t next = 0;
  while (FindStringTable(begin, avail, pos, next)) {
    const uint16_t b = Le16(begin + pos + 4);
    // 16-bit arithmetic on purpose: block 0 and multiples of 4096 wrap
    // round to the top of the number range.
    const uint16_t low = static_cast<uint16_t>(((b - 1) & 0xFFF) * 16);
    const uint16_t high = static_cast<uint16_t>((b & 0xFFF) * 16 - 1);
    if (id >= low && id <= high) {
      // A block claiming more data than the image holds is read only up
      // to the image's end.
      const uint64_t data_end = next < avail ? next : avail;
      uint64_t at = pos + kBlockHeader;
      for (uint32_t counter = low; at < data_end && counter <= id; ++counter) {
        const uint64_t len = begin[at];
        if (data_end - at - 1 < len)
          break;  // the string is cut off
        if (len > 0 && counter == id) {
          const uint64_t n = len < size ? len : size;
          for (uint64_t i = 0; i < n; ++i)
            buf[i] = begin[at + 1 + i];
          return n;
        }
        at += 1 + len;
      }
    }
    pos = next;
  }
  return 0;
}

DBString _S_(uint16_t id) {
  return g_StringENU ? LoadStringFromResourceENU(id)
                     : LoadStringFromResource(id);
}

DBString LoadStringFromResource(uint16_t id) {
  return Load(kRusImageBegin, kRusImageEnd, "RUS%d", id);
}

DBString LoadStringFromResourceENU(uint16_t id) {
  return Load(kEnuImageBegin, kEnuImageEnd, "ENU%d", id);
}

std::wstring Tbl::Err(numErr n) {
  const unsigned int number = static_cast<unsigned int>(n);
  const uint16_t id =
      number > 12 ? 0 : static_cast<uint16_t>(kFirstMessageString + number);
  std::wstring text = _S_(id);
  if (!text.empty())
    return text;
  return std::to_wstring(id);
}
