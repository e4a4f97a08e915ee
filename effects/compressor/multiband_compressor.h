// MultiBandCompressorEffect: three-band compressor on the mid signal of a
// stereo pair, with the side signal passed at a fixed width.
//
// The sum L + R is split by one-pole crossovers into low, mid and high
// bands; mid and high are compressed by envelope followers, and the three
// are summed again. The effect always sounds the same: its parameter table
// is stored, streamed and displayed like any other, but processing runs a
// fixed voicing (voicing_table.h) and reads no parameter. The low band is
// ducked by the high band's gain, by design.
//
// Only a 2-channel stream is processed; any other channel count passes
// unchanged. No latency, block size 512. All state is six floats (three
// envelopes, three crossover states); UpdateParams, run after any
// parameter, rate or channel change, zeroes them, while a clear or flush
// leaves them alone. Denormals are cut at the end of each block. The block
// path neither allocates nor locks.
#pragma once

#include "effects/compressor/voicing_table.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace COMPRESSOR {

class MultiBandCompressorEffect : public IOndrel2 {
 public:
  MultiBandCompressorEffect();
  ~MultiBandCompressorEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // Envelopes of the three bands (the low one is followed but not used).
  float envLow = 0.0f;
  float envMid = 0.0f;
  float envHigh = 0.0f;
  // Crossover states.
  float lowStage1 = 0.0f;
  float split = 0.0f;
  float lowStage2 = 0.0f;
  Voicing voicing = kVoicing;
  // Non-zero: the right channel's polarity is swapped on the way in and out.
  int32_t msSwap = 0;
};

}  // namespace COMPRESSOR
}  // namespace ONDREL2
