// The template's section files as the checker's dry run needs them: where
// each loaded entry stands in its file, and the jumps among them.
#ifndef FORMFILL_CHECK_SECTIONS_H_
#define FORMFILL_CHECK_SECTIONS_H_

#include <string>
#include <vector>

class Sections {
 public:
  // Reads sections 1 to 3 of the template blank, with the prefix path, as
  // formfill names them; a section that cannot be read has no entries.
  Sections(const std::wstring& path, const std::wstring& blank);

  // The file of section n as the user named it.
  const std::string& Name(int section) const;
  // The 1-based file line of entry index of section n (1 when unknown).
  long LineOf(int section, int index) const;
  // The entries of section n.
  int Count(int section) const {
    return section >= 1 && section <= 3
               ? static_cast<int>(m_Sections[section - 1].entries.size())
               : 0;
  }
  // The text of entry index of section n, as the load reads it.
  const std::wstring& Text(int section, int index) const {
    return m_Sections[section - 1].entries[static_cast<size_t>(index)].text;
  }
  // All entries of all sections, and the largest repeat count.
  long Entries() const { return m_Entries; }
  long MaxRepeat() const { return m_MaxRepeat; }
  // "through the jump at FILE:LINE (text)": the nearest jump at or after
  // index that goes back to a label at or before it; "" when there is none.
  std::string LastJumpText(int section, int index) const;
  // The file line of that jump; the line of index when there is none.
  long LastJumpLine(int section, int index) const;

 private:
  struct Entry {
    long line;
    std::wstring text;
  };
  struct Section {
    std::string name;
    std::vector<Entry> entries;
  };
  void Read(int n, const std::wstring& file);
  // The index of that jump, or -1.
  long FindLastJump(int section, int index) const;
  const Section* Get(int section) const;

  Section m_Sections[3];
  long m_Entries = 0;
  long m_MaxRepeat = 0;
};

#endif  // FORMFILL_CHECK_SECTIONS_H_
