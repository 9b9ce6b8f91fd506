// The table and the parameters file, read by formfill's own reader: every
// piece it meets is told to the checker, which keeps the lines and columns.
#include <cstring>
#include <fstream>
#include <set>
#include <vector>

#include "check/static_checks.h"
#include "driver/table_observer.h"
#include "driver/tbl.h"
#include "textio/helpers.h"
#include "textio/utf8.h"

namespace {

class TableCheck : public TableObserver {
 public:
  TableCheck(CheckState& s, std::string table, std::string params,
             const EncodingScan& scan)
      : m_S(s), m_Table(std::move(table)), m_Params(std::move(params)),
        m_Scan(scan) {}

  void Selector(wchar_t marker, long number, size_t length) override;
  void NotSelector(wchar_t marker, size_t length) override;
  void Text(const wchar_t* chars, size_t n) override;
  void Escape(wchar_t c) override;
  void LineEnd() override;
  void RecordEnd() override;
  void PageMark() override;
  void HeaderEnd(wchar_t c) override;
  void ParametersBegin() override { m_InParams = true; m_PLine = 1; m_PColumn = 1; }
  void ParametersEnd() override { m_InParams = false; }
  void InputEnd(bool undecodable) override;

 private:
  long& Line() { return m_InParams ? m_PLine : m_Line; }
  long& Column() { return m_InParams ? m_PColumn : m_Column; }
  const std::string& File() const { return m_InParams ? m_Params : m_Table; }
  void Add(Severity severity, const std::string& message,
           const std::string& name, long column = 0) {
    m_S.Add(File(), Line(), column != 0 ? column : Column(), severity, message,
            name);
  }
  // Something other than blanks came: after an "@" on the same line, the
  // record it ended has company.
  void Content();
  void NewRecordField(long number);

  CheckState& m_S;
  std::string m_Table;
  std::string m_Params;
  const EncodingScan& m_Scan;
  bool m_InParams = false;
  bool m_InHeader = true;
  long m_Line = 1;
  long m_Column = 1;
  long m_PLine = 1;
  long m_PColumn = 1;
  bool m_LineStart = true;
  // The record being read: whether it holds anything yet, its fields.
  bool m_Open = false;
  long m_OpenLine = 0;
  // The fields selected in the record being read: below kDirect, the
  // number of the record that last selected each (no clearing between
  // records); above it, a set.
  static constexpr long kDirect = 1 << 16;
  bool SelectedBefore(long number);
  long m_Record = 1;
  std::vector<long> m_SelectedIn;
  std::set<long> m_Selected;
  // Record fields met so far (below kDirect): each is looked up once.
  std::vector<bool> m_Known;
  // An "@" on this line, where.
  long m_AtColumn = 0;
  long m_HeaderEndLine = 0;
  std::set<long> m_Unused;
};

void TableCheck::Content() {
  if (m_AtColumn != 0) {
    Add(Severity::kWarning,
        "this \"@\" ends the record in the middle of a line, and the text "
        "after it begins the next one: in a value (an e-mail address, say) "
        "write \"\\@\"",
        "at-in-line", m_AtColumn);
    m_AtColumn = 0;
  }
  if (!m_InHeader && !m_InParams && !m_Open) {
    m_Open = true;
    m_OpenLine = m_Line;
  }
}

void TableCheck::Selector(wchar_t marker, long number, size_t length) {
  Content();
  if (m_InParams) {
    m_S.params_header.insert(number);
    if (m_S.table_header.count(number) != 0) {
      Add(Severity::kNote,
          "the table gives &" + std::to_string(number) +
              " already; formfill keeps the table's value and skips this one",
          "params-shadowed");
    }
  } else if (marker == L'&') {
    m_S.table_header.insert(number);
  } else {
    if (SelectedBefore(number)) {
      Add(Severity::kWarning,
          "$" + std::to_string(number) +
              " is selected twice in one record: its values are joined "
              "(is the \"@\" that ends a record missing?)",
          "field-twice");
    }
    const bool known = number < kDirect &&
                       static_cast<size_t>(number) < m_Known.size() &&
                       m_Known[static_cast<size_t>(number)];
    if (!known)
      NewRecordField(number);
  }
  m_LineStart = false;
  Column() += static_cast<long>(length);
}

bool TableCheck::SelectedBefore(long number) {
  if (number >= kDirect || number < 0)
    return !m_Selected.insert(number).second;
  const auto at = static_cast<size_t>(number);
  if (at >= m_SelectedIn.size())
    m_SelectedIn.resize(at + 1, 0);
  const bool before = m_SelectedIn[at] == m_Record;
  m_SelectedIn[at] = m_Record;
  return before;
}

// A record field met for the first time (or one above kDirect).
void TableCheck::NewRecordField(long number) {
  if (number >= 0 && number < kDirect) {
    const auto at = static_cast<size_t>(number);
    if (at >= m_Known.size())
      m_Known.resize(at + 1, false);
    m_Known[at] = true;
  }
  m_S.table_records.insert(number);
  if (m_S.section_exists[0] && m_S.record_uses.count(number) == 0 &&
      m_Unused.insert(number).second) {
    Add(Severity::kWarning,
        "no section of the template uses $" + std::to_string(number) +
            ": formfill drops its text",
        "unused-field");
  }
}

void TableCheck::NotSelector(wchar_t marker, size_t length) {
  Content();
  if (length > 1) {
    Add(Severity::kWarning,
        std::string(marker == L'$' ? "$" : "&") +
            "N without \";\" is not a selector: formfill keeps it in the "
            "value as text",
        "no-semicolon");
  }
  m_LineStart = false;
  Column() += static_cast<long>(length);
}

void TableCheck::Text(const wchar_t* chars, size_t n) {
  // Content() has nothing to do inside an open record with no "@" before
  // on the line: the scan for blanks is spared there.
  if (m_AtColumn != 0 || (!m_Open && !m_InHeader && !m_InParams)) {
    bool blank = true;
    for (size_t k = 0; k < n && blank; ++k)
      blank = chars[k] == L' ' || chars[k] == L'\t' || chars[k] == L'\r';
    if (!blank)
      Content();
  }
  if (m_LineStart && !m_InHeader && !m_InParams && n > 1 &&
      chars[0] == L'&' && IsDigit(chars[1])) {
    Add(Severity::kWarning,
        "a header selector among the records is text: the header ended at "
        "line " + std::to_string(m_HeaderEndLine) +
            " (a line there begins with \"$\", \">\" or \"@\")",
        "header-ended");
  }
  m_LineStart = false;
  Column() += static_cast<long>(n);
}

void TableCheck::Escape(wchar_t c) {
  Content();
  m_LineStart = false;
  if (c == L'\n') {
    ++Line();
    Column() = 1;
  } else {
    Column() += 2;
  }
}

void TableCheck::LineEnd() {
  ++Line();
  Column() = 1;
  m_LineStart = true;
  m_AtColumn = 0;
}

void TableCheck::RecordEnd() {
  ++m_S.records;
  m_Open = false;
  ++m_Record;
  if (!m_Selected.empty())
    m_Selected.clear();
  m_AtColumn = Column();
  Column() += 1;
  m_LineStart = false;
}

void TableCheck::PageMark() {
  ++m_S.page_marks;
  if (m_Open) {
    Add(Severity::kWarning,
        "a line of a record that begins with \">\" is a page mark, not text: "
        "write \"\\>\" for the character",
        "page-mark-in-record");
  }
  Column() += 1;
  m_LineStart = false;
}

void TableCheck::HeaderEnd(wchar_t) {
  m_InHeader = false;
  m_HeaderEndLine = m_Line;
}

void TableCheck::InputEnd(bool undecodable) {
  if (m_InParams)
    return;
  if (undecodable && !m_InHeader) {
    Add(Severity::kError,
        "formfill stops reading the table at byte " +
            std::to_string(m_Scan.stop_offset) +
            ", which it cannot decode: the " +
            std::to_string(m_Scan.ends_after_stop) +
            " records after it are never read",
        "table-cut");
  }
  if (m_Open && !m_InHeader && !undecodable) {
    m_S.Add(m_Table, m_OpenLine, 1, Severity::kError,
        "the last record has no \"@\": formfill leaves it out (its text may "
        "turn up in the closing text)",
        "no-end-mark");
  }
}

void CheckBytes(CheckState& s, const std::string& table) {
  std::ifstream in(table, std::ios::binary);
  char head[3] = {0, 0, 0};
  in.read(head, 3);
  if ((head[0] == '\xFF' && head[1] == '\xFE') ||
      (head[0] == '\xFE' && head[1] == '\xFF')) {
    s.Add(table, 1, 1, Severity::kError,
          "the table is UTF-16: formfill reads UTF-8 only and stops at once",
          "encoding");
  } else if (std::memcmp(head, "\xEF\xBB\xBF", 3) == 0) {
    s.Add(table, 1, 1, Severity::kWarning,
          "the table begins with a byte-order mark, which formfill keeps as "
          "a character before the first selector",
          "bom");
  }
}

}  // namespace

void CheckTable(CheckState& state) {
  const Options& o = state.options;
  const std::string table = NarrowBytes(o.table);
  std::ifstream probe(table);
  if (!probe)
    return;  // said with the command line
  CheckBytes(state, table);
  const EncodingScan scan = CheckEncoding(state, table, "a table");
  if (!o.params.empty() && o.path.find(L';') == std::wstring::npos) {
    // Where formfill looks for the parameters file: in the -P directory,
    // or here.
    std::wstring dir = o.path;
    if (!dir.empty() && dir.back() != L'/')
      dir.push_back(L'/');
    const std::string params = NarrowBytes(dir + o.params);
    if (std::ifstream(params))
      CheckEncoding(state, params, "a parameters file");
  }
  // The record fields every section uses, so that the reader keeps them.
  Tbl::TabHdrField.freeAll();
  Tbl::TabRcdField.freeAll();
  for (const auto& use : state.record_uses)
    Tbl::TabRcdField.InsertField(use.first);
  Tbl::InpFile = o.table;
  // A directory list with ";" makes the search for the parameters file
  // endless (said with the command line); the file is not read then.
  Tbl::BegParam =
      o.path.find(L';') != std::wstring::npos ? std::wstring() : o.params;
  Tbl::PathBlank = o.path;
  TableCheck check(state, table, NarrowBytes(o.params), scan);
  SetTableObserver(&check);
  {
    Tbl reader;
    if (reader.GetHider()) {
      reader.GetBegin();
      while (reader.GetRecord() != 0) {
      }
    }
  }
  SetTableObserver(nullptr);
  state.table_read = true;
  if (state.records == 0) {
    state.Add(table, 1, 1, Severity::kWarning,
              "the table has no records (none ends with \"@\")", "no-records");
  }
}
