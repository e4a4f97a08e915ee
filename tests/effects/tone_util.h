// Steady tones for the effect tests: interleaved sines, the amplitude of one
// frequency in one channel, and closed-form second-order responses.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <vector>

namespace ondrel_test {

constexpr double kTestPi = 3.141592653589793;

// `frames` of a sine of `hz` and `amp` on each channel, scaled per channel
// by `gains` (missing channels get gain 1).
inline std::vector<float> Tone(int frames, int channels, double rate, double hz, double amp,
                               const std::vector<double>& gains = {}) {
  std::vector<float> x(static_cast<size_t>(frames) * static_cast<size_t>(channels));
  for (int n = 0; n < frames; ++n)
    for (int c = 0; c < channels; ++c) {
      const double g = c < static_cast<int>(gains.size()) ? gains[static_cast<size_t>(c)] : 1.0;
      x[static_cast<size_t>(n * channels + c)] =
          static_cast<float>(g * amp * std::sin(2.0 * kTestPi * hz * n / rate));
    }
  return x;
}

// Amplitude of `hz` in channel `c` of `x` over `count` frames from `from`,
// by least squares on a sine and a cosine (exact over whole periods).
inline double ToneAmplitude(const std::vector<float>& x, int channels, int c, size_t from,
                            size_t count, double rate, double hz) {
  double ss = 0, sc = 0, cc = 0, xs = 0, xc = 0;
  for (size_t n = from; n < from + count; ++n) {
    const double ph = 2.0 * kTestPi * hz * static_cast<double>(n) / rate;
    const double s = std::sin(ph), k = std::cos(ph);
    const double v = x[n * static_cast<size_t>(channels) + static_cast<size_t>(c)];
    ss += s * s, sc += s * k, cc += k * k, xs += v * s, xc += v * k;
  }
  const double det = ss * cc - sc * sc;
  return std::hypot((xs * cc - xc * sc) / det, (xc * ss - xs * sc) / det);
}

// Response at `hz` of a second-order section with real coefficients (a0 = 1).
inline std::complex<double> SectionResponse(double b0, double b1, double b2, double a1, double a2,
                                            double hz, double rate) {
  const std::complex<double> z1 = std::polar(1.0, -2.0 * kTestPi * hz / rate);
  return (b0 + b1 * z1 + b2 * z1 * z1) / (1.0 + a1 * z1 + a2 * z1 * z1);
}

// The textbook (cookbook) high pass at `f0` and `q`, designed in double.
inline std::complex<double> CookbookHighPass(double f0, double q, double hz, double rate) {
  const double w = 2.0 * kTestPi * f0 / rate, alpha = std::sin(w) / (2.0 * q), c = std::cos(w);
  const double a0 = 1.0 + alpha;
  return SectionResponse((1.0 + c) / 2.0 / a0, -(1.0 + c) / a0, (1.0 + c) / 2.0 / a0, -2.0 * c / a0,
                         (1.0 - alpha) / a0, hz, rate);
}

}  // namespace ondrel_test
