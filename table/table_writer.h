// Where the tables go: one file (or standard output), or one file per
// value of a column. Files appear only complete, under their final names.
#ifndef FORMFILL_TABLE_TABLE_WRITER_H_
#define FORMFILL_TABLE_TABLE_WRITER_H_

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "table/background_writer.h"

namespace formfill_table {

// One output written through a buffer of its own. A named file is written
// under a temporary name beside it and renamed into place by Commit; until
// then the destructor removes it again, so a failed run leaves nothing
// behind. A device or named pipe is written directly. Every bool function returns false with *err filled on failure.
class TableFile {
 public:
  // With background, full buffers are written on a thread of their own.
  TableFile(size_t buffer_size, bool background);
  ~TableFile();
  TableFile(const TableFile&) = delete;
  TableFile& operator=(const TableFile&) = delete;

  // Opens path for writing; "" or "-" is standard output.
  bool Create(const std::string& path, std::string* err);
  bool Write(const char* data, size_t size, std::string* err);
  // Flushes and closes the file but keeps it, so that the number of open
  // files stays bounded; Resume opens it again to append.
  bool Park(std::string* err);
  bool Resume(std::string* err);
  bool is_open() const { return m_Fd >= 0; }
  // Flushes, closes and gives the file its final name.
  bool Commit(std::string* err);

 private:
  bool Open(const std::string& path, std::string* err);
  bool Flush(std::string* err);
  bool Fail(const std::string& what, std::string* err) const;

  std::string m_Path;  // final name; empty for standard output
  std::string m_Target;  // where Commit renames it: a link's file
  std::string m_Temp;    // the name written until Commit
  int m_Fd = -1;
  bool m_Done = false;
  bool m_Direct = false;  // a device or pipe: no temporary name
  std::unique_ptr<char[]> m_Buffer;
  size_t m_Capacity;
  size_t m_Used = 0;
  const bool m_Background;
  std::unique_ptr<BackgroundWriter> m_Writer;  // with m_Background
};

// The file name part that stands for a split value: ASCII letters and
// digits, ".", "-", "_" and every non-ASCII character are kept, any other
// byte becomes "_"; a leading "." or "-" becomes "_" too (no hidden files,
// nothing that looks like an option), an empty value gives "_", and the
// result is cut to at most 100 bytes at a character boundary.
std::string SafeFileName(const std::string& value);

// Sends records to their table. The header text opens every table.
class TableWriter {
 public:
  // Without split, all records go to out ("" or "-": standard output).
  // With split, out must hold "{}", which each value's SafeFileName
  // replaces.
  TableWriter(std::string header, std::string out, bool split);
  TableWriter(const TableWriter&) = delete;
  TableWriter& operator=(const TableWriter&) = delete;

  bool Start(std::string* err);
  // Appends a finished record; key is the split value (ignored without
  // split).
  bool Write(const char* key, size_t key_size, const char* record,
             size_t size, std::string* err);
  // Completes every table. With split, the names written, in the order of
  // the values' first appearance.
  bool Finish(std::vector<std::string>* names, std::string* err);

 private:
  struct Target {
    std::string name;
    std::unique_ptr<TableFile> file;
    unsigned long last_use = 0;
  };

  bool Open(Target* target, std::string* err);
  Target* Find(const char* key, size_t key_size, std::string* err);

  const std::string m_Header;
  const std::string m_Out;
  const bool m_Split;
  std::vector<Target> m_Targets;
  std::unordered_map<std::string, size_t> m_TargetOfValue;
  std::unordered_map<std::string, std::string> m_ValueOfName;
  std::vector<size_t> m_Open;  // targets whose file is open
  std::string m_Key;           // reused for lookups
  unsigned long m_Clock = 0;
};

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_TABLE_WRITER_H_
