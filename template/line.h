// One line of a loaded template section. The record is declared here; its
// formatting operations (ConvStr, PutPol, DelTab, IsRasdel) live in format/.
#ifndef FORMFILL_TEMPLATE_LINE_H_
#define FORMFILL_TEMPLATE_LINE_H_

#include <cstddef>
#include <cstdint>
#include <string>

class FieldTab;

// Longest template line read, in characters.
constexpr int kMaxLine = 4095;
// Working line buffer, in characters (a line of kMaxLine plus terminator).
constexpr int kLineBuf = 4096;
// Raw read buffer: InputFile::GetLine may store kMaxLine + 1 characters.
constexpr int kRawLineBuf = kMaxLine + 2;

struct Line {
  enum typLine : uint32_t { Text = 0, Label = 1, Jump = 2, Repeat = 3, Define = 4 };
  enum typAlign : int { AlignLeft = 0, AlignCenter = 1, AlignRight = 2 };

  // Re-reads the line from Blank::m_File at pos and returns it with every
  // marker substituted; consumes the text of the fields it prints.
  std::wstring ConvStr() const;
  // ConvStr into line, a working buffer of kRawLineBuf characters (the
  // line is read into it), where the text is left terminated; returns its
  // length, at most kMaxLine. The document is written from here, without a
  // string made for every line.
  int ConvInto(wchar_t* line) const;

  // Places the current field of tab into line[start..end], aligned, wrapped
  // at a separator (the rest stays in the field) or, with truncate, cut.
  static void PutPol(wchar_t* line, typAlign align, int start, int end,
                     FieldTab* tab, bool truncate);
  // PutPol itself, and PutPol telling the run's observer what it placed.
  static void Place(wchar_t* line, typAlign align, int start, int end,
                    FieldTab* tab, bool truncate);
  static void PutPolObserved(wchar_t* line, typAlign align, int start,
                             int end, FieldTab* tab, bool truncate);
  // The word wrap of a value that filled line[start..end] and goes on:
  // the stretch is cut after its last separator, what follows goes back
  // to the field, and the text is aligned again.
  static void Wrap(wchar_t* line, typAlign align, int start, int end,
                   FieldTab* tab);
  // Copies src into dst (kLineBuf characters) without trailing blanks and
  // line feeds, tabs expanded; cut at kMaxLine characters.
  static void DelTab(const wchar_t* src, wchar_t* dst);
  // DelTab, giving the length of what it wrote to dst; src_len is
  // wcslen(src), already known to the caller. For a line known to hold no
  // tab, dst may be src itself: the line is then cut where it stands.
  static int DelTabLength(const wchar_t* src, size_t src_len, wchar_t* dst);
  // The length of src[0, src_len) without the blanks and line feeds at its
  // end, as DelTab keeps it. Carriage returns and tabs at the end stay: old
  // templates rely on a trailing tab to keep a line's width.
  static size_t KeptLength(const wchar_t* src, size_t src_len) {
    while (src_len > 0 &&
           (src[src_len - 1] == L' ' || src[src_len - 1] == L'\n')) {
      --src_len;
    }
    return src_len;
  }
  // True when c may end a line's part of a wrapped value.
  static bool IsRasdel(wchar_t c);

  // Rasdel: the characters a value may wrap at.
  static const wchar_t* Rasdel;

  uint32_t kind;
  int64_t link;
  uint16_t blockLines;
  uint16_t repeats;
  int64_t field;
  int32_t inRecord;
  int32_t cond;
  int32_t passes;
  int64_t lastOst;
  int64_t pos;
};

#endif  // FORMFILL_TEMPLATE_LINE_H_
