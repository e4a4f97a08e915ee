// SampleFifo: growth, order against a plain queue, refusals, and the
// interleaved conversions against a double-precision model of the host
// formats, for every channel count's loop shape and runs split where the
// ring wraps.
#include "frame/sample_fifo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace ONDREL2 {
namespace {

TEST(SampleFifo, GrowsInWholeKibiFramesAndKeepsOrderLikeAPlainQueue) {
  // 2047 + 1 lands exactly on a multiple: a full 1024 more.
  for (auto [need, capacity] : {std::pair{0, 1024}, {1023, 1024}, {1024, 2048}, {2047, 3072}}) {
    SampleFifo p;
    ASSERT_EQ(p.SetChannelCount(1), 0);
    EXPECT_EQ(p.EnsureCapacity(need), 0);
    EXPECT_EQ(p.capacity, capacity) << need;
  }

  // Random puts and gets wrap the ring and grow it while wrapped.
  std::mt19937 rng(7);
  SampleFifo q;
  ASSERT_EQ(q.SetChannelCount(3), 0);
  std::vector<float> model;  // interleaved
  float next = 0;
  for (int round = 0; round < 400; ++round) {
    std::vector<float> buf(static_cast<size_t>(rng() % 700) * 3);
    for (float& v : buf) v = next++;
    if (rng() % 2) {
      ASSERT_EQ(q.PutInterleavedFloat(buf.data(), static_cast<int>(buf.size())), 0);
      model.insert(model.end(), buf.begin(), buf.end());
    } else {
      int got = 0;
      ASSERT_EQ(q.GetInterleavedFloat(buf.data(), static_cast<int>(buf.size()), &got), 0);
      ASSERT_EQ(static_cast<size_t>(got), std::min(buf.size(), model.size()));
      for (int i = 0; i < got; ++i) ASSERT_EQ(buf[i], model[i]) << "round " << round;
      model.erase(model.begin(), model.begin() + got);
    }
    ASSERT_EQ(static_cast<size_t>(q.Count()) * 3, model.size());
  }
}

TEST(SampleFifo, PartialFramesShortVectorsAndChannelChanges) {
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
  float c0[3] = {1, 2, 3}, c1[3] = {4, 5, 6}, o0[3] = {}, o1[3] = {9, 9, 9};
  ASSERT_EQ(w.PutPlanar({c0, c1}, 3, 1), 0);
  ASSERT_EQ(w.GetPlanar({o0, o1}, 3, &got, 0), 0);
  ASSERT_EQ(got, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(o0[i], c1[i]);
    EXPECT_EQ(o1[i], 0.0f);
  }

  // A channel count change drops nothing of the positions: the same
  // samples read as frames of the new width.
  const float f[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  float back[8];
  ASSERT_EQ(w.SetChannelCount(2), 0);
  ASSERT_EQ(w.PutInterleavedFloat(f, 8), 0);
  ASSERT_EQ(w.GetInterleavedFloat(back, 2, &got), 0);
  EXPECT_EQ(back[1], 2);
  ASSERT_EQ(w.SetChannelCount(3), 0);
  EXPECT_EQ(w.Count(), 3);
  w.DropNewest(2);
  EXPECT_EQ(w.Count(), 1);
  w.DropNewest(100);
  EXPECT_EQ(w.Count(), 0);
}

// Float to host int16: scaled by 32767 in float, then rounded half away from
// zero; a value that leaves the 32-bit range (or NaN) becomes INT32_MIN
// before the low 16 bits are kept.
int16_t HostInt16(float v) {
  const double x = static_cast<double>(v * 32767.0f);
  if (std::isnan(x)) return 0;
  const double r = x > 0 ? std::floor(x + 0.5) : std::ceil(x - 0.5);
  if (r >= 2147483648.0 || r < -2147483648.0) return 0;
  return static_cast<int16_t>(
      static_cast<uint16_t>(static_cast<uint64_t>(static_cast<int64_t>(r))));
}

float FromBits(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

// Awkward values: rounding ties and their neighbours, full scale and beyond
// (the 16-bit wrap), the ends of the 32-bit range, zeros, non-finite values.
std::vector<float> EdgeValues() {
  std::vector<float> v = {0.0f, -0.0f, 1.0f, -1.0f, 1.5f, -1.5f, 0.00001f, -0.00001f, 2.0f, -3.7f};
  for (float t : {0.5f, 1.5f, 2.5f, 1000.5f, 32766.5f, 65535.5f, 65535.0f * 32767.0f,
                  65536.0f * 32767.0f, 1.0e5f * 32767.0f, 65537.5f * 32767.0f, 2147483648.0f}) {
    for (float s : {1.0f, -1.0f}) {
      const float x = s * t / 32767.0f;
      v.insert(v.end(), {x, std::nextafter(x, 0.0f), std::nextafter(x, 2.0f * x)});
    }
  }
  const float inf = std::numeric_limits<float>::infinity();
  v.insert(v.end(), {inf, -inf, std::numeric_limits<float>::quiet_NaN(), FromBits(0x7f800001u),
                     std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max()});
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> music(-1.2f, 1.2f);
  for (int i = 0; i < 600; ++i) v.push_back(FromBits(static_cast<uint32_t>(rng())));
  for (int i = 0; i < 600; ++i) v.push_back(music(rng));
  return v;
}

TEST(SampleFifo, ConversionsMatchTheModelForAnyWidthAndWrap) {
  const std::vector<float> values = EdgeValues();
  const int n = static_cast<int>(values.size());
  for (int channels : {1, 2, 3, 5, 6}) {
    SCOPED_TRACE(channels);
    // Planar in, int16 out, starting 301 frames before the end of the ring.
    SampleFifo q;
    ASSERT_EQ(q.SetChannelCount(channels), 0);
    ASSERT_EQ(q.EnsureCapacity(n + 700), 0);
    q.readPos = q.writePos = q.capacity - 301;
    std::vector<std::vector<float>> planes(static_cast<size_t>(channels));
    std::vector<float*> vec;
    for (int c = 0; c < channels; ++c) {
      for (int i = 0; i < n; ++i)
        planes[c].push_back(values[static_cast<size_t>((i + 37 * c) % n)]);
      vec.push_back(planes[c].data());
    }
    ASSERT_EQ(q.PutPlanar(vec, n, 0), 0);
    std::vector<int16_t> out(static_cast<size_t>(n * channels) + 1, 0x5a5a);
    int got = 0;
    ASSERT_EQ(q.GetInterleaved16(out.data(), n * channels, &got), 0);
    ASSERT_EQ(got, n * channels);
    EXPECT_EQ(out.back(), 0x5a5a) << "wrote past the request";
    for (int i = 0; i < n * channels; ++i)
      ASSERT_EQ(out[i], HostInt16(planes[i % channels][i / channels])) << i;

    // Host floats and int16 in, floats out: exact, non-finite as silence.
    const int frames = n / channels;
    std::vector<int16_t> pcm(static_cast<size_t>(frames * channels));
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(i * 2654435761u >> 16);
    SampleFifo p;
    ASSERT_EQ(p.SetChannelCount(channels), 0);
    ASSERT_EQ(p.EnsureCapacity(frames + 700), 0);
    q.readPos = q.writePos = q.capacity - 123;
    p.readPos = p.writePos = p.capacity - 77;
    ASSERT_EQ(q.PutInterleavedFloat(values.data(), frames * channels), 0);
    ASSERT_EQ(p.PutInterleaved16(pcm.data(), frames * channels), 0);
    std::vector<float> back(values.size() + 1, 9.0f), fromPcm(pcm.size());
    ASSERT_EQ(q.GetInterleavedFloat(back.data(), frames * channels, &got), 0);
    ASSERT_EQ(got, frames * channels);
    EXPECT_EQ(back[static_cast<size_t>(got)], 9.0f);
    ASSERT_EQ(p.GetInterleavedFloat(fromPcm.data(), frames * channels, &got), 0);
    for (int i = 0; i < frames * channels; ++i) {
      const float expect = std::isfinite(values[i]) ? values[i] : 0.0f;
      ASSERT_EQ(std::memcmp(&back[i], &expect, sizeof(float)), 0) << i;
      ASSERT_EQ(static_cast<double>(fromPcm[i]), pcm[i] / 32768.0) << i;
    }
  }
}

}  // namespace
}  // namespace ONDREL2
