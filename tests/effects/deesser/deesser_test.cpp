// De-esser: table, coefficients, and the sample-exact arithmetic against a
// scalar float model. Since all channels share one set of states, the model
// runs over the interleaved stream as if it were one mono signal.
#include "effects/deesser/deesser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using DeEsserTest = ondrel_test::EffectTest;

struct RefDeEsser {
  float low = 0, mid = 0, env = 0, coef, gain, thr;

  RefDeEsser(float thresh, float freq, float drive, float rate) {
    const float f = freq / rate;
    thr = std::pow(10.0f, thresh * 3.0f - 3.0f);
    coef = static_cast<float>(static_cast<double>(f) * 0.94 * static_cast<double>(f) + 0.05);
    gain = std::pow(10.0f, drive * 2.0f - 1.0f);
  }

  // Interleaved stereo in blocks of 512 frames; states are cut after each.
  void Stream(std::vector<float>& v) {
    const float c = 1.0f - coef;
    for (size_t i = 0; i < v.size(); ++i) {
      low = low * c + v[i] * coef;
      const float t = v[i] - low;
      mid = t * coef + c * mid;
      const float h = (t - mid) * gain;
      env = h > env ? (h - env) * 0.01f + env : env * 0.992f;
      v[i] = env > thr ? (thr / env) * h + (mid + low) : mid + low + h;
      if (i % 1024 != 1023 && i + 1 != v.size()) continue;
      if (std::fabs(low) < 1e-10f) low = mid = 0;
      if (std::fabs(env) < 1e-10f) env = 0;
    }
  }
};

// Odd host calls, or 512-frame calls when `onChunk` changes settings.
ondrel_test::StreamResult RunDeEsser(float thresh, float freq, float drive,
                                     const std::vector<float>& in,
                                     const ondrel_test::OnChunk& onChunk = nullptr) {
  AEffect* fx = ondrel_test::NewEffect(EFFECT_DEESSER,
                                       {{"Thresh", thresh}, {"Frequency", freq}, {"Drive", drive}});
  return ondrel_test::RunStream(
      fx, 44100.0f, 2, in, onChunk ? std::vector<int>{512} : ondrel_test::OddChunks(), onChunk);
}

TEST_F(DeEsserTest, TableNamesAndCoefficients) {
  DEESSER_EFFECT::DeEsserEffect fx;
  ondrel_test::ExpectParams(fx, {{"Thresh", -60, -42, 60, "-42.0 dB"},
                                 {"Frequency", 1000, 7060, 22050, "7060.0 Hz"},
                                 {"Drive", -20, 0, 20, "+0.0 dB"}});
  // The frequency's own Chinese label; in English it falls back to the name.
  char buf[128];
  fx.GetParamLabel(1, buf);
  EXPECT_STREQ(buf, "频率");
  EXPECT_STREQ(fx.GetEffectName(buf), "DeEsser");
  ondrel_set_locale("en", "US");
  fx.GetParamLabel(1, buf);
  EXPECT_STREQ(buf, "Frequency");
  ondrel_set_locale("zh", "CN");

  // Thresh and Drive slide in linear gain around 0 dB.
  EXPECT_NEAR(fx.GetParamNormalized(2), 0.618034, 1e-6);
  const double g = std::pow(10.0, -42.0 / 20.0), gmin = std::pow(10.0, -60.0 / 20.0);
  EXPECT_NEAR(fx.GetParamNormalized(0), 0.618034 * (1.0 - (g - 1.0) / (gmin - 1.0)), 1e-5);

  // The powers take the dB values as they are: at the defaults the
  // threshold underflows to 0 and the drive is 0.1.
  EXPECT_EQ(fx.threshold, 0.0f);
  EXPECT_NEAR(fx.gain, 0.1f, 1e-7f);
}

TEST_F(DeEsserTest, StereoStreamMatchesModelWithSharedState) {
  const std::vector<float> in = ondrel_test::TestSignal(512 * 6, 2, 44100.0f, 2.0f);
  std::vector<float> swapped = in;
  for (size_t i = 0; i < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
  for (const auto& k :
       {std::vector<float>{-42, 7060, 0}, {0.3f, 5000, 0.6f}, {0.1f, 12000, 0.9f}}) {
    SCOPED_TRACE(testing::Message() << k[0] << " " << k[1] << " " << k[2]);
    std::vector<float> expected = in, swappedExpected = swapped;
    RefDeEsser(k[0], k[1], k[2], 44100.0f).Stream(expected);
    RefDeEsser(k[0], k[1], k[2], 44100.0f).Stream(swappedExpected);
    auto r = RunDeEsser(k[0], k[1], k[2], in);
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(ondrel_test::FirstDifference(r.output, expected), expected.size());

    // Left and right share the states: swapping the inputs is not the
    // same as swapping the outputs.
    r = RunDeEsser(k[0], k[1], k[2], swapped);
    EXPECT_EQ(ondrel_test::FirstDifference(r.output, swappedExpected), swappedExpected.size());
    size_t differ = 0;
    for (size_t i = 0; i + 1 < r.output.size(); i += 2) differ += r.output[i] != expected[i + 1];
    EXPECT_GT(differ, r.output.size() / 4);
  }
}

TEST_F(DeEsserTest, ParameterChangeResetsStateAndSilenceEndsInZeros) {
  const std::vector<float> in = ondrel_test::TestSignal(512 * 4, 2, 44100.0f);
  const auto r = RunDeEsser(0.2f, 6000, 0.5f, in, [](int chunk, AEffect* fx) {
    if (chunk == 2) ondrel_test::SetParam(fx, "Frequency", 9000.0f);
  });
  ASSERT_EQ(r.status, 0);
  std::vector<float> want(in.begin() + 2048, in.end());
  RefDeEsser(0.2f, 9000, 0.5f, 44100.0f).Stream(want);
  ASSERT_EQ(r.output.size(), in.size());
  EXPECT_EQ(std::vector<float>(r.output.begin() + 2048, r.output.end()), want);

  // After a loud burst the states end in exact zeros, never denormal at a
  // block boundary; a clear doesn't touch them.
  DEESSER_EFFECT::DeEsserEffect d;
  d.SetParam(0, 0.2f);
  d.SetParam(2, 0.9f);
  ASSERT_EQ(d.UpdateParams(), 0);
  std::vector<float> l(512), r2(512);
  bool subnormal = false;
  for (int b = 0; b < 40; ++b) {
    for (size_t i = 0; i < 512; ++i) {
      l[i] = b == 0 ? 3.0f * in[2 * i] : 0.0f;
      r2[i] = b == 0 ? 3.0f * in[2 * i + 1] : 0.0f;
    }
    int32_t n = 512;
    ASSERT_EQ(d.ProcessBlock({l.data(), r2.data()}, &n), 0);
    for (float s : {d.low, d.midState, d.envelope})
      subnormal = subnormal || std::fpclassify(s) == FP_SUBNORMAL;
    if (b == 0) {
      d.ClearBuffers();
      d.ResetDsp();
      EXPECT_NE(d.envelope, 0.0f);
    }
  }
  EXPECT_FALSE(subnormal);
  EXPECT_EQ(d.low, 0.0f);
  EXPECT_EQ(d.midState, 0.0f);
  EXPECT_EQ(d.envelope, 0.0f);
}

}  // namespace
}  // namespace ONDREL2
