// Dfx enhancers through the public interface: worked delays and levels,
// pass-through points, and the 3D surround's side against the cookbook.
#include "effects/dfx/dfx_effects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_test;

// Stereo output of a dfx effect (each has one parameter) set to `amount`.
std::vector<float> Dfx(ONDREL_EFFECT_TYPE type, float amount, const std::vector<float>& in,
                       float rate = 44100.0f) {
  AEffect* fx = NewEffect(type);
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, amount);
  const StreamResult r = RunStream(fx, rate, 2, in);
  EXPECT_EQ(r.status, 0);
  return r.output;
}

// First stereo frame from `from` on in which channel `c` is not zero, or -1.
int FirstNonZero(const std::vector<float>& x, int c, size_t from = 0) {
  for (size_t n = from; n * 2 < x.size(); ++n)
    if (x[n * 2 + c] != 0.0f) return static_cast<int>(n);
  return -1;
}

std::vector<float> Impulse(int frames, float left, float right) {
  std::vector<float> x(static_cast<size_t>(frames * 2), 0.0f);
  x[0] = left, x[1] = right;
  return x;
}

TEST_F(EffectTest, Dfx3dSurroundPassesMidAndHighPassesDelayedSide) {
  // Left equal to right comes out untouched.
  const std::vector<float> mid = TestSignal(6000, 2, 44100.0f);
  std::vector<float> same(mid.size());
  for (size_t i = 0; i < same.size(); ++i) same[i] = mid[i - i % 2];
  EXPECT_EQ(FirstDifference(Dfx(EFFECT_DFX_3DSURROUND, 127.0f, same), same), same.size());

  // A left impulse: the side returns on the right after the short line and
  // on the left after the long one; both lines follow the rate.
  for (const auto& rl : {std::vector<int>{44100, 173, 218}, std::vector<int>{48000, 188, 237}}) {
    const std::vector<float> out =
        Dfx(EFFECT_DFX_3DSURROUND, 127.0f, Impulse(2048, 0.5f, 0.0f), static_cast<float>(rl[0]));
    EXPECT_EQ(FirstNonZero(out, 1), rl[1]) << "rate " << rl[0];
    EXPECT_EQ(FirstNonZero(out, 0, 1), rl[2]) << "rate " << rl[0];  // past the dry impulse
  }

  // Pure side: left minus its input is 5 * 0.7 times the high-passed side.
  const double rate = 44100.0;
  for (double hz : {30.0, 100.0, 300.0, 4000.0}) {
    const std::vector<float> in = Tone(52920, 2, rate, hz, 0.1, {1.0, -1.0});
    std::vector<float> out = Dfx(EFFECT_DFX_3DSURROUND, 127.0f, in);
    for (size_t i = 0; i < in.size(); ++i) out[i] -= in[i];
    const double want = 3.5 * 0.1 * std::abs(CookbookHighPass(100.0, 0.70710678, hz, rate));
    EXPECT_NEAR(ToneAmplitude(out, 2, 0, 8820, 44100, rate, hz), want, want * 2e-4 + 1e-7)
        << hz << " Hz";
  }
}

TEST_F(EffectTest, DfxHeadphoneCrossFeedsAfterShortestLine) {
  // A left impulse reaches the right first through the 9.774 ms line, with
  // weight 0.46, half wet.
  const std::vector<float> out = Dfx(EFFECT_DFX_HEADPHONE, 1.5f, Impulse(2048, 1.0f, 0.0f));
  ASSERT_EQ(FirstNonZero(out, 1), 431);
  EXPECT_FLOAT_EQ(out[431 * 2 + 1], 0.23f);
  EXPECT_FLOAT_EQ(out[0], 0.5f);
}

TEST_F(EffectTest, DfxAmbiencePlate) {
  // At 12 the wet level is 0 and the dry 1: the audio passes unchanged.
  const std::vector<float> sig = TestSignal(40000, 2, 44100.0f);
  EXPECT_EQ(FirstDifference(Dfx(EFFECT_AMBIENCE, 12.0f, sig), sig), sig.size());

  // Below 12 the wet signal is out of phase: the first wet arrival of an
  // impulse (past the dry one) has the opposite sign of the one above 12.
  const std::vector<float> below = Dfx(EFFECT_AMBIENCE, 5.0f, Impulse(8192, 0.5f, 0.5f));
  const std::vector<float> above = Dfx(EFFECT_AMBIENCE, 19.0f, Impulse(8192, 0.5f, 0.5f));
  const int b = FirstNonZero(below, 0, 1), a = FirstNonZero(above, 0, 1);
  ASSERT_GT(b, 0);
  ASSERT_GT(a, 0);
  EXPECT_LT(below[static_cast<size_t>(2 * b)] * above[static_cast<size_t>(2 * a)], 0.0f);
}

TEST_F(EffectTest, DfxDynamicBoostDelaysLimitsAndFollowsLeft) {
  const double rate = 44100.0;
  // Quiet tone: a plain gain of 0.966051 (amount 1 picks table step 0), 33 late.
  const std::vector<float> quiet = Tone(4096, 2, rate, 441.0, 0.2);
  const std::vector<float> q = Dfx(EFFECT_DYNAMICBOOST, 1.0f, quiet);
  for (int n = 33; n < 4096; ++n)
    ASSERT_NEAR(q[static_cast<size_t>(2 * n)], 0.966051f * quiet[2 * (n - 33)], 1e-6) << n;

  // Loud tone at full amount: held at or below about 0.966 once settled.
  const std::vector<float> l = Dfx(EFFECT_DYNAMICBOOST, 127.0f, Tone(44100, 2, rate, 441.0, 1.2));
  float peak = 0.0f;
  for (size_t i = 2 * 22050; i < l.size(); ++i) peak = std::max(peak, std::fabs(l[i]));
  EXPECT_LE(peak, 0.9661f);
  EXPECT_GT(peak, 0.9f);

  // The level follows the left channel alone: with left silent, the right
  // gets the full table gain of 11.6 dB (60 steps of 0.1 dB, 28 of 0.2 dB).
  const std::vector<float> ro =
      Dfx(EFFECT_DYNAMICBOOST, 127.0f, Tone(44100, 2, rate, 441.0, 0.2, {0.0, 1.0}));
  EXPECT_NEAR(ToneAmplitude(ro, 2, 1, 22050, 22050, rate, 441.0),
              0.2 * std::pow(10.0, 11.6 / 20.0) * 0.966051, 2e-4);
}

}  // namespace
