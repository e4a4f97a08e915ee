// The play-speed controller through the exported psctrl functions:
// stretching against a SoundTouch engine driven directly, the byte map at
// known positions, pending changes and their statuses.
#include <gtest/gtest.h>
#include <soundtouch/SoundTouch.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/play_speed.h"
#include "frame/processing_instance.h"
#include "ondrel.h"
#include "support/log_capture.h"

using namespace ONDREL2;

namespace {

constexpr int kBlock = 512;

// Planar test audio: a different tone plus a ramp on every channel.
std::vector<std::vector<float>> Tones(int channels, int frames) {
  std::vector<std::vector<float>> x(static_cast<size_t>(channels));
  for (int c = 0; c < channels; ++c)
    for (int i = 0; i < frames; ++i)
      x[c].push_back(0.5f * std::sin(0.013f * (c + 1) * static_cast<float>(i)) +
                     0.1f * static_cast<float>(i % 97) / 97.0f);
  return x;
}

std::vector<float*> At(std::vector<std::vector<float>>& x, int offset = 0) {
  std::vector<float*> v;
  for (auto& ch : x) v.push_back(ch.data() + offset);
  return v;
}

class PlaySpeed : public ::testing::Test {
 protected:
  void SetUp() override {
    ondrel_test::SilenceLog();
    inst = ondrel_create_inst();
    ASSERT_NE(inst, nullptr);
  }
  void TearDown() override { ondrel_destroy_inst(inst); }
  PlaySpeedController& Ctrl() { return *static_cast<ProcessingInstance*>(inst)->speedController; }

  // Pushes `in` through in host calls of the sizes in `chunks` (cycled),
  // reading everything after each call; returns the output, planar.
  std::vector<std::vector<float>> Run(std::vector<std::vector<float>>& in,
                                      const std::vector<int>& chunks) {
    const int frames = static_cast<int>(in[0].size());
    std::vector<std::vector<float>> out(in.size()),
        buf = Tones(static_cast<int>(in.size()), 4 * frames);
    for (int pos = 0, i = 0; pos < frames; ++i) {
      const int n = std::min(chunks[i % chunks.size()], frames - pos);
      int available = -1, got = 0;
      EXPECT_EQ(ondrel_psctrl_input(inst, At(in, pos), n, &available), 0) << "at " << pos;
      EXPECT_EQ(ondrel_psctrl_output(inst, At(buf), frames * 4, &got), 0);
      for (size_t c = 0; c < in.size(); ++c)
        out[c].insert(out[c].end(), buf[c].begin(), buf[c].begin() + got);
      pos += n;
    }
    return out;
  }

  void* inst = nullptr;
};

TEST_F(PlaySpeed, StretchMatchesSoundTouchDrivenDirectly) {
  const float speed = 1.25f;
  const int channels = 2, frames = 40 * kBlock + 333;
  ASSERT_EQ(ondrel_psctrl_init(inst, 48000, 16, channels, speed, 0), 0);
  auto in = Tones(channels, frames);
  const std::vector<int> chunks = {700, 300, 1500, 1, 511, 2048};
  auto got = Run(in, chunks);

  // The same engine settings, fed whole blocks of 512 as host calls
  // complete them, with what the engine holds drained first at each call.
  soundtouch::SoundTouch st;
  st.setChannels(channels);
  st.setSampleRate(48000);
  st.setPitch(1.0);
  st.setRate(1.0);
  st.setSetting(SETTING_USE_QUICKSEEK, 0);
  st.setSetting(SETTING_USE_AA_FILTER, 0);
  st.setTempoChange(static_cast<double>(speed * 100.0f - 100.0f));
  std::vector<float> want, buf(static_cast<size_t>(kBlock) * channels);
  auto take = [&](int n) {
    want.insert(want.end(), buf.begin(), buf.begin() + static_cast<long>(n) * channels);
  };
  int queued = 0, next = 0;
  for (int pos = 0, i = 0; pos < frames; ++i) {
    const int n = std::min(chunks[i % chunks.size()], frames - pos);
    pos += n;
    queued += n;
    while (int r = static_cast<int>(st.receiveSamples(buf.data(), kBlock))) take(r);
    for (; queued >= kBlock; queued -= kBlock, next += kBlock) {
      for (int f = 0; f < kBlock; ++f)
        for (int c = 0; c < channels; ++c) buf[f * channels + c] = in[c][next + f];
      st.putSamples(buf.data(), kBlock);
      take(static_cast<int>(st.receiveSamples(buf.data(), kBlock)));
    }
  }
  const size_t outFrames = want.size() / channels;
  ASSERT_EQ(got[0].size(), outFrames);
  ASSERT_GT(outFrames, 0.6 * frames / speed);  // the engine's pipeline holds the rest
  for (size_t f = 0; f < outFrames; ++f)
    for (int c = 0; c < channels; ++c)
      ASSERT_EQ(got[c][f], want[f * channels + c]) << "frame " << f << " channel " << c;
  EXPECT_EQ(Ctrl().speedMap.total, outFrames * 4u);
}

TEST_F(PlaySpeed, ByteMapFollowsSpeedChanges) {
  uint64_t actual = 0;
  EXPECT_EQ(ondrel_psctrl_getActualBytes(inst, 0, actual), ONDREL_E_UNAVAILABLE);
  ASSERT_EQ(ondrel_psctrl_init(inst, 44100, 16, 2, 2.0f, 0), 0);
  ASSERT_EQ(ondrel_psctrl_getActualBytes(inst, 1000, actual), 0);
  EXPECT_EQ(actual, 2005u);  // the factor is 2.005 at double speed

  // Accounting from a start position: below it nothing is known.
  ASSERT_EQ(ondrel_psctrl_init(inst, 44100, 16, 2, 1.0f, 10000), 0);
  EXPECT_EQ(ondrel_psctrl_getActualBytes(inst, 9999, actual), ONDREL_E_UNAVAILABLE);
  ASSERT_EQ(ondrel_psctrl_getActualBytes(inst, 10500, actual), 0);
  EXPECT_EQ(actual, 10500u);

  // Same value: nothing pending. Back to the old speed before audio passed:
  // the open segment is rewritten, no new one.
  EXPECT_EQ(ondrel_psctrl_set_multiple(inst, 1.0f), 0);
  EXPECT_EQ(Ctrl().dirty, 0);
  auto in = Tones(2, kBlock);
  ASSERT_EQ(ondrel_psctrl_set_multiple(inst, 0.5f), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, nullptr), ONDREL_E_INVALID);
  ASSERT_EQ(ondrel_psctrl_set_multiple(inst, 1.0f), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, nullptr), ONDREL_E_INVALID);
  ASSERT_EQ(Ctrl().speedMap.segments.size(), 1u);

  // One block at normal speed (2048 bytes), then double speed from there.
  ASSERT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, nullptr), 0);
  ASSERT_EQ(ondrel_psctrl_set_multiple(inst, 2.0f), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), 0, nullptr), ONDREL_E_INVALID);
  ASSERT_EQ(Ctrl().speedMap.segments.size(), 2u);
  ASSERT_EQ(ondrel_psctrl_getActualBytes(inst, 12048 + 1000, actual), 0);
  EXPECT_EQ(actual, 12048u + 2005u);
  ASSERT_EQ(ondrel_psctrl_getActualBytes(inst, 11000, actual), 0);
  EXPECT_EQ(actual, 11000u);

  // A seek restarts the accounting at 0 and keeps queued audio.
  const int queued = Ctrl().outQueue.Count();
  ASSERT_EQ(ondrel_psctrl_seek(inst), 0);
  ASSERT_EQ(ondrel_psctrl_getActualBytes(inst, 1000, actual), 0);
  EXPECT_EQ(actual, 2005u);
  EXPECT_EQ(Ctrl().speedMap.total, 0u);
  EXPECT_EQ(Ctrl().outQueue.Count(), queued);
}

TEST_F(PlaySpeed, PendingChangesAndFailures) {
  std::vector<float*> none;
  int n = 0;
  uint64_t actual = 0;
  EXPECT_EQ(ondrel_psctrl_init(nullptr, 44100, 16, 2, 1.0f, 0), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_psctrl_input(nullptr, none, 0, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_psctrl_input(inst, none, 0, &n), ONDREL_E_UNAVAILABLE);
  EXPECT_EQ(ondrel_psctrl_set_multiple(inst, 2.0f), ONDREL_E_UNAVAILABLE);
  EXPECT_EQ(ondrel_psctrl_getActualBytes(inst, 0, actual), ONDREL_E_UNAVAILABLE);

  ASSERT_EQ(ondrel_psctrl_init(inst, 44100, 16, 2, 1.0f, 0), 0);
  auto in = Tones(2, kBlock);
  EXPECT_EQ(ondrel_psctrl_input(inst, none, kBlock, &n), ONDREL_E_INVALID);  // too few channels
  // A channel change replaced by a later speed change is never applied.
  ASSERT_EQ(ondrel_psctrl_set_channels(inst, 1), 0);
  ASSERT_EQ(ondrel_psctrl_set_multiple(inst, 1.5f), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_INVALID);
  EXPECT_EQ(Ctrl().inQueue.channels, 2);
  EXPECT_EQ(Ctrl().dirty, 0);
  // A new rate builds the engine for the stored count, which the queues
  // never took: stretching is refused rather than mixing channels up.
  ASSERT_EQ(ondrel_psctrl_set_samplerate(inst, 48000), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_INVALID);
  // The count was stored, so asking again changes nothing: lost for good.
  ASSERT_EQ(ondrel_psctrl_set_channels(inst, 1), 0);
  EXPECT_EQ(Ctrl().dirty, 0);
  // A channel change applied: three channels from then on, map restarted.
  auto in3 = Tones(3, kBlock);
  ASSERT_EQ(ondrel_psctrl_set_channels(inst, 3), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in3), kBlock, &n), ONDREL_E_INVALID);
  EXPECT_EQ(Ctrl().inQueue.channels, 3);
  EXPECT_EQ(Ctrl().outQueue.channels, 3);
  EXPECT_EQ(Ctrl().speedMap.total, 0u);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in3), kBlock, &n), 0);
  in = in3;
  // Speeds the stretcher cannot run are refused, and a seek says so.
  ASSERT_EQ(ondrel_psctrl_set_multiple(inst, 0.0f), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_SPEED);
  EXPECT_EQ(ondrel_psctrl_seek(inst), ONDREL_E_SPEED);
  // No usable channels: audio is refused, nothing crashes.
  ASSERT_EQ(ondrel_psctrl_init(inst, 44100, 16, 0, 1.0f, 0), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_INVALID);
  ASSERT_EQ(ondrel_psctrl_init(inst, 44100, 16, 1000, 1.5f, 0), 0);
  EXPECT_EQ(ondrel_psctrl_input(inst, At(in), kBlock, &n), ONDREL_E_INVALID);
}

}  // namespace
