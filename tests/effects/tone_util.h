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

// The constant-peak equaliser band added to the signal, designed at
// `designRate` and heard at `rate`: 1 + (10^(dB/20) - 1) H with H = (1 - k)/2
// (1 - 1.005 z^-2) / (1 - cos w0 (1 + k) z^-1 + k z^-2), k = (1 - t)/(1 + t),
// t = tan(w0 width / 2); the zero pair sits just off the unit circle. A band
// at or above half the design rate is left out.
inline std::complex<double> PeakBand(double f0, double width, double gainDb, double designRate,
                                     double hz, double rate) {
  if (2.0 * f0 >= designRate) return 1.0;
  const double w0 = 2.0 * kTestPi * f0 / designRate, t = std::tan(w0 * width * 0.5);
  const double k = (1.0 - t) / (1.0 + t);
  const std::complex<double> z1 = std::polar(1.0, -2.0 * kTestPi * hz / rate), zz = z1 * z1;
  const std::complex<double> h = (1.0 - k) * 0.5 * (1.0 - static_cast<double>(1.005f) * zz) /
                                 (1.0 - std::cos(w0) * (1.0 + k) * z1 + k * zz);
  return 1.0 + (std::pow(10.0, gainDb / 20.0) - 1.0) * h;
}

}  // namespace ondrel_test
