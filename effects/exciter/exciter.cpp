#include "effects/exciter/exciter.h"
#include "framework/alloc.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace ONDREL2 {
namespace EXCITER {
namespace {

const ParamDesc kParams[] = {
    {"MixBack", false, -120.0f, 0.0f, 0.0f, 1.0f, -9.0f, &FormatDecibels, 2, 0, &dB2scale,
     &scale2dB, false},
    {"Frequency", false, 100.0f, 18000.0f, 18000.0f, 1.0f, 614.400024f, &FormatHertz, 0, 0, nullptr,
     nullptr, false},
    {"ClipBoost", false, 0.0f, 6.0f, 6.0f, 1.0f, 0.0f, &FormatDecibels, 0, 0, &dB2scale, &scale2dB,
     false},
    {"Harmonics", false, 0.0f, 90.0f, 90.0f, 1.0f, 5.0f, &FormatPercent, 0, 0, nullptr, nullptr,
     false},
    {""},
};

// dB to gain with the effect's own divisor (not 20 / ln 10): the quotient in
// float, the exponential in double.
float GainOf(float dB) { return static_cast<float>(std::exp(static_cast<double>(dB / 8.65617f))); }

}  // namespace

ExciterEffect::ExciterEffect() {
  SetEffectName("zh", "激励器");
  SetEffectName("en", "Exciter");
  SetParamTable(kParams);
  SetParamLabels("MixBack", "zh", "回混", "en", "", nullptr);
  SetParamLabels("Frequency", "zh", "频率", "en", "", nullptr);
  SetParamLabels("ClipBoost", "zh", "裁剪增强", "en", "", nullptr);
  SetParamLabels("Harmonics", "zh", "泛音", "en", "", nullptr);
  effectType = EFFECT_EXCITER;
  UpdateParams();
}

ExciterEffect::~ExciterEffect() { ClearState(); }

AudioEffect* ExciterEffect::CreateInstance() { return NewObject<ExciterEffect>(); }

void ExciterEffect::ClearState() {
  std::fill(inState, inState + kMaxChannels, 0.0f);
  std::fill(outState, outState + kMaxChannels, 0.0f);
}

int32_t ExciterEffect::UpdateParams() {
  ClearState();
  clipDrive = GainOf(GetScriptedParamByName("ClipBoost"));
  mix = GainOf(GetScriptedParamByName("MixBack"));
  // A stored value beyond 90 % (no script clamps it) would bring the
  // saturator's pole to or past 1; it is held at the top of the range.
  const float harmonics = std::min(std::max(GetScriptedParamByName("Harmonics"), 0.0f), 90.0f);
  const float h = harmonics / 100.0f;
  shape = (h + h) / (1.0f - h);
  const float rate = GetSampleRate();
  const float f = std::max(std::min(GetScriptedParamByName("Frequency"), rate), 0.0f);
  const float c = static_cast<float>(
      std::exp(-6.28318530718 * static_cast<double>(f) / static_cast<double>(rate)));
  b = -c;
  a = static_cast<float>(1.0 - static_cast<double>(c));
  return ONDREL_OK;
}

int32_t ExciterEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t channels =
      std::min({GetChannels(), static_cast<int32_t>(bufs.size()), kMaxChannels});
  const int32_t n = *frames;
  for (int32_t ch = 0; ch < channels; ++ch) {
    float* s = bufs[static_cast<size_t>(ch)];
    float in = inState[ch];
    float out = outState[ch];
    for (int32_t i = 0; i < n; ++i) {
      const float x = s[i];
      // The 1e-30 keeps both recursions out of denormal numbers.
      const float low = static_cast<float>(static_cast<double>(a * x - b * in) + 1e-30);
      in = low;
      const float high = x - low;
      const float d = std::min(std::max(clipDrive * high, -1.0f), 1.0f);
      const float w = (shape + 1.0f) * d / (std::fabs(x) * shape + 1.0f);
      const float low2 = static_cast<float>(static_cast<double>(a * w - b * out) + 1e-30);
      out = low2;
      s[i] = x + (w - low2) * mix;
    }
    inState[ch] = in;
    outState[ch] = out;
  }
  return ONDREL_OK;
}

void ExciterEffect::ResetDsp() { ClearState(); }

void ExciterEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

}  // namespace EXCITER
}  // namespace ONDREL2
