// TwotoSix: spreads a stereo signal over six channels (5.1 order: front
// left, front right, centre, low frequency, back left, back right).
//
// Fronts: the input at half amplitude. Centre: the sum of both sides,
// high-passed at 70 Hz and low-passed at 20 kHz. Low frequency: the sum,
// low-passed at 120 Hz. Each back channel mixes its own side (weight
// sqrt 0.19) with the other side (sqrt 0.06), each high-passed at 100 Hz and
// sent through a chain of four first-order all-pass sections whose corner
// sweeps between 50 and 800 Hz and back (five seconds each way); the own
// side is inverted, so a back channel is the difference of the two swept
// signals. A delay of 10 ms behind that decorrelates the backs from the
// fronts. The crossovers are fourth-order (two cascaded Butterworth
// sections in one direct form).
//
// All arithmetic is double; the output is rounded to float. Blocks of 1024
// frames; the effect reports no latency (the back delay is part of the
// sound, not held-back input). One parameter, `Enabled`, is read and has no
// effect: the upmix always runs. Output: six channels whatever the input
// count; a mono or silent right input still fills all six through the left
// branches. Every update restarts the sweep and clears the filters and the
// delays; a flush keeps them. ProcessBlock allocates nothing.
#pragma once

#include <cstdint>
#include <vector>

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace TWOTOSIX {

// Coefficients of one fourth-order crossover; a0 is 1.
struct Crossover {
  double b0 = 0.0, b1 = 0.0, b2 = 0.0, b3 = 0.0, b4 = 0.0;
  double a1 = 0.0, a2 = 0.0, a3 = 0.0, a4 = 0.0;
};

// The four past inputs and outputs of one crossover use.
struct CrossoverHistory {
  double x1 = 0.0, x2 = 0.0, x3 = 0.0, x4 = 0.0;
  double y1 = 0.0, y2 = 0.0, y3 = 0.0, y4 = 0.0;
};

// Fourth-order low pass and high pass at `corner` Hz for an integer rate.
Crossover DesignLowPass(double corner, int32_t rate);
Crossover DesignHighPass(double corner, int32_t rate);

// Four first-order all-pass sections in series whose corner `w` (radians
// per sample) moves geometrically by `factor` each sample and turns at its
// bounds.
struct SweptAllpass {
  double step = 1.0;
  double last = 0.0;
  double stages[4][2] = {};  // previous input, previous output
  double w = 0.0;
  double wMin = 0.0, wMax = 0.0;
  double factor = 1.0;
  int32_t invert = 0;
};

class TwotoSix : public IOndrel2 {
 public:
  TwotoSix();
  ~TwotoSix() override;
  AudioEffect* CreateInstance() override;
  void SetChannels(int32_t chns, uint64_t mask) override;
  int32_t GetBlockSize() override;
  void ClearBuffers() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  Crossover lowPassAt120, lowPassAt20000, highpass70, highpass100;
  // Left to left, right to left, left to right, right to right.
  SweptAllpass sweeps[4];
  CrossoverHistory lfeLow, centreLow, centreHigh;
  CrossoverHistory backHigh[4];  // before each all-pass unit, in its order
  std::vector<double> delayLeft, delayRight;
  size_t delayPos = 0;
  int32_t rate = 0;
  int32_t inChannels = 0, outChannels = 0;

 private:
  // Designs the crossovers for the current rate, clears every state and
  // makes new delays. ONDREL_E_INVALID for a rate below 2 Hz, which has no
  // meaningful design.
  int32_t Initialise();
};

}  // namespace TWOTOSIX
}  // namespace ONDREL2
