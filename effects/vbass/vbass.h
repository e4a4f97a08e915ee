// Virtual bass: the wrapper runner over VirtualBassDsp.
//
// VBassDspWrapper carries one VirtualBassDsp per stereo pair; a single
// speaker passes unchanged, since the processor works on pairs only. It
// offers the interleaved form alone, so the runner interleaves each pair.
//
// The processor's parameters are handed over as the runner's display texts:
// `Crossover cutoff` ("%.1f Hz") is read with atoi and so acts in whole Hz
// (250.9 acts as 250), `Effect level` ("%g") with atof. Because the
// crossover is handed over on every parameter pass, every pass clears the
// histories. Both behaviours are deliberate; presets sound as they do
// because of them.
//
// VirtualBassEffect is the runner as the catalogue makes it (type 38, script
// version 4). Block size 512, no latency.
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/dsp_wrapper.h"
#include "effects/vbass/virtual_bass_dsp.h"

namespace ONDREL2 {
namespace VBASS {

class VBassDspWrapper : public ON_DSP_WRAPPERS::IDspWrapper {
 public:
  // The prototype: one channel, no rate.
  VBassDspWrapper();
  VBassDspWrapper(float sampleRate, int32_t channels, uint64_t channelBits);
  ~VBassDspWrapper() override;

  IDspWrapper* Create(float sampleRate, int32_t channels, uint64_t channelBits) override;
  int32_t UpdateParams(AudioEffect* runner) override;
  int32_t GetLatency() override;
  void Reset() override;
  int32_t ProcessInterleaved(float* samples, int32_t frames, const int32_t* indices) override;

  std::unique_ptr<VirtualBassDsp> dsp;
  int32_t sampleFormat = 32;
  int32_t channels = 1;
  int32_t sampleRate = 0;
  uint64_t channelBits = 0;
};

class VirtualBassEffect : public ON_DSP_WRAPPERS::DspWrapperRunner {
 public:
  VirtualBassEffect();
  ~VirtualBassEffect() override;
  AudioEffect* CreateInstance() override;
};

}  // namespace VBASS
}  // namespace ONDREL2
