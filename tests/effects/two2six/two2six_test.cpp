// Two-to-six upmixer: crossovers against the Linkwitz-Riley closed form and
// mirrored backs for centred input.
#include "effects/two2six/two2six.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_test;

constexpr float kRate = 44100.0f;

// Linkwitz-Riley fourth order through the bilinear transform, warped so
// that the corner lands at `fc`: |H| = 1 / (1 + (W / Wc)^4) for the low
// pass, (W / Wc)^4 times that for the high pass.
double LinkwitzRiley(double f, double fc, bool high) {
  const double r4 = std::pow(std::tan(M_PI * f / kRate) / std::tan(M_PI * fc / kRate), 4);
  return (high ? r4 : 1.0) / (1.0 + r4);
}

// Equal sides (a tone on both): the crossovers against the closed form, and
// the back right is the back left negated, since the four sweeps run in step
// and the own side is inverted on both.
TEST_F(EffectTest, TwoToSixCrossoversMatchTheClosedFormAndBacksMirror) {
  const int frames = 44100;
  double energy = 0;
  for (double f : {40.0, 70.0, 120.0, 300.0, 1000.0, 10000.0}) {
    const std::vector<float> x = Tone(frames, 2, kRate, f, 0.4);
    const auto r = RunStream(NewEffect(EFFECT_TWO_TO_SIX), kRate, 2, x);
    ASSERT_EQ(r.status, 0);
    ASSERT_EQ(r.output.size(), static_cast<size_t>(frames) * 6);
    // Both sides at sqrt(1/8) each: the sum enters at 0.4 sqrt(1/2).
    const double in = 0.4 * std::sqrt(0.5);
    const double want[4] = {0.2, 0.2,
                            in * LinkwitzRiley(f, 70.0, true) * LinkwitzRiley(f, 20000.0, false),
                            in * LinkwitzRiley(f, 120.0, false)};
    for (int ch = 0; ch < 4; ++ch)
      EXPECT_NEAR(ToneAmplitude(r.output, 6, ch, 22050, 22050, kRate, f), want[ch],
                  ch < 2 ? 1e-6 : 2e-4 * in)
          << f << " Hz, channel " << ch;
    double worst = 0;
    for (size_t n = 0; n < static_cast<size_t>(frames); ++n) {
      energy += r.output[n * 6 + 4] * r.output[n * 6 + 4];
      worst = std::max(worst, std::fabs(double(r.output[n * 6 + 4]) + r.output[n * 6 + 5]));
    }
    EXPECT_LT(worst, 1e-6) << f;
  }
  EXPECT_GT(energy, 1.0);
}

}  // namespace
