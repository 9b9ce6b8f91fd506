// The run: settings and field tables as statics, and the object that reads
// the input table and drives one whole run.
#ifndef FORMFILL_DRIVER_TBL_H_
#define FORMFILL_DRIVER_TBL_H_

#include <cstdint>
#include <string>

#include "format/field.h"
#include "textio/input_file.h"

class OutputFile;

// The Tbl object is the reader of the input table; everything else a run
// needs lives in its static members.
class Tbl : public InputFile {
 public:
  // Message numbers of the catalogue.
  enum numErr : int {
    errJumpFormat = 0,      // bad table or condition character in a jump
    errBlockLines = 1,      // repeat block lines outside 1..100
    errBlockRepeats = 2,    // repetitions outside 1..1000
    errLabelTwice = 3,      // a label number occurs twice in one section
    errMacroTwice = 4,      // a macro symbol or field defined twice
    errUnknownCommand = 5,  // a ">" line that is no command
    errNoLabel = 6,         // a jump names a missing label
    errRepeatBlock = 7,     // a repeat block runs past the section
    errCyclicJump = 8,      // the iteration came back to where it started
    errNoInput = 9,         // input table not found
    errOutputOpen = 10,     // output file cannot be opened
    errTemplateLoad = 11,   // template section cannot be loaded
    errNextCycle = 12,      // a continuation sheet placed nothing
  };

  // One run; 0 when it completes, 1 when it stops on an error.
  int Execute();

  // Opens Tbl::InpFile and reads the header into TabHdrField. False only
  // when the file cannot be opened.
  bool GetHider();
  // Adds the header fields of the initial-parameters file that the table
  // did not give. A missing file is not an error.
  void GetBegin();
  // Reads the next record into TabRcdField: 1 for a record ended by "@",
  // 0 at the end of the input.
  int GetRecord();

  // The text of message n in the language in use; never empty.
  static std::wstring Err(numErr n);

  // Where a message goes: standard output (line end, flush), the document
  // (followed by "\n"), or first the one and then the other.
  enum Where { kScreen = 1, kDocument = 2, kBoth = kScreen | kDocument };
  // Writes message n directly followed by what it is about. The one way
  // the run, the template and its iteration report.
  static void Report(numErr n, std::wstring const& what, OutputFile* document,
                     Where where = kBoth);

  static std::wstring BlankFile;  // -B template base name
  static std::wstring BegParam;   // -F initial-parameters file
  static std::wstring InpFile;    // -I input table
  static std::wstring OutFile;    // -O document
  static std::wstring PathBlank;  // -P template prefix and parameters directories
  static FieldTab TabHdrField;
  static FieldTab TabRcdField;
  static int32_t Add;        // append flag; nothing sets it
  static int32_t CountList;  // page counter
  static int32_t WinMes;     // unused, kept with the rest of the settings
  static int32_t totBreak;   // page marks not yet consumed
  static int64_t FirstOst;   // unread characters of the record just read
};

#endif  // FORMFILL_DRIVER_TBL_H_
