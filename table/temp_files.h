// Temporary files that an interrupted run removes before it dies.
#ifndef FORMFILL_TABLE_TEMP_FILES_H_
#define FORMFILL_TABLE_TEMP_FILES_H_

#include <signal.h>

#include <string>

namespace formfill_table {

// Makes SIGINT, SIGTERM and SIGHUP remove the registered files, then end
// the program as they would have.
void RemoveTempFilesOnSignals();

// Holds those signals back in the calling thread while it lives. A thread
// started meanwhile keeps them held back for good, so that they reach the
// thread that changes the list, and never while it does.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t m_Old;
};

// path must stay as it is until it is unregistered.
void RegisterTempFile(const std::string* path);
void UnregisterTempFile(const std::string* path);

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_TEMP_FILES_H_
