#pragma once

#include "dsp/fft_kernel.h"

namespace ONDREL2 {

// Real-input FFT of a fixed power-of-two size n, in place, in single
// precision, in the packed layout of the two-stage converter:
//   [0] = bin 0 (real), [1] = bin n/2 (real), [2k], [2k+1] = Re, Im of bin k
//   for 1 <= k < n/2, where bin k = sum_j x[j] * exp(-2 pi i j k / n).
// The inverse takes the same layout and does not divide by n: forward then
// inverse multiplies by n/2. Filters that go through a transform pair carry
// the factor 2/n in their stored taps.
//
// The transform gives Kiss FFT's results (RealFftPlan); the halving of the
// inverse is applied to the spectrum before it and is exact. Allocation
// happens in Init only; the transforms are real-time safe.
class ResamplerRealFft {
 public:
  ResamplerRealFft() = default;
  ~ResamplerRealFft() = default;
  ResamplerRealFft(const ResamplerRealFft&) = delete;
  ResamplerRealFft& operator=(const ResamplerRealFft&) = delete;

  // False when n is not a power of two of at least 4 or memory runs out.
  bool Init(int n);
  int Size() const { return size; }
  void Forward(float* data);
  void Inverse(float* data);

 private:
  RealFftPlan plan;
  int size = 0;
};

}  // namespace ONDREL2
