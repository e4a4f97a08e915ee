#include "effects/hyperbass/hyperbass.h"
#include "framework/alloc.h"

#include <algorithm>
#include <new>

namespace ONDREL2 {
namespace HYPERBASS {
namespace {

const ParamDesc kParams[] = {
    {"Selectivity", false, 0.0f, 127.0f, 127.0f, 1.0f, 120.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"Gain", false, 0.0f, 2.0f, 2.0f, 1.0f, 1.20000005f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"Ratio", false, 0.0f, 2.0f, 2.0f, 1.0f, 1.5f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {""},
};

// The tilt: the ten octave bands of the equaliser, one width for all.
const float kTiltFrequency[kTiltBands] = {31.25f,  62.5f,   125.0f,  250.0f,  500.0f,
                                          1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};
const float kTiltGainDb[kTiltBands] = {0.0f,  0.0f,  -1.0f, -2.0f, -2.0f,
                                       -3.0f, -3.0f, -3.0f, -3.0f, -3.0f};
constexpr float kTiltWidth = 1.22474492f;  // 0x3F9CC471
constexpr int32_t kTiltMinRate = 44100;

// The rate as an integer; a rate that does not fit counts as 0.
int32_t RateOf(float rate) {
  return rate >= 0.0f && rate < 2147483648.0f ? static_cast<int32_t>(rate) : 0;
}

}  // namespace

HyperBassEffect::HyperBassEffect() {
  SetEffectName("zh", "超重低音");
  SetEffectName("en", "Hyperbass");
  SetParamTable(kParams);
  for (const ParamDesc& p : kParams) {
    if (p.name[0] == '\0') break;
    SetParamLabels(p.name, "zh", p.name, "en", "", nullptr);
  }
  effectType = EFFECT_HYPERBASS;
  UpdateParams();
}

HyperBassEffect::~HyperBassEffect() = default;

AudioEffect* HyperBassEffect::CreateInstance() { return NewObject<HyperBassEffect>(); }

int32_t HyperBassEffect::UpdateParams() {
  ResetDsp();
  const int32_t channels = std::max(GetChannels(), 0);
  const int32_t outChannels = GetOutChannels();
  const int32_t rate = RateOf(GetSampleRate());
  if (!bands || !voices || channels != builtChannels || outChannels != builtOutChannels ||
      rate != builtRate) {
    builtChannels = channels;
    builtOutChannels = outChannels;
    builtRate = rate;
    bands.reset();
    voices.reset();
    bands.reset(NewArray<EqfbBand>(static_cast<size_t>(channels) * kTiltBands));
    voices.reset(NewArray<Voice>(static_cast<size_t>(channels)));
    if (!bands || !voices) {
      bands.reset();
      voices.reset();
      return ONDREL_E_NOMEM;
    }
  }

  const float selectivity = GetScriptedParamByName("Selectivity");
  const float gain = GetScriptedParamByName("Gain");
  const float ratio = GetScriptedParamByName("Ratio");
  const int32_t designRate = std::max(builtRate, kTiltMinRate);
  for (int32_t c = 0; c < builtChannels; ++c) {
    EqfbBand* group = &bands[static_cast<size_t>(c) * kTiltBands];
    for (int32_t b = 0; b < kTiltBands; ++b)
      DesignEqfbBand(group[b], kTiltFrequency[b], kTiltWidth, designRate, kTiltGainDb[b]);
    Voice& v = voices[static_cast<size_t>(c)];
    v.gain = gain;
    v.selectivity = selectivity;
    v.ratio = ratio;
  }
  return ONDREL_OK;
}

int32_t HyperBassEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (!bands || !voices) return ONDREL_OK;
  const int32_t channels = std::min(static_cast<int32_t>(bufs.size()), builtChannels);
  const int32_t n = *frames;
  // The low-pass mix of a sample never depends on the tilt's output, so
  // each buffer gets its mix first and then goes through the tilt bands as
  // a whole block.
  // Two channels share one loop: each low-pass waits on its own previous
  // sample (a divide), so the two recursions overlap.
  int32_t c = 0;
  for (; c + 1 < channels; c += 2) {
    float* x = bufs[static_cast<size_t>(c)];
    float* z = bufs[static_cast<size_t>(c) + 1];
    Voice& v = voices[static_cast<size_t>(c)];
    Voice& w = voices[static_cast<size_t>(c) + 1];
    // Locals, so that the states stay in registers (the buffers are floats
    // too and could otherwise alias them).
    float lowV = v.low, lowW = w.low;
    const Voice cv = v, cw = w;
    for (int32_t i = 0; i < n; ++i) {
      lowV = (lowV * cv.selectivity + x[i]) / (cv.selectivity + 1.0f);
      lowW = (lowW * cw.selectivity + z[i]) / (cw.selectivity + 1.0f);
      x[i] = (cv.ratio * lowV + x[i]) * cv.gain;
      z[i] = (cw.ratio * lowW + z[i]) * cw.gain;
    }
    v.low = lowV;
    w.low = lowW;
  }
  for (; c < channels; ++c) {
    float* x = bufs[static_cast<size_t>(c)];
    Voice& v = voices[static_cast<size_t>(c)];
    float low = v.low;
    for (int32_t i = 0; i < n; ++i) {
      low = (low * v.selectivity + x[i]) / (v.selectivity + 1.0f);
      x[i] = (v.ratio * low + x[i]) * v.gain;
    }
    v.low = low;
  }
  RunEqfbBandsBlock(bands.get(), kTiltBands, bufs.data(), channels, n);
  return ONDREL_OK;
}

void HyperBassEffect::ResetDsp() {
  if (!bands || !voices) return;
  ClearEqfbBands(bands.get(), builtChannels * kTiltBands);
  for (int32_t c = 0; c < builtChannels; ++c) voices[static_cast<size_t>(c)].low = 0.0f;
}

// A clear keeps what waits in the queues and only silences the filters.
void HyperBassEffect::ClearBuffers() { ResetDsp(); }

}  // namespace HYPERBASS
}  // namespace ONDREL2
