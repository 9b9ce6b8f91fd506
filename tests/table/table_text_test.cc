// The table text of single values, the faults that refuse a value, and the
// file names that split values get.
#include <string>

#include <gtest/gtest.h>

#include "table/records.h"
#include "table/table_text.h"
#include "table/table_writer.h"

namespace formfill_table {
namespace {

std::string TextOf(const std::string& value) {
  TextBuffer out;
  out.Append("<", 1);
  EXPECT_TRUE(AppendValue(value.data(), value.size(), &out).ok()) << value;
  return std::string(out.data() + 1, out.size() - 1);
}

TEST(AppendValueTest, EscapesAndNormalises) {
  static const struct {
    const char* value;
    const char* text;
    const char* note;
  } kCases[] = {
      {"plain text", "plain text", "nothing to do"},
      {"", "", "empty"},
      {"\\$@&>", "\\\\\\$\\@\\&\\>", "every table character escaped"},
      {">quote", "\\>quote", "page mark at the start"},
      {"$5;x&1;", "\\$5;x\\&1;", "selector-like text"},
      {"a@b.example", "a\\@b.example", "record end inside"},
      {"ends with \\", "ends with \\\\", "backslash last"},
      {"#;?,\"'", "#;?,\"'", "template characters need nothing"},
      {"  lead", "  lead", "leading blanks kept"},
      {"\tlead", "\tlead", "leading tab kept"},
      {"trail \t ", "trail", "trailing blanks and tabs dropped"},
      {"a\tb  c", "a\tb  c", "inner tabs and blank runs kept"},
      {"a\nb", "a b", "LF"},
      {"a\r\nb", "a b", "CRLF"},
      {"a\rb", "a b", "CR"},
      {"a \t\r\n\n \r b", "a b", "a run of breaks and blanks"},
      {"\n  x", " x", "a break first leaves one leading blank"},
      {"x\r\n", "x", "a break last goes with the trailing blanks"},
      {" \n ", "", "only blanks and breaks"},
      {"\x02\x0b\x0c\x1f\x7f", "\x02\x0b\x0c\x1f\x7f", "control characters"},
      {"K\xC3\xB8" "benhavn \xE2\x82\xAC \xF0\x9F\x98\x80",
       "K\xC3\xB8" "benhavn \xE2\x82\xAC \xF0\x9F\x98\x80", "1 to 4 bytes"},
      {"\xEF\xBB\xBFmark", "\xEF\xBB\xBFmark", "U+FEFF inside a value"},
      {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF", "U+10FFFF"},
      // Plain text goes sixteen bytes at a time: what ends a block of it
      // and what stands at a block's edge.
      {"0123456789abcdef0123456789abcde ", "0123456789abcdef0123456789abcde",
       "a trailing blank as the last of 32 bytes"},
      {"0123456789abcd   \nx", "0123456789abcd x",
       "blanks across a block's edge, then a break"},
      {"0123456789abcdef   \t", "0123456789abcdef",
       "a block, then trailing blanks"},
      {"0123456789abcde$0123456789abcdef@", "0123456789abcde\\$0123456789abcdef\\@",
       "escaped as the last byte of blocks"},
      {"0123456789 bcdefgh\xC3\xA9", "0123456789 bcdefgh\xC3\xA9",
       "non-ASCII after a block"},
      {"0123456  ", "0123456", "short, blanks last"},
      {"012 >", "012 \\>", "short, escaped last"},
      {"a ", "a", "two bytes"},
  };
  for (const auto& c : kCases)
    EXPECT_EQ(TextOf(c.value), c.text) << c.note;
}

TEST(AppendValueTest, RefusesWhatATableCannotHold) {
  static const struct {
    std::string value;
    ValueFault fault;
    size_t at;
    const char* note;
  } kCases[] = {
      {std::string("ab\0c", 4), ValueFault::kNul, 2, "U+0000"},
      {"x\x01y", ValueFault::kSeparator, 1, "U+0001"},
      {"ok\xFF", ValueFault::kNotUtf8, 2, "byte never in UTF-8"},
      {"\x80", ValueFault::kNotUtf8, 0, "lone continuation byte"},
      {"ab\xC3", ValueFault::kNotUtf8, 2, "cut short at the end"},
      {"\xE2\x82x", ValueFault::kNotUtf8, 0, "cut short by ASCII"},
      {"\xC0\xAF", ValueFault::kNotUtf8, 0, "overlong two bytes"},
      {"\xE0\x80\xAF", ValueFault::kNotUtf8, 0, "overlong three bytes"},
      {"\xF0\x80\x80\xAF", ValueFault::kNotUtf8, 0, "overlong four bytes"},
      {"a\xED\xA0\x80", ValueFault::kNotUtf8, 1, "surrogate"},
      {"\xF4\x90\x80\x80", ValueFault::kNotUtf8, 0, "above U+10FFFF"},
      {"\xF5\x80\x80\x80", ValueFault::kNotUtf8, 0, "lead byte F5"},
  };
  for (const auto& c : kCases) {
    TextBuffer out;
    const ValueCheck written = AppendValue(c.value.data(), c.value.size(), &out);
    const ValueCheck checked = CheckValue(c.value.data(), c.value.size());
    for (const ValueCheck& check : {written, checked}) {
      EXPECT_EQ(check.fault, c.fault) << c.note;
      EXPECT_EQ(check.at, c.at) << c.note;
    }
  }
}

TEST(RecordBuilderTest, OrdersFieldsAndChecksUnwrittenCells) {
  RecordBuilder builder({2, 0}, 3);
  const Cell row[] = {{"a", 1}, {"\xFF", 1}, {"c@", 2}};
  CellFault fault;
  EXPECT_FALSE(builder.Build(row, &fault));
  EXPECT_EQ(fault.column, 1u) << "an unwritten cell is checked too";
  const Cell good[] = {{"a", 1}, {"b", 1}, {"", 0}};
  ASSERT_TRUE(builder.Build(good, &fault));
  EXPECT_EQ(std::string(builder.text().data(), builder.text().size()),
            "$1;\n$2;a\n@\n");
}

TEST(SafeFileNameTest, KeepsAPortableSubset) {
  static const struct {
    std::string value;
    std::string name;
  } kCases[] = {
      {"K-20931", "K-20931"},
      {"a b/c\\d:e*f\"g'h", "a_b_c_d_e_f_g_h"},
      {"..", "_."},
      {"-rf", "_rf"},
      {"", "_"},
      {"Nørrebro", "Nørrebro"},
      {"line\nbreak\t", "line_break_"},
      {std::string(99, 'x') + "\xC3\xB8", std::string(99, 'x')},
      {std::string(150, 'y'), std::string(100, 'y')},
  };
  for (const auto& c : kCases)
    EXPECT_EQ(SafeFileName(c.value), c.name) << c.value;
}

}  // namespace
}  // namespace formfill_table
