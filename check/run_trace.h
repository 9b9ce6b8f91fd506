// The traced document: every line formfill writes, behind a gutter that
// names what made it, so that cutting each line after its first " | "
// gives the document byte for byte.
#ifndef FORMFILL_CHECK_RUN_TRACE_H_
#define FORMFILL_CHECK_RUN_TRACE_H_

#include <ostream>
#include <string>

class RunTrace {
 public:
  // out: where the trace goes; null to only count lines.
  explicit RunTrace(std::ostream* out) : m_Out(out) {}

  // The record whose values the next lines hold (0: none), and the table
  // and line on which it begins.
  void SetRecord(long number, const std::string& table, long table_line);
  // The template line about to be written: its file and line.
  void SetLine(const std::string* file, long line) {
    m_File = file;
    m_LineNumber = line;
    m_Message = -1;
    m_LineDue = true;
  }
  // Message n is about to be written.
  void SetMessage(int n);
  // text has gone into the document; returns how many lines it ended.
  long Write(const wchar_t* text, size_t n);
  // Write without a trace to write: the lines are only counted.
  long Count(const wchar_t* text, size_t n);
  // Writes a last line that has no line end.
  void Finish();

 private:
  // The gutter for the line about to begin, made again only when what it
  // names has changed since the last line.
  const std::string& Gutter();
  void EndLine(bool line_feed);

  std::ostream* m_Out;
  std::string m_Record = "-";
  const std::string* m_File = nullptr;
  long m_LineNumber = 0;
  int m_Message = -1;
  bool m_LineDue = false;
  // The document line being written, and the gutter it began under.
  std::wstring m_Text;
  std::string m_TextGutter;
  bool m_Open = false;
  // The last gutter made, and what it was made of.
  std::string m_Gutter;
  bool m_GutterDue = true;
  const std::string* m_GutterFile = nullptr;
  long m_GutterLine = -1;
  int m_GutterMessage = -2;
  bool m_GutterLineDue = false;
  std::string m_Bytes;
};

#endif  // FORMFILL_CHECK_RUN_TRACE_H_
