// IOndrel2: the block adapter every effect derives from.
//
// The chain hands an effect any number of frames at any time; the adapter
// queues them and calls the effect's ProcessBlock on exactly GetBlockSize()
// frames of planar floats, in place, after UpdateParams whenever a parameter
// or the format changed. Channels of the chain's vector that the effect
// does not take (more inputs than the effect reads, or more than it writes)
// travel around the block in a dry queue, frame-aligned with the processed
// channels. With no overrides it is a pass-through with one block of delay.
//
// The block path allocates nothing once the queues have reached their
// working size.
#pragma once

#include "frame/sample_fifo.h"
#include "framework/audio_effect.h"

namespace ONDREL2 {

class IOndrel2 : public AudioEffect {
 public:
  IOndrel2() = default;
  ~IOndrel2() override;

  int32_t Resume() override;
  int32_t GetBlockSize() override;
  void ClearBuffers() override;
  int32_t ProcessInput(const ChannelVector& in, int32_t frames, int32_t* available) override;
  int32_t ProcessOutput(const ChannelVector& out, int32_t frames, int32_t* got) override;
  int32_t FlushTail(int32_t* frames) override;
  int32_t UpdateParams() override;

  // Frames of delay held back by the effect's own DSP.
  virtual int32_t GetLatency();
  virtual void FreeScratch();
  // Clears the effect's DSP state.
  virtual void ResetDsp();
  // The per-block hook: `frames` holds the block's frames and may be
  // changed to report how many the effect leaves.
  virtual int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames);
  virtual int32_t SetupBuffers();
  virtual int32_t SetupDryFifo(int32_t a, int32_t b, int32_t c);

  SampleFifo inFifo;
  SampleFifo dryFifo;
  SampleFifo outFifo;
  float* scratch = nullptr;
  int32_t scratchSize = 0;
  ChannelVector blockBufs;
};

}  // namespace ONDREL2
