#include "dsp/delay_line.h"

#include <gtest/gtest.h>

#include <vector>

namespace ONDREL2 {
namespace {

// A value written comes back `length` advances later, on a ring whose size is
// the next power of two strictly above the length.
TEST(DelayLine, DelaysByItsLengthOnAPowerOfTwoRing) {
  for (int32_t length : {0, 1, 7, 1000, 1024}) {
    DelayLine line;
    ASSERT_EQ(line.Resize(length), 0);
    EXPECT_GT(line.mask + 1, length);
    EXPECT_LE(line.mask, 2 * length);
    EXPECT_EQ((line.mask + 1) & line.mask, 0) << "ring size not a power of two";
    std::vector<float> out;
    for (int32_t n = 0; n < 3 * length + 5; ++n) {
      line.Write(static_cast<float>(n + 1));
      out.push_back(line.Read());
      line.Advance();
    }
    for (int32_t n = 0; n < static_cast<int32_t>(out.size()); ++n)
      ASSERT_EQ(out[n], n < length ? 0.0f : static_cast<float>(n - length + 1))
          << "length " << length << " sample " << n;
  }
}

// Stretching a running line keeps its content: a constant stays constant, a
// rising ramp stays rising from the oldest sample to the newest, and the
// newest sample is kept exactly. Clear empties it; the same length is a no-op.
TEST(DelayLine, ResizeResamplesLiveContent) {
  DelayLine line;
  ASSERT_EQ(line.Resize(100), 0);
  for (int n = 0; n < 100; ++n) {
    line.Write(0.5f);
    line.Advance();
  }
  ASSERT_EQ(line.Resize(173), 0);
  EXPECT_EQ(line.readPos, 0u);
  for (int n = 0; n < 173; ++n) ASSERT_EQ(line.samples[n], 0.5f) << n;

  for (int n = 0; n < 173; ++n) {
    line.Write(static_cast<float>(n));
    line.Advance();
  }
  ASSERT_EQ(line.Resize(61), 0);
  for (int n = 1; n < 61; ++n) ASSERT_GE(line.samples[n], line.samples[n - 1]) << n;
  EXPECT_EQ(line.samples[60], 172.0f);

  float* ring = line.samples;
  EXPECT_EQ(line.Resize(61), 0);
  EXPECT_EQ(line.samples, ring);
  line.Clear();
  for (int n = 0; n < line.length; ++n) {
    ASSERT_EQ(line.Read(), 0.0f) << n;
    line.Write(1.0f);
    line.Advance();
  }

  // Short lines take the middle and the newest sample.
  ASSERT_EQ(line.Resize(2), 0);
  EXPECT_EQ(line.Resize(-1), 2001);
  EXPECT_EQ(line.length, 2);
}

}  // namespace
}  // namespace ONDREL2
