// The block adapter: blocking, the dry path, flushing.
#include "framework/ondrel2.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/log_capture.h"

namespace ONDREL2 {
namespace {

// Negates its channels and counts its hook calls.
class Negate : public IOndrel2 {
 public:
  AudioEffect* CreateInstance() override { return new Negate(); }
  int32_t UpdateParams() override {
    ++updates;
    return 0;
  }
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override {
    ++blocks;
    for (int c = 0; c < GetChannels(); ++c)
      for (int i = 0; i < *frames; ++i)
        bufs[static_cast<size_t>(c)][i] = -bufs[static_cast<size_t>(c)][i];
    return 0;
  }
  int32_t GetLatency() override { return latency; }
  void ResetDsp() override { ++resets; }
  int updates = 0, blocks = 0, resets = 0, latency = 0;
};

struct Planar {
  explicit Planar(int channels, int frames)
      : data(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(frames))) {
    for (auto& ch : data) ptrs.push_back(ch.data());
  }
  std::vector<std::vector<float>> data;
  std::vector<float*> ptrs;
};

// Blocks run only when whole, after UpdateParams if dirty; channels beyond
// the effect's own travel around the block in alignment.
TEST(Adapter, WholeBlocksUpdateFirstAndExtraChannelsTravelAlong) {
  ondrel_test::SilenceLog();
  Negate fx;
  Planar in(4, 700);
  for (int c = 0; c < 4; ++c)
    for (int i = 0; i < 700; ++i)
      in.data[c][static_cast<size_t>(i)] = static_cast<float>(c * 1000 + i);
  int32_t avail = -1;
  EXPECT_EQ(fx.ProcessInput(in.ptrs, 10, &avail), 2000);  // not set up yet
  ASSERT_EQ(fx.Resume(), 0);
  EXPECT_EQ(fx.updates, 1);
  EXPECT_FALSE(fx.paramsDirty);
  fx.SetSampleRate(48000.0f);
  ASSERT_EQ(fx.ProcessInput(in.ptrs, 511, &avail), 0);
  EXPECT_EQ(avail, 0);
  EXPECT_EQ(fx.updates, 1);  // dirty, but no whole block yet
  std::vector<float*> rest;
  for (float* p : in.ptrs) rest.push_back(p + 511);
  ASSERT_EQ(fx.ProcessInput(rest, 189, &avail), 0);
  EXPECT_EQ(avail, 512);
  EXPECT_EQ(fx.updates, 2);
  EXPECT_EQ(fx.blocks, 1);
  Planar out(4, 700);
  int32_t got = 0;
  ASSERT_EQ(fx.ProcessOutput(out.ptrs, 700, &got), 0);
  ASSERT_EQ(got, 512);
  for (int c = 0; c < 4; ++c)
    for (int i = 0; i < 512; ++i)
      ASSERT_EQ(out.data[c][static_cast<size_t>(i)],
                (c < 2 ? -1.0f : 1.0f) * in.data[c][static_cast<size_t>(i)])
          << c << " " << i;
}

// Flushing hands back what is queued plus the latency, in as many blocks
// of silence as that takes, and resets the DSP (the output itself: the
// catalogue sweep, for every type).
TEST(Adapter, FlushTailReturnsQueuedFramesPlusLatency) {
  Negate fx;
  int32_t frames = -1;
  ASSERT_EQ(fx.FlushTail(&frames), 0);  // never set up
  EXPECT_EQ(frames, 0);
  ASSERT_EQ(fx.Resume(), 0);
  Planar in(2, 100);
  ASSERT_EQ(fx.ProcessInput(in.ptrs, 100, &frames), 0);
  ASSERT_EQ(fx.FlushTail(&frames), 0);
  EXPECT_EQ(frames, 100);
  EXPECT_EQ(fx.inFifo.Count(), 0);
  EXPECT_EQ(fx.resets, 1);
  ASSERT_EQ(fx.ProcessOutput(in.ptrs, 100, &frames), 0);
  ASSERT_EQ(fx.FlushTail(&frames), 0);  // nothing queued: nothing left
  EXPECT_EQ(frames, 0);
  fx.latency = 700;  // two blocks, exactly 700 kept
  ASSERT_EQ(fx.FlushTail(&frames), 0);
  EXPECT_EQ(frames, 700);
}

// An effect whose block size follows a setting.
class Resizable : public Negate {
 public:
  int32_t GetBlockSize() override { return block; }
  int block = 64;
};

TEST(Adapter, BlockSizeGrowthLaysTheChannelsOutAgain) {
  Resizable fx;
  ASSERT_EQ(fx.Resume(), 0);
  fx.block = 4096;  // scratch is reallocated; the channel count stays
  ASSERT_EQ(fx.Resume(), 0);
  ASSERT_EQ(fx.blockBufs.size(), 2u);
  EXPECT_EQ(fx.blockBufs[0], fx.scratch);
  EXPECT_EQ(fx.blockBufs[1], fx.scratch + 4096);
  Planar in(2, 4096);
  in.data[1][4095] = 3.0f;
  int32_t avail = 0;
  ASSERT_EQ(fx.ProcessInput(in.ptrs, 4096, &avail), 0);
  Planar out(2, 4096);
  ASSERT_EQ(fx.ProcessOutput(out.ptrs, 4096, &avail), 0);
  EXPECT_EQ(out.data[1][4095], -3.0f);
}

// A width above the queues' 64 on one side is refused before either queue
// changes: blocks are still taken from the input queue afterwards.
TEST(Adapter, RefusedWidthLeavesQueuesMatchingTheBlocks) {
  ondrel_test::SilenceLog();
  struct Idle : Negate {
    int32_t ProcessBlock(const ChannelVector&, int32_t*) override { return 0; }
  } fx;
  ASSERT_EQ(fx.Resume(), 0);
  fx.handle.numInputs = 6;
  fx.handle.numOutputs = 65;
  EXPECT_EQ(fx.SetupBuffers(), ONDREL_E_INVALID);
  EXPECT_EQ(fx.inFifo.channels, static_cast<int32_t>(fx.blockBufs.size()));
  Planar in(6, 1024);
  int32_t avail = 0;
  ASSERT_EQ(fx.ProcessInput(in.ptrs, 1024, &avail), 0);
  EXPECT_EQ(avail, 1024);
}

}  // namespace
}  // namespace ONDREL2
