// The staged real FFT against Kiss FFT itself: every output bit must agree,
// forward and inverse, in every layout, with the vector kernels and with
// the plain ones.
#include <gtest/gtest.h>
#include <kissfft/kiss_fftr.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "dsp/fft_kernel.h"

namespace ONDREL2 {
namespace {

struct KissPair {
  explicit KissPair(int n)
      : forward(kiss_fftr_alloc(n, 0, nullptr, nullptr)),
        inverse(kiss_fftr_alloc(n, 1, nullptr, nullptr)) {}
  ~KissPair() {
    kiss_fftr_free(forward);
    kiss_fftr_free(inverse);
  }
  kiss_fftr_cfg forward;
  kiss_fftr_cfg inverse;
};

bool SameBits(const float* a, const float* b, size_t count) {
  return std::memcmp(a, b, sizeof(float) * count) == 0;
}

void CheckSize(int n, bool vector, std::mt19937& rng) {
  SCOPED_TRACE(testing::Message() << "size " << n << (vector ? " vector" : " plain"));
  const size_t half = static_cast<size_t>(n) / 2;
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> time(static_cast<size_t>(n));
  for (float& x : time) x = u(rng);

  KissPair kiss(n);
  RealFftPlan plan;
  ASSERT_TRUE(plan.Init(n, vector));

  // Forward in all three layouts.
  std::vector<kiss_fft_cpx> expected(half + 1);
  kiss_fftr(kiss.forward, time.data(), expected.data());
  std::vector<float> bins(2 * (half + 1), 7.0f);
  plan.Forward(time.data(), bins.data());
  ASSERT_TRUE(SameBits(bins.data(), &expected[0].r, bins.size()));

  std::vector<float> packed(time);
  plan.ForwardPacked(packed.data(), packed.data());
  std::vector<float> re(half), im(half);
  plan.ForwardSplit(time.data(), re.data(), im.data());
  EXPECT_EQ(packed[0], expected[0].r);
  EXPECT_EQ(packed[1], expected[half].r);
  EXPECT_EQ(re[0], expected[0].r);
  EXPECT_EQ(im[0], expected[half].r);
  for (size_t k = 1; k < half; ++k) {
    ASSERT_TRUE(SameBits(&packed[2 * k], &expected[k].r, 2)) << "bin " << k;
    ASSERT_TRUE(SameBits(&re[k], &expected[k].r, 1) && SameBits(&im[k], &expected[k].i, 1));
  }

  // Inverse of an arbitrary spectrum (not a real signal's), all layouts.
  std::vector<kiss_fft_cpx> spectrum(half + 1);
  for (auto& c : spectrum) c = {u(rng), u(rng)};
  std::vector<float> want(static_cast<size_t>(n));
  kiss_fftri(kiss.inverse, spectrum.data(), want.data());

  std::vector<float> got(static_cast<size_t>(n), 7.0f);
  plan.Inverse(&spectrum[0].r, got.data());
  ASSERT_TRUE(SameBits(got.data(), want.data(), got.size()));

  std::vector<float> inPlace(static_cast<size_t>(n));
  inPlace[0] = spectrum[0].r;
  inPlace[1] = spectrum[half].r;
  for (size_t k = 1; k < half; ++k) {
    inPlace[2 * k] = spectrum[k].r;
    inPlace[2 * k + 1] = spectrum[k].i;
    re[k] = spectrum[k].r;
    im[k] = spectrum[k].i;
  }
  re[0] = spectrum[0].r;
  im[0] = spectrum[half].r;
  plan.InversePacked(inPlace.data(), inPlace.data());
  EXPECT_TRUE(SameBits(inPlace.data(), want.data(), want.size()));
  std::fill(got.begin(), got.end(), 7.0f);
  plan.InverseSplit(re.data(), im.data(), got.data());
  EXPECT_TRUE(SameBits(got.data(), want.data(), want.size()));
}

TEST(RealFftPlan, MatchesKissFftBitForBit) {
  std::mt19937 rng(2024);
  std::vector<int> sizes;
  // Every power of two the equaliser, the convolver and the resampler use.
  for (int n = 4; n <= 65536; n *= 2) sizes.push_back(n);
  // Radix 3, 5, 2 then 3, 2 then 3 then 5, generic 7 and 11, fours then
  // fives, and the one-point half transform.
  for (int n : {6, 10, 24, 48, 60, 14, 154, 1000, 2}) sizes.push_back(n);
  for (int n : sizes) {
    for (bool vector : {true, false}) {
      for (int round = 0; round < 2; ++round) CheckSize(n, vector, rng);
    }
  }
}

TEST(RealFftPlan, RefusesOddAndEmptySizes) {
  RealFftPlan plan;
  for (int n : {0, -4, 1, 7, 1023}) EXPECT_FALSE(plan.Init(n, true)) << n;
  EXPECT_EQ(plan.Size(), 0);
  EXPECT_TRUE(plan.Init(8, true));
  EXPECT_EQ(plan.Size(), 8);
}

// Non-finite and signed-zero inputs go through the same operations too.
TEST(RealFftPlan, SpecialValuesMatchKissFft) {
  const int n = 64;
  KissPair kiss(n);
  RealFftPlan plan;
  ASSERT_TRUE(plan.Init(n, true));
  std::vector<float> time(n, -0.0f);
  time[3] = 1e-40f;
  time[17] = -1e30f;
  std::vector<kiss_fft_cpx> expected(n / 2 + 1);
  kiss_fftr(kiss.forward, time.data(), expected.data());
  std::vector<float> bins(n + 2);
  plan.Forward(time.data(), bins.data());
  EXPECT_TRUE(SameBits(bins.data(), &expected[0].r, bins.size()));
  time[5] = std::numeric_limits<float>::infinity();
  kiss_fftr(kiss.forward, time.data(), expected.data());
  plan.Forward(time.data(), bins.data());
  EXPECT_TRUE(SameBits(bins.data(), &expected[0].r, bins.size()));
}

}  // namespace
}  // namespace ONDREL2
