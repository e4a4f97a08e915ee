#pragma once

namespace ONDREL2 {

// Modified Bessel function of order 0 by its power series: terms
// ((y/2)^m / m!)^2, summed in double until a term falls to 1e-21 of the sum.
inline double ResamplerBesselI0(double y) {
  double sum = 1.0;
  double term = 1.0;
  for (int k = 2;; k += 2) {
    const double q = y / k;
    term = term * (q * q);
    sum += term;
    if (term <= sum * 1e-21) break;
  }
  return sum;
}

// Greatest common divisor of two positive integers.
inline long long ResamplerGcd(long long a, long long b) {
  while (b != 0) {
    const long long t = a % b;
    a = b;
    b = t;
  }
  return a;
}

}  // namespace ONDREL2
