// The rows formfill-table's CSV reader splits itself, against libcsv
// reading the same bytes, and the rows it must leave to libcsv.
#include <csv.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "table/csv_source.h"

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
  for (size_t f = 0, begin = 0; f < row.ends.size(); begin = row.ends[f++])
    fields.push_back(row.text.substr(begin, row.ends[f] - begin));
  return fields;
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
    size_t used = 0;
    ASSERT_EQ(ScanCsvRow(text.data(), text.size(), c.delim, &row, &used),
              RowScan::kRow)
        << c.row;
    EXPECT_EQ(used, c.row.size()) << c.row;
    EXPECT_EQ(Fields(row), want.fields) << c.row;
    EXPECT_EQ(static_cast<unsigned char>(row.end), want.end) << c.row;

    // Every cut before the line end leaves the row unfinished.
    for (size_t cut = 0; cut + 1 < c.row.size(); ++cut)
      EXPECT_EQ(ScanCsvRow(text.data(), cut, c.delim, &row, &used),
                RowScan::kUnfinished)
          << c.row << " cut at " << cut;
  }
}

TEST(ScanCsvRowTest, LeavesRowsLibcsvRefusesToIt) {
  static const char* const kRows[] = {
      "a\"b,c\n",         // a quote inside an unquoted field
      "a,b\"\n",          //   at its end
      "\"a\"b,c\n",       // text after the closing quote
      "\"a\" ,c\n",       //   a blank
      "x,\"a\"\"\"b\"\n",  // a doubled quote, then text
  };
  for (const char* text : kRows) {
    const std::string row = text;
    Library want;
    EXPECT_FALSE(LibraryReads(row, ',', &want)) << row;
    CsvRow scanned;
    size_t used = 0;
    EXPECT_EQ(ScanCsvRow(row.data(), row.size(), ',', &scanned, &used),
              RowScan::kOther)
        << row;
  }
}

}  // namespace
}  // namespace formfill_table
