// Virtual bass: the crossover in whole Hz, and the low band replaced by its
// harmonics while the top passes.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ondrel_test;
using ONDREL2::EFFECT_VBASS;

constexpr float kRate = 44100.0f;

TEST(VirtualBass, CrossoverActsInWholeHertz) {
  const std::vector<float> in = TestSignal(9000, 2, kRate);
  std::vector<float> out[3];
  const float cutoffs[3] = {250.0f, 250.9f, 251.0f};
  for (int i = 0; i < 3; ++i)
    out[i] =
        RunStream(NewEffect(EFFECT_VBASS, {{"Crossover cutoff", cutoffs[i]}}), kRate, 2, in).output;
  EXPECT_EQ(FirstDifference(out[0], out[1]), out[0].size());
  EXPECT_LT(FirstDifference(out[0], out[2]), out[0].size());
}

TEST(VirtualBass, LowBandBecomesHarmonicsAboveTheCrossoverAndTopPasses) {
  const int frames = 32768;
  const size_t from = 16384, count = 16384;
  // 100 Hz under a 250 Hz crossover: the high band drops it (level 0 leaves
  // the high band alone), and the harmonics bring its third harmonic inside
  // the 250 to 1000 Hz band.
  const std::vector<float> bass = Tone(frames, 2, 1.0, 100.0 / kRate, 0.5);
  const StreamResult highOnly =
      RunStream(NewEffect(EFFECT_VBASS, {{"Effect level", 0.0f}}), kRate, 2, bass);
  const StreamResult b = RunStream(NewEffect(EFFECT_VBASS), kRate, 2, bass);
  ASSERT_EQ(b.status, 0);
  EXPECT_LT(ToneAmplitude(highOnly.output, 2, 0, from, count, 1.0, 100.0 / kRate), 0.5 * 0.05);
  EXPECT_LT(ToneAmplitude(highOnly.output, 2, 0, from, count, 1.0, 300.0 / kRate), 1e-4);
  EXPECT_GT(ToneAmplitude(b.output, 2, 0, from, count, 1.0, 300.0 / kRate), 0.005);

  // 5 kHz passes the high-pass sections at about unity and makes no low band.
  const std::vector<float> top = Tone(frames, 2, 1.0, 5000.0 / kRate, 0.5);
  const StreamResult t = RunStream(NewEffect(EFFECT_VBASS), kRate, 2, top);
  EXPECT_NEAR(ToneAmplitude(t.output, 2, 1, from, count, 1.0, 5000.0 / kRate), 0.5, 0.5 * 0.01);
}

}  // namespace
