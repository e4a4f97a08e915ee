// SampleFifo's interleaved conversions on whole runs: every channel count
// takes its own loop shape, and runs split where the ring wraps. Each output
// sample is checked against a double-precision model of the host format.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "frame/sample_fifo.h"

namespace ONDREL2 {
namespace {

// Float to host int16: scaled by 32767 in float, then rounded half away from
// zero; a value that leaves the 32-bit range (or NaN) becomes INT32_MIN
// before the low 16 bits are kept.
int16_t HostInt16(float v) {
  const double x = static_cast<double>(v * 32767.0f);
  if (std::isnan(x)) return 0;
  const double r = x > 0 ? std::floor(x + 0.5) : std::ceil(x - 0.5);
  if (r >= 2147483648.0 || r < -2147483648.0) return 0;
  const auto wide = static_cast<int64_t>(r);
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint64_t>(wide) & 0xffffu));
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
  for (float t : {0.5f, 1.5f, 2.5f, 1000.5f, 32766.5f, 65535.5f}) {
    for (float s : {1.0f, -1.0f}) {
      const float x = s * t / 32767.0f;
      v.push_back(x);
      v.push_back(std::nextafter(x, 0.0f));
      v.push_back(std::nextafter(x, 2.0f * x));
    }
  }
  for (float big : {65535.0f, 65536.0f, 1.0e5f, 65537.5f, 2147483648.0f / 32767.0f}) {
    v.push_back(big);
    v.push_back(-big);
    v.push_back(std::nextafter(big, 0.0f));
    v.push_back(-std::nextafter(big, 0.0f));
  }
  v.push_back(std::numeric_limits<float>::infinity());
  v.push_back(-std::numeric_limits<float>::infinity());
  v.push_back(std::numeric_limits<float>::quiet_NaN());
  v.push_back(FromBits(0x7f800001u));  // signalling NaN
  v.push_back(std::numeric_limits<float>::denorm_min());
  v.push_back(std::numeric_limits<float>::max());
  std::mt19937 rng(7);
  for (int i = 0; i < 600; ++i) v.push_back(FromBits(static_cast<uint32_t>(rng())));
  std::uniform_real_distribution<float> music(-1.2f, 1.2f);
  for (int i = 0; i < 600; ++i) v.push_back(music(rng));
  return v;
}

TEST(SampleFifoConversions, FloatToInt16MatchesModelForAnyWidthAndWrap) {
  const std::vector<float> values = EdgeValues();
  for (int channels : {1, 2, 3, 6}) {
    const int frames = static_cast<int>(values.size());
    SampleFifo q;
    ASSERT_EQ(q.SetChannelCount(channels), 0);
    ASSERT_EQ(q.EnsureCapacity(frames + 700), 0);
    // Start 301 frames before the end of the ring so the run wraps.
    q.readPos = q.writePos = q.capacity - 301;
    std::vector<float*> vec;
    std::vector<std::vector<float>> planes(static_cast<size_t>(channels));
    for (int c = 0; c < channels; ++c) {
      auto& p = planes[static_cast<size_t>(c)];
      for (int i = 0; i < frames; ++i)
        p.push_back(values[static_cast<size_t>((i + 37 * c) % frames)]);
      vec.push_back(p.data());
    }
    ASSERT_EQ(q.PutPlanar(vec, frames, 0), 0);
    std::vector<int16_t> out(static_cast<size_t>(frames * channels) + 1, 0x5a5a);
    int got = 0;
    ASSERT_EQ(q.GetInterleaved16(out.data(), frames * channels, &got), 0);
    ASSERT_EQ(got, frames * channels);
    EXPECT_EQ(out.back(), 0x5a5a) << "wrote past the request";
    for (int i = 0; i < frames; ++i)
      for (int c = 0; c < channels; ++c) {
        const float v = planes[static_cast<size_t>(c)][static_cast<size_t>(i)];
        ASSERT_EQ(out[static_cast<size_t>(i * channels + c)], HostInt16(v))
            << "channels " << channels << " frame " << i << " value " << v;
      }
  }
}

TEST(SampleFifoConversions, HostSamplesEnterExactlyAndNonFiniteAsSilence) {
  const std::vector<float> values = EdgeValues();
  for (int channels : {1, 2, 5}) {
    const int frames = static_cast<int>(values.size()) / channels;
    SampleFifo q;
    ASSERT_EQ(q.SetChannelCount(channels), 0);
    ASSERT_EQ(q.EnsureCapacity(frames + 700), 0);
    q.readPos = q.writePos = q.capacity - 123;
    ASSERT_EQ(q.PutInterleavedFloat(values.data(), frames * channels), 0);
    std::vector<int16_t> pcm(static_cast<size_t>(frames * channels));
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(i * 2654435761u >> 16);
    SampleFifo p;
    ASSERT_EQ(p.SetChannelCount(channels), 0);
    ASSERT_EQ(p.EnsureCapacity(frames + 700), 0);
    p.readPos = p.writePos = p.capacity - 77;
    ASSERT_EQ(p.PutInterleaved16(pcm.data(), frames * channels), 0);

    std::vector<float> back(values.size() + 1, 9.0f), fromPcm(pcm.size());
    int got = 0;
    ASSERT_EQ(q.GetInterleavedFloat(back.data(), frames * channels, &got), 0);
    ASSERT_EQ(got, frames * channels);
    EXPECT_EQ(back[static_cast<size_t>(got)], 9.0f);
    ASSERT_EQ(p.GetInterleavedFloat(fromPcm.data(), frames * channels, &got), 0);
    for (int i = 0; i < frames * channels; ++i) {
      const float v = values[static_cast<size_t>(i)];
      const float expect = std::isfinite(v) ? v : 0.0f;
      ASSERT_EQ(std::memcmp(&back[static_cast<size_t>(i)], &expect, sizeof(float)), 0) << i;
      ASSERT_EQ(static_cast<double>(fromPcm[static_cast<size_t>(i)]),
                pcm[static_cast<size_t>(i)] / 32768.0)
          << i;
    }
  }
}

}  // namespace
}  // namespace ONDREL2
