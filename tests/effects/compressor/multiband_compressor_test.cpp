// Multi-band compressor: mid/side handling and pass-through of other widths.
#include "effects/compressor/multiband_compressor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using MultiBandCompressorTest = ondrel_test::EffectTest;

TEST_F(MultiBandCompressorTest, SideSignalSwapAndPassThrough) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  const int n = 512;
  std::vector<float> l0(n);
  for (int i = 0; i < n; ++i)
    l0[static_cast<size_t>(i)] = 0.9f * std::sin(0.37f * static_cast<float>(i));
  int32_t frames = n;
  // l = -r: the sum is silent, and the side leaves at the width. With the
  // polarity switch the right channel is inverted on the way in and out: an
  // in-phase pair is treated as pure side.
  for (int swap = 0; swap < 2; ++swap) {
    fx.msSwap = swap;
    std::vector<float> l = l0, r = l0;
    for (float& v : r) v = swap ? v : -v;
    ASSERT_EQ(fx.ProcessBlock({l.data(), r.data()}, &frames), 0);
    for (size_t i = 0; i < l0.size(); ++i) {
      const float side = (l0[i] - (-l0[i])) * 0.55f;
      ASSERT_EQ(l[i], side) << i;
      ASSERT_EQ(r[i], swap ? side : -side) << i;
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
