// EnhancerHighPass: the second-order high pass that the 3D surround widener
// and Fidelity run on their side and harmonic bands.
//
// Design (cookbook high pass): the angle, alpha and the cosine terms come
// from double math functions and are rounded to float once each; a0 and the
// divisions by it are float:
//   w = float(f0 * 2pi / rate), alpha = float(sin w / (q + q)), a0 = 1 + alpha,
//   a1 = float(-2 cos w) / a0, a2 = (1 - alpha) / a0,
//   b0 = b2 = float((cos w + 1) * 0.5) / a0, b1 = float(-(cos w + 1)) / a0.
// Run (float, in this order):
//   y = b0*x - (a1*y1 + a2*y2) + b1*x1 + b2*x2, then shift x and y.
// Design() keeps the delay values, so a retune while playing doesn't click;
// Reset() zeroes them and keeps the coefficients. No latency, no
// allocation, real-time safe.
#pragma once

#include <cmath>
#include <cstdint>

namespace ONDREL2 {

struct EnhancerHighPass {
  float a1 = 0.0f, a2 = 0.0f, b0 = 0.0f, b1 = 0.0f, b2 = 0.0f;
  float y1 = 0.0f, y2 = 0.0f, x1 = 0.0f, x2 = 0.0f;

  // `rate` must be positive.
  void Design(double f0, double q, int32_t rate) {
    const double kTwoPi = 6.283185307179586;
    const float w = static_cast<float>(f0 * kTwoPi / static_cast<double>(rate));
    const float alpha = static_cast<float>(std::sin(static_cast<double>(w)) / (q + q));
    const double c = std::cos(static_cast<double>(w));
    const float a0 = 1.0f + alpha;
    a2 = (1.0f - alpha) / a0;
    a1 = static_cast<float>(-2.0 * c) / a0;
    b0 = static_cast<float>((c + 1.0) * 0.5) / a0;
    b2 = b0;
    b1 = static_cast<float>(-(c + 1.0)) / a0;
  }

  float Run(float x) {
    const float y = b0 * x - (a1 * y1 + a2 * y2) + b1 * x1 + b2 * x2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return y;
  }

  void Reset() { y1 = y2 = x1 = x2 = 0.0f; }
};

}  // namespace ONDREL2
