// ChannelRemixer: a fixed gain matrix from one speaker layout to another.
//
// Rows are output channels, columns input channels, both in ascending mask
// bit order. The matrix is built from the two masks: a speaker present on
// both sides passes at unity, a back centre feeds both backs at -3 dB, side
// speakers fold into the backs (at -3 dB when the input has backs of its
// own, at unity otherwise), and everything else is dropped. A matrix whose
// busiest row sums above 1 in magnitude is scaled down so that no output
// can exceed full scale from a full-scale input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ONDREL2 {
namespace HEADPHONE {

class ChannelRemixer {
 public:
  ChannelRemixer(uint64_t inputMask, uint64_t outputMask);

  // Builds `matrix`. False when either mask is not a usable layout: no
  // front speaker at all, or a left/right pair with one side missing.
  bool BuildMatrix();
  // `frames` frames of interleaved input, inputChannels wide, into
  // interleaved output, outputChannels wide. Sums run in input order, in
  // single precision.
  void Remix(const float* in, float* out, int32_t frames) const;

  float& At(int32_t out, int32_t in) {
    return matrix[static_cast<size_t>(out * inputChannels + in)];
  }

  uint64_t inputMask;
  uint64_t outputMask;
  int32_t inputChannels;
  int32_t outputChannels;
  std::vector<float> matrix;  // outputChannels rows of inputChannels entries
};

}  // namespace HEADPHONE
}  // namespace ONDREL2
