// The wrapper runner with test wrappers: which process form the probe picks,
// which groups get wrappers when, the speaker bits a group's wrapper is made
// with, and frame counts handed from group to group.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "dsp/dsp_wrapper.h"

namespace ONDREL2 {
namespace ON_DSP_WRAPPERS {
namespace {

struct Log {
  int probes = 0;               // process calls with 0 frames
  std::vector<uint64_t> bits;   // channelBits of every Create
  std::vector<int32_t> frames;  // frames of every real process call
};

// Implements the interleaved form only: channel c of each frame is scaled by
// (c + 2), so the test sees that interleaving kept the channel order.
// Returns `shrink` frames fewer than it got.
class InterleavedOnly : public IDspWrapper {
 public:
  InterleavedOnly(Log* log, int32_t shrink = 0, int32_t failWith = ONDREL_OK, int32_t channels = 1)
      : log_(log), channels_(channels), shrink_(shrink), failWith_(failWith) {}
  IDspWrapper* Create(float, int32_t channels, uint64_t bits) override {
    log_->bits.push_back(bits);
    return new InterleavedOnly(log_, shrink_, failWith_, channels);
  }
  int32_t UpdateParams(AudioEffect*) override { return failWith_; }
  int32_t GetLatency() override { return 7; }
  int32_t ProcessVector(const std::vector<float*>& b, int32_t n, const int32_t* i) override {
    log_->probes += n == 0;
    return IDspWrapper::ProcessVector(b, n, i);
  }
  int32_t ProcessPointers(float** p, int32_t n, const int32_t* i) override {
    log_->probes += n == 0;
    return IDspWrapper::ProcessPointers(p, n, i);
  }
  int32_t ProcessInterleaved(float* s, int32_t n, const int32_t*) override {
    if (s == nullptr) return n;
    log_->frames.push_back(n);
    for (int32_t f = 0; f < n; ++f)
      for (int32_t c = 0; c < channels_; ++c) s[f * channels_ + c] *= static_cast<float>(c + 2);
    return n - shrink_;
  }

 private:
  Log* log_;
  int32_t channels_, shrink_, failWith_;
};

class TestRunner : public DspWrapperRunner {
 public:
  TestRunner(IDspWrapper* proto, int channels, uint64_t mask) : DspWrapperRunner(proto) {
    SetChannels(channels, mask);
  }
  AudioEffect* CreateInstance() override { return nullptr; }
};

// A block of `channels` x 512 frames, channel c holding c + 1 everywhere,
// run through `runner`.
struct Block {
  Block(TestRunner& runner, int channels, int32_t* frames)
      : data(channels, std::vector<float>(512)) {
    std::vector<float*> ptrs;
    for (int c = 0; c < channels; ++c) {
      std::fill(data[c].begin(), data[c].end(), static_cast<float>(c + 1));
      ptrs.push_back(data[c].data());
    }
    *frames = 512;
    EXPECT_EQ(runner.ProcessBlock(ptrs, frames), ONDREL_OK);
  }
  float At(int c, int f) const { return data[c][f]; }
  std::vector<std::vector<float>> data;
};

TEST(DspWrapperRunner, InterleavedOnlyWrapperIsProbedGroupByGroupAndRun) {
  Log log;
  TestRunner runner(new InterleavedOnly(&log), 6, 0x3F);  // FL FR, FC, LFE, BL BR
  ASSERT_EQ(runner.UpdateParams(), ONDREL_OK);
  EXPECT_EQ(runner.mode, DspWrapperRunner::kInterleaved);
  EXPECT_EQ(log.probes, 2);  // two "not implemented" answers before the interleaved form
  ASSERT_EQ(log.bits, (std::vector<uint64_t>{0x3}));
  EXPECT_EQ(runner.GetLatency(), 7);

  // Only the first group has a wrapper so far; the rest stays dry.
  int32_t frames = 0;
  const Block first(runner, 6, &frames);
  EXPECT_EQ(frames, 512);
  EXPECT_EQ(first.At(0, 100), 1.0f * 2);
  EXPECT_EQ(first.At(1, 100), 2.0f * 3);
  for (int c = 2; c < 6; ++c) EXPECT_EQ(first.At(c, 511), static_cast<float>(c + 1)) << c;

  // The next update gives every group its wrapper, with the group's speakers.
  ASSERT_EQ(runner.UpdateParams(), ONDREL_OK);
  EXPECT_EQ(log.probes, 2);
  EXPECT_EQ(log.bits, (std::vector<uint64_t>{0x3, 0x4, 0x8, 0x30}));
  const Block all(runner, 6, &frames);
  const float want[6] = {1 * 2, 2 * 3, 3 * 2, 4 * 2, 5 * 2, 6 * 3};
  for (int c = 0; c < 6; ++c) EXPECT_EQ(all.At(c, 0), want[c]) << c;

  // Speaker bits above 15 fall out of a group's bits.
  Log wideLog;
  TestRunner wide(new InterleavedOnly(&wideLog), 4, 0x180000003ull);  // FL FR WL WR
  wide.UpdateParams();
  wide.UpdateParams();
  EXPECT_EQ(wideLog.bits, (std::vector<uint64_t>{0x3, 0x0}));
}

// Each group is handed what the one before reported; a wrapper whose update
// fails leaves the audio dry.
TEST(DspWrapperRunner, FrameCountsTravelFromGroupToGroupAndFailuresStayDry) {
  Log log;
  TestRunner runner(new InterleavedOnly(&log, 100), 4, 0x33);  // quad: two pairs
  runner.UpdateParams();
  runner.UpdateParams();
  int32_t frames = 0;
  const Block b(runner, 4, &frames);
  EXPECT_EQ(log.frames, (std::vector<int32_t>{512, 412}));
  EXPECT_EQ(frames, 312);
  EXPECT_EQ(b.At(2, 311), 3.0f * 2);
  EXPECT_EQ(b.At(2, 312), 3.0f);

  TestRunner failing(new InterleavedOnly(&log, 0, ONDREL_E_INVALID), 2, 0);
  EXPECT_EQ(failing.UpdateParams(), ONDREL_E_INVALID);
  EXPECT_EQ(failing.units.UnitAt(0), nullptr);
  EXPECT_EQ(failing.GetLatency(), 0);
  const Block dry(failing, 2, &frames);
  EXPECT_EQ(frames, 512);
  for (int c = 0; c < 2; ++c)
    for (int f = 0; f < 512; ++f) ASSERT_EQ(dry.At(c, f), static_cast<float>(c + 1));
}

}  // namespace
}  // namespace ON_DSP_WRAPPERS
}  // namespace ONDREL2
