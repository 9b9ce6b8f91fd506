#ifndef FORMFILL_TEXTIO_OUTPUT_FILE_H_
#define FORMFILL_TEXTIO_OUTPUT_FILE_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

// The one shared "CON" text. An OutputFile constructed with this very
// pointer writes to standard output; any other pointer, even one that
// spells CON, names an ordinary file.
extern wchar_t const kConName[];

// Sees every write into a document, as written.
class DocumentTap {
 public:
  virtual ~DocumentTap() = default;
  // text[0, n) has just gone into the document (or would have, on an
  // output that could not be opened).
  virtual void Wrote(const wchar_t* /*text*/, size_t /*n*/) {}
};

// The sink of the document: wide text in, UTF-8 bytes out, nothing added.
class OutputFile {
 public:
  // Opens name for writing ("wb", so an existing file is emptied); with
  // append the stream is then put at the end, which keeps nothing. After
  // construction the output is unusable when neither m_Console is set nor
  // m_Stream is open. A name above U+10FFFF throws std::range_error.
  OutputFile(wchar_t const* name, bool append);
  virtual ~OutputFile();

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Each write converts its whole text to UTF-8 and writes it in one block;
  // a character above U+10FFFF throws std::range_error. Writes to an
  // unusable output are dropped. A null text throws std::logic_error.
  OutputFile& operator<<(std::wstring const& text);
  OutputFile& operator<<(std::wstring_view text);
  OutputFile& operator<<(wchar_t const* text);
  // Decimal digits, '-' in front of a negative value, nothing else.
  OutputFile& operator<<(long value);

  FILE* m_Stream;
  bool m_Console;

  // Brings the file to what it would hold by now had the stream kept the C
  // library's own buffer, for a run that ends abnormally, whose buffered
  // bytes never reach the file. Nothing is written afterwards.
  void LeaveAsLibraryWould();

  // Told by every input file the process opens: when it is the document
  // itself, the document is from then on written as the library's own
  // buffer would write it, so that the reads find what they always found.
  static void NoteRead(FILE* input);

  // Sees every write of every document from here on; null for none.
  static DocumentTap* s_Tap;

 private:
  void Write(const wchar_t* text, size_t len);
  void WriteBytes(const char* bytes, size_t count);
  void FollowLibrary();

  // How much of the document a stream with the library's own buffer would
  // have written to the file: nothing while a write fits in that buffer,
  // otherwise the buffer, then as many whole buffers' worth straight away,
  // the rest kept.
  struct LibraryBlocks {
    size_t block = 0;  // that buffer's size; 0 while not kept count of
    size_t held = 0;
    bool started = false;
    uint64_t written = 0;
    void Add(size_t count);
  };

  // The larger buffer the document is written through.
  std::unique_ptr<char[]> m_Buffer;
  LibraryBlocks m_Library;
  uint64_t m_Handed = 0;
  // Once the document is read back: the bytes the library's buffer would
  // still hold, written by hand as it would write them.
  bool m_Follows = false;
  std::string m_Held;
};

#endif  // FORMFILL_TEXTIO_OUTPUT_FILE_H_
