#pragma once

namespace ONDREL2 {

// True when the vector kernels may run: the processor has AVX2 and the
// environment variable ONDREL_SIMD is not "0". Decided once per process, on
// the first call. The vector and the plain kernels give identical results;
// ONDREL_SIMD=0 exists so that the plain ones can be exercised on any
// machine.
bool OndrelSimdEnabled();

// Test hook: 0 turns the vector kernels off and 1 back on (where the
// processor has them) for objects planned from now on; -1 restores the
// environment's choice.
void OndrelSimdOverride(int mode);

}  // namespace ONDREL2
