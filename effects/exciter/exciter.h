// ExciterEffect: harmonics added to the upper range.
//
// Per channel, a one-pole low pass at `Frequency` splits off the high part;
// the high part, driven by `ClipBoost`, is clipped to +-1 and shaped by a
// soft saturator whose knee follows the level of the whole input sample:
//   w = (shape + 1) * d / (|x| * shape + 1),  shape = 2h / (1 - h)
// with h = `Harmonics` / 100. The high part of w (w minus its own one-pole
// low pass) is mixed onto the dry signal at `MixBack`.
//
// Decibel parameters become gains as exp(dB / 8.65617) rather than through
// 20 / ln 10; the third of a percent between the two is part of the sound.
// The |x| of the saturator's denominator is the input, not the driven value;
// that is deliberate too.
//
// Up to 64 channels, block size 512, no latency. Every run of UpdateParams
// and every clear (ClearBuffers, ResetDsp, flush) zeroes the filter states.
// ProcessBlock allocates nothing.
#pragma once

#include <cstdint>

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace EXCITER {

constexpr int32_t kMaxChannels = 64;

class ExciterEffect : public IOndrel2 {
 public:
  ExciterEffect();
  ~ExciterEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  void ResetDsp() override;
  void ClearBuffers() override;

  float inState[kMaxChannels] = {};
  float outState[kMaxChannels] = {};
  float a = 0.0f;  // one-pole input coefficient
  float b = 0.0f;  // minus the one-pole feedback coefficient
  float clipDrive = 1.0f;
  float shape = 0.0f;
  float mix = 0.0f;

 private:
  void ClearState();
};

}  // namespace EXCITER
}  // namespace ONDREL2
