// SampleFifo: growth, wrap-around, and the interleaved conversions.
#include "frame/sample_fifo.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace ONDREL2 {
namespace {

TEST(SampleFifo, GrowsInWholeKibiFramesAndKeepsOrderAcrossWrap) {
  SampleFifo q;
  ASSERT_EQ(q.SetChannelCount(2), 0);
  EXPECT_EQ(q.capacity, 1024);
  EXPECT_EQ(q.EnsureCapacity(1023), 0);
  EXPECT_EQ(q.capacity, 1024);
  EXPECT_EQ(q.EnsureCapacity(1024), 0);
  EXPECT_EQ(q.capacity, 2048);
  // 2047 + 1 lands exactly on a multiple: a full 1024 more.
  SampleFifo p;
  ASSERT_EQ(p.SetChannelCount(1), 0);
  EXPECT_EQ(p.EnsureCapacity(2047), 0);
  EXPECT_EQ(p.capacity, 3072);

  // Put the ring into a wrapped state, then force a growth and check that
  // every frame comes back in order.
  SampleFifo r;
  ASSERT_EQ(r.SetChannelCount(2), 0);
  std::vector<float> a(1000), b(1000);
  float next = 0;
  float expect = 0;
  auto put = [&](int frames) {
    for (int i = 0; i < frames; ++i) {
      a[static_cast<size_t>(i)] = next;
      b[static_cast<size_t>(i)] = -next;
      next += 1;
    }
    ASSERT_EQ(r.PutPlanar({a.data(), b.data()}, frames, 0), 0);
  };
  auto get = [&](int frames) {
    int got = 0;
    ASSERT_EQ(r.GetPlanar({a.data(), b.data()}, frames, &got, 0), 0);
    ASSERT_EQ(got, frames);
    for (int i = 0; i < frames; ++i) {
      ASSERT_EQ(a[static_cast<size_t>(i)], expect) << "frame " << i;
      ASSERT_EQ(b[static_cast<size_t>(i)], -expect);
      expect += 1;
    }
  };
  put(900);
  get(800);
  put(900);  // wraps: write position passes the end of the 1024 ring
  EXPECT_LT(r.writePos, r.readPos);
  EXPECT_EQ(r.Count(), 1000);
  put(1000);  // grows while wrapped
  EXPECT_EQ(r.capacity, 2048);
  EXPECT_EQ(r.Count(), 2000);
  get(1000);
  get(1000);
  EXPECT_EQ(r.Count(), 0);
}

TEST(SampleFifo, PartialFramesAndShortVectorsAreRefusedOrIgnored) {
  SampleFifo q;
  ASSERT_EQ(q.SetChannelCount(2), 0);
  const int16_t in[3] = {1, 2, 3};
  EXPECT_EQ(q.PutInterleaved16(in, 3), 2000);
  EXPECT_EQ(q.Count(), 0);
  ASSERT_EQ(q.PutInterleaved16(in, 2), 0);
  int16_t out[2] = {7, 7};
  int got = -1;
  // Fewer samples than one frame: nothing delivered, nothing consumed.
  ASSERT_EQ(q.GetInterleaved16(out, 1, &got), 0);
  EXPECT_EQ(got, 0);
  EXPECT_EQ(q.Count(), 1);
  float x = 0;
  EXPECT_EQ(q.PutPlanar({&x}, 1, 0), 2000);
  EXPECT_EQ(q.GetPlanar({&x}, 1, &got, 0), 2000);
  EXPECT_EQ(q.SetChannelCount(65), 2000);
  EXPECT_EQ(q.channels, 2);

  // An offset that runs past the vector: the missing source channel is
  // stored as silence, never read from beyond the vector.
  SampleFifo w;
  ASSERT_EQ(w.SetChannelCount(2), 0);
  float c0[3] = {1, 2, 3}, c1[3] = {4, 5, 6};
  ASSERT_EQ(w.PutPlanar({c0, c1}, 3, 1), 0);
  float o0[3] = {}, o1[3] = {9, 9, 9};
  ASSERT_EQ(w.GetPlanar({o0, o1}, 3, &got, 0), 0);
  ASSERT_EQ(got, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(o0[i], c1[i]);
    EXPECT_EQ(o1[i], 0.0f);
  }
}

TEST(SampleFifo, ChannelCountChangeDropsDataButKeepsPositions) {
  SampleFifo q;
  ASSERT_EQ(q.SetChannelCount(2), 0);
  const float in[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_EQ(q.PutInterleavedFloat(in, 8), 0);
  ASSERT_EQ(q.SetChannelCount(2), 0);
  EXPECT_EQ(q.Count(), 4);
  float out[8];
  int got = 0;
  ASSERT_EQ(q.GetInterleavedFloat(out, 2, &got), 0);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1], 2);
  ASSERT_EQ(q.SetChannelCount(3), 0);
  EXPECT_EQ(q.readPos, 1);
  EXPECT_EQ(q.writePos, 4);
  EXPECT_EQ(q.Count(), 3);

  q.DropNewest(2);
  EXPECT_EQ(q.Count(), 1);
  q.DropNewest(100);
  EXPECT_EQ(q.Count(), 0);
}

TEST(SampleFifo, RandomTrafficMatchesAPlainQueue) {
  std::mt19937 rng(7);
  SampleFifo q;
  ASSERT_EQ(q.SetChannelCount(3), 0);
  std::vector<float> model;  // interleaved
  float next = 0;
  for (int round = 0; round < 400; ++round) {
    const int frames = static_cast<int>(rng() % 700);
    std::vector<float> buf(static_cast<size_t>(frames) * 3);
    for (float& v : buf) v = next++;
    if (rng() % 2) {
      ASSERT_EQ(q.PutInterleavedFloat(buf.data(), static_cast<int>(buf.size())), 0);
      model.insert(model.end(), buf.begin(), buf.end());
    } else {
      int got = 0;
      ASSERT_EQ(q.GetInterleavedFloat(buf.data(), static_cast<int>(buf.size()), &got), 0);
      const size_t expect = std::min(buf.size(), model.size());
      ASSERT_EQ(static_cast<size_t>(got), expect);
      for (size_t i = 0; i < expect; ++i) ASSERT_EQ(buf[i], model[i]) << "round " << round;
      model.erase(model.begin(), model.begin() + static_cast<long>(expect));
    }
    ASSERT_EQ(static_cast<size_t>(q.Count()) * 3, model.size());
  }
}

}  // namespace
}  // namespace ONDREL2
