#include "dsp/resampler_fft.h"

#include "dsp/simd.h"

namespace ONDREL2 {

bool ResamplerRealFft::Init(int n) {
  size = 0;
  if (n < 4 || (n & (n - 1)) != 0) return false;
  if (!plan.Init(n, OndrelSimdEnabled())) return false;
  size = n;
  return true;
}

void ResamplerRealFft::Forward(float* data) { plan.ForwardPacked(data, data); }

void ResamplerRealFft::Inverse(float* data) {
  // The unscaled inverse multiplies by n; the halving makes the pair n/2.
  for (int k = 0; k < size; ++k) data[k] *= 0.5f;
  plan.InversePacked(data, data);
}

}  // namespace ONDREL2
