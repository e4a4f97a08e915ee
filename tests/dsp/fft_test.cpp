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
  for (size_t k = 0; k <= n / 2; ++k) {
    std::complex<double> sum = 0.0;
    for (size_t t = 0; t < n; ++t) {
      // Reduce k*t modulo n first so the angle stays exact for large n.
      const double angle = -2.0 * M_PI * static_cast<double>((k * t) % n) / static_cast<double>(n);
      sum += static_cast<double>(x[t]) * std::polar(1.0, angle);
    }
    bins[k] = sum;
  }
  return bins;
}

std::vector<float> RandomSignal(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  std::vector<float> x(n);
  for (float& v : x) v = dist(rng);
  return x;
}

// Single-precision FFT error grows roughly as eps * log2(N) * sqrt(N) for
// inputs of unit amplitude; 1e-6 * N is a loose bound on that which still
// catches any wrong bin, sign or layout slot.
double Tolerance(size_t n) { return 1e-6 * static_cast<double>(n) + 1e-6; }

TEST(OndrelKissFFT, InitRejectsOddSizes) {
  OndrelKissFFT fft;
  EXPECT_EQ(fft.Init(1023), 2001);
  EXPECT_EQ(fft.Init(0), 2001);
  EXPECT_EQ(fft.Init(1024), 0);
  // A second Init replaces the first without leaking (checked by ASan).
  EXPECT_EQ(fft.Init(512), 0);
}

TEST(OndrelKissFFT, BothLayoutsMatchNaiveDft) {
  for (size_t n : {2u, 6u, 16u, 30u, 510u, 1024u}) {
    OndrelKissFFT fft;
    ASSERT_EQ(fft.Init(static_cast<int>(n)), 0);
    const std::vector<float> x = RandomSignal(n, static_cast<unsigned>(n));
    const auto ref = NaiveDft(x);
    std::vector<float> data = x;
    ASSERT_EQ(fft.ForwardPacked(data.data()), 0);
    const double tol = Tolerance(n);
    EXPECT_NEAR(data[0], ref[0].real(), tol) << "n=" << n;
    EXPECT_NEAR(data[1], ref[n / 2].real(), tol) << "n=" << n;
    for (size_t k = 1; k < n / 2; ++k) {
      EXPECT_NEAR(data[2 * k], ref[k].real(), tol) << "n=" << n << " bin " << k;
      EXPECT_NEAR(data[2 * k + 1], ref[k].imag(), tol) << "n=" << n << " bin " << k;
    }

    // Pair layout: bins 0 to N/2-1, the (zero) imaginary part of bin 0
    // in element 1.
    std::vector<float> pair(n, -99.0f);
    ASSERT_EQ(fft.Forward(x.data(), pair.data()), 0);
    EXPECT_EQ(pair[1], 0.0f) << "n=" << n;
    for (size_t k = 0; k < n / 2; ++k) {
      EXPECT_NEAR(pair[2 * k], ref[k].real(), tol) << "n=" << n << " bin " << k;
      EXPECT_NEAR(pair[2 * k + 1], ref[k].imag(), tol) << "n=" << n << " bin " << k;
    }
  }
}

TEST(OndrelKissFFT, RoundTripsScaleByN) {
  for (int n : {8, 1024}) {
    OndrelKissFFT fft;
    ASSERT_EQ(fft.Init(n), 0);
    const std::vector<float> x = RandomSignal(static_cast<size_t>(n), 99);

    std::vector<float> packed = x;
    fft.ForwardPacked(packed.data());
    fft.InversePacked(packed.data());

    // Pair layout: Inverse takes bin N/2 from what Forward left behind.
    std::vector<float> spectrum(static_cast<size_t>(n));
    std::vector<float> pair(static_cast<size_t>(n));
    fft.Forward(x.data(), spectrum.data());
    fft.Inverse(spectrum.data(), pair.data());

    for (size_t i = 0; i < x.size(); ++i) {
      ASSERT_NEAR(packed[i], x[i] * n, 1e-5 * n) << "n=" << n << " index " << i;
      ASSERT_NEAR(pair[i], x[i] * n, 1e-5 * n) << "n=" << n << " index " << i;
    }
  }
}

}  // namespace
}  // namespace ONDREL2
