// LookaheadLimiter: brick-wall peak limiter kernel with look-ahead, for one
// group of channels (a single speaker or a linked stereo pair).
//
// Input frames go into a ring of `bufferSize` samples (interleaved frames of
// the group) and leave it bufferSize / channels - 1 frames later, multiplied
// by the current gain `att`. A frame whose peak exceeds `limit` makes the
// gain ramp down linearly so that it reaches limit / peak as that frame
// leaves the ring; the ramp back up follows `release`. Changes that are
// still pending are kept in two small rings (`nextPos`, `nextDelta`). Every
// output sample is finally clipped to +-limit and scaled by the output
// level, so the output never exceeds limit * level * levelOut in magnitude.
//
// Units: levels and ceiling are linear gains; `attack` (the look-ahead) and
// `release` are given in milliseconds and held in seconds after Reset().
// The ring is sized for 100 ms plus one frame, enough for every attack time
// of the limiter's parameter range.
//
// Real-time safety: Reset() and the two process entry points neither
// allocate, lock nor log; SetFormat() allocates. Reset() restores the
// configured parameters, returns the gain to 1 and empties the ring and the
// pending changes, but keeps the ring's length and format.
//
// All per-frame arithmetic is single precision in a fixed order; the output
// is reproducible sample for sample.
#pragma once

#include <cstdint>

namespace ONDREL2 {

// The block that configures a kernel.
struct LookaheadLimiterParams {
  float levelIn = 1.0f;           // linear input gain
  float levelOut = 0.9765625f;    // linear output gain (the fixed default of built-in users)
  float limit = 1.0f;             // linear ceiling
  float attack = 5.0f;            // look-ahead, ms
  float release = 50.0f;          // release time, ms
  int32_t autoRelease = 0;        // non-zero: auto-release logic on
  float autoReleaseLevel = 0.5f;  // 0 to 1
  int32_t autoLevel = 1;          // non-zero: output multiplied by 1 / limit
};

class LookaheadLimiter {
 public:
  // The widest group the kernel accepts.
  static constexpr int32_t kMaxChannels = 8;
  // Floats per call of ProcessInterleaved.
  static constexpr int32_t kInterleavedBlock = 2048;

  // Stores `params` (or the defaults when null), then resets. The kernel
  // has no ring until SetFormat succeeds.
  explicit LookaheadLimiter(const LookaheadLimiterParams* params = nullptr);
  ~LookaheadLimiter();
  LookaheadLimiter(const LookaheadLimiter&) = delete;
  LookaheadLimiter& operator=(const LookaheadLimiter&) = delete;

  void Reset();
  // Stores the format and sizes the ring. Returns 0; 2000 when the channel
  // count is outside 1..kMaxChannels or the ring would hold less than one
  // frame or not fit its allocation; 2001 when an array can't be allocated.
  // Must succeed before any processing.
  int32_t SetFormat(int32_t rate, int32_t chns);
  // In place over `frames` frames: sample n of group channel c is
  // channelBuffers[channelIndices[c]][n].
  void ProcessPlanar(float* const* channelBuffers, int32_t frames, const int32_t* channelIndices);
  // One block of kInterleavedBlock floats (kInterleavedBlock / channels
  // frames) from `source` to `destination`, which may be the same buffer.
  void ProcessInterleaved(const float* source, float* destination);

  // Look-ahead in frames as the owner reports it: bufferSize / channels.
  int32_t LatencyFrames() const { return channels > 0 ? bufferSize / channels : 0; }

  // Configuration (attack and release in seconds once reset).
  float levelIn = 0.0f;
  float levelOut = 0.0f;
  float limit = 0.0f;
  float attack = 0.0f;
  float release = 0.0f;
  int32_t autoRelease = 0;
  // -2 * 0.5^(autoReleaseLevel - 0.5). Negative on purpose: it makes the
  // auto-release target come out negative, so the release keeps its plain
  // slope; the auto-release behaviour users know depends on exactly that.
  float ascCoeff = 0.0f;
  int32_t autoLevel = 0;

  // Running state.
  float att = 0.0f;            // current gain, 1 is no reduction
  float ascSum = 0.0f;         // sum of the peaks above the ceiling inside the look-ahead
  int32_t ascCount = 0;        // how many peaks ascSum holds
  int32_t ascPos = -1;         // -1 from every reset on
  float* buffer = nullptr;     // the ring, interleaved frames
  int32_t bufferSize = 0;      // active ring length in samples, a multiple of channels
  int32_t bufferCapacity = 0;  // entries allocated in each of the three arrays
  int32_t pos = 0;             // write position, in samples
  int32_t* nextPos = nullptr;  // ring positions of pending gain changes, -1 for none
  float* nextDelta = nullptr;  // per pending change, the gain increment after it
  float delta = 0.0f;          // gain increment per frame now in force
  int32_t nextIter = 0;        // index of the first pending change
  int32_t nextLen = 0;         // pending changes
  int32_t ascChanged = 0;      // always 0
  int32_t channels = 0;
  int32_t sampleRate = 0;

  LookaheadLimiterParams saved;  // what a reset restores

 private:
  // The per-frame kernel over `frames` frames; channel c reads src[c] and
  // writes dst[c], both advancing by `stride` floats a frame.
  void Run(const float* const* src, float* const* dst, int32_t stride, int32_t frames);
  // Run's loop for `kChannels` channels (0: the object's count).
  template <int32_t kChannels>
  void RunFor(const float* const* src, float* const* dst, int32_t stride, int32_t frames);
  void FreeArrays();
};

}  // namespace ONDREL2
