#include "effects/resampler/resampler_effect.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "framework/alloc.h"

namespace ONDREL2 {
namespace RESAMPLER {
namespace {

// Floor, then truncate; what does not fit an int (NaN included) counts as 0.
int32_t FloorOf(float value) {
  const double f = std::floor(static_cast<double>(value));
  return f > -2147483648.0 && f < 2147483648.0 ? static_cast<int32_t>(f) : 0;
}

// A rate truncated to an integer; out of range counts as 0, which the
// converters refuse.
int32_t RateOf(float rate) {
  return rate > -2147483648.0f && rate < 2147483648.0f ? static_cast<int32_t>(rate) : 0;
}

int32_t AlgorithmOf(AudioEffect* effect) {
  int32_t size = 0;
  const void* data = effect->GetParamData(effect->GetParamIndex("Algorithm"), &size);
  int32_t value = 0;
  if (data != nullptr && size >= 4) std::memcpy(&value, data, sizeof(value));
  return value;
}

// Writes the word of `words` for the locale, or an empty text.
int32_t PutWord(char* buf, AudioEffect* effect, const TextMap& words) {
  if (!effect->LookupLocalized(buf, &words)) buf[0] = 0;
  return 0;
}

int32_t FormatMethod(char* buf, const char* name, AudioEffect* effect) {
  switch (FloorOf(effect->GetParamByName(name))) {
    case 0: return PutWord(buf, effect, {{"zh", "指定"}, {"ja", "特定"}, {"en", "Specified"}});
    case 1: return PutWord(buf, effect, {{"zh", "倍率"}, {"ja", "倍率"}, {"en", "Multiplier"}});
    default: return PutWord(buf, effect, {});
  }
}

int32_t FormatAlgorithm(char* buf, const char*, AudioEffect* effect) {
  switch (AlgorithmOf(effect)) {
    case 0: return PutWord(buf, effect, {{"zh", "线性"}, {"ja", "ライニア"}, {"en", "Linear"}});
    case 1: return PutWord(buf, effect, {{"en", "Sinc"}});
    default: return PutWord(buf, effect, {});
  }
}

const ParamDesc kParams[] = {
    {"Method", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, 0.0f, &FormatMethod, 4, 3, nullptr,
     nullptr, false},
    {"Multiplier", false, -3.0f, 3.99999905f, 0.0f, 0.5f, 0.0f, &FormatRatio, 0, 0, nullptr,
     nullptr, true},
    {"SampleRate", false, 1.0f, 192000.0f, 96000.0f, 0.5f, 96000.0f, &FormatInteger, 0, 0, nullptr,
     nullptr, true},
    {"Max", false, 1.0f, 192000.0f, 192000.0f, 1.0f, 192000.0f, &FormatInteger, 0, 0, nullptr,
     nullptr, true},
    {"Algorithm", true, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatAlgorithm, 7, 11, nullptr, nullptr,
     false},
    {""},
};

}  // namespace

ResamplerEffect::ResamplerEffect() {
  SetEffectName("zh", "重采样");
  SetEffectName("ja", "サンプリング周波数変換");
  SetEffectName("en", "Resampler");
  SetParamTable(kParams);
  SetParamLabels("Method", "zh", "方法", "ja", "方法", "en", "", nullptr);
  SetParamLabels("Multiplier", "zh", "倍率", "ja", "倍率", "en", "", nullptr);
  SetParamLabels("SampleRate", "zh", "采样率", "zh-TW", "采樣率", "zh-HK", "采樣率", "ja",
                 "サンプリング周波数", "en", "", nullptr);
  SetParamLabels("Max", "zh", "最大值", "ja", "最大サンプリング周波数", "en", "", nullptr);
  SetParamLabels("Algorithm", "zh", "算法", "ja", "アルゴリズム", "en", "", nullptr);
  effectType = EFFECT_RESAMPLER;
  scriptVersion = 3;
  const int32_t linear = 0;
  SetParamData(GetParamIndex("Algorithm"), &linear, sizeof(linear));
}

ResamplerEffect::~ResamplerEffect() = default;

AudioEffect* ResamplerEffect::CreateInstance() { return NewObject<ResamplerEffect>(); }

void ResamplerEffect::SetSampleRate(float rate) {
  if (rate != inputRate) {
    inputRate = rate;
    paramsDirty = true;
  }
}

int32_t ResamplerEffect::UpdateParams() {
  method = FloorOf(GetScriptedParamByName("Method"));
  float outRate;
  if (method == 1) {
    const int32_t n = FloorOf(GetScriptedParamByName("Multiplier"));
    outRate = n >= 0 ? static_cast<float>(n + 1) * inputRate
                     : inputRate / static_cast<float>(1 - static_cast<int64_t>(n));
  } else {
    outRate = GetScriptedParamByName("SampleRate");
  }
  const float maxRate = GetScriptedParamByName("Max");
  if (outRate > maxRate) outRate = maxRate;
  sampleRate = outRate;
  algorithm = AlgorithmOf(this);

  // The converter only ever sees empty blocks, so one made for the same
  // kind, rates and width is as good as a new one, and its tables (up to
  // millions of coefficients, 44100 to 44101 Hz) are built only when an
  // empty block first reaches it: a parameter pass or a seek builds nothing
  // that no block reads.
  const Target wanted{algorithm == 1 || algorithm == 2, RateOf(inputRate), RateOf(outRate),
                      GetChannels()};
  if (resampler != nullptr && wanted.Same(target)) return ONDREL_OK;
  resampler.reset();
  if (wanted.twoStage)
    resampler.reset(NewObject<CResampler_SSRC>());
  else
    resampler.reset(NewObject<CResampler_SRC>());
  target = wanted;
  initPending = true;
  return ONDREL_OK;
}

int32_t ResamplerEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (resampler == nullptr) return ONDREL_OK;
  if (*frames != 0) return *frames;
  // A refused pair leaves a converter that produces nothing; nothing here
  // depends on it.
  if (initPending) {
    initPending = false;
    resampler->Init(target.inRate, target.outRate, target.channels, true);
  }
  std::vector<float> input;
  std::vector<float> output(static_cast<size_t>(GetChannels()) * bufs.size());
  resampler->Process(input.data(), 0, output.data(), static_cast<int32_t>(output.size()));
  return ONDREL_OK;
}

}  // namespace RESAMPLER
}  // namespace ONDREL2
