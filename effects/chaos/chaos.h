// ChaosEffect: changes the channel count of the stream and routes, folds
// and mixes channels.
//
// Each side's count is a multiple or a fraction of the channel count that
// reaches the effect (the source): `Input Multiplier` and `Output
// Multiplier` floor to n, giving (n + 1) times the source for n >= 0 and
// source / (1 - n) below. Channel c of the block is routed from source c
// to destination `shift` + c; `Wrap` folds both indices into their counts,
// otherwise a route outside a count doesn't exist. `Shift` moves every
// destination by the host's channel count. `Mixing Type`: "Off" (a later
// route overwrites an earlier one), "Mix" (routes sum), "Average" (routes
// sum, divided by how many reach the destination).
//
// UpdateParams returns ONDREL_CHANNELS_CHANGED when either count changed, so
// that whoever feeds the effect learns of the new width. The Average
// weights are counted onto what the previous update left, without zeroing
// first: repeated updates weigh routes less each time, deliberately kept
// since stored chains sound the way they were saved.
//
// No latency, block size 512, no audio state but the copy of the block the
// routes read from (allocated once, on the first block of a new width).
#pragma once

#include <cstdint>
#include <vector>

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace CHAOS {

class ChaosEffect : public IOndrel2 {
 public:
  ChaosEffect();
  ~ChaosEffect() override;
  AudioEffect* CreateInstance() override;
  void SetChannels(int32_t chns, uint64_t mask) override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // Channel c's source and destination; false when c has no route.
  bool Route(int32_t c, int32_t* source, int32_t* destination) const;

  int32_t shift = 0;
  bool wrap = false;
  int32_t mixing = 0;
  int32_t sourceChannels = 2;
  uint64_t sourceMask = 0;
  float weights[64] = {};
  std::vector<float*> scratch;  // one pointer per channel into one block

 private:
  float* scratchBlock_ = nullptr;
};

}  // namespace CHAOS
}  // namespace ONDREL2
