#include "textio/utf8.h"

#include <cstdint>
#include <stdexcept>

#include "textio/char_blocks.h"

namespace {

constexpr uint32_t kMaxCodePoint = 0x10FFFF;

// Decodes the sequence at bytes[i..n). Returns the sequence length, 0 when
// the bytes end inside it, and throws on a sequence that is not allowed.
// The whole length is checked for availability before any byte after the
// lead is looked at: a cut sequence at the end therefore ends the text
// quietly even when its bytes would be invalid, which is how the facet that
// earlier builds used reads a truncated catalogue text.
size_t DecodeOne(const unsigned char* bytes, size_t i, size_t n, wchar_t& out) {
  const size_t avail = n - i;
  const uint32_t c1 = bytes[i];
  uint32_t c = 0;
  size_t len = 0;
  bool valid = true;
  if (c1 < 0x80) {
    c = c1;
    len = 1;
  } else if (c1 < 0xC2) {
    // A continuation byte, or the lead of an overlong two-byte form.
    valid = false;
  } else if (c1 < 0xE0) {
    if (avail < 2)
      return 0;
    const uint32_t c2 = bytes[i + 1];
    valid = (c2 & 0xC0) == 0x80;
    c = ((c1 & 0x1F) << 6) | (c2 & 0x3F);
    len = 2;
  } else if (c1 < 0xF0) {
    if (avail < 3)
      return 0;
    const uint32_t c2 = bytes[i + 1];
    const uint32_t c3 = bytes[i + 2];
    valid = (c2 & 0xC0) == 0x80 && !(c1 == 0xE0 && c2 < 0xA0) &&
            (c3 & 0xC0) == 0x80;
    c = ((c1 & 0x0F) << 12) | ((c2 & 0x3F) << 6) | (c3 & 0x3F);
    len = 3;
  } else if (c1 < 0xF5) {
    if (avail < 4)
      return 0;
    const uint32_t c2 = bytes[i + 1];
    const uint32_t c3 = bytes[i + 2];
    const uint32_t c4 = bytes[i + 3];
    valid = (c2 & 0xC0) == 0x80 && !(c1 == 0xF0 && c2 < 0x90) &&
            !(c1 == 0xF4 && c2 >= 0x90) && (c3 & 0xC0) == 0x80 &&
            (c4 & 0xC0) == 0x80;
    c = ((c1 & 0x07) << 18) | ((c2 & 0x3F) << 12) | ((c3 & 0x3F) << 6) |
        (c4 & 0x3F);
    len = 4;
  } else {
    valid = false;
  }
  if (!valid || c > kMaxCodePoint) {
    throw std::range_error("wstring_convert::from_bytes");
  }
  out = static_cast<wchar_t>(c);
  return len;
}

using char_blocks::kBlock;

}  // namespace

namespace {

// How many of the characters at text[i, len) are ASCII before the first
// other one; their bytes are written to p. A document is mostly ASCII,
// which goes a block at a time: a block is narrowed whole, and as many of
// its bytes are kept as it has ASCII characters before the first other
// one. Writing the whole block stays within the room: at least that many
// characters are left.
size_t AsciiRun(const wchar_t* text, size_t i, size_t len, char* p) {
  if (len - i >= kBlock) {
    const unsigned wide = char_blocks::NarrowBlock(text + i, p);
    return wide == 0 ? kBlock : char_blocks::LowestBit(wide);
  }
  if (len >= kBlock && char_blocks::AllAscii(text + len - kBlock)) {
    // The last few characters are ASCII, and so is the block that ends the
    // text. Its characters before them are ASCII too and went out as one
    // byte each, so the block is narrowed over their bytes again.
    char_blocks::NarrowBlock(text + len - kBlock, p - (kBlock - (len - i)));
    return len - i;
  }
  size_t ascii = 0;
  while (i + ascii < len && static_cast<uint32_t>(text[i + ascii]) < 0x80) {
    p[ascii] = static_cast<char>(text[i + ascii]);
    ++ascii;
  }
  return ascii;
}

// Writes the UTF-8 form of c (at least U+0080) to p; returns the bytes
// written, 0 for a character above U+10FFFF. wchar_t is signed: a negative
// value becomes a huge one here and is refused with those.
size_t EncodeOne(uint32_t c, char* p) {
  if (c < 0x800) {
    p[0] = static_cast<char>(0xC0 | (c >> 6));
    p[1] = static_cast<char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    // Surrogate code points go out like any other three-byte value.
    p[0] = static_cast<char>(0xE0 | (c >> 12));
    p[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    p[2] = static_cast<char>(0x80 | (c & 0x3F));
    return 3;
  }
  if (c <= kMaxCodePoint) {
    p[0] = static_cast<char>(0xF0 | (c >> 18));
    p[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    p[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    p[3] = static_cast<char>(0x80 | (c & 0x3F));
    return 4;
  }
  return 0;
}

}  // namespace

bool EncodeUtf8(const wchar_t* text, size_t len, char* out, size_t* written) {
  char* p = out;
  bool ok = true;
  size_t i = 0;
  while (i < len) {
    const size_t ascii = AsciiRun(text, i, len, p);
    p += ascii;
    i += ascii;
    if (i == len) {
      break;
    }
    const uint32_t c = static_cast<uint32_t>(text[i]);
    if (c < 0x80) {
      continue;
    }
    const size_t bytes = EncodeOne(c, p);
    if (bytes == 0) {
      ok = false;
      break;
    }
    p += bytes;
    ++i;
  }
  *written = static_cast<size_t>(p - out);
  return ok;
}

void AppendUtf8(const wchar_t* text, size_t len, std::string& out) {
  const size_t old_size = out.size();
  out.resize(old_size + 4 * len);
  size_t written = 0;
  const bool ok = EncodeUtf8(text, len, &out[old_size], &written);
  out.resize(old_size + written);
  if (!ok) {
    throw std::range_error("wstring_convert::to_bytes");
  }
}

std::string ToUtf8(const std::wstring& text) {
  std::string out;
  AppendUtf8(text.data(), text.size(), out);
  return out;
}

std::wstring FromUtf8(const std::string& bytes) {
  std::wstring out;
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  const size_t n = bytes.size();
  size_t i = 0;
  while (i < n) {
    wchar_t c = 0;
    const size_t used = DecodeOne(data, i, n, c);
    if (used == 0)
      break;
    out.push_back(c);
    i += used;
  }
  return out;
}
