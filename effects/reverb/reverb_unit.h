// AlreverbUnit: the algorithmic room reverb of one channel group.
//
// A feed-forward chain (high shelf, low shelf, a one-sample pre line, the
// early delay, the late delay) with three stages hanging on it: an early
// network of four delay lines around one mixing node, a late network of four
// feedback lines with one-pole damping and all-pass diffusion behind a
// four-way mixing matrix, and an echo line with its own damping and
// all-pass. The group's channels are summed to one mono feed; the wet
// signal is added (times 8, or 4 for a single channel) on top of the dry
// channels, which stay at unity gain.
//
// Settings are in seconds, Hz and linear gains; Apply() designs every
// coefficient and sizes every line from them (allocates), Process() runs the
// recursion in place over a block (no allocation, no lock), Reset() clears
// all state and keeps the coefficients. No latency.
#pragma once

#include <cstdint>

#include "dsp/delay_line.h"

namespace ONDREL2 {
namespace ALREVERB {

// What a unit is built from. The values here are those of a unit before any
// parameter reaches it.
struct ReverbSettings {
  int32_t sampleRate = 44100;
  int32_t channelsIn = 2;
  int32_t channelsOut = 2;
  float density = 1.0f;
  float diffusion = 1.0f;
  float reverbGain = 0.3162f;
  float lowpass_gain = 0.5623f;
  float highpass_gain = 1.0f;
  float decay_time = 3.92f;
  float lowpass_ratio = 0.7f;
  float early_gain = 0.2427f;
  float late_gain = 0.9977f;
  float lowpass_reference = 5000.0f;
  float highpass_reference = 250.0f;
  float echo_time = 0.25f;
  float echo_depth = 0.0f;
  float modulation_time = 0.25f;  // carried only: the reverb has no modulation
  float modulation_depth = 0.0f;  // carried only
  float early_delay = 0.02f;
  float late_delay = 0.029f;
  float lowpass_air_absorption_gain = 0.9943f;
  int32_t b_decay_lowpass_limit = 1;
};

// A shelf in direct form I; disabled shelves are skipped.
struct Shelf {
  float x1 = 0.0f, x2 = 0.0f, y1 = 0.0f, y2 = 0.0f;
  float a1 = 0.0f, a2 = 0.0f, b0 = 0.0f, b1 = 0.0f, b2 = 0.0f;
  bool enabled = false;

  float Run(float x) {
    const float y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return y;
  }
  void Clear() { x1 = x2 = y1 = y2 = 0.0f; }
};

struct EarlyStage {
  DelayLine line[4];
  float coef[4] = {};
  float gain = 0.0f;
};

struct AllPass {
  DelayLine ap;
  float apDecay = 0.0f;
  float apFeed = 0.0f;
};

struct LateStage {
  DelayLine line[4];
  float lpCoef[4] = {};
  float lpState[4] = {};
  AllPass allPass[4];
  float mix = 0.0f;
  float lineCoef[4] = {};
  float gain = 0.0f;
  float feedGain = 0.0f;
};

struct EchoStage {
  DelayLine line;
  float lpCoef = 0.0f;
  float lpState = 0.0f;
  DelayLine ap;
  float apDecay = 0.0f;
  float apFeed = 0.0f;
  float coef = 0.0f;
  float feedGain = 0.0f;
  float gain = 0.0f;
  float mix = 0.0f;
};

class AlreverbUnit {
 public:
  // Designs the coefficients and sizes the lines for `settings`. 0, or the
  // first failing line's status (the unit must then not run).
  int32_t Apply(const ReverbSettings& settings);
  // One block in place. `right` is ignored for a single-channel unit.
  void Process(float* left, float* right, int32_t frames);
  // Clears shelves, lines and damping states; coefficients stay.
  void Reset();

  ReverbSettings pending;  // being applied
  ReverbSettings applied;  // last applied
  Shelf highShelf;
  Shelf lowShelf;
  DelayLine preLine;
  DelayLine earlyLine;
  DelayLine lateLine;
  EarlyStage early;
  LateStage late;
  EchoStage echo;
  DelayLine decoLine[3];
  float lateFeedGain = 0.0f;
};

}  // namespace ALREVERB
}  // namespace ONDREL2
