// The staged real FFT and the convolver built on it, bit for bit against
// Kiss FFT itself, forward and inverse, every layout, vector and plain.
#include <gtest/gtest.h>
#include <kissfft/kiss_fftr.h>

#include <algorithm>
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
  // Forward transform of `time` to n/2 + 1 interleaved bins.
  std::vector<float> Forward(const std::vector<float>& time) const {
    std::vector<kiss_fft_cpx> bins(time.size() / 2 + 1);
    kiss_fftr(forward, time.data(), bins.data());
    std::vector<float> out(2 * bins.size());
    std::memcpy(out.data(), bins.data(), sizeof(float) * out.size());
    return out;
  }
  // Inverse (unscaled) of n/2 + 1 interleaved bins.
  std::vector<float> Inverse(const std::vector<float>& bins) const {
    std::vector<kiss_fft_cpx> c(bins.size() / 2);
    std::memcpy(c.data(), bins.data(), sizeof(float) * bins.size());
    std::vector<float> time(bins.size() - 2);
    kiss_fftri(inverse, c.data(), time.data());
    return time;
  }
  kiss_fftr_cfg forward;
  kiss_fftr_cfg inverse;
};

bool SameBits(const float* a, const float* b, size_t count) {
  return std::memcmp(a, b, sizeof(float) * count) == 0;
}
bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && SameBits(a.data(), b.data(), a.size());
}

// Interleaved bins to the packed layout (the Nyquist real part in slot 1)
// and back (the DC and Nyquist imaginary parts +0, as Kiss FFT writes them).
std::vector<float> ToPacked(const std::vector<float>& bins) {
  std::vector<float> packed(bins.begin(), bins.end() - 2);
  packed[1] = bins[bins.size() - 2];
  return packed;
}
std::vector<float> FromPacked(const std::vector<float>& packed) {
  std::vector<float> bins(packed);
  bins.insert(bins.end(), {packed[1], 0.0f});
  bins[1] = 0.0f;
  return bins;
}

// Forward and inverse in the interleaved, packed (in place) and split
// layouts; the inverse takes an arbitrary spectrum, not a real signal's.
void CheckSize(int n, bool vector, const std::vector<float>& time,
               const std::vector<float>& spectrum) {
  const KissPair kiss(n);
  const std::vector<float> wantBins = kiss.Forward(time), wantTime = kiss.Inverse(spectrum);
  RealFftPlan plan;
  ASSERT_TRUE(plan.Init(n, vector));
  const size_t half = static_cast<size_t>(n) / 2;
  for (const char* layout : {"interleaved", "packed", "split"}) {
    SCOPED_TRACE(testing::Message() << "size " << n << (vector ? " vector " : " plain ") << layout);
    std::vector<float> bins(n + 2, 7.0f), out(static_cast<size_t>(n), 7.0f), re(half), im(half);
    if (layout[0] == 'i') {
      plan.Forward(time.data(), bins.data());
      plan.Inverse(spectrum.data(), out.data());
    } else if (layout[0] == 'p') {
      bins = time;
      plan.ForwardPacked(bins.data(), bins.data());
      bins = FromPacked(bins);
      out = ToPacked(spectrum);
      plan.InversePacked(out.data(), out.data());
    } else {
      plan.ForwardSplit(time.data(), re.data(), im.data());
      const std::vector<float> packed = ToPacked(spectrum);
      for (size_t k = 0; k < half; ++k) {
        bins[2 * k] = re[k];
        bins[2 * k + 1] = im[k];
        re[k] = packed[2 * k];
        im[k] = packed[2 * k + 1];
      }
      bins = FromPacked({bins.begin(), bins.end() - 2});
      plan.InverseSplit(re.data(), im.data(), out.data());
    }
    EXPECT_TRUE(SameBits(bins, wantBins));
    EXPECT_TRUE(SameBits(out, wantTime));
  }
}

TEST(RealFftPlan, MatchesKissFftBitForBit) {
  std::mt19937 rng(2024);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<int> sizes;
  // Every power of two the equaliser, the convolver and the resampler use.
  for (int n = 4; n <= 65536; n *= 2) sizes.push_back(n);
  // Radix 3, 5, 2 then 3, 2 then 3 then 5, generic 7 and 11, fours then
  // fives, and the one-point half transform.
  for (int n : {6, 10, 24, 48, 60, 14, 154, 1000, 2}) sizes.push_back(n);
  for (int n : sizes) {
    // Two random rounds; at 64 also signed zeros, a denormal and a huge
    // value, then an infinity among them.
    for (int round = 0; round < (n == 64 ? 4 : 2); ++round) {
      std::vector<float> time(static_cast<size_t>(n)), spectrum(static_cast<size_t>(n) + 2);
      for (float& x : time) x = round < 2 ? u(rng) : -0.0f;
      for (float& x : spectrum) x = u(rng);
      if (round >= 2) {
        time[3] = 1e-40f;
        time[17] = -1e30f;
      }
      if (round == 3) time[5] = std::numeric_limits<float>::infinity();
      for (bool vector : {true, false}) CheckSize(n, vector, time, spectrum);
    }
  }
  RealFftPlan plan;
  for (int n : {0, -4, 1, 7, 1023}) EXPECT_FALSE(plan.Init(n, true)) << n;
  EXPECT_EQ(plan.Size(), 0);
}

// The reference keeps one accumulating spectrum per upcoming block and adds
// each block's products into them as the block arrives, on libkissfft's
// packed spectra; the convolver sums from a ring of block spectra instead.
// Both must give the same bits, through a response change of the same
// partition count mid-stream (it keeps the running sums) and a Reset.
struct RingConvolver {
  RingConvolver(int block, int pad) : block(block), size(block + pad), kiss(block + pad) {}
  std::vector<float> Packed(const float* x, int count) const {
    std::vector<float> t(static_cast<size_t>(size), 0.0f);
    std::copy(x, x + count, t.begin());
    return ToPacked(kiss.Forward(t));
  }
  void SetResponse(const float* h, int length) {
    const int count = (length - 1 + block) / block;
    if (count != static_cast<int>(acc.size())) {
      current = 0;
      acc.assign(static_cast<size_t>(count), std::vector<float>(static_cast<size_t>(size), 0.0f));
    }
    spectra.clear();
    for (int i = 0; i < count; ++i)
      spectra.push_back(Packed(h + i * block, std::min(length - i * block, block)));
  }
  void Reset() {
    first = true;
    std::fill(overlap.begin(), overlap.end(), 0.0f);
    for (std::vector<float>& a : acc) std::fill(a.begin(), a.end(), 0.0f);
  }
  int Process(float* buffer) {
    const std::vector<float> x = Packed(buffer, block);
    const size_t parts = acc.size();
    for (size_t i = 0; i < parts; ++i) {
      const std::vector<float>& h = spectra[i];
      std::vector<float>& a = acc[(current + i) % parts];
      a[0] += h[0] * x[0];
      a[1] += h[1] * x[1];
      for (size_t k = 2; k < a.size(); k += 2) {
        a[k] += h[k] * x[k] - h[k + 1] * x[k + 1];
        a[k + 1] += h[k + 1] * x[k] + h[k] * x[k + 1];
      }
    }
    std::vector<float>& due = acc[current];
    const std::vector<float> t = kiss.Inverse(FromPacked(due));
    for (int n = 0; n < block; ++n) buffer[n] = (t[n] + overlap[n]) / static_cast<float>(size);
    std::fill(overlap.begin(), overlap.end(), 0.0f);
    std::copy(t.begin() + block, t.begin() + block + std::min(block, size - block),
              overlap.begin());
    std::fill(due.begin(), due.end(), 0.0f);
    current = (current + 1) % parts;
    if (!first) return block;
    first = false;
    std::copy(buffer + block / 2, buffer + block, buffer);
    return block - block / 2;
  }

  int block;
  int size;  // the transform size
  KissPair kiss;
  size_t current = 0;
  bool first = true;
  std::vector<std::vector<float>> spectra, acc;
  std::vector<float> overlap = std::vector<float>(static_cast<size_t>(block), 0.0f);
};

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
      RingConvolver want(c.block, c.pad);
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
