#include "effects/dfx/dfx_effects.h"

#include <cmath>

namespace ONDREL2 {
namespace DFXBASE {
namespace {

const ParamDesc kSurroundParams[] = {
    {"3DSurround", false, 0.0f, 127.0f, 127.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {""},
};
const ParamDesc kHeadphoneParams[] = {
    {"Headphone", false, 0.0f, 1.999999f, 1.999999f, 1.0f, 0.0f, &FormatOnOff, 0, 0, nullptr,
     nullptr, false},
    {""},
};
const ParamDesc kAmbienceParams[] = {
    {"Ambience", false, 0.0f, 127.0f, 127.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {""},
};
const ParamDesc kDynamicBoostParams[] = {
    {"Dynamicboost", false, 0.0f, 127.0f, 127.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {""},
};

}  // namespace

const DfxRow kSurroundRow = {EFFECT_DFX_3DSURROUND, "环绕强度", "3DSurround", kSurroundParams,
                             false};
const DfxRow kHeadphoneRow = {EFFECT_DFX_HEADPHONE, "耳机", "Headphone", kHeadphoneParams, true};
const DfxRow kAmbienceRow = {EFFECT_AMBIENCE, "环境强度", "Ambience", kAmbienceParams, false};
const DfxRow kDynamicBoostRow = {EFFECT_DYNAMICBOOST, "动态推进", "Dynamicboost",
                                 kDynamicBoostParams, false};

void SetUpDfxEffect(AudioEffect& effect, const DfxRow& row) {
  effect.SetEffectName("zh", row.zhName);
  effect.SetEffectName("en", row.enName);
  effect.SetParamTable(row.table);
  effect.SetParamLabels(row.table[0].name, "zh", row.zhName, "en", "", nullptr);
  effect.effectType = row.type;
}

int32_t TruncatedAmount(float value, bool floorFirst) {
  double v = static_cast<double>(value);
  if (floorFirst) v = std::floor(v);
  if (!(v > -2147483648.0 && v < 2147483648.0)) return 0;
  return static_cast<int32_t>(v);
}

}  // namespace DFXBASE

namespace DFX3DSURROUND {
Dfx3DSurroundEffect::Dfx3DSurroundEffect() : ON2EffectT(DFXBASE::kSurroundRow) { UpdateParams(); }
AudioEffect* Dfx3DSurroundEffect::CreateInstance() { return NewObject<Dfx3DSurroundEffect>(); }
}  // namespace DFX3DSURROUND

namespace DFXHEADPHONE {
HeadphoneEffect::HeadphoneEffect() : ON2EffectT(DFXBASE::kHeadphoneRow) { UpdateParams(); }
AudioEffect* HeadphoneEffect::CreateInstance() { return NewObject<HeadphoneEffect>(); }
}  // namespace DFXHEADPHONE

namespace AMBIENCE {
AmbienceEffect::AmbienceEffect() : ON2EffectT(DFXBASE::kAmbienceRow) { UpdateParams(); }
AudioEffect* AmbienceEffect::CreateInstance() { return NewObject<AmbienceEffect>(); }
}  // namespace AMBIENCE

namespace DYNAMICBOOST {
DynamicboostEffect::DynamicboostEffect() : ON2EffectT(DFXBASE::kDynamicBoostRow) { UpdateParams(); }
AudioEffect* DynamicboostEffect::CreateInstance() { return NewObject<DynamicboostEffect>(); }
}  // namespace DYNAMICBOOST

}  // namespace ONDREL2
