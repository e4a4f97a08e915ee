// HyperBassEffect: bass lift with a fixed tilt that takes the top back.
//
// Each channel runs a one-pole low band, mixes it onto the signal and scales
// the sum:
//   low = (low * Selectivity + x) / (Selectivity + 1)
//   y   = (Ratio * low + x) * Gain
// then passes y through ten fixed equaliser bands (31.25 Hz to 16 kHz, 0 dB
// at the bottom falling to -3 dB from 1 kHz up), which return the upper
// range to about its level. Parameters: `Selectivity` (0 to 127, the low
// band's memory: higher is lower), `Gain` (0 to 2) and `Ratio` (0 to 2).
//
// The tilt is designed for max(rate, 44100) Hz: below 44.1 kHz it keeps the
// band layout of 44.1 kHz in the rate's place. That is deliberate; the
// sound at low rates depends on it.
//
// Block size 512, no latency. Every run of UpdateParams clears the low band
// and the tilt's states; a change of channels or rate also rebuilds the
// per-channel arrays. A clear (ClearBuffers, ResetDsp) zeroes the states and
// leaves the queues. ProcessBlock allocates nothing.
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/eqfb_band.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace HYPERBASS {

// One channel's settings and low-band memory.
struct Voice {
  float gain = 0.0f;
  float selectivity = 0.0f;
  float ratio = 0.0f;
  float low = 0.0f;
};

constexpr int32_t kTiltBands = 10;

class HyperBassEffect : public IOndrel2 {
 public:
  HyperBassEffect();
  ~HyperBassEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  void ResetDsp() override;
  void ClearBuffers() override;

  // kTiltBands records per channel, channel after channel.
  std::unique_ptr<EqfbBand[]> bands;
  std::unique_ptr<Voice[]> voices;
  int32_t builtChannels = 0;
  int32_t builtOutChannels = 0;
  int32_t builtRate = 0;
};

}  // namespace HYPERBASS
}  // namespace ONDREL2
