// Fuzzes the table reader: the input is the table and, from its first
// "\n%%\n" on, the initial-parameters file. Header and every record are read
// to the end of the input.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "driver/tbl.h"
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char kSplit[] = "\n%%\n";
  size_t table_size = size;
  for (size_t i = 0; i + 4 <= size; ++i) {
    if (memcmp(data + i, kSplit, 4) == 0) {
      table_size = i;
      break;
    }
  }
  ResetFuzzState();
  std::string table = WriteScratch("table.txt", data, table_size);
  size_t params_at = table_size == size ? size : table_size + 4;
  WriteScratch("params.txt", data + params_at, size - params_at);

  // The template registers the record fields before the first record.
  for (long n = 0; n < 12; ++n) {
    Tbl::TabRcdField.InsertField(n);
  }
  Tbl::InpFile = WidenPath(table);
  Tbl::BegParam = L"params.txt";
  Tbl::PathBlank = WidenPath(ScratchDir());

  Tbl reader;
  if (!reader.GetHider()) {
    abort();  // the file was just written
  }
  reader.GetBegin();
  while (reader.GetRecord() != 0) {
    if (Tbl::FirstOst != Tbl::TabRcdField.AllOst()) {
      abort();
    }
  }
  return 0;
}
