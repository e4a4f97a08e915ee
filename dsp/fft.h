#pragma once

#include <vector>

#include "dsp/fft_kernel.h"

namespace ONDREL2 {

// Real-input discrete Fourier transform of one fixed, even size N.
//
// Two spectrum layouts are offered; bin k is the complex value at k/N cycles
// per sample, bins 0 and N/2 are real.
//   Packed (ForwardPacked, InversePacked): [0] = Re bin 0, [1] = Re bin N/2,
//     [2k], [2k+1] = Re, Im of bin k for 1 <= k < N/2.
//   Pair (Forward, Inverse): [2k], [2k+1] = Re, Im of bin k for 0 <= k < N/2;
//     [1] is therefore Im bin 0 (always 0) and bin N/2 is not held.
//
// Neither direction scales: forward then inverse multiplies by N, and every
// user divides by N itself.
class IOndrelFFT {
 public:
  virtual ~IOndrelFFT() = default;

  // Prepares a transform of `size` real samples. 0 on success, 2001 when
  // the size is odd or not positive or memory runs out.
  virtual int Init(int size) = 0;
  virtual int Forward(const float* input, float* output) = 0;
  virtual int ForwardPacked(float* data) = 0;
  virtual int Inverse(const float* input, float* output) = 0;
  virtual int InversePacked(float* data) = 0;
};

// IOndrelFFT with Kiss FFT's single-precision results (RealFftPlan, which
// reproduces them bit for bit, with vector kernels where the processor has
// them).
//
// The object transforms through a scratch spectrum of N/2+1 complex values of
// its own, so it serves one thread at a time. The transforms allocate
// nothing and are real-time safe once Init has succeeded; they must not be
// used after a failed Init.
//
// Inverse (pair layout) does not write bin N/2 of the scratch spectrum: it
// uses whatever the previous operation on this object left there. Forward
// followed by Inverse on one object is therefore a matched pair.
class OndrelKissFFT : public IOndrelFFT {
 public:
  OndrelKissFFT() = default;
  ~OndrelKissFFT() override;

  OndrelKissFFT(const OndrelKissFFT&) = delete;
  OndrelKissFFT& operator=(const OndrelKissFFT&) = delete;

  // Meant to be called once per object; a repeated call releases what the
  // earlier one made before it allocates anew.
  int Init(int size) override;
  int Forward(const float* input, float* output) override;
  int ForwardPacked(float* data) override;
  int Inverse(const float* input, float* output) override;
  int InversePacked(float* data) override;

 private:
  RealFftPlan plan;
  std::vector<float> scratch;  // N/2 + 1 interleaved bins
  int size = 0;
};

}  // namespace ONDREL2
