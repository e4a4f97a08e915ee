// The Dfx enhancers: 3D surround, headphone cross-feed, ambience and dynamic
// boost. One body, ON2EffectT<DSP, PARAM>, serves all four: it keeps one
// DSP kernel (effects/dfx/dfx_dsp.h) per channel group and one parameter,
// the amount 0..127 (a switch for the headphone), of which 0 bypasses the
// effect. The effect classes only name themselves and their parameter row.
//
// Unlike most effects these keep their DSP state across parameter changes:
// the kernels are rebuilt only when the channel count or mask changes, and
// otherwise merely reconfigured. A clear (ClearBuffers) resets the kernels
// and leaves the queues alone. Block size 512; GetLatency is 0 for all four,
// the dynamic boost's 33-frame look-ahead included. The block path neither
// allocates nor locks.
#pragma once

#include "effects/dfx/dfx_dsp.h"
#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace DFXBASE {

// What distinguishes the four effect types apart from their kernel.
struct DfxRow {
  int32_t type;
  const char* zhName;  // also the parameter's "zh" label
  const char* enName;
  const ParamDesc* table;  // one parameter
  bool flooredSwitch;      // the parameter is floored before truncation
};

extern const DfxRow kSurroundRow;
extern const DfxRow kHeadphoneRow;
extern const DfxRow kAmbienceRow;
extern const DfxRow kDynamicBoostRow;

// Names the effect, installs its parameter and labels and sets its type.
void SetUpDfxEffect(AudioEffect& effect, const DfxRow& row);
// The truncated (for a switch: floored) value of `value`; NaN and values
// beyond the integer range count as 0.
int32_t TruncatedAmount(float value, bool floorFirst);

}  // namespace DFXBASE

template <class DSP, class PARAM>
class ON2EffectT : public IOndrel2 {
 public:
  explicit ON2EffectT(const DFXBASE::DfxRow& row) : row_(row) {
    DFXBASE::SetUpDfxEffect(*this, row);
  }
  ~ON2EffectT() override = default;

  void ClearBuffers() override { ResetDsp(); }
  // The dynamic boost's look-ahead is deliberately not reported: flushed
  // streams keep their input length.
  int32_t GetLatency() override { return 0; }

  int32_t UpdateParams() override {
    const int32_t channels = GetChannels();
    const uint64_t mask = handle.inputMask;
    if (!units.Matches(channels, mask)) {
      const int32_t status = units.Rebuild(
          channels, mask, [](const ChannelGroup&, int32_t*) -> DSP* { return nullptr; });
      if (status != ONDREL_OK) return status;
    }
    PARAM param;
    GetDfxParam(param);
    bypass = param.amount < 1;
    return units.Update([&param](DSP*& unit, const ChannelGroup&) -> int32_t {
      if (unit == nullptr) unit = NewObject<DSP>();
      if (unit == nullptr) return ONDREL_E_NOMEM;
      const int32_t status = unit->Configure(param);
      if (status != ONDREL_OK) {
        delete unit;
        unit = nullptr;
      }
      return status;
    });
  }

  void ResetDsp() override {
    units.ForEach([](DSP& unit, const ChannelGroup&) { unit.Reset(); });
  }

  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override {
    if (bypass || !units.built()) return ONDREL_OK;
    const int32_t n = *frames;
    units.Run(static_cast<int32_t>(bufs.size()),
              [&bufs, n](DSP& unit, const ChannelGroup&, int32_t first, int32_t second) {
                unit.Process(bufs[first], bufs[second], n);
              });
    return ONDREL_OK;
  }

  // Reads the amount and the rate for the kernels; true when read.
  virtual bool GetDfxParam(PARAM& param) {
    param.amount =
        DFXBASE::TruncatedAmount(GetScriptedParamByName(row_.table[0].name), row_.flooredSwitch);
    param.sampleRate = DFXBASE::TruncatedAmount(GetSampleRate(), false);
    return true;
  }

  GroupUnits<DSP> units;
  bool bypass = true;

 private:
  const DFXBASE::DfxRow& row_;
};

namespace DFX3DSURROUND {
class Dfx3DSurroundEffect
    : public ON2EffectT<DFXBASE::Dfx3dsurround, DFXBASE::Dfx3dsurround::PARAM> {
 public:
  Dfx3DSurroundEffect();
  AudioEffect* CreateInstance() override;
};
}  // namespace DFX3DSURROUND

namespace DFXHEADPHONE {
class HeadphoneEffect : public ON2EffectT<DFXBASE::DfxHeadphone, DFXBASE::DfxHeadphone::PARAM> {
 public:
  HeadphoneEffect();
  AudioEffect* CreateInstance() override;
};
}  // namespace DFXHEADPHONE

namespace AMBIENCE {
class AmbienceEffect : public ON2EffectT<DFXBASE::DfxAmbience, DFXBASE::DfxAmbience::PARAM> {
 public:
  AmbienceEffect();
  AudioEffect* CreateInstance() override;
};
}  // namespace AMBIENCE

namespace DYNAMICBOOST {
class DynamicboostEffect
    : public ON2EffectT<DFXBASE::DfxDynamicBoost, DFXBASE::DfxDynamicBoost::PARAM> {
 public:
  DynamicboostEffect();
  AudioEffect* CreateInstance() override;
};
}  // namespace DYNAMICBOOST

}  // namespace ONDREL2
