// Growl: the scaled dry signal with the wet path closed, and the detector
// that lets the right side copy the left after a window of equal blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/growl/growl.h"

namespace {

using namespace ondrel_test;
using ONDREL2::EFFECT_GROWL;

constexpr float kRate = 44100.0f;

TEST(Growl, ClosedWetPathLeavesTheScaledDrySignal) {
  const std::vector<float> in = TestSignal(6000, 2, kRate);  // peak below 0.7
  // Threshold 0 dB: nothing is above it, only (1 - mix) of the dry remains.
  const StreamResult closed =
      RunStream(NewEffect(EFFECT_GROWL, {{"Threshold", 0.0f}, {"Mix", 0.25f}, {"Output", 6.0f}}),
                kRate, 2, in);
  ASSERT_EQ(closed.status, 0);
  const double out = std::pow(10.0, 6.0 / 20.0);
  for (size_t i = 0; i < in.size(); ++i)
    ASSERT_NEAR(closed.output[i], 0.75 * in[i] * out, 1e-6) << i;

  // Mix 0 at the lowest threshold: the dry signal times the output gain.
  const StreamResult dry =
      RunStream(NewEffect(EFFECT_GROWL, {{"Mix", 0.0f}, {"Output", -6.0f}}), kRate, 2, in);
  for (size_t i = 0; i < in.size(); ++i) ASSERT_NEAR(dry.output[i], in[i] / out, 1e-6) << i;
}

TEST(Growl, RightSideCopiesTheLeftAfterAWindowOfEqualBlocks) {
  using ONDREL2::GROWL::GrowlDspWrapper;
  GrowlDspWrapper proto;
  std::unique_ptr<ONDREL2::ON_DSP_WRAPPERS::IDspWrapper> made(proto.Create(kRate, 2, 3));
  auto& w = static_cast<GrowlDspWrapper&>(*made);
  std::unique_ptr<ONDREL2::AudioEffect> runner(new ONDREL2::GROWL::GrowlEffect());
  ASSERT_EQ(w.UpdateParams(runner.get()), 0);

  std::vector<float> left(64), right(64);
  const std::vector<float*> bufs = {left.data(), right.data()};
  const int32_t indices[2] = {0, 1};
  auto block = [&](float l, float r) {
    std::fill(left.begin(), left.end(), l);
    std::fill(right.begin(), right.end(), r);
    EXPECT_EQ(w.ProcessVector(bufs, 64, indices), 64);
  };
  EXPECT_EQ(w.ProcessVector(bufs, 0, indices), 0);  // the probe's answer
  for (int b = 0; b < 32; ++b) block(0.5f, 0.5f);
  EXPECT_FALSE(w.rightEqualsLeft);
  block(0.5f, 0.5f);  // the window is full: judged now
  EXPECT_TRUE(w.rightEqualsLeft);
  EXPECT_TRUE(w.leftActive);
  // The right side's own path no longer runs: a different right input gets
  // the left side's wet part.
  block(0.5f, -0.25f);
  const float wet = (right[63] / w.output - (1.0f - w.mix) * -0.25f) / w.mix;
  const float wetLeft = (left[63] / w.output - (1.0f - w.mix) * 0.5f) / w.mix;
  EXPECT_NEAR(wet, wetLeft, 1e-6f);

  // A left side silent for a whole window is not active, so the right side
  // works on its own again (the window under way is judged first).
  for (int b = 0; b < 65; ++b) block(0.0f, 0.0f);
  EXPECT_FALSE(w.leftActive);
  EXPECT_FALSE(w.rightEqualsLeft);
}

}  // namespace
