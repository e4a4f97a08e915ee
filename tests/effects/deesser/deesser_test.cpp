// De-esser: pass-through setting and the reduction of sibilant highs.
#include "effects/deesser/deesser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using DeEsserTest = ondrel_test::EffectTest;

ondrel_test::StreamResult RunDeEsser(float thresh, float freq, float drive,
                                     const std::vector<float>& in) {
  return ondrel_test::RunStream(
      ondrel_test::NewEffect(EFFECT_DEESSER,
                             {{"Thresh", thresh}, {"Frequency", freq}, {"Drive", drive}}),
      44100.0f, 2, in);
}

TEST_F(DeEsserTest, PassThroughSetting) {
  // Drive 0.5 is unity gain on the high band and a threshold of 60 is never
  // reached: the bands add back up to the input (to float rounding).
  const std::vector<float> in = ondrel_test::TestSignal(512 * 6, 2, 44100.0f, 2.0f);
  auto r = RunDeEsser(60.0f, 7060.0f, 0.5f, in);
  ASSERT_EQ(r.status, 0);
  EXPECT_LT(ondrel_test::MaxError(r.output, in), 1e-5);
}

TEST_F(DeEsserTest, LowThresholdTakesHighsDownMoreThanLows) {
  auto tone = [](double hz, int frames) {
    std::vector<float> x(static_cast<size_t>(2 * frames));
    for (int n = 0; n < frames; ++n)
      x[2 * n] = x[2 * n + 1] = static_cast<float>(0.5 * std::sin(2 * M_PI * hz * n / 44100.0));
    return x;
  };
  auto rms = [](const std::vector<float>& x) {
    double sum = 0.0;
    for (size_t i = x.size() / 2; i < x.size(); ++i) sum += static_cast<double>(x[i]) * x[i];
    return std::sqrt(sum / static_cast<double>(x.size() / 2));
  };
  const auto low = tone(200.0, 8192), high = tone(9000.0, 8192);
  const double lowGain = rms(RunDeEsser(0.3f, 5000.0f, 0.5f, low).output) / rms(low);
  const double highGain = rms(RunDeEsser(0.3f, 5000.0f, 0.5f, high).output) / rms(high);
  EXPECT_NEAR(lowGain, 1.0, 0.05);
  EXPECT_LT(highGain, 0.8 * lowGain);
}

}  // namespace
}  // namespace ONDREL2
