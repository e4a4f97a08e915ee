// Multi-band compressor: the fixed voicing against its formulas evaluated in
// double, mid/side handling, state reset on a change, exact zeros after a
// burst.
#include "effects/compressor/multiband_compressor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using MultiBandCompressorTest = ondrel_test::EffectTest;

float P10(double e) { return static_cast<float>(std::pow(10.0, e)); }

// The voicing, computed here at run time in double and rounded to float.
struct RefVoicing {
  float lowDrive = P10(0.35), lowAttack = P10(-0.6), lowRelease = P10(-4.107);
  float lowGain = static_cast<float>(std::pow(10.0, -0.1) * 1.0605717897415161);
  float midDrive = P10(-1), midAttack = P10(-0.49), midRelease = P10(-3.806), midGain = 0.5f;
  float highDrive = P10(0.5), highAttack = P10(-0.38), highRelease = P10(-3.505);
  float highGain = static_cast<float>(1.2689599990844727);
  float lowCoef = P10(-1.597), splitCoef = P10(-0.172), width = static_cast<float>(0.55);
};

TEST_F(MultiBandCompressorTest, NamesAndVoicing) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  // Most defaults lie outside their range; they are stored as they stand.
  char buf[128];
  EXPECT_STREQ(fx.GetEffectName(buf), "多段压缩器");
  ondrel_set_locale("ja", "JP");  // no Japanese name: the English one
  EXPECT_STREQ(fx.GetEffectName(buf), "MultiBandCompressor");
  ondrel_set_locale("zh", "CN");

  // The checked-in table against the formulas evaluated here.
  const RefVoicing v;
  const COMPRESSOR::Voicing& t = fx.voicing;
  const float got[] = {t.lowDrive,    t.lowAttack,  t.lowRelease, t.lowGain,   t.midDrive,
                       t.midAttack,   t.midRelease, t.midGain,    t.highDrive, t.highAttack,
                       t.highRelease, t.highGain,   t.lowCoef,    t.splitCoef, t.width};
  const float want[] = {v.lowDrive,    v.lowAttack,  v.lowRelease, v.lowGain,   v.midDrive,
                        v.midAttack,   v.midRelease, v.midGain,    v.highDrive, v.highAttack,
                        v.highRelease, v.highGain,   v.lowCoef,    v.splitCoef, v.width};
  for (size_t i = 0; i < 15; ++i) EXPECT_EQ(got[i], want[i]) << "voicing field " << i;
}

TEST_F(MultiBandCompressorTest, ParametersOnlyResetState) {
  // Changing parameters mid-stream changes no coefficient (not even the
  // polarity switch), but the next block starts again from zeroed state:
  // the rest of the stream is what a fresh effect makes of it.
  const std::vector<float> in = ondrel_test::TestSignal(512 * 8, 2, 44100.0f, 2.0f);
  const auto plain = ondrel_test::RunStream(ondrel_test::NewEffect(EFFECT_MULTIBAND_COMPRESSOR),
                                            44100.0f, 2, in, {1024});
  const auto r =
      ondrel_test::RunStream(ondrel_test::NewEffect(EFFECT_MULTIBAND_COMPRESSOR), 44100.0f, 2, in,
                             {1024}, [](int chunk, AEffect* fx) {
                               for (int i = 0; i < 13 && chunk == 1; ++i)
                                 ondrel_test::SetParamAt(fx, i, 0.77f * static_cast<float>(i + 1));
                             });
  const auto fresh =
      ondrel_test::RunStream(ondrel_test::NewEffect(EFFECT_MULTIBAND_COMPRESSOR), 44100.0f, 2,
                             std::vector<float>(in.begin() + 2048, in.end()), {1024});
  ASSERT_EQ(r.status, 0);
  std::vector<float> want(plain.output.begin(), plain.output.begin() + 2048);
  want.insert(want.end(), fresh.output.begin(), fresh.output.end());
  EXPECT_EQ(ondrel_test::FirstDifference(r.output, want), want.size());
  EXPECT_NE(r.output, plain.output);
}

TEST_F(MultiBandCompressorTest, SideSignalSwapAndPassThrough) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  const int n = 512;
  std::vector<float> l0(n), l, r;
  for (int i = 0; i < n; ++i)
    l0[static_cast<size_t>(i)] = 0.9f * std::sin(0.37f * static_cast<float>(i));
  int32_t frames = n;
  // l = -r: the sum is silent, and the side leaves at the width. With the
  // polarity switch the right channel is inverted on the way in and out: an
  // in-phase pair is treated as pure side.
  for (int swap = 0; swap < 2; ++swap) {
    fx.msSwap = swap;
    l = l0;
    r = l0;
    if (!swap)
      for (float& v : r) v = -v;
    ASSERT_EQ(fx.ProcessBlock({l.data(), r.data()}, &frames), 0);
    for (int i = 0; i < n; ++i) {
      const float side = (l0[static_cast<size_t>(i)] - (-l0[static_cast<size_t>(i)])) * 0.55f;
      ASSERT_EQ(l[static_cast<size_t>(i)], side) << i;
      ASSERT_EQ(r[static_cast<size_t>(i)], swap ? side : -side) << i;
    }
    EXPECT_EQ(fx.envMid, 0.0f);
    EXPECT_EQ(fx.split, 0.0f);
  }

  // Mono and four channels pass unchanged.
  for (size_t chns : {1u, 4u}) {
    std::vector<std::vector<float>> d(chns, l0);
    std::vector<float*> p;
    for (auto& c : d) p.push_back(c.data());
    ASSERT_EQ(fx.ProcessBlock(p, &frames), 0);
    for (auto& c : d) EXPECT_EQ(c, l0);
  }
}

TEST_F(MultiBandCompressorTest, LoudThenSilenceEndsInExactZeros) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  std::vector<float> block = ondrel_test::TestSignal(512, 2, 44100.0f);
  for (float& v : block) v *= 3.0f;
  std::vector<float> l(512), r(512);
  bool subnormal = false;
  for (int b = 0; b < 700; ++b) {
    std::vector<float> lr = b == 0 ? block : std::vector<float>(1024, 0.0f);
    for (size_t i = 0; i < 512; ++i) {
      l[i] = lr[2 * i];
      r[i] = lr[2 * i + 1];
    }
    int32_t frames = 512;
    ASSERT_EQ(fx.ProcessBlock({l.data(), r.data()}, &frames), 0);
    for (float s : {fx.envLow, fx.envMid, fx.envHigh, fx.lowStage1, fx.split, fx.lowStage2})
      subnormal = subnormal || std::fpclassify(s) == FP_SUBNORMAL;
  }
  EXPECT_FALSE(subnormal);
  for (float s : {fx.envLow, fx.envMid, fx.envHigh, fx.lowStage1, fx.split, fx.lowStage2})
    EXPECT_EQ(s, 0.0f);
  EXPECT_TRUE(std::all_of(l.begin(), l.end(), [](float v) { return v == 0.0f; }));

  // A clear leaves the states alone.
  fx.envHigh = 0.5f;
  fx.ClearBuffers();
  fx.ResetDsp();
  EXPECT_EQ(fx.envHigh, 0.5f);
  EXPECT_EQ(fx.GetLatency(), 0);
  EXPECT_EQ(fx.GetBlockSize(), 512);
}

}  // namespace
}  // namespace ONDREL2
