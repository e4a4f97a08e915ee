// The linear-phase equaliser's design and convolution engine.
//
// The response is composed from ideal low passes: with cutoffs c0 < c1 <
// ... the lowest band is LP(c0), each middle band LP(ci) - LP(ci-1) and the
// top band the remainder delta - LP(clast). Each band is weighted by its
// linear gain, the sum is shaped by a Kaiser window (96 dB) and run through
// one fast convolver per channel. With every gain at 1 the response is the
// window's centre tap alone, an exact delay of filterLength / 2.
//
// filterLength = 2^(windowBits - 1) - 1 taps (odd); the convolvers take
// blocks of filterLength frames through 2^windowBits-point transforms and
// advance their output by filterLength / 2 frames once, which cancels the
// response's own centre delay.
//
// The design runs in Rebuild, which allocates; Process allocates nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/fast_convolution.h"

namespace ONDREL2 {
namespace SUPEREQ {

// Ideal (sinc) low pass of odd length, not windowed. `cutoff` is a
// fraction of the sample rate.
class IdealLowpass {
 public:
  // 0; 2000 for a cutoff at or below 0 (or not finite) or a length that is
  // not a positive odd number; 2001 when memory runs out. The taps are
  // computed again only when cutoff or length changed.
  int Design(float cutoff, int length);

  std::vector<float> taps;
  int length = 0;
  float cutoff = 0.0f;
  uint8_t dirty = 1;
};

// Kaiser window whose beta follows a stopband attenuation in dB.
class KaiserWindow {
 public:
  // 0, or 2001 when memory runs out. Recomputed only when beta (to a tenth),
  // the length or the factorial table changed.
  int Design(int length, float attenuation);
  // The modified Bessel function of order 0, as 16 terms of its series.
  double BesselI0(double x) const;

  std::vector<float> values;
  int length = 0;
  float beta = 0.0f;
  std::vector<float> factorials;  // 0! .. 15!
  uint8_t dirty = 1;
};

// The settings a design depends on.
struct SuperEqSettings {
  int sampleRate;
  int channels;
  float startFrequency;  // Hz, the upper corner of band 0
  float octave;          // octaves between neighbouring corners
  int windowBits;
  int filterLength;  // always 2^(windowBits - 1) - 1
};

class SuperEqEngine {
 public:
  SuperEqEngine() = default;
  SuperEqEngine(const SuperEqEngine&) = delete;
  SuperEqEngine& operator=(const SuperEqEngine&) = delete;

  // Setters for the effect's UpdateParams; any difference sets `rebuild`.
  void SetFormat(int rate, int channelCount);
  void SetBands(float start, float octaves);
  // `count` gains in dB. A new count, or a gain that moved by a tenth of a
  // dB or more, also sets `gainsChanged`.
  void SetGains(const float* db, int count);
  // Limited to 2..15, so that the filter has at least one tap and the
  // largest block is LargestBlock().
  void SetWindowBits(int bits);
  static int LargestBlock() { return (1 << 14) - 1; }

  // Designs whatever the changes since the last rebuild require and loads
  // the convolvers. 0, 2000 for a bad low pass, 2001 out of memory.
  int Rebuild();
  // Convolves channel c of `bufs` with convolver c; each reads exactly
  // filterLength frames. `frames` receives the valid count.
  int Process(const std::vector<float*>& bufs, int32_t* frames);
  int GetLatency() const;

  int sampleRate = 44100;
  int channels = 2;
  float startFrequency = 38.890999f;
  float octave = 1.0f;
  int windowBits = 10;
  int filterLength = 511;
  // The settings of the last rebuild, all zero before the first.
  SuperEqSettings built{0, 0, 0.0f, 0.0f, 0, 0};
  uint8_t rebuild = 1;
  uint8_t pending = 1;
  // Set when the last rebuild failed: blocks pass through dry until the
  // next rebuild.
  uint8_t designFailed = 0;

  std::vector<float> gainsDb;
  std::vector<float> gainsLinear;
  int gainCount = 0;
  uint8_t gainsChanged = 0;

  std::vector<float> edges;  // corner of each band in Hz
  int bandCount = 0;
  std::vector<float> response;
  KaiserWindow window;
  std::vector<IdealLowpass> lowpasses;  // bandCount - 1
  // Corners at or past the sample rate are all held at Nyquist and share
  // one design: `held[i]` marks them, and their own low pass keeps no taps.
  IdealLowpass nyquist;
  std::vector<uint8_t> held;  // bandCount - 1
  std::vector<std::unique_ptr<OndrelFastConvolution>> convolvers;
  // Block size the convolvers were initialised with.
  int convolverBlock = 0;
};

}  // namespace SUPEREQ
}  // namespace ONDREL2
