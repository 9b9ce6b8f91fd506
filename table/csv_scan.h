// Splits CSV text into rows, for the rows strict CSV makes simple.
#ifndef FORMFILL_TABLE_CSV_SCAN_H_
#define FORMFILL_TABLE_CSV_SCAN_H_

#include <cstddef>
#include <vector>

#include "table/records.h"

namespace formfill_table {

// The fields of one row, and what is known of it.
struct CsvRow {
  std::vector<Cell> cells;
  bool breaks = false;  // a field may hold line breaks
  char end = 0;         // the byte that ended the row: CR or LF
  std::vector<size_t> doubled;  // quoted fields with a doubled quote
};

enum class RowScan {
  kRow,         // a whole row, its line end included
  kUnfinished,  // the text ends inside the row
  kOther,       // a quote where strict CSV has none: left to libcsv
};

// Reads the row at the start of text, delimited by delim (',' or '\t'), as
// libcsv reads it with ConvertCsv's options, for rows that libcsv accepts;
// it gives up on the others (kOther) and on rows the text does not hold up
// to their line end (kUnfinished). A line end alone is a row without
// fields. With kRow, *used is the row's size, its line end included, and
// the cells point into text: a quoted field's doubled quotes are made one
// where they stand, the only change to text, made only for kRow; otherwise
// row->cells is empty. Rows ending at the end of the input are left to
// libcsv too.
RowScan ScanCsvRow(char* text, size_t size, char delim, CsvRow* row,
                   size_t* used);

// Line ends in text: an LF, a CR not followed by LF, and CRLF count one
// each.
long CountLineEnds(const char* text, size_t size);

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_CSV_SCAN_H_
