#include "dsp/simd.h"

#include <cstdlib>
#include <cstring>

namespace ONDREL2 {

bool OndrelSimdEnabled() {
  static const bool enabled = [] {
    const char* setting = std::getenv("ONDREL_SIMD");
    if (setting != nullptr && std::strcmp(setting, "0") == 0) return false;
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
  }();
  return enabled;
}

}  // namespace ONDREL2
