#include "effects/limiter/limiter.h"

#include <cmath>
#include <new>

namespace ONDREL2 {
namespace LIMITER {
namespace {

const ParamDesc kParams[] = {
    {"In", false, -96.0f, 0.0f, 0.0f, 1.0f, 0.0f, &FormatDecibels, 0, 0, &dB2scale, &scale2dB,
     false},
    {"Out", false, -96.0f, 0.0f, 0.0f, 1.0f, -0.1f, &FormatDecibels, 0, 0, &dB2scale, &scale2dB,
     false},
    {"Limit", false, -96.0f, 0.0f, 0.0f, 1.0f, -0.2f, &FormatDecibels, 0, 0, &dB2scale, &scale2dB,
     false},
    {"Attack Time", false, 0.1f, 80.0f, 80.0f, 1.0f, 5.0f, &FormatMilliseconds, 2, 0, nullptr,
     nullptr, false},
    {"Release Time", false, 1.0f, 8000.0f, 8000.0f, 1.0f, 50.0f, &FormatWholeMilliseconds, 2, 0,
     nullptr, nullptr, false},
    {"Auto Release", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, 0.0f, &FormatOnOff, 3, 3, nullptr,
     nullptr, false},
    {"Auto Release Level", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.5f, nullptr, 2, 0, nullptr, nullptr,
     false},
    {"Auto Level", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, kSwitchMax, &FormatOnOff, 4, 3,
     nullptr, nullptr, false},
    {""},
};

// Floor, then truncate to an integer; NaN and out-of-range values count
// as off.
int32_t SwitchOf(float value) {
  const double f = std::floor(static_cast<double>(value));
  if (!(f > -2147483648.0 && f < 2147483648.0)) return 0;
  return static_cast<int32_t>(f);
}

}  // namespace

LimiterEffect::LimiterEffect() {
  SetEffectName("zh", "限制器");
  SetEffectName("ja", "リミッター");
  SetEffectName("en", "Limiter");
  SetParamTable(kParams);
  SetParamLabels("In", "zh", "输入", "zh-TW", "輸入", "zh-HK", "輸入", "ja", "入力", "en", "",
                 nullptr);
  SetParamLabels("Out", "zh", "输出", "zh-TW", "輸出", "zh-HK", "輸出", "ja", "出力", "en", "",
                 nullptr);
  SetParamLabels("Limit", "zh", "限制", "ja", "リミット", "en", "", nullptr);
  SetParamLabels("Attack Time", "zh", "上升时间", "zh-TW", "上升時間", "zh-HK", "上升時間", "ja",
                 "アタック", "en", "", nullptr);
  SetParamLabels("Release Time", "zh", "释放时间", "zh-TW", "釋放時間", "zh-HK", "釋放時間", "ja",
                 "リリース", "en", "", nullptr);
  SetParamLabels("Auto Release", "zh", "自动释放", "zh-TW", "自動釋放", "zh-HK", "自動釋放", "ja",
                 "自動的にリリース", "en", "", nullptr);
  SetParamLabels("Auto Release Level", "zh", "自动释放等级", "zh-TW", "自動釋放等級", "zh-HK",
                 "自動釋放等級", "ja", "自動的にリリースのレベル", "en", "", nullptr);
  SetParamLabels("Auto Level", "zh", "自动电平", "zh-TW", "自動電平", "zh-HK", "自動電平", "ja",
                 "ゲインの自動化", "en", "", nullptr);
  effectType = EFFECT_LIMITER;
  UpdateParams();
}

LimiterEffect::~LimiterEffect() { FreeGroups(); }

AudioEffect* LimiterEffect::CreateInstance() { return new (std::nothrow) LimiterEffect(); }

void LimiterEffect::FreeGroups() {
  if (layout == nullptr) return;
  for (ChannelGroup& g : layout->groups) {
    delete static_cast<LookaheadLimiter*>(g.context);
    g.context = nullptr;
  }
  delete layout;
  layout = nullptr;
}

int32_t LimiterEffect::UpdateParams() {
  FreeGroups();
  layout = new (std::nothrow) LayoutUtils(GetChannels(), handle.inputMask, nullptr);
  if (layout == nullptr) return 2001;

  LookaheadLimiterParams block;
  block.attack = GetScriptedParamByName("Attack Time");
  block.release = GetScriptedParamByName("Release Time");
  block.autoReleaseLevel = GetScriptedParamByName("Auto Release Level");
  block.autoRelease = SwitchOf(GetScriptedParamByName("Auto Release"));
  block.autoLevel = SwitchOf(GetScriptedParamByName("Auto Level"));
  block.levelIn = dB2scale(GetScriptedParamByName("In"));
  block.levelOut = dB2scale(GetScriptedParamByName("Out"));
  block.limit = dB2scale(GetScriptedParamByName("Limit"));

  // A rate that does not fit an integer (NaN, negative, huge) counts as 0,
  // which SetFormat refuses.
  const float hostRate = GetSampleRate();
  const int32_t rate =
      hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int32_t>(hostRate) : 0;
  for (ChannelGroup& g : layout->groups) {
    LookaheadLimiter* kernel = new (std::nothrow) LookaheadLimiter(&block);
    if (kernel == nullptr) return 2001;
    if (int32_t rc = kernel->SetFormat(rate, g.count)) {
      delete kernel;
      return rc;
    }
    g.context = kernel;
  }
  return 0;
}

void LimiterEffect::ResetDsp() {
  if (layout == nullptr) return;
  for (ChannelGroup& g : layout->groups)
    if (g.context != nullptr) static_cast<LookaheadLimiter*>(g.context)->Reset();
}

void LimiterEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

int32_t LimiterEffect::GetLatency() {
  if (layout == nullptr) return 0;
  for (const ChannelGroup& g : layout->groups)
    if (g.context != nullptr) return static_cast<LookaheadLimiter*>(g.context)->LatencyFrames();
  return 0;
}

int32_t LimiterEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (layout == nullptr) return 0;
  const int32_t available = static_cast<int32_t>(bufs.size());
  for (const ChannelGroup& g : layout->groups) {
    if (g.context == nullptr) continue;
    // A mask that claims more speakers than the stream carries leaves the
    // groups beyond the vector alone.
    const int32_t indices[2] = {g.first, g.count > 1 ? g.second : g.first};
    if (indices[0] < 0 || indices[0] >= available || indices[1] < 0 || indices[1] >= available)
      continue;
    static_cast<LookaheadLimiter*>(g.context)->ProcessPlanar(bufs.data(), *frames, indices);
  }
  return 0;
}

}  // namespace LIMITER
}  // namespace ONDREL2
