// Stereo tools: the panner's pan law, the enhancer's mid/side identities and
// the rotator's constant power and rate.
#include "effects/stereo_tools/stereo_tools.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using namespace ONDREL2;
using ondrel_test::RunStream;
using ondrel_test::TestSignal;

struct StereoToolsTest : ondrel_test::EffectTest {};

// Pan law: with pan p, the far side is faded by 1 - |p|; with Cross on the
// faded part moves to the near side, normalised by 1 + |p|.
TEST_F(StereoToolsTest, PannerFollowsThePanLawOnPairsOnly) {
  const int frames = 3000;
  struct Case {
    float cross, p;
  } cases[] = {{0, -1}, {1, -0.5f}, {0, 0.25f}};
  const std::vector<float> x = TestSignal(frames, 6, 44100.0f);
  for (const Case& c : cases) {
    // 5.1: FL FR FC LFE BL BR; the centre and LFE are singles.
    AEffect* fx = ondrel_test::NewEffect(EFFECT_PANNER, {{"Cross", c.cross}, {"Left/Right", c.p}});
    const auto r = RunStream(fx, 44100.0f, 6, x, ondrel_test::OddChunks(), nullptr, true, 0x3F);
    ASSERT_EQ(r.status, 0);
    ASSERT_EQ(r.output.size(), x.size());
    const double p = c.p, q = std::fabs(p);
    const double keepL = p > 0 ? 1 - p : 1, keepR = p < 0 ? 1 + p : 1;
    const double toL = c.cross != 0 && p < 0 ? q : 0, toR = c.cross != 0 && p > 0 ? q : 0;
    double worst = 0;
    for (int n = 0; n < frames; ++n) {
      for (int pair : {0, 4}) {
        const double l = x[n * 6 + pair], rr = x[n * 6 + pair + 1];
        worst =
            std::max(worst, std::fabs(r.output[n * 6 + pair] - (l * keepL + rr * toL) / (1 + toL)));
        worst = std::max(
            worst, std::fabs(r.output[n * 6 + pair + 1] - (rr * keepR + l * toR) / (1 + toR)));
      }
      ASSERT_EQ(r.output[n * 6 + 2], x[n * 6 + 2]);
      ASSERT_EQ(r.output[n * 6 + 3], x[n * 6 + 3]);
    }
    EXPECT_LT(worst, 1e-6) << "cross " << c.cross << " pan " << c.p;
  }
}

// Mid/side: L' + R' = 2 center mid and L' - R' = 2 width side.
TEST_F(StereoToolsTest, EnhancerScalesMidAndSide) {
  const int frames = 2500;
  const std::vector<float> x = TestSignal(frames, 3, 48000.0f);  // 2.1: pair and LFE
  for (const auto& wc : {std::pair<float, float>{0, 100}, {250, 40}, {400, 0}}) {
    AEffect* fx = ondrel_test::NewEffect(EFFECT_STEREO_ENHANCER,
                                         {{"Width", wc.first}, {"Center", wc.second}});
    const auto r = RunStream(fx, 48000.0f, 3, x);
    ASSERT_EQ(r.status, 0);
    ASSERT_EQ(r.output.size(), x.size());
    const double w = wc.first / 100.0, c = wc.second / 100.0;
    double worst = 0;
    for (int n = 0; n < frames; ++n) {
      const double l = x[n * 3], rr = x[n * 3 + 1];
      const double ol = r.output[n * 3], orr = r.output[n * 3 + 1];
      worst = std::max(worst, std::fabs((ol + orr) - c * (l + rr)));
      worst = std::max(worst, std::fabs((ol - orr) - w * (l - rr)));
      if (wc.first == 0) {
        ASSERT_EQ(ol, orr);  // a mono sum on both sides
      }
      ASSERT_EQ(r.output[n * 3 + 2], x[n * 3 + 2]);
    }
    EXPECT_LT(worst, 5e-6) << "width " << wc.first << " center " << wc.second;
  }
}

// Left gain -sin(phase - pi/4), right sin(phase + pi/4): the two squares
// sum to one, and the phase starts at (offset / 180 - 1/2) pi and moves by
// speed * 3 / 360 / rate radians per frame.
TEST_F(StereoToolsTest, RotatorKeepsPowerAndTurnsAtItsRate) {
  const int frames = 80000;
  std::vector<float> ones(static_cast<size_t>(frames) * 2, 0.5f);
  AEffect* fx = ondrel_test::NewEffect(EFFECT_ROTATOR, {{"Speed", 180.0f}, {"Offset", 0.0f}});
  const auto r = RunStream(fx, 44100.0f, 2, ones);
  ASSERT_EQ(r.status, 0);
  ASSERT_EQ(r.output.size(), ones.size());
  double worstPower = 0;
  int crossing = -1;
  for (int n = 0; n < frames; ++n) {
    const double l = r.output[n * 2] / 0.5, rr = r.output[n * 2 + 1] / 0.5;
    worstPower = std::max(worstPower, std::fabs(l * l + rr * rr - 1.0));
    if (crossing < 0 && n > 0 && r.output[n * 2 - 2] > 0 && r.output[n * 2] <= 0) crossing = n;
  }
  EXPECT_LT(worstPower, 1e-4);
  EXPECT_NEAR(r.output[0], 0.5 * std::sin(0.75 * M_PI), 1e-4);
  EXPECT_NEAR(r.output[1], 0.5 * std::sin(-0.25 * M_PI), 1e-4);
  // The left gain crosses zero at phase pi/4, three quarters of pi later
  // (within the drift of a float phase accumulator, which the fold by 4 pi
  // keeps near 11 radians, where a float has few bits below the point).
  const double step = 180.0 * 3.0 / 360.0 / 44100.0;
  EXPECT_NEAR(crossing, 0.75 * M_PI / step, 0.01 * 0.75 * M_PI / step);
}

}  // namespace
