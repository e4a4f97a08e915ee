// Pitch shifter against a SoundTouch engine driven directly, including its
// restart at a parameter change.
#include "effects/pitch/pitch_shifter.h"

#include <gtest/gtest.h>
#include <soundtouch/SoundTouch.h>

#include <memory>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using PitchShifterTest = ondrel_test::EffectTest;
constexpr int kBlock = 512;

std::unique_ptr<soundtouch::SoundTouch> Engine(int channels, unsigned rate, double key) {
  auto st = std::make_unique<soundtouch::SoundTouch>();
  st->setChannels(static_cast<unsigned>(channels));
  st->setSampleRate(rate);
  st->setPitchSemiTones(key);
  st->setSetting(SETTING_USE_QUICKSEEK, 0);
  st->setSetting(SETTING_USE_AA_FILTER, 0);
  return st;
}

TEST_F(PitchShifterTest, MatchesSoundTouchBlockByBlockAndRestartsOnChange) {
  const int channels = 2, blocks = 40, changeAt = 17;
  const std::vector<float> in = ondrel_test::TestSignal(blocks * kBlock, channels, 44100.0f);
  AEffect* fx = ondrel_test::NewEffect(EFFECT_PITCH_SHIFTER, {{"Key", 3.0f}});
  // Host calls of one block each, so that call i carries block i.
  auto result = ondrel_test::RunStream(
      fx, 44100.0f, channels, in, {kBlock},
      [](int chunk, AEffect* h) {
        if (chunk == changeAt) ondrel_test::SetParam(h, "Key", -4.5f);
        if (chunk == changeAt + 5) ondrel_test::SetParam(h, "Key", -4.5f);  // same: no restart
      },
      false);
  ASSERT_EQ(result.status, 0);

  std::vector<float> want, buf(static_cast<size_t>(kBlock) * channels);
  auto st = Engine(channels, 44100, 3.0);
  for (int b = 0; b < blocks; ++b) {
    if (b == changeAt) st = Engine(channels, 44100, -4.5);
    st->putSamples(in.data() + static_cast<size_t>(b) * kBlock * channels, kBlock);
    const unsigned got = st->receiveSamples(buf.data(), kBlock);
    want.insert(want.end(), buf.begin(), buf.begin() + got * channels);
  }
  ASSERT_EQ(result.output.size(), want.size());
  EXPECT_EQ(ondrel_test::FirstDifference(result.output, want), want.size());
}

}  // namespace
}  // namespace ONDREL2
