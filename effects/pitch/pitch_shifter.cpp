#include "effects/pitch/pitch_shifter.h"

#include <soundtouch/SoundTouch.h>

#include <memory>
#include <stdexcept>

#include "framework/alloc.h"

namespace ONDREL2 {
namespace PITCHSHIFTER {
namespace {

const ParamDesc kParams[] = {
    {"Key", false, -12.0f, 12.0f, 12.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {""},
};

// The rate as the engine takes it: truncated; what does not fit counts as 0.
unsigned RateOf(float rate) {
  return rate >= 0.0f && rate < 4294967296.0f ? static_cast<unsigned>(rate) : 0u;
}

}  // namespace

PitchShifterEffect::PitchShifterEffect() {
  SetEffectName("zh", "变调器");
  SetEffectName("en", "Pitch Shifter");
  SetParamTable(kParams);
  effectType = EFFECT_PITCH_SHIFTER;
  UpdateParams();
}

PitchShifterEffect::~PitchShifterEffect() = default;

AudioEffect* PitchShifterEffect::CreateInstance() { return NewObject<PitchShifterEffect>(); }

int32_t PitchShifterEffect::UpdateParams() {
  engine.reset();
  int32_t status = ONDREL_OK;
  const bool allocated = TryAllocating([&] {
    // The engine reports a channel count or rate it refuses by throwing;
    // running out of memory is left to TryAllocating.
    try {
      std::unique_ptr<soundtouch::SoundTouch> fresh(new soundtouch::SoundTouch());
      fresh->setChannels(static_cast<unsigned>(GetChannels()));
      fresh->setSampleRate(RateOf(GetSampleRate()));
      fresh->setPitchSemiTones(static_cast<double>(GetScriptedParamByName("Key")));
      // Full seek search; no anti-alias filter in the rate transposer.
      fresh->setSetting(SETTING_USE_QUICKSEEK, 0);
      fresh->setSetting(SETTING_USE_AA_FILTER, 0);
      engine = std::move(fresh);
    } catch (const std::runtime_error&) {
      status = ONDREL_E_INVALID;
    } catch (const std::logic_error&) {
      status = ONDREL_E_INVALID;
    }
  });
  return allocated ? status : ONDREL_E_NOMEM;
}

int32_t PitchShifterEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (engine == nullptr) return ONDREL_OK;
  const int32_t n = *frames;
  const size_t c = bufs.size();
  if (interleaved.size() < static_cast<size_t>(n) * c)
    interleaved.resize(static_cast<size_t>(n) * c);
  for (size_t ch = 0; ch < c; ++ch)
    for (int32_t i = 0; i < n; ++i) interleaved[static_cast<size_t>(i) * c + ch] = bufs[ch][i];
  engine->putSamples(interleaved.data(), static_cast<unsigned>(n));
  const int32_t received =
      static_cast<int32_t>(engine->receiveSamples(interleaved.data(), static_cast<unsigned>(n)));
  *frames = received;
  if (received < 1) return ONDREL_OK;
  for (size_t ch = 0; ch < c; ++ch)
    for (int32_t i = 0; i < received; ++i)
      bufs[ch][i] = interleaved[static_cast<size_t>(i) * c + ch];
  return ONDREL_OK;
}

}  // namespace PITCHSHIFTER
}  // namespace ONDREL2
