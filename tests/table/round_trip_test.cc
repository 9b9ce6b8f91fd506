// Tables made by formfill-table, read back by formfill itself: random
// values of every kind come back as they were (up to the two changes the
// table format imposes), a database fills the example delivery note, and
// the README's commands run as written.
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/table/program.h"
#include "tests/test_util.h"

namespace {

namespace fs = std::filesystem;

const std::string kData = std::string(FORMFILL_SOURCE_DIR) + "/tests/table/data/";
const std::string kExamples = std::string(FORMFILL_SOURCE_DIR) + "/examples/";

class RoundTripTest : public testing::Test {
 protected:
  RoundTripTest() : m_Work(m_Tmp.path() + "/work") {
    fs::create_directory(m_Work);
  }
  void Copy(const std::string& from, const std::string& name) {
    fs::copy_file(from, m_Work + "/" + name);
  }
  void CopyDeliveryNote() {
    for (const char* name : {"form.1", "form.2", "form.3", "letterhead.par"})
      Copy(kExamples + name, name);
  }
  RunResult Run(std::vector<std::string> argv, const std::string& input = "") {
    return RunProgram(m_Work, argv, input);
  }
  std::string Read(const std::string& name) {
    return ReadFile(m_Work + "/" + name);
  }

  TempDir m_Tmp;
  const std::string m_Work;
};

// What formfill gives back for a cell, written apart from the program's
// own loop: each stretch of blanks, tabs and line breaks that holds a line
// break is one blank, and trailing blanks and tabs go.
std::string Expected(const std::string& cell) {
  std::string out;
  size_t i = 0;
  while (i < cell.size()) {
    const size_t run_end = cell.find_first_not_of(" \t\r\n", i);
    const size_t end = run_end == std::string::npos ? cell.size() : run_end;
    const std::string run = cell.substr(i, end - i);
    if (run.empty()) {
      out += cell[i++];
      continue;
    }
    out += run.find_first_of("\r\n") == std::string::npos ? run : " ";
    i = end;
  }
  return out.substr(0, out.find_last_not_of(" \t") + 1);
}

std::string CsvCell(const std::string& cell, bool quote) {
  if (!quote && cell.find_first_of(",\"\r\n") == std::string::npos)
    return cell;
  std::string out = "\"";
  for (char c : cell)
    out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

TEST_F(RoundTripTest, RandomValuesComeBackThroughFormfill) {
  constexpr int kRows = 1200;
  constexpr int kColumns = 10;
  constexpr int kWidth = 200;  // wider than any value: nothing wraps
  static const char* const kPieces[] = {
      "a", "Zq", "42", " ", "  ", "\t", "\n", "\r\n", "\r", " \n ", "\\",
      "$", "@", "&", ">", "#", ";", "?", ",", "\"", "'", "$5;", "&1;", "@@",
      "\\\n", ">>", "\x02", "\x0b", "\x1f", "\x7f", "\xC3\xA9", "\xC3\xB8",
      "\xE2\x82\xAC", "\xE2\x80\x9C", "\xEF\xBB\xBF", "\xF0\x9F\x98\x80",
      "\xF0\x9D\x84\x9E", "\xE6\x97\xA5\xE6\x9C\xAC"};
  std::mt19937 random(18);
  std::uniform_int_distribution<size_t> piece(0, std::size(kPieces) - 1);
  std::uniform_int_distribution<int> length(0, 12);

  // The last column is never empty, so that formfill prints every line of
  // the form for each record before it takes the next.
  std::string csv;
  for (int c = 1; c <= kColumns; ++c)
    csv += "c" + std::to_string(c) + ",";
  csv += "end\r\n";
  std::string form = ">10\n";
  for (int c = 1; c <= kColumns; ++c)
    form += "F" + std::to_string(c) + "|$" + std::to_string(c) +
            std::string(kWidth - 2 - std::to_string(c).size(), ' ') + "?\n";
  form += "E|$" + std::to_string(kColumns + 1) + " ?\n>jump to 10\n";
  std::string expected;
  for (int r = 0; r < kRows; ++r) {
    for (int c = 1; c <= kColumns; ++c) {
      std::string cell;
      for (int n = length(random); n > 0; --n)
        cell += kPieces[piece(random)];
      csv += CsvCell(cell, random() % 3 == 0) + ",";
      expected += "F" + std::to_string(c) + "|" + Expected(cell) + "\n";
    }
    csv += "END\r\n";
    expected += "E|END\n";
  }
  m_Tmp.Write("work/values.csv", csv);
  m_Tmp.Write("work/form.1", form);

  const RunResult table =
      Run({FORMFILL_TABLE_BIN, "-o", "values.tbl", "values.csv"});
  ASSERT_EQ(table.status, 0) << table.err;
  const RunResult fill =
      Run({FORMFILL_BIN, "-Bform", "-Ivalues.tbl", "-Ovalues.txt"});
  ASSERT_EQ(fill.status, 0) << fill.out;

  // The form pads each value with blanks up to the stretch's end.
  std::istringstream doc(Read("values.txt"));
  std::string got;
  for (std::string line; std::getline(doc, line);)
    got += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  std::istringstream want_lines(expected), got_lines(got);
  int values = 0;
  for (std::string want, line; std::getline(want_lines, want); ++values) {
    ASSERT_TRUE(std::getline(got_lines, line)) << "document ends early";
    ASSERT_EQ(line, want) << "value " << values;
  }
  EXPECT_EQ(values, kRows * (kColumns + 1));
}

TEST_F(RoundTripTest, DatabaseFillsTheDeliveryNote) {
  CopyDeliveryNote();
  Copy(kData + "reference.tbl", "reference.tbl");
  ASSERT_EQ(Run({"/usr/bin/sqlite3", "shop.db"}, ReadFile(kData + "shop.sql"))
                .status,
            0);
  const RunResult table = Run(
      {FORMFILL_TABLE_BIN, "--sqlite", "shop.db", "-o", "note.tbl",
       "--header-query",
       "SELECT NULL, NULL, name, address, no, day, po, carrier, NULL, "
       "customer_no, packages, weight, instructions FROM note "
       "WHERE no = 'LS-2025-04817'",
       "--query",
       "SELECT pos, article, description, qty, unit, weight, remark "
       "FROM item WHERE note_no = 'LS-2025-04817' ORDER BY pos"});
  ASSERT_EQ(table.status, 0) << table.err;
  for (const char* name : {"note", "reference"}) {
    const RunResult fill =
        Run({FORMFILL_BIN, "-Bform", std::string("-I") + name + ".tbl",
             std::string("-O") + name + ".txt", "-Fletterhead.par"});
    ASSERT_EQ(fill.status, 0) << fill.out;
  }
  // The hand-written table of the same note gives the same document.
  EXPECT_EQ(Read("note.txt"), Read("reference.txt"));
  EXPECT_NE(Read("note.txt").find("  $5; @ > \\ kept as typed"),
            std::string::npos);
}

// The shell block under the README's heading, as the user would type it.
std::string ReadmeCommands() {
  std::istringstream readme(ReadFile(std::string(FORMFILL_SOURCE_DIR) + "/README.md"));
  std::string line, block;
  while (std::getline(readme, line) &&
         line != "## From a spreadsheet or a database to a stack of documents") {
  }
  while (std::getline(readme, line) && line != "```sh") {
  }
  while (std::getline(readme, line) && line != "```")
    block += line + "\n";
  return block;
}

TEST_F(RoundTripTest, ReadmeCommandsMakeOneNotePerCustomer) {
  CopyDeliveryNote();
  Copy(kData + "orders.csv", "orders.csv");
  ASSERT_EQ(Run({"/usr/bin/sqlite3", "shop.db"}, ReadFile(kData + "shop.sql"))
                .status,
            0);
  const std::string commands = ReadmeCommands();
  ASSERT_NE(commands.find("formfill-table"), std::string::npos);
  const std::string bin = fs::path(FORMFILL_TABLE_BIN).parent_path();
  const RunResult run = RunProgram(m_Work, {"/bin/sh", "-ec", commands}, "",
                                   bin + ":/usr/bin:/bin");
  ASSERT_EQ(run.status, 0) << run.err << run.out;
  EXPECT_EQ(ListDir(m_Work),
            "csv-K-20931.tbl\ncsv-K-20931.tbl.txt\n"
            "csv-K-31877.tbl\ncsv-K-31877.tbl.txt\n"
            "db-LS-2025-04817.tbl\ndb-LS-2025-04817.tbl.txt\n"
            "db-LS-2025-04818.tbl\ndb-LS-2025-04818.tbl.txt\n"
            "form.1\nform.2\nform.3\nletterhead.par\norders.csv\nshop.db\n");
  const std::string csv_note = Read("csv-K-20931.tbl.txt");
  EXPECT_NE(csv_note.find("Ask for \"Mette\" at the gate, 3rd floor"),
            std::string::npos) << csv_note;
  EXPECT_EQ(csv_note.find("BV-5605"), std::string::npos) << "other customer";
  EXPECT_NE(Read("db-LS-2025-04818.tbl.txt").find("Kolding Møbler A/S"),
            std::string::npos);
}

}  // namespace
