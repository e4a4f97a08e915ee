// Growl: a snarling layer that follows the level of the music, as a wrapper
// runner over GrowlDspWrapper (type 39, script version 4).
//
// Per channel group (a stereo pair, or a single speaker seen as a pair whose
// two sides are the same buffer), the rectified signal above `Threshold`
// runs through a 20 Hz high pass and a resonant four-pole ladder low pass
// with a cubic soft clip on its last stage, is compressed by a gain that
// follows its own envelope, and is mixed with the dry signal at `Mix`, the
// sum scaled by `Output`. The ladder's corner is `Low Pass`, moved towards
// the input envelope by `Filter Mod` (0: fixed).
//
// The envelope that moves the corner is always the left side's; `EnvByL`
// stays in the table for stored presets and nothing reads it. A detector
// looks at the first frame of each block: when the right side has equalled
// the left for a whole window of 32 blocks, the right side copies the left
// side's wet signal instead of computing its own.
//
// The wrapper offers the vector form. Its states survive parameter
// changes; a clear does not touch them. Block size 512, no latency; the
// block path allocates nothing.
#pragma once

#include <cstdint>

#include "dsp/dsp_wrapper.h"

namespace ONDREL2 {
namespace GROWL {

// The parameter values as the processor uses them.
class GrowlDspWrapperShareClass {
 public:
  float threshold = 0.0f;   // linear
  float lowPass = 2800.0f;  // Hz
  float resonance = 0.5f;
  float output = 1.0f;  // linear
  float mix = 0.5f;
  float compGain = 1.0f;
  float compLevel = 1.0f;
  float filterMod = 0.0f;
};

class GrowlDspWrapper : public GrowlDspWrapperShareClass, public ON_DSP_WRAPPERS::IDspWrapper {
 public:
  // Two-stage envelope: a fast attack / 10 ms release stage, then a 1 ms
  // attack / 200 ms release stage.
  struct Envelope {
    float a = 0.0f;
    float b = 0.0f;
  };
  // One side's filter path.
  struct Side {
    float lp = 0.0f;  // the high pass's low-pass state
    float y1 = 0.0f, y2 = 0.0f, y3 = 0.0f, y4 = 0.0f;
    float oldIn = 0.0f, oldY1 = 0.0f, oldY2 = 0.0f, oldY3 = 0.0f;
    Envelope out;
  };

  GrowlDspWrapper() = default;
  GrowlDspWrapper(float sampleRate, int32_t channels);
  ~GrowlDspWrapper() override;

  IDspWrapper* Create(float sampleRate, int32_t channels, uint64_t channelBits) override;
  int32_t UpdateParams(AudioEffect* runner) override;
  int32_t ProcessVector(const std::vector<float*>& buffers, int32_t frames,
                        const int32_t* indices) override;

  float c1 = 0.0f, c5 = 0.0f, c10 = 0.0f, c20 = 0.0f, c30 = 0.0f, c50 = 0.0f, c100 = 0.0f,
        c200 = 0.0f;
  float rate = 0.0f;
  int32_t channels = 0;
  float hpCoefficient[2] = {};
  float fc = 0.0f, p = 0.0f, k = 0.0f, t = 0.0f, t2 = 0.0f, r = 0.0f;
  float lastCorner = 0.0f;
  Side side[2];
  Envelope in;
  // Channel detector. The window starts at 1 so that every window, the
  // first included, counts 32 blocks.
  int32_t count = 1;
  int32_t silentCount = 0;
  int32_t equalCount = 0;
  bool leftActive = false;
  bool rightEqualsLeft = false;

 private:
  void SetRate(float sampleRate);
  void ComputeFilter(float corner);
  void Detect(float left, float right);
  float Wet(Side& s, float hp, float g);
};

class GrowlEffect : public ON_DSP_WRAPPERS::DspWrapperRunner {
 public:
  GrowlEffect();
  ~GrowlEffect() override;
  AudioEffect* CreateInstance() override;
};

}  // namespace GROWL
}  // namespace ONDREL2
