// StudioIrEffect: convolution with an impulse response from a wave file.
//
// `IR File` names the response below the resource roots (UTF-8, backslashes
// taken as slashes); it may be stored plain or scrambled, with one, two or
// four channels and at any rate. `Trim` (dB, active strictly between -96 and
// -30) cuts the quiet tail, `Fade` (ms) ramps the kept end to silence. Each
// stereo pair and each single speaker gets its own IrConvolverUnit, except a
// lone speaker whose position number shares a bit with 0x23 (among them the
// front centre and the low-frequency channel): that one stays dry.
//
// Block size 511, latency 255 frames (half a block, given back at the first
// block). Every change of a parameter, rate or channels rebuilds all units
// and reads the file again, on the caller's thread; the convolution tails
// are lost. A clear keeps them: the convolvers have nothing to reset.
#pragma once

#include <memory>
#include <vector>

#include "effects/studio_ir/ir_loader.h"
#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace STUDIO_IR {

// The settings of one unit, compared and copied as a whole.
struct IrConfig {
  int sampleRate;
  int inChannels;
  int outChannels;
  char irPath[kIrPathBytes + 1];
  char rawPaths[3][kIrPathBytes + 1];  // per-path raw responses; unused by the effect
  float trim;
  float fade;
};

class IrConvolverUnit {
 public:
  IrConvolverUnit();
  virtual ~IrConvolverUnit();
  IrConvolverUnit(const IrConvolverUnit&) = delete;
  IrConvolverUnit& operator=(const IrConvolverUnit&) = delete;

  // Makes `config` the unit's settings and loads its response. A unit that
  // already runs at the config's rate and channel count only records it:
  // the effect builds fresh units for every change, so that a new response
  // always loads.
  int32_t Apply(const IrConfig& config);
  // Convolves the group's channels `indices` of `bufs` in place; `frames`
  // comes back as the frames the group gives.
  int32_t Process(float* const* bufs, const int32_t indices[2], int32_t* frames);
  int32_t GetLatency();
  void Reset();

  IrConfig current;
  IrConfig applying;
  std::unique_ptr<IrLoader> loader;

 private:
  std::vector<float> interleaved;
};

class StudioIrEffect : public IOndrel2 {
 public:
  StudioIrEffect();
  ~StudioIrEffect() override;
  AudioEffect* CreateInstance() override;
  int32_t GetBlockSize() override;
  int32_t GetLatency() override;
  void ResetDsp() override;
  void ClearBuffers() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // One unit per channel group that convolves; none before the first
  // UpdateParams.
  GroupUnits<IrConvolverUnit> units;
};

}  // namespace STUDIO_IR
}  // namespace ONDREL2
