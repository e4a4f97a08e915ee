// Real transform against a naive DFT computed in double.

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "dsp/fft.h"

namespace ONDREL2 {
namespace {

std::vector<std::complex<double>> NaiveDft(const std::vector<float>& x) {
  const size_t n = x.size();
  std::vector<std::complex<double>> bins(n / 2 + 1);
  for (size_t k = 0; k <= n / 2; ++k)
    for (size_t t = 0; t < n; ++t)  // k*t reduced modulo n keeps the angle exact
      bins[k] += static_cast<double>(x[t]) *
                 std::polar(1.0, -2.0 * M_PI * static_cast<double>((k * t) % n) / n);
  return bins;
}

// Both layouts against the DFT, and both inverses back to N times the input;
// odd sizes are refused, and a second Init replaces the first (ASan sees
// leaks).
TEST(OndrelKissFFT, BothLayoutsMatchNaiveDftAndRoundTrip) {
  OndrelKissFFT odd;
  EXPECT_EQ(odd.Init(1023), 2001);
  EXPECT_EQ(odd.Init(0), 2001);
  EXPECT_EQ(odd.Init(1024), 0);
  EXPECT_EQ(odd.Init(512), 0);
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  for (size_t n : {2u, 6u, 16u, 30u, 510u, 1024u}) {
    SCOPED_TRACE(n);
    OndrelKissFFT fft;
    ASSERT_EQ(fft.Init(static_cast<int>(n)), 0);
    std::vector<float> x(n);
    for (float& v : x) v = dist(rng);
    const auto ref = NaiveDft(x);
    // Float error grows roughly as eps * log2(N) * sqrt(N) at unit
    // amplitude; 1e-6 * N still catches any wrong bin, sign or slot.
    const double tol = 1e-6 * static_cast<double>(n) + 1e-6;

    // Packed layout: bin N/2's real part in element 1.
    std::vector<float> packed = x;
    ASSERT_EQ(fft.ForwardPacked(packed.data()), 0);
    EXPECT_NEAR(packed[0], ref[0].real(), tol);
    EXPECT_NEAR(packed[1], ref[n / 2].real(), tol);
    // Pair layout: bins 0 to N/2-1, the (zero) imaginary part of bin 0 in
    // element 1.
    std::vector<float> pair(n, -99.0f);
    ASSERT_EQ(fft.Forward(x.data(), pair.data()), 0);
    EXPECT_EQ(pair[1], 0.0f);
    EXPECT_NEAR(pair[0], ref[0].real(), tol);
    for (size_t k = 1; k < n / 2; ++k) {
      EXPECT_NEAR(packed[2 * k], ref[k].real(), tol) << "bin " << k;
      EXPECT_NEAR(packed[2 * k + 1], ref[k].imag(), tol) << "bin " << k;
      EXPECT_NEAR(pair[2 * k], ref[k].real(), tol) << "bin " << k;
      EXPECT_NEAR(pair[2 * k + 1], ref[k].imag(), tol) << "bin " << k;
    }

    // The pair inverse takes bin N/2 from what Forward left behind.
    std::vector<float> back(n);
    fft.Inverse(pair.data(), back.data());
    fft.InversePacked(packed.data());
    for (size_t i = 0; i < n; ++i) {
      ASSERT_NEAR(packed[i], x[i] * n, 1e-5 * n) << "index " << i;
      ASSERT_NEAR(back[i], x[i] * n, 1e-5 * n) << "index " << i;
    }
  }
}

}  // namespace
}  // namespace ONDREL2
