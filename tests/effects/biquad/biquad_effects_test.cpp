// Biquad filter effects: the magnitude response against the cookbook closed
// form evaluated in double, and the ordering of reversed edges.
#include "effects/biquad/biquad_effects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <map>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using ONDREL2::AEffect;
using ONDREL2::ONDREL_EFFECT_TYPE;
using ondrel_test::FirstDifference;
using Settings = std::map<std::string, float>;

// The effect with those of `s` it has, streamed over `channels` channels.
std::vector<float> RunEffect(ONDREL_EFFECT_TYPE type, const Settings& s, float rate,
                             const std::vector<float>& x, int channels = 2) {
  AEffect* fx = ondrel_test::NewEffect(type);
  for (const ONDREL2::ParamDesc& p : fx->object->params)
    if (s.count(p.name) != 0) ondrel_test::SetParam(fx, p.name, s.at(p.name));
  const auto r = ondrel_test::RunStream(fx, rate, channels, x);
  EXPECT_EQ(r.status, 0);
  return r.output;
}

// |H| of a cookbook low pass, high pass or all pass at `hz`, in double.
double CookbookMagnitude(ONDREL_EFFECT_TYPE type, double f0, double q, double rate, double hz) {
  const double w0 = 2.0 * M_PI * f0 / rate, alpha = std::sin(w0) / (2.0 * q), c = std::cos(w0);
  double b[3], a[3] = {1.0 + alpha, -2.0 * c, 1.0 - alpha};
  if (type == ONDREL2::EFFECT_LP_FILTER) {
    b[0] = b[2] = (1.0 - c) / 2.0;
    b[1] = 1.0 - c;
  } else if (type == ONDREL2::EFFECT_HP_FILTER) {
    b[0] = b[2] = (1.0 + c) / 2.0;
    b[1] = -(1.0 + c);
  } else {
    b[0] = 1.0 - alpha;
    b[1] = -2.0 * c;
    b[2] = 1.0 + alpha;
  }
  const std::complex<double> z = std::polar(1.0, -2.0 * M_PI * hz / rate);
  return std::abs((b[0] + b[1] * z + b[2] * z * z) / (a[0] + a[1] * z + a[2] * z * z));
}

TEST(BiquadEffectResponse, LowHighAndAllPassMatchTheCookbookMagnitude) {
  const float rate = 48000.0f;
  const int n = 8192;
  std::vector<float> impulse(static_cast<size_t>(n), 0.0f);
  impulse[0] = 1.0f;
  for (ONDREL_EFFECT_TYPE type :
       {ONDREL2::EFFECT_LP_FILTER, ONDREL2::EFFECT_HP_FILTER, ONDREL2::EFFECT_AP_FILTER}) {
    for (const auto& fq : {std::make_pair(1000.0f, 0.707f), std::make_pair(5000.0f, 3.0f)}) {
      const std::vector<float> h =
          RunEffect(type, {{"Frequency", fq.first}, {"Q", fq.second}}, rate, impulse, 1);
      ASSERT_EQ(h.size(), impulse.size());
      for (double hz : {100.0, 900.0, 1000.0, 4000.0, 5000.0, 12000.0}) {
        std::complex<double> sum = 0.0;  // naive DFT of the impulse response
        for (int k = 0; k < n; ++k)
          sum += static_cast<double>(h[static_cast<size_t>(k)]) *
                 std::polar(1.0, -2.0 * M_PI * hz * k / rate);
        const double want = CookbookMagnitude(type, fq.first, fq.second, rate, hz);
        EXPECT_NEAR(std::abs(sum), want, 1e-4 + 1e-4 * want)
            << "type " << type << " f0 " << fq.first << " at " << hz << " Hz";
      }
    }
  }
}

TEST(BiquadEffectStream, ReversedEdgesAreOrdered) {
  const float rate = 48000.0f;
  const std::vector<float> x = ondrel_test::TestSignal(3000, 2, rate);
  for (ONDREL_EFFECT_TYPE type :
       {ONDREL2::EFFECT_BP_FILTER, ONDREL2::EFFECT_NT_FILTER, ONDREL2::EFFECT_PK_FILTER}) {
    const Settings reversed = {{"LowEdge", 5000.0f}, {"HighEdge", 1000.0f}, {"Gain", 4.0f}};
    const Settings ordered = {{"LowEdge", 1000.0f}, {"HighEdge", 5000.0f}, {"Gain", 4.0f}};
    EXPECT_EQ(
        FirstDifference(RunEffect(type, reversed, rate, x), RunEffect(type, ordered, rate, x)),
        x.size())
        << "type " << type;
  }
}

}  // namespace
