// HyperBass against its transfer function on the unit circle: the one-pole
// low band mixed onto the signal, times the tilt bands.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ondrel_test;
using Complex = std::complex<double>;

// |H| at `hz` for an effect running at `rate`; its tilt is laid out for at
// least 44.1 kHz.
double ModelMagnitude(double hz, double rate, double selectivity, double gain, double ratio) {
  const double designRate = std::max(44100.0, rate);
  const double bandHz[10] = {31.25, 62.5, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
  const double bandDb[10] = {0, 0, -1, -2, -2, -3, -3, -3, -3, -3};
  const Complex z1 = std::polar(1.0, -2.0 * kTestPi * hz / rate);  // z^-1
  const Complex low = (1.0 / (selectivity + 1.0)) / (1.0 - selectivity / (selectivity + 1.0) * z1);
  Complex h = gain * (1.0 + ratio * low);
  for (int b = 0; b < 10; ++b)
    if (bandDb[b] != 0.0) h *= PeakBand(bandHz[b], 1.22474492, bandDb[b], designRate, hz, rate);
  return std::abs(h);
}

TEST(HyperBass, MagnitudeFollowsTheModel) {
  const struct {
    float rate, selectivity, gain, ratio;
  } cases[] = {
      {44100.0f, 120.0f, 1.20000005f, 1.5f},  // defaults
      {48000.0f, 30.0f, 0.8f, 2.0f},
      {22050.0f, 120.0f, 1.0f, 0.0f},  // tilt alone, laid out for 44.1 kHz
  };
  for (const auto& c : cases) {
    for (double hz : {40.0, 150.0, 700.0, 3000.0, 9000.0}) {
      ONDREL2::AEffect* fx =
          NewEffect(ONDREL2::EFFECT_HYPERBASS,
                    {{"Selectivity", c.selectivity}, {"Gain", c.gain}, {"Ratio", c.ratio}});
      const std::vector<float> in = Tone(24000, 2, 1.0, hz / c.rate, 0.1);
      const StreamResult r = RunStream(fx, c.rate, 2, in);
      ASSERT_EQ(r.status, 0);
      ASSERT_EQ(r.output.size(), in.size());
      const double want = ModelMagnitude(hz, c.rate, c.selectivity, c.gain, c.ratio);
      for (int ch = 0; ch < 2; ++ch) {
        const double got = ToneAmplitude(r.output, 2, ch, 12000, 12000, 1.0, hz / c.rate) / 0.1;
        EXPECT_NEAR(20.0 * std::log10(got), 20.0 * std::log10(want), 0.02)
            << "rate " << c.rate << " hz " << hz << " channel " << ch;
      }
    }
  }
}

}  // namespace
