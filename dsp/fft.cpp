#include "dsp/fft.h"

#include <cstdlib>
#include <cstring>

#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {

OndrelKissFFT::~OndrelKissFFT() {
  kiss_fftr_free(forwardCfg);
  kiss_fftr_free(inverseCfg);
  std::free(scratch);
  forwardCfg = nullptr;
  inverseCfg = nullptr;
  scratch = nullptr;
}

int OndrelKissFFT::Init(int n) {
  // Kiss FFT gives no configuration for an odd size; a non-positive size
  // is refused the same way before it reaches the allocator.
  if (n <= 0 || (n & 1) != 0) return ONDREL_E_NOMEM;
  // A repeated Init replaces what an earlier one made.
  kiss_fftr_free(forwardCfg);
  kiss_fftr_free(inverseCfg);
  std::free(scratch);
  size = 0;
  forwardCfg = kiss_fftr_alloc(n, 0, nullptr, nullptr);
  inverseCfg = kiss_fftr_alloc(n, 1, nullptr, nullptr);
  scratch = AllocBlock<kiss_fft_cpx>(static_cast<size_t>(n) / 2 + 1);
  if (forwardCfg == nullptr || inverseCfg == nullptr || scratch == nullptr) return ONDREL_E_NOMEM;
  // A defined bin N/2 for an Inverse that comes before any Forward.
  std::memset(scratch, 0, sizeof(kiss_fft_cpx) * (static_cast<size_t>(n) / 2 + 1));
  size = n;
  return ONDREL_OK;
}

int OndrelKissFFT::Forward(const float* input, float* output) {
  kiss_fftr(forwardCfg, input, scratch);
  std::memcpy(output, scratch, sizeof(float) * static_cast<size_t>(size));
  return ONDREL_OK;
}

int OndrelKissFFT::ForwardPacked(float* data) {
  const int half = size / 2;
  kiss_fftr(forwardCfg, data, scratch);
  data[0] = scratch[0].r;
  data[1] = scratch[half].r;
  for (int k = 1; k < half; ++k) {
    data[2 * k] = scratch[k].r;
    data[2 * k + 1] = scratch[k].i;
  }
  return ONDREL_OK;
}

int OndrelKissFFT::Inverse(const float* input, float* output) {
  // Bin N/2 is left as the previous operation left it.
  std::memcpy(scratch, input, sizeof(float) * static_cast<size_t>(size));
  kiss_fftri(inverseCfg, scratch, output);
  return ONDREL_OK;
}

int OndrelKissFFT::InversePacked(float* data) {
  const int half = size / 2;
  scratch[0].r = data[0];
  scratch[0].i = 0.0f;
  scratch[half].r = data[1];
  scratch[half].i = 0.0f;
  for (int k = 1; k < half; ++k) {
    scratch[k].r = data[2 * k];
    scratch[k].i = data[2 * k + 1];
  }
  kiss_fftri(inverseCfg, scratch, data);
  return ONDREL_OK;
}

}  // namespace ONDREL2
