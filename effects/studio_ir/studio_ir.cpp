#include "effects/studio_ir/studio_ir.h"
#include "framework/alloc.h"

#include <cstring>
#include <new>

namespace ONDREL2 {
namespace STUDIO_IR {
namespace {

const ParamDesc kParams[] = {
    {"IR File", true, 0.0f, 1.0f, 1.0f, 0.0f, 0.0f, nullptr, 9, 9, nullptr, nullptr, false},
    {"Trim", false, -100.0f, -20.0f, -56.0f, 0.98f, -100.0f, &FormatDecibels, 0, 0, nullptr,
     nullptr, false},
    {"Fade", false, 0.0f, 1000.0f, 1000.0f, 1.0f, 0.0f, &FormatMilliseconds, 0, 0, nullptr, nullptr,
     false},
    {""},
};

constexpr int kIrFileParam = 0;

// Single speakers whose position number shares a bit with this mask stay
// dry (front centre, low frequency and others).
constexpr int kDryPositions = 0x23;

}  // namespace

// ---------------------------------------------------------------------------
// IrConvolverUnit

IrConvolverUnit::IrConvolverUnit() {
  std::memset(&current, 0, sizeof(current));
  std::memset(&applying, 0, sizeof(applying));
  applying.sampleRate = 44100;
  applying.inChannels = 2;
  applying.outChannels = 2;
}

IrConvolverUnit::~IrConvolverUnit() = default;

int32_t IrConvolverUnit::Apply(const IrConfig& config) {
  applying = config;
  if (applying.inChannels == current.inChannels && applying.sampleRate == current.sampleRate) {
    current = applying;
    return ONDREL_OK;
  }
  loader.reset(NewObject<IrLoader>());
  if (!loader) return ONDREL_E_NOMEM;
  if (!TryAllocating([&] {
        interleaved.assign(static_cast<size_t>(kIrBlockSize) *
                               static_cast<size_t>(std::max(applying.inChannels, 1)),
                           0.0f);
      })) {
    return ONDREL_E_NOMEM;
  }
  // A refused channel count keeps the convolver, which passes such a
  // block through untouched.
  loader->SetFormat(applying.sampleRate, applying.inChannels);
  if (applying.rawPaths[0][0] == '\0' && applying.rawPaths[1][0] == '\0' &&
      applying.rawPaths[2][0] == '\0') {
    std::memcpy(loader->paths[0], applying.irPath, sizeof(loader->paths[0]));
    loader->pending = true;
    loader->isWaveFile = true;
    loader->trim = applying.trim;
    loader->fade = applying.fade;
    if (loader->irFrames == 0 && loader->convolver)
      loader->LoadWave(loader->paths[0], loader->trim, loader->fade);
    loader->enabled = true;
  } else {
    const char* const raw[4] = {applying.irPath, applying.rawPaths[2], applying.rawPaths[1],
                                applying.rawPaths[0]};
    loader->LoadRaw(raw);
  }
  current = applying;
  return ONDREL_OK;
}

int32_t IrConvolverUnit::Process(float* const* bufs, const int32_t indices[2], int32_t* frames) {
  const int in = current.inChannels;
  const int out = current.outChannels;
  const int32_t n = *frames;
  if (in < 1 || in > 2 || out < 1 || n <= 0) return ONDREL_OK;
  if (interleaved.size() < static_cast<size_t>(n) * in) {
    if (!TryAllocating([&] { interleaved.resize(static_cast<size_t>(n) * in); })) {
      return ONDREL_E_NOMEM;
    }
  }
  float* data = interleaved.data();
  for (int c = 0; c < in; ++c) {
    const float* channel = bufs[indices[c]];
    for (int32_t i = 0; i < n; ++i) data[i * in + c] = channel[i];
  }
  int32_t count = n * in;
  const int32_t status = loader ? loader->Process(data, &count) : ONDREL_OK;
  const int32_t got = count / out;
  *frames = got > 0 ? got : 0;
  if (got >= 1) {
    for (int c = 0; c < out; ++c) {
      float* channel = bufs[indices[c]];
      for (int32_t i = 0; i < got; ++i) channel[i] = data[i * out + c];
    }
  }
  return status;
}

int32_t IrConvolverUnit::GetLatency() { return loader ? loader->GetLatency() : 0; }

void IrConvolverUnit::Reset() {
  if (loader) loader->Reset();
}

// ---------------------------------------------------------------------------
// StudioIrEffect

StudioIrEffect::StudioIrEffect() {
  SetEffectName("zh", "脉冲响应");
  SetEffectName("zh-TW", "脈衝響應");
  SetEffectName("zh-HK", "脈衝響應");
  SetEffectName("ja", "コンボリューション");
  SetEffectName("en", "Convolution");
  SetParamTable(kParams);
  SetParamLabels("IR File", "zh", "脉冲文件", "zh-TW", "脈沖文件", "zh-HK", "脈沖文件", "ja",
                 "コンボリューション・ファイル", "en", "", nullptr);
  SetParamLabels("Trim", "zh", "裁剪", "ja", "トリム", "en", "", nullptr);
  SetParamLabels("Fade", "zh", "淡失", "ja", "フェード", "en", "", nullptr);
  effectType = EFFECT_STUDIO_IR;
  scriptVersion = 3;
}

StudioIrEffect::~StudioIrEffect() { units.Clear(); }

AudioEffect* StudioIrEffect::CreateInstance() { return NewObject<StudioIrEffect>(); }

int32_t StudioIrEffect::GetBlockSize() { return kIrBlockSize; }

int32_t StudioIrEffect::GetLatency() {
  IrConvolverUnit* first = units.First();
  return first != nullptr ? first->GetLatency() : 0;
}

void StudioIrEffect::ResetDsp() {
  units.ForEach([](IrConvolverUnit& unit, const ChannelGroup&) { unit.Reset(); });
}

void StudioIrEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

int32_t StudioIrEffect::UpdateParams() {
  IrConfig config;
  std::memset(&config, 0, sizeof(config));
  // A rate that does not fit an integer counts as 0.
  const float hostRate = GetSampleRate();
  config.sampleRate = hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int>(hostRate) : 0;

  int32_t size = 0;
  char* value = static_cast<char*>(GetParamData(kIrFileParam, &size));
  if (size > kIrPathBytes) {
    units.Rebuild(GetChannels(), handle.inputMask,
                  [](const ChannelGroup&, int32_t*) -> IrConvolverUnit* { return nullptr; });
    return ONDREL_E_NOMEM;
  }
  if (value != nullptr && size > 0) {
    // The stored value itself is normalised, so that it reads back with
    // slashes.
    for (int32_t i = size; i > 0; --i)
      if (value[i - 1] == '\\') value[i - 1] = '/';
    std::memcpy(config.irPath, value, static_cast<size_t>(size));
  }
  config.trim = GetScriptedParamByName("Trim");
  config.fade = GetScriptedParamByName("Fade");

  return units.Rebuild(
      GetChannels(), handle.inputMask,
      [&](const ChannelGroup& g, int32_t* status) -> IrConvolverUnit* {
        if (g.count == 1 && (units.layout()->channelMap[g.first] & kDryPositions) != 0)
          return nullptr;
        IrConvolverUnit* unit = NewObject<IrConvolverUnit>();
        if (unit == nullptr) {
          *status = ONDREL_E_NOMEM;
          return nullptr;
        }
        IrConfig own = config;
        own.inChannels = g.count;
        own.outChannels = g.count;
        unit->Apply(own);
        return unit;
      });
}

int32_t StudioIrEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t offered = *frames;
  int32_t given = offered;
  int32_t status = ONDREL_OK;
  units.Run(static_cast<int32_t>(bufs.size()),
            [&](IrConvolverUnit& unit, const ChannelGroup&, int32_t first, int32_t second) {
              if (status != ONDREL_OK) return;
              const int32_t indices[2] = {first, second};
              given = offered;
              status = unit.Process(bufs.data(), indices, &given);
            });
  *frames = given;
  return status;
}

}  // namespace STUDIO_IR
}  // namespace ONDREL2
