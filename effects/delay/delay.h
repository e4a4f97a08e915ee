// DelayEffect: feedback delay with its own time and feedback for each
// channel of a group.
//
// `Left Time` / `Right Time` in whole milliseconds (0 to 1000), `Left
// Feedback` / `Right Feedback` in whole percent (0 to 120). Only the delayed
// signal leaves the effect: there is no dry path, so the first `Left Time`
// of the output is silence. Feedback above 100% is allowed and grows
// without limit; nothing holds it back. A single-channel group, whatever
// its speaker, takes the left settings.
//
// Each channel is a ring of L = time * rate samples (at least one slot):
// the output is the ring's oldest sample, and the input plus that sample
// times the feedback takes its place. A time of 0 gives one sample of delay.
// Any parameter, rate or layout change rebuilds the rings empty; a flush
// keeps them as they are. No latency is reported, block size 512; the block
// path neither allocates nor locks.
#pragma once

#include <cstdint>

#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace DELAY {

struct DelayUnit {
  DelayUnit() = default;
  ~DelayUnit();
  DelayUnit(const DelayUnit&) = delete;
  DelayUnit& operator=(const DelayUnit&) = delete;

  int32_t timeMs[2] = {};
  int32_t feedbackPercent[2] = {};
  int32_t channels = 1;
  int32_t sampleRate = 44100;
  float* buffer[2] = {};  // AllocBlock, owned (std::free)
  int32_t position[2] = {};
};

class DelayEffect : public IOndrel2 {
 public:
  DelayEffect();
  ~DelayEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  void ClearBuffers() override;
  void ResetDsp() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  int32_t GetLatency() override;
  // Releases all units and the grouping.
  virtual void FreeUnits();

  GroupUnits<DelayUnit> units;
};

}  // namespace DELAY
}  // namespace ONDREL2
