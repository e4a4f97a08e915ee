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

#include "dsp/eqfb_band.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace IIR_EQ_FIXED_BANDS {

// The band record and its design are shared with other fixed curves.
using ONDREL2::DesignEqfbBand;
using ONDREL2::EqfbBand;

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
  // The frame-by-frame loop; ProcessBlock's results equal it bit for bit.
  int32_t ProcessBlockScalar(const ChannelVector& bufs, int32_t* frames);

  // Deletes all band records.
  virtual void FreeFilters();

  // Index = band * channels + channel.
  std::vector<std::unique_ptr<EqfbBand>> filters;
  // The same records as plain pointers, in the same order, for the block kernel.
  std::vector<EqfbBand*> bandTable;
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
