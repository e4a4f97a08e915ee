#include "effects/eq/eqfb.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "frame/sample_fifo.h"
#include "framework/alloc.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ONDREL2 {
namespace IIR_EQ_FIXED_BANDS {
namespace {

// The band ladder without a frequency list: from 16 Hz, each band the last
// times (22050 / 16)^(1 / bands).
constexpr double kLadderStart = 16.0;
constexpr double kLadderSpan = 1378.125;

const float kTenBands[10] = {31.25f,  62.5f,   125.0f,  250.0f,  500.0f,
                             1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};

}  // namespace

void BandName(char* buf, double frequency) {
  std::snprintf(buf, 64, "%d Hz", static_cast<int>(frequency * 10.0 + 5.0) / 10);
}

EqfbEffect::EqfbEffect(int32_t bands, const float* list) {
  if (bands < 0) bands = 0;
  frequencies.resize(static_cast<size_t>(bands));
  const double ratio = std::pow(kLadderSpan, 1.0 / static_cast<double>(bands));
  double f = kLadderStart;
  for (int32_t b = 0; b < bands; ++b) {
    frequencies[static_cast<size_t>(b)] = list != nullptr ? list[b] : static_cast<float>(f);
    f *= ratio;
  }

  char text[64];
  std::snprintf(text, sizeof(text), "%d段均衡", bands);
  SetEffectName("zh", text);
  std::snprintf(text, sizeof(text), "%dバンド・イコライザー", bands);
  SetEffectName("ja", text);
  std::snprintf(text, sizeof(text), "%d Bands EQ", bands);
  SetEffectName("en", text);

  // The table depends on the band count, so it is built here; SetParamTable
  // copies the records.
  std::vector<ParamDesc> table;
  table.reserve(static_cast<size_t>(bands) + 2);
  table.push_back(Param("Q")
                      .Range(0.025f, 1.25f)
                      .Center(1.0f, 0.5f)
                      .Default(1.22474492f)
                      .Format(&FormatThreeDigits)
                      .Hints(2));
  for (int32_t b = 0; b < bands; ++b) {
    ParamDesc p =
        Param("").Range(-18.0f, 18.0f).Center(0.0f, 0.5f).Format(&FormatDecibels).DecibelMapping();
    BandName(p.name, static_cast<double>(frequencies[static_cast<size_t>(b)]));
    table.push_back(p);
  }
  table.push_back(EndOfTable());
  SetParamTable(table.data());
  for (const ParamDesc& p : params) SetParamLabels(p.name, "en", "", nullptr);

  paramsDirty = true;
  EqfbEffect::UpdateParams();
}

EqfbEffect::~EqfbEffect() = default;

AudioEffect* EqfbEffect::CreateInstance() {
  return NewObject<EqfbEffect>(static_cast<int32_t>(frequencies.size()), frequencies.data());
}

int32_t EqfbEffect::GetBlockSize() { return 1024; }

void EqfbEffect::FreeFilters() {
  filters.clear();
  filterChannels = 0;
}

int32_t EqfbEffect::UpdateParams() {
  FreeFilters();
  const float width = GetScriptedParamByName("Q");
  const int32_t rate = static_cast<int32_t>(GetSampleRate());
  // A block never holds more channels than a queue does: no filters for
  // channels that can't arrive.
  const int32_t channels = std::min(std::max(GetChannels(), 0), kMaxChannels);
  const size_t bands = frequencies.size();
  filters.reserve(bands * static_cast<size_t>(channels));
  for (size_t b = 0; b < bands; ++b) {
    const float gainDb = GetScriptedParam(static_cast<int32_t>(b) + 1);
    for (int32_t c = 0; c < channels; ++c) {
      std::unique_ptr<EqfbBand> band(new EqfbBand());
      DesignEqfbBand(*band, frequencies[b], width, rate, gainDb);
      filters.push_back(std::move(band));
    }
  }
  filterChannels = channels;
  return ONDREL_OK;
}

#if defined(__SSE2__)
namespace {

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
bool LoadLanes(BandLanes& l, const std::vector<std::unique_ptr<EqfbBand>>& filters, size_t bands,
               size_t stride, size_t channel) {
  int32_t count = 0;
  for (size_t b = 0; b < bands; ++b)
    if (filters[b * stride + channel]->bypass == 0) ++count;
  if (count > 4 * kMaxLaneVectors) return false;
  l.vectors = (count + 3) / 4;
  const int32_t pad = 4 * l.vectors - count;
  alignas(16) float f[9][4 * kMaxLaneVectors] = {};
  int32_t lane = 0;
  for (; lane < pad; ++lane) l.bands[lane] = nullptr;
  for (size_t b = 0; b < bands; ++b) {
    EqfbBand* band = filters[b * stride + channel].get();
    if (band->bypass != 0) continue;
    l.bands[lane] = band;
    f[0][lane] = band->inputScale;
    f[1][lane] = band->feedback1;
    f[2][lane] = band->feedback2;
    f[3][lane] = band->zero2;
    f[4][lane] = band->gain;
    f[5][lane] = band->state1;
    f[6][lane] = band->state2;
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

}  // namespace
#endif

int32_t EqfbEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
#if defined(__SSE2__)
  {
    const int32_t n = *frames;
    const int32_t stride = filterChannels;
    const int32_t channels =
        static_cast<int32_t>(bufs.size()) < stride ? static_cast<int32_t>(bufs.size()) : stride;
    const size_t bands = frequencies.size();
    // Each channel's bands are independent of the other channels', so the
    // channels can run one after the other.
    BandLanes lanes;
    bool ok = true;
    for (int32_t c = 0; c < channels && ok; ++c)
      ok = LoadLanes(lanes, filters, bands, static_cast<size_t>(stride), static_cast<size_t>(c));
    if (ok) {
      BandLanes other;
      for (int32_t c = 0; c < channels; ++c) {
        LoadLanes(lanes, filters, bands, static_cast<size_t>(stride), static_cast<size_t>(c));
        if (lanes.vectors == 0) continue;
        // Two channels of equal depth go side by side: each pipeline's
        // steps wait on their own previous step, so two overlap.
        if (c + 1 < channels) {
          LoadLanes(other, filters, bands, static_cast<size_t>(stride), static_cast<size_t>(c + 1));
          if (other.vectors == lanes.vectors) {
            BandLanes* pair[2] = {&lanes, &other};
            float* pairBufs[2] = {bufs[static_cast<size_t>(c)], bufs[static_cast<size_t>(c + 1)]};
            RunLanes<2>(pair, pairBufs, n);
            StoreLanes(lanes);
            StoreLanes(other);
            ++c;
            continue;
          }
        }
        BandLanes* one[1] = {&lanes};
        float* oneBuf[1] = {bufs[static_cast<size_t>(c)]};
        RunLanes<1>(one, oneBuf, n);
        StoreLanes(lanes);
      }
      return ONDREL_OK;
    }
  }
#endif
  return ProcessBlockScalar(bufs, frames);
}

int32_t EqfbEffect::ProcessBlockScalar(const ChannelVector& bufs, int32_t* frames) {
  const int32_t n = *frames;
  const int32_t stride = filterChannels;
  const int32_t channels =
      static_cast<int32_t>(bufs.size()) < stride ? static_cast<int32_t>(bufs.size()) : stride;
  const size_t bands = frequencies.size();
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      float y = bufs[static_cast<size_t>(c)][i];
      for (size_t b = 0; b < bands; ++b) {
        EqfbBand& f = *filters[b * static_cast<size_t>(stride) + static_cast<size_t>(c)];
        if (f.bypass != 0) continue;
        float w = f.inputScale * y + f.state1 * f.feedback1;
        w = w + f.feedback2 * f.state2;
        y = y + (f.zero2 * f.state2 + w) * f.gain;
        f.state2 = f.state1;
        f.state1 = w;
      }
      bufs[static_cast<size_t>(c)][i] = y;
    }
  }
  return ONDREL_OK;
}

IirEQ10Effect::IirEQ10Effect() : EqfbEffect(10, kTenBands) { effectType = EFFECT_IIR_EQ10; }
IirEQ10Effect::~IirEQ10Effect() = default;
AudioEffect* IirEQ10Effect::CreateInstance() { return NewObject<IirEQ10Effect>(); }

IirEQ30Effect::IirEQ30Effect() : EqfbEffect(30) { effectType = EFFECT_IIR_EQ30; }
IirEQ30Effect::~IirEQ30Effect() = default;
AudioEffect* IirEQ30Effect::CreateInstance() { return NewObject<IirEQ30Effect>(); }

}  // namespace IIR_EQ_FIXED_BANDS
}  // namespace ONDREL2
