#include "dsp/eqfb_band.h"

#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "dsp/simd.h"

namespace ONDREL2 {
namespace {

// The zero pair sits just off the unit circle (0xBF80A3D7, not -1); the
// band's colour depends on it, so it must stay as it is.
constexpr float kZero2 = -1.005f;

}  // namespace

void DesignEqfbBand(EqfbBand& band, float frequency, float width, int32_t sampleRate,
                    float gainDb) {
  if (0.001f > std::fabs(gainDb) || 2.0f * frequency >= static_cast<float>(sampleRate)) {
    band.bypass = 1;
    return;
  }
  band.bypass = 0;
  band.gain = static_cast<float>(std::pow(10.0, static_cast<double>(gainDb / 20.0f)) - 1.0);
  const float w = static_cast<float>(static_cast<double>(frequency) * 6.283185307179586 /
                                     static_cast<double>(sampleRate));
  const double t = std::tan(static_cast<double>(w * width * 0.5f));
  const float k = static_cast<float>((1.0 - t) / (t + 1.0));
  band.zero2 = kZero2;
  band.feedback1 = static_cast<float>(std::cos(static_cast<double>(w))) * (k + 1.0f);
  band.feedback2 = -k;
  band.inputScale = (1.0f - k) * 0.5f;
}

namespace {

#if defined(__SSE2__)

// The active bands of one channel as a pipeline of four-lane vectors. Lane j
// holds one band; at step t it works on sample t - j, taking its input from
// lane j - 1 of the step before. So every band does exactly its scalar
// arithmetic on exactly the samples it would see in the frame-by-frame loop,
// in the same order, while the bands of one sample no longer wait for each
// other. Unused lanes (at the front) pass their input on unchanged.
constexpr int32_t kMaxLaneVectors = 16;  // up to 64 active bands

struct alignas(16) BandLanes {
  int32_t vectors = 0;
  __m128 inputScale[kMaxLaneVectors], feedback1[kMaxLaneVectors], feedback2[kMaxLaneVectors];
  __m128 zero2[kMaxLaneVectors], gain[kMaxLaneVectors], state1[kMaxLaneVectors];
  __m128 state2[kMaxLaneVectors], active[kMaxLaneVectors], y[kMaxLaneVectors];
  EqfbBand* bands[4 * kMaxLaneVectors];  // by lane; null for an unused lane
};

// Loads the active records of one channel; false if there are too many.
template <typename BandAt>
bool LoadLanes(BandLanes& l, BandAt band, int32_t bands) {
  int32_t count = 0;
  for (int32_t b = 0; b < bands; ++b)
    if (band(b)->bypass == 0) ++count;
  if (count > 4 * kMaxLaneVectors) return false;
  l.vectors = (count + 3) / 4;
  const int32_t pad = 4 * l.vectors - count;
  alignas(16) float f[9][4 * kMaxLaneVectors] = {};
  int32_t lane = 0;
  for (; lane < pad; ++lane) l.bands[lane] = nullptr;
  for (int32_t b = 0; b < bands; ++b) {
    EqfbBand* record = band(b);
    if (record->bypass != 0) continue;
    l.bands[lane] = record;
    f[0][lane] = record->inputScale;
    f[1][lane] = record->feedback1;
    f[2][lane] = record->feedback2;
    f[3][lane] = record->zero2;
    f[4][lane] = record->gain;
    f[5][lane] = record->state1;
    f[6][lane] = record->state2;
    uint32_t ones = 0xffffffffu;
    std::memcpy(&f[7][lane], &ones, sizeof ones);
    ++lane;
  }
  for (int32_t v = 0; v < l.vectors; ++v) {
    l.inputScale[v] = _mm_load_ps(&f[0][4 * v]);
    l.feedback1[v] = _mm_load_ps(&f[1][4 * v]);
    l.feedback2[v] = _mm_load_ps(&f[2][4 * v]);
    l.zero2[v] = _mm_load_ps(&f[3][4 * v]);
    l.gain[v] = _mm_load_ps(&f[4][4 * v]);
    l.state1[v] = _mm_load_ps(&f[5][4 * v]);
    l.state2[v] = _mm_load_ps(&f[6][4 * v]);
    l.active[v] = _mm_load_ps(&f[7][4 * v]);
    l.y[v] = _mm_setzero_ps();
  }
  return true;
}

void StoreLanes(const BandLanes& l) {
  alignas(16) float s1[4 * kMaxLaneVectors], s2[4 * kMaxLaneVectors];
  for (int32_t v = 0; v < l.vectors; ++v) {
    _mm_store_ps(&s1[4 * v], l.state1[v]);
    _mm_store_ps(&s2[4 * v], l.state2[v]);
  }
  for (int32_t lane = 0; lane < 4 * l.vectors; ++lane) {
    if (l.bands[lane] == nullptr) continue;
    l.bands[lane]->state1 = s1[lane];
    l.bands[lane]->state2 = s2[lane];
  }
}

inline __m128 Select(__m128 mask, __m128 a, __m128 b) {
  return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
}

// One step of the pipeline: `x` enters lane 0, the value leaving the last
// lane is returned. With `masked`, lanes whose sample lies outside 0..n-1
// (pipeline filling or draining) keep their states.
template <bool masked>
inline float Step(BandLanes& l, float x, int32_t t, int32_t n) {
  __m128 carry = _mm_set_ss(x);
  const __m128i lanes = _mm_set_epi32(3, 2, 1, 0);
  for (int32_t v = 0; v < l.vectors; ++v) {
    const __m128 prev = l.y[v];
    // [carry, prev0, prev1, prev2]: each lane takes its left neighbour's
    // output of the previous step.
    const __m128 in =
        _mm_move_ss(_mm_castsi128_ps(_mm_slli_si128(_mm_castps_si128(prev), 4)), carry);
    carry = _mm_shuffle_ps(prev, prev, _MM_SHUFFLE(3, 3, 3, 3));
    const __m128 s1 = l.state1[v];
    const __m128 s2 = l.state2[v];
    __m128 w = _mm_add_ps(_mm_mul_ps(l.inputScale[v], in), _mm_mul_ps(s1, l.feedback1[v]));
    w = _mm_add_ps(w, _mm_mul_ps(l.feedback2[v], s2));
    const __m128 out =
        _mm_add_ps(in, _mm_mul_ps(_mm_add_ps(_mm_mul_ps(l.zero2[v], s2), w), l.gain[v]));
    l.y[v] = Select(l.active[v], out, in);
    if (masked) {
      // Sample of lane j is t - j: valid while 0 <= t - j < n.
      const __m128i sample =
          _mm_sub_epi32(_mm_set1_epi32(t), _mm_add_epi32(lanes, _mm_set1_epi32(4 * v)));
      const __m128 valid =
          _mm_castsi128_ps(_mm_andnot_si128(_mm_cmplt_epi32(sample, _mm_setzero_si128()),
                                            _mm_cmplt_epi32(sample, _mm_set1_epi32(n))));
      l.state2[v] = Select(valid, s1, s2);
      l.state1[v] = Select(valid, w, s1);
    } else {
      l.state2[v] = s1;
      l.state1[v] = w;
    }
  }
  const __m128 last = l.y[l.vectors - 1];
  return _mm_cvtss_f32(_mm_shuffle_ps(last, last, _MM_SHUFFLE(3, 3, 3, 3)));
}

// Runs `n` samples of each buffer in place through its pipeline; all
// pipelines have the same depth and run side by side, step by step. The
// result of sample i leaves the last lane `depth` steps after it entered.
template <int kCount>
void RunLanes(BandLanes* const* l, float* const* buf, int32_t n) {
  const int32_t depth = 4 * l[0]->vectors - 1;
  for (int32_t t = 0; t < n + depth; ++t) {
    const bool steady = t >= depth && t < n;
    for (int k = 0; k < kCount; ++k) {
      const float x = t < n ? buf[k][t] : 0.0f;
      const float y = steady ? Step<false>(*l[k], x, t, n) : Step<true>(*l[k], x, t, n);
      if (t >= depth) buf[k][t - depth] = y;
    }
  }
}

#if defined(__x86_64__)
// Two pipelines of equal depth in one 256-bit register: channel `a` in the
// low four lanes, `b` in the high four. Every lane does what it does in
// Step; the per-half shift and broadcast of AVX2 keep the halves apart, so
// the results are those of RunLanes<2>, with half the instructions.
__attribute__((target("avx2"))) inline __m256 Select256(__m256 mask, __m256 a, __m256 b) {
  return _mm256_or_ps(_mm256_and_ps(mask, a), _mm256_andnot_ps(mask, b));
}

__attribute__((target("avx2"))) void RunPairAvx2(BandLanes& a, BandLanes& b, float* bufA,
                                                 float* bufB, int32_t n) {
  const int32_t vectors = a.vectors;
  __m256 inputScale[kMaxLaneVectors], feedback1[kMaxLaneVectors], feedback2[kMaxLaneVectors];
  __m256 zero2[kMaxLaneVectors], gain[kMaxLaneVectors], state1[kMaxLaneVectors];
  __m256 state2[kMaxLaneVectors], active[kMaxLaneVectors], y[kMaxLaneVectors];
  for (int32_t v = 0; v < vectors; ++v) {
    inputScale[v] = _mm256_set_m128(b.inputScale[v], a.inputScale[v]);
    feedback1[v] = _mm256_set_m128(b.feedback1[v], a.feedback1[v]);
    feedback2[v] = _mm256_set_m128(b.feedback2[v], a.feedback2[v]);
    zero2[v] = _mm256_set_m128(b.zero2[v], a.zero2[v]);
    gain[v] = _mm256_set_m128(b.gain[v], a.gain[v]);
    state1[v] = _mm256_set_m128(b.state1[v], a.state1[v]);
    state2[v] = _mm256_set_m128(b.state2[v], a.state2[v]);
    active[v] = _mm256_set_m128(b.active[v], a.active[v]);
    y[v] = _mm256_set_m128(b.y[v], a.y[v]);
  }
  const __m256i lanes = _mm256_set_epi32(3, 2, 1, 0, 3, 2, 1, 0);
  const int32_t depth = 4 * vectors - 1;
  for (int32_t t = 0; t < n + depth; ++t) {
    const bool steady = t >= depth && t < n;
    const float xa = t < n ? bufA[t] : 0.0f;
    const float xb = t < n ? bufB[t] : 0.0f;
    __m256 carry = _mm256_set_ps(0.0f, 0.0f, 0.0f, xb, 0.0f, 0.0f, 0.0f, xa);
    for (int32_t v = 0; v < vectors; ++v) {
      const __m256 prev = y[v];
      const __m256 shifted = _mm256_castsi256_ps(_mm256_slli_si256(_mm256_castps_si256(prev), 4));
      const __m256 in = _mm256_blend_ps(shifted, carry, 0x11);
      carry = _mm256_shuffle_ps(prev, prev, _MM_SHUFFLE(3, 3, 3, 3));
      const __m256 s1 = state1[v];
      const __m256 s2 = state2[v];
      __m256 w = _mm256_add_ps(_mm256_mul_ps(inputScale[v], in), _mm256_mul_ps(s1, feedback1[v]));
      w = _mm256_add_ps(w, _mm256_mul_ps(feedback2[v], s2));
      const __m256 out =
          _mm256_add_ps(in, _mm256_mul_ps(_mm256_add_ps(_mm256_mul_ps(zero2[v], s2), w), gain[v]));
      y[v] = Select256(active[v], out, in);
      if (!steady) {
        const __m256i sample = _mm256_sub_epi32(_mm256_set1_epi32(t),
                                                _mm256_add_epi32(lanes, _mm256_set1_epi32(4 * v)));
        const __m256 valid = _mm256_castsi256_ps(
            _mm256_andnot_si256(_mm256_cmpgt_epi32(_mm256_setzero_si256(), sample),
                                _mm256_cmpgt_epi32(_mm256_set1_epi32(n), sample)));
        state2[v] = Select256(valid, s1, s2);
        state1[v] = Select256(valid, w, s1);
      } else {
        state2[v] = s1;
        state1[v] = w;
      }
    }
    if (t >= depth) {
      const __m256 last = y[vectors - 1];
      const __m128 lo = _mm256_castps256_ps128(last);
      const __m128 hi = _mm256_extractf128_ps(last, 1);
      bufA[t - depth] = _mm_cvtss_f32(_mm_shuffle_ps(lo, lo, _MM_SHUFFLE(3, 3, 3, 3)));
      bufB[t - depth] = _mm_cvtss_f32(_mm_shuffle_ps(hi, hi, _MM_SHUFFLE(3, 3, 3, 3)));
    }
  }
  for (int32_t v = 0; v < vectors; ++v) {
    a.state1[v] = _mm256_castps256_ps128(state1[v]);
    b.state1[v] = _mm256_extractf128_ps(state1[v], 1);
    a.state2[v] = _mm256_castps256_ps128(state2[v]);
    b.state2[v] = _mm256_extractf128_ps(state2[v], 1);
  }
}
#endif

// Runs the channels' pipelines, two of equal depth side by side (each
// pipeline's steps wait on their own previous step, so two overlap); false
// when a channel has more active bands than the lanes hold.
template <typename BandAt>
bool RunLanedChannels(BandAt band, int32_t count, float* const* bufs, int32_t channels, int32_t n) {
  BandLanes lanes;
  for (int32_t c = 0; c < channels; ++c)
    if (!LoadLanes(
            lanes, [&](int32_t b) { return band(c, b); }, count))
      return false;
  BandLanes other;
  for (int32_t c = 0; c < channels; ++c) {
    LoadLanes(
        lanes, [&](int32_t b) { return band(c, b); }, count);
    if (lanes.vectors == 0) continue;
    if (c + 1 < channels) {
      LoadLanes(
          other, [&](int32_t b) { return band(c + 1, b); }, count);
      if (other.vectors == lanes.vectors) {
#if defined(__x86_64__)
        if (OndrelSimdEnabled()) {
          RunPairAvx2(lanes, other, bufs[c], bufs[c + 1], n);
          StoreLanes(lanes);
          StoreLanes(other);
          ++c;
          continue;
        }
#endif
        BandLanes* pair[2] = {&lanes, &other};
        float* pairBufs[2] = {bufs[c], bufs[c + 1]};
        RunLanes<2>(pair, pairBufs, n);
        StoreLanes(lanes);
        StoreLanes(other);
        ++c;
        continue;
      }
    }
    BandLanes* one[1] = {&lanes};
    float* oneBuf[1] = {bufs[c]};
    RunLanes<1>(one, oneBuf, n);
    StoreLanes(lanes);
  }
  return true;
}
#endif

template <typename BandAt>
void RunBlock(BandAt band, int32_t count, float* const* bufs, int32_t channels, int32_t n) {
  if (count <= 0 || channels <= 0 || n <= 0) return;
#if defined(__SSE2__)
  if (RunLanedChannels(band, count, bufs, channels, n)) return;
#endif
  // The frame-by-frame loop; the channels are independent of each other.
  for (int32_t c = 0; c < channels; ++c) {
    float* x = bufs[c];
    for (int32_t i = 0; i < n; ++i) {
      float y = x[i];
      for (int32_t b = 0; b < count; ++b) y = RunEqfbBands(band(c, b), 1, y);
      x[i] = y;
    }
  }
}

}  // namespace

void RunEqfbBandsBlock(EqfbBand* const* table, int32_t count, int32_t stride, float* const* bufs,
                       int32_t channels, int32_t n) {
  RunBlock([=](int32_t c, int32_t b) { return table[b * stride + c]; }, count, bufs, channels, n);
}

void RunEqfbBandsBlock(EqfbBand* bands, int32_t count, float* const* bufs, int32_t channels,
                       int32_t n) {
  RunBlock([=](int32_t c, int32_t b) { return &bands[c * count + b]; }, count, bufs, channels, n);
}

}  // namespace ONDREL2
