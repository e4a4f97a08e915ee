// One band of the fixed-band equaliser's filter family, shared by the
// equalisers, the bass enhancer's fixed tilt and the vocal curve.
//
// A band adds a scaled band pass of the running sample to it:
//   w = inputScale * y + feedback1 * s1 + feedback2 * s2
//   y += (zero2 * s2 + w) * gain,   s2 = s1, s1 = w
// so bands run one after the other feed each other. A band whose gain is
// within 0.001 dB of flat, or whose centre is at or above half the rate, is
// bypassed and leaves the sample bit for bit. All of it is float;
// RunEqfbBands allocates nothing and is real-time safe; no latency.
#pragma once

#include <cstdint>

namespace ONDREL2 {

// Coefficients, state and gain of one band of one channel. A fresh record is
// all zero and bypassed.
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

// Designs `band` for a centre `frequency` in Hz, a `width` (Q-like), an
// integer sample rate and a gain in dB. The states are left as they are.
void DesignEqfbBand(EqfbBand& band, float frequency, float width, int32_t sampleRate, float gainDb);

// Runs `y` through `count` bands in order and returns the result.
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

// Runs `n` samples of each of `channels` buffers in place through that
// channel's `count` bands, with the arithmetic of RunEqfbBands per band and
// sample, in the same order. The bands of one channel run as a pipeline in
// vector lanes (band j works on sample t - j at step t), so that they no
// longer wait for each other; the channels are independent. Allocates
// nothing.
// Band b of channel c is *table[b * stride + c].
void RunEqfbBandsBlock(EqfbBand* const* table, int32_t count, int32_t stride, float* const* bufs,
                       int32_t channels, int32_t n);
// Band b of channel c is bands[c * count + b].
void RunEqfbBandsBlock(EqfbBand* bands, int32_t count, float* const* bufs, int32_t channels,
                       int32_t n);

// Zeroes the states of `count` bands; coefficients stay.
inline void ClearEqfbBands(EqfbBand* bands, int32_t count) {
  for (int32_t b = 0; b < count; ++b) bands[b].state1 = bands[b].state2 = 0.0f;
}

}  // namespace ONDREL2
