#include "textio/wide_vectors.h"

namespace {

bool ProcessorHasWideVectors() {
#if FORMFILL_WIDE_VECTORS
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

}  // namespace

namespace wide_vectors {
bool g_On = ProcessorHasWideVectors();
}  // namespace wide_vectors

bool SetWideVectors(bool on) {
  const bool was = wide_vectors::g_On;
  wide_vectors::g_On = on && ProcessorHasWideVectors();
  return was;
}
