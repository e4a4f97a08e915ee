#include "dsp/resampler_fft.h"
#include "framework/alloc.h"

#include <new>

namespace ONDREL2 {

ResamplerRealFft::~ResamplerRealFft() { Release(); }

void ResamplerRealFft::Release() {
  kiss_fftr_free(forwardCfg);
  kiss_fftr_free(inverseCfg);
  forwardCfg = nullptr;
  inverseCfg = nullptr;
  size = 0;
}

bool ResamplerRealFft::Init(int n) {
  Release();
  if (n < 4 || (n & (n - 1)) != 0) return false;
  if (!TryAllocating([&] {
        bins.assign(static_cast<size_t>(n / 2 + 1), kiss_fft_cpx{0.0f, 0.0f});
      })) {
    return false;
  }
  forwardCfg = kiss_fftr_alloc(n, 0, nullptr, nullptr);
  inverseCfg = kiss_fftr_alloc(n, 1, nullptr, nullptr);
  if (!forwardCfg || !inverseCfg) {
    Release();
    return false;
  }
  size = n;
  return true;
}

void ResamplerRealFft::Forward(float* data) {
  kiss_fftr(forwardCfg, data, bins.data());
  const int half = size / 2;
  data[0] = bins[0].r;
  data[1] = bins[half].r;
  for (int k = 1; k < half; ++k) {
    data[2 * k] = bins[k].r;
    data[2 * k + 1] = bins[k].i;
  }
}

void ResamplerRealFft::Inverse(float* data) {
  // Kiss FFT's inverse multiplies by n; the halving makes the pair n/2.
  const int half = size / 2;
  bins[0].r = data[0] * 0.5f;
  bins[0].i = 0.0f;
  bins[half].r = data[1] * 0.5f;
  bins[half].i = 0.0f;
  for (int k = 1; k < half; ++k) {
    bins[k].r = data[2 * k] * 0.5f;
    bins[k].i = data[2 * k + 1] * 0.5f;
  }
  kiss_fftri(inverseCfg, bins.data(), data);
}

}  // namespace ONDREL2
