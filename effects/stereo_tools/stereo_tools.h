// The stereo tools: four small effects on the stereo image.
//
//   type 26 PannerEffect          "Panner"           Cross, Left/Right, Front/Back, Up/Down
//   type  5 RotatorEffect         "Rotator"          Speed (deg/s), Offset (deg)
//   type 27 Mono2DualEffect       "Mono to Dual"     Mute Right
//   type 11 StereoEnhancerEffect  "Stereo Enhancer"  Width (%), Center (%)
//
// Each is a row of one table (type, display names, parameter table,
// labels) on the common base StereoToolEffect, and keeps only its own
// update and block hook. All work in place on planar floats, in blocks of
// 512 frames, with no latency; ProcessBlock allocates nothing.
//
// Panner and enhancer mix every stereo pair of the layout (LayoutUtils
// grouping) by a fixed 2x2 rule; single speakers pass untouched. The
// rotator works on the first two channels whatever the layout, and is the
// only one with state between blocks (its phase, restarted at the offset by
// every parameter change). Mono to dual widens a mono stream to two
// channels; on any other stream it does nothing.
#pragma once

#include <cstdint>

#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace STEREO_TOOLS {

struct ToolRow;

// What the four tools share: naming, parameter table and labels from their
// row.
class StereoToolEffect : public IOndrel2 {
 protected:
  explicit StereoToolEffect(const ToolRow& row);
};

// Marks a group of the layout as a stereo pair that the mix works on; the
// pair's slots come from the grouping, the factors from the effect.
struct StereoPair {};

}  // namespace STEREO_TOOLS

namespace PANNER {

class PannerEffect : public STEREO_TOOLS::StereoToolEffect {
 public:
  PannerEffect();
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  float gainLeft = 1.0f;
  float gainRight = 1.0f;
  float crossLeft = 0.0f;
  float crossRight = 0.0f;
  // Offered by the table and stored; the mix doesn't use them.
  float frontBack = 0.0f;
  float upDown = 0.0f;
  // The stereo pairs of the current layout.
  GroupUnits<STEREO_TOOLS::StereoPair> layout;
};

}  // namespace PANNER

namespace ROTATOR {

class RotatorEffect : public STEREO_TOOLS::StereoToolEffect {
 public:
  RotatorEffect();
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  float phase = 0.0f;
  float phaseStep = 0.0f;
};

}  // namespace ROTATOR

namespace MONO2DUAL {

class Mono2DualEffect : public STEREO_TOOLS::StereoToolEffect {
 public:
  Mono2DualEffect();
  AudioEffect* CreateInstance() override;
  // A mono input leaves the effect as two channels.
  void SetChannels(int32_t chns, uint64_t mask) override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  bool muteRight = false;
};

}  // namespace MONO2DUAL

namespace STEREO_ENHANCER {

class StereoEnhancerEffect : public STEREO_TOOLS::StereoToolEffect {
 public:
  StereoEnhancerEffect();
  AudioEffect* CreateInstance() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  void ClearBuffers() override;

  // The stereo pairs of the current layout.
  GroupUnits<STEREO_TOOLS::StereoPair> layout;
  float width = 1.0f;
  float center = 1.0f;
};

}  // namespace STEREO_ENHANCER
}  // namespace ONDREL2
