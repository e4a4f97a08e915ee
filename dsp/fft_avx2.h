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

// The innermost stage when it is radix 2 with m = 1, fused with the
// reordering of its input. Group g takes input values j and j + groups,
// where j runs through 0 .. groups-1 in reversed-digit order of g, and
// writes out[4g .. 4g+3]. Inputs are read in blocks of eight consecutive j;
// `index` gives, per block, the float offset 4g of each lane's group (lane
// order 0, 1, 4, 5, 2, 3, 6, 7 of j). `groups` is a multiple of 8; (wr, wi)
// is the stage's only twiddle.
void LeafRadix2(const float* in, float* out, const int* index, int groups, float wr, float wi);

// The real-spectrum split of a forward transform from the half-size result
// `t` into the split layout, and its inverse join from the split layout
// into `t`; `sr`, `si` are the half-turn twiddles' parts.
void SplitForward(const float* t, const float* sr, const float* si, int half, float* re, float* im);
void JoinInverse(const float* re, const float* im, const float* sr, const float* si, int half,
                 float* t);

// acc += h * x over `count` complex values held as split real and
// imaginary arrays: accR += hR*xR - hI*xI, accI += hI*xR + hR*xI.
void MultiplyAccumulate(const float* hr, const float* hi, const float* xr, const float* xi,
                        float* accR, float* accI, int count);
// The same for four products added one after the other (h[0] * x[0]
// first); h[j] and x[j] each hold `count` real parts followed by `count`
// imaginary parts.
void MultiplyAccumulate4(const float* const h[4], const float* const x[4], float* accR, float* accI,
                         int count);

}  // namespace fftavx2
}  // namespace ONDREL2
