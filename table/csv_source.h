// Reads comma- or tab-separated values into tables.
#ifndef FORMFILL_TABLE_CSV_SOURCE_H_
#define FORMFILL_TABLE_CSV_SOURCE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "table/records.h"
#include "table/table_writer.h"

namespace formfill_table {

struct CsvOptions {
  bool tsv = false;      // tab-separated instead of comma-separated
  std::string fields;    // comma-separated columns to write; empty: all
  std::string split_by;  // the column whose values split; empty: none
};

// Reads fd to its end: the first row names the columns, every further row
// becomes a record given to writer (which must have been started). name
// stands for the input in messages. False with *err filled as
// "NAME:LINE: what" on bad input, the input line counted from 1.
bool ConvertCsv(int fd, const std::string& name, const CsvOptions& options,
                TableWriter* writer, std::string* err);

// The fields of one row, and the byte that ended it (CR or LF).
struct CsvRow {
  std::vector<Cell> cells;
  bool breaks = false;  // a field may hold line breaks
  char end = 0;
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
// where they stand, the only change to text, made only for kRow. Rows
// ending at the end of the input are left to libcsv too.
RowScan ScanCsvRow(char* text, size_t size, char delim, CsvRow* row,
                   size_t* used);

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_CSV_SOURCE_H_
