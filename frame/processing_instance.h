// ProcessingInstance: the object behind the host's opaque instance pointer.
//
// Holds one ordered chain of effects and runs interleaved PCM through it.
// Two queues decouple the host's buffer sizes from the effects' blocks:
// `input` collects host samples until a whole block of the first effect is
// there; `output` holds what left the last effect. The instance negotiates
// rate, channel count and layout along the chain, and for each new list
// decides between a rebuild, a change applied on the fly, and nothing.
//
// The steady path (PumpInput with stable sizes) allocates nothing. Not
// thread-safe: the host serialises all calls on one instance.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/sample_fifo.h"
#include "ondrel.h"

namespace ONDREL2 {

class AudioEffect;
class PlaySpeedController;

class ProcessingInstance {
 public:
  ProcessingInstance();
  ~ProcessingInstance();
  ProcessingInstance(const ProcessingInstance&) = delete;
  ProcessingInstance& operator=(const ProcessingInstance&) = delete;

  int SetParams(AEffect** list, int count);
  int ConfigureChain();
  int KissEffectList();
  void ApplyBypassPass();
  int PumpInput(int* available);
  int RunChainBlock(const std::vector<float*>& vec, int frames);
  // Takes `count` interleaved host samples (a whole number of frames)
  // through the chain: whole blocks go straight from the host's buffer,
  // the rest waits in `input`. Statuses as a put into `input` followed by
  // PumpInput.
  // Checks that `count` host samples are whole frames and makes room for
  // them in `input`; a failure here refuses the buffer.
  int AcceptHost(int count);
  template <typename Sample>
  int FeedHost(const Sample* samples, int count, int* available);
  void FlushBuffers();
  int DrainChain(int* available);
  int AllocBlockBuffers(int channels, int frames);

  std::vector<AudioEffect*> effects;
  SampleFifo input;
  SampleFifo output;
  int inputBlockSize = 0;
  // The highest rate a stream may have: 2^24 Hz, far above any audio format
  // and still a whole number in a float, so that every effect can take a
  // rate as an integer.
  static constexpr float kMaxRate = 16777216.0f;
  static bool UsableRate(float rate) { return rate > 0.0f && rate <= kMaxRate; }

  float inRate = 44100.0f;
  float outRate = 44100.0f;
  int inChannels = 2;
  uint64_t inLayout = 0;
  int outChannels = 2;
  uint64_t outLayout = 0;
  int maxBlockSize = 0;
  std::vector<float*> blockVector;
  // Same width as blockVector; points into `output` while the last effect
  // writes there in place.
  std::vector<float*> ringVector;
  PlaySpeedController* speedController = nullptr;

 private:
  void SetFormatModulators();
  int DrainLastEffect(const std::vector<float*>& vec);
  template <typename Sample>
  int QueueHost(const Sample* samples, int channels, int from, int frames);
};

// Destroys, once each, the objects of a handed-in list that a chain could
// have taken: not null, not in `running`, not registry objects.
void DestroyHandedInEffects(AEffect** list, int count, const std::vector<AudioEffect*>& running);

}  // namespace ONDREL2
