#include "dsp/fft_avx2.h"

#include "dsp/simd.h"

#if defined(__x86_64__) || defined(__i386__)
#define ONDREL_HAVE_AVX2_KERNELS 1
#include <immintrin.h>
#endif

namespace ONDREL2 {
namespace fftavx2 {

#ifndef ONDREL_HAVE_AVX2_KERNELS

bool Available() { return false; }
void Radix4(float*, int, int, int, const float*, bool) {}
void Radix2(float*, int, int, int, const float*) {}
void MultiplyAccumulate(const float*, const float*, const float*, const float*, float*, float*,
                        int) {}

#else

bool Available() { return OndrelSimdEnabled(); }

}  // namespace fftavx2
}  // namespace ONDREL2

// Everything below is compiled for AVX2 (without FMA: products and sums
// stay separate roundings). Only code with internal linkage or behind
// Available() may follow, so that no AVX2 instruction reaches a path that
// runs on other processors.
#pragma GCC push_options
#pragma GCC target("avx2")

#include "dsp/fft_math.h"

namespace ONDREL2 {
namespace fftavx2 {
namespace {

// Eight interleaved complex values as real and imaginary lanes, in the
// order 0, 1, 4, 5, 2, 3, 6, 7; Store8 undoes it.
inline void Load8(const float* p, __m256& re, __m256& im) {
  const __m256 a = _mm256_loadu_ps(p);
  const __m256 b = _mm256_loadu_ps(p + 8);
  re = _mm256_shuffle_ps(a, b, 0x88);
  im = _mm256_shuffle_ps(a, b, 0xDD);
}
inline void Store8(float* p, __m256 re, __m256 im) {
  _mm256_storeu_ps(p, _mm256_unpacklo_ps(re, im));
  _mm256_storeu_ps(p + 8, _mm256_unpackhi_ps(re, im));
}
// Two complex values from `a` and two from `b`, in natural order.
inline void Load4(const float* a, const float* b, __m128& re, __m128& im) {
  const __m128 x = _mm_loadu_ps(a);
  const __m128 y = _mm_loadu_ps(b);
  re = _mm_shuffle_ps(x, y, 0x88);
  im = _mm_shuffle_ps(x, y, 0xDD);
}
inline void Store4(float* a, float* b, __m128 re, __m128 im) {
  _mm_storeu_ps(a, _mm_unpacklo_ps(re, im));
  _mm_storeu_ps(b, _mm_unpackhi_ps(re, im));
}

}  // namespace

void Radix4(float* data, int groups, int m, int lanes, const float* table, bool inverse) {
  const size_t leg = 2 * static_cast<size_t>(m);
  const size_t span = 4 * leg;
  if (lanes == 8) {
    const int steps = m / 8;
    const size_t legTable = static_cast<size_t>(steps) * 16;
    for (int g = 0; g < groups; ++g) {
      float* f = data + span * static_cast<size_t>(g);
      for (int b = 0; b < steps; ++b) {
        float* p = f + 16 * static_cast<size_t>(b);
        const float* t = table + 16 * static_cast<size_t>(b);
        __m256 r0, i0, r1, i1, r2, i2, r3, i3;
        Load8(p, r0, i0);
        Load8(p + leg, r1, i1);
        Load8(p + 2 * leg, r2, i2);
        Load8(p + 3 * leg, r3, i3);
        fftmath::Radix4(r0, i0, r1, i1, r2, i2, r3, i3, _mm256_loadu_ps(t), _mm256_loadu_ps(t + 8),
                        _mm256_loadu_ps(t + legTable), _mm256_loadu_ps(t + legTable + 8),
                        _mm256_loadu_ps(t + 2 * legTable), _mm256_loadu_ps(t + 2 * legTable + 8),
                        inverse);
        Store8(p, r0, i0);
        Store8(p + leg, r1, i1);
        Store8(p + 2 * leg, r2, i2);
        Store8(p + 3 * leg, r3, i3);
      }
    }
    return;
  }
  const __m128 w1r = _mm_loadu_ps(table);
  const __m128 w1i = _mm_loadu_ps(table + 4);
  const __m128 w2r = _mm_loadu_ps(table + 8);
  const __m128 w2i = _mm_loadu_ps(table + 12);
  const __m128 w3r = _mm_loadu_ps(table + 16);
  const __m128 w3i = _mm_loadu_ps(table + 20);
  // Four butterflies of one group (m = 4), or two of each of two
  // neighbouring groups (m = 2).
  const size_t second = lanes == 4 ? 4 : span;
  const int stride = lanes == 4 ? 1 : 2;
  for (int g = 0; g + stride <= groups; g += stride) {
    float* f = data + span * static_cast<size_t>(g);
    __m128 r0, i0, r1, i1, r2, i2, r3, i3;
    Load4(f, f + second, r0, i0);
    Load4(f + leg, f + leg + second, r1, i1);
    Load4(f + 2 * leg, f + 2 * leg + second, r2, i2);
    Load4(f + 3 * leg, f + 3 * leg + second, r3, i3);
    fftmath::Radix4(r0, i0, r1, i1, r2, i2, r3, i3, w1r, w1i, w2r, w2i, w3r, w3i, inverse);
    Store4(f, f + second, r0, i0);
    Store4(f + leg, f + leg + second, r1, i1);
    Store4(f + 2 * leg, f + 2 * leg + second, r2, i2);
    Store4(f + 3 * leg, f + 3 * leg + second, r3, i3);
  }
}

void Radix2(float* data, int groups, int m, int lanes, const float* table) {
  const size_t leg = 2 * static_cast<size_t>(m);
  const size_t span = 2 * leg;
  if (lanes == 8) {
    const int steps = m / 8;
    for (int g = 0; g < groups; ++g) {
      float* f = data + span * static_cast<size_t>(g);
      for (int b = 0; b < steps; ++b) {
        float* p = f + 16 * static_cast<size_t>(b);
        const float* t = table + 16 * static_cast<size_t>(b);
        __m256 r0, i0, r1, i1;
        Load8(p, r0, i0);
        Load8(p + leg, r1, i1);
        fftmath::Radix2(r0, i0, r1, i1, _mm256_loadu_ps(t), _mm256_loadu_ps(t + 8));
        Store8(p, r0, i0);
        Store8(p + leg, r1, i1);
      }
    }
    return;
  }
  // m = 4: one group per step.
  const __m128 wr = _mm_loadu_ps(table);
  const __m128 wi = _mm_loadu_ps(table + 4);
  for (int g = 0; g < groups; ++g) {
    float* f = data + span * static_cast<size_t>(g);
    __m128 r0, i0, r1, i1;
    Load4(f, f + 4, r0, i0);
    Load4(f + leg, f + leg + 4, r1, i1);
    fftmath::Radix2(r0, i0, r1, i1, wr, wi);
    Store4(f, f + 4, r0, i0);
    Store4(f + leg, f + leg + 4, r1, i1);
  }
}

void MultiplyAccumulate(const float* hr, const float* hi, const float* xr, const float* xi,
                        float* accR, float* accI, int count) {
  int k = 0;
  for (; k + 8 <= count; k += 8) {
    const __m256 a = _mm256_loadu_ps(hr + k);
    const __m256 b = _mm256_loadu_ps(hi + k);
    const __m256 c = _mm256_loadu_ps(xr + k);
    const __m256 d = _mm256_loadu_ps(xi + k);
    _mm256_storeu_ps(accR + k, _mm256_loadu_ps(accR + k) + (a * c - b * d));
    _mm256_storeu_ps(accI + k, _mm256_loadu_ps(accI + k) + (b * c + a * d));
  }
  for (; k < count; ++k) {
    accR[k] += hr[k] * xr[k] - hi[k] * xi[k];
    accI[k] += hi[k] * xr[k] + hr[k] * xi[k];
  }
}

#pragma GCC pop_options

#endif  // ONDREL_HAVE_AVX2_KERNELS

}  // namespace fftavx2
}  // namespace ONDREL2
