#include "dsp/biquad.h"

#include <cmath>

namespace ONDREL2 {
namespace BiquadFilter {

namespace {

constexpr double kTwoPi = 6.283185307179586;

Coefficients Store(double b0, double b1, double b2, double a1, double a2) {
  Coefficients c;
  c.b0 = static_cast<float>(b0);
  c.b1 = static_cast<float>(b1);
  c.b2 = static_cast<float>(b2);
  c.a1 = static_cast<float>(a1);
  c.a2 = static_cast<float>(a2);
  return c;
}

// Centre (radians per sample) and alpha of a band given by its edges.
struct Band {
  double w0;
  double alpha;
};

Band EdgeBand(double lowEdge, double highEdge) {
  const double bw = std::log2(highEdge / lowEdge);
  const double w0 = std::pow(2.0, bw * 0.5) * lowEdge * kTwoPi;
  const double s = std::sin(w0);
  // Evaluated left to right as written; see the header.
  const double alpha = std::sinh(std::log(2.0)) * s * 0.5 * bw * w0 / s;
  return {w0, alpha};
}

}  // namespace

Coefficients DesignLowPass(double frequency, double q) {
  const double w0 = kTwoPi * frequency;
  const double s = std::sin(w0);
  const double c = std::cos(w0);
  const double alpha = s / (q + q);
  const double a0 = 1.0 + alpha;
  const double b0 = (1.0 - c) * 0.5 / a0;
  return Store(b0, (1.0 - c) / a0, b0, -2.0 * c / a0, (1.0 - alpha) / a0);
}

Coefficients DesignHighPass(double frequency, double q) {
  const double w0 = kTwoPi * frequency;
  const double s = std::sin(w0);
  const double c = std::cos(w0);
  const double alpha = s / (q + q);
  const double a0 = 1.0 + alpha;
  const double b0 = (1.0 + c) * 0.5 / a0;
  return Store(b0, -(1.0 + c) / a0, b0, -2.0 * c / a0, (1.0 - alpha) / a0);
}

Coefficients DesignAllPass(double frequency, double q) {
  const double w0 = kTwoPi * frequency;
  const double s = std::sin(w0);
  const double c = std::cos(w0);
  const double alpha = s * 0.5 * q;
  const double a0 = 1.0 + alpha;
  const double b0 = (1.0 - alpha) / a0;
  const double b1 = -2.0 * c / a0;
  return Store(b0, b1, a0 / a0, b1, b0);
}

Coefficients DesignBandPass(double lowEdge, double highEdge) {
  const Band band = EdgeBand(lowEdge, highEdge);
  const double c = std::cos(band.w0);
  const double a0 = 1.0 + band.alpha;
  return Store(band.alpha / a0, 0.0 / a0, -band.alpha / a0, -2.0 * c / a0, (1.0 - band.alpha) / a0);
}

Coefficients DesignNotch(double lowEdge, double highEdge) {
  const Band band = EdgeBand(lowEdge, highEdge);
  const double c = std::cos(band.w0);
  const double a0 = 1.0 + band.alpha;
  return Store(1.0 / a0, -2.0 * c / a0, 1.0 / a0, -2.0 * c / a0, (1.0 - band.alpha) / a0);
}

Coefficients DesignPeak(double lowEdge, double highEdge, double gainDb) {
  const Band band = EdgeBand(lowEdge, highEdge);
  const double c = std::cos(band.w0);
  const double A = std::pow(10.0, gainDb / 40.0);
  const double alpha = band.alpha;
  const double a0 = 1.0 + alpha / A;
  return Store((A * alpha + 1.0) / a0, -2.0 * c / a0, (1.0 - A * alpha) / a0, -2.0 * c / a0,
               (1.0 - alpha / A) / a0);
}

Coefficients DesignLowShelf(double frequency, double q, double gainDb) {
  const double A = std::pow(10.0, gainDb / 40.0);
  const double w0 = kTwoPi * frequency;
  const double c = std::cos(w0);
  const double k = (std::sqrt(A) / q) * std::sin(w0);
  const double p = A + 1.0;
  const double m = A - 1.0;
  const double a0 = (p + m * c) + k;
  return Store(A * ((p - m * c) + k) / a0, 2.0 * A * (m - p * c) / a0, A * ((p - m * c) - k) / a0,
               -2.0 * (m + p * c) / a0, ((p + m * c) - k) / a0);
}

Coefficients DesignHighShelf(double frequency, double q, double gainDb) {
  const double A = std::pow(10.0, gainDb / 40.0);
  const double w0 = kTwoPi * frequency;
  const double c = std::cos(w0);
  const double k = (std::sqrt(A) / q) * std::sin(w0);
  const double p = A + 1.0;
  const double m = A - 1.0;
  const double a0 = (p - m * c) + k;
  return Store(A * ((p + m * c) + k) / a0, -2.0 * A * (m + p * c) / a0, A * ((p + m * c) - k) / a0,
               2.0 * (m - p * c) / a0, ((p - m * c) - k) / a0);
}

LPFilter::LPFilter(double frequency_, double q_)
    : Filter(DesignLowPass(frequency_, q_)), frequency(frequency_), q(q_) {}

HPFilter::HPFilter(double frequency_, double q_)
    : Filter(DesignHighPass(frequency_, q_)), frequency(frequency_), q(q_) {}

APFilter::APFilter(double frequency_, double q_)
    : Filter(DesignAllPass(frequency_, q_)), frequency(frequency_), q(q_) {}

BPFilter::BPFilter(double lowEdge_, double highEdge_)
    : Filter(DesignBandPass(lowEdge_, highEdge_)), lowEdge(lowEdge_), highEdge(highEdge_) {}

NTFilter::NTFilter(double lowEdge_, double highEdge_)
    : Filter(DesignNotch(lowEdge_, highEdge_)), lowEdge(lowEdge_), highEdge(highEdge_) {}

PKFilter::PKFilter(double lowEdge_, double highEdge_, double gainDb_)
    : Filter(DesignPeak(lowEdge_, highEdge_, gainDb_)),
      lowEdge(lowEdge_),
      highEdge(highEdge_),
      gainDb(gainDb_) {}

LSFilter::LSFilter(double frequency_, double q_, double gainDb_)
    : Filter(DesignLowShelf(frequency_, q_, gainDb_)),
      frequency(frequency_),
      q(q_),
      gainDb(gainDb_) {}

HSFilter::HSFilter(double frequency_, double q_, double gainDb_)
    : Filter(DesignHighShelf(frequency_, q_, gainDb_)),
      frequency(frequency_),
      q(q_),
      gainDb(gainDb_) {}

}  // namespace BiquadFilter
}  // namespace ONDREL2
