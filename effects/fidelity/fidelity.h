// FidelityEffect: adds sine-shaped harmonics of the band above 1736.58 Hz.
//
// Each channel runs a second-order high pass (q 0.7071); the band, times a
// drive of `Fidelity` * 3.39292 / 127, goes through a sine shaper, and
// 0.377953 * 1.5 * sin of it is added to the dry sample. `Fidelity` 0..127,
// 0 leaves the audio unchanged. A parameter move redesigns the filters and
// keeps their state; a change of channels or rate starts them afresh. A
// clear (ClearBuffers) resets the filters and leaves the queues alone. No
// latency, block size 512; the block path neither allocates nor locks.
#pragma once

#include <memory>

#include "dsp/enhancer_highpass.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace FIDELITY {

class FidelityEffect : public IOndrel2 {
 public:
  FidelityEffect();
  ~FidelityEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  void ResetDsp() override;
  void ClearBuffers() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // One filter per input channel; null until the first successful update.
  std::unique_ptr<EnhancerHighPass[]> filters;
  float drive = 0.0f;
  int32_t cachedChannels = 0;
  int32_t cachedOutChannels = 0;
  int32_t cachedRate = 0;
};

}  // namespace FIDELITY
}  // namespace ONDREL2
