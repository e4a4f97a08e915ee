// Exciter: the small-signal response without harmonics against its linear
// model on the unit circle, and the saturator's bounded excess.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ondrel_test;
using ONDREL2::EFFECT_EXCITER;

TEST(Exciter, SmallSignalWithoutHarmonicsMatchesTheLinearModel) {
  const double rate = 44100.0, corner = 2000.0, mixDb = -3.0, boostDb = 6.0;
  for (double hz : {300.0, 2500.0, 9000.0}) {
    ONDREL2::AEffect* fx = NewEffect(EFFECT_EXCITER, {{"Harmonics", 0.0f},
                                                      {"Frequency", static_cast<float>(corner)},
                                                      {"MixBack", static_cast<float>(mixDb)},
                                                      {"ClipBoost", static_cast<float>(boostDb)}});
    const std::vector<float> in = Tone(16384, 2, 1.0, hz / rate, 0.01);
    const StreamResult r = RunStream(fx, static_cast<float>(rate), 2, in);
    ASSERT_EQ(r.status, 0);
    const double c = std::exp(-6.28318530718 * corner / rate);
    const std::complex<double> z1 = std::polar(1.0, -6.283185307179586 * hz / rate);
    const std::complex<double> lp = (1.0 - c) / (1.0 - c * z1);
    const double mix = std::exp(mixDb / 8.65617), drive = std::exp(boostDb / 8.65617);
    const double want = std::abs(1.0 + mix * drive * (1.0 - lp) * (1.0 - lp));
    const double got = ToneAmplitude(r.output, 2, 1, 8192, 8192, 1.0, hz / rate) / 0.01;
    EXPECT_NEAR(got, want, 2e-4) << hz << " Hz";
  }
}

TEST(Exciter, SaturatedOutputStaysBounded) {
  const float rate = 44100.0f;
  // At the top of every range the excess over the dry signal is at most
  // mix * 2 * (shape + 1): |w| <= shape + 1 and the low pass of w no more.
  ONDREL2::AEffect* fx =
      NewEffect(EFFECT_EXCITER, {{"Harmonics", 90.0f}, {"ClipBoost", 6.0f}, {"MixBack", -3.0f}});
  const std::vector<float> in = TestSignal(20000, 2, rate, 3.0f);
  const StreamResult r = RunStream(fx, rate, 2, in);
  ASSERT_EQ(r.status, 0);
  ASSERT_EQ(r.output.size(), in.size());
  const double bound = std::exp(-3.0 / 8.65617) * 2.0 * (18.0 + 1.0) * 1.0001;
  for (size_t i = 0; i < in.size(); ++i) ASSERT_LE(std::fabs(r.output[i] - in[i]), bound) << i;
}

}  // namespace
