// The rows formfill-table's CSV reader splits itself, against libcsv
// reading the same bytes, and the rows it must leave to libcsv.
#include <csv.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "table/csv_scan.h"

namespace formfill_table {
namespace {

int NoSpace(unsigned char) { return 0; }

struct Library {
  std::vector<std::string> fields;
  int end = 0;
  int rows = 0;
};

// libcsv, as formfill-table sets it up, on text: the fields and line end
// of the first row; false when it refuses the text.
bool LibraryReads(const std::string& text, char delim, Library* got) {
  csv_parser p;
  csv_init(&p, CSV_STRICT | CSV_STRICT_FINI | CSV_REPALL_NL);
  csv_set_space_func(&p, NoSpace);
  csv_set_delim(&p, static_cast<unsigned char>(delim));
  auto field = [](void* s, size_t n, void* self) {
    auto* g = static_cast<Library*>(self);
    if (g->rows == 0)
      g->fields.emplace_back(static_cast<char*>(s), n);
  };
  auto row = [](int c, void* self) {
    auto* g = static_cast<Library*>(self);
    if (g->rows++ == 0)
      g->end = c;
  };
  const bool ok = csv_parse(&p, text.data(), text.size(), field, row, got) ==
                  text.size();
  csv_free(&p);
  return ok;
}

std::vector<std::string> Fields(const CsvRow& row) {
  std::vector<std::string> fields;
  for (const Cell& cell : row.cells)
    fields.emplace_back(cell.data, cell.size);
  return fields;
}

// What a table gets of the cell: written by its shape, and by the full
// rule, which must agree.
void ExpectShapeAgrees(const Cell& cell) {
  std::string by_shape(2 * cell.size, '\0');
  std::string by_rule(2 * cell.size, '\0');
  ValueCheck check;
  char* w = WriteValue(cell.data, cell.size, cell.shape, by_shape.data(),
                       &check);
  by_shape.resize(w == nullptr ? 0 : static_cast<size_t>(w - by_shape.data()));
  w = WriteValue(cell.data, cell.size, ValueShape::kUnknown, by_rule.data(),
                 &check);
  by_rule.resize(w == nullptr ? 0 : static_cast<size_t>(w - by_rule.data()));
  EXPECT_EQ(by_shape, by_rule) << std::string(cell.data, cell.size);
}

TEST(ScanCsvRowTest, ReadsRowsAsLibcsvDoes) {
  const std::string sixteen = "0123456789abcdef";
  static const struct {
    char delim;
    std::string row;
  } kCases[] = {
      {',', "a,b,c\r"},  // the LF of a CRLF is a row of its own
      {',', "\n"},
      {',', ",\r"},
      {',', " a , b\t\n"},
      {',', "\"\"\n"},
      {',', "\"a,b\"\"c\"\"\r\nd\",\"\"\"\",x\r"},
      {',', "\"" + sixteen + "\"\"" + sixteen + "\"," + sixteen + "\n"},
      {',', sixteen + sixteen + "," + sixteen.substr(1) + "\n"},
      // Values that are written as they are, and their near misses.
      {',', "plain," + sixteen + "$," + sixteen + " ,tail \r"},
      {',', "\xC3\xA9t\xC3\xA9,\xC3," + sixteen + "\xE2\x82\xAC,a\x7F\x1F\n"},
      // An escaped byte where the next block has a high one.
      {',', "$" + sixteen.substr(1) + "\xC3\xA9,x\n"},
      {',', "a>b,@," + sixteen + sixteen + "\\,x&y,\xF0\x9F\x98\x80 \n"},
      {',', std::string("a\0b,\xC3\xA9\x01\xFF", 8) + "\n"},
      {'\t', "a,b\t\"c\td\"\t,\n"},
      {'\t', "\"x\r\"\"y\"\t" + sixteen + "\r"},
  };
  for (const auto& c : kCases) {
    // The row, then more text that must not matter.
    const std::string text = c.row + "next,row\n";
    Library want;
    ASSERT_TRUE(LibraryReads(text, c.delim, &want)) << c.row;
    CsvRow row;
    std::string copy = text;
    size_t used = 0;
    ASSERT_EQ(ScanCsvRow(copy.data(), copy.size(), c.delim, &row, &used),
              RowScan::kRow)
        << c.row;
    EXPECT_EQ(used, c.row.size()) << c.row;
    EXPECT_EQ(Fields(row), want.fields) << c.row;
    EXPECT_EQ(static_cast<unsigned char>(row.end), want.end) << c.row;
    EXPECT_EQ(copy.substr(used), text.substr(used)) << c.row;
    for (const Cell& cell : row.cells)
      ExpectShapeAgrees(cell);

    // Every cut before the line end leaves the row unfinished, and the
    // text as it was.
    for (size_t cut = 0; cut + 1 < c.row.size(); ++cut) {
      copy = text;
      EXPECT_EQ(ScanCsvRow(copy.data(), cut, c.delim, &row, &used),
                RowScan::kUnfinished)
          << c.row << " cut at " << cut;
      EXPECT_EQ(copy, text) << c.row << " cut at " << cut;
    }
  }
}

}  // namespace
}  // namespace formfill_table
