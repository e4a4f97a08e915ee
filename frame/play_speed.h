// PlaySpeedController: playback speed without a change of pitch.
//
// Stands beside the effect chain, not in it: the host feeds planar float
// frames through ondrel_psctrl_input, takes the time-stretched frames with
// ondrel_psctrl_output, and converts output byte positions back into source
// byte positions with ondrel_psctrl_getActualBytes.
//
// Audio is stretched by a SoundTouch engine in blocks of 512 frames; a
// remainder below a block waits in the input queue. A speed within 1e-6 of
// 1.0 bypasses the engine, so normal playback costs two queue copies and
// is bit-exact. Channels of the host's vector beyond `channels` travel
// through a dry queue untouched, with no time relation to the stretched ones.
//
// Setters only record the change in `dirty` (one value, not a set of bits:
// a later setter replaces an earlier pending one, deliberately, and a host
// relies on the last call winning). The next input call applies the change,
// takes no audio and reports ONDREL_E_INVALID; the host repeats the call.
//
// Byte accounting: `speedMap.total` counts output bytes of the stretched
// channels at `bitsPerSample`, from the start position. A change of speed
// closes the open segment of the map at `total`; a new rate or channel
// count replaces the engine and restarts the map at 0.
//
// Not thread-safe; the host serialises all calls. The steady path reuses
// its buffers once the queues have grown.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/sample_fifo.h"

namespace soundtouch {
class SoundTouch;
}

namespace ONDREL2 {

// One stretch of output bytes played at one speed. `end` is all ones while
// the segment is open.
struct SpeedSegment {
  uint64_t start;
  uint64_t end;
  float multiple;
};

// Output byte positions to source byte positions.
struct SpeedMap {
  static constexpr uint64_t kOpen = ~static_cast<uint64_t>(0);

  // Starts, extends or rewrites the open segment for a speed that applies
  // from `total` on. ONDREL_E_SPEED for a non-positive speed or a `total`
  // the open segment cannot take.
  int Add(float multiple);
  // The source byte position of output byte `position`; ONDREL_E_UNAVAILABLE
  // outside the map.
  int ActualBytes(uint64_t position, uint64_t* actual) const;

  std::vector<SpeedSegment> segments;
  uint64_t total = 0;
};

class PlaySpeedController {
 public:
  static constexpr int kBlockFrames = 512;

  // Settings as given; `position` is the output byte position the host's
  // accounting starts from. A controller whose buffers could not be set up
  // (no channels, more than the queues hold) refuses audio with
  // ONDREL_E_INVALID.
  PlaySpeedController(uint32_t sampleRate, uint32_t bitsPerSample, int32_t channels, float multiple,
                      uint64_t position);
  virtual ~PlaySpeedController();
  PlaySpeedController(const PlaySpeedController&) = delete;
  PlaySpeedController& operator=(const PlaySpeedController&) = delete;

  int SetMultiple(float value);
  int SetSampleRate(uint32_t rate);
  int SetChannels(int32_t count);
  int Input(const std::vector<float*>& vec, int frames, int* available);
  int Output(const std::vector<float*>& vec, int frames, int* got);
  int GetActualBytes(uint64_t position, uint64_t& actual) const;
  int Seek();

  float multiple;
  uint32_t sampleRate;
  int32_t channels;
  uint32_t bitsPerSample;
  SampleFifo inQueue;
  SampleFifo dryQueue;
  SampleFifo outQueue;
  float* block = nullptr;
  int32_t blockSize = 0;
  std::vector<float*> blockVector;
  soundtouch::SoundTouch* engine = nullptr;
  int32_t dirty = 0;
  SpeedMap speedMap;

 private:
  enum Pending { kNothing = 0, kMultiple = 1, kChannels = 2, kSampleRate = 3 };

  void CreateEngine();
  int AllocateBuffers();
  // Output bytes of `frames` stretched frames.
  uint64_t BytesOf(int frames) const;
  // Runs `frames` frames of blockVector through the engine in place;
  // returns the frames that came back (at most `frames`).
  int Stretch(int frames);
  // Moves up to one block of what the engine holds into blockVector.
  int ReceiveBlock(int limit);

  int32_t engineChannels = 0;      // what the engine was built for; 0 without one
  std::vector<float> interleaved;  // engine-side scratch, channels * 512
};

}  // namespace ONDREL2
