// The shell for DSP code written without the block adapter in mind.
//
// IDspWrapper is the small interface such a processor implements: it is made
// for one channel group (a stereo pair or a single speaker), reads its
// parameters from the effect that runs it, and processes in at least one of
// three buffer forms. DspWrapperRunner is that effect: it keeps one wrapper
// per channel group, hands parameter and format changes to the wrappers,
// and drives each over the block in the form the wrappers offer.
//
// Which form is found once, by probing the first wrapper that exists: the
// vector form, then the pointer form, then the interleaved form, each asked
// with 0 frames; an answer other than ONDREL_E_UNAVAILABLE picks the form.
// A wrapper that offers none leaves the audio as it is. The probe ends the
// update, so the groups behind the first one get their wrappers at the next
// update and stay dry until then; stored presets were made with this and
// rely on it.
//
// The number a wrapper returns from a process call is a frame count, not a
// status: it is what the next group gets, and the last one is what the block
// reports. Latency is the first group's wrapper's. The block path allocates
// nothing once the interleave buffer has reached the block's size (it is
// sized in UpdateParams). A clear (ClearBuffers) resets the wrappers and
// leaves the queues alone.
#pragma once

#include <cstdint>
#include <vector>

#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace ON_DSP_WRAPPERS {

class IDspWrapper {
 public:
  IDspWrapper() = default;
  virtual ~IDspWrapper();
  IDspWrapper(const IDspWrapper&) = delete;
  IDspWrapper& operator=(const IDspWrapper&) = delete;

  // A processor for one group of `channels` (1 or 2) at `sampleRate`;
  // `channelBits` has the bits of the group's speaker positions below 16.
  // Null if the wrapper wants none for this group.
  virtual IDspWrapper* Create(float sampleRate, int32_t channels, uint64_t channelBits) = 0;
  // Reads the runner's parameters (and rate); non-zero is a failure status.
  virtual int32_t UpdateParams(AudioEffect* runner) = 0;
  virtual int32_t GetLatency();
  virtual void Reset();
  // The three process forms. `indices` holds the group's two channel slots
  // (equal for a single speaker). Each returns the frames it leaves, or
  // ONDREL_E_UNAVAILABLE when the form is not implemented (the default).
  // `channels` holds the group's channels in group order.
  virtual int32_t ProcessPointers(float** channels, int32_t frames, const int32_t* indices);
  // `samples` holds the group's channels interleaved.
  virtual int32_t ProcessInterleaved(float* samples, int32_t frames, const int32_t* indices);
  // `buffers` is the whole block; the group's channels are at `indices`.
  virtual int32_t ProcessVector(const std::vector<float*>& buffers, int32_t frames,
                                const int32_t* indices);

 protected:
  static int32_t NotImplemented(int32_t frames);
};

class DspWrapperRunner : public IOndrel2 {
 public:
  enum Mode : int32_t {
    kNotProbed = 0,
    kVector = 1,
    kPointers = 2,
    kInterleaved = 3,
    kNone = 4,
  };

  // Takes ownership of `prototype`, which only ever makes the groups'
  // wrappers.
  explicit DspWrapperRunner(IDspWrapper* prototype);
  ~DspWrapperRunner() override;

  virtual void SetEffectType(int32_t type);
  virtual void SetScriptVersion(int32_t version);

  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  int32_t GetLatency() override;
  void ResetDsp() override;
  void ClearBuffers() override;

  IDspWrapper* prototype;
  int32_t mode = kNotProbed;
  GroupUnits<IDspWrapper> units;
  bool disabled = false;

 private:
  std::vector<float> interleaved_;
};

}  // namespace ON_DSP_WRAPPERS
}  // namespace ONDREL2
