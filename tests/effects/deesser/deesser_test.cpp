// De-esser: pass-through setting and the reduction of sibilant highs.
#include "effects/deesser/deesser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace ONDREL2 {
namespace {

using namespace ondrel_test;

std::vector<float> RunDeEsser(float thresh, float freq, float drive, const std::vector<float>& in) {
  const StreamResult r = RunStream(
      NewEffect(EFFECT_DEESSER, {{"Thresh", thresh}, {"Frequency", freq}, {"Drive", drive}}),
      44100.0f, 2, in);
  EXPECT_EQ(r.status, 0);
  return r.output;
}

// RMS gain over the second half of the stream; -1 for a short output.
double Gain(const std::vector<float>& out, const std::vector<float>& in) {
  if (out.size() < in.size()) return -1.0;
  double o = 0.0, i = 0.0;
  for (size_t n = in.size() / 2; n < in.size(); ++n) o += out[n] * out[n], i += in[n] * in[n];
  return std::sqrt(o / i);
}

TEST_F(EffectTest, DeEsserPassesAtUnityAndTakesHighsDownMoreThanLows) {
  // Drive 0.5 is unity gain on the high band and a threshold of 60 is never
  // reached: the bands add back up to the input (to float rounding).
  const std::vector<float> in = TestSignal(512 * 6, 2, 44100.0f, 2.0f);
  EXPECT_LT(MaxError(RunDeEsser(60.0f, 7060.0f, 0.5f, in), in), 1e-5);

  const std::vector<float> low = Tone(8192, 2, 44100.0, 200.0, 0.5);
  const std::vector<float> high = Tone(8192, 2, 44100.0, 9000.0, 0.5);
  const double lowGain = Gain(RunDeEsser(0.3f, 5000.0f, 0.5f, low), low);
  EXPECT_NEAR(lowGain, 1.0, 0.05);
  EXPECT_LT(Gain(RunDeEsser(0.3f, 5000.0f, 0.5f, high), high), 0.8 * lowGain);
}

}  // namespace
}  // namespace ONDREL2
