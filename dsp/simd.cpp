#include "dsp/simd.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace ONDREL2 {
namespace {

std::atomic<int> overrideMode{-1};

bool ProcessorHasAvx2() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

}  // namespace

bool OndrelSimdEnabled() {
  static const bool supported = ProcessorHasAvx2();
  static const bool allowed = [] {
    const char* setting = std::getenv("ONDREL_SIMD");
    return setting == nullptr || std::strcmp(setting, "0") != 0;
  }();
  const int mode = overrideMode.load(std::memory_order_relaxed);
  return supported && (mode < 0 ? allowed : mode == 1);
}

void OndrelSimdOverride(int mode) { overrideMode.store(mode, std::memory_order_relaxed); }

}  // namespace ONDREL2
