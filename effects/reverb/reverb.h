// AlreverbEffect: algorithmic room reverb, one AlreverbUnit per channel
// group, wet signal added to the dry channels in place.
//
// Nineteen plain linear parameters (density, diffusion, gains, decay and
// delay times in seconds, shelf corners in Hz, the air-absorption switch).
// Every default but the switch is 0, so a new effect adds nothing until a
// parameter set reaches it: its wet path is silent, not its dry path.
// A single channel whose speaker is front left/right, centre or one of the
// low-frequency positions (position number sharing a bit with 0x23) gets no
// unit and passes dry.
//
// Any change of a parameter, the rate or the layout rebuilds all units, so
// the tail is lost; ClearBuffers and ResetDsp clear the units and keep their
// design. No latency, block size 512; the block path neither allocates nor
// locks.
#pragma once

#include "effects/reverb/reverb_unit.h"
#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace ALREVERB {

class AlreverbEffect : public IOndrel2 {
 public:
  AlreverbEffect();
  ~AlreverbEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  void ClearBuffers() override;
  void ResetDsp() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  int32_t GetLatency() override;

  // No grouping until the first UpdateParams.
  GroupUnits<AlreverbUnit> units;
};

}  // namespace ALREVERB
}  // namespace ONDREL2
