#include "tests/test_util.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "driver/tbl.h"

TempDir::TempDir() {
  std::string pattern = testing::TempDir() + "formfill-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed for " + pattern);
  }
  m_Path = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(m_Path, ignored);
}

std::string TempDir::File(const std::string& name) const {
  return m_Path + "/" + name;
}

std::wstring TempDir::WFile(const std::string& name) const {
  return Widen(File(name));
}

std::string TempDir::Write(const std::string& name,
                           const std::string& bytes) const {
  std::string full = File(name);
  std::ofstream out(full, std::ios::binary);
  out << bytes;
  return full;
}

std::string TempDir::Read(const std::string& name) const {
  std::ifstream in(File(name), std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  return all.str();
}

ScopedChdir::ScopedChdir(const std::string& dir) {
  char* old = getcwd(nullptr, 0);
  m_Old = old != nullptr ? old : ".";
  free(old);
  if (chdir(dir.c_str()) != 0) {
    throw std::runtime_error("chdir failed for " + dir);
  }
}

ScopedChdir::~ScopedChdir() {
  if (chdir(m_Old.c_str()) != 0) {
    // Nothing sensible is left to do in a destructor; the next test that
    // needs a directory makes its own.
  }
}

void ResetRunState() {
  Tbl::BlankFile.clear();
  Tbl::BegParam.clear();
  Tbl::InpFile = L"NULL";
  Tbl::OutFile = L"CON";
  Tbl::PathBlank.clear();
  Tbl::TabHdrField.freeAll();
  Tbl::TabHdrField.m_Current = nullptr;
  Tbl::TabRcdField.freeAll();
  Tbl::TabRcdField.m_Current = nullptr;
  Tbl::Add = 0;
  Tbl::CountList = 0;
  Tbl::WinMes = 0;
  Tbl::totBreak = 0;
  Tbl::FirstOst = 0;
}

std::wstring Widen(const std::string& ascii) {
  return std::wstring(ascii.begin(), ascii.end());
}
