// IrLoader: reads one impulse response and hands it to a true-stereo
// convolver.
//
// A response comes from a wave file found through the resource roots (plain
// or as the "-dec" clear copy of a scrambled file) or, path by path, from raw
// 32-bit float files read through the host's stream reader. On load a wave
// response is trimmed of its quiet tail and faded (when `trim` lies strictly
// between -96 and -30 dB), then brought to the stream's rate with the
// polyphase resampler, or by linear interpolation where that gives nothing.
// File channel 0 drives left to left, 1 right to right, 2 right to left and
// 3 left to right; a mono file feeds both own paths, a stereo file gives two
// separate channels without crosstalk.
//
// Convolution runs in blocks of 511 frames padded to a 1024-point transform,
// so the convolver holds back 255 frames. Loading allocates and reads files;
// Process allocates nothing.
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/fast_convolution.h"

namespace ONDREL2 {
namespace STUDIO_IR {

// Frames per convolver block and the zeros behind each: 1024 points.
constexpr int kIrBlockSize = 511;
constexpr int kIrPadSize = 513;
// Longest path value; path buffers hold one byte more for the terminator
// that a value of full length may lack.
constexpr int kIrPathBytes = 256;

class IrLoader {
 public:
  IrLoader() = default;
  virtual ~IrLoader() = default;
  IrLoader(const IrLoader&) = delete;
  IrLoader& operator=(const IrLoader&) = delete;

  // Stores the stream's rate and the group's channels and makes a fresh
  // convolver for them. False when the convolver refuses the channel count
  // (it then stays, and passes such a block through) or cannot be made.
  bool SetFormat(int rate, int channelCount);
  // Loads the wave response `name` (a path below the resource roots).
  void LoadWave(const char* name, float trimDb, float fadeMs);
  // Loads four raw float responses, one per convolver path; empty paths
  // are skipped.
  void LoadRaw(const char* const rawPaths[4]);
  // Convolves `count` interleaved samples in place when a response is in
  // use; `count` may come back smaller (the first block after a load).
  int32_t Process(float* samples, int32_t* count);
  int32_t GetLatency();
  void Reset();

  bool enabled = false;
  bool pending = false;
  float trim = 0.0f;
  float fade = 0.0f;
  int sampleRate = 44100;
  int channels = 2;
  std::unique_ptr<OndrelStereoConvolution> convolver;
  int irFrames = 0;
  char paths[4][kIrPathBytes + 1] = {};
  bool isWaveFile = false;

 private:
  void LoadRawPath(const char* path, int pathIndex);
};

}  // namespace STUDIO_IR
}  // namespace ONDREL2
