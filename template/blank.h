// The template (form): one section at a time parsed into Line entries and
// handed out with labels, jumps and repeats applied.
#ifndef FORMFILL_TEMPLATE_BLANK_H_
#define FORMFILL_TEMPLATE_BLANK_H_

#include <cstdint>
#include <string>
#include <vector>

#include "template/line.h"
#include "textio/input_file.h"

class OutputFile;

class Blank {
 public:
  // name is the base name of the section files; a name with an extension
  // makes every Load fail. out receives the template's messages and must
  // outlive the Blank.
  Blank(wchar_t const* name, OutputFile& out);
  virtual ~Blank();

  Blank(const Blank&) = delete;
  Blank& operator=(const Blank&) = delete;

  // Loads section n (name + ".n"), or rewinds it when it is loaded already.
  // Returns 1 when ready to iterate, 0 on failure (a load error has been
  // reported on standard output and in the document).
  int Load(int section);

  // Returns the next text line of the section, or null when the section is
  // done or a cyclic jump was found. Mode 1 ignores backward unconditional
  // jumps. The Blank keeps the line; the pointer stays valid until the Blank
  // is destroyed.
  Line* Next(int mode);

  // Resets the loop guards of every entry.
  void ClrCount();

  // The file Load opens for section n of the template called name.
  static std::wstring SectionPath(std::wstring const& name, int section);

  // True when dir + "/" + name exists.
  static bool FileExist(std::wstring const& dir, std::wstring const& name);

  // The loaded section's file, kept open: lines are re-read from it when
  // they are printed.
  static InputFile m_File;

  Line* m_Lines;
  int32_t m_Section;
  int32_t m_Current;
  int32_t m_Count;
  std::wstring m_Name;
  OutputFile& m_Out;

 private:
  // Classifies one line of the section being loaded into entry, with its
  // side effects on the field tables; false after reporting a load error.
  bool LoadLine(Line& entry, const wchar_t* raw);
  // The entry handed out last, or, when it ends a repeated block with
  // repetitions left, the entry before the block's first line.
  int FinishRepetition();
  // Arrives at the repeat command at i: marks its block's last line with
  // the repetitions to come; returns the index of the block's first line.
  int StartRepeat(int i);
  // Whether the jump at i is taken in mode; an unconditional one may use
  // up a pending page mark instead.
  bool TakesJump(const Line& jump, int i, int mode);
  // A taken jump from i to target: the index to go on with, after the
  // guard against backward loops that print nothing.
  int JumpTo(int target, int i);
  // Replaces each jump's label number by its label's index; 0 after
  // reporting a missing label, 1 when every jump has its target.
  int ResolveJumps();

  // Arrays of earlier sections: lines handed out from them stay valid until
  // the Blank is destroyed.
  std::vector<Line*> m_Retired;
};

#endif  // FORMFILL_TEMPLATE_BLANK_H_
