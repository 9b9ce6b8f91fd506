// How a value of a spreadsheet or a database is written into a formfill
// table so that formfill's table reader gives the value back.
#ifndef FORMFILL_TABLE_TABLE_TEXT_H_
#define FORMFILL_TABLE_TABLE_TEXT_H_

#include <cstddef>
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

// The check of AppendValue alone, for values that are not written.
ValueCheck CheckValue(const char* value, size_t size);

// "$3;" for marker '$' and number 3: the selector that starts a field.
std::string Selector(char marker, long number);

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_TABLE_TEXT_H_
