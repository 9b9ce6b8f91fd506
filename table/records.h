// Rows of cells turned into the records and the header of a table.
#ifndef FORMFILL_TABLE_RECORDS_H_
#define FORMFILL_TABLE_RECORDS_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "table/table_text.h"

namespace formfill_table {

struct Cell {
  const char* data;
  size_t size;
  ValueShape shape = ValueShape::kUnknown;
};

struct CellFault {
  size_t column = 0;  // 0-based, in the row
  ValueCheck check;
};

// Writes rows of a fixed width as records: the listed columns, in their
// order, become the fields $1, $2, ...
class RecordBuilder {
 public:
  RecordBuilder(std::vector<size_t> columns, size_t width);
  RecordBuilder(const RecordBuilder&) = delete;
  RecordBuilder& operator=(const RecordBuilder&) = delete;

  // Builds the record of one row of width cells into text(). Every cell is
  // checked, also those not written; false with *fault filled when one
  // cannot go into a table.
  bool Build(const Cell* cells, CellFault* fault);
  const TextBuffer& text() const { return m_Text; }

 private:
  // "$k;" after the line end of the field before, in a block of a fixed
  // size: copied whole, then the size of the text counts.
  struct Opening {
    char text[24];
    size_t size;
  };

  std::vector<size_t> m_Columns;
  std::vector<size_t> m_Unwritten;
  std::vector<Opening> m_Openings;
  std::string m_Closing;  // "@" and its line end
  TextBuffer m_Text;
};

// The header of a table giving the header fields (number → value), in
// ascending order. False with *err naming the field when a value cannot go
// into a table.
bool HeaderText(const std::map<long, std::string>& fields, std::string* text,
                std::string* err);

// The column that wanted names in names: its exact name first, else its
// 1-based number. False with *err filled when there is none.
bool FindColumn(const std::vector<std::string>& names,
                const std::string& wanted, size_t* column, std::string* err);

// The columns of a comma-separated list, as FindColumn finds each.
bool FindColumns(const std::vector<std::string>& names,
                 const std::string& list, std::vector<size_t>* columns,
                 std::string* err);

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_RECORDS_H_
