// Dfx enhancers through the public interface: the 3D surround's mid
// pass-through, line delays and side high pass (against the cookbook closed
// form), the headphone's first cross-feed arrival, the ambience's
// pass-through point and phase flip, and the dynamic boost's delay, ceiling
// and left-driven level.
#include "effects/dfx/dfx_effects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_test;

// First frame from which channel `c` differs from zero, or -1.
int FirstNonZero(const std::vector<float>& x, int channels, int c) {
  for (size_t n = 0; n * channels < x.size(); ++n)
    if (x[n * channels + c] != 0.0f) return static_cast<int>(n);
  return -1;
}

std::vector<float> Impulse(int frames, int channels, std::vector<float> first) {
  std::vector<float> x(static_cast<size_t>(frames * channels), 0.0f);
  for (int c = 0; c < channels; ++c) x[static_cast<size_t>(c)] = first[static_cast<size_t>(c)];
  return x;
}

TEST_F(EffectTest, Dfx3dSurroundPassesMidAndHighPassesDelayedSide) {
  // Left equal to right comes out untouched.
  const std::vector<float> mid = TestSignal(6000, 2, 44100.0f);
  std::vector<float> same(mid.size());
  for (size_t i = 0; i < same.size(); ++i) same[i] = mid[i - i % 2];
  const StreamResult stereo =
      RunStream(NewEffect(EFFECT_DFX_3DSURROUND, {{"3DSurround", 127.0f}}), 44100.0f, 2, same);
  EXPECT_EQ(FirstDifference(stereo.output, same), same.size());

  // A left impulse: the side returns on the right after the short line and
  // on the left after the long one; both lines follow the rate.
  for (const auto& rl : {std::vector<int>{44100, 173, 218}, std::vector<int>{48000, 188, 237}}) {
    const std::vector<float> in = Impulse(2048, 2, {0.5f, 0.0f});
    const StreamResult r = RunStream(NewEffect(EFFECT_DFX_3DSURROUND, {{"3DSurround", 127.0f}}),
                                     static_cast<float>(rl[0]), 2, in);
    EXPECT_EQ(FirstNonZero(r.output, 2, 1), rl[1]) << "rate " << rl[0];
    std::vector<float> leftWet(r.output.begin() + 2, r.output.end());  // past the dry impulse
    EXPECT_EQ(FirstNonZero(leftWet, 2, 0) + 1, rl[2]) << "rate " << rl[0];
  }

  // Pure side: left minus its input is 5 * 0.7 times the high-passed side.
  const double rate = 44100.0;
  for (double hz : {30.0, 100.0, 300.0, 4000.0}) {
    const std::vector<float> in = Tone(52920, 2, rate, hz, 0.1, {1.0, -1.0});
    StreamResult r =
        RunStream(NewEffect(EFFECT_DFX_3DSURROUND, {{"3DSurround", 127.0f}}), 44100.0f, 2, in);
    for (size_t i = 0; i < in.size(); ++i) r.output[i] -= in[i];
    const double want = 3.5 * 0.1 * std::abs(CookbookHighPass(100.0, 0.70710678, hz, rate));
    EXPECT_NEAR(ToneAmplitude(r.output, 2, 0, 8820, 44100, rate, hz), want, want * 2e-4 + 1e-7)
        << hz << " Hz";
  }
}

TEST_F(EffectTest, DfxHeadphoneCrossFeedsAfterShortestLine) {
  // A left impulse reaches the right first through the 9.774 ms line, with
  // weight 0.46, half wet.
  const std::vector<float> in = Impulse(2048, 2, {1.0f, 0.0f});
  const StreamResult r =
      RunStream(NewEffect(EFFECT_DFX_HEADPHONE, {{"Headphone", 1.5f}}), 44100.0f, 2, in);
  ASSERT_EQ(FirstNonZero(r.output, 2, 1), 431);
  EXPECT_FLOAT_EQ(r.output[431 * 2 + 1], 0.23f);
  EXPECT_FLOAT_EQ(r.output[0], 0.5f);
}

TEST_F(EffectTest, DfxAmbiencePlate) {
  // At 12 the wet level is 0 and the dry 1: the audio passes unchanged.
  const std::vector<float> sig = TestSignal(40000, 2, 44100.0f);
  const StreamResult at12 =
      RunStream(NewEffect(EFFECT_AMBIENCE, {{"Ambience", 12.0f}}), 44100.0f, 2, sig);
  EXPECT_EQ(FirstDifference(at12.output, sig), sig.size());

  // Below 12 the wet signal is out of phase: the first wet arrival of an
  // impulse has the opposite sign of the one above 12.
  const std::vector<float> in = Impulse(8192, 2, {0.5f, 0.5f});
  float first[2] = {0.0f, 0.0f};
  const float amounts[2] = {5.0f, 19.0f};
  for (int k = 0; k < 2; ++k) {
    StreamResult r =
        RunStream(NewEffect(EFFECT_AMBIENCE, {{"Ambience", amounts[k]}}), 44100.0f, 2, in);
    r.output[0] = r.output[1] = 0.0f;  // the dry impulse
    const int at = FirstNonZero(r.output, 2, 0);
    ASSERT_GT(at, 0);
    first[k] = r.output[static_cast<size_t>(at * 2)];
  }
  EXPECT_LT(first[0] * first[1], 0.0f);
}

TEST_F(EffectTest, DfxDynamicBoostDelaysLimitsAndFollowsLeft) {
  const double rate = 44100.0;
  // Quiet tone: a plain gain of 0.966051 (amount 1 picks table step 0), 33 late.
  const std::vector<float> quiet = Tone(4096, 2, rate, 441.0, 0.2);
  const StreamResult q =
      RunStream(NewEffect(EFFECT_DYNAMICBOOST, {{"Dynamicboost", 1.0f}}), 44100.0f, 2, quiet);
  for (int n = 33; n < 4096; ++n)
    ASSERT_NEAR(q.output[static_cast<size_t>(2 * n)], 0.966051f * quiet[2 * (n - 33)], 1e-6)
        << "frame " << n;

  // Loud tone at full amount: held at or below about 0.966 once settled.
  const std::vector<float> loud = Tone(44100, 2, rate, 441.0, 1.2);
  const StreamResult l =
      RunStream(NewEffect(EFFECT_DYNAMICBOOST, {{"Dynamicboost", 127.0f}}), 44100.0f, 2, loud);
  float peak = 0.0f;
  for (size_t i = 2 * 22050; i < l.output.size(); ++i)
    peak = std::max(peak, std::fabs(l.output[i]));
  EXPECT_LE(peak, 0.9661f);
  EXPECT_GT(peak, 0.9f);

  // The level follows the left channel alone: with left silent, the right
  // gets the full table gain of 11.6 dB (60 steps of 0.1 dB, 28 of 0.2 dB).
  const std::vector<float> rightOnly = Tone(44100, 2, rate, 441.0, 0.2, {0.0, 1.0});
  const StreamResult ro =
      RunStream(NewEffect(EFFECT_DYNAMICBOOST, {{"Dynamicboost", 127.0f}}), rate, 2, rightOnly);
  EXPECT_NEAR(ToneAmplitude(ro.output, 2, 1, 22050, 22050, rate, 441.0),
              0.2 * std::pow(10.0, 11.6 / 20.0) * 0.966051, 2e-4);
}

}  // namespace
