// PitchShifterEffect: shifts the pitch by `Key` semitones (-12 to 12,
// fractional allowed) without changing the speed, through a SoundTouch
// engine on interleaved 32-bit floats.
//
// Every parameter pass (a new `Key`, rate or channel count) builds a new
// engine and drops the old one with the samples it held, so a short gap
// follows each change. The engine fills its pipeline before it gives
// anything back: the first blocks leave fewer frames, or none, and the
// stream is delayed by the engine's pipeline although GetLatency reports 0.
// A flush does not reach the engine (ResetDsp does nothing). Block size 512.
// The block path reuses one interleave buffer once it has grown.
#pragma once

#include <memory>
#include <vector>

#include "framework/ondrel2.h"

namespace soundtouch {
class SoundTouch;
}

namespace ONDREL2 {
namespace PITCHSHIFTER {

class PitchShifterEffect : public IOndrel2 {
 public:
  PitchShifterEffect();
  ~PitchShifterEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // Null only when the engine refused the format (channels outside 1 to
  // 16, a rate above 192 kHz); blocks then pass unchanged.
  std::unique_ptr<soundtouch::SoundTouch> engine;

 private:
  std::vector<float> interleaved;
};

}  // namespace PITCHSHIFTER
}  // namespace ONDREL2
