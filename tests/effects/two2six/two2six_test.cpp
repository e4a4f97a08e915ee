// Two-to-six upmixer: six channels out through the chain, fronts at half
// level, the centre and LFE crossovers against the fourth-order
// Linkwitz-Riley closed form, the 10 ms back delay and mirrored backs for
// centred input.
#include "effects/two2six/two2six.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using namespace ONDREL2;
using ondrel_test::RunStream;

struct TwoToSixTest : ondrel_test::EffectTest {};

constexpr float kRate = 44100.0f;

// Amplitude of the `freq` Hz component of channel `ch` of a 6-wide
// interleaved stream, fitted over frames [from, to).
double Amplitude(const std::vector<float>& y, int ch, double freq, int from, int to) {
  double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0;
  for (int n = from; n < to; ++n) {
    const double s = std::sin(2 * M_PI * freq * n / kRate),
                 c = std::cos(2 * M_PI * freq * n / kRate);
    const double v = y[static_cast<size_t>(n) * 6 + ch];
    ss += s * s, sc += s * c, cc += c * c, ys += v * s, yc += v * c;
  }
  const double det = ss * cc - sc * sc;
  const double a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
  return std::hypot(a, b);
}

// Linkwitz-Riley fourth order through the bilinear transform, warped so
// that the corner lands at `fc`: |H| = 1 / (1 + (W / Wc)^4).
double LowPass(double f, double fc) {
  const double r = std::tan(M_PI * f / kRate) / std::tan(M_PI * fc / kRate);
  return 1.0 / (1.0 + std::pow(r, 4));
}
double HighPass(double f, double fc) {
  const double r = std::tan(M_PI * f / kRate) / std::tan(M_PI * fc / kRate);
  return std::pow(r, 4) / (1.0 + std::pow(r, 4));
}

TEST_F(TwoToSixTest, CrossoversMatchTheClosedForm) {
  const int frames = 44100;
  for (double f : {40.0, 70.0, 120.0, 300.0, 1000.0, 10000.0}) {
    std::vector<float> x(static_cast<size_t>(frames) * 2);
    for (int n = 0; n < frames; ++n)
      x[n * 2] = x[n * 2 + 1] = static_cast<float>(0.4 * std::sin(2 * M_PI * f * n / kRate));
    const auto r = RunStream(ondrel_test::NewEffect(EFFECT_TWO_TO_SIX), kRate, 2, x);
    ASSERT_EQ(r.status, 0);
    ASSERT_EQ(r.output.size(), static_cast<size_t>(frames) * 6);
    // Both sides at sqrt(1/8) each: the sum enters at 0.4 sqrt(1/2).
    const double in = 0.4 * std::sqrt(0.5);
    const int from = 22050, to = frames;
    EXPECT_NEAR(Amplitude(r.output, 0, f, from, to), 0.2, 1e-6) << f;
    EXPECT_NEAR(Amplitude(r.output, 1, f, from, to), 0.2, 1e-6) << f;
    EXPECT_NEAR(Amplitude(r.output, 2, f, from, to), in * HighPass(f, 70.0) * LowPass(f, 20000.0),
                2e-4 * in)
        << f;
    EXPECT_NEAR(Amplitude(r.output, 3, f, from, to), in * LowPass(f, 120.0), 2e-4 * in) << f;
  }
}

TEST_F(TwoToSixTest, BacksLagTenMillisecondsAndMirrorCentredInput) {
  // A click on the left only: fronts carry it at once, backs 441 frames
  // later; centre and LFE hear it through the left branch.
  const int frames = 4096;
  std::vector<float> x(static_cast<size_t>(frames) * 2, 0.0f);
  x[100 * 2] = 1.0f;
  const auto r = RunStream(ondrel_test::NewEffect(EFFECT_TWO_TO_SIX), kRate, 2, x);
  ASSERT_EQ(r.output.size(), static_cast<size_t>(frames) * 6);
  EXPECT_EQ(r.output[100 * 6], 0.5f);
  for (int n = 0; n < frames; ++n) {
    if (n != 100) {
      ASSERT_EQ(r.output[n * 6], 0.0f) << n;
    }
    ASSERT_EQ(r.output[n * 6 + 1], 0.0f) << n;
    if (n < 100 + 441) {
      ASSERT_EQ(r.output[n * 6 + 4], 0.0f) << n;
      ASSERT_EQ(r.output[n * 6 + 5], 0.0f) << n;
    }
  }
  EXPECT_NE(r.output[(100 + 441) * 6 + 4], 0.0f);
  EXPECT_NE(r.output[(100 + 441) * 6 + 5], 0.0f);
  EXPECT_NE(r.output[100 * 6 + 2], 0.0f);
  EXPECT_NE(r.output[100 * 6 + 3], 0.0f);

  // Equal sides: the four sweeps run in step, so the back right is the
  // back left negated (the own side is inverted on both).
  const std::vector<float> mono = ondrel_test::TestSignal(30000, 1, kRate);
  std::vector<float> same(mono.size() * 2);
  for (size_t n = 0; n < mono.size(); ++n) same[n * 2] = same[n * 2 + 1] = mono[n];
  const auto m = RunStream(ondrel_test::NewEffect(EFFECT_TWO_TO_SIX), kRate, 2, same);
  double energy = 0, worst = 0;
  for (size_t n = 0; n < mono.size(); ++n) {
    energy += m.output[n * 6 + 4] * m.output[n * 6 + 4];
    worst =
        std::max(worst, std::fabs(static_cast<double>(m.output[n * 6 + 4]) + m.output[n * 6 + 5]));
  }
  EXPECT_GT(energy, 1.0);
  EXPECT_LT(worst, 1e-6);
}

}  // namespace
