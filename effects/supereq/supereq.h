// SuperEQEffect: a ten-band linear-phase graphic equaliser.
//
// Parameters: `gain_len` (bands in use, 1 to 1024), `start_f` (Hz, upper
// corner of the lowest band), `octave` (octaves between corners),
// `window_bits` (2^(bits-1) - 1 taps), then ten band gains in dB (-18 to
// +18). The band names ("16 Hz" ... "10702 Hz") are labels only: the bands
// lie where `start_f` and `octave` put them. Bands beyond the ten gain
// parameters (a `gain_len` above 10) are flat.
//
// The FIR is designed on the first block after a change, inside
// ProcessBlock, and runs through one fast convolver per channel. Blocks of
// filterLength frames (2047 at the default 12 window bits); the convolver
// advances its output by half a block, which the response's centre delay
// fills, so flat gains give the input back in time. GetLatency reports the
// advance, which a flush supplies again at the end of a stream.
//
// The block path allocates nothing except when a design runs. A clear or a
// flush keeps the convolvers' overlap; a new gain setting takes effect on
// the running overlap without a gap.
#pragma once

#include <cstdint>
#include <memory>

#include "effects/supereq/supereq_engine.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace SUPEREQ {

class SuperEQEffect : public IOndrel2 {
 public:
  SuperEQEffect();
  ~SuperEQEffect() override;

  AudioEffect* CreateInstance() override;
  int32_t GetBlockSize() override;
  int32_t GetLatency() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;
  // Lays the block buffers out for the largest block, so that a change of
  // `window_bits` while running still fits the buffers.
  int32_t SetupBuffers() override;

  // Deletes the engine; the next UpdateParams makes the whole design again.
  virtual void FreeEngine();

  std::unique_ptr<SuperEqEngine> engine;

 private:
  bool sizingBuffers = false;
};

}  // namespace SUPEREQ
}  // namespace ONDREL2
