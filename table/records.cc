#include "table/records.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace formfill_table {

RecordBuilder::RecordBuilder(std::vector<size_t> columns, size_t width)
    : m_Columns(std::move(columns)) {
  std::vector<bool> written(width, false);
  for (size_t i = 0; i < m_Columns.size(); ++i) {
    written[m_Columns[i]] = true;
    // The line end of the field before goes with the selector.
    const std::string text = (i == 0 ? "" : "\n") +
                             Selector('$', static_cast<long>(i + 1));
    Opening opening = {};
    memcpy(opening.text, text.data(), text.size());  // at most 23 bytes
    opening.size = text.size();
    m_Openings.push_back(opening);
  }
  m_Closing = m_Columns.empty() ? "@\n" : "\n@\n";
  for (size_t c = 0; c < width; ++c)
    if (!written[c])
      m_Unwritten.push_back(c);
}

bool RecordBuilder::Build(const Cell* cells, CellFault* fault) {
  // Every byte of a value may gain a backslash; nothing else grows.
  size_t room = m_Columns.size() * sizeof(Opening::text) + m_Closing.size();
  for (size_t c : m_Columns)
    room += 2 * cells[c].size;
  m_Text.Clear();
  char* w = m_Text.Reserve(room);
  // Each field on a line of its own: "$k;" directly before the value means
  // no value ever starts a line, where ">" and "@" would mean more.
  for (size_t i = 0; i < m_Columns.size(); ++i) {
    const Cell& cell = cells[m_Columns[i]];
    const Opening& opening = m_Openings[i];
    memcpy(w, opening.text, sizeof opening.text);
    w = WriteValue(cell.data, cell.size, cell.shape, w + opening.size,
                   &fault->check);
    if (w == nullptr) {
      fault->column = m_Columns[i];
      return false;
    }
  }
  memcpy(w, m_Closing.data(), m_Closing.size());
  m_Text.Advance(w + m_Closing.size());
  for (size_t c : m_Unwritten) {
    if (cells[c].shape == ValueShape::kPlain)
      continue;
    fault->check = CheckValue(cells[c].data, cells[c].size);
    if (!fault->check.ok()) {
      fault->column = c;
      return false;
    }
  }
  return true;
}

bool HeaderText(const std::map<long, std::string>& fields, std::string* text,
                std::string* err) {
  TextBuffer buffer;
  for (const auto& [number, value] : fields) {
    const std::string selector = Selector('&', number);
    buffer.Append(selector.data(), selector.size());
    const ValueCheck check = AppendValue(value.data(), value.size(), &buffer);
    if (!check.ok()) {
      *err = "header field " + std::to_string(number) + " holds " +
             FaultText(check.fault);
      return false;
    }
    buffer.Append("\n", 1);
  }
  text->assign(buffer.data(), buffer.size());
  return true;
}

bool FindColumn(const std::vector<std::string>& names,
                const std::string& wanted, size_t* column, std::string* err) {
  for (size_t c = 0; c < names.size(); ++c) {
    if (names[c] == wanted) {
      *column = c;
      return true;
    }
  }
  if (!wanted.empty() && wanted.size() < 10 &&
      wanted.find_first_not_of("0123456789") == std::string::npos) {
    const size_t number = std::strtoul(wanted.c_str(), nullptr, 10);
    if (number >= 1 && number <= names.size()) {
      *column = number - 1;
      return true;
    }
  }
  *err = "no column '" + wanted + "' (the columns are";
  for (size_t c = 0; c < names.size(); ++c)
    *err += (c == 0 ? " '" : ", '") + names[c] + "'";
  *err += names.empty() ? " none)" : ")";
  return false;
}

bool FindColumns(const std::vector<std::string>& names,
                 const std::string& list, std::vector<size_t>* columns,
                 std::string* err) {
  size_t begin = 0;
  for (;;) {
    const size_t comma = list.find(',', begin);
    const std::string item = list.substr(
        begin, comma == std::string::npos ? std::string::npos : comma - begin);
    size_t column;
    if (!FindColumn(names, item, &column, err))
      return false;
    columns->push_back(column);
    if (comma == std::string::npos)
      return true;
    begin = comma + 1;
  }
}

}  // namespace formfill_table
