#include "effects/amplifier/amplifier.h"
#include "framework/alloc.h"

#include <cmath>
#include <new>

namespace ONDREL2 {
namespace AMPLIFIER {
namespace {

const ParamDesc kParams[] = {
    Param("Gain")
        .Range(-96.0f, 18.0f)
        .Center(0.0f, kGainShape)
        .Default(0.0f)
        .Format(&FormatDecibels)
        .DecibelMapping(),
    EndOfTable(),
};

// The dB value is divided by 20 in float, the power is taken in double.
float GainOf(float dB) {
  return static_cast<float>(std::pow(10.0, static_cast<double>(dB / 20.0f)));
}

}  // namespace

AmplifierEffect::AmplifierEffect() {
  SetEffectName("zh", "音量调节器");
  SetEffectName("zh-TW", "音量調節器");
  SetEffectName("zh-HK", "音量調節器");
  SetEffectName("ja", "アンプ");
  SetEffectName("en", "Amplifier");
  SetParamTable(kParams);
  SetParamLabels("Gain", "zh", "增益", "ja", "ゲイン", "en", "", nullptr);
  effectType = EFFECT_AMPLIFIER;
  gain = GainOf(GetScriptedParamByName("Gain"));
}

AmplifierEffect::~AmplifierEffect() = default;

AudioEffect* AmplifierEffect::CreateInstance() { return NewObject<AmplifierEffect>(); }

int32_t AmplifierEffect::UpdateParams() {
  gain = GainOf(GetScriptedParamByName("Gain"));
  return ONDREL_OK;
}

int32_t AmplifierEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t n = *frames;
  for (float* channel : bufs) {
    for (int32_t i = 0; i < n; ++i) channel[i] *= gain;
  }
  return ONDREL_OK;
}

}  // namespace AMPLIFIER
}  // namespace ONDREL2
