// Value helpers shared by hosts and effects: decibel conversions, the
// centre-shaped normalisation of sliders, and the integer/float pair for
// integer-like parameters.
#include <cmath>
#include <cstdint>

#include "ondrel.h"

namespace ONDREL2 {

float dB2scale(float dB) {
  return static_cast<float>(std::pow(10.0, static_cast<double>(dB / 20.0f)));
}

float scale2dB(float scale) {
  // The smallest positive double keeps log10 finite at 0.
  return static_cast<float>(20.0 *
                            std::log10(static_cast<double>(scale) + 4.9406564584124654e-324));
}

float norm_center(float value, float high, float low, float center, float centerNorm) {
  float side = low;
  float edge = 0.0f;
  if (value > center) {
    side = high;
    edge = 1.0f;
  }
  float result = (value - center) / (side - center) * (edge - centerNorm) + centerNorm;
  if (result < 0.0f) result = 0.0f;
  if (result > 1.0f) result = 1.0f;
  return result;
}

float denorm_center(float norm, float high, float low, float center, float centerNorm) {
  float n = norm;
  if (n < 0.0f) n = 0.0f;
  if (n > 1.0f) n = 1.0f;
  if (n > centerNorm) return (n - centerNorm) / (1.0f - centerNorm) * (high - center) + center;
  return (n - centerNorm) / (0.0f - centerNorm) * (low - center) + center;
}

int df2i(float value) {
  const float f = std::floor(value);
  // Out of range (and NaN) gives what the hardware conversion gives.
  if (!(f >= -2147483648.0f && f < 2147483648.0f)) return INT32_MIN;
  return static_cast<int>(f);
}

float i2df(int value) { return static_cast<float>(static_cast<double>(value) + 0.5); }

}  // namespace ONDREL2
