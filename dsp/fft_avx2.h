// AVX2 kernels of the real FFT and of the partitioned convolution. Callers
// check Available() (the processor has AVX2 and ONDREL_SIMD is not "0")
// once when they plan; the kernels do the plain code's arithmetic lane by
// lane and give identical results.
#pragma once

namespace ONDREL2 {
namespace fftavx2 {

bool Available();

// One radix-4 or radix-2 stage over `groups` groups of radix * m
// interleaved complex values. `lanes` and `table` as RealFftPlan::Stage
// and RealFftPlan::Direction::tables describe them.
void Radix4(float* data, int groups, int m, int lanes, const float* table, bool inverse);
void Radix2(float* data, int groups, int m, int lanes, const float* table);

// acc += h * x over `count` complex values held as split real and
// imaginary arrays: accR += hR*xR - hI*xI, accI += hI*xR + hR*xI.
void MultiplyAccumulate(const float* hr, const float* hi, const float* xr, const float* xi,
                        float* accR, float* accI, int count);

}  // namespace fftavx2
}  // namespace ONDREL2
