// Chaos routes and weights: where channels land, the counts each side
// reports, and averaging weights counted onto earlier ones.
#include <gtest/gtest.h>

#include <vector>

#include "effects/chaos/chaos.h"
#include "effects/effect_test_util.h"

namespace {

using namespace ondrel_test;
using ONDREL2::EFFECT_CHAOS;

// Streams a stereo signal whose channel c is the constant c + 1 through a
// chaos effect with `settings`, and returns one output frame from the middle
// of the stream (its width is the output channel count).
std::vector<float> Route(const Settings& settings) {
  std::vector<float> in(2 * 2048);
  for (size_t n = 0; n < in.size(); ++n) in[n] = static_cast<float>(n % 2 + 1);
  const StreamResult s = RunStream(NewEffect(EFFECT_CHAOS, settings), 44100.0f, 2, in);
  EXPECT_EQ(s.status, 0);
  const size_t width = s.output.size() / 2048;
  return std::vector<float>(s.output.begin() + width, s.output.begin() + 2 * width);
}

TEST(Chaos, RoutesByMultiplierWrapAndShift) {
  const struct {
    Settings settings;
    std::vector<float> frame;
  } cases[] = {
      // Twice the outputs: without wrap channels 2 and 3 have no route and
      // keep what they carried (nothing); with wrap they repeat 0 and 1.
      {{{"Output Multiplier", 1.0f}}, {1, 2, 0, 0}},
      {{{"Output Multiplier", 1.0f}, {"Wrap", 1.0f}}, {1, 2, 1, 2}},
      // Shift moves every destination by the host's two channels.
      {{{"Output Multiplier", 1.0f}, {"Shift", 1.0f}}, {1, 2, 1, 2}},
      {{{"Output Multiplier", 2.0f}, {"Shift", 1.0f}}, {1, 2, 1, 2, 0, 0}},
      // Half the outputs, wrapped: both inputs land on channel 0, the later
      // overwriting; with "Mix" they sum, with "Average" they are halved.
      {{{"Output Multiplier", -1.0f}, {"Wrap", 1.0f}}, {2}},
      {{{"Output Multiplier", -1.0f}, {"Wrap", 1.0f}, {"Mixing Type", 1.0f}}, {3}},
      {{{"Output Multiplier", -1.0f}, {"Wrap", 1.0f}, {"Mixing Type", 2.0f}}, {1.5f}},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i)
    EXPECT_EQ(Route(cases[i].settings), cases[i].frame) << i;
}

TEST(Chaos, CountsStatusAndWeights) {
  InitQuiet();
  ONDREL2::AEffect* handle =
      NewEffect(EFFECT_CHAOS, {{"Input Multiplier", -1.0f}, {"Wrap", 1.0f}, {"Mixing Type", 2.0f}});
  auto* fx = static_cast<ONDREL2::CHAOS::ChaosEffect*>(handle->object);
  // Stereo source: one input channel, two outputs, reported as a change.
  fx->SetChannels(2, 0x3);
  EXPECT_EQ(fx->UpdateParams(), ONDREL2::ONDREL_CHANNELS_CHANGED);
  EXPECT_EQ(fx->GetChannels(), 1);
  EXPECT_EQ(fx->GetOutChannels(), 2);
  EXPECT_EQ(fx->GetOutChannelMask(), 0x3u);
  // Two routes, one per output: weight 1 each.
  EXPECT_EQ(fx->weights[0], 1.0f);
  EXPECT_EQ(fx->weights[1], 1.0f);
  // Three sources folded onto one output: weight 1/3 ...
  SetParam(handle, "Input Multiplier", 2.0f);
  SetParam(handle, "Output Multiplier", -1.0f);
  EXPECT_EQ(fx->UpdateParams(), ONDREL2::ONDREL_CHANNELS_CHANGED);
  EXPECT_EQ(fx->GetChannels(), 6);
  EXPECT_EQ(fx->weights[0], 1.0f / 7.0f);  // counted onto the earlier 1
  // ... and the same settings again: no change of counts, and the six
  // routes are counted onto 1/7 once more.
  EXPECT_EQ(fx->UpdateParams(), 0);
  EXPECT_EQ(fx->weights[0], 1.0f / (1.0f / 7.0f + 6.0f));
  handle->dispatcher(handle, ONDREL2::ONDREL_OP_CLOSE, 0, 0, nullptr, 0.0f);
}

}  // namespace
