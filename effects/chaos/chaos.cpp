#include "effects/chaos/chaos.h"

#include <cmath>
#include <cstring>
#include <new>

#include "frame/modulators.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace CHAOS {
namespace {

int32_t FormatMixing(char* buf, const char* name, AudioEffect* effect);

const ParamDesc kParams[] = {
    {"Input Multiplier", false, -3.0f, 3.999999f, 0.0f, 0.5f, 0.0f, &FormatRatio, 0, 0, nullptr,
     nullptr, false},
    {"Output Multiplier", false, -3.0f, 3.999999f, 0.0f, 0.5f, 0.0f, &FormatRatio, 0, 0, nullptr,
     nullptr, false},
    {"Shift", false, 0.0f, 1.999999f, 1.999999f, 1.0f, 0.0f, &FormatOnOff, 0, 0, nullptr, nullptr,
     false},
    {"Wrap", false, 0.0f, 1.999999f, 1.999999f, 1.0f, 0.0f, &FormatOnOff, 0, 0, nullptr, nullptr,
     false},
    {"Mixing Type", false, 0.0f, 2.999999f, 2.999999f, 1.0f, 0.0f, &FormatMixing, 0, 0, nullptr,
     nullptr, false},
    {""},
};

// Floor, then truncate to an integer; what does not fit (NaN, huge) is 0.
int32_t Floored(double value) {
  const double f = std::floor(value);
  if (!(f > -2147483648.0 && f < 2147483648.0)) return 0;
  return static_cast<int32_t>(f);
}

// Truncation toward zero; what does not fit (NaN, huge) is 0.
int32_t Truncated(double value) {
  if (!(value > -2147483648.0 && value < 2147483648.0)) return 0;
  return static_cast<int32_t>(value);
}

int32_t FormatMixing(char* buf, const char* name, AudioEffect* effect) {
  static const char* const kWords[3] = {"Off", "Mix", "Average"};
  int32_t n = Floored(effect->GetParamByName(name));
  n = n < 0 ? 0 : (n > 2 ? 2 : n);
  const TextMap words = {{"en", kWords[n]}};
  effect->LookupLocalized(buf, &words);
  return 0;
}

// The count of one side for a multiplier floored to n. Multipliers stored
// far outside the slider are held to 0 .. 65 channels: every count above
// the queues' 64 fails alike when the buffers are set up.
int32_t CountOf(int32_t n, int32_t source) {
  const int64_t count =
      n >= 0 ? (static_cast<int64_t>(n) + 1) * source : source / (1 - static_cast<int64_t>(n));
  return static_cast<int32_t>(count < 0 ? 0 : (count > 65 ? 65 : count));
}

}  // namespace

ChaosEffect::ChaosEffect() {
  SetEffectName("zh", "混沌");
  SetEffectName("ja", "カオス");
  SetEffectName("en", "Chaos");
  SetParamTable(kParams);
  SetParamLabels("Input Multiplier", "zh", "输入倍率", "en", "", nullptr);
  SetParamLabels("Output Multiplier", "zh", "输出倍率", "en", "", nullptr);
  SetParamLabels("Shift", "zh", "偏移", "en", "", nullptr);
  SetParamLabels("Wrap", "zh", "回绕", "en", "", nullptr);
  SetParamLabels("Mixing Type", "zh", "混合方式", "en", "", nullptr);
  effectType = EFFECT_CHAOS;
}

ChaosEffect::~ChaosEffect() { delete[] scratchBlock_; }

AudioEffect* ChaosEffect::CreateInstance() { return NewObject<ChaosEffect>(); }

// Only records the source format; the counts of both sides are set by
// UpdateParams from it.
void ChaosEffect::SetChannels(int32_t chns, uint64_t mask) {
  if (sourceChannels != chns) {
    sourceChannels = chns;
    paramsDirty = true;
  }
  if (sourceMask != mask) {
    sourceMask = mask;
    paramsDirty = true;
  }
  if (handle.outputMask != mask) {
    handle.outputMask = mask;
    paramsDirty = true;
  }
}

bool ChaosEffect::Route(int32_t c, int32_t* source, int32_t* destination) const {
  const int64_t in = handle.numInputs;
  const int64_t out = handle.numOutputs;
  if (in <= 0 || out <= 0 || c < 0) return false;
  const int64_t moved = static_cast<int64_t>(shift) + c;
  if (wrap) {
    *source = static_cast<int32_t>(c % in);
    *destination = static_cast<int32_t>(moved % out);
    return moved >= 0;
  }
  if (c >= in || moved < 0 || moved >= out) return false;
  *source = c;
  *destination = static_cast<int32_t>(moved);
  return true;
}

int32_t ChaosEffect::UpdateParams() {
  const int32_t oldIn = handle.numInputs;
  const int32_t oldOut = handle.numOutputs;
  handle.numInputs = CountOf(Floored(GetScriptedParamByName("Input Multiplier")), sourceChannels);
  handle.numOutputs = CountOf(Floored(GetScriptedParamByName("Output Multiplier")), sourceChannels);

  shift = Floored(GetScriptedParamByName("Shift"));
  if (shift != 0) {
    const ModulatorMap& system = SystemModulators();
    const auto it = system.find("GV_CHANNELS");
    shift = it != system.end() ? Truncated(it->second) : 0;
  }
  mixing = Floored(GetScriptedParamByName("Mixing Type"));
  if (mixing > 2) mixing = 2;
  wrap = Floored(GetScriptedParamByName("Wrap")) != 0;

  const int32_t status = handle.numInputs != oldIn || handle.numOutputs != oldOut
                             ? ONDREL_CHANNELS_CHANGED
                             : ONDREL_OK;

  const int32_t outputs = handle.numOutputs < 64 ? handle.numOutputs : 64;
  if (mixing == 2) {
    // Routes are counted over the block's channel buffers, one per channel
    // of the wider side. The counts add to the previous weights.
    const int32_t buffers =
        handle.numInputs > handle.numOutputs ? handle.numInputs : handle.numOutputs;
    for (int32_t c = 0; c < buffers; ++c) {
      int32_t source = 0, destination = 0;
      if (Route(c, &source, &destination) && destination < 64) weights[destination] += 1.0f;
    }
    for (int32_t i = 0; i < outputs; ++i)
      if (weights[i] > 0.0f) weights[i] = 1.0f / weights[i];
  } else if (mixing == 1) {
    for (int32_t i = 0; i < outputs; ++i) weights[i] = 1.0f;
  } else {
    for (float& w : weights) w = 0.0f;
  }

  SetupBuffers();
  return status;
}

int32_t ChaosEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t K = static_cast<int32_t>(bufs.size());
  const int32_t block = GetBlockSize();
  if (static_cast<int32_t>(scratch.size()) < K) {
    float* fresh = NewArray<float>(static_cast<size_t>(block) * static_cast<size_t>(K));
    if (fresh == nullptr) return ONDREL_E_NOMEM;
    delete[] scratchBlock_;
    scratchBlock_ = fresh;
    scratch.clear();
    for (int32_t c = 0; c < K; ++c) scratch.push_back(fresh + static_cast<size_t>(c) * block);
  }
  for (int32_t c = 0; c < K; ++c) {
    std::memcpy(scratch[static_cast<size_t>(c)], bufs[static_cast<size_t>(c)],
                sizeof(float) * static_cast<size_t>(block));
    if (c < 64 && weights[c] > 0.0f)
      std::memset(bufs[static_cast<size_t>(c)], 0, sizeof(float) * static_cast<size_t>(block));
  }
  const int32_t n = *frames;
  for (int32_t c = 0; c < K; ++c) {
    int32_t source = 0, destination = 0;
    if (!Route(c, &source, &destination) || source >= K || destination >= K) continue;
    const float* from = scratch[static_cast<size_t>(source)];
    float* to = bufs[static_cast<size_t>(destination)];
    const float w = destination < 64 ? weights[destination] : 0.0f;
    if (w > 0.0f) {
      for (int32_t i = 0; i < n; ++i) to[i] += from[i] * w;
    } else {
      std::memcpy(to, from, sizeof(float) * static_cast<size_t>(n));
    }
  }
  return ONDREL_OK;
}

}  // namespace CHAOS
}  // namespace ONDREL2
