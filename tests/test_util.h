// Helpers shared by the tests.
#ifndef FORMFILL_TESTS_TEST_UTIL_H_
#define FORMFILL_TESTS_TEST_UTIL_H_

#include <string>

// A fresh directory, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return m_Path; }
  // Writes bytes to path()/name and returns that full name, widened.
  std::wstring Write(const std::string& name, const std::string& bytes) const;

 private:
  std::string m_Path;
};

// The whole content of a file; "" when it cannot be read.
std::string ReadFile(const std::string& path);

// The bytes as wide characters, one per byte.
std::wstring Widen(const std::string& bytes);

#endif  // FORMFILL_TESTS_TEST_UTIL_H_
