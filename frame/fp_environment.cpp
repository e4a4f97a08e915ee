// Keeps IEEE denormal handling for the process that loads the library.
//
// Debian's SoundTouch is built with fast-math, and the start-up code that
// comes with it switches on flush-to-zero and denormals-are-zero for the
// loading thread. That changes small results of every effect (and of the
// host), which must match sample for sample, so the library switches both
// off again once it is loaded. Dependencies are initialised before the
// library, so this runs after SoundTouch's start-up code.
#if defined(__SSE__) || defined(__x86_64__)
#include <xmmintrin.h>

namespace {

constexpr unsigned kFlushToZero = 0x8000;
constexpr unsigned kDenormalsAreZero = 0x0040;

__attribute__((constructor)) void RestoreIeeeDenormals() {
  _mm_setcsr(_mm_getcsr() & ~(kFlushToZero | kDenormalsAreZero));
}

}  // namespace
#endif
