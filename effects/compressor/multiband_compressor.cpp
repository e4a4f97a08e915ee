#include "effects/compressor/multiband_compressor.h"

#include <cmath>
#include <new>

#include "dsp/denormal.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace COMPRESSOR {
namespace {

// Several defaults lie outside their bounds (normalised-looking values);
// they are stored as they stand.
const ParamDesc kParams[] = {
    Param("Listen").Range(0.0f, 3.0f).Default(1.0f),
    Param("xover1").Range(87.0f, 1020.0f).Default(0.103f).Format(&FormatHertz),
    Param("xover2").Range(111.0f, 19606.0f).Default(0.878f).Format(&FormatHertz),
    Param("L drive").Range(0.0f, 30.0f).Default(0.54f).Format(&FormatDecibels),
    Param("M drive").Range(0.0f, 30.0f).Default(0.0f).Format(&FormatDecibels),
    Param("H drive").Range(0.0f, 30.0f).Default(0.6f).Format(&FormatDecibels),
    Param("L trim").Range(-20.0f, 20.0f).Default(0.45f).Format(&FormatDecibels),
    Param("M trim").Range(-20.0f, 20.0f).Default(0.5f).Format(&FormatDecibels),
    Param("H trim").Range(-20.0f, 20.0f).Default(0.5f).Format(&FormatDecibels),
    Param("attack").Range(7.0f, 1755.0f).Default(0.22f).Format(&FormatMilliseconds),
    Param("release").Range(1.0f, 1571.0f).Default(0.602f).Format(&FormatMilliseconds),
    Param("width").Range(0.0f, 1.0f).Default(0.55f).Format(&FormatPercent),
    Param("MS swap").Range(0.0f, 1.0f).Default(0.0f),
    EndOfTable(),
};

// One-pole envelope follower: rises by `attack` of the distance, falls by
// the factor 1 - `release`.
inline float Follow(float env, float level, float attack, float release) {
  if (level > env) return env + (level - env) * attack;
  return env * (1.0f - release);
}

}  // namespace

MultiBandCompressorEffect::MultiBandCompressorEffect() {
  SetEffectName("zh", "多段压缩器");
  SetEffectName("en", "MultiBandCompressor");
  SetParamTable(kParams);
  effectType = EFFECT_MULTIBAND_COMPRESSOR;
  UpdateParams();
}

MultiBandCompressorEffect::~MultiBandCompressorEffect() = default;

AudioEffect* MultiBandCompressorEffect::CreateInstance() {
  return NewObject<MultiBandCompressorEffect>();
}

int32_t MultiBandCompressorEffect::UpdateParams() {
  // The voicing is fixed: no parameter and not the sample rate takes part.
  envLow = envMid = envHigh = 0.0f;
  lowStage1 = split = lowStage2 = 0.0f;
  voicing = kVoicing;
  msSwap = 0;
  return ONDREL_OK;
}

int32_t MultiBandCompressorEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (bufs.size() != 2) return ONDREL_OK;
  float* left = bufs[0];
  float* right = bufs[1];
  const Voicing& v = voicing;
  const float splitKeep = 1.0f - v.splitCoef;
  const float lowKeep = 1.0f - v.lowCoef;
  const int32_t n = *frames;

  for (int32_t i = 0; i < n; ++i) {
    const float l = left[i];
    float r = right[i];
    if (msSwap != 0) r = -r;
    const float side = (l - r) * v.width;
    const float sum = l + r;

    split = split * splitKeep + sum * v.splitCoef;
    const float high = sum - split;
    lowStage1 = lowStage1 * lowKeep + split * v.lowCoef;
    lowStage2 = lowKeep * lowStage2 + lowStage1 * v.lowCoef;
    const float low = lowStage2;
    const float mid = split - low;

    envLow = Follow(envLow, std::fabs(low), v.lowAttack, v.lowRelease);
    envMid = Follow(envMid, std::fabs(mid), v.midAttack, v.midRelease);
    const float gM = 1.0f / (v.midDrive * envMid + 1.0f);
    envHigh = Follow(envHigh, std::fabs(high), v.highAttack, v.highRelease);
    const float gH = 1.0f / (v.highDrive * envHigh + 1.0f);

    // The lows take the highs' gain: they duck with the highs on purpose.
    const float m = gM * mid * v.midGain + gH * low * v.lowGain + gH * high * v.highGain;
    left[i] = side + m;
    right[i] = msSwap != 0 ? side - m : m - side;
  }

  // Envelopes are never negative: the plain comparison is the cut.
  if (envLow < kDenormalCut) envLow = 0.0f;
  if (envMid < kDenormalCut) envMid = 0.0f;
  if (envHigh < kDenormalCut) envHigh = 0.0f;
  if (BelowDenormalCut(lowStage1)) lowStage1 = split = lowStage2 = 0.0f;
  return ONDREL_OK;
}

}  // namespace COMPRESSOR
}  // namespace ONDREL2
