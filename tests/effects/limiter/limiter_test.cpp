// Limiter: the effect against its look-ahead kernel run directly on each
// channel group under the ceiling, refused formats and clear.
#include "effects/limiter/limiter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "dsp/lookahead_limiter.h"
#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using ondrel_test::Db;
using ondrel_test::Settings;
using LimiterTest = ondrel_test::EffectTest;

// Kernel settings for the effect's parameters by name: the effect's
// defaults, levels in dB, switches on from 1 upward.
LookaheadLimiterParams FromParams(const Settings& params) {
  LookaheadLimiterParams s;
  s.levelOut = Db(-0.1f);
  s.limit = Db(-0.2f);
  for (const auto& kv : params) {
    const std::string name = kv.first;
    const float v = kv.second;
    if (name == "In") s.levelIn = Db(v);
    if (name == "Out") s.levelOut = Db(v);
    if (name == "Limit") s.limit = Db(v);
    if (name == "Attack Time") s.attack = v;
    if (name == "Release Time") s.release = v;
    if (name == "Auto Release") s.autoRelease = static_cast<int>(std::floor(v));
    if (name == "Auto Release Level") s.autoReleaseLevel = v;
    if (name == "Auto Level") s.autoLevel = static_cast<int>(std::floor(v));
  }
  return s;
}

TEST_F(LimiterTest, StreamIsTheKernelPerGroupUnderTheCeiling) {
  const Settings hard = {{"In", -3}, {"Limit", -12}, {"Attack Time", 1.5f}, {"Release Time", 20}};
  Settings autoRel = hard;
  // Switches floor their value: 1.5 is on, 0.2 is off.
  autoRel.insert(autoRel.end(),
                 {{"Auto Release", 1.5f}, {"Auto Release Level", 0.8f}, {"Auto Level", 0.2f}});
  const std::pair<int, Settings> cases[] = {
      {2, {}},
      {2, hard},
      {2, autoRel},
      {2, {{"Limit", -20}, {"Attack Time", 0.1f}, {"Release Time", 1}, {"Auto Level", 0}}},
      {1, {{"Limit", -1}, {"Attack Time", 0.3f}, {"Auto Release", 1}}},
      {6, {{"In", -2}, {"Limit", -9}, {"Release Time", 8000}}},
  };
  const int frames = 4096;
  for (const auto& k : cases) {
    const int ch = k.first;
    SCOPED_TRACE(testing::Message() << ch << " channels, " << k.second.size() << " settings");
    const std::vector<float> in = ondrel_test::TestSignal(frames, ch, 44100.0f, 8.0f);
    const auto r =
        ondrel_test::RunStream(ondrel_test::NewEffect(EFFECT_LIMITER, k.second), 44100.0f, ch, in,
                               ondrel_test::OddChunks(), nullptr, true, ch == 6 ? 0x3F : 0);
    ASSERT_EQ(r.status, 0);
    const LookaheadLimiterParams s = FromParams(k.second);
    using Groups = std::vector<std::vector<int>>;
    const Groups groups =
        ch == 6 ? Groups{{0, 1}, {2}, {3}, {4, 5}} : (ch == 2 ? Groups{{0, 1}} : Groups{{0}});
    const int first = static_cast<int>(groups[0].size());
    LookaheadLimiter probe(&s);
    ASSERT_EQ(probe.SetFormat(44100, first), 0);
    const int padded = frames + probe.LatencyFrames();
    std::vector<float> expected(static_cast<size_t>(padded * ch), 0.0f);
    for (const std::vector<int>& g : groups) {
      const int n = static_cast<int>(g.size());
      std::vector<std::vector<float>> planes(n, std::vector<float>(padded, 0.0f));
      std::vector<float*> ptrs;
      std::vector<int32_t> idx;
      for (int c = 0; c < n; ++c) {
        for (int f = 0; f < frames; ++f)
          planes[c][static_cast<size_t>(f)] = in[static_cast<size_t>(f * ch + g[c])];
        ptrs.push_back(planes[c].data());
        idx.push_back(c);
      }
      LookaheadLimiter kernel(&s);
      ASSERT_EQ(kernel.SetFormat(44100, n), 0);
      kernel.ProcessPlanar(ptrs.data(), padded, idx.data());
      for (int f = 0; f < padded; ++f)
        for (int c = 0; c < n; ++c)
          expected[static_cast<size_t>(f * ch + g[c])] = planes[c][static_cast<size_t>(f)];
    }
    ASSERT_EQ(r.output.size(), expected.size());
    EXPECT_EQ(ondrel_test::FirstDifference(r.output, expected), expected.size());
    const float bound = s.limit * (s.autoLevel ? 1.0f / s.limit : 1.0f) * s.levelOut;
    float worst = 0.0f;
    for (float v : r.output) worst = std::max(worst, std::fabs(v));
    EXPECT_LE(worst, bound);
    EXPECT_GT(worst, 0.5f * bound);
  }
}

TEST_F(LimiterTest, ClearAndRefusedFormats) {
  LookaheadLimiterParams p;
  p.limit = 0.5f;
  p.attack = 0.1f;
  const int32_t idx[2] = {0, 1};
  // Refused with 2000: less than one frame of ring, no rate, no channels,
  // too many channels, a ring beyond its allocation.
  LookaheadLimiter tiny(&p);
  EXPECT_EQ(tiny.SetFormat(4000, 2), ONDREL_E_INVALID);
  EXPECT_EQ(tiny.SetFormat(0, 1), ONDREL_E_INVALID);
  EXPECT_EQ(tiny.SetFormat(44100, LookaheadLimiter::kMaxChannels + 1), ONDREL_E_INVALID);
  EXPECT_EQ(tiny.SetFormat(44100, 0), ONDREL_E_INVALID);
  LookaheadLimiterParams longer;
  longer.attack = 150.0f;
  LookaheadLimiter tooLong(&longer);
  EXPECT_EQ(tooLong.SetFormat(44100, 2), ONDREL_E_INVALID);
  // Nothing is processed by a kernel without a ring.
  std::vector<float> keep = {0.3f, 9.0f};
  float* kb[1] = {keep.data()};
  tiny.ProcessPlanar(kb, 2, idx);
  EXPECT_EQ(keep[1], 9.0f);

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
