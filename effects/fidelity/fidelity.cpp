#include "effects/fidelity/fidelity.h"

#include <algorithm>
#include <cmath>

#include "framework/alloc.h"

namespace ONDREL2 {
namespace FIDELITY {
namespace {

const ParamDesc kParams[] = {
    {"Fidelity", false, 0.0f, 127.0f, 127.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {""},
};

// The corner and q are single-precision values by design.
constexpr float kCorner = 1736.58f;
constexpr float kQ = 0.70710677f;

// The truncated rate; NaN, negative and huge rates count as 0.
int32_t RateOf(float rate) {
  return rate >= 0.0f && rate < 2147483648.0f ? static_cast<int32_t>(rate) : 0;
}

}  // namespace

FidelityEffect::FidelityEffect() {
  SetEffectName("zh", "高保真度");
  SetEffectName("en", "Fidelity");
  SetParamTable(kParams);
  SetParamLabels("Fidelity", "zh", "高保真度", "en", "", nullptr);
  effectType = EFFECT_FIDELITY;
}

FidelityEffect::~FidelityEffect() = default;

AudioEffect* FidelityEffect::CreateInstance() { return NewObject<FidelityEffect>(); }

int32_t FidelityEffect::UpdateParams() {
  const int32_t channels = GetChannels();
  const int32_t outChannels = GetOutChannels();
  const int32_t rate = RateOf(GetSampleRate());
  if (!filters || channels != cachedChannels || outChannels != cachedOutChannels ||
      rate != cachedRate) {
    cachedChannels = channels;
    cachedOutChannels = outChannels;
    cachedRate = rate;
    filters.reset();
    if (channels > 0) {
      filters.reset(NewArray<EnhancerHighPass>(static_cast<size_t>(channels)));
      if (!filters) return ONDREL_E_NOMEM;
    }
  }
  drive =
      static_cast<float>(static_cast<double>(GetScriptedParamByName("Fidelity")) * 3.39292 / 127.0);
  // Without a usable rate there is no filter to design: the audio passes.
  if (rate < 1) {
    filters.reset();
    return ONDREL_E_INVALID;
  }
  for (int32_t c = 0; c < channels; ++c)
    filters[static_cast<size_t>(c)].Design(static_cast<double>(kCorner), static_cast<double>(kQ),
                                           rate);
  return ONDREL_OK;
}

void FidelityEffect::ResetDsp() {
  if (!filters) return;
  for (int32_t c = 0; c < cachedChannels; ++c) filters[static_cast<size_t>(c)].Reset();
}

void FidelityEffect::ClearBuffers() { ResetDsp(); }

int32_t FidelityEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (!filters) return ONDREL_OK;
  const int32_t channels = std::min(cachedChannels, static_cast<int32_t>(bufs.size()));
  const int32_t n = *frames;
  const float k = drive;
  for (int32_t c = 0; c < channels; ++c) {
    EnhancerHighPass& hp = filters[static_cast<size_t>(c)];
    float* x = bufs[static_cast<size_t>(c)];
    for (int32_t i = 0; i < n; ++i) {
      const float v = k * hp.Run(x[i]);
      // v * 0 is kept on purpose: it turns an infinite band into NaN, as
      // the shaper always has.
      const float e =
          (static_cast<float>(std::sin(static_cast<double>(v))) * 1.5f + v * 0.0f) * 0.377953f;
      x[i] = x[i] + e;
    }
  }
  return ONDREL_OK;
}

}  // namespace FIDELITY
}  // namespace ONDREL2
