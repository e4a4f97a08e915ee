#pragma once

#include <kissfft/kiss_fftr.h>

#include <cstddef>
#include <vector>

namespace ONDREL2 {

// Real-input FFT of one fixed, even size N in single precision, computed
// exactly as the libkissfft-float 131 build computes kiss_fftr and
// kiss_fftri: the same mixed-radix factorisation of N/2 (fours first, then
// twos, then odd primes), the same twiddles (evaluated in double, rounded to
// float), that build's butterfly and real-spectrum arithmetic operand for
// operand (dsp/fft_math.h) and the same half-turn twiddles. Results are
// therefore identical bit for bit to the library's; only the schedule
// differs: the butterflies of a
// stage are independent, and the vector kernels run four or eight of them
// at once from per-stage twiddle tables. Sizes whose half has a prime
// factor other than 2 are handed to libkissfft itself.
//
// Spectrum layouts (bin k = sum_j x[j] exp(-+2 pi i j k / N)):
//   bins:   N/2 + 1 interleaved complex values, as kiss_fft_cpx[].
//   packed: [0] = Re bin 0, [1] = Re bin N/2, [2k], [2k+1] = bin k.
//   split:  re[0] = Re bin 0, im[0] = Re bin N/2, re[k], im[k] = bin k for
//           1 <= k < N/2 (two arrays of N/2 floats).
// Neither direction scales.
//
// The plan owns its scratch, so one plan serves one thread at a time. Init
// allocates; the transforms allocate nothing.
class RealFftPlan {
 public:
  RealFftPlan() = default;
  ~RealFftPlan();
  RealFftPlan(const RealFftPlan&) = delete;
  RealFftPlan& operator=(const RealFftPlan&) = delete;

  // False for an odd or non-positive size, or when memory runs out (the
  // plan is then empty). `vector` selects the vector kernels where the
  // processor has them; false forces the plain ones.
  bool Init(int size, bool vector);
  int Size() const { return size; }

  // `time` holds N samples; the input is only read.
  void Forward(const float* time, float* bins);
  // `packed` may be `time`.
  void ForwardPacked(const float* time, float* packed);
  void ForwardSplit(const float* time, float* re, float* im);

  // Bin 0 and bin N/2 contribute their real parts only.
  void Inverse(const float* bins, float* time);
  // `time` may be `packed`.
  void InversePacked(const float* packed, float* time);
  void InverseSplit(const float* re, const float* im, float* time);

  struct Cpx {
    float r;
    float i;
  };
  struct Stage {
    int radix;
    int m;         // butterflies per group
    int fstride;   // number of groups, and the twiddle step
    size_t table;  // offset of the stage's vector twiddles
    // 0: plain; 8 or 4: that many butterflies of one group per step;
    // 2: the two butterflies (m = 2) of two neighbouring groups per step.
    int lanes;
  };
  struct Direction {
    bool inverse = false;
    std::vector<Cpx> twiddles;   // N/2
    std::vector<Cpx> super;      // N/4, the real-spectrum split
    std::vector<float> superRe;  // the same as separate parts
    std::vector<float> superIm;
    // Per vector stage, per leg q = 1 .. radix-1 and per step of `lanes`
    // butterflies: the real parts of their twiddles, then the imaginary
    // parts, in the lane order of the kernel.
    std::vector<float> tables;
    std::vector<Stage> stages;  // outermost first
  };

 private:
  void Complex(const Direction& d, const float* in, float* out);
  void RunStage(const Direction& d, const Stage& s, float* data);
  void Release();

  int size = 0;
  int half = 0;  // complex transform size
  bool useVector = false;
  std::vector<int> factors;    // radix, m pairs, outermost first
  std::vector<int> leafOrder;  // input index of each leaf position
  // With a radix-2 innermost stage, the vector kernel gathers its input
  // itself from these float offsets (see fftavx2::LeafRadix2).
  bool fusedLeaf = false;
  std::vector<int> leafIndex;
  Direction forward;
  Direction inverse;
  std::vector<float> work;  // N/2 interleaved complex values, or N/2 + 1 bins
  // Sizes with other radices run through the library.
  kiss_fftr_cfg kissForward = nullptr;
  kiss_fftr_cfg kissInverse = nullptr;
};

}  // namespace ONDREL2
