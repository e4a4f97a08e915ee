// Partitioned FFT convolution against direct time-domain convolution in
// double. (A response replaced mid-stream and Reset are checked bit for bit
// against the accumulator-ring form beside the FFT kernel tests.)

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "dsp/fast_convolution.h"

namespace ONDREL2 {
namespace {

// Responses are scaled by 1/sqrt(length) so that the output stays near unit
// amplitude whatever the length, which lets one absolute tolerance serve all:
// float transforms summed over many partitions stay below 1.5e-6, and a
// misplaced sample or bin costs on the order of 0.1.
std::vector<float> Noise(size_t n, unsigned seed, bool response = false) {
  std::mt19937 rng(seed);
  const float scale = response ? 1.0f / std::sqrt(static_cast<float>(n)) : 1.0f;
  std::uniform_real_distribution<float> dist(-scale, scale);
  std::vector<float> x(n);
  for (float& v : x) v = dist(rng);
  return x;
}

std::vector<double> Direct(const std::vector<float>& x, const std::vector<float>& h) {
  std::vector<double> y(x.size() + h.size(), 0.0);
  for (size_t n = 0; n < x.size(); ++n)
    for (size_t j = 0; j < h.size(); ++j) y[n + j] += static_cast<double>(x[n]) * h[j];
  return y;
}

// Fed block by block, the output is the convolution advanced by the
// latency of half a block.
TEST(OndrelFastConvolution, MatchesDirectConvolutionForManyLengths) {
  for (const auto& sizes : {std::pair<int, int>{64, 64}, {63, 65}, {511, 513}}) {
    const int bs = sizes.first, blocks = bs > 256 ? 4 : 12;
    const std::vector<float> x = Noise(static_cast<size_t>(bs * blocks), 1);
    const std::vector<int> lengths = bs > 256
                                         ? std::vector<int>{1, bs + 1, 2 * bs + 7}
                                         : std::vector<int>{1, 2, bs - 1, bs, bs + 1, 5 * bs + 7};
    for (int length : lengths) {
      SCOPED_TRACE(testing::Message() << "block " << bs << " length " << length);
      OndrelFastConvolution conv;
      ASSERT_EQ(conv.Init(bs, sizes.second), 0);
      EXPECT_EQ(conv.GetLatency(), bs / 2);
      const std::vector<float> h = Noise(static_cast<size_t>(length), length, true);
      ASSERT_EQ(conv.SetImpulseResponse(h.data(), length), 0);
      const std::vector<double> ref = Direct(x, h);
      std::vector<float> out, block(static_cast<size_t>(bs));
      for (size_t pos = 0; pos < x.size(); pos += block.size()) {
        std::copy_n(x.begin() + static_cast<long>(pos), bs, block.begin());
        int frames = -1;
        ASSERT_EQ(conv.Process(block.data(), &frames), 0);
        out.insert(out.end(), block.begin(), block.begin() + frames);
      }
      ASSERT_EQ(out.size(), static_cast<size_t>(bs * blocks - bs / 2));
      for (size_t m = 0; m < out.size(); ++m)
        ASSERT_NEAR(out[m], ref[m + static_cast<size_t>(bs / 2)], 5e-6) << "output " << m;
    }
  }
}

}  // namespace
}  // namespace ONDREL2
