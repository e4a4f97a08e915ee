// DfxHyperbass: the bell design at worked settings and its shape as a
// bell, and a parameter move that keeps the state (no click).
#include "effects/dfx_hyperbass/dfx_hyperbass.h"

#include <gtest/gtest.h>

#include <cmath>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_test;

TEST(DfxHyperbassDesign, WorkedSettingsAndBellShape) {
  using DFXHYPERBASS::DesignBell;
  const DFXHYPERBASS::BellDesign at3 = DesignBell(3, 90.0, 44100, 2.5f, 0.0f, 15.0f);
  EXPECT_NEAR(at3.gainDb, 0.354, 5e-4);
  EXPECT_NEAR(at3.width, 1.37, 2e-3);
  const DFXHYPERBASS::BellDesign at10 = DesignBell(10, 90.0, 44100, 2.5f, 0.0f, 15.0f);
  EXPECT_NEAR(at10.gainDb, 1.18, 2e-3);
  EXPECT_EQ(at10.width, 2.5f);

  for (int amount : {3, 10, 60, 127}) {
    for (int rate : {44100, 48000}) {
      const DFXHYPERBASS::BellDesign d = DesignBell(amount, 90.0, rate, 2.5f, 0.0f, 15.0f);
      auto mag = [&](double hz) {
        return std::abs(SectionResponse(d.b0, d.b1, d.b2, d.a1, d.a2, hz, rate));
      };
      const double G = std::pow(10.0, d.gainDb / 20.0);
      const double B = d.gainDb >= 6.0f ? G / std::sqrt(2.0) : std::sqrt(G);
      EXPECT_NEAR(mag(0.0), 1.0, 1e-3) << amount;  // float coefficients, poles near DC
      EXPECT_NEAR(mag(rate / 2.0), 1.0, 1e-4) << amount;
      EXPECT_NEAR(mag(90.0), G, G * 1e-3) << amount;
      // Band edges at level B, found by bisection on each side of 90 Hz.
      auto edge = [&](double lo, double hi) {
        const bool rising = mag(lo) < mag(hi);
        for (int i = 0; i < 60; ++i) {
          const double m = 0.5 * (lo + hi);
          ((mag(m) < B) == rising ? lo : hi) = m;
        }
        return lo;
      };
      EXPECT_NEAR(edge(90.0, 1000.0) - edge(1.0, 90.0), 90.0 / d.width, 0.01 * 90.0 / d.width)
          << "amount " << amount << " rate " << rate;
    }
  }
}

TEST_F(EffectTest, DfxHyperbassKeepsStateOnMove) {
  const double rate = 44100.0;
  // A move from 127 to 126 while a 90 Hz tone plays: no step in the output
  // larger than the tone's own (a reset would start the section from zero).
  const std::vector<float> in = Tone(8192, 1, rate, 90.0, 0.1);
  const StreamResult r = RunStream(NewEffect(EFFECT_DFX_HYPERBASS, {{"Hyperbass", 127.0f}}),
                                   44100.0f, 1, in, {512}, [](int chunk, AEffect* h) {
                                     if (chunk == 10) SetParam(h, "Hyperbass", 126.0f);
                                   });
  const double maxStep = 0.1 * 5.7 * 2.0 * kTestPi * 90.0 / rate;
  for (size_t n = 4096; n < r.output.size(); ++n)
    ASSERT_LT(std::fabs(r.output[n] - r.output[n - 1]), maxStep * 1.05) << "frame " << n;
}

}  // namespace
