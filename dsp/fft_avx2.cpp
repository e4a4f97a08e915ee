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
void MultiplyAccumulate4(const float* const[4], const float* const[4], float*, float*, int) {}
void LeafRadix2(const float*, float*, const int*, int, float, float) {}
void SplitForward(const float*, const float*, const float*, int, float*, float*) {}
void JoinInverse(const float*, const float*, const float*, const float*, int, float*) {}

#else

bool Available() { return OndrelSimdEnabled(); }

}  // namespace fftavx2
}  // namespace ONDREL2

// Everything below is compiled for AVX2 (without FMA: products and sums
// stay separate roundings). Only code with internal linkage or behind
// Available() may follow, so that no AVX2 instruction reaches a path that
// runs on other processors.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

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

inline __m256 Permute(__m256 v, __m256i order) { return _mm256_permutevar8x32_ps(v, order); }

}  // namespace

void LeafRadix2(const float* in, float* out, const int* index, int groups, float wr, float wi) {
  const __m256 vr = _mm256_set1_ps(wr);
  const __m256 vi = _mm256_set1_ps(wi);
  const size_t second = 2 * static_cast<size_t>(groups);
  for (int c = 0; c < groups; c += 8) {
    __m256 r0, i0, r1, i1;
    Load8(in + 2 * static_cast<size_t>(c), r0, i0);
    Load8(in + second + 2 * static_cast<size_t>(c), r1, i1);
    fftmath::Radix2(r0, i0, r1, i1, vr, vi);
    // Each lane's group is two complex values, one 128-bit store.
    const __m256d lo0 = _mm256_castps_pd(_mm256_unpacklo_ps(r0, i0));
    const __m256d hi0 = _mm256_castps_pd(_mm256_unpackhi_ps(r0, i0));
    const __m256d lo1 = _mm256_castps_pd(_mm256_unpacklo_ps(r1, i1));
    const __m256d hi1 = _mm256_castps_pd(_mm256_unpackhi_ps(r1, i1));
    const __m256 lanes04 = _mm256_castpd_ps(_mm256_unpacklo_pd(lo0, lo1));
    const __m256 lanes15 = _mm256_castpd_ps(_mm256_unpackhi_pd(lo0, lo1));
    const __m256 lanes26 = _mm256_castpd_ps(_mm256_unpacklo_pd(hi0, hi1));
    const __m256 lanes37 = _mm256_castpd_ps(_mm256_unpackhi_pd(hi0, hi1));
    _mm_storeu_ps(out + index[0], _mm256_castps256_ps128(lanes04));
    _mm_storeu_ps(out + index[4], _mm256_extractf128_ps(lanes04, 1));
    _mm_storeu_ps(out + index[1], _mm256_castps256_ps128(lanes15));
    _mm_storeu_ps(out + index[5], _mm256_extractf128_ps(lanes15, 1));
    _mm_storeu_ps(out + index[2], _mm256_castps256_ps128(lanes26));
    _mm_storeu_ps(out + index[6], _mm256_extractf128_ps(lanes26, 1));
    _mm_storeu_ps(out + index[3], _mm256_castps256_ps128(lanes37));
    _mm_storeu_ps(out + index[7], _mm256_extractf128_ps(lanes37, 1));
    index += 8;
  }
}

// In both directions eight bins k .. k+7 pair with N/2-k-7 .. N/2-k; blocks
// run while the two ranges stay apart, and the plain code finishes the
// middle in its own order (bin N/4 is written twice there, the second value
// standing).
void SplitForward(const float* t, const float* sr, const float* si, int half, float* re,
                  float* im) {
  const __m256i natural = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
  const __m256i mirrored = _mm256_setr_epi32(7, 6, 3, 2, 5, 4, 1, 0);
  const __m256i reversed = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const __m256 halfV = _mm256_set1_ps(0.5f);
  re[0] = t[0] + t[1];
  im[0] = t[0] - t[1];
  int k = 1;
  for (; 2 * k + 14 < half; k += 8) {
    const int n = half - k - 7;
    __m256 pr, pi, nr, ni;
    Load8(t + 2 * k, pr, pi);
    Load8(t + 2 * n, nr, ni);
    pr = Permute(pr, natural);
    pi = Permute(pi, natural);
    nr = Permute(nr, mirrored);
    ni = Permute(ni, mirrored);
    __m256 kr, ki, mr, mi;
    fftmath::SplitForward(pr, pi, nr, ni, _mm256_loadu_ps(sr + k - 1), _mm256_loadu_ps(si + k - 1),
                          halfV, kr, ki, mr, mi);
    _mm256_storeu_ps(re + k, kr);
    _mm256_storeu_ps(im + k, ki);
    _mm256_storeu_ps(re + n, Permute(mr, reversed));
    _mm256_storeu_ps(im + n, Permute(mi, reversed));
  }
  for (; k <= half / 2; ++k) {
    const int n = half - k;
    float kr, ki, mr, mi;
    fftmath::SplitForward(t[2 * k], t[2 * k + 1], t[2 * n], t[2 * n + 1], sr[k - 1], si[k - 1],
                          0.5f, kr, ki, mr, mi);
    re[k] = kr;
    im[k] = ki;
    re[n] = mr;
    im[n] = mi;
  }
}

void JoinInverse(const float* re, const float* im, const float* sr, const float* si, int half,
                 float* t) {
  const __m256i natural = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
  const __m256i mirrored = _mm256_setr_epi32(7, 6, 3, 2, 5, 4, 1, 0);
  const __m256i reversed = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  const float first = re[0];
  const float last = im[0];
  t[0] = first + last;
  t[1] = first - last;
  int k = 1;
  for (; 2 * k + 14 < half; k += 8) {
    const int n = half - k - 7;
    const __m256 nr = Permute(_mm256_loadu_ps(re + n), reversed);
    const __m256 ni = Permute(_mm256_loadu_ps(im + n), reversed);
    __m256 kr, ki, mr, mi;
    fftmath::JoinInverse(_mm256_loadu_ps(re + k), _mm256_loadu_ps(im + k), nr, ni,
                         _mm256_loadu_ps(sr + k - 1), _mm256_loadu_ps(si + k - 1), kr, ki, mr, mi);
    Store8(t + 2 * k, Permute(kr, natural), Permute(ki, natural));
    Store8(t + 2 * n, Permute(mr, mirrored), Permute(mi, mirrored));
  }
  for (; k <= half / 2; ++k) {
    const int n = half - k;
    fftmath::JoinInverse(re[k], im[k], re[n], im[n], sr[k - 1], si[k - 1], t[2 * k], t[2 * k + 1],
                         t[2 * n], t[2 * n + 1]);
  }
}

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

void MultiplyAccumulate4(const float* const h[4], const float* const x[4], float* accR, float* accI,
                         int count) {
  const size_t n = static_cast<size_t>(count);
  int k = 0;
  for (; k + 8 <= count; k += 8) {
    __m256 sr = _mm256_loadu_ps(accR + k);
    __m256 si = _mm256_loadu_ps(accI + k);
    for (int j = 0; j < 4; ++j) {
      const __m256 a = _mm256_loadu_ps(h[j] + k);
      const __m256 b = _mm256_loadu_ps(h[j] + n + k);
      const __m256 c = _mm256_loadu_ps(x[j] + k);
      const __m256 d = _mm256_loadu_ps(x[j] + n + k);
      sr = sr + (a * c - b * d);
      si = si + (b * c + a * d);
    }
    _mm256_storeu_ps(accR + k, sr);
    _mm256_storeu_ps(accI + k, si);
  }
  for (; k < count; ++k) {
    for (int j = 0; j < 4; ++j) {
      accR[k] += h[j][k] * x[j][k] - h[j][n + k] * x[j][n + k];
      accI[k] += h[j][n + k] * x[j][k] + h[j][k] * x[j][n + k];
    }
  }
}

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif  // ONDREL_HAVE_AVX2_KERNELS

}  // namespace fftavx2
}  // namespace ONDREL2
