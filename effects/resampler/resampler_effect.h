// ResamplerEffect: sets the stream's rate for the effects behind it.
//
// The incoming rate is kept in `inputRate`; the rate reported downstream
// (GetSampleRate, the base's `sampleRate`) is the target: `SampleRate` as
// given (`Method` 0, "Specified") or the input rate times or divided by the
// `Multiplier` ratio (`Method` 1), at most `Max`. `Algorithm` 0 ("Linear")
// picks the polyphase converter, 1 ("Sinc") the two-stage one, always with
// its fast settings. A parameter pass makes a new converter when its kind,
// rates or width changed and keeps the one it has otherwise; a new converter
// builds its tables when the first empty block reaches it.
//
// The block hook is deliberately no converter: a block with frames is
// returned unchanged with its frame count as the status, which stops the
// chain's pass with that value; hosts rely on this effect only to set the
// rate between chains. Only an empty block reaches the converter.
#pragma once

#include <memory>

#include "dsp/resampler.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace RESAMPLER {

class ResamplerEffect : public IOndrel2 {
 public:
  ResamplerEffect();
  ~ResamplerEffect() override;
  AudioEffect* CreateInstance() override;
  // Stores the incoming rate; the reported rate changes at the next
  // parameter pass.
  void SetSampleRate(float rate) override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  std::unique_ptr<CResampler> resampler;
  float inputRate = 44100.0f;
  int32_t method = 0;
  int32_t algorithm = 0;

 private:
  // What the converter in `resampler` is for.
  struct Target {
    bool twoStage = false;
    int32_t inRate = 0;
    int32_t outRate = 0;
    int32_t channels = 0;
    bool Same(const Target& o) const {
      return twoStage == o.twoStage && inRate == o.inRate && outRate == o.outRate &&
             channels == o.channels;
    }
  };
  Target target;
  bool initPending = false;  // `resampler` has not been given its rates yet
};

}  // namespace RESAMPLER
}  // namespace ONDREL2
