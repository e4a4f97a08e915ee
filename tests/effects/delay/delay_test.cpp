// The delay's repeats, timing and ring reset through the public interface.
#include <gtest/gtest.h>

#include <vector>

#include "effects/effect_test_util.h"

namespace {

using namespace ondrel_test;
using ONDREL2::EFFECT_DELAY;

// Interleaved impulse of height 1 on every channel at frame 0.
std::vector<float> Impulse(int frames, int channels) {
  std::vector<float> x(static_cast<size_t>(frames * channels), 0.0f);
  for (int c = 0; c < channels; ++c) x[static_cast<size_t>(c)] = 1.0f;
  return x;
}

// Frames at which channel `c` is non-zero.
std::vector<int> Hits(const std::vector<float>& y, int channels, int c) {
  std::vector<int> at;
  for (size_t n = 0; n < y.size() / channels; ++n)
    if (y[n * channels + c] != 0.0f) at.push_back(static_cast<int>(n));
  return at;
}

TEST(Delay, DelaysWithoutDryPath) {
  // 100% feedback repeats for ever at constant level.
  StreamResult r = RunStream(NewEffect(EFFECT_DELAY, {{"Left Time", 10}, {"Left Feedback", 100}}),
                             44100.0f, 2, Impulse(4410 * 4, 2));
  std::vector<int> want;
  for (int k = 1; k < 40; ++k) want.push_back(441 * k);
  EXPECT_EQ(Hits(r.output, 2, 0), want);
  for (int k : want) EXPECT_EQ(r.output[2 * k], 1.0f);

  // 0 ms: one sample of delay; a lone channel takes the left settings.
  r = RunStream(NewEffect(EFFECT_DELAY, {{"Left Time", 0}, {"Left Feedback", 0}}), 44100.0f, 2,
                Impulse(600, 2));
  EXPECT_EQ(Hits(r.output, 2, 0), std::vector<int>{1});
  r = RunStream(NewEffect(EFFECT_DELAY, {{"Left Time", 5}, {"Left Feedback", 0}}), 44100.0f, 1,
                Impulse(600, 1));
  EXPECT_EQ(Hits(r.output, 1, 0), std::vector<int>{220});
}

TEST(Delay, ChangeEmptiesTheRing) {
  // A steady 1 on the left; a feedback change after the first chunks
  // restarts the ring: L frames of silence come out again.
  std::vector<float> x(2 * 20000, 1.0f);
  const StreamResult r =
      RunStream(NewEffect(EFFECT_DELAY, {{"Left Time", 50}, {"Left Feedback", 0}}), 44100.0f, 2, x,
                {4096}, [](int chunk, ONDREL2::AEffect* fx) {
                  if (chunk == 2) SetParam(fx, "Left Feedback", 1.0f);
                });
  ASSERT_EQ(r.status, 0);
  // The change reaches the block that starts at frame 8192.
  int zeros = 0;
  for (int n = 8192; n < 8192 + 3000; ++n) zeros += r.output[2 * n] == 0.0f;
  EXPECT_EQ(zeros, 2205);
  EXPECT_EQ(r.output[2 * (8192 + 2205)], 1.0f);
}

}  // namespace
