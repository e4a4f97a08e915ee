// Fixed-band graphic equaliser on recursive band filters.
//
// EqfbEffect runs any number of bands whose centre frequencies are fixed
// when the object is made; IirEQ10Effect (octave bands from 31.25 Hz to
// 16 kHz) and IirEQ30Effect (a geometric ladder from 16 Hz) fix the count.
//
// Parameters: `Q`, the common width (0.025 to 1.25), then one gain per band
// in dB (-18 to +18), named after the band ("31 Hz", "1000 Hz", ...).
//
// Each band is a second-order band pass whose scaled output is added to the
// running sample: y += gain * bandpass(y), band after band in ascending
// order. The bands therefore feed each other; they are neither parallel on
// the input nor a chain of peaking sections. A band whose gain is within
// 0.001 dB of flat, or whose centre lies at or above half the sample rate,
// is bypassed, so an all-flat setting passes the audio bit for bit.
//
// Blocks of 1024 frames, no latency. ProcessBlock allocates nothing and is
// real-time safe. Every run of UpdateParams (any parameter, rate or channel
// change) builds fresh band records, so the filter states restart from zero
// there; a flush or reset leaves them alone.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace IIR_EQ_FIXED_BANDS {

// One band of one channel: coefficients, state and gain, all float. The
// band's transfer is inputScale * (1 + zero2 z^-2) / (1 - feedback1 z^-1 -
// feedback2 z^-2), its contribution is that times `gain`.
struct EqfbBand {
  float feedback1 = 0.0f;   // coefficient of the state one sample ago
  float feedback2 = 0.0f;   // coefficient of the state two samples ago
  float inputScale = 0.0f;  // coefficient of the input sample
  float zero2 = 0.0f;       // coefficient of the state two samples ago in the output
  float state1 = 0.0f;
  float state2 = 0.0f;
  float gain = 0.0f;   // linear band gain minus one
  uint8_t bypass = 1;  // non-zero: the band does nothing
};

// Designs `band` for a centre `frequency` in Hz, a `width` (the Q
// parameter), an integer sample rate and a gain in dB. The states are left
// as they are.
void DesignBand(EqfbBand& band, float frequency, float width, int32_t sampleRate, float gainDb);

// The parameter name of a band of `frequency` Hz: "%d Hz", rounded to the
// nearest integer.
void BandName(char* buf, double frequency);

class EqfbEffect : public IOndrel2 {
 public:
  // `frequencies` (Hz, one per band) may be null: the bands then climb from
  // 16 Hz by the ratio that would reach 22050 Hz at band `bands`.
  explicit EqfbEffect(int32_t bands, const float* frequencies = nullptr);
  ~EqfbEffect() override;

  AudioEffect* CreateInstance() override;
  int32_t GetBlockSize() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  // Deletes all band records.
  virtual void FreeFilters();

  // Index = band * channels + channel.
  std::vector<std::unique_ptr<EqfbBand>> filters;
  // Centre of each band in Hz, fixed for the object's life.
  std::vector<float> frequencies;
  // Channels the records were built for.
  int32_t filterChannels = 0;
};

class IirEQ10Effect : public EqfbEffect {
 public:
  IirEQ10Effect();
  ~IirEQ10Effect() override;
  AudioEffect* CreateInstance() override;
};

class IirEQ30Effect : public EqfbEffect {
 public:
  IirEQ30Effect();
  ~IirEQ30Effect() override;
  AudioEffect* CreateInstance() override;
};

}  // namespace IIR_EQ_FIXED_BANDS
}  // namespace ONDREL2
