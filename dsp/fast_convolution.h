#pragma once

#include <memory>
#include <vector>

#include "dsp/fft_kernel.h"

namespace ONDREL2 {

// One channel convolved with an impulse response in the frequency domain.
class IOndrelConvolution {
 public:
  virtual ~IOndrelConvolution() = default;

  virtual void Reset() = 0;
  virtual int Init(int blockSize, int padSize) = 0;
  virtual int SetImpulseResponse(const float* samples, int length) = 0;
  virtual int Process(float* buffer, int* frames) = 0;
  virtual int GetLatency() = 0;
};

// Uniformly partitioned overlap-add convolution of one channel.
//
// The response is cut into P partitions of `blockSize` samples; each
// partition is zero-padded by `padSize` to the transform size
// fftSize = blockSize + padSize and kept as a spectrum with split real and
// imaginary parts (re[0] holds bin 0, im[0] bin fftSize/2). Each Process
// call transforms one block into a ring of the last P block spectra and sums
// block n-i times partition i, oldest block first, into the spectrum that is
// due; it returns the inverse of that sum plus the tail of the previous
// block. Linear convolution needs padSize >= blockSize - 1.
//
// Latency: the very first block after construction or Reset is returned
// without its first blockSize/2 samples, so the output is the convolution
// advanced by blockSize/2; GetLatency reports that number so that the caller
// can flush the same count at the end. The response is not normalised.
//
// Units: samples of one channel. Process reads exactly blockSize samples,
// writes the result in place and reports the valid count (blockSize, or
// blockSize - blockSize/2 on the first block). It allocates nothing, takes no
// locks and is real-time safe. Init and SetImpulseResponse allocate.
//
// Reset clears the overlap and the pending sums and re-arms the first-block
// advance; the transform and the partition spectra survive. A new response
// with the same partition count takes effect on the running overlap and
// pending sums without clearing them: what earlier blocks contributed with
// the old response is kept (as carried sums), later blocks meet the new one.
class OndrelFastConvolution : public IOndrelConvolution {
 public:
  OndrelFastConvolution() = default;
  ~OndrelFastConvolution() override = default;

  OndrelFastConvolution(const OndrelFastConvolution&) = delete;
  OndrelFastConvolution& operator=(const OndrelFastConvolution&) = delete;

  void Reset() override;
  // 0, 2000 for a block size below 1 or a negative pad, 2001 when memory
  // runs out or the transform size is odd. A change of either size drops
  // the loaded response, which must then be loaded again.
  int Init(int blockSize, int padSize) override;
  // 0, 2000 before Init or for an empty response, 2001 when memory runs
  // out (the object then has no response until a load succeeds).
  int SetImpulseResponse(const float* samples, int length) override;
  // 0, or 2000 with *frames = 0 and the buffer untouched when no response
  // is loaded.
  int Process(float* buffer, int* frames) override;
  int GetLatency() override;

 private:
  int fftSize = 0;
  int blockSize = 0;
  int padSize = 0;
  int irLength = 0;
  std::unique_ptr<RealFftPlan> fft;
  bool vectorKernels = false;
  void Accumulate(const float* h, const float* x, float* sum) const;
  void Accumulate4(const float* const h[4], const float* const x[4], float* sum) const;

  int partitionCount = 0;
  std::vector<float> partitions;  // partitionCount spectra of fftSize floats
  std::vector<float> history;     // ring of the last partitionCount block spectra
  int head = 0;                   // history slot of the next block
  int valid = 0;                  // blocks in history that still need summing
  // Ring of partial sums from blocks that met an earlier response, one per
  // upcoming block; `current` is the next block's slot. Zero except for the
  // `carriedBlocks` slots from `current` on.
  std::vector<float> carried;
  int current = 0;
  int carriedBlocks = 0;
  std::vector<float> overlap;  // blockSize floats
  std::vector<float> work;     // fftSize floats of time signal
  std::vector<float> due;      // the spectrum being summed, fftSize floats
  bool firstBlock = true;
};

// True-stereo convolution over interleaved samples with up to four paths:
// 0 left to left, 1 right to left, 2 left to right, 3 right to right.
// Output channel c is the sum of its own path (2c | c) & 3 on channel c and
// its partner path (2c | (c ^ 1)) & 3 on channel c ^ 1, the own path first;
// paths without a convolver are left out, and a channel without any keeps
// its input. For more than two channels the same four convolvers are reused
// by channel pairs, which is only meaningful for two channels.
//
// Process takes blockSize frames of K channels (blockSize * K samples) and
// returns fewer on the first block, as each path's convolver does; latency
// is that of the lowest path present. Scratch buffers are kept between
// calls, so that steady processing allocates nothing.
//
// Reset does nothing: an owner that resets on a flush keeps the overlap and
// accumulators of the paths, which is intended.
class OndrelStereoConvolution {
 public:
  OndrelStereoConvolution() = default;
  virtual ~OndrelStereoConvolution() = default;

  OndrelStereoConvolution(const OndrelStereoConvolution&) = delete;
  OndrelStereoConvolution& operator=(const OndrelStereoConvolution&) = delete;

  // Stores the count; true for an even count, false (a refusal) otherwise.
  virtual bool SetChannels(int channels);
  virtual void Reset();
  virtual int InitPath(int blockSize, int padSize, int path);
  virtual int InitAll(int blockSize, int padSize);
  // A path without convolver accepts the response and ignores it.
  virtual int SetImpulseResponse(const float* samples, int length, int path);
  // `count` counts samples over all channels, in and out. A count without
  // a whole frame does nothing and gives 0 samples; a negative count gives
  // 2000. 2001 when the scratch buffers cannot grow; a path's own status
  // (2000 without a response) is passed on.
  virtual int Process(float* samples, int* count);
  virtual int GetLatency();

 private:
  static constexpr int kPaths = 4;
  std::unique_ptr<OndrelFastConvolution> paths[kPaths];
  int channels = 2;
  std::vector<float> planar;  // de-interleaved input, channels * frames
  std::vector<float> ownScratch;
  std::vector<float> partnerScratch;
  int pathBlockSize[kPaths] = {0, 0, 0, 0};
};

}  // namespace ONDREL2
