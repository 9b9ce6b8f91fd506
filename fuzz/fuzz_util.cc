#include "fuzz/fuzz_util.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "driver/tbl.h"
#include "template/blank.h"

const std::string& ScratchDir() {
  static const std::string dir = [] {
    // Every input writes its files anew: memory-backed files keep the
    // harnesses from waiting on the disk.
    char shm[] = "/dev/shm/formfill-fuzz-XXXXXX";
    char tmp[] = "/tmp/formfill-fuzz-XXXXXX";
    char* made = access("/dev/shm", W_OK) == 0 ? mkdtemp(shm) : nullptr;
    if (made == nullptr) {
      made = mkdtemp(tmp);
    }
    if (made == nullptr) {
      abort();
    }
    return std::string(made) + "/";
  }();
  return dir;
}

std::string WriteScratch(const std::string& name, const uint8_t* data,
                         size_t size) {
  std::string path = ScratchDir() + name;
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) {
    abort();
  }
  if (size > 0 && fwrite(data, 1, size, f) != size) {
    abort();
  }
  fclose(f);
  return path;
}

void ResetFuzzState() {
  Tbl::BlankFile.clear();
  Tbl::BegParam.clear();
  Tbl::InpFile = L"NULL";
  Tbl::OutFile = L"CON";
  Tbl::PathBlank.clear();
  Tbl::TabHdrField.freeAll();
  Tbl::TabHdrField.m_Current = nullptr;
  Tbl::TabRcdField.freeAll();
  Tbl::TabRcdField.m_Current = nullptr;
  Tbl::CountList = 0;
  Tbl::totBreak = 0;
  Tbl::FirstOst = 0;
  // A run opens at most three sections and leaves them to the process's
  // end; an input after input would pile up descriptors and buffers.
  if (Blank::m_File.m_Stream != nullptr) {
    fclose(Blank::m_File.m_Stream);
    Blank::m_File.m_Stream = nullptr;
  }
  Blank::m_File.m_IsBack = false;
  Blank::m_File.m_Back = 0;
}

std::vector<std::pair<const uint8_t*, size_t>> SplitInput(const uint8_t* data,
                                                          size_t size,
                                                          size_t max_parts) {
  static const char kSplit[] = "\n%%\n";
  std::vector<std::pair<const uint8_t*, size_t>> parts;
  size_t from = 0;
  for (size_t i = 0; i + 4 <= size && parts.size() + 1 < max_parts; ++i) {
    if (memcmp(data + i, kSplit, 4) == 0) {
      parts.push_back({data + from, i - from});
      from = i + 4;
      i = from - 1;
    }
  }
  parts.push_back({data + from, size - from});
  return parts;
}

std::wstring WidenPath(const std::string& path) {
  return std::wstring(path.begin(), path.end());
}
