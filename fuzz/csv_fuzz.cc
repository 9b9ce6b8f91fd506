// Fuzzes formfill-table's CSV reader: the first byte chooses CSV or TSV,
// the rest is the input. Every input must either be refused (without an
// output file left behind) or give a table that formfill's own reader
// turns back into the cells, up to the line breaks and trailing blanks the
// table format cannot keep. Every row the reader's own scan takes must be
// read by libcsv alike, and every row it leaves to libcsv must be one that
// libcsv refuses or that the input ends in.
#include <csv.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "driver/tbl.h"
#include "fuzz/fuzz_util.h"
#include "table/csv_scan.h"
#include "table/csv_source.h"
#include "table/table_text.h"
#include "table/table_writer.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

struct Collector {
  Rows rows;
  std::vector<std::string> row;
};

int NoSpace(unsigned char) { return 0; }

void InitParser(csv_parser* p, bool tsv) {
  csv_init(p, CSV_STRICT | CSV_STRICT_FINI | CSV_REPALL_NL);
  csv_set_space_func(p, NoSpace);
  if (tsv)
    csv_set_delim(p, '\t');
}

// What libcsv makes of text, fed to it at the start of a row: the fields
// of the first row and the byte that ended it, how many bytes it took
// before it ended the row (all of them when it did not), and whether it
// refused them first.
struct LibraryRow {
  std::vector<std::string> fields;
  int end = 0;
  bool ended = false;
  bool refused = false;
  size_t used = 0;
};

LibraryRow FirstRow(const char* text, size_t size, bool tsv) {
  LibraryRow row;
  csv_parser p;
  InitParser(&p, tsv);
  auto field = [](void* s, size_t n, void* self) {
    auto* r = static_cast<LibraryRow*>(self);
    if (!r->ended)
      r->fields.emplace_back(static_cast<char*>(s), n);
  };
  auto end = [](int c, void* self) {
    auto* r = static_cast<LibraryRow*>(self);
    if (!r->ended)
      r->end = c;
    r->ended = true;
  };
  // A byte at a time, to see where the row ends.
  for (; row.used < size && !row.ended; ++row.used) {
    if (csv_parse(&p, text + row.used, 1, field, end, &row) != 1) {
      row.refused = true;
      break;
    }
  }
  csv_free(&p);
  return row;
}

// The cell written by the shape the scan found for it, and by the full
// rule: they must agree.
void CheckShape(const formfill_table::Cell& cell) {
  std::string by_shape(2 * cell.size, '\0');
  std::string by_rule(2 * cell.size, '\0');
  formfill_table::ValueCheck check;
  const char* a = formfill_table::WriteValue(cell.data, cell.size, cell.shape,
                                             by_shape.data(), &check);
  const char* b = formfill_table::WriteValue(
      cell.data, cell.size, formfill_table::ValueShape::kUnknown,
      by_rule.data(), &check);
  if ((a == nullptr) != (b == nullptr) ||
      (a != nullptr && by_shape.compare(0, static_cast<size_t>(a - by_shape.data()),
                                        by_rule, 0,
                                        static_cast<size_t>(b - by_rule.data())) != 0))
    abort();
}

// Walks the input with ScanCsvRow as far as it reads rows itself.
void CheckScan(const char* input, size_t size, bool tsv) {
  formfill_table::CsvRow row;
  std::string text(input, size);  // the scan changes rows it reads
  for (size_t pos = 0; pos < size;) {
    size_t used = 0;
    const std::string before = text.substr(pos);
    const formfill_table::RowScan scan = formfill_table::ScanCsvRow(
        text.data() + pos, size - pos, tsv ? '\t' : ',', &row, &used);
    const LibraryRow want = FirstRow(input + pos, size - pos, tsv);
    if (scan != formfill_table::RowScan::kRow &&
        text.compare(pos, std::string::npos, before) != 0)
      abort();  // changed the text of a row it did not read
    if (scan == formfill_table::RowScan::kOther) {
      if (!want.refused)
        abort();  // left to libcsv a row that libcsv reads
      return;
    }
    if (scan == formfill_table::RowScan::kUnfinished) {
      if (want.ended || want.refused)
        abort();  // the row was finished, or wrong, before the text ends
      return;
    }
    std::vector<std::string> fields;
    for (const formfill_table::Cell& cell : row.cells) {
      fields.emplace_back(cell.data, cell.size);
      CheckShape(cell);
    }
    if (want.refused || !want.ended || want.used != used ||
        want.end != static_cast<unsigned char>(row.end) ||
        want.fields != fields ||
        text.compare(pos + used, std::string::npos, before, used) != 0)
      abort();
    pos += used;
  }
}

// The cells as the same library reads them, to compare with.
Rows ParseCells(const uint8_t* data, size_t size, bool tsv) {
  if (size >= 3 && memcmp(data, "\xEF\xBB\xBF", 3) == 0) {
    data += 3;
    size -= 3;
  }
  Collector c;
  csv_parser p;
  InitParser(&p, tsv);
  auto field = [](void* s, size_t n, void* self) {
    static_cast<Collector*>(self)->row.emplace_back(static_cast<char*>(s), n);
  };
  auto row = [](int, void* self) {
    auto* c = static_cast<Collector*>(self);
    if (!c->row.empty())
      c->rows.push_back(std::move(c->row));
    c->row.clear();
  };
  if (csv_parse(&p, data, size, field, row, &c) != size ||
      csv_fini(&p, field, row, &c) != 0)
    abort();  // formfill-table accepted what the library refuses
  csv_free(&p);
  return c.rows;
}

// The cell as formfill should give it back, decoded to code points.
std::wstring Expected(const std::string& cell) {
  std::string text;
  for (size_t i = 0; i < cell.size();) {
    const size_t end = std::min(cell.find_first_not_of(" \t\r\n", i), cell.size());
    if (end == i) {
      text += cell[i++];
      continue;
    }
    const std::string run = cell.substr(i, end - i);
    text += run.find_first_of("\r\n") == std::string::npos ? run : " ";
    i = end;
  }
  text.erase(text.find_last_not_of(" \t") + 1);
  std::wstring wide;
  for (size_t i = 0; i < text.size();) {
    const auto b = static_cast<unsigned char>(text[i]);
    const int n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
    wchar_t c = n == 1 ? b : b & (0x7F >> n);
    for (int k = 1; k < n; ++k)
      c = (c << 6) | (text[i + k] & 0x3F);
    wide += c;
    i += n;
  }
  return wide;
}

void CheckTable(const std::string& table, const Rows& rows) {
  ResetFuzzState();
  const size_t width = rows.at(0).size();
  for (size_t k = 1; k <= width; ++k)
    Tbl::TabRcdField.InsertField(static_cast<long>(k));
  Tbl::InpFile = WidenPath(table);
  Tbl reader;
  if (!reader.GetHider())
    abort();
  for (size_t r = 1; r < rows.size(); ++r) {
    if (reader.GetRecord() != 1)
      abort();
    for (size_t k = 1; k <= width; ++k)
      if (Tbl::TabRcdField.at(static_cast<long>(k))->m_Value !=
          Expected(rows[r][k - 1]))
        abort();
  }
  if (reader.GetRecord() != 0)
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0)
    return 0;
  formfill_table::CsvOptions options;
  options.tsv = data[0] & 1;
  CheckScan(reinterpret_cast<const char*>(data + 1), size - 1, options.tsv);
  const std::string input = WriteScratch("in.csv", data + 1, size - 1);
  const std::string table = ScratchDir() + "out.tbl";
  unlink(table.c_str());

  const int fd = open(input.c_str(), O_RDONLY);
  std::string err;
  bool ok;
  {
    formfill_table::TableWriter writer("", table, false);
    std::vector<std::string> names;
    ok = writer.Start(&err) &&
         formfill_table::ConvertCsv(fd, "in.csv", options, &writer, &err) &&
         writer.Finish(&names, &err);
  }
  close(fd);
  if (!ok) {
    // Refused: a message, and no table.
    if (err.empty() || access(table.c_str(), F_OK) == 0)
      abort();
    return 0;
  }
  CheckTable(table, ParseCells(data + 1, size - 1, options.tsv));
  ResetFuzzState();
  return 0;
}
