// Helpers shared by the unit tests: a private temporary directory per test
// and a reset of the run's process-wide state.
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
  // path() + "/" + name.
  std::string File(const std::string& name) const;
  std::wstring WFile(const std::string& name) const;
  // Writes bytes to path()/name and returns the full path.
  std::string Write(const std::string& name, const std::string& bytes) const;
  // The whole content of path()/name ("" when it does not exist).
  std::string Read(const std::string& name) const;

 private:
  std::string m_Path;
};

// Makes path() the working directory for the object's lifetime.
class ScopedChdir {
 public:
  explicit ScopedChdir(const std::string& dir);
  ~ScopedChdir();
  ScopedChdir(const ScopedChdir&) = delete;
  ScopedChdir& operator=(const ScopedChdir&) = delete;

 private:
  std::string m_Old;
};

// Puts every static of the run back to its start-up value: settings,
// counters, both field tables emptied of their fields.
void ResetRunState();

// The bytes as wide characters, one per byte (for ASCII test text).
std::wstring Widen(const std::string& ascii);

#endif  // FORMFILL_TESTS_TEST_UTIL_H_
