#include "tests/test_util.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>


TempDir::TempDir() : m_Path(testing::TempDir() + "formfill-XXXXXX") {
  if (mkdtemp(m_Path.data()) == nullptr)
    throw std::runtime_error("mkdtemp failed for " + m_Path);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(m_Path, ignored);
}

std::wstring TempDir::Write(const std::string& name,
                            const std::string& bytes) const {
  const std::string full = m_Path + "/" + name;
  std::ofstream(full, std::ios::binary) << bytes;
  return Widen(full);
}

std::string ReadFile(const std::string& path) {
  std::ostringstream all;
  all << std::ifstream(path, std::ios::binary).rdbuf();
  return all.str();
}

std::wstring Widen(const std::string& bytes) {
  return std::wstring(bytes.begin(), bytes.end());
}


