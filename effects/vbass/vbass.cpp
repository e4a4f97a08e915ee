#include "effects/vbass/vbass.h"
#include "framework/alloc.h"

#include <new>

namespace ONDREL2 {
namespace VBASS {
namespace {

const ParamDesc kParams[] = {
    {"Crossover cutoff", false, 50.0f, 500.0f, 500.0f, 1.0f, 250.0f, &FormatHertz, 2, 0, nullptr,
     nullptr, false},
    {"Effect level", false, 0.300000012f, 3.0f, 3.0f, 1.0f, 1.0f, &FormatPlain, 0, 0, nullptr,
     nullptr, false},
    {""},
};

int32_t RateOf(float rate) {
  return rate >= 0.0f && rate < 2147483648.0f ? static_cast<int32_t>(rate) : 0;
}

}  // namespace

VBassDspWrapper::VBassDspWrapper() : dsp(new VirtualBassDsp()) {}

VBassDspWrapper::VBassDspWrapper(float rate, int32_t chns, uint64_t bits)
    : dsp(new VirtualBassDsp()), channels(chns), sampleRate(RateOf(rate)), channelBits(bits) {}

VBassDspWrapper::~VBassDspWrapper() = default;

ON_DSP_WRAPPERS::IDspWrapper* VBassDspWrapper::Create(float rate, int32_t chns, uint64_t bits) {
  VBassDspWrapper* made = nullptr;
  TryAllocating([&] { made = new VBassDspWrapper(rate, chns, bits); });
  return made;
}

int32_t VBassDspWrapper::UpdateParams(AudioEffect* runner) {
  // The rate is taken from the runner; the processor picks it up at its
  // next block.
  sampleRate = RateOf(runner->GetSampleRate());
  char text[256];
  const int32_t count = runner->GetAEffect()->numParams;
  for (int32_t i = 0; i < count; ++i) {
    text[0] = '\0';
    runner->GetParamDisplay(i, text);
    dsp->SetParam(i, text);
  }
  return ONDREL_OK;
}

int32_t VBassDspWrapper::GetLatency() { return 0; }

void VBassDspWrapper::Reset() { dsp->ClearHistories(); }

int32_t VBassDspWrapper::ProcessInterleaved(float* samples, int32_t frames, const int32_t*) {
  if (samples == nullptr || channels != 2) return frames;
  dsp->Process(samples, frames, sampleRate);
  return frames;
}

VirtualBassEffect::VirtualBassEffect() : DspWrapperRunner(new VBassDspWrapper()) {
  SetEffectType(EFFECT_VBASS);
  SetEffectName("zh", "虚拟低音");
  SetEffectName("en", "Virtual Bass");
  SetParamTable(kParams);
  SetScriptVersion(4);
  UpdateParams();
}

VirtualBassEffect::~VirtualBassEffect() = default;

AudioEffect* VirtualBassEffect::CreateInstance() {
  VirtualBassEffect* made = nullptr;
  TryAllocating([&] { made = new VirtualBassEffect(); });
  return made;
}

}  // namespace VBASS
}  // namespace ONDREL2
