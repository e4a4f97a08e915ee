#include "effects/deesser/deesser.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "dsp/denormal.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace DEESSER_EFFECT {
namespace {

const ParamDesc kParams[] = {
    Param("Thresh")
        .Range(-60.0f, 60.0f)
        .Center(0.0f, kGainShape)
        .Default(-42.0f)
        .Format(&FormatDecibels)
        .DecibelMapping(),
    Param("Frequency").Range(1000.0f, 22050.0f).Default(7060.0f).Format(&FormatHertz),
    Param("Drive")
        .Range(-20.0f, 20.0f)
        .Center(0.0f, kGainShape)
        .Default(0.0f)
        .Format(&FormatDecibels)
        .DecibelMapping(),
    EndOfTable(),
};

}  // namespace

DeEsserEffect::DeEsserEffect() {
  SetEffectName("zh", "DeEsser");
  SetEffectName("en", "DeEsser");
  SetParamTable(kParams);
  SetParamLabels("Thresh", "zh", "Thresh", "en", "", nullptr);
  SetParamLabels("Frequency", "zh", "频率", "en", "", nullptr);
  SetParamLabels("Drive", "zh", "Drive", "en", "", nullptr);
  effectType = EFFECT_DEESSER;
  UpdateParams();
}

DeEsserEffect::~DeEsserEffect() = default;

AudioEffect* DeEsserEffect::CreateInstance() { return NewObject<DeEsserEffect>(); }

int32_t DeEsserEffect::UpdateParams() {
  envelope = 0.0f;
  midState = 0.0f;
  low = 0.0f;
  const float thresh = GetScriptedParamByName("Thresh");
  const float frequency = GetScriptedParamByName("Frequency");
  const float drive = GetScriptedParamByName("Drive");
  const float f = frequency / GetSampleRate();
  // Both powers run on 32-bit floats, on the values in their own units.
  threshold = std::pow(10.0f, thresh * 3.0f - 3.0f);
  attack = 0.01f;
  release = 0.992f;
  coef = static_cast<float>(static_cast<double>(f) * 0.94 * static_cast<double>(f) + 0.05);
  gain = std::pow(10.0f, drive * 2.0f - 1.0f);
  return ONDREL_OK;
}

int32_t DeEsserEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t chns = std::min(GetChannels(), static_cast<int32_t>(bufs.size()));
  const int32_t n = *frames;
  const float c = 1.0f - coef;
  for (int32_t i = 0; i < n; ++i) {
    // All channels pass through the one set of states in turn.
    for (int32_t ch = 0; ch < chns; ++ch) {
      const float x = bufs[ch][i];
      low = low * c + x * coef;
      const float t = x - low;
      midState = t * coef + c * midState;
      const float h = (t - midState) * gain;
      // The envelope follows the signed value: negative half-waves only
      // let it decay.
      if (h > envelope)
        envelope = (h - envelope) * attack + envelope;
      else
        envelope = envelope * release;
      float y;
      if (envelope > threshold)
        y = (threshold / envelope) * h + (midState + low);
      else
        y = midState + low + h;
      bufs[ch][i] = y;
    }
  }
  if (BelowDenormalCut(low)) low = midState = 0.0f;
  CutDenormal(envelope);
  return ONDREL_OK;
}

}  // namespace DEESSER_EFFECT
}  // namespace ONDREL2
