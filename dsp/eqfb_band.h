// EqfbBand: the band filter of the fixed-band equaliser, shared by the
// effects that lay a fixed curve of such bands over their signal.
//
// A band is a second-order band pass whose scaled output is added to the
// running sample, y += gain * bandpass(y); bands applied one after another
// feed each other. Its transfer is inputScale * (1 + zero2 z^-2) /
// (1 - feedback1 z^-1 - feedback2 z^-2), its contribution that times `gain`.
// A band within 0.001 dB of flat, or centred at or above half the sample
// rate, is bypassed and costs one test per sample.
//
// Everything is single precision; the design rounds through double where
// noted. RunEqfbBands allocates nothing, has no latency and is real-time
// safe. A design leaves the states as they are; only the owner clears them.
#pragma once

#include <cstdint>

namespace ONDREL2 {

// One band of one channel: coefficients, state and gain, all float.
struct EqfbBand {
  float feedback1 = 0.0f;   // coefficient of the state one sample ago
  float feedback2 = 0.0f;   // coefficient of the state two samples ago
  float inputScale = 0.0f;  // coefficient of the input sample
  float zero2 = 0.0f;       // coefficient of the state two samples ago in the output
  float state1 = 0.0f;
  float state2 = 0.0f;
  float gain = 0.0f;   // linear band gain minus one
  uint8_t bypass = 1;  // non-zero: the band does nothing
};

// Designs `band` for a centre `frequency` in Hz, a `width` (the Q of the
// equaliser), an integer sample rate and a gain in dB. The states are left
// as they are.
void DesignBand(EqfbBand& band, float frequency, float width, int32_t sampleRate, float gainDb);

// Runs `y` through `count` bands in ascending order and returns the result.
inline float RunEqfbBands(EqfbBand* bands, int32_t count, float y) {
  for (int32_t b = 0; b < count; ++b) {
    EqfbBand& f = bands[b];
    if (f.bypass != 0) continue;
    float w = f.inputScale * y + f.state1 * f.feedback1;
    w = w + f.feedback2 * f.state2;
    y = y + (f.zero2 * f.state2 + w) * f.gain;
    f.state2 = f.state1;
    f.state1 = w;
  }
  return y;
}

}  // namespace ONDREL2
