// SamplerEffect: a looped stereo sound mixed into every stereo pair.
//
// `Audio File` names a wave file below the resource roots (UTF-8,
// backslashes taken as slashes), plain or scrambled; `Gain` (dB) scales it
// once at load. Each channel group except a lone speaker whose position
// number shares a bit with 0x23 gets its own StereoSampler holding the whole
// file decoded; only stereo pairs hear it. The file plays at the stream's
// rate whatever its own, frame after frame, for ever.
//
// Block size 512, no latency. Every change of a parameter, rate or channels
// reloads the file and restarts it; a clear restarts it too. A missing file
// or one that is not stereo leaves the audio unchanged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/group_units.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace STEREO_SAMPLER {

class StereoSampler {
 public:
  // Loads `path` through the resource roots for a group of `channelCount`
  // channels; `gainDb` is applied to the stored samples.
  StereoSampler(const std::string& path, int channelCount, int rate, float gainDb);
  virtual ~StereoSampler();
  StereoSampler(const StereoSampler&) = delete;
  StereoSampler& operator=(const StereoSampler&) = delete;

  void Rewind();
  // Adds the next `count` frames of the loop to channels `indices` of
  // `bufs`. Does nothing for a single speaker or without a file.
  int32_t Process(float* const* bufs, int32_t count, const int32_t indices[2]);

  int channels = 0;
  int sampleRate = 0;
  int frames = 0;
  std::vector<float> samples;  // interleaved stereo, gain applied
  int position = 0;
};

}  // namespace STEREO_SAMPLER

namespace SAMPLER {

class SamplerEffect : public IOndrel2 {
 public:
  SamplerEffect();
  ~SamplerEffect() override;
  AudioEffect* CreateInstance() override;
  void ResetDsp() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  GroupUnits<STEREO_SAMPLER::StereoSampler> units;
};

}  // namespace SAMPLER
}  // namespace ONDREL2
