#include "effects/headphone/channel_remixer.h"

#include <cmath>

namespace ONDREL2 {
namespace HEADPHONE {
namespace {

constexpr double kMinus3dB = 0.7071067811865476;
constexpr uint64_t kFrontLeft = 0x1, kFrontRight = 0x2, kFrontCentre = 0x4;
constexpr uint64_t kBackLeft = 0x10, kBackRight = 0x20, kBackCentre = 0x100;
constexpr uint64_t kSideLeft = 0x200, kSideRight = 0x400;

// Left and right members of the speaker pairs, by bit number.
constexpr int kPairs[][2] = {{0, 1},   {4, 5},   {6, 7},   {9, 10}, {12, 14},
                             {15, 17}, {29, 30}, {31, 32}, {33, 34}};

int32_t CountBits(uint64_t mask) {
  int32_t n = 0;
  for (; mask != 0; mask &= mask - 1) ++n;
  return n;
}

bool Usable(uint64_t mask) {
  if ((mask & (kFrontLeft | kFrontRight | kFrontCentre)) == 0) return false;
  for (const auto& pair : kPairs) {
    const bool left = (mask >> pair[0]) & 1u;
    const bool right = (mask >> pair[1]) & 1u;
    if (left != right) return false;
  }
  return true;
}

// Position of `bit` among the channels of `mask`, or -1.
int32_t SlotOf(uint64_t mask, uint64_t bit) {
  if ((mask & bit) == 0) return -1;
  return CountBits(mask & (bit - 1));
}

}  // namespace

ChannelRemixer::ChannelRemixer(uint64_t inputMask, uint64_t outputMask)
    : inputMask(inputMask),
      outputMask(outputMask),
      inputChannels(CountBits(inputMask)),
      outputChannels(CountBits(outputMask)) {}

bool ChannelRemixer::BuildMatrix() {
  if (!Usable(inputMask) || !Usable(outputMask)) return false;
  std::vector<double> m(static_cast<size_t>(outputChannels * inputChannels), 0.0);
  auto add = [&](uint64_t outBit, uint64_t inBit, double gain) {
    const int32_t o = SlotOf(outputMask, outBit);
    const int32_t i = SlotOf(inputMask, inBit);
    if (o >= 0 && i >= 0) m[static_cast<size_t>(o * inputChannels + i)] += gain;
  };
  for (int bit = 0; bit < 64; ++bit) {
    const uint64_t b = uint64_t{1} << bit;
    if ((inputMask & b) && (outputMask & b)) add(b, b, 1.0);
  }
  const bool inputOnly = (inputMask & kBackCentre) && !(outputMask & kBackCentre);
  if (inputOnly) {
    add(kBackLeft, kBackCentre, kMinus3dB);
    add(kBackRight, kBackCentre, kMinus3dB);
  }
  // Sides fold into the backs; softer when the input has backs of its own.
  const double sideGain = (inputMask & kBackLeft) ? kMinus3dB : 1.0;
  if ((inputMask & kSideLeft) && !(outputMask & kSideLeft)) add(kBackLeft, kSideLeft, sideGain);
  if ((inputMask & kSideRight) && !(outputMask & kSideRight)) add(kBackRight, kSideRight, sideGain);

  double maximum = 0.0;
  for (int32_t o = 0; o < outputChannels; ++o) {
    double sum = 0.0;
    for (int32_t i = 0; i < inputChannels; ++i)
      sum += std::fabs(m[static_cast<size_t>(o * inputChannels + i)]);
    if (sum > maximum) maximum = sum;
  }
  if (maximum > 1.0)
    for (double& v : m) v /= maximum;
  matrix.assign(m.size(), 0.0f);
  for (size_t k = 0; k < m.size(); ++k) matrix[k] = static_cast<float>(m[k]);
  return true;
}

void ChannelRemixer::Remix(const float* in, float* out, int32_t frames) const {
  for (int32_t f = 0; f < frames; ++f) {
    const float* x = in + static_cast<size_t>(f) * inputChannels;
    float* y = out + static_cast<size_t>(f) * outputChannels;
    for (int32_t o = 0; o < outputChannels; ++o) {
      const float* row = matrix.data() + static_cast<size_t>(o * inputChannels);
      float acc = 0.0f;
      for (int32_t i = 0; i < inputChannels; ++i) acc += row[i] * x[i];
      y[o] = acc;
    }
  }
}

}  // namespace HEADPHONE
}  // namespace ONDREL2
