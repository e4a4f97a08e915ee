#include "effects/limiter/limiter.h"
#include "framework/alloc.h"

#include <cmath>
#include <new>

namespace ONDREL2 {
namespace LIMITER {
namespace {

const ParamDesc kParams[] = {
    Param("In").Range(-96.0f, 0.0f).Default(0.0f).Format(&FormatDecibels).DecibelMapping(),
    Param("Out").Range(-96.0f, 0.0f).Default(-0.1f).Format(&FormatDecibels).DecibelMapping(),
    Param("Limit").Range(-96.0f, 0.0f).Default(-0.2f).Format(&FormatDecibels).DecibelMapping(),
    Param("Attack Time").Range(0.1f, 80.0f).Default(5.0f).Format(&FormatMilliseconds).Hints(2),
    Param("Release Time")
        .Range(1.0f, 8000.0f)
        .Default(50.0f)
        .Format(&FormatWholeMilliseconds)
        .Hints(2),
    Param("Auto Release").Range(0.0f, kSwitchMax).Default(0.0f).Format(&FormatOnOff).Hints(3, 3),
    Param("Auto Release Level").Range(0.0f, 1.0f).Default(0.5f).Hints(2),
    Param("Auto Level")
        .Range(0.0f, kSwitchMax)
        .Default(kSwitchMax)
        .Format(&FormatOnOff)
        .Hints(4, 3),
    EndOfTable(),
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

LimiterEffect::~LimiterEffect() = default;

AudioEffect* LimiterEffect::CreateInstance() { return NewObject<LimiterEffect>(); }

int32_t LimiterEffect::UpdateParams() {
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
  return units.Rebuild(GetChannels(), handle.inputMask,
                       [&](const ChannelGroup& g, int32_t* status) -> LookaheadLimiter* {
                         LookaheadLimiter* kernel = NewObject<LookaheadLimiter>(&block);
                         if (kernel == nullptr) {
                           *status = ONDREL_E_NOMEM;
                           return nullptr;
                         }
                         *status = kernel->SetFormat(rate, g.count);
                         if (*status != ONDREL_OK) {
                           delete kernel;
                           return nullptr;
                         }
                         return kernel;
                       });
}

void LimiterEffect::ResetDsp() {
  units.ForEach([](LookaheadLimiter& kernel, const ChannelGroup&) { kernel.Reset(); });
}

void LimiterEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

int32_t LimiterEffect::GetLatency() {
  const LookaheadLimiter* first = units.First();
  return first != nullptr ? first->LatencyFrames() : 0;
}

int32_t LimiterEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  units.Run(static_cast<int32_t>(bufs.size()),
            [&](LookaheadLimiter& kernel, const ChannelGroup&, int32_t first, int32_t second) {
              const int32_t indices[2] = {first, second};
              kernel.ProcessPlanar(bufs.data(), *frames, indices);
            });
  return ONDREL_OK;
}

}  // namespace LIMITER
}  // namespace ONDREL2
