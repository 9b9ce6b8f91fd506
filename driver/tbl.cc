#include "driver/tbl.h"

#include <iostream>

#include "textio/output_file.h"

std::wstring Tbl::BlankFile;
std::wstring Tbl::BegParam;
std::wstring Tbl::InpFile = L"NULL";
// A copy of the characters, not the shared constant: the output file picks
// standard output only for that very pointer, so without -O the document
// is an ordinary file named CON, which existing scripts collect by that
// name. kConName is a constant-initialised array, so it is ready before
// this copy is made whatever the order of the start-up code.
std::wstring Tbl::OutFile = kConName;
std::wstring Tbl::PathBlank;
FieldTab Tbl::TabHdrField;
FieldTab Tbl::TabRcdField;
// Add and WinMes are neither changed nor read by the run. They stay so that
// code written against the settings, which may set or read them, still
// builds and means what it meant.
int32_t Tbl::Add = 0;
int32_t Tbl::CountList = 0;
int32_t Tbl::WinMes = 0;
int32_t Tbl::totBreak = 0;
int64_t Tbl::FirstOst = 0;

void Tbl::Report(numErr n, std::wstring const& what, OutputFile* document,
                 Where where) {
  const std::wstring text = Err(n);
  if ((where & kScreen) != 0) {
    std::wcout << text << what << std::endl;
  }
  if ((where & kDocument) != 0 && document != nullptr) {
    *document << text << what << L"\n";
  }
}
