// Vocal effect: steady-state magnitude against the closed form, bands at or
// above half the rate left out.
#include "effects/vocal/vocal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_test;
using Complex = std::complex<double>;

// |H(e^jw)| of the effect: the emphasis (1 + a - a z^-1), then the three
// equaliser bands.
double Closed(double f, double rate, double vocal) {
  const double freqs[] = {2000.0, 4000.0, 8000.0};
  const double gains[] = {2.0, 3.0, 2.0};
  const double a = vocal / 127.0;
  Complex h = (1.0 + a) - a * std::polar(1.0, -2 * M_PI * f / rate);
  for (int b = 0; b < 3; ++b) h *= PeakBand(freqs[b], 1.22474492, gains[b], rate, f, rate);
  return std::abs(h);
}

TEST_F(EffectTest, VocalMagnitudeMatchesClosedFormWithBandsAboveNyquistBypassed) {
  struct Case {
    float rate, vocal;
    double f;
  } cases[] = {{16000, 0, 500},   {16000, 0, 2000},    {16000, 0, 4000}, {16000, 0, 6500},
               {16000, 0, 7400},  {16000, 64, 3000},   {44100, 0, 8000}, {44100, 0, 11000},
               {44100, 127, 200}, {44100, 12.7f, 5000}};
  for (const Case& c : cases) {
    const int frames = static_cast<int>(c.rate);
    const std::vector<float> x = Tone(frames, 1, c.rate, c.f, 0.25);
    const auto r = RunStream(NewEffect(EFFECT_VOCAL, {{"Vocal", c.vocal}}), c.rate, 1, x);
    ASSERT_EQ(r.status, 0);
    EXPECT_NEAR(ToneAmplitude(r.output, 1, 0, frames / 2, frames / 2, c.rate, c.f) / 0.25,
                Closed(c.f, c.rate, c.vocal), 1e-3)
        << c.f << " Hz at " << c.rate << " Hz, vocal " << c.vocal;
  }
}

}  // namespace
