// How one line of a template section is read when the section is loaded,
// as plain data. Blank::Load acts on what these functions return; another
// program can ask the same of a line without a Blank, without opening a
// file and without printing anything.
#ifndef FORMFILL_TEMPLATE_CLASSIFY_H_
#define FORMFILL_TEMPLATE_CLASSIFY_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "template/line.h"

class FieldTab;

// The message a load reports for a line, or kNoMessage. Numbers are those
// of the catalogue (Tbl::numErr).
constexpr int kNoMessage = -1;

// A ">" line. Which members mean something depends on kind.
struct Command {
  // Jump, Repeat, Label or Define; Text for a ">" line that is no command
  // (message holds 5 then).
  Line::typLine kind = Line::Text;
  // Jump: the label jumped to; Label: its number; Define: the field.
  long number = 0;
  // Jump: the field the condition tests (0 when none is written).
  long field = 0;
  // Jump: 1 when the record table is tested, 0 for the header table.
  int32_t inRecord = 0;
  // Jump: 0 unconditional, 1 written with "^", 2 written plain.
  int32_t cond = 0;
  // Repeat: the text lines of the block and the repetitions, as written
  // (the entry keeps 16 bits of each).
  int blockLines = 0;
  int repeats = 0;
  // Define: the symbol and whether it is bound on the header table ("=&").
  wchar_t symbol = 0;
  bool header = false;
  // The message the load reports for the line itself (0, 1, 2 or 5), with
  // the line as its argument; kNoMessage when the line is well formed.
  // Messages 3, 4 and 6 depend on the rest of the section or on the field
  // tables: see FindLabel and DefineMessage.
  int message = kNoMessage;
};

// Each reads a ">" line raw (as GetLine stored it, line feed included)
// whose keyword or shape the function's name gives; ClassifyCommand tries
// them in the order a load does.
bool IsJumpLine(const wchar_t* raw);
bool IsRepeatLine(const wchar_t* raw);
bool IsLabelLine(const wchar_t* raw);
bool IsDefineLine(const wchar_t* raw);
Command ReadJump(const wchar_t* raw);
Command ReadRepeat(const wchar_t* raw);
Command ReadLabel(const wchar_t* raw);
Command ReadDefine(const wchar_t* raw);
// Any ">" line: the first of the four that fits, else an unknown command
// (message 5).
Command ClassifyCommand(const wchar_t* raw);

// Index of the first of lines[0, count) that is a label numbered label, or
// count. A label already among the earlier lines is message 3; a jump to a
// label missing from the whole section is message 6.
int FindLabel(const Line* lines, int count, long label);

// Binds a definition's symbol as the load does, on the tables given (the
// run's, or scratch ones), and returns the message it ends with (4), or
// kNoMessage. The field store never keeps a symbol, so every definition
// gets message 4, its field created all the same.
int DefineMessage(const Command& define, FieldTab& header, FieldTab& record);

// A record field that a text line names: "$N", "@@N" or "@$N".
struct RecordUse {
  long field;
  size_t column;  // index of the "$" or "@" in the line as read
};

// One piece of a header text that a text line defines.
struct HeaderPiece {
  enum Kind { kText, kDate, kDateTime, kCopy } kind;
  std::wstring text;  // kText: the characters
  long field;         // kCopy: the header field whose first value is copied
};

// "&N" in a text line: header field N gets the text that follows.
struct HeaderText {
  long field;
  size_t column;  // index of the "&" in the line as read
  std::vector<HeaderPiece> pieces;
  // The text stopped at "$", "&" or "?" (it stood in a stretch), rather
  // than at the line's end: every header value then loses its trailing
  // blanks.
  bool stopped;
};

struct TextScan {
  std::vector<RecordUse> records;
  std::vector<HeaderText> headers;
};

// What a text line registers and defines, in the order a load meets it.
// raw is the line as read.
TextScan ScanTextLine(const wchar_t* raw);

// Appends one header text to its field of header as the load does (the
// field made if needed, "@D" and "@T" read from the clock now, "@N"
// copied from the table as it stands).
void ApplyHeaderText(const HeaderText& text, FieldTab& header);

// Starts the budget of text that "@N" may copy afresh (once per template).
void ResetCopiedText();

// ApplyHeaderText by lengths alone: whether a template's header texts,
// applied in turn, copy more with "@N" than a run allows (the run then
// ends with a length error while loading). Templates that copy a header
// text into itself line after line multiply it; the copying itself would
// take long before the run gives up.
class HeaderCopyCount {
 public:
  // Starts from the header values as they stand in header.
  explicit HeaderCopyCount(const FieldTab& header);
  // Applies text; false once the copies exceed what a run allows.
  bool Apply(const HeaderText& text);

 private:
  struct Length {
    size_t first = 0;        // of the first value, up to a separator
    bool separated = false;  // a separator follows the first value
  };
  std::map<long, Length> m_Fields;
  size_t m_Copied = 0;
};

#endif  // FORMFILL_TEMPLATE_CLASSIFY_H_
