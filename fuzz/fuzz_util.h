// Shared set-up of the fuzz harnesses: a private scratch directory and a
// reset of the run's process-wide state between inputs.
#ifndef FORMFILL_FUZZ_FUZZ_UTIL_H_
#define FORMFILL_FUZZ_FUZZ_UTIL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The harness's scratch directory, made once per process (in memory under
// /dev/shm where there is one), with a final '/'.
const std::string& ScratchDir();

// Writes the bytes to ScratchDir() + name and returns the full path.
std::string WriteScratch(const std::string& name, const uint8_t* data,
                         size_t size);

// Empties both field tables, puts the counters and settings back and closes
// the template file that the previous input left open.
void ResetFuzzState();

// The input cut at every "\n%%\n" into at most max_parts pieces; the last
// piece keeps any further separators.
std::vector<std::pair<const uint8_t*, size_t>> SplitInput(const uint8_t* data,
                                                          size_t size,
                                                          size_t max_parts);

std::wstring WidenPath(const std::string& path);

#endif  // FORMFILL_FUZZ_FUZZ_UTIL_H_
