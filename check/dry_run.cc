#include "check/dry_run.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <streambuf>
#include <string_view>
#include <tuple>

#include "check/safe_utf8.h"
#include "check/run_trace.h"
#include "check/sections.h"
#include "driver/run_observer.h"
#include "driver/table_observer.h"
#include "driver/tbl.h"
#include "template/blank.h"
#include "template/classify.h"
#include "textio/utf8.h"

namespace {

// Thrown by the observer when a run has done far more work than its input
// can account for: formfill would go round for ever here.
struct EndlessLoop {
  int section;
  int index;
};

// A wide stream buffer that drops everything: the run's messages on
// standard output are not the checker's output.
class NullBuffer : public std::wstreambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
};

// Counts the lines of the table (not of a parameters file) and notes the
// line on which each record begins.
class TableLines : public TableObserver {
 public:
  long record_line() const { return m_RecordLine; }

  void Selector(wchar_t, long, size_t) override { Seen(); }
  void NotSelector(wchar_t, size_t) override { Seen(); }
  void Text(const wchar_t*, size_t) override { Seen(); }
  void Escape(wchar_t c) override {
    Seen();
    if (c == L'\n' && !m_InParameters)
      ++m_Line;
  }
  void LineEnd() override {
    if (!m_InParameters)
      ++m_Line;
  }
  void RecordEnd() override { m_Pending = true; }
  void PageMark() override { Seen(); }
  void HeaderEnd(wchar_t) override { m_Pending = true; }
  void ParametersBegin() override { m_InParameters = true; }
  void ParametersEnd() override { m_InParameters = false; }

 private:
  void Seen() {
    if (m_Pending && !m_InParameters) {
      m_Pending = false;
      m_RecordLine = m_Line;
    }
  }

  long m_Line = 1;
  long m_RecordLine = 1;
  bool m_Pending = false;
  bool m_InParameters = false;
};

// The first words of text, for a message.
std::string Excerpt(const std::wstring& text, size_t limit = 40) {
  std::wstring cut = text.substr(0, limit);
  for (wchar_t& c : cut) {
    if (c == kValueSeparator || c < L' ')
      c = L' ';
  }
  if (text.size() > limit)
    cut += L"...";
  return "\"" + SafeUtf8(cut, "(text outside Unicode)") + "\"";
}

// True when text reads as an amount or a number: digits with at most a
// sign, separators and a currency sign or two. Cutting such a value
// changes what it says; cutting words is what a truncating stretch is for.
bool LooksNumeric(const wchar_t* text, size_t n) {
  size_t digits = 0;
  for (const wchar_t c : std::wstring_view(text, n)) {
    if (c >= L'0' && c <= L'9') {
      ++digits;
    } else if (!wcschr(L" .,'-+%$\u20AC\u00A3", c)) {
      return false;
    }
  }
  return digits > 0;
}

// Where a kind of finding arose, for summing repeats up.
using Place = std::tuple<std::string, int, int, int>;

struct Summed {
  RunFinding first;
  long count = 0;
};

class Analyzer : public RunObserver {
 public:
  Analyzer(const RunSettings& settings, const Sections& sections,
           const TableLines& table, std::ostream* trace)
      : m_Settings(settings),
        m_Sections(sections),
        m_Table(table),
        m_TableName(Narrow(settings.table)),
        m_Trace(trace),
        m_Tracing(trace != nullptr) {}

  void SectionLoaded(int section) override;
  void RecordRead(long number) override;
  void RecordDone(long number) override;
  void LinePrinted(int section, int index) override;
  void Placed(const Placement& placement) override;
  void Message(int n, int section, int index) override;
  void Step(int section, int index) override { Spend(section, index); }
  void Wrote(const wchar_t* text, size_t n) override;

  // The streams of the sections the run loaded. The engine leaves a
  // section's file open when it loads the next (formfill ends right
  // after); the checker closes them all once the run is over.
  void CloseSections() {
    for (FILE* stream : m_Streams) {
      if (stream != nullptr && stream != Blank::m_File.m_Stream)
        fclose(stream);
    }
    m_Streams.clear();
    if (Blank::m_File.m_Stream != nullptr) {
      fclose(Blank::m_File.m_Stream);
      Blank::m_File.m_Stream = nullptr;
    }
  }

  // After the run (or after it was stopped): what is left, summed up.
  std::vector<RunFinding> Finish(const EndlessLoop* loop);
  // How the run goes round at the place where it was stopped.
  std::string Round(const EndlessLoop& loop) const;
  // The run stopped with status 1 after it had begun: a continuation
  // section that cannot be loaded.
  RunFinding Stopped() const {
    return {"no-continuation", RunSeverity::kError,
            m_Record != 0 ? m_TableName : m_Sections.Name(2),
            m_Record != 0 ? m_RecordLine : 1, 1,
            (m_Record != 0 ? TableAt(m_Record) + " needs" : std::string("the run needs")) +
                " a continuation sheet, and " + m_Sections.Name(2) +
                " cannot be loaded: formfill stops there with message 11 \"" +
                Narrow(Tbl::Err(Tbl::errTemplateLoad)) + "\""};
  }
  // The run ended with an exception that formfill lets end the process.
  RunFinding Aborted(const std::string& what) const;

 private:
  std::string Narrow(const std::wstring& name) const;
  std::string TableAt(long record) const;
  void Add(const Place& place, RunFinding finding);
  // True, and one more counted, when a finding at place is known already.
  bool Counted(const Place& place);
  void NewBudget();
  double Window() const;
  void Spend(int section, int index);
  void LostText(long record, const char* how);
  void SheetLine();
  void NoteAbove(int section, int index);
  void RecordStarts(std::vector<RunFinding>& out) const;
  struct LineUse;
  RunFinding AboveFinding(int section, int at, const LineUse& use) const;
  RunFinding StartFinding(int section, int at, const LineUse& use, int other,
                          const LineUse& other_use) const;
  void FinishSheet();

  const RunSettings& m_Settings;
  const Sections& m_Sections;
  const TableLines& m_Table;
  std::string m_TableName;
  RunTrace m_Trace;
  bool m_Tracing;

  // The record being filled (0: none) and the table line it begins on.
  long m_Record = 0;
  long m_RecordLine = 0;
  bool m_AwaitFirstLine = false;
  bool m_PageMarkPending = false;
  int m_Section = 0;
  int m_Index = -1;
  double m_Budget = 0;
  int64_t m_RecordLeast = 0;
  int64_t m_HeaderLeast = 0;

  // Per template line: the records that began on it, the first of them,
  // and the lines those records print after it before they turn back.
  using Where = std::pair<int, int>;
  struct LineUse {
    long starts = 0;
    long first_record = 0;
    long first_table_line = 0;
    std::vector<bool> body;  // by index within the same section
    // A line above this one that a record beginning here printed before it
    // ended (-1: none), and that record with its table line.
    int above = -1;
    long above_record = 0;
    long above_table_line = 0;
  };
  LineUse* Use(Where where);
  std::vector<LineUse> m_Uses[3];
  // The first record's first line and the lines it prints on its way
  // down: evidence of the loop's order when later records begin there too.
  Where m_FirstOfAll{0, -1};
  std::vector<bool> m_FirstBody;
  // The record's first line, and its last while it still goes forward.
  Where m_First{0, -1};
  // Where the record being filled began on the sheet being written, when
  // it is a later record that began on a template line (not on a sheet of
  // its own): {0, -1} otherwise.
  Where m_Start{0, -1};
  int m_Previous = -1;
  bool m_Forward = false;

  // The sheet being written: its number, its lines so far, and the record
  // that took it past the limit (0: none yet).
  long m_Sheet = 0;
  long m_SheetLines = 0;
  long m_RecordSheetLine = 0;
  long m_Over = 0;
  long m_OverLine = 0;
  bool m_OverStartedHere = false;
  long m_LongSheets = 0;

  std::vector<FILE*> m_Streams;
  std::map<Place, Summed> m_Summed;
  std::vector<Place> m_Order;
  bool m_Message12 = false;
};

std::string Analyzer::Narrow(const std::wstring& name) const {
  return SafeUtf8(name);
}

std::string Analyzer::TableAt(long record) const {
  return "record " + std::to_string(record) + " (" + m_TableName + ":" +
         std::to_string(m_RecordLine) + ")";
}

bool Analyzer::Counted(const Place& place) {
  const auto it = m_Summed.find(place);
  if (it == m_Summed.end()) {
    return false;
  }
  ++it->second.count;
  return true;
}

void Analyzer::Add(const Place& place, RunFinding finding) {
  auto [it, fresh] = m_Summed.try_emplace(place);
  if (fresh) {
    it->second.first = std::move(finding);
    m_Order.push_back(place);
  }
  ++it->second.count;
}

void Analyzer::NewBudget() {
  m_RecordLeast = Tbl::TabRcdField.AllOst();
  m_HeaderLeast = Tbl::TabHdrField.AllOst();
  m_Budget = Window();
}

double Analyzer::Window() const {
  // Work a run may do without using up any text before it is taken for one
  // that never ends: every line of every section, each repeated as often as
  // the template repeats anything, several times over (the guard against
  // backward jumps lets a loop round twice without progress).
  return static_cast<double>(m_Sections.Entries() + 1) *
             static_cast<double>(m_Sections.MaxRepeat() + 1) * 8 +
         100;
}

void Analyzer::Spend(int section, int index) {
  m_Budget -= 1;
  if (m_Budget >= 0) {
    return;
  }
  // Progress is text used up for good: less of the record left than ever
  // before, or as little of it and less of the header. A record's cursor
  // can step back (a wrap over a value with a null in it gives back more
  // than it took) and header values are rewound on every sheet, so a run
  // that only goes to and fro never beats its best.
  const int64_t record = Tbl::TabRcdField.AllOst();
  const int64_t header = Tbl::TabHdrField.AllOst();
  if (record < m_RecordLeast ||
      (record == m_RecordLeast && header < m_HeaderLeast)) {
    m_RecordLeast = record;
    m_HeaderLeast = header;
    m_Budget = Window();
    return;
  }
  throw EndlessLoop{section, index};
}

void Analyzer::SectionLoaded(int section) {
  FILE* const stream = Blank::m_File.m_Stream;
  if (std::find(m_Streams.begin(), m_Streams.end(), stream) ==
      m_Streams.end()) {
    m_Streams.push_back(stream);
  }
  m_Start = {0, -1};
  if (section != 3) {
    FinishSheet();
    ++m_Sheet;
    m_SheetLines = 0;
    m_RecordSheetLine = 0;
  }
  // Continuation sheets of one record share its budget: a record whose
  // sheets go to and fro must not start afresh on each.
  if (section != 2) {
    NewBudget();
  }
}

void Analyzer::RecordRead(long number) {
  m_Record = number;
  m_RecordLine = m_Table.record_line();
  m_AwaitFirstLine = true;
  m_Start = {0, -1};
  m_PageMarkPending = Tbl::totBreak > 0;
  m_RecordSheetLine = m_SheetLines;
  m_Trace.SetRecord(number, m_TableName, m_RecordLine);
  NewBudget();
}

void Analyzer::RecordDone(long number) {
  if (Tbl::TabRcdField.Exist() && !m_Message12) {
    LostText(number, "is left when the record is done");
  }
  m_Message12 = false;
  m_Record = 0;
  m_Trace.SetRecord(0, m_TableName, 0);
  NewBudget();
}

Analyzer::LineUse* Analyzer::Use(Where where) {
  if (where.first < 1 || where.first > 3 || where.second < 0 ||
      where.second >= m_Sections.Count(where.first)) {
    return nullptr;
  }
  std::vector<LineUse>& uses = m_Uses[where.first - 1];
  if (uses.empty()) {
    uses.resize(static_cast<size_t>(m_Sections.Count(where.first)));
  }
  return &uses[static_cast<size_t>(where.second)];
}

// Marks index in body, a set of the lines of one section.
void Mark(std::vector<bool>& body, int index, int count) {
  if (body.empty()) {
    body.resize(static_cast<size_t>(count));
  }
  if (index >= 0 && index < count) {
    body[static_cast<size_t>(index)] = true;
  }
}

void Analyzer::LinePrinted(int section, int index) {
  Spend(section, index);
  m_Section = section;
  m_Index = index;
  if (m_Tracing) {
    m_Trace.SetLine(&m_Sections.Name(section),
                    m_Sections.LineOf(section, index));
  } else {
    m_Trace.SetLine(nullptr, 0);
  }
  const bool onward =
      m_Forward && section == m_First.first && index > m_Previous;
  // The first record may begin above the loop (a heading): where it began
  // counts only if later records begin there too (see RecordStarts).
  if (m_Record == 1 && m_AwaitFirstLine) {
    m_FirstOfAll = m_First = {section, index};
    m_Forward = true;
  } else if (m_Record == 1 && onward) {
    Mark(m_FirstBody, index, m_Sections.Count(section));
  } else if (m_Record > 1 && m_AwaitFirstLine && !m_PageMarkPending) {
    LineUse* use = Use({section, index});
    if (use != nullptr && use->starts++ == 0) {
      use->first_record = m_Record;
      use->first_table_line = m_RecordLine;
    }
    m_First = m_Start = {section, index};
    m_Forward = true;
  } else if (m_Record > 1 && onward) {
    if (LineUse* use = Use(m_First)) {
      Mark(use->body, index, m_Sections.Count(section));
    }
  } else {
    NoteAbove(section, index);
    m_Forward = false;
  }
  m_Previous = index;
  m_AwaitFirstLine = false;
}void Analyzer::Placed(const Placement& p) {
  if (p.cut == 0) {
    return;
  }
  const bool numeric = LooksNumeric(p.value, p.value_length);
  const Place place{numeric ? "cut-number" : "cut-text", m_Section, m_Index,
                    p.start};
  // The same stretch cuts record after record: counted, described once.
  if (Counted(place)) {
    return;
  }
  RunFinding f{std::get<0>(place),
               numeric ? RunSeverity::kWarning : RunSeverity::kNote,
               m_Sections.Name(m_Section),
               m_Sections.LineOf(m_Section, m_Index),
               p.start + 1,
               std::string(p.record ? "$" : "&") + std::to_string(p.field) +
                   " is cut to the " + std::to_string(p.end - p.start + 1) +
                   " characters of its truncating stretch: " +
                   (m_Record != 0 ? TableAt(m_Record) : std::string("the header")) +
                   " holds " +
                   Excerpt(std::wstring(p.value, p.value_length), 60)};
  Add(place, std::move(f));
}
void Analyzer::LostText(long record, const char* how) {
  for (const auto& entry : Tbl::TabRcdField) {
    const Field* field = entry.second;
    if (field == nullptr || !field->Exist())
      continue;
    size_t n = 0;
    const wchar_t* rest = field->Unread(n);
    // Blanks left over (a line end after the last "@") are no loss.
    if (std::all_of(rest, rest + n,
                    [](wchar_t c) { return c == L' ' || c == kValueSeparator; }))
      continue;
    RunFinding f{"lost-text", RunSeverity::kError, m_TableName,
                 record != 0 ? m_RecordLine : m_Table.record_line(), 1,
                 (record != 0 ? "record " + std::to_string(record)
                              : std::string("the text after the last \"@\"")) +
                     ": " + std::to_string(n) +
                     " characters of $" + std::to_string(entry.first) +
                     " never reach the document (" + how + ", last line " +
                     m_Sections.Name(m_Section) + ":" +
                     std::to_string(m_Sections.LineOf(m_Section, m_Index)) +
                     "): " + Excerpt(std::wstring(rest, std::min<size_t>(n, 60)))};
    Add({f.name, m_Section, m_Index, static_cast<int>(entry.first)},
        std::move(f));
  }
}

void Analyzer::Message(int n, int section, int index) {
  m_Trace.SetMessage(n);
  if (n == Tbl::errNextCycle) {
    m_Message12 = true;
    LostText(m_Record, "message 12 drops it");
    RunFinding f{"message-12", RunSeverity::kError, m_Sections.Name(2), 1, 1,
                 TableAt(m_Record) +
                     ": a whole continuation sheet placed none of its text; "
                     "formfill drops the rest and writes message 12 \"" +
                     Narrow(Tbl::Err(Tbl::errNextCycle)) + "\" into the document"};
    Add({f.name, 2, 0, 0}, std::move(f));
    return;
  }
  const bool repeat = n == Tbl::errRepeatBlock;
  RunFinding f{repeat ? "message-7" : "message-8", RunSeverity::kWarning,
               m_Sections.Name(section), m_Sections.LineOf(section, index), 1,
               std::string(repeat ? "the repeated block runs past the end of "
                                    "the section: formfill writes message 7 \""
                                  : "the iteration comes back here without "
                                    "printing a line (" +
                                        m_Sections.LastJumpText(section, index) +
                                        "): formfill writes message 8 \"") +
                   Narrow(Tbl::Err(static_cast<Tbl::numErr>(n))) +
                   "\" into the document and on standard output" +
                   (m_Record != 0 ? ", first with " + TableAt(m_Record)
                                  : std::string(" after the last record"))};
  Add({f.name, section, index, 0}, std::move(f));
}

void Analyzer::Wrote(const wchar_t* text, size_t n) {
  const long lines = m_Trace.Write(text, n);
  for (long k = 0; k < lines; ++k) {
    SheetLine();
  }
}

void Analyzer::SheetLine() {
  ++m_SheetLines;
  if (m_Settings.sheet_lines <= 0 || m_SheetLines != m_Settings.sheet_lines + 1)
    return;
  m_Over = m_Record;
  m_OverLine = m_RecordLine;
  m_OverStartedHere = m_Record != 0 && m_RecordSheetLine > 0;
}

void Analyzer::FinishSheet() {
  if (m_Settings.sheet_lines <= 0 || m_SheetLines <= m_Settings.sheet_lines)
    return;
  if (++m_LongSheets > 100) {
    return;  // summed up in Finish
  }
  const std::string length = "sheet " + std::to_string(m_Sheet) +
                             " runs to " + std::to_string(m_SheetLines) +
                             " lines, more than " +
                             std::to_string(m_Settings.sheet_lines);
  std::string advice;
  if (m_Over == 0) {
    advice = ": the text after the last record takes it there";
  } else if (m_OverStartedHere) {
    advice = ": a page mark (\">\" at the start of a line) before record " +
             std::to_string(m_Over) + " keeps it within " +
             std::to_string(m_Settings.sheet_lines);
  } else {
    advice = ": record " + std::to_string(m_Over) +
             " alone takes it there; no page mark helps";
  }
  RunFinding f{"sheet-length", RunSeverity::kWarning, m_TableName,
               m_Over != 0 ? m_OverLine : 1, 1, length + advice};
  Add({f.name, 0, static_cast<int>(m_Sheet), 0}, std::move(f));
}

// A record that began on a line and then, on the same sheet, prints a line
// above it has begun in the middle of the loop: in a sound template records
// begin at its top and go down.
void Analyzer::NoteAbove(int section, int index) {
  if (m_Record <= 1 || section != m_Start.first || index >= m_Start.second)
    return;
  LineUse* use = Use(m_Start);
  if (use != nullptr && use->above < 0) {
    use->above = index;
    use->above_record = m_Record;
    use->above_table_line = m_RecordLine;
  }
}

void Analyzer::RecordStarts(std::vector<RunFinding>& out) const {
  // Records go round the template and begin where the one before them
  // stopped, which in a sound template is the same line for all of them
  // (or one of a form's slots, each a record of its own). A record that
  // begins on a line that other records print on their way down from
  // where they began follows one that stopped short: the sign of an
  // optional line printed without the jump that skips it, so that this
  // record's values come out under the last one's first lines.
  for (int section = 1; section <= 3; ++section) {
    std::vector<LineUse> uses = m_Uses[section - 1];
    const int count = static_cast<int>(uses.size());
    if (m_FirstOfAll.first == section && m_FirstOfAll.second < count &&
        !m_FirstBody.empty()) {
      std::vector<bool>& body = uses[static_cast<size_t>(m_FirstOfAll.second)].body;
      body.resize(m_FirstBody.size());
      for (size_t k = 0; k < body.size(); ++k)
        body[k] = body[k] || m_FirstBody[k];
    }
    for (int at = 0; at < count; ++at) {
      const LineUse& use = uses[static_cast<size_t>(at)];
      if (use.starts == 0)
        continue;
      int other = 0;
      for (; other < count; ++other) {
        const LineUse& other_use = uses[static_cast<size_t>(other)];
        if (other != at && other_use.starts != 0 &&
            other_use.body.size() > static_cast<size_t>(at) &&
            other_use.body[static_cast<size_t>(at)])
          break;
      }
      if (other < count) {
        out.push_back(StartFinding(section, at, use, other,
                                   uses[static_cast<size_t>(other)]));
      } else if (use.above >= 0) {
        out.push_back(AboveFinding(section, at, use));
      }
    }
  }
}

RunFinding Analyzer::AboveFinding(int section, int at,
                                  const LineUse& use) const {
  const std::string& name = m_Sections.Name(section);
  return {"record-start", RunSeverity::kWarning, name,
          m_Sections.LineOf(section, at), 1,
          "record " + std::to_string(use.above_record) + " (" + m_TableName +
              ":" + std::to_string(use.above_table_line) +
              ") begins printing on this line and then goes back up to " +
              name + ":" + std::to_string(m_Sections.LineOf(section, use.above)) +
              " (" + std::to_string(use.starts) +
              " records begin here): the record before it stopped short and "
              "this one began in the middle of the loop; does a line on "
              "which a record can end lack the guard '>jump to ... $' after "
              "it?"};
}

RunFinding Analyzer::StartFinding(int section, int at, const LineUse& use,
                                  int other, const LineUse& other_use) const {
  const std::string& name = m_Sections.Name(section);
  return {"record-start", RunSeverity::kWarning, name,
          m_Sections.LineOf(section, at), 1,
          "record " + std::to_string(use.first_record) + " (" + m_TableName +
              ":" + std::to_string(use.first_table_line) +
              ") begins printing on this line, which follows " + name + ":" +
              std::to_string(m_Sections.LineOf(section, other)) + " where " +
              std::to_string(other_use.starts) + " records began (" +
              std::to_string(use.starts) +
              " begin here): the record before it stopped short and this "
              "one's values follow its first lines; does an optional line "
              "lack the jump that skips it?"};
}
std::vector<RunFinding> Analyzer::Finish(const EndlessLoop* loop) {
  std::vector<RunFinding> out;
  if (loop != nullptr) {
    out.push_back({"endless-loop", RunSeverity::kError,
                   m_Sections.Name(loop->section),
                   m_Sections.LastJumpLine(loop->section, loop->index), 1,
                   "formfill never ends here: " + Round(*loop) +
                       (m_Record != 0 ? " with " + TableAt(m_Record)
                                      : std::string(" after the last record")) +
                       " without using up any text (the check stopped it)"});
    return out;
  }
  FinishSheet();
  if (Tbl::TabRcdField.Exist()) {
    LostText(m_Record, "is left when the run ends");
  }
  for (const Place& place : m_Order) {
    const Summed& s = m_Summed.at(place);
    RunFinding f = s.first;
    if (s.count > 1) {
      f.message += " (and " + std::to_string(s.count - 1) + " more like it)";
    }
    out.push_back(std::move(f));
  }
  if (m_LongSheets > 100) {
    out.push_back({"sheet-length", RunSeverity::kWarning, m_TableName, 1, 1,
                   std::to_string(m_LongSheets - 100) +
                       " more sheets are longer than " +
                       std::to_string(m_Settings.sheet_lines) + " lines"});
  }
  RecordStarts(out);
  m_Trace.Finish();
  return out;
}

std::string Analyzer::Round(const EndlessLoop& loop) const {
  const std::string jump = m_Sections.LastJumpText(loop.section, loop.index);
  if (!jump.empty()) {
    return "the lines go round " + jump;
  }
  if (loop.section == 2) {
    return "continuation sheet after continuation sheet goes to and fro";
  }
  return "the lines go round";
}

RunFinding Analyzer::Aborted(const std::string& what) const {
  return {"abort", RunSeverity::kError, m_Sections.Name(m_Section),
          m_Sections.LineOf(m_Section, m_Index), 1,
          "formfill ends abnormally while printing this line" +
              (m_Record != 0 ? " with " + TableAt(m_Record) : std::string()) +
              " (" + what + "): the document stops here"};
}

// Puts formfill's settings in place for one run, and what an earlier read
// left in the field tables away.
void PrepareRun(const RunSettings& settings) {
  Tbl::BlankFile = settings.blank;
  Tbl::InpFile = settings.table;
  Tbl::BegParam = settings.params;
  Tbl::PathBlank = settings.path;
  // Written and thrown away by the system: nothing reaches any file.
  Tbl::OutFile = L"/dev/null";
  Tbl::TabHdrField.freeAll();
  Tbl::TabRcdField.freeAll();
  Tbl::CountList = 0;
  Tbl::totBreak = 0;
  Tbl::FirstOst = 0;
}

// Where the template's header texts, applied as the sections load, copy
// more than a run allows: the run would end there with a length error, and
// only after copying for a long while. {0, -1} when they never do.
std::pair<int, int> CopiesPastLimit(const RunSettings& settings,
                                    const Sections& sections) {
  PrepareRun(settings);
  {
    // The header values the copies start from, read as the run reads them.
    Tbl table;
    if (table.GetHider()) {
      table.GetBegin();
    }
  }
  HeaderCopyCount count(Tbl::TabHdrField);
  for (int section = 1; section <= 3; ++section) {
    for (int index = 0; index < sections.Count(section); ++index) {
      const std::wstring& raw = sections.Text(section, index);
      if (raw[0] == L'>') {
        continue;
      }
      for (const HeaderText& text : ScanTextLine(raw.c_str()).headers) {
        if (!count.Apply(text)) {
          return {section, index};
        }
      }
    }
  }
  return {0, -1};
}

}  // namespace

std::vector<RunFinding> DryRun(const RunSettings& settings,
                               std::ostream* trace) {
  // A directory list with ";" and a parameters file: formfill searches for
  // ever before it reads a record. The static checks say so; no run.
  if (!settings.params.empty() &&
      settings.path.find(L';') != std::wstring::npos) {
    return {};
  }
  const Sections sections(settings.path, settings.blank);
  const std::pair<int, int> copies = CopiesPastLimit(settings, sections);
  if (copies.second >= 0) {
    return {{"abort", RunSeverity::kError, sections.Name(copies.first),
             sections.LineOf(copies.first, copies.second), 1,
             "the header texts copy themselves (\"@N\" into field N, line "
             "after line) past what formfill allows: it ends with a length "
             "error when it loads this section, and the document stops "
             "there"}};
  }
  TableLines table;
  Analyzer analyzer(settings, sections, table, trace);
  PrepareRun(settings);
  NullBuffer null;
  std::wstreambuf* const screen = std::wcout.rdbuf(&null);
  SetTableObserver(&table);
  SetRunObserver(&analyzer);
  EndlessLoop loop{0, 0};
  bool endless = false;
  std::string abort_reason;
  int status = 0;
  try {
    Tbl tbl;
    status = tbl.Execute();
  } catch (const EndlessLoop& caught) {
    loop = caught;
    endless = true;
  } catch (const std::exception& e) {
    // formfill lets these end the process; the check reports them.
    abort_reason = e.what();
  }
  SetRunObserver(nullptr);
  SetTableObserver(nullptr);
  std::wcout.rdbuf(screen);
  analyzer.CloseSections();
  std::vector<RunFinding> findings =
      analyzer.Finish(endless ? &loop : nullptr);
  if (!abort_reason.empty()) {
    findings.push_back(analyzer.Aborted(abort_reason));
  }
  if (status != 0) {
    findings.push_back(analyzer.Stopped());
  }
  return findings;
}
