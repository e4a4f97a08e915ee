// DfxHyperbassEffect: a bass boost of up to 15 dB, a bell at 90 Hz.
//
// `Hyperbass` 0..127, truncated, sets the peak gain g = 15/127 * amount dB;
// 0 gives the identity. The bell (DesignBell) has gain 1 at DC and at the
// Nyquist frequency, its peak G = 10^(g/20) at f0, and a bandwidth of f0 / W
// hertz measured at the level B (G/sqrt 2 from 6 dB up, sqrt G below).
// W is the width 2.5, narrowed for small boosts to g*3.3 + 0.2 so that a
// gentle boost stays a gentle bump (and for f0 below 60 Hz to
// (f0 - 20)*0.475 + 1). Each channel runs one section in transposed direct
// form. A parameter move redesigns and keeps the state; a change of
// channels or rate starts afresh. A clear (ClearBuffers) resets the
// sections and leaves the queues alone. No latency, block size 512; the
// block path neither allocates nor locks.
#pragma once

#include <cstdint>
#include <memory>

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace DFXHYPERBASS {

// One channel's section: coefficients and the two state values.
struct Section {
  float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;
  float s1 = 0.0f, s2 = 0.0f;
};

// The bell's coefficients together with the gain (dB) and width it used.
struct BellDesign {
  float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;
  float gainDb = 0.0f;
  float width = 0.0f;
};

// The bell at `f0` Hz for `rate`, with the gain running from `lowGain` at
// amount 0 to `highGain` at 127 (dB). `rate` must be positive.
BellDesign DesignBell(int32_t amount, double f0, int32_t rate, float width, float lowGain,
                      float highGain);

class DfxHyperbassEffect : public IOndrel2 {
 public:
  DfxHyperbassEffect();
  ~DfxHyperbassEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  void ResetDsp() override;
  void ClearBuffers() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // One section per input channel; null until the first successful update.
  std::unique_ptr<Section[]> sections;
  int32_t cachedChannels = 0;
  int32_t cachedOutChannels = 0;
  int32_t cachedRate = 0;
};

}  // namespace DFXHYPERBASS
}  // namespace ONDREL2
