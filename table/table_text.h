// How a value of a spreadsheet or a database is written into a formfill
// table so that formfill's table reader gives the value back.
#ifndef FORMFILL_TABLE_TABLE_TEXT_H_
#define FORMFILL_TABLE_TABLE_TEXT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace formfill_table {

// Why a value cannot go into a table.
enum class ValueFault {
  kNone,
  kNotUtf8,    // bytes that are not UTF-8
  kNul,        // U+0000, which formfill cannot store
  kSeparator,  // U+0001, formfill's separator of repeated values
};

struct ValueCheck {
  ValueFault fault = ValueFault::kNone;
  size_t at = 0;  // byte offset of the offending character in the value
  bool ok() const { return fault == ValueFault::kNone; }
};

// "&" and "$" open selectors, "@" ends a record, ">" at a line's start is
// a page mark or ends the header, "\\" escapes. Only some of them matter at
// a given place, but escaping all of them everywhere keeps the rule one
// that a reader of the table can check at a glance.
inline constexpr std::array<char, 5> kEscapedBytes = {'\\', '$', '@', '&', '>'};

// What the reader of a value may already know of it, found while looking
// for its end, so that writing it needs no second look at every byte.
enum class ValueShape : uint8_t {
  kUnknown,
  // Only bytes from the blank to 0x7F, none of kEscapedBytes, and no blank
  // at the end: written as it is.
  kPlain,
  // The same, but with bytes from 0x80 up too: written as it is once they
  // are UTF-8.
  kText,
};

// A few words for a message, e.g. "bytes that are not UTF-8".
const char* FaultText(ValueFault fault);

// A growable byte buffer written through raw pointers, so that the hot loop
// pays for one capacity test per value instead of one per byte.
class TextBuffer {
 public:
  TextBuffer() = default;
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  // Makes room for n more bytes and returns where they go; Advance tells
  // how many were written.
  char* Reserve(size_t n);
  void Advance(char* end) { m_Size = static_cast<size_t>(end - m_Data.get()); }
  void Append(const char* data, size_t n);
  void Clear() { m_Size = 0; }
  // Clears and gives the memory back.
  void Release();

  const char* data() const { return m_Data.get(); }
  size_t size() const { return m_Size; }

 private:
  std::unique_ptr<char[]> m_Data;
  size_t m_Size = 0;
  size_t m_Capacity = 0;
};

// Appends value (UTF-8) to out as the text of one table field, escaped so
// that formfill stores exactly the value, up to two changes formfill's
// format forces: a run of line breaks (CR, LF or CRLF) with the blanks and
// tabs around it becomes one blank, and trailing blanks and tabs are
// dropped. On a fault, out holds an unfinished value; the caller gives up.
ValueCheck AppendValue(const char* value, size_t size, TextBuffer* out);

// AppendValue for a value of the given shape, written at w, where there is
// room for twice size bytes: the end of what it wrote, or nullptr with
// *check filled on a fault.
char* WriteValue(const char* value, size_t size, ValueShape shape, char* w,
                 ValueCheck* check);

// The check of AppendValue alone, for values that are not written.
ValueCheck CheckValue(const char* value, size_t size);

// "$3;" for marker '$' and number 3: the selector that starts a field.
std::string Selector(char marker, long number);

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_TABLE_TEXT_H_
