// Partitioned FFT convolution against direct time-domain convolution in
// double.

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "dsp/fast_convolution.h"

namespace ONDREL2 {
namespace {

std::vector<float> Noise(size_t n, unsigned seed, float scale = 1.0f) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(-scale, scale);
  std::vector<float> x(n);
  for (float& v : x) v = dist(rng);
  return x;
}

// Responses are scaled by 1/sqrt(length) so that the output stays near unit
// amplitude whatever the length, which lets one absolute tolerance serve all.
std::vector<float> Response(size_t length, unsigned seed) {
  return Noise(length, seed, 1.0f / std::sqrt(static_cast<float>(length)));
}

// Single-precision transforms of up to 1024 points, summed over many
// partitions: observed errors stay below 1.5e-6 at unit amplitude, and a
// misplaced sample or bin costs on the order of 0.1.
constexpr double kTolerance = 5e-6;

std::vector<double> Direct(const std::vector<float>& x, const std::vector<float>& h) {
  std::vector<double> y(x.size() + h.size(), 0.0);
  for (size_t n = 0; n < x.size(); ++n)
    for (size_t j = 0; j < h.size(); ++j)
      y[n + j] += static_cast<double>(x[n]) * static_cast<double>(h[j]);
  return y;
}

// Feeds `x` block by block and returns everything the convolver reported.
std::vector<float> RunMono(IOndrelConvolution& conv, const std::vector<float>& x, int blockSize) {
  std::vector<float> out;
  std::vector<float> block(static_cast<size_t>(blockSize));
  for (size_t pos = 0; pos + static_cast<size_t>(blockSize) <= x.size();
       pos += static_cast<size_t>(blockSize)) {
    std::copy_n(x.begin() + static_cast<long>(pos), blockSize, block.begin());
    int frames = -1;
    EXPECT_EQ(conv.Process(block.data(), &frames), 0);
    out.insert(out.end(), block.begin(), block.begin() + frames);
  }
  return out;
}

// The output of a run is the convolution advanced by `latency` samples.
void ExpectAdvancedConvolution(const std::vector<float>& out, const std::vector<double>& ref,
                               int latency, const std::string& what) {
  for (size_t m = 0; m < out.size(); ++m)
    ASSERT_NEAR(out[m], ref[m + static_cast<size_t>(latency)], kTolerance)
        << what << ", output index " << m;
}

TEST(OndrelFastConvolution, MatchesDirectConvolutionForManyLengths) {
  struct Case {
    int blockSize;
    int padSize;
  };
  for (const Case sizes : {Case{64, 64}, Case{63, 65}, Case{511, 513}}) {
    const int bs = sizes.blockSize;
    // The large block runs fewer blocks and lengths to keep the direct
    // reference cheap; the small ones cover many partitions.
    const bool large = bs > 256;
    const int blocks = large ? 4 : 12;
    const std::vector<float> x = Noise(static_cast<size_t>(bs * blocks), 1);
    const std::vector<int> lengths =
        large ? std::vector<int>{1, bs, bs + 1, 2 * bs + 7}
              : std::vector<int>{1, 2, bs - 1, bs, bs + 1, 2 * bs, 5 * bs + 7};
    for (int length : lengths) {
      OndrelFastConvolution conv;
      ASSERT_EQ(conv.Init(bs, sizes.padSize), 0);
      EXPECT_EQ(conv.GetLatency(), bs / 2);
      const std::vector<float> h =
          Response(static_cast<size_t>(length), static_cast<unsigned>(length));
      ASSERT_EQ(conv.SetImpulseResponse(h.data(), length), 0);

      const std::vector<float> out = RunMono(conv, x, bs);
      ASSERT_EQ(out.size(), static_cast<size_t>(bs * blocks - bs / 2));
      ExpectAdvancedConvolution(out, Direct(x, h), bs / 2,
                                "block " + std::to_string(bs) + " pad " +
                                    std::to_string(sizes.padSize) + " length " +
                                    std::to_string(length));
    }
  }
}

TEST(OndrelFastConvolution, ResponseReplacedMidStreamKeepsRunningHistory) {
  const int bs = 64;
  const int blocks = 16;
  const int switchBlock = 7;
  const std::vector<float> x = Noise(static_cast<size_t>(bs * blocks), 11);
  // Same partition count (3), different lengths.
  const std::vector<float> h1 = Response(static_cast<size_t>(3 * bs), 12);
  const std::vector<float> h2 = Response(static_cast<size_t>(2 * bs + 5), 13);

  OndrelFastConvolution conv;
  ASSERT_EQ(conv.Init(bs, bs), 0);
  ASSERT_EQ(conv.SetImpulseResponse(h1.data(), static_cast<int>(h1.size())), 0);
  const std::vector<float> before(x.begin(), x.begin() + switchBlock * bs);
  std::vector<float> out = RunMono(conv, before, bs);
  ASSERT_EQ(conv.SetImpulseResponse(h2.data(), static_cast<int>(h2.size())), 0);
  const std::vector<float> after(x.begin() + switchBlock * bs, x.end());
  const std::vector<float> rest = RunMono(conv, after, bs);
  out.insert(out.end(), rest.begin(), rest.end());

  // Each input block is convolved with the response loaded when it was
  // processed; what was already accumulated plays out unchanged.
  std::vector<float> early(x.size(), 0.0f);
  std::vector<float> late(x.size(), 0.0f);
  for (size_t n = 0; n < x.size(); ++n) (n < before.size() ? early : late)[n] = x[n];
  std::vector<double> ref = Direct(early, h1);
  const std::vector<double> b = Direct(late, h2);
  for (size_t n = 0; n < b.size(); ++n) ref[n] += b[n];
  ExpectAdvancedConvolution(out, ref, bs / 2, "switch at block " + std::to_string(switchBlock));
}

std::vector<float> Interleave(const std::vector<float>& left, const std::vector<float>& right) {
  std::vector<float> out;
  for (size_t n = 0; n < left.size(); ++n) out.insert(out.end(), {left[n], right[n]});
  return out;
}

TEST(OndrelStereoConvolution, MissingPathsPassThroughAndPartialFramesWait) {
  const int bs = 32;
  const size_t frames = static_cast<size_t>(bs * 6);
  const std::vector<float> left = Noise(frames, 51);
  const std::vector<float> right = Noise(frames, 52);
  const std::vector<float> interleaved = Interleave(left, right);
  const std::vector<float> h3 = Response(9, 54);
  const std::vector<double> rr = Direct(right, h3);
  OndrelStereoConvolution three;
  EXPECT_FALSE(three.SetChannels(3));

  // Only path 3: the left channel has no path and keeps its input; the
  // frame count follows the convolver that ran. Reset doesn't reach the
  // convolvers, so a second run continues without a new advance.
  OndrelStereoConvolution rightOnly;
  ASSERT_EQ(rightOnly.InitPath(bs, bs, 3), 0);
  ASSERT_EQ(rightOnly.SetImpulseResponse(h3.data(), 9, 3), 0);
  EXPECT_EQ(rightOnly.GetLatency(), bs / 2);
  std::vector<float> block(interleaved.begin(), interleaved.begin() + 2 * bs);
  int count = 2 * bs;
  ASSERT_EQ(rightOnly.Process(block.data(), &count), 0);
  ASSERT_EQ(count, 2 * (bs - bs / 2));
  for (int n = 0; n < count / 2; ++n)
    ASSERT_EQ(block[2 * static_cast<size_t>(n)], left[static_cast<size_t>(n)]) << "frame " << n;
  rightOnly.Reset();
  block.assign(interleaved.begin() + 2 * bs, interleaved.begin() + 4 * bs);
  count = 2 * bs;
  ASSERT_EQ(rightOnly.Process(block.data(), &count), 0);
  EXPECT_EQ(count, 2 * bs);
  for (int n = 0; n < bs; ++n)
    ASSERT_NEAR(block[2 * static_cast<size_t>(n) + 1], rr[static_cast<size_t>(bs + n)], kTolerance)
        << "frame " << n;

  // A call without a whole frame leaves the paths alone: the next block
  // continues the stream. A negative count is refused.
  float partial[1] = {7.0f};
  count = 1;
  EXPECT_EQ(rightOnly.Process(partial, &count), 0);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(partial[0], 7.0f);
  count = -2 * bs;
  EXPECT_EQ(rightOnly.Process(block.data(), &count), 2000);
  block.assign(interleaved.begin() + 4 * bs, interleaved.begin() + 6 * bs);
  count = 2 * bs;
  ASSERT_EQ(rightOnly.Process(block.data(), &count), 0);
  for (int n = 0; n < bs; ++n)
    ASSERT_NEAR(block[2 * static_cast<size_t>(n) + 1], rr[static_cast<size_t>(2 * bs + n)],
                kTolerance)
        << "frame " << n;

  // Fewer than two channels: nothing changes.
  OndrelStereoConvolution mono;
  mono.SetChannels(1);
  ASSERT_EQ(mono.InitAll(bs, bs), 0);
  std::vector<float> unchanged(interleaved.begin(), interleaved.begin() + bs);
  count = bs;
  EXPECT_EQ(mono.Process(unchanged.data(), &count), 0);
  EXPECT_EQ(count, bs);
  EXPECT_TRUE(std::equal(unchanged.begin(), unchanged.end(), interleaved.begin()));
}

}  // namespace
}  // namespace ONDREL2
