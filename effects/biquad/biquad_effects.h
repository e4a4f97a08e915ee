// Single-biquad filter effects: one second-order section of one shape on
// every channel.
//
//   type 29 LPFilterEffect  "HighCutFilter"   Frequency, Q
//   type 30 HPFilterEffect  "LowCutFilter"    Frequency, Q
//   type 31 BPFilterEffect  "BandPassFilter"  LowEdge, HighEdge
//   type 32 NTFilterEffect  "NotchFilter"     LowEdge, HighEdge
//   type 33 LSFilterEffect  "LowShelfFilter"  Frequency, Q, Gain
//   type 34 HSFilterEffect  "HighShelfFilter" Frequency, Q, Gain
//   type 35 PKFilterEffect  "BellFilter"      LowEdge, HighEdge, Gain
//   type 36 APFilterEffect  "AllPassFilter"   Frequency, Q
//
// The names go by what the filter removes: the low pass is the high-cut.
// Frequencies and edges are in Hz, Gain in dB. Two-edge effects order their
// edges, so LowEdge 5000 with HighEdge 1000 is the band 1000 to 5000.
//
// Guarded effects (low pass, high pass, band pass, notch, bell) leave the
// audio untouched when their (upper) frequency reaches half the sample
// rate, and the band pass also when its two edges are equal. Shelves and
// the all pass have no guard and are designed as the values stand.
//
// Blocks of 512 frames, no latency. ProcessBlock allocates nothing and is
// real-time safe. Every run of UpdateParams (any parameter, rate or channel
// change) builds new filters, whose delay values start from zero; a clear
// or a flush keeps the delay values.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/biquad.h"
#include "framework/alloc.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace BIQUADFILTER {

struct BiquadShape;

// What the eight effects share: the filter per channel, the guard, the
// update from the parameters and the per-sample recursion. A row of the
// shape table tells them apart.
class BiquadEffectBase : public IOndrel2 {
 public:
  ~BiquadEffectBase() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // One filter per channel, index = channel.
  std::vector<std::unique_ptr<BiquadFilter::Filter>> filters;
  // Guarded effects only: the audio passes untouched.
  bool passThrough = false;

 protected:
  explicit BiquadEffectBase(ONDREL_EFFECT_TYPE type);

 private:
  // Drops the old filters and builds one per channel with `make`.
  template <typename Make>
  void BuildFilters(Make make) {
    filters.clear();
    const int32_t channels = GetChannels();
    for (int32_t c = 0; c < channels; ++c) filters.push_back(make());
  }

  const BiquadShape& shape;
};

template <ONDREL_EFFECT_TYPE Type>
class BiquadShapeEffect final : public BiquadEffectBase {
 public:
  BiquadShapeEffect() : BiquadEffectBase(Type) {}
  AudioEffect* CreateInstance() override { return NewObject<BiquadShapeEffect>(); }
};

using LPFilterEffect = BiquadShapeEffect<EFFECT_LP_FILTER>;
using HPFilterEffect = BiquadShapeEffect<EFFECT_HP_FILTER>;
using BPFilterEffect = BiquadShapeEffect<EFFECT_BP_FILTER>;
using NTFilterEffect = BiquadShapeEffect<EFFECT_NT_FILTER>;
using LSFilterEffect = BiquadShapeEffect<EFFECT_LS_FILTER>;
using HSFilterEffect = BiquadShapeEffect<EFFECT_HS_FILTER>;
using PKFilterEffect = BiquadShapeEffect<EFFECT_PK_FILTER>;
using APFilterEffect = BiquadShapeEffect<EFFECT_AP_FILTER>;

}  // namespace BIQUADFILTER
}  // namespace ONDREL2
