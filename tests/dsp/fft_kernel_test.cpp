// The staged real FFT against Kiss FFT itself: every output bit must agree,
// forward and inverse, in every layout, with the vector kernels and with
// the plain ones. Then the convolver built on it against the accumulator
// form it replaced, on libkissfft.
#include <gtest/gtest.h>
#include <kissfft/kiss_fftr.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "dsp/fast_convolution.h"
#include "dsp/fft_kernel.h"
#include "dsp/simd.h"
#include "ondrel.h"

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

// ---- the partitioned convolver against the accumulator-ring form --------
//
// The reference keeps one accumulating spectrum per upcoming block and adds
// each block's products into them as the block arrives, on libkissfft's
// packed spectra; the convolver under test sums from a ring of block spectra
// instead. Both must give the same bits, through a response change of the
// same partition count mid-stream and a Reset.
namespace ref {

struct RingConvolver {
  RingConvolver(int block, int pad) : block(block), pad(block + pad), kiss(block + pad) {}
  void SetResponse(const float* h, int length) {
    const int count = (length - 1 + block) / block;
    if (count != parts) {
      parts = count;
      current = 0;
      spectra.assign(static_cast<size_t>(count * pad), 0.0f);
      acc.assign(spectra.size(), 0.0f);
    }
    std::vector<float> t(static_cast<size_t>(pad));
    for (int i = 0; i < count; ++i) {
      std::fill(t.begin(), t.end(), 0.0f);
      std::copy(h + i * block, h + std::min(length, (i + 1) * block), t.begin());
      Packed(t.data(), &spectra[static_cast<size_t>(i * pad)]);
    }
  }
  void Reset() {
    first = true;
    std::fill(overlap.begin(), overlap.end(), 0.0f);
    std::fill(acc.begin(), acc.end(), 0.0f);
  }
  int Process(float* buffer) {
    std::vector<float> t(static_cast<size_t>(pad), 0.0f), x(t.size());
    std::copy(buffer, buffer + block, t.begin());
    Packed(t.data(), x.data());
    for (int i = 0; i < parts; ++i) {
      const float* h = &spectra[static_cast<size_t>(i * pad)];
      float* a = &acc[static_cast<size_t>(((current + i) % parts) * pad)];
      a[0] += h[0] * x[0];
      a[1] += h[1] * x[1];
      for (int k = 2; k < pad; k += 2) {
        a[k] += h[k] * x[k] - h[k + 1] * x[k + 1];
        a[k + 1] += h[k + 1] * x[k] + h[k] * x[k + 1];
      }
    }
    float* due = &acc[static_cast<size_t>(current * pad)];
    std::vector<kiss_fft_cpx> bins(static_cast<size_t>(pad / 2 + 1));
    bins[0] = {due[0], 0.0f};
    bins[static_cast<size_t>(pad / 2)] = {due[1], 0.0f};
    for (int k = 1; k < pad / 2; ++k) bins[static_cast<size_t>(k)] = {due[2 * k], due[2 * k + 1]};
    kiss_fftri(kiss.inverse, bins.data(), t.data());
    for (int n = 0; n < block; ++n) buffer[n] = (t[n] + overlap[n]) / static_cast<float>(pad);
    const int tail = std::min(block, pad - block);
    std::fill(overlap.begin(), overlap.end(), 0.0f);
    std::copy(t.begin() + block, t.begin() + block + tail, overlap.begin());
    std::fill(due, due + pad, 0.0f);
    current = (current + 1) % parts;
    if (!first) return block;
    first = false;
    std::copy(buffer + block / 2, buffer + block, buffer);
    return block - block / 2;
  }
  void Packed(const float* t, float* out) {
    std::vector<kiss_fft_cpx> bins(static_cast<size_t>(pad / 2 + 1));
    kiss_fftr(kiss.forward, t, bins.data());
    out[0] = bins[0].r;
    out[1] = bins[static_cast<size_t>(pad / 2)].r;
    for (int k = 1; k < pad / 2; ++k) {
      out[2 * k] = bins[static_cast<size_t>(k)].r;
      out[2 * k + 1] = bins[static_cast<size_t>(k)].i;
    }
  }

  int block;
  int pad;  // the transform size
  KissPair kiss;
  int parts = 0;
  int current = 0;
  bool first = true;
  std::vector<float> spectra, acc, overlap = std::vector<float>(static_cast<size_t>(block), 0.0f);
};

}  // namespace ref

TEST(OndrelFastConvolution, SameBitsAsAccumulatorRing) {
  std::mt19937 rng(77);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  struct Case {
    int block, pad, length;
  };
  // 14 partitions (sums of four and single ones), the studio sizes, and a
  // transform size with a radix other than two.
  for (const Case c :
       {Case{61, 67, 61 * 13 + 7}, Case{511, 513, 511 * 6 + 100}, Case{40, 40, 40 * 5}}) {
    for (int vector : {1, 0}) {
      SCOPED_TRACE(testing::Message() << "block " << c.block << (vector ? " vector" : " plain"));
      OndrelSimdOverride(vector);
      std::vector<float> h1(static_cast<size_t>(c.length)), h2(h1.size());
      for (float& v : h1) v = u(rng);
      for (float& v : h2) v = u(rng);
      OndrelFastConvolution conv;
      ASSERT_EQ(conv.Init(c.block, c.pad), ONDREL_OK);
      ASSERT_EQ(conv.SetImpulseResponse(h1.data(), c.length), ONDREL_OK);
      ref::RingConvolver want(c.block, c.pad);
      want.SetResponse(h1.data(), c.length);
      for (int b = 0; b < 40; ++b) {
        if (b == 17) {
          ASSERT_EQ(conv.SetImpulseResponse(h2.data(), c.length), ONDREL_OK);
          want.SetResponse(h2.data(), c.length);
        }
        if (b == 29) {
          conv.Reset();
          want.Reset();
        }
        std::vector<float> x(static_cast<size_t>(c.block));
        for (float& v : x) v = u(rng);
        std::vector<float> y(x);
        int frames = 0;
        ASSERT_EQ(conv.Process(x.data(), &frames), ONDREL_OK);
        ASSERT_EQ(frames, want.Process(y.data()));
        ASSERT_TRUE(SameBits(x.data(), y.data(), static_cast<size_t>(frames))) << "block " << b;
      }
    }
  }
  OndrelSimdOverride(-1);
}

}  // namespace
}  // namespace ONDREL2
