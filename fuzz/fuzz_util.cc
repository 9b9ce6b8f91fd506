#include "fuzz/fuzz_util.h"

#include <stdlib.h>

#include <cstdio>

#include "driver/tbl.h"

const std::string& ScratchDir() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/formfill-fuzz-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
      abort();
    }
    return std::string(pattern) + "/";
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
  Tbl::TabRcdField.freeAll();
  Tbl::CountList = 0;
  Tbl::totBreak = 0;
  Tbl::FirstOst = 0;
}

std::wstring WidenPath(const std::string& path) {
  return std::wstring(path.begin(), path.end());
}
