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
  InterleavedOnly(Log* log, int32_t channels, int32_t shrink, int32_t failWith)
      : log_(log), channels_(channels), shrink_(shrink), failWith_(failWith) {}
  IDspWrapper* Create(float, int32_t channels, uint64_t bits) override {
    log_->bits.push_back(bits);
    return new InterleavedOnly(log_, channels, shrink_, failWith_);
  }
  int32_t UpdateParams(AudioEffect*) override { return failWith_; }
  int32_t GetLatency() override { return 7; }
  int32_t ProcessVector(const std::vector<float*>& b, int32_t n, const int32_t* i) override {
    if (n == 0) ++log_->probes;
    return IDspWrapper::ProcessVector(b, n, i);
  }
  int32_t ProcessPointers(float** p, int32_t n, const int32_t* i) override {
    if (n == 0) ++log_->probes;
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

// Implements no form at all.
class Nothing : public IDspWrapper {
 public:
  IDspWrapper* Create(float, int32_t, uint64_t) override { return new Nothing(); }
  int32_t UpdateParams(AudioEffect*) override { return ONDREL_OK; }
};

class TestRunner : public DspWrapperRunner {
 public:
  explicit TestRunner(IDspWrapper* proto) : DspWrapperRunner(proto) {}
  AudioEffect* CreateInstance() override { return nullptr; }
};

// A block of `channels` x 512 frames, channel c holding c + 1 everywhere.
struct Block {
  explicit Block(int channels) : data(static_cast<size_t>(channels), std::vector<float>(512)) {
    for (int c = 0; c < channels; ++c) {
      std::fill(data[static_cast<size_t>(c)].begin(), data[static_cast<size_t>(c)].end(),
                static_cast<float>(c + 1));
      ptrs.push_back(data[static_cast<size_t>(c)].data());
    }
  }
  float At(int c, int f) const { return data[static_cast<size_t>(c)][static_cast<size_t>(f)]; }
  std::vector<std::vector<float>> data;
  std::vector<float*> ptrs;
};

TEST(DspWrapperRunner, InterleavedOnlyWrapperIsProbedGroupByGroupAndRun) {
  Log log;
  TestRunner runner(new InterleavedOnly(&log, 1, 0, ONDREL_OK));
  runner.SetChannels(6, 0x3F);  // 5.1: pair FL FR, FC, LFE, pair BL BR
  runner.SetSampleRate(48000.0f);

  ASSERT_EQ(runner.UpdateParams(), ONDREL_OK);
  EXPECT_EQ(runner.mode, DspWrapperRunner::kInterleaved);
  EXPECT_EQ(log.probes, 2);  // two "not implemented" answers before the interleaved form
  ASSERT_EQ(log.bits, (std::vector<uint64_t>{0x3}));
  EXPECT_EQ(runner.GetLatency(), 7);

  // Only the first group has a wrapper so far; the rest stays dry.
  Block first(6);
  int32_t frames = 512;
  ASSERT_EQ(runner.ProcessBlock(first.ptrs, &frames), ONDREL_OK);
  EXPECT_EQ(frames, 512);
  EXPECT_EQ(first.At(0, 100), 1.0f * 2);
  EXPECT_EQ(first.At(1, 100), 2.0f * 3);
  for (int c = 2; c < 6; ++c) EXPECT_EQ(first.At(c, 511), static_cast<float>(c + 1)) << c;

  // The next update gives every group its wrapper, with the group's speakers.
  ASSERT_EQ(runner.UpdateParams(), ONDREL_OK);
  EXPECT_EQ(log.probes, 2);
  EXPECT_EQ(log.bits, (std::vector<uint64_t>{0x3, 0x4, 0x8, 0x30}));
  Block all(6);
  ASSERT_EQ(runner.ProcessBlock(all.ptrs, &frames), ONDREL_OK);
  const float want[6] = {1 * 2, 2 * 3, 3 * 2, 4 * 2, 5 * 2, 6 * 3};
  for (int c = 0; c < 6; ++c) EXPECT_EQ(all.At(c, 0), want[c]) << c;
}

TEST(DspWrapperRunner, WrapperWithoutFormsPassesAudioUnchanged) {
  TestRunner runner(new Nothing());
  runner.SetChannels(2, 0);
  ASSERT_EQ(runner.UpdateParams(), ONDREL_OK);
  EXPECT_EQ(runner.mode, DspWrapperRunner::kNone);
  ASSERT_EQ(runner.UpdateParams(), ONDREL_OK);
  Block b(2);
  int32_t frames = 512;
  ASSERT_EQ(runner.ProcessBlock(b.ptrs, &frames), ONDREL_OK);
  EXPECT_EQ(frames, 512);
  for (int c = 0; c < 2; ++c)
    for (int f = 0; f < 512; ++f) ASSERT_EQ(b.At(c, f), static_cast<float>(c + 1));
}

TEST(DspWrapperRunner, FrameCountsTravelFromGroupToGroup) {
  Log log;
  TestRunner runner(new InterleavedOnly(&log, 1, 100, ONDREL_OK));
  runner.SetChannels(4, 0x33);  // quad: two pairs
  runner.UpdateParams();
  runner.UpdateParams();
  Block b(4);
  int32_t frames = 512;
  ASSERT_EQ(runner.ProcessBlock(b.ptrs, &frames), ONDREL_OK);
  EXPECT_EQ(log.frames, (std::vector<int32_t>{512, 412}));
  EXPECT_EQ(frames, 312);
  // The second group was handed 412 frames; the 312 it reports come back.
  EXPECT_EQ(b.At(2, 311), 3.0f * 2);
  EXPECT_EQ(b.At(2, 312), 3.0f);
}

TEST(DspWrapperRunner, SpeakerBitsAboveFifteenFallOutAndFailuresLeaveGroupsDry) {
  Log log;
  TestRunner wide(new InterleavedOnly(&log, 1, 0, ONDREL_OK));
  wide.SetChannels(4, 0x180000003ull);  // FL FR WL WR
  wide.UpdateParams();
  wide.UpdateParams();
  EXPECT_EQ(log.bits, (std::vector<uint64_t>{0x3, 0x0}));

  Log failing;
  TestRunner runner(new InterleavedOnly(&failing, 1, 0, ONDREL_E_INVALID));
  runner.SetChannels(2, 0);
  EXPECT_EQ(runner.UpdateParams(), ONDREL_E_INVALID);
  EXPECT_EQ(runner.units.UnitAt(0), nullptr);
  EXPECT_EQ(runner.GetLatency(), 0);
  Block b(2);
  int32_t frames = 512;
  ASSERT_EQ(runner.ProcessBlock(b.ptrs, &frames), ONDREL_OK);
  EXPECT_EQ(b.At(1, 0), 2.0f);
}

}  // namespace
}  // namespace ON_DSP_WRAPPERS
}  // namespace ONDREL2
