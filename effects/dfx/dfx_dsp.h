// The four stereo kernels of the Dfx enhancers. Each works on one channel
// group: Process(left, right, frames) runs in place over a stereo pair, or
// over one buffer given twice for a single speaker (both inputs are read
// before either output is written, and the kernel's second write wins).
//
// Configure(PARAM) takes the integer rate and the 0..127 amount and keeps
// all running state, so a move of the amount never clicks; Reset() clears
// the state and keeps the settings. Configure may allocate (status
// ONDREL_E_NOMEM on failure, ONDREL_E_INVALID for a rate below 1 where the
// kernel depends on it); Process and Reset neither allocate nor lock.
// None of them reports latency, although DfxDynamicBoost delays by 33
// frames (see there).
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/delay_line.h"
#include "dsp/enhancer_highpass.h"

namespace ONDREL2 {
namespace DFXBASE {

// What every kernel is configured from: the truncated sample rate and the
// truncated amount parameter (0..127; a switch reads 0 or 1).
struct DfxParam {
  int32_t sampleRate = 0;
  int32_t amount = 0;
};

// 3D surround widener: the side signal, high-passed at 100 Hz, comes back
// through two short lines (about 3.9 and 4.9 ms) in opposite polarity on the
// far channel. A mid-only signal (left = right) passes unchanged. The line
// lengths follow the rate, and a rate change stretches the running lines.
class Dfx3dsurround {
 public:
  using PARAM = DfxParam;
  int32_t Configure(const PARAM& param);
  void Process(float* left, float* right, int32_t frames);
  void Reset();

 private:
  EnhancerHighPass highPass_;
  DelayLine lineA_, lineB_, lineMid_;
  int32_t rate_ = 0;
  float depth_ = 0.0f;
};

// Headphone cross-feed: four feedback comb lines per side (10 to 27 ms),
// mixed onto both outputs with fixed weights, half dry and half wet. The
// amount only switches it on; the line lengths follow the rate.
class DfxHeadphone {
 public:
  using PARAM = DfxParam;
  static constexpr int kLines = 4;
  int32_t Configure(const PARAM& param);
  void Process(float* left, float* right, int32_t frames);
  void Reset();

 private:
  DelayLine lineA_[kLines], lineB_[kLines];
  float feedbackA_[kLines] = {}, feedbackB_[kLines] = {};
  int32_t amount_ = 0;
};

// Plate ambience: input band limiting, four input diffusers and a two-tank
// plate whose delay lines all live in one ring of 38040 cells, walked by one
// cursor (the steps of one frame add up to one cell more than the ring, so
// every station moves on by one cell a frame). Lengths and constants are
// fixed in samples for 44.1 kHz; at other rates the room changes pitch,
// by design.
class DfxAmbience {
 public:
  using PARAM = DfxParam;
  static constexpr int32_t kRingSize = 38040;
  int32_t Configure(const PARAM& param);
  void Process(float* left, float* right, int32_t frames);
  void Reset();

  float decay() const { return decay_; }
  float diffusion() const { return diffusion_; }
  float wet() const { return wet_; }
  float dry() const { return dry_; }
  // Decay per amount, 0.095 rising by 10^(1/127) per step; the top entry is
  // set to 0.95 outright.
  float decayTable(int i) const { return decayTable_[i]; }

 private:
  std::unique_ptr<float[]> ring_;
  int32_t cursor_ = 0;
  float bandLp_ = 0.0f, dampA_ = 0.0f, dampB_ = 0.0f, feedback_ = 0.0f;
  float decay_ = 0.0f, diffusion_ = 0.0f, wet_ = 0.0f, dry_ = 1.0f;
  float decayTable_[128] = {};
  float exponentTable_[128] = {};
  bool tablesBuilt_ = false;
};

// Dynamic boost: a gain of up to 11.6 dB (the amount times 0.7 picks a step
// of a table rising by 0.1, 0.2 and 0.5 dB), pulled back when the slow level
// of the left channel (which governs both channels) times the gain passes
// 0.32, then a 33-frame look-ahead peak envelope per channel that holds the
// output at or below 0.966. The look-ahead delays the audio by 33 frames;
// the effect reports no latency all the same, so flushed streams keep their
// input length and lose the last 33 frames. Time constants are fixed for
// 44.1 kHz.
class DfxDynamicBoost {
 public:
  using PARAM = DfxParam;
  static constexpr int32_t kLookahead = 33;
  int32_t Configure(const PARAM& param);
  void Process(float* left, float* right, int32_t frames);
  void Reset();

  float gain() const { return gain_; }

 private:
  struct Channel {
    float ring[kLookahead] = {};
    int32_t pos = 0;
    float slope = 0.0f, peak = 0.0f, envelope = 0.0f;
    int32_t hold = 0;
    float Run(float x);
  };
  float gain_ = 1.0f;
  double power_ = 0.0;
  Channel channels_[2];
};

}  // namespace DFXBASE
}  // namespace ONDREL2
