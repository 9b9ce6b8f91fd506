#include "table/temp_files.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace formfill_table {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Read by the handler; changed only with the signals held back, and only
// by the thread they can reach.
std::vector<const std::string*>& Files() {
  static std::vector<const std::string*> files;
  return files;
}

void OnSignal(int sig) {
  for (const std::string* path : Files())
    unlink(path->c_str());
  // Raised again with the default action, it ends the program once the
  // handler returns: the caller sees the signal it sent.
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(sig, &action, nullptr);
  raise(sig);
}

}  // namespace

void RemoveTempFilesOnSignals() {
  Files().reserve(64);
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  for (const int sig : kSignals)
    sigaddset(&action.sa_mask, sig);
  for (const int sig : kSignals) {
    // A signal ignored when the program started (nohup) stays ignored.
    struct sigaction old;
    if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
      sigaction(sig, &action, nullptr);
  }
}

SignalsHeld::SignalsHeld() {
  sigset_t held;
  sigemptyset(&held);
  for (const int sig : kSignals)
    sigaddset(&held, sig);
  pthread_sigmask(SIG_BLOCK, &held, &m_Old);
}

SignalsHeld::~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &m_Old, nullptr); }

void RegisterTempFile(const std::string* path) {
  SignalsHeld held;
  Files().push_back(path);
}

void UnregisterTempFile(const std::string* path) {
  SignalsHeld held;
  std::vector<const std::string*>& files = Files();
  const auto found = std::find(files.begin(), files.end(), path);
  if (found != files.end()) {
    *found = files.back();
    files.pop_back();
  }
}

}  // namespace formfill_table
