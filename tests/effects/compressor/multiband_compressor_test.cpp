// Multi-band compressor: the fixed voicing against its formulas evaluated in
// double, and mid/side handling.
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

// The checked-in voicing table against its formulas evaluated here.
TEST_F(MultiBandCompressorTest, VoicingFollowsItsFormulas) {
  COMPRESSOR::MultiBandCompressorEffect fx;
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

}  // namespace
}  // namespace ONDREL2
