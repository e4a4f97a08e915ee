#pragma once

namespace ONDREL2 {
namespace BiquadFilter {

// Second-order filter coefficients, already divided by a0 and rounded to
// float. Designed in double by the functions below.
struct Coefficients {
  float b0 = 1.0f;
  float b1 = 0.0f;
  float b2 = 0.0f;
  float a1 = 0.0f;
  float a2 = 0.0f;
};

// Design functions: normalised frequencies (hertz / sample rate) in, rounded
// coefficients out. All arithmetic is double; each coefficient is rounded to
// float only when it is stored.
//
// LowPass/HighPass: alpha = sin(w0) / (q + q).
// AllPass: alpha = sin(w0) * 0.5 * q. The multiplication by q is deliberate:
//   a larger q widens the phase transition. Stored presets depend on it.
// Shelves: A = 10^(gainDb/40), k = sqrt(A)/q * sin(w0).
// Band, notch and bell take the band edges and centre on their geometric
//   mean, w0 = 2^(bw/2) * lowEdge * 2pi with bw = log2(highEdge/lowEdge)
//   octaves, and alpha = sinh(ln 2) * s * 0.5 * bw * w0 / s. That alpha is
//   deliberate too: it grows in proportion to bw * w0 rather than following
//   the usual hyperbolic band-width form, and s is multiplied and divided as
//   written so that s = 0 gives not-a-number.
Coefficients DesignLowPass(double frequency, double q);
Coefficients DesignHighPass(double frequency, double q);
Coefficients DesignAllPass(double frequency, double q);
Coefficients DesignBandPass(double lowEdge, double highEdge);
Coefficients DesignNotch(double lowEdge, double highEdge);
Coefficients DesignPeak(double lowEdge, double highEdge, double gainDb);
Coefficients DesignLowShelf(double frequency, double q, double gainDb);
Coefficients DesignHighShelf(double frequency, double q, double gainDb);

// One channel's second-order filter: five coefficients and four delay
// values, run as Direct Form I in float.
//
// The derived classes design their coefficients once in the constructor and
// offer no retuning: to change a shape, the owner builds a new object, which
// starts from zero delay values. SetCoefficients is there for owners that
// must keep the delay values across a new design. The owner may run the recursion itself on the
// public fields or call Process, which does exactly this, in this order, in float:
//   y = b0*x; y += b1*x1; y += b2*x2; y -= a1*y1; y -= a2*y2;
//   x2 = x1; x1 = x; y2 = y1; y1 = y.
// Process allocates nothing and is real-time safe. Latency: none.
class Filter {
 public:
  Filter() = default;
  explicit Filter(const Coefficients& c) : b0(c.b0), b1(c.b1), b2(c.b2), a1(c.a1), a2(c.a2) {}
  virtual ~Filter() = default;

  float Process(float x) {
    float y = b0 * x;
    y = y + b1 * x1;
    y = y + b2 * x2;
    y = y - a1 * y1;
    y = y - a2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return y;
  }

  // In place over `count` samples of one channel.
  void Process(float* samples, int count) {
    for (int n = 0; n < count; ++n) samples[n] = Process(samples[n]);
  }

  // New coefficients keep the delay values; clearing the delay values keeps
  // the coefficients.
  void SetCoefficients(const Coefficients& c) {
    b0 = c.b0;
    b1 = c.b1;
    b2 = c.b2;
    a1 = c.a1;
    a2 = c.a2;
  }
  void ClearState() { x1 = x2 = y1 = y2 = 0.0f; }

  float b0 = 1.0f;
  float b1 = 0.0f;
  float b2 = 0.0f;
  float a1 = 0.0f;
  float a2 = 0.0f;
  float x1 = 0.0f;
  float x2 = 0.0f;
  float y1 = 0.0f;
  float y2 = 0.0f;
};

// The design arguments are kept for information only; the recursion doesn't
// read them.

class LPFilter : public Filter {
 public:
  LPFilter(double frequency, double q);
  double frequency;
  double q;
};

class HPFilter : public Filter {
 public:
  HPFilter(double frequency, double q);
  double frequency;
  double q;
};

class APFilter : public Filter {
 public:
  APFilter(double frequency, double q);
  double frequency;
  double q;
};

// Band pass with 0 dB at its peak.
class BPFilter : public Filter {
 public:
  BPFilter(double lowEdge, double highEdge);
  double lowEdge;
  double highEdge;
};

class NTFilter : public Filter {
 public:
  NTFilter(double lowEdge, double highEdge);
  double lowEdge;
  double highEdge;
};

class PKFilter : public Filter {
 public:
  PKFilter(double lowEdge, double highEdge, double gainDb);
  double lowEdge;
  double highEdge;
  double gainDb;
};

class LSFilter : public Filter {
 public:
  LSFilter(double frequency, double q, double gainDb);
  double frequency;
  double q;
  double gainDb;
};

class HSFilter : public Filter {
 public:
  HSFilter(double frequency, double q, double gainDb);
  double frequency;
  double q;
  double gainDb;
};

}  // namespace BiquadFilter
}  // namespace ONDREL2
