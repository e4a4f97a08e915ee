// Resampler effect: the target rate rules, the converter it holds, and the
// rate a chain reports.
#include "effects/resampler/resampler_effect.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace RESAMPLER {
namespace {

using ResamplerEffectTest = ondrel_test::EffectTest;

void SetAlgorithm(ResamplerEffect& fx, int32_t value) { fx.SetParamData(4, &value, sizeof(value)); }

// A parameter pass, then the empty block that makes the converter take its
// rates; blocks with frames come back with their count as the status.
void UpdateAndRunEmpty(ResamplerEffect& fx) {
  fx.UpdateParams();
  std::vector<float> left(64), right(64);
  int32_t frames = 64;
  EXPECT_EQ(fx.ProcessBlock({left.data(), right.data()}, &frames), 64);
  frames = 0;
  EXPECT_EQ(fx.ProcessBlock({left.data(), right.data()}, &frames), 0);
}

TEST_F(ResamplerEffectTest, TargetRateAndConverter) {
  ResamplerEffect fx;
  fx.SetSampleRate(44100.0f);
  EXPECT_EQ(fx.GetSampleRate(), 44100.0f);  // reported rate moves only at the update
  fx.UpdateParams();
  EXPECT_EQ(fx.GetSampleRate(), 96000.0f);

  // Parameters 0 Method (1: by multiplier), 1 Multiplier (a power of two),
  // 2 SampleRate, 3 Max, changed in turn, and the rate each update gives.
  const struct {
    int param;
    float value, rate;
  } steps[] = {{1, -1, 96000},    {0, 1, 22050}, {1, 3, 176400},
               {3, 96000, 96000}, {0, 0, 96000}, {2, 192000, 96000}};
  for (const auto& s : steps) {
    fx.SetParam(s.param, s.value);
    fx.UpdateParams();
    EXPECT_EQ(fx.GetSampleRate(), s.rate) << s.param << " at " << s.value;
  }

  // "Linear": the polyphase converter for the pair.
  fx.SetParam(3, 192000.0f);
  fx.SetParam(2, 48000.0f);
  UpdateAndRunEmpty(fx);
  auto* src = dynamic_cast<CResampler_SRC*>(fx.resampler.get());
  ASSERT_NE(src, nullptr);
  EXPECT_EQ(src->Filter().Up(), 160);
  EXPECT_EQ(src->Filter().Down(), 147);
  // A pass that leaves the pair as it was keeps that converter; a new
  // input rate builds one for the new pair.
  fx.SetParam(3, 100000.0f);
  fx.UpdateParams();
  EXPECT_EQ(fx.resampler.get(), src);
  fx.SetSampleRate(32000.0f);
  fx.UpdateParams();
  src = dynamic_cast<CResampler_SRC*>(fx.resampler.get());
  ASSERT_NE(src, nullptr);
  EXPECT_FALSE(src->Filter().Ready());  // nothing built before a block needs it
  UpdateAndRunEmpty(fx);
  EXPECT_EQ(fx.resampler.get(), src);
  EXPECT_EQ(src->Filter().Up(), 3);
  EXPECT_EQ(src->Filter().Down(), 2);

  // "Sinc": the two-stage converter, ready for a pair it serves.
  SetAlgorithm(fx, 1);
  UpdateAndRunEmpty(fx);
  auto* ssrc = dynamic_cast<CResampler_SSRC*>(fx.resampler.get());
  ASSERT_NE(ssrc, nullptr);
  EXPECT_NE(ssrc->Converter(), nullptr);
  SetAlgorithm(fx, 5);
  fx.UpdateParams();
  EXPECT_NE(dynamic_cast<CResampler_SRC*>(fx.resampler.get()), nullptr);
}

// A chain reports the rate its resampler leaves.
TEST_F(ResamplerEffectTest, ChainReportsTheTarget) {
  AEffect* fx = ondrel_test::NewEffect(EFFECT_RESAMPLER);
  void* inst = ondrel_create_inst();
  ASSERT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  float rate = 0.0f;
  ASSERT_EQ(ondrel_get_samplerate(inst, &rate), 0);
  EXPECT_EQ(rate, 96000.0f);
  ondrel_destroy_inst(inst);
}

}  // namespace
}  // namespace RESAMPLER
}  // namespace ONDREL2
