// DeEsserEffect: three-way split with a fast limiter on the high part.
//
// A one-pole low pass and a second one-pole stage split each sample into
// low, mid and high parts; the high part, scaled by the drive gain, is
// limited by a peak envelope against the threshold and added back.
// Parameters: `Thresh` and `Drive` (their sliders run in linear gain) and
// `Frequency` in Hz. The threshold and drive gain are 10^(3 * Thresh - 3)
// and 10^(2 * Drive - 1) of the values as read: the effect's own scale, so
// at the defaults the threshold underflows to 0 and the drive gain is 0.1.
//
// One set of filter and envelope states serves all channels, which run
// through it in turn, sample by sample; so the channels influence each
// other, by design. No latency, block size 512. A parameter, rate or
// channel change zeroes the states; a clear or flush leaves them alone.
// Denormals are cut at the end of each block. The block path neither
// allocates nor locks.
#pragma once

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace DEESSER_EFFECT {

class DeEsserEffect : public IOndrel2 {
 public:
  DeEsserEffect();
  ~DeEsserEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  float low = 0.0f;       // low-pass state
  float midState = 0.0f;  // second stage state
  float gain = 0.0f;      // drive of the high part
  float threshold = 0.0f;
  float attack = 0.0f;
  float release = 0.0f;
  float envelope = 0.0f;  // signed peak envelope of the driven high part
  float coef = 0.0f;      // filter coefficient
};

}  // namespace DEESSER_EFFECT
}  // namespace ONDREL2
