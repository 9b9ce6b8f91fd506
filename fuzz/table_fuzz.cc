// Fuzzes the table reader: the input is the table and, from its first
// "\n%%\n" on, the initial-parameters file. Header and every record are read
// to the end of the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "driver/tbl.h"
#include "fuzz/fuzz_util.h"

namespace {

// Every value has had its trailing blanks and line ends trimmed once the
// header, the parameters or a record is complete.
void CheckTrimmed(const FieldTab& tab) {
  for (const auto& entry : tab) {
    const std::wstring& value = entry.second->m_Value;
    if (value.empty()) {
      continue;
    }
    const wchar_t last = value.back();
    if (last == L' ' || last == L'\t' || last == L'\r' || last == L'\n') {
      abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto parts = SplitInput(data, size, 2);
  ResetFuzzState();
  std::string table =
      WriteScratch("table.txt", parts[0].first, parts[0].second);
  WriteScratch("params.txt", parts.size() > 1 ? parts[1].first : data,
               parts.size() > 1 ? parts[1].second : 0);

  // The template registers the record fields before the first record; a
  // header field 0, which takes the text before the first selector, exists
  // only when a template gave it text, so half of the inputs have one.
  for (long n = 0; n < 12; ++n) {
    Tbl::TabRcdField.InsertField(n);
  }
  if (size % 2 == 1) {
    Tbl::TabHdrField.InsertField(0);
  }
  Tbl::InpFile = WidenPath(table);
  Tbl::BegParam = L"params.txt";
  Tbl::PathBlank = WidenPath(ScratchDir());

  Tbl reader;
  if (!reader.GetHider()) {
    abort();  // the file was just written
  }
  CheckTrimmed(Tbl::TabHdrField);
  reader.GetBegin();
  CheckTrimmed(Tbl::TabHdrField);
  while (reader.GetRecord() != 0) {
    if (Tbl::FirstOst != Tbl::TabRcdField.AllOst()) {
      abort();
    }
    CheckTrimmed(Tbl::TabRcdField);
  }
  // The fields go within the input, so that libFuzzer's leak check, which
  // runs whenever an input allocated more than it freed, stays quiet.
  ResetFuzzState();
  return 0;
}
