#include "dsp/eqfb_band.h"

#include <cmath>

namespace ONDREL2 {
namespace {

// The zero pair sits just off the unit circle (0xBF80A3D7, not -1); the
// band's colour depends on it, so it must stay as it is.
constexpr float kZero2 = -1.005f;

}  // namespace

void DesignEqfbBand(EqfbBand& band, float frequency, float width, int32_t sampleRate,
                    float gainDb) {
  if (0.001f > std::fabs(gainDb) || 2.0f * frequency >= static_cast<float>(sampleRate)) {
    band.bypass = 1;
    return;
  }
  band.bypass = 0;
  band.gain = static_cast<float>(std::pow(10.0, static_cast<double>(gainDb / 20.0f)) - 1.0);
  const float w = static_cast<float>(static_cast<double>(frequency) * 6.283185307179586 /
                                     static_cast<double>(sampleRate));
  const double t = std::tan(static_cast<double>(w * width * 0.5f));
  const float k = static_cast<float>((1.0 - t) / (t + 1.0));
  band.zero2 = kZero2;
  band.feedback1 = static_cast<float>(std::cos(static_cast<double>(w))) * (k + 1.0f);
  band.feedback2 = -k;
  band.inputScale = (1.0f - k) * 0.5f;
}

}  // namespace ONDREL2
