// What happens in a run, told to an observer: which template line makes
// each document line, which record is being filled, what each placement
// put in and left over, sheet changes, the loop messages and where they
// arose. For a program that explains a run (a checker's dry run, a trace);
// formfill attaches none, and then the run makes no call at all.
#ifndef FORMFILL_DRIVER_RUN_OBSERVER_H_
#define FORMFILL_DRIVER_RUN_OBSERVER_H_

#include <cstddef>

#include "textio/output_file.h"

// One value placed into a stretch of a line.
struct Placement {
  bool record;        // a record field; else a header field
  long field;         // its number
  int start;          // the stretch, line[start..end]
  int end;
  bool truncating;    // "$$N" / "&&N" style: what does not fit is dropped
  size_t placed;      // characters written into the stretch
  size_t cut;         // characters dropped by a truncating stretch
  size_t left;        // characters the field still holds for later
  // With truncating: the value as it stood before, up to a separator
  // (value_length characters, valid during the call only).
  const wchar_t* value;
  size_t value_length;
};

// Every event names a section (1, 2 or 3) and an entry of it: the index of
// the line as the section was loaded (0-based; a line longer than the
// longest line read counts as more than one).
class RunObserver : public DocumentTap {
 public:
  // A section was loaded, or loaded again for another continuation sheet.
  virtual void SectionLoaded(int /*section*/) {}
  // Record number (from 1) has been read and is about to be filled.
  virtual void RecordRead(long /*number*/) {}
  // The record is done: its text is printed, or what is left of it is
  // dropped (message 12), or the run ends with it. The record table still
  // holds what was not printed.
  virtual void RecordDone(long /*number*/) {}
  // The entry is about to be converted and written as a document line.
  virtual void LinePrinted(int /*section*/, int /*index*/) {}
  virtual void Placed(const Placement& /*placement*/) {}
  // Message n (7, 8 or 12) is about to be written; index is the entry
  // where it arose (the repeat, the start of the cycle), -1 for 12.
  virtual void Message(int /*n*/, int /*section*/, int /*index*/) {}
  // One step of the line iteration that hands out no line (a label, a
  // jump, a repeat): the place where a silent endless loop turns.
  virtual void Step(int /*section*/, int /*index*/) {}
};

// The observer of the run from here on; null (the default) for none. It
// also sees every write into the document. It must outlive the run.
void SetRunObserver(RunObserver* observer);

// The observer, or null; for the places in the engine that tell it.
extern RunObserver* g_RunObserver;

#endif  // FORMFILL_DRIVER_RUN_OBSERVER_H_
