// Delay line resizing; the plain delay by the line's length is checked
// through the reverb's double model and the dfx line delays.
#include "dsp/delay_line.h"

#include <gtest/gtest.h>

#include <vector>

namespace ONDREL2 {
namespace {

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
