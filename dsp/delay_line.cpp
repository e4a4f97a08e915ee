#include "dsp/delay_line.h"

#include <algorithm>
#include <new>

#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {

DelayLine::~DelayLine() { Free(); }

void DelayLine::Free() {
  delete[] samples;
  samples = nullptr;
  length = -1;
  mask = -1;
  readPos = 0;
}

void DelayLine::Clear() {
  if (samples == nullptr) return;
  for (int32_t i = 0; i < length; ++i) {
    Write(0.0f);
    Advance();
  }
}

int32_t DelayLine::Resize(int32_t newLength) {
  if (newLength == length) return ONDREL_OK;
  if (newLength < 0 || newLength > (1 << 29)) return ONDREL_E_NOMEM;
  uint32_t size = 1;
  while (size <= static_cast<uint32_t>(newLength)) size <<= 1;
  float* ring = NewArray<float>(size);
  if (ring == nullptr) return ONDREL_E_NOMEM;

  if (samples != nullptr) {
    const uint32_t m = static_cast<uint32_t>(mask);
    if (length >= 3 && newLength >= 3) {
      // Linear interpolation across the old content; the later sample takes
      // the weight 1 - f. The crossed weights are part of the line's sound
      // and are kept as they are.
      const float ratio = static_cast<float>(length - 2) / static_cast<float>(newLength - 2);
      for (int32_t n = 0; n <= newLength - 2; ++n) {
        const float p = static_cast<float>(n) * ratio;
        const int32_t i = static_cast<int32_t>(p);
        const float f = p - static_cast<float>(i);
        const uint32_t b = readPos + static_cast<uint32_t>(i);
        ring[n] = (1.0f - f) * samples[(b + 1) & m] + f * samples[b & m];
      }
      ring[newLength - 1] = samples[(readPos + static_cast<uint32_t>(length) - 1) & m];
    } else {
      const float head = samples[(static_cast<uint32_t>(length / 2) + readPos) & m];
      const float tail = samples[(readPos + static_cast<uint32_t>(std::max(length - 1, 0))) & m];
      for (int32_t n = 0; n < newLength; ++n) ring[n] = n < newLength / 2 ? head : tail;
    }
  }

  delete[] samples;
  samples = ring;
  length = newLength;
  mask = static_cast<int32_t>(size - 1);
  readPos = 0;
  return ONDREL_OK;
}

}  // namespace ONDREL2
