#include "effects/delay/delay.h"
#include "framework/alloc.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

namespace ONDREL2 {
namespace DELAY {
namespace {

const ParamDesc kParams[] = {
    {"Left Time", false, 0.0f, 1000.0f, 1000.0f, 1.0f, 120.0f, &FormatWholeMilliseconds, 0, 0,
     nullptr, nullptr, false},
    {"Right Time", false, 0.0f, 1000.0f, 1000.0f, 1.0f, 260.0f, &FormatWholeMilliseconds, 0, 0,
     nullptr, nullptr, false},
    {"Left Feedback", false, 0.0f, 120.0f, 120.0f, 1.0f, 10.0f, &FormatPercent, 0, 0, nullptr,
     nullptr, false},
    {"Right Feedback", false, 0.0f, 120.0f, 120.0f, 1.0f, 10.0f, &FormatPercent, 0, 0, nullptr,
     nullptr, false},
    {""},
};

// Longest time a ring is made for: a minute, far beyond the slider, so that
// a value stored outside the bounds can't ask for an absurd allocation.
constexpr int32_t kMaxTimeMs = 60000;

// Truncation to an integer; what does not fit (NaN, huge) counts as 0.
int32_t Truncated(double value) {
  if (!(value > -2147483648.0 && value < 2147483648.0)) return 0;
  return static_cast<int32_t>(value);
}

// Ring length in samples of a channel.
int64_t RingLength(int32_t timeMs, int32_t rate) {
  return static_cast<int64_t>((timeMs / 1000.0) * rate);
}

}  // namespace

DelayUnit::~DelayUnit() {
  std::free(buffer[0]);
  std::free(buffer[1]);
}

DelayEffect::DelayEffect() {
  SetEffectName("zh", "延迟");
  SetEffectName("zh-TW", "延遲");
  SetEffectName("zh-HK", "延遲");
  SetEffectName("ja", "ディレー");
  SetEffectName("en", "Delay");
  SetParamTable(kParams);
  SetParamLabels("Left Time", "zh", "左声道时间", "en", "", nullptr);
  SetParamLabels("Right Time", "zh", "右声道时间", "en", "", nullptr);
  SetParamLabels("Left Feedback", "zh", "左声道反馈", "en", "", nullptr);
  SetParamLabels("Right Feedback", "zh", "右声道反馈", "en", "", nullptr);
  effectType = EFFECT_DELAY;
}

DelayEffect::~DelayEffect() = default;

AudioEffect* DelayEffect::CreateInstance() { return NewObject<DelayEffect>(); }

void DelayEffect::FreeUnits() { units.Clear(); }

int32_t DelayEffect::UpdateParams() {
  FreeUnits();
  int32_t time[2] = {Truncated(GetScriptedParamByName("Left Time")),
                     Truncated(GetScriptedParamByName("Right Time"))};
  const int32_t feedback[2] = {Truncated(GetScriptedParamByName("Left Feedback")),
                               Truncated(GetScriptedParamByName("Right Feedback"))};
  // Times stored outside the slider's range are held to 0 .. one minute.
  for (int32_t& t : time) t = t < 0 ? 0 : (t > kMaxTimeMs ? kMaxTimeMs : t);
  const float hostRate = GetSampleRate();
  const int32_t rate =
      hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int32_t>(hostRate) : 0;

  return units.Rebuild(
      GetChannels(), handle.inputMask, [&](const ChannelGroup& g, int32_t* status) -> DelayUnit* {
        DelayUnit* unit = NewObject<DelayUnit>();
        if (unit == nullptr) {
          *status = ONDREL_E_NOMEM;
          return nullptr;
        }
        unit->channels = g.count;
        unit->sampleRate = rate;
        for (int i = 0; i < g.count; ++i) {
          unit->timeMs[i] = time[i];
          unit->feedbackPercent[i] = feedback[i];
          // One slot more than the ring length, zeroed.
          const size_t bytes =
              static_cast<size_t>((time[i] * static_cast<double>(rate) / 1000.0 + 1.0) * 4.0);
          const size_t slots = static_cast<size_t>(RingLength(time[i], rate)) + 1;
          unit->buffer[i] = AllocBlock<float>(std::max(bytes / 4, slots));
          if (unit->buffer[i] == nullptr) {
            delete unit;
            *status = ONDREL_E_NOMEM;
            return nullptr;
          }
        }
        return unit;
      });
}

void DelayEffect::ClearBuffers() {
  IOndrel2::ClearBuffers();
  ResetDsp();
}

// The rings keep what they hold over a flush.
void DelayEffect::ResetDsp() {}

int32_t DelayEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t count = *frames;
  units.Run(static_cast<int32_t>(bufs.size()),
            [&](DelayUnit& unit, const ChannelGroup&, int32_t first, int32_t second) {
              const int32_t slots[2] = {first, second};
              for (int i = 0; i < unit.channels; ++i) {
                float* x = bufs[static_cast<size_t>(slots[i])];
                float* ring = unit.buffer[i];
                const int64_t L = RingLength(unit.timeMs[i], unit.sampleRate);
                const float fb = static_cast<float>(unit.feedbackPercent[i] / 100.0);
                int64_t pos = unit.position[i];
                if (L <= 1) {
                  // A zero-length ring stays at slot 0.
                  for (int32_t n = 0; n < count; ++n) {
                    const float d = ring[0];
                    ring[0] = d * fb + x[n];
                    x[n] = d;
                  }
                  pos = 0;
                } else {
                  // Runs up to the ring's end: each slot is read and written
                  // once per run, so the loop works in vector lanes.
                  for (int32_t n = 0; n < count;) {
                    if (pos >= L) {
                      // Left past a ring that has since become shorter: one
                      // sample there, then back to the start.
                      const float d = ring[pos];
                      ring[pos] = d * fb + x[n];
                      x[n] = d;
                      pos = 0;
                      ++n;
                      continue;
                    }
                    const int32_t run = static_cast<int32_t>(std::min<int64_t>(count - n, L - pos));
                    float* slot = ring + pos;
                    float* y = x + n;
                    for (int32_t k = 0; k < run; ++k) {
                      const float d = slot[k];
                      slot[k] = d * fb + y[k];
                      y[k] = d;
                    }
                    n += run;
                    pos += run;
                    if (pos >= L) pos = 0;
                  }
                }
                unit.position[i] = static_cast<int32_t>(pos);
              }
            });
  return ONDREL_OK;
}

int32_t DelayEffect::GetLatency() { return 0; }

}  // namespace DELAY
}  // namespace ONDREL2
