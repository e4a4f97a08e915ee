#include "frame/sample_fifo.h"

#include "framework/alloc.h"
#include "ondrel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ONDREL2 {
namespace {

float* AllocZeroed(int frames) { return AllocBlock<float>(static_cast<size_t>(frames)); }

// Float to int16 as the host sees it: scale by 32767 in float, round half
// away from zero in double, keep the low 16 bits (wraps above full scale).
inline int16_t ToInt16(float value) {
  float x = value * 32767.0f;
  double d = static_cast<double>(x);
  d = x > 0 ? d + 0.5 : d - 0.5;
  // Out of the 32-bit range (and NaN) the hardware conversion yields
  // INT32_MIN; do the same without undefined behaviour.
  int32_t i = (d < 2147483648.0 && d >= -2147483648.0) ? static_cast<int32_t>(d) : INT32_MIN;
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(i)));
}

// ---- Conversion kernels ---------------------------------------------------
// Each works on one contiguous run of the ring. The element results are those
// of the one-sample forms above and below; only the loop shapes differ, so
// that the compiler can run several samples per instruction.

constexpr float kInt16Scale = 3.0517578e-05f;  // 2^-15, bits 0x38000000

void Int16ToFloat(const int16_t* __restrict src, float* __restrict dst, int n) {
  for (int i = 0; i < n; ++i) dst[i] = static_cast<float>(src[i]) * kInt16Scale;
}

void Int16ToFloat2(const int16_t* __restrict src, float* __restrict a, float* __restrict b, int n) {
  for (int i = 0; i < n; ++i) {
    a[i] = static_cast<float>(src[2 * i]) * kInt16Scale;
    b[i] = static_cast<float>(src[2 * i + 1]) * kInt16Scale;
  }
}

void Int16ToFloatStrided(const int16_t* __restrict src, int stride, float* __restrict dst, int n) {
  for (int i = 0; i < n; ++i)
    dst[i] = static_cast<float>(src[static_cast<size_t>(i) * stride]) * kInt16Scale;
}

// A sample that is not finite (a bad decoded frame) enters as silence: one
// such frame would otherwise leave every recursive filter of the chain
// producing NaN until it is rebuilt. The exponent test is std::isfinite
// in a form that vectorises.
inline float FiniteOrZero(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  return (bits & 0x7f800000u) == 0x7f800000u ? 0.0f : v;
}

void FiniteCopy(const float* __restrict src, float* __restrict dst, int n) {
  for (int i = 0; i < n; ++i) dst[i] = FiniteOrZero(src[i]);
}

void FiniteCopy2(const float* __restrict src, float* __restrict a, float* __restrict b, int n) {
  for (int i = 0; i < n; ++i) {
    a[i] = FiniteOrZero(src[2 * i]);
    b[i] = FiniteOrZero(src[2 * i + 1]);
  }
}

void FiniteCopyStrided(const float* __restrict src, int stride, float* __restrict dst, int n) {
  for (int i = 0; i < n; ++i) dst[i] = FiniteOrZero(src[static_cast<size_t>(i) * stride]);
}

void Interleave2(const float* __restrict a, const float* __restrict b, float* __restrict dst,
                 int n) {
  for (int i = 0; i < n; ++i) {
    dst[2 * i] = a[i];
    dst[2 * i + 1] = b[i];
  }
}

#if defined(__SSE2__)
// Four samples of ToInt16 at once, as 32-bit lanes holding the rounded value
// before the 16-bit store. The sum x +- 0.5 of ToInt16 is exact in double,
// so its truncation is trunc(x) plus a step of one exactly where the
// fraction x - trunc(x), itself exact in float, reaches +-0.5. Out of the
// 32-bit range and for NaN the truncation gives INT32_MIN, which is kept as
// ToInt16 keeps it; the one float that truncates to INT32_MIN in range,
// -2^31, has no fraction. Equal to ToInt16 for every float.
inline __m128i RoundFour(const float* src) {
  const __m128 x = _mm_mul_ps(_mm_loadu_ps(src), _mm_set1_ps(32767.0f));
  const __m128i t = _mm_cvttps_epi32(x);
  const __m128 frac = _mm_sub_ps(x, _mm_cvtepi32_ps(t));
  const __m128i up = _mm_castps_si128(_mm_cmpge_ps(frac, _mm_set1_ps(0.5f)));
  const __m128i down = _mm_castps_si128(_mm_cmple_ps(frac, _mm_set1_ps(-0.5f)));
  const __m128i rounded = _mm_add_epi32(_mm_sub_epi32(t, up), down);
  const __m128i bad = _mm_cmpeq_epi32(t, _mm_set1_epi32(INT32_MIN));
  return _mm_or_si128(_mm_and_si128(bad, t), _mm_andnot_si128(bad, rounded));
}

// Keeps the low 16 bits of each 32-bit lane of `a` and `b` (sign-extended
// first, so that the saturating pack never saturates) and packs them.
inline __m128i LowHalves(__m128i a, __m128i b) {
  a = _mm_srai_epi32(_mm_slli_epi32(a, 16), 16);
  b = _mm_srai_epi32(_mm_slli_epi32(b, 16), 16);
  return _mm_packs_epi32(a, b);
}
#endif

void FloatToInt16(const float* src, int16_t* dst, int n) {
  int i = 0;
#if defined(__SSE2__)
  for (; i + 8 <= n; i += 8)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i),
                     LowHalves(RoundFour(src + i), RoundFour(src + i + 4)));
#endif
  for (; i < n; ++i) dst[i] = ToInt16(src[i]);
}

void FloatToInt16x2(const float* a, const float* b, int16_t* dst, int n) {
  int i = 0;
#if defined(__SSE2__)
  for (; i + 4 <= n; i += 4) {
    const __m128i l = RoundFour(a + i);
    const __m128i r = RoundFour(b + i);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i),
                     LowHalves(_mm_unpacklo_epi32(l, r), _mm_unpackhi_epi32(l, r)));
  }
#endif
  for (; i < n; ++i) {
    dst[2 * i] = ToInt16(a[i]);
    dst[2 * i + 1] = ToInt16(b[i]);
  }
}

void FloatToInt16Strided(const float* src, int16_t* dst, int stride, int n) {
  for (int i = 0; i < n; ++i) dst[static_cast<size_t>(i) * stride] = ToInt16(src[i]);
}

}  // namespace

SampleFifo::~SampleFifo() { FreeBuffers(); }

void SampleFifo::FreeBuffers() {
  for (float*& b : buffers) {
    std::free(b);
    b = nullptr;
  }
}

int SampleFifo::SetChannelCount(int n) {
  if (n > kMaxChannels) return ONDREL_E_INVALID;
  if (n == channels) return ONDREL_OK;
  FreeBuffers();
  // Without memory for every channel the queue is left with none, never
  // with a width whose buffers are gone.
  channels = 0;
  if (capacity == 0) capacity = 1024;
  for (int c = 0; c < n; ++c) {
    buffers[c] = AllocZeroed(capacity);
    if (buffers[c] == nullptr) return ONDREL_E_NOMEM;
  }
  channels = n < 0 ? 0 : n;
  return ONDREL_OK;
}

int SampleFifo::Count() const {
  int stored = writePos - readPos;
  if (writePos < readPos) stored += capacity;
  return stored;
}

void SampleFifo::Clear() {
  readPos = 0;
  writePos = 0;
}

int SampleFifo::EnsureCapacity(int need) {
  if (need + 1 <= capacity) return ONDREL_OK;
  const int newCapacity = ((need + 1) & ~0x3ff) + 1024;
  const int stored = Count();
  for (int c = 0; c < channels; ++c) {
    float* fresh = AllocZeroed(newCapacity);
    if (fresh == nullptr) return ONDREL_E_NOMEM;
    float* old = buffers[c];
    if (old != nullptr && stored > 0) {
      if (readPos + stored <= capacity) {
        std::memcpy(fresh, old + readPos, sizeof(float) * static_cast<size_t>(stored));
      } else {
        const int head = capacity - readPos;
        std::memcpy(fresh, old + readPos, sizeof(float) * static_cast<size_t>(head));
        std::memcpy(fresh + head, old, sizeof(float) * static_cast<size_t>(stored - head));
      }
    }
    std::free(old);
    buffers[c] = fresh;
  }
  for (int c = std::max(channels, 0); c < kMaxChannels; ++c) {
    std::free(buffers[c]);
    buffers[c] = nullptr;
  }
  writePos = stored;
  readPos = 0;
  capacity = newCapacity;
  return ONDREL_OK;
}

void SampleFifo::AdvanceWrite(int frames) {
  writePos += frames;
  if (writePos >= capacity) writePos -= capacity;
}

void SampleFifo::AdvanceRead(int frames) {
  readPos += frames;
  if (readPos >= capacity) readPos -= capacity;
}

int SampleFifo::PutInterleaved16(const int16_t* buffer, int samples) {
  if (channels <= 0 || samples % channels != 0) return ONDREL_E_INVALID;
  const int frames = samples / channels;
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  // At most two contiguous runs of the ring: up to its end, then from 0.
  for (int done = 0; done < frames;) {
    const int run = std::min(frames - done, capacity - writePos);
    const int16_t* src = buffer + static_cast<size_t>(done) * static_cast<size_t>(channels);
    Deinterleave16(src, channels, run, buffers, writePos);
    done += run;
    AdvanceWrite(run);
  }
  return ONDREL_OK;
}

int SampleFifo::PutInterleavedFloat(const float* buffer, int samples) {
  if (channels <= 0 || samples % channels != 0) return ONDREL_E_INVALID;
  const int frames = samples / channels;
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  for (int done = 0; done < frames;) {
    const int run = std::min(frames - done, capacity - writePos);
    const float* src = buffer + static_cast<size_t>(done) * static_cast<size_t>(channels);
    DeinterleaveFloat(src, channels, run, buffers, writePos);
    done += run;
    AdvanceWrite(run);
  }
  return ONDREL_OK;
}

int SampleFifo::PutPlanar(const ChannelVector& vec, int frames, int first, int offset) {
  if (static_cast<int>(vec.size()) < channels) return ONDREL_E_INVALID;
  if (frames <= 0) return ONDREL_OK;
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  for (int c = 0; c < channels; ++c) {
    float* dst = buffers[c];
    // A source channel beyond the vector (an offset `first` too large for
    // it) is stored as silence, so the channels stay frame-aligned.
    if (first + c < 0 || first + c >= static_cast<int>(vec.size())) {
      for (int i = 0, pos = writePos; i < frames; ++i) {
        dst[pos] = 0.0f;
        if (++pos == capacity) pos = 0;
      }
      continue;
    }
    const float* src = vec[static_cast<size_t>(first + c)] + offset;
    if (writePos + frames >= capacity) {
      const int head = capacity - writePos;
      std::memcpy(dst + writePos, src, sizeof(float) * static_cast<size_t>(head));
      std::memcpy(dst, src + head, sizeof(float) * static_cast<size_t>(frames - head));
    } else {
      std::memcpy(dst + writePos, src, sizeof(float) * static_cast<size_t>(frames));
    }
  }
  AdvanceWrite(frames);
  return ONDREL_OK;
}

void SampleFifo::Deinterleave16(const int16_t* src, int channels, int frames, float* const* dst,
                                int offset) {
  if (channels == 1) {
    Int16ToFloat(src, dst[0] + offset, frames);
  } else if (channels == 2) {
    Int16ToFloat2(src, dst[0] + offset, dst[1] + offset, frames);
  } else {
    for (int c = 0; c < channels; ++c)
      Int16ToFloatStrided(src + c, channels, dst[c] + offset, frames);
  }
}

void SampleFifo::DeinterleaveFloat(const float* src, int channels, int frames, float* const* dst,
                                   int offset) {
  if (channels == 1) {
    FiniteCopy(src, dst[0] + offset, frames);
  } else if (channels == 2) {
    FiniteCopy2(src, dst[0] + offset, dst[1] + offset, frames);
  } else {
    for (int c = 0; c < channels; ++c)
      FiniteCopyStrided(src + c, channels, dst[c] + offset, frames);
  }
}

int SampleFifo::ReserveContiguous(int frames, bool* fits) {
  *fits = false;
  if (Count() == 0) Clear();
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  *fits = writePos + frames < capacity;
  return ONDREL_OK;
}

int SampleFifo::GetInterleaved16(int16_t* buffer, int samples, int* got) {
  if (channels <= 0) {
    if (got) *got = 0;
    return ONDREL_OK;
  }
  const int frames = std::min(samples / channels, Count());
  for (int done = 0; done < frames;) {
    const int run = std::min(frames - done, capacity - readPos);
    int16_t* dst = buffer + static_cast<size_t>(done) * static_cast<size_t>(channels);
    if (channels == 1) {
      FloatToInt16(buffers[0] + readPos, dst, run);
    } else if (channels == 2) {
      FloatToInt16x2(buffers[0] + readPos, buffers[1] + readPos, dst, run);
    } else {
      for (int c = 0; c < channels; ++c)
        FloatToInt16Strided(buffers[c] + readPos, dst + c, channels, run);
    }
    done += run;
    AdvanceRead(run);
  }
  if (got) *got = frames * channels;
  return ONDREL_OK;
}

int SampleFifo::GetInterleavedFloat(float* buffer, int samples, int* got) {
  if (channels <= 0) {
    if (got) *got = 0;
    return ONDREL_OK;
  }
  const int frames = std::min(samples / channels, Count());
  for (int done = 0; done < frames;) {
    const int run = std::min(frames - done, capacity - readPos);
    float* dst = buffer + static_cast<size_t>(done) * static_cast<size_t>(channels);
    if (channels == 1) {
      std::memcpy(dst, buffers[0] + readPos, sizeof(float) * static_cast<size_t>(run));
    } else if (channels == 2) {
      Interleave2(buffers[0] + readPos, buffers[1] + readPos, dst, run);
    } else {
      for (int c = 0; c < channels; ++c) {
        const float* src = buffers[c] + readPos;
        for (int i = 0; i < run; ++i) dst[static_cast<size_t>(i) * channels + c] = src[i];
      }
    }
    done += run;
    AdvanceRead(run);
  }
  if (got) *got = frames * channels;
  return ONDREL_OK;
}

int SampleFifo::GetPlanar(const ChannelVector& vec, int frames, int* got, int first) {
  if (static_cast<int>(vec.size()) < channels) return ONDREL_E_INVALID;
  const int out = std::max(0, std::min(frames, Count()));
  if (got) *got = out;
  if (out == 0) return ONDREL_OK;
  for (int c = 0; c < channels; ++c) {
    if (first + c >= static_cast<int>(vec.size())) break;
    float* dst = vec[static_cast<size_t>(first + c)];
    const float* src = buffers[c];
    if (readPos + out >= capacity) {
      const int head = capacity - readPos;
      std::memcpy(dst, src + readPos, sizeof(float) * static_cast<size_t>(head));
      std::memcpy(dst + head, src, sizeof(float) * static_cast<size_t>(out - head));
    } else {
      std::memcpy(dst, src + readPos, sizeof(float) * static_cast<size_t>(out));
    }
  }
  AdvanceRead(out);
  return ONDREL_OK;
}

int SampleFifo::DropNewest(int frames) {
  const int n = std::max(0, std::min(frames, Count()));
  writePos -= n;
  if (writePos < 0) writePos += capacity;
  return ONDREL_OK;
}

}  // namespace ONDREL2
