// What the table reader meets while it reads a table or a parameters file,
// told to an observer: for a program that must know where each piece of a
// table went (a checker), reading with the reader's own rules. The run
// sets no observer, and then the reader makes no call.
#ifndef FORMFILL_DRIVER_TABLE_OBSERVER_H_
#define FORMFILL_DRIVER_TABLE_OBSERVER_H_

#include <cstddef>

// Events come in the order of the input; together their lengths cover
// every character read, so an observer can count lines and columns.
class TableObserver {
 public:
  virtual ~TableObserver() = default;

  // A selector ("&N;" or "$N;") that selected field number (the number as
  // the reader took it); length counts its characters, ";" included.
  virtual void Selector(wchar_t /*marker*/, long /*number*/,
                        size_t /*length*/) {}
  // A marker and its digits not followed by ";": they stay as text
  // (length characters). The character after them is told next.
  virtual void NotSelector(wchar_t /*marker*/, size_t /*length*/) {}
  // Characters stored as text in the current field (dropped by the reader
  // when there is none, or when a parameters file's text is skipped).
  virtual void Text(const wchar_t* /*chars*/, size_t /*n*/) {}
  // "\" and the character after it, which is stored as it is (a line end
  // too: the line then ends inside the value).
  virtual void Escape(wchar_t /*c*/) {}
  // A line end: the field's trailing blanks are cut and one blank stored.
  virtual void LineEnd() {}
  // "@" in a record: the record is complete.
  virtual void RecordEnd() {}
  // ">" at the start of a line in a record: a page mark, nothing stored.
  virtual void PageMark() {}
  // "$", ">" or "@" at the start of a line of the header: the header ends
  // before it (the character is read again as the first of the records).
  virtual void HeaderEnd(wchar_t /*c*/) {}
  // An initial-parameters file is about to be read, or has been read: its
  // events come between these two.
  virtual void ParametersBegin() {}
  virtual void ParametersEnd() {}
  // The input ends: at the end of the file, or (undecodable) at bytes the
  // reader cannot decode, where it stops as if the file ended.
  virtual void InputEnd(bool /*undecodable*/) {}
};

// The observer of every read from here on; null (the default) for none.
// It must outlive the reads.
void SetTableObserver(TableObserver* observer);

#endif  // FORMFILL_DRIVER_TABLE_OBSERVER_H_
