// AmplifierEffect: a plain gain stage.
//
// One parameter, `Gain` in dB (-96 to +18; the slider runs in linear gain).
// Every sample of every channel is multiplied by the linear gain. No
// latency, block size 512, no state beyond the gain factor.
#pragma once

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace AMPLIFIER {

class AmplifierEffect : public IOndrel2 {
 public:
  AmplifierEffect();
  ~AmplifierEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // Linear factor applied to every sample.
  float gain = 1.0f;
};

}  // namespace AMPLIFIER
}  // namespace ONDREL2
