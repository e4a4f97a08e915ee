#include "effects/growl/growl.h"
#include "framework/alloc.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace ONDREL2 {
namespace GROWL {
namespace {

const ParamDesc kParams[] = {
    {"Threshold", false, -80.0f, 0.0f, 0.0f, 1.0f, -80.0f, &FormatDecibels, 2, 0, nullptr, nullptr,
     false},
    {"Low Pass", false, 20.0f, 20000.0f, 20000.0f, 1.0f, 2800.0f, &FormatHertz, 0, 0, nullptr,
     nullptr, false},
    {"Resonance", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.5f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {"Filter Mod", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"Compander", false, -50.0f, 0.0f, 0.0f, 1.0f, -20.0f, &FormatDecibels, 0, 0, nullptr, nullptr,
     false},
    {"Mix", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.5f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {"Output", false, -20.0f, 20.0f, 20.0f, 1.0f, 0.0f, &FormatDecibels, 0, 0, nullptr, nullptr,
     false},
    {"EnvByL", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, 0.0f, &FormatOnOff, 4, 3, nullptr,
     nullptr, false},
    {""},
};

float PowerOfTen(float dB) {
  return static_cast<float>(std::pow(10.0, static_cast<double>(dB) / 20.0));
}

// exp(-1 / (rate * ms / 1000)): the per-sample coefficient of a time
// constant of `ms` milliseconds.
float TimeConstant(float rate, float ms) {
  return static_cast<float>(std::exp(-1.0 / (static_cast<double>(rate) * ms / 1000.0)));
}

}  // namespace

GrowlDspWrapper::GrowlDspWrapper(float sampleRate, int32_t chns) : channels(chns) {
  SetRate(sampleRate);
}

GrowlDspWrapper::~GrowlDspWrapper() = default;

ON_DSP_WRAPPERS::IDspWrapper* GrowlDspWrapper::Create(float sampleRate, int32_t chns, uint64_t) {
  return NewObject<GrowlDspWrapper>(sampleRate, chns);
}

void GrowlDspWrapper::SetRate(float sampleRate) {
  rate = sampleRate;
  c1 = TimeConstant(rate, 1.0f);
  c5 = TimeConstant(rate, 5.0f);
  c10 = TimeConstant(rate, 10.0f);
  c20 = TimeConstant(rate, 20.0f);
  c30 = TimeConstant(rate, 30.0f);
  c50 = TimeConstant(rate, 50.0f);
  c100 = TimeConstant(rate, 100.0f);
  c200 = TimeConstant(rate, 200.0f);
  // A 20 Hz corner: 1 - exp(-2 pi 20 / rate).
  const float hp =
      static_cast<float>(1.0 - std::exp(-125.66370614359172 / static_cast<double>(rate)));
  hpCoefficient[0] = hpCoefficient[1] = hp;
}

void GrowlDspWrapper::ComputeFilter(float corner) {
  const float f = std::min(std::max(corner, 20.0f), 20000.0f);
  fc = (f + f) / rate;
  p = static_cast<float>((1.8 - static_cast<double>(fc) * 0.8) * static_cast<double>(fc));
  k = static_cast<float>(static_cast<double>(p) + static_cast<double>(p) - 1.0);
  t = static_cast<float>((1.0 - static_cast<double>(p)) * 1.386249);
  t2 = static_cast<float>(static_cast<double>(t) * static_cast<double>(t) + 12.0);
  r = static_cast<float>((static_cast<double>(t2) + static_cast<double>(t) * 6.0) *
                         static_cast<double>(resonance) /
                         (static_cast<double>(t2) - static_cast<double>(t) * 6.0));
}

int32_t GrowlDspWrapper::UpdateParams(AudioEffect* runner) {
  // A new rate reaches the wrapper here; the states stay.
  const float runnerRate = runner->GetSampleRate();
  if (runnerRate != rate) SetRate(runnerRate);
  threshold = PowerOfTen(runner->GetScriptedParamByName("Threshold"));
  lowPass = runner->GetScriptedParamByName("Low Pass");
  resonance = runner->GetScriptedParamByName("Resonance");
  output = PowerOfTen(runner->GetScriptedParamByName("Output"));
  mix = runner->GetScriptedParamByName("Mix");
  filterMod = runner->GetScriptedParamByName("Filter Mod");
  compLevel = PowerOfTen(runner->GetScriptedParamByName("Compander"));
  compGain = static_cast<float>(std::pow(static_cast<double>(compLevel), 0.3));
  ComputeFilter(lowPass * 1.0f);
  return ONDREL_OK;
}

void GrowlDspWrapper::Detect(float left, float right) {
  if (count > 32) {
    leftActive = silentCount != 32;
    rightEqualsLeft = leftActive && equalCount == 32;
    silentCount = 0;
    equalCount = 0;
    count = 1;
    return;
  }
  if (left <= 1e-7f) ++silentCount;
  if (left == right) ++equalCount;
  ++count;
}

// One side from its rectified level `g`: high pass, ladder, envelope-driven
// gain. Returns the wet sample.
float GrowlDspWrapper::Wet(Side& s, float hp, float g) {
  const float d = (g - s.lp) * hp;
  const float oldLp = s.lp;
  s.lp += d;
  const float h = g - (d + oldLp);

  const float in0 = h - r * s.y4;
  const float y1 = p * s.oldIn + p * in0 - k * s.y1;
  const float y2 = p * y1 + p * s.oldY1 - k * s.y2;
  const float y3 = p * s.oldY2 + p * y2 - k * s.y3;
  const float v = p * y3 + p * s.oldY3 - k * s.y4;
  s.oldIn = in0;
  s.y1 = y1;
  s.y2 = y2;
  s.y3 = y3;
  s.oldY1 = y1;
  s.oldY2 = y2;
  s.oldY3 = y3;
  s.y4 = static_cast<float>(static_cast<double>(v) - static_cast<double>(v * v * v) / 6.0);
  if (!std::isfinite(s.y4)) {
    // At a high resonance and corner the ladder's cubic can run away past
    // the float range; from there every sample would be NaN for good. The
    // side starts again from rest instead; finite runs are unaffected.
    s.y1 = s.y2 = s.y3 = s.y4 = 0.0f;
    s.oldIn = s.oldY1 = s.oldY2 = s.oldY3 = 0.0f;
    s.out.a = s.out.b = 0.0f;
    return 0.0f;
  }

  float e = std::fabs(s.y4);
  if (e < s.out.a) e = e + (s.out.a - e) * c10;
  s.out.a = e;
  s.out.b = (s.out.b - e) * (e > s.out.b ? c1 : c200) + e;
  return compGain / (s.out.b + compLevel) * s.y4;
}

int32_t GrowlDspWrapper::ProcessVector(const std::vector<float*>& buffers, int32_t frames,
                                       const int32_t* indices) {
  if (frames == 0) return 0;
  if (indices == nullptr || frames < 0 || !(rate > 0.0f)) return frames;
  const size_t li = static_cast<size_t>(indices[0]);
  const size_t ri = static_cast<size_t>(indices[1]);
  if (li >= buffers.size() || ri >= buffers.size()) return frames;
  float* left = buffers[li];
  float* right = buffers[ri];
  Detect(left[0], right[0]);
  for (int32_t i = 0; i < frames; ++i) {
    const float x = left[i];
    const float y = right[i];
    const float g = std::max(std::fabs(x), threshold) - threshold;

    float e = static_cast<float>(static_cast<double>(g) * 4.0);
    if (e < in.a) e = e + (in.a - e) * c10;
    in.a = e;
    in.b = (in.b - e) * (e > in.b ? c1 : c200) + e;

    const float m = filterMod * in.b + (1.0f - filterMod);
    if (m != lastCorner) ComputeFilter(lowPass * m);
    lastCorner = m;

    const float wetLeft = Wet(side[0], hpCoefficient[0], g);
    float wetRight = wetLeft;
    if (!rightEqualsLeft)
      wetRight = Wet(side[1], hpCoefficient[1], std::max(std::fabs(y), threshold) - threshold);

    left[i] = ((1.0f - mix) * x + mix * wetLeft) * output;
    right[i] = ((1.0f - mix) * y + mix * wetRight) * output;
  }
  return frames;
}

GrowlEffect::GrowlEffect() : DspWrapperRunner(new GrowlDspWrapper()) {
  SetEffectType(EFFECT_GROWL);
  SetEffectName("zh", "低吼");
  SetEffectName("en", "Growl");
  SetParamTable(kParams);
  SetScriptVersion(4);
  UpdateParams();
}

GrowlEffect::~GrowlEffect() = default;

AudioEffect* GrowlEffect::CreateInstance() { return NewObject<GrowlEffect>(); }

}  // namespace GROWL
}  // namespace ONDREL2
