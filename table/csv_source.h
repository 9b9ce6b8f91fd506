// Reads comma- or tab-separated values into tables.
#ifndef FORMFILL_TABLE_CSV_SOURCE_H_
#define FORMFILL_TABLE_CSV_SOURCE_H_

#include <cstddef>
#include <string>

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

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_CSV_SOURCE_H_
