// The sampler: a looped file added to each stereo pair, gain, scrambled files.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/resource_effect_util.h"
#include "effects/sampler/sampler.h"

using namespace ONDREL2;
using namespace ondrel_test;

namespace {

AEffect* NewSampler(const std::string& name, float gainDb = 0.0f) {
  AEffect* fx = NewEffect(EFFECT_SAMPLER, {{"Gain", gainDb}});
  if (fx != nullptr) SetText(fx, 0, name);
  return fx;
}

// A two-frame file repeats across every block and host call size, on top
// of the input, scaled by the gain, in the front and back pairs of 5.1 but
// not the lone centre and low-frequency speakers; a scrambled copy plays
// the same and leaves no clear copy behind.
TEST_F(EffectTest, SamplerLoopsTheFileForEverOverThePairs) {
  ResourceRoot root;
  const std::vector<float> loop = {0.25f, -0.5f, 0.125f, 0.75f};  // two frames
  root.WriteWave("beat.wav", 48000, 2, loop);
  const int frames = 5000;
  const std::vector<float> x = TestSignal(frames, 6, 44100.0f);
  for (float gainDb : {0.0f, -6.0f}) {
    StreamResult r =
        RunStream(NewSampler("beat.wav", gainDb), 44100.0f, 6, x, OddChunks(), nullptr, true, 0x3F);
    ASSERT_EQ(r.status, 0);
    ASSERT_GE(r.output.size(), x.size());
    const double g = std::pow(10.0, gainDb / 20.0);
    for (int n = 0; n < frames; ++n)
      for (int c = 0; c < 6; ++c)
        ASSERT_NEAR(r.output[6 * n + c],
                    x[6 * n + c] + (c == 2 || c == 3 ? 0.0 : g * loop[2 * (n % 2) + (c & 1)]), 1e-6)
            << n << " " << c << " " << gainDb;
  }

  root.Scramble("beat.wav");
  const std::vector<float> silence(2 * 1200, 0.0f);
  StreamResult r = RunStream(NewSampler("beat.wav"), 44100.0f, 2, silence);
  ASSERT_GE(r.output.size(), silence.size());
  for (int n = 0; n < 1200; ++n) ASSERT_EQ(r.output[2 * n + 1], loop[2 * (n % 2) + 1]) << n;
  EXPECT_TRUE(root.ClearCopies().empty());
}

}  // namespace
