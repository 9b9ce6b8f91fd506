// Shared set-up of the fuzz harnesses: a private scratch directory and a
// reset of the run's process-wide state between inputs.
#ifndef FORMFILL_FUZZ_FUZZ_UTIL_H_
#define FORMFILL_FUZZ_FUZZ_UTIL_H_

#include <cstddef>
#include <cstdint>
#include <string>

// The harness's scratch directory, made once per process, with a final '/'.
const std::string& ScratchDir();

// Writes the bytes to ScratchDir() + name and returns the full path.
std::string WriteScratch(const std::string& name, const uint8_t* data,
                         size_t size);

// Empties both field tables and puts the counters and settings back.
void ResetFuzzState();

std::wstring WidenPath(const std::string& path);

#endif  // FORMFILL_FUZZ_FUZZ_UTIL_H_
