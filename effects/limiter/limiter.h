// LimiterEffect: brick-wall peak limiter with look-ahead, per channel group.
//
// The channels are grouped by speaker role (a stereo pair shares one gain
// curve, a centre or LFE channel limits alone) and each group runs its own
// LookaheadLimiter in place over the block. Parameters: `In`, `Out`,
// `Limit` in dB (-96 to 0, sliders run in linear gain), `Attack Time` (the
// look-ahead, 0.1 to 80 ms), `Release Time` (1 to 8000 ms), the switches
// `Auto Release` and `Auto Level` and `Auto Release Level` (0 to 1).
//
// Latency: GetLatency reports bufferSize / channels frames of the first
// group, the look-ahead. A frame actually leaves the ring one frame sooner,
// so a flushed stream ends with one extra frame of silence. The figure is
// kept as it is on purpose: the length of flushed streams depends on it.
// Block size 512. Any change of a parameter, rate or channels rebuilds the
// kernels, look-ahead content included; a clear (ClearBuffers, ResetDsp)
// keeps the format and returns the gain to 1. The block path neither
// allocates nor locks.
#pragma once

#include "dsp/lookahead_limiter.h"
#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace LIMITER {

class LimiterEffect : public IOndrel2 {
 public:
  LimiterEffect();
  ~LimiterEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  void ResetDsp() override;
  void ClearBuffers() override;
  int32_t GetLatency() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // One kernel per channel group; no grouping until the first UpdateParams.
  GroupUnits<LookaheadLimiter> units;
};

}  // namespace LIMITER
}  // namespace ONDREL2
