#include "effects/reverb/reverb.h"
#include "framework/alloc.h"

#include <cmath>
#include <new>

namespace ONDREL2 {
namespace ALREVERB {
namespace {

// Linear throughout (center = max, shape 1), no labels. All defaults are 0
// but the switch: a new effect is silent until a parameter set arrives.
const ParamDesc kParams[] = {
    {"density", false, 0.0f, 2.0f, 2.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {"diffusion", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {"reverbGain", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"lowpass_gain", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"highpass_gain", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"decay_time", false, 0.0f, 2.0f, 2.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"lowpass_ratio", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"early_gain", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"late_gain", false, 0.0f, 4.0f, 4.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {"lowpass_reference", false, 0.0f, 5000.0f, 5000.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr,
     nullptr, false},
    {"highpass_reference", false, 0.0f, 250.0f, 250.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr,
     nullptr, false},
    {"echo_time", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr, false},
    {"echo_depth", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"modulation_time", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"modulation_depth", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"early_delay", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"late_delay", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {"lowpass_air_absorption_gain", false, 0.0f, 1.0f, 1.0f, 1.0f, 0.0f, &FormatPlain, 0, 0,
     nullptr, nullptr, false},
    {"b_decay_lowpass_limit", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, kSwitchMax, &FormatOnOff,
     0, 0, nullptr, nullptr, false},
    {""},
};

// Speaker positions whose lone channel stays dry: front left/right, centre,
// low frequency (and any position number sharing a bit with this mask).
constexpr int kDryPositions = 0x23;

// Truncation to an integer; what does not fit (NaN, huge) counts as 0.
int32_t Truncated(double value) {
  if (!(value > -2147483648.0 && value < 2147483648.0)) return 0;
  return static_cast<int32_t>(value);
}

}  // namespace

AlreverbEffect::AlreverbEffect() {
  SetEffectName("zh", "环境音效");
  SetParamTable(kParams);
  effectType = EFFECT_ALREVERB;
}

AlreverbEffect::~AlreverbEffect() = default;

AudioEffect* AlreverbEffect::CreateInstance() { return NewObject<AlreverbEffect>(); }

int32_t AlreverbEffect::UpdateParams() {
  units.Clear();
  ReverbSettings s;
  s.sampleRate = Truncated(GetSampleRate());
  s.density = GetScriptedParamByName("density");
  s.diffusion = GetScriptedParamByName("diffusion");
  s.reverbGain = GetScriptedParamByName("reverbGain");
  s.lowpass_gain = GetScriptedParamByName("lowpass_gain");
  s.highpass_gain = GetScriptedParamByName("highpass_gain");
  s.decay_time = GetScriptedParamByName("decay_time");
  s.lowpass_ratio = GetScriptedParamByName("lowpass_ratio");
  s.early_gain = GetScriptedParamByName("early_gain");
  s.late_gain = GetScriptedParamByName("late_gain");
  s.lowpass_reference = GetScriptedParamByName("lowpass_reference");
  s.highpass_reference = GetScriptedParamByName("highpass_reference");
  s.echo_time = GetScriptedParamByName("echo_time");
  s.echo_depth = GetScriptedParamByName("echo_depth");
  s.modulation_time = GetScriptedParamByName("modulation_time");
  s.modulation_depth = GetScriptedParamByName("modulation_depth");
  s.early_delay = GetScriptedParamByName("early_delay");
  s.late_delay = GetScriptedParamByName("late_delay");
  s.lowpass_air_absorption_gain = GetScriptedParamByName("lowpass_air_absorption_gain");
  s.b_decay_lowpass_limit =
      Truncated(std::floor(static_cast<double>(GetScriptedParamByName("b_decay_lowpass_limit"))));

  // A rate of 0 or less has no meaningful design: every group stays dry.
  if (s.sampleRate <= 0) return ONDREL_OK;
  units.Rebuild(GetChannels(), handle.inputMask,
                [&](const ChannelGroup& g, int32_t*) -> AlreverbUnit* {
                  if (g.count == 1 && (units.layout()->channelMap[g.first] & kDryPositions) != 0)
                    return nullptr;
                  AlreverbUnit* unit = NewObject<AlreverbUnit>();
                  if (unit == nullptr) return nullptr;
                  ReverbSettings own = s;
                  own.channelsIn = own.channelsOut = g.count;
                  // A unit whose lines could not all be sized would read
                  // unallocated rings: its group stays dry instead.
                  if (unit->Apply(own) != ONDREL_OK) {
                    delete unit;
                    return nullptr;
                  }
                  return unit;
                });
  return ONDREL_OK;
}

void AlreverbEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

void AlreverbEffect::ResetDsp() {
  units.ForEach([](AlreverbUnit& unit, const ChannelGroup&) { unit.Reset(); });
}

int32_t AlreverbEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  units.Run(static_cast<int32_t>(bufs.size()), [&](AlreverbUnit& unit, const ChannelGroup&,
                                                   int32_t first, int32_t second) {
    unit.Process(bufs[static_cast<size_t>(first)], bufs[static_cast<size_t>(second)], *frames);
  });
  return ONDREL_OK;
}

int32_t AlreverbEffect::GetLatency() { return 0; }

}  // namespace ALREVERB
}  // namespace ONDREL2
