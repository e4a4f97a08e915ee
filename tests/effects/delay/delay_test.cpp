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

// 100% feedback repeats for ever at constant level; 0 ms is one sample of
// delay; a lone channel takes the left settings.
TEST(Delay, DelaysWithoutDryPath) {
  std::vector<int> every441;
  for (int k = 1; k < 40; ++k) every441.push_back(441 * k);
  const struct {
    float time, feedback;
    int channels, frames;
    std::vector<int> hits;
  } cases[] = {{10, 100, 2, 4410 * 4, every441}, {0, 0, 2, 600, {1}}, {5, 0, 1, 600, {220}}};
  for (const auto& c : cases) {
    const StreamResult r =
        RunStream(NewEffect(EFFECT_DELAY, {{"Left Time", c.time}, {"Left Feedback", c.feedback}}),
                  44100.0f, c.channels, Impulse(c.frames, c.channels));
    EXPECT_EQ(Hits(r.output, c.channels, 0), c.hits) << c.time << " ms";
    for (int k : c.hits) EXPECT_EQ(r.output[static_cast<size_t>(c.channels * k)], 1.0f) << k;
  }
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
