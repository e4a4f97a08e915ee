// HeadphoneRoomEngine: 5.1 over headphones through measured room responses.
//
// Each of the five main speakers (FL, FC, FR, BL, BR) is convolved with a
// 1024-tap response per ear (the direct path); the sum of those speakers is
// convolved with a 6144-tap room tail per ear that starts one block later.
// Responses come from 22 raw files per room (1024 little-endian floats
// each) read through the host's stream reader; a file that can't be opened
// is a response of silence. The result goes through a fixed limiter.
//
// Convolution runs in blocks of N = 1024 frames in the frequency domain
// with complex transforms of N points. The last two input blocks of a
// speaker travel as one complex sequence, previous block in the real part
// and current block in the imaginary part, each sample turned by
// e^(i pi n / 2N), a quarter of a bin. Multiplying such spectra computes the
// product modulo x^N - i: the imaginary part of the unturned result is then
// exactly the current block of the linear convolution, free of wrap-around,
// and one transform does the work of a 2N-point real overlap-save.
// Responses are turned the same way when they are loaded.
//
// Internally samples are scaled to 16-bit range, and the twiddle tables to
// 2^15; the gains cancel to 32767/32768 from input to output before the
// limiter.
//
// Process() allocates only to grow the remix scratch for a larger call;
// room loads (SelectRoom) allocate their transform buffers and plans anew.
#pragma once

#include <fftw3.h>

#include <cstdint>
#include <memory>

#include "dsp/lookahead_limiter.h"
#include "effects/headphone/channel_remixer.h"

namespace ONDREL2 {
namespace HEADPHONE {

struct Bin {
  float re;
  float im;
};

class HeadphoneRoomEngine {
 public:
  static constexpr int32_t kBins = 1024;
  static constexpr int32_t kTailBlocks = 6;
  static constexpr int32_t kSpeakers = 5;  // FL, FC, FR, BL, BR
  static constexpr int32_t kPlanes = 6;    // the speakers, then LFE
  enum Plane { kFL = 0, kFC, kFR, kBL, kBR, kLFE };

  HeadphoneRoomEngine();
  ~HeadphoneRoomEngine();
  HeadphoneRoomEngine(const HeadphoneRoomEngine&) = delete;
  HeadphoneRoomEngine& operator=(const HeadphoneRoomEngine&) = delete;

  // Sets up the limiter and, for input other than 5.1, the remixer. False
  // when the channel count has no layout to remix from.
  bool Init(int32_t rate, int32_t chns);
  // Stores the room; 1, 2 and 3 load that room's responses.
  void SelectRoom(int32_t room);
  // `count` interleaved floats of `channels` per frame in `samples`. Each
  // completed block of 1024 frames is written over the start of `samples`
  // as 2048 interleaved stereo floats; returns the floats written. The
  // buffer must hold at least two floats per frame (it does whenever the
  // input has two channels or more). A trailing partial frame is ignored.
  int32_t Process(float* samples, int32_t count);

  bool HasTransforms() const { return forwardPlan != nullptr && inversePlan != nullptr; }

  bool enabled = true;
  bool needsClear = true;
  int32_t channels = 6;
  int32_t sampleRate = 44100;
  bool channelEnabled[kSpeakers] = {};
  bool lfeToMains = false;
  bool reservedA = false;  // carried for the effect's two spare flags
  bool reservedB = false;
  float lfeGain = 0.0f;
  int32_t roomType = 1;

  fftwf_plan forwardPlan = nullptr;
  fftwf_plan inversePlan = nullptr;
  fftwf_complex* fftIn = nullptr;
  fftwf_complex* fftOut = nullptr;

  Bin tail[kBins][kTailBlocks][2] = {};  // per bin, per tail block, per ear
  Bin direct[kSpeakers][kBins][2] = {};  // per speaker, per bin, per ear
  float cosTable[kBins] = {};
  float sinTable[kBins + 1] = {};
  float planes[2][kPlanes][kBins] = {};
  int32_t writePos = 0;
  int32_t phase = 0;
  Bin tailHistory[kBins][kTailBlocks] = {};  // oldest first
  Bin tailInput[kBins] = {};
  Bin spectrumLeft[kBins] = {};
  Bin spectrumRight[kBins] = {};
  float outBlock[2 * kBins] = {};

  std::unique_ptr<LookaheadLimiter> limiter;
  bool limiterReady = false;
  std::unique_ptr<ChannelRemixer> remixer;
  float* remixBuffer = nullptr;
  int32_t remixCapacity = 0;

 private:
  void LoadRoom(const char* folder, float gain);
  bool MakeTransforms();
  void ReleaseTransforms();
  void ClearState();
  void RunBlock();
  // Previous and current block of plane `p`, turned, into fftIn.
  void TurnPlanes(int32_t p);
};

}  // namespace HEADPHONE
}  // namespace ONDREL2
