#include "dsp/fft.h"

#include <algorithm>

#include "dsp/simd.h"
#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {

OndrelKissFFT::~OndrelKissFFT() = default;

int OndrelKissFFT::Init(int n) {
  // No transform of an odd size exists; a non-positive size is refused the
  // same way before it reaches the allocator.
  size = 0;
  if (n <= 0 || (n & 1) != 0) return ONDREL_E_NOMEM;
  // A repeated Init replaces what an earlier one made. The zeroed scratch
  // gives a defined bin N/2 to an Inverse that comes before any Forward.
  if (!TryAllocating([&] { scratch.assign(static_cast<size_t>(n) + 2, 0.0f); }))
    return ONDREL_E_NOMEM;
  if (!plan.Init(n, OndrelSimdEnabled())) return ONDREL_E_NOMEM;
  size = n;
  return ONDREL_OK;
}

int OndrelKissFFT::Forward(const float* input, float* output) {
  plan.Forward(input, scratch.data());
  std::copy(scratch.begin(), scratch.begin() + size, output);
  return ONDREL_OK;
}

int OndrelKissFFT::ForwardPacked(float* data) {
  plan.ForwardPacked(data, data);
  // Bin N/2 as a full transform into the scratch spectrum would leave it.
  scratch[static_cast<size_t>(size)] = data[1];
  scratch[static_cast<size_t>(size) + 1] = 0.0f;
  return ONDREL_OK;
}

int OndrelKissFFT::Inverse(const float* input, float* output) {
  // Bin N/2 is left as the previous operation left it.
  std::copy(input, input + size, scratch.begin());
  plan.Inverse(scratch.data(), output);
  return ONDREL_OK;
}

int OndrelKissFFT::InversePacked(float* data) {
  scratch[static_cast<size_t>(size)] = data[1];
  scratch[static_cast<size_t>(size) + 1] = 0.0f;
  plan.InversePacked(data, data);
  return ONDREL_OK;
}

}  // namespace ONDREL2
