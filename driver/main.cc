// formfill: fills a text form (template) with the values of an input table.
//
//   formfill -B<template> -I<table> -O<document> [-F<parameters>] [-P<path>]
#include <clocale>
#include <cstdlib>
#include <locale>
#include <string>

#include "driver/tbl.h"

namespace {

// Each byte becomes the character of the same value: names are passed on
// exactly as the shell gave them, whatever their encoding.
std::wstring WidenBytes(const char* arg) {
  std::wstring wide;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(arg);
       *p != 0; ++p) {
    wide.push_back(static_cast<wchar_t>(*p));
  }
  return wide;
}

// The setting that option letter names, in either case, or null for any
// other letter.
std::wstring* Setting(wchar_t letter) {
  if (letter >= L'a' && letter <= L'z') {
    letter = static_cast<wchar_t>(letter - L'a' + L'A');
  }
  switch (letter) {
    case L'B':
      return &Tbl::BlankFile;
    case L'F':
      return &Tbl::BegParam;
    case L'I':
      return &Tbl::InpFile;
    case L'O':
      return &Tbl::OutFile;
    case L'P':
      return &Tbl::PathBlank;
    default:
      return nullptr;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // A missing or unknown LANG throws here and nothing catches it: the run
  // must not go on with messages and documents in an encoding nobody asked
  // for.
  const char* lang = std::getenv("LANG");
  std::locale::global(std::locale(lang));
  std::setlocale(LC_ALL, lang);
  // Numbers keep the decimal point whatever the user's language.
  std::setlocale(LC_NUMERIC, "C.UTF-8");

  // The program's own path is examined like every other argument. Values are
  // glued to their letter: "-I name" sets an empty input name and the
  // separate name is ignored, as older scripts expect.
  for (int i = 0; i < argc; ++i) {
    const std::wstring arg = WidenBytes(argv[i]);
    if (arg.size() < 2 || arg[0] != L'-') {
      continue;
    }
    std::wstring* setting = Setting(arg[1]);
    if (setting != nullptr) {
      *setting = arg.substr(2);
    }
  }

  int status;
  {
    Tbl tbl;
    status = tbl.Execute();
  }
  return status;
}
