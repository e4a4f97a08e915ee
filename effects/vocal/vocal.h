// VocalEffect: lifts the presence of voices.
//
// Each channel first gets a first-difference emphasis, y = x + amount *
// (x - previous x), with amount = `Vocal` / 127 (0 to 127, default 12.7),
// then a fixed curve of ten equaliser bands (EqfbBand, width 1.22474492)
// at the octave centres from 31.25 Hz to 16 kHz, lifting 2 kHz by 2 dB,
// 4 kHz by 3 dB and 8 kHz by 2 dB. Bands at or above half the sample rate
// are bypassed.
//
// Blocks of 512 frames, no latency; ProcessBlock allocates nothing. Filter
// states and the previous sample survive a parameter change; a change of
// channels or rate builds new ones. A flush clears them (the queues keep
// what they hold).
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/eqfb_band.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace VOCAL {

constexpr int32_t kBands = 10;

// The emphasis of one channel.
struct Voice {
  float previous = 0.0f;
  float amount = 0.0f;
};

struct ChannelBands {
  EqfbBand band[kBands];
};

class VocalEffect : public IOndrel2 {
 public:
  VocalEffect();
  ~VocalEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  void ResetDsp() override;
  void ClearBuffers() override;

  std::unique_ptr<ChannelBands[]> bands;  // one curve per channel
  std::unique_ptr<Voice[]> voices;        // one per channel
  int32_t builtChannels = 0;
  int32_t builtOutChannels = 0;
  int32_t builtRate = 0;
};

}  // namespace VOCAL
}  // namespace ONDREL2
