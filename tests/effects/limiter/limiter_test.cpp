// Limiter: the ceiling on every channel group, refused formats and clear.
#include "effects/limiter/limiter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "dsp/lookahead_limiter.h"
#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using ondrel_test::Settings;
using LimiterTest = ondrel_test::EffectTest;

// Loud bursts stay under the ceiling on every channel of every group, and
// reach at least half of it: Limit times Out, times 1 / Limit while Auto
// Level is on (switches floor their value: 0.2 is off, 1.5 on).
TEST_F(LimiterTest, StreamStaysUnderTheCeiling) {
  const struct {
    int channels;
    Settings settings;
    float limitDb, outDb;
    bool autoLevel;
  } cases[] = {
      {2,
       {{"In", -3},
        {"Limit", -12},
        {"Attack Time", 1.5f},
        {"Auto Release", 1.5f},
        {"Auto Release Level", 0.8f},
        {"Auto Level", 0.2f}},
       -12.0f,
       -0.1f,
       false},
      {1, {{"Limit", -1}, {"Attack Time", 0.3f}, {"Auto Release", 1}}, -1.0f, -0.1f, true},
      {6, {{"In", -2}, {"Limit", -9}, {"Release Time", 8000}, {"Out", -3}}, -9.0f, -3.0f, true},
  };
  for (const auto& k : cases) {
    const int ch = k.channels;
    const std::vector<float> in = ondrel_test::TestSignal(4096, ch, 44100.0f, 8.0f);
    const auto r =
        ondrel_test::RunStream(ondrel_test::NewEffect(EFFECT_LIMITER, k.settings), 44100.0f, ch, in,
                               ondrel_test::OddChunks(), nullptr, true, ch == 6 ? 0x3F : 0);
    ASSERT_EQ(r.status, 0);
    auto db = [](float v) { return static_cast<float>(std::pow(10.0, double{v / 20.0f})); };
    const float limit = db(k.limitDb);
    const float bound = limit * (k.autoLevel ? 1.0f / limit : 1.0f) * db(k.outDb);
    for (int c = 0; c < ch; ++c) {
      float worst = 0.0f;
      for (size_t i = static_cast<size_t>(c); i < r.output.size(); i += static_cast<size_t>(ch))
        worst = std::max(worst, std::fabs(r.output[i]));
      EXPECT_LE(worst, bound) << ch << " channels, limit " << k.limitDb << ", channel " << c;
      EXPECT_GT(worst, 0.5f * bound) << ch << " channels, limit " << k.limitDb << ", channel " << c;
    }
  }
}

TEST_F(LimiterTest, ClearAndRefusedFormats) {
  LookaheadLimiterParams p;
  p.limit = 0.5f;
  p.attack = 0.1f;
  // Refused with 2000: less than one frame of ring, no rate, no channels,
  // too many channels, a ring beyond its allocation.
  LookaheadLimiter tiny(&p);
  EXPECT_EQ(tiny.SetFormat(4000, 2), ONDREL_E_INVALID);
  EXPECT_EQ(tiny.SetFormat(0, 1), ONDREL_E_INVALID);
  EXPECT_EQ(tiny.SetFormat(44100, LookaheadLimiter::kMaxChannels + 1), ONDREL_E_INVALID);
  EXPECT_EQ(tiny.SetFormat(44100, 0), ONDREL_E_INVALID);
  p.attack = 150.0f;
  EXPECT_EQ(LookaheadLimiter(&p).SetFormat(44100, 2), ONDREL_E_INVALID);

  // The effect returns the status, and its groups without a kernel pass
  // the audio through unchanged.
  LIMITER::LimiterEffect fx;
  fx.SetSampleRate(4000.0f);
  fx.SetParam(fx.GetParamIndex("Attack Time"), 0.1f);
  EXPECT_EQ(fx.UpdateParams(), ONDREL_E_INVALID);
  EXPECT_EQ(fx.GetLatency(), 0);
  std::vector<std::vector<float>> data(6, std::vector<float>(64, 4.0f));
  std::vector<float*> planes;
  for (auto& d : data) planes.push_back(d.data());
  int32_t frames = 2;
  EXPECT_EQ(fx.ProcessBlock({planes[0], planes[1]}, &frames), 0);
  EXPECT_EQ(data[0][0], 4.0f);

  // A clear brings every kernel back to unity gain with an empty ring; a
  // block without frames changes nothing.
  fx.SetSampleRate(44100.0f);
  fx.SetChannels(6, 0x3F);
  ASSERT_EQ(fx.UpdateParams(), 0);
  frames = 64;
  ASSERT_EQ(fx.ProcessBlock(planes, &frames), 0);
  EXPECT_LT(fx.units.First()->att, 1.0f);
  fx.ClearBuffers();
  frames = 0;
  ASSERT_EQ(fx.ProcessBlock(planes, &frames), 0);
  int kernels = 0;
  fx.units.ForEach([&](LookaheadLimiter& k, const ChannelGroup&) {
    ++kernels;
    EXPECT_TRUE(k.att == 1.0f && k.pos == 0 && k.nextLen == 0);
    EXPECT_TRUE(
        std::all_of(k.buffer, k.buffer + k.bufferCapacity, [](float v) { return v == 0.0f; }));
  });
  EXPECT_EQ(kernels, 4);
}

}  // namespace
}  // namespace ONDREL2
