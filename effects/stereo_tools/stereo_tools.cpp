#include "effects/stereo_tools/stereo_tools.h"
#include "framework/alloc.h"

#include <cmath>
#include <cstdio>
#include <new>

namespace ONDREL2 {
namespace STEREO_TOOLS {

// One tool: its type, display names (locale and text, ending with a null
// locale), parameter table and the labels of its parameters.
struct ToolRow {
  int32_t type;
  const char* names[5][2];
  const ParamDesc* params;
  void (*labels)(AudioEffect& fx);
};

namespace {

int32_t FormatSpeed(char* buf, const char* name, AudioEffect* effect) {
  std::sprintf(buf, "%+.1f°/s", static_cast<double>(effect->GetParamByName(name)));
  return 0;
}

int32_t FormatDegrees(char* buf, const char* name, AudioEffect* effect) {
  std::sprintf(buf, "%+.1f°", static_cast<double>(effect->GetParamByName(name)));
  return 0;
}

const ParamDesc kPannerParams[] = {
    {"Cross", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, 1.0f, &FormatOnOff, 4, 3, nullptr, nullptr,
     false},
    {"Left/Right", false, -1.0f, 1.0f, 0.0f, 0.5f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"Front/Back", false, -1.0f, 1.0f, 0.0f, 0.5f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"Up/Down", false, -1.0f, 1.0f, 0.0f, 0.5f, 0.0f, &FormatPlain, 1, 0, nullptr, nullptr, false},
    {""},
};

const ParamDesc kRotatorParams[] = {
    {"Speed", false, -180.0f, 180.0f, 0.0f, 0.5f, 45.0f, &FormatSpeed, 2, 0, nullptr, nullptr,
     false},
    {"Offset", false, -180.0f, 180.0f, 0.0f, 0.5f, 0.0f, &FormatDegrees, 2, 0, nullptr, nullptr,
     false},
    {""},
};

const ParamDesc kMono2DualParams[] = {
    {"Mute Right", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, 0.0f, &FormatOnOff, 0, 0, nullptr,
     nullptr, false},
    {""},
};

const ParamDesc kEnhancerParams[] = {
    {"Width", false, 0.0f, 400.0f, 400.0f, 1.0f, 100.0f, &FormatPercent, 2, 0, nullptr, nullptr,
     false},
    {"Center", false, 0.0f, 400.0f, 400.0f, 1.0f, 100.0f, &FormatPercent, 2, 0, nullptr, nullptr,
     false},
    {""},
};

void NoLabels(AudioEffect&) {}

void RotatorLabels(AudioEffect& fx) {
  fx.SetParamLabels("Speed", "zh", "速度", "ja", "速さ", "en", "", nullptr);
  fx.SetParamLabels("Offset", "zh", "偏移", "ja", "オフセット", "en", "", nullptr);
}

void Mono2DualLabels(AudioEffect& fx) {
  fx.SetParamLabels("Mute Right", "zh", "右声道静音", "en", "", nullptr);
}

void EnhancerLabels(AudioEffect& fx) {
  fx.SetParamLabels("Width", "zh", "宽度", "zh-TW", "寬度", "zh-HK", "寬度", "ja", "広さ", "en", "",
                    nullptr);
  fx.SetParamLabels("Center", "zh", "中心度", "ja", "中央の強さ", "en", "", nullptr);
}

const ToolRow kPanner = {EFFECT_PANNER,
                         {{"zh", "摆位器"}, {"ja", "パン"}, {"en", "Panner"}, {nullptr, nullptr}},
                         kPannerParams,
                         &NoLabels};
const ToolRow kRotator = {
    EFFECT_ROTATOR,
    {{"zh", "旋转"}, {"zh-TW", "旋轉"}, {"zh-HK", "旋轉"}, {"ja", "回転"}, {"en", "Rotator"}},
    kRotatorParams,
    &RotatorLabels};
const ToolRow kMono2Dual = {EFFECT_MONO2DUAL,
                            {{"zh", "单声道转双通道"}, {"en", "Mono to Dual"}, {nullptr, nullptr}},
                            kMono2DualParams,
                            &Mono2DualLabels};
const ToolRow kEnhancer = {EFFECT_STEREO_ENHANCER,
                           {{"zh", "立体声增强"},
                            {"zh-TW", "立體聲加強"},
                            {"zh-HK", "立體聲加強"},
                            {"ja", "ステレオ・エンハンサー"},
                            {"en", "Stereo Enhancer"}},
                           kEnhancerParams,
                           &EnhancerLabels};

// Floor, then truncate to an integer; NaN and out-of-range values count
// as 0.
int32_t SwitchOf(float value) {
  const double f = std::floor(static_cast<double>(value));
  if (!(f > -2147483648.0 && f < 2147483648.0)) return 0;
  return static_cast<int32_t>(f);
}

// Groups the current input format; a stereo pair gets a marker, single
// speakers none, so that only pairs are mixed.
int32_t BuildPairs(GroupUnits<StereoPair>& layout, int32_t channels, uint64_t mask) {
  return layout.Rebuild(channels, mask, [](const ChannelGroup& g, int32_t* status) -> StereoPair* {
    if (g.count != 2) return nullptr;
    StereoPair* pair = NewObject<StereoPair>();
    if (pair == nullptr) *status = ONDREL_E_NOMEM;
    return pair;
  });
}

}  // namespace

StereoToolEffect::StereoToolEffect(const ToolRow& row) {
  for (const auto& name : row.names) {
    if (name[0] == nullptr) break;
    SetEffectName(name[0], name[1]);
  }
  SetParamTable(row.params);
  row.labels(*this);
  effectType = row.type;
}

}  // namespace STEREO_TOOLS

namespace PANNER {

PannerEffect::PannerEffect() : StereoToolEffect(STEREO_TOOLS::kPanner) {}

AudioEffect* PannerEffect::CreateInstance() { return NewObject<PannerEffect>(); }

int32_t PannerEffect::UpdateParams() {
  const int32_t status = STEREO_TOOLS::BuildPairs(layout, GetChannels(), handle.inputMask);
  const int32_t cross = STEREO_TOOLS::SwitchOf(GetScriptedParamByName("Cross"));
  const float p = GetScriptedParamByName("Left/Right");
  gainLeft = gainRight = 1.0f;
  crossLeft = crossRight = 0.0f;
  // A pan fades the far side; with Cross on, the faded part moves over.
  if (p > 0.0f)
    gainLeft = 1.0f - p;
  else
    gainRight = p + 1.0f;
  if (cross != 0) {
    if (p < 0.0f)
      crossLeft = -p;
    else
      crossRight = p;
  }
  frontBack = GetScriptedParamByName("Front/Back");
  upDown = GetScriptedParamByName("Up/Down");
  return status;
}

int32_t PannerEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const float gl = gainLeft, gr = gainRight, cl = crossLeft, cr = crossRight;
  const float nl = cl + 1.0f, nr = cr + 1.0f;
  const int32_t n = *frames;
  layout.Run(static_cast<int32_t>(bufs.size()),
             [&](STEREO_TOOLS::StereoPair&, const ChannelGroup&, int32_t first, int32_t second) {
               float* left = bufs[static_cast<size_t>(first)];
               float* right = bufs[static_cast<size_t>(second)];
               for (int32_t i = 0; i < n; ++i) {
                 const float l = left[i], r = right[i];
                 left[i] = (r * cl + l * gl) / nl;
                 right[i] = (l * cr + r * gr) / nr;
               }
             });
  return ONDREL_OK;
}

}  // namespace PANNER

namespace ROTATOR {
namespace {

// One turn of the phase; the fold after each block uses it.
constexpr float kFold = 12.566371f;
// A quarter turn of the usual circle: the two channels sit that far apart.
constexpr float kQuarter = 0.7854f;

}  // namespace

RotatorEffect::RotatorEffect() : StereoToolEffect(STEREO_TOOLS::kRotator) {}

AudioEffect* RotatorEffect::CreateInstance() { return NewObject<RotatorEffect>(); }

int32_t RotatorEffect::UpdateParams() {
  // The speed figure counts a third of a turn of the phase as 360 degrees
  // (factor 3, constant pi), on purpose: presets are tuned to that rate.
  phaseStep = GetScriptedParamByName("Speed") / GetSampleRate() * 3.0f / 360.0f;
  const float offset = GetScriptedParamByName("Offset") / 180.0f;
  phase = static_cast<float>((static_cast<double>(offset) - 0.5) * 3.14159265);
  return ONDREL_OK;
}

int32_t RotatorEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (GetChannels() < 2 || bufs.size() < 2) return ONDREL_OK;
  float* left = bufs[0];
  float* right = bufs[1];
  const int32_t n = *frames;
  float ph = phase;
  for (int32_t i = 0; i < n; ++i) {
    const float a = static_cast<float>(std::sin(static_cast<double>(ph - kQuarter)));
    const float b = static_cast<float>(std::sin(static_cast<double>(ph + kQuarter)));
    left[i] = -(left[i] * a);
    right[i] = b * right[i];
    ph += phaseStep;
  }
  // Folded once per block, not per sample.
  if (ph < 0.0f)
    ph += kFold;
  else if (ph > kFold)
    ph -= kFold;
  phase = ph;
  return ONDREL_OK;
}

}  // namespace ROTATOR

namespace MONO2DUAL {

Mono2DualEffect::Mono2DualEffect() : StereoToolEffect(STEREO_TOOLS::kMono2Dual) {}

AudioEffect* Mono2DualEffect::CreateInstance() { return NewObject<Mono2DualEffect>(); }

void Mono2DualEffect::SetChannels(int32_t chns, uint64_t mask) {
  AudioEffect::SetChannels(chns, mask);
  if (chns == 1) SetOutChannels(2);
}

int32_t Mono2DualEffect::UpdateParams() {
  const int32_t inputs = handle.numInputs, outputs = handle.numOutputs;
  const uint64_t inMask = handle.inputMask, outMask = handle.outputMask;
  muteRight = STEREO_TOOLS::SwitchOf(GetScriptedParamByName("Mute Right")) != 0;
  const int32_t status = SetupBuffers();
  if (status != ONDREL_OK) return status;
  // Only a script could change the format between the two looks.
  if (inputs != handle.numInputs || outputs != handle.numOutputs || inMask != handle.inputMask ||
      outMask != handle.outputMask)
    return ONDREL_CHANNELS_CHANGED;
  return ONDREL_OK;
}

int32_t Mono2DualEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (GetChannels() != 1 || bufs.size() < 2) return ONDREL_OK;
  const int32_t n = *frames;
  const float* mono = bufs[0];
  float* right = bufs[1];
  for (int32_t i = 0; i < n; ++i) right[i] = muteRight ? 0.0f : mono[i];
  return ONDREL_OK;
}

}  // namespace MONO2DUAL

namespace STEREO_ENHANCER {

StereoEnhancerEffect::StereoEnhancerEffect() : StereoToolEffect(STEREO_TOOLS::kEnhancer) {}

AudioEffect* StereoEnhancerEffect::CreateInstance() { return NewObject<StereoEnhancerEffect>(); }

int32_t StereoEnhancerEffect::UpdateParams() {
  const int32_t status = STEREO_TOOLS::BuildPairs(layout, GetChannels(), handle.inputMask);
  width = GetScriptedParamByName("Width") / 100.0f;
  center = GetScriptedParamByName("Center") / 100.0f;
  return status;
}

void StereoEnhancerEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

int32_t StereoEnhancerEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const float w = width, c = center;
  const int32_t n = *frames;
  layout.Run(static_cast<int32_t>(bufs.size()),
             [&](STEREO_TOOLS::StereoPair&, const ChannelGroup&, int32_t first, int32_t second) {
               float* left = bufs[static_cast<size_t>(first)];
               float* right = bufs[static_cast<size_t>(second)];
               for (int32_t i = 0; i < n; ++i) {
                 const float l = left[i], r = right[i];
                 const float mid = (r + l) * 0.5f;
                 const float side = (l - r) * 0.5f;
                 left[i] = w * side + c * mid;
                 right[i] = c * mid - w * side;
               }
             });
  return ONDREL_OK;
}

}  // namespace STEREO_ENHANCER
}  // namespace ONDREL2
