// Studio IR convolution: direct convolution in double for each file width,
// trimming and fading, and the channels and names it refuses.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/resource_effect_util.h"
#include "effects/studio_ir/studio_ir.h"
#include "support/log_capture.h"

using namespace ONDREL2;
using namespace ondrel_test;

namespace {

constexpr int kLatency = 255;

AEffect* NewIr(const std::string& name, float trim = -100.0f, float fade = 0.0f) {
  AEffect* fx = NewEffect(EFFECT_STUDIO_IR, {{"Trim", trim}, {"Fade", fade}});
  if (fx != nullptr && !name.empty()) SetText(fx, 0, name);
  return fx;
}

std::vector<float> DecayingNoise(int frames, int channels, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-0.3f, 0.3f);
  std::vector<float> h(static_cast<size_t>(frames) * channels);
  for (int n = 0; n < frames; ++n)
    for (int c = 0; c < channels; ++c)
      h[static_cast<size_t>(n) * channels + c] = u(rng) * std::exp(-n / 300.0f);
  return h;
}

// Adds to `y` the convolution of channel `xc` of stereo `x` with channel
// `hc` of `h` (`width` channels wide), if it has that channel.
void AddConvolution(const std::vector<float>& x, int xc, const std::vector<float>& h, int width,
                    int hc, std::vector<double>& y) {
  for (size_t n = 0; n < y.size() && hc < width; ++n)
    for (size_t k = 0; k * width < h.size() && k <= n; ++k)
      y[n] += static_cast<double>(h[k * width + hc]) * x[(n - k) * 2 + xc];
}

// Response to a unit impulse on the left channel, left output: the impulse
// sits at the latency, so output frame n is response sample n.
std::vector<float> LeftImpulseResponse(AEffect* fx, int frames) {
  std::vector<float> in(static_cast<size_t>(frames + kLatency) * 2, 0.0f);
  in[2 * kLatency] = 1.0f;
  StreamResult r = RunStream(fx, 44100.0f, 2, in);
  EXPECT_EQ(r.status, 0);
  std::vector<float> left;
  for (size_t i = 0; i < r.output.size() / 2 && left.size() < static_cast<size_t>(frames); ++i)
    left.push_back(r.output[2 * i]);
  return left;
}

struct StudioIr : EffectTest {
  ResourceRoot root;
};

// Every file width against a direct convolution of its channels: channel 0
// left to left, 1 right to right, 2 right to left, 3 left to right; a mono
// file on both sides, a stereo file without crosstalk.
TEST_F(StudioIr, MatchesDirectConvolutionForEveryFileWidth) {
  const int frames = 6000;
  const std::vector<float> x = TestSignal(frames, 2, 44100.0f);
  for (int width : {1, 2, 4}) {
    SCOPED_TRACE(width);
    const std::vector<float> h = DecayingNoise(1500, width, 7u + width);
    root.WriteWave("room.wav", 44100, width, h);
    AEffect* fx = NewIr("room.wav");
    StreamResult r = RunStream(fx, 44100.0f, 2, x);
    ASSERT_EQ(r.status, 0);
    ASSERT_GE(r.output.size(), static_cast<size_t>(frames - kLatency) * 2);

    std::vector<double> yl(frames, 0.0), yr(frames, 0.0);
    AddConvolution(x, 0, h, width, 0, yl);
    AddConvolution(x, 1, h, width, 2, yl);
    AddConvolution(x, 1, h, width, width == 1 ? 0 : 1, yr);
    AddConvolution(x, 0, h, width, 3, yr);
    double worst = 0.0, peak = 0.0;
    for (int n = 0; n + kLatency < frames; ++n) {
      worst = std::max(worst, std::fabs(r.output[2 * n] - yl[n + kLatency]));
      worst = std::max(worst, std::fabs(r.output[2 * n + 1] - yr[n + kLatency]));
      peak = std::max(peak, std::fabs(yl[n + kLatency]));
    }
    EXPECT_GT(peak, 0.5);
    EXPECT_LT(worst, 2e-5 * peak);
  }
}

// Trimming: a short response loses its last sample, a long one is cut
// after its last loud frame and faded over `Fade` at the stream's rate;
// at -30 dB or above nothing is cut.
TEST_F(StudioIr, TrimsAndFadesTheTail) {
  std::vector<float> shortIr(2 * 1000, 0.25f);
  root.WriteWave("short.wav", 44100, 2, shortIr);
  {
    AEffect* fx = NewIr("short.wav", -60.0f);
    LogCapture log(4);
    const std::vector<float> resp = LeftImpulseResponse(fx, 1100);
    EXPECT_TRUE(log.Has("[ON2L]:IR Trimmed 1000 --> 999"));
    EXPECT_NEAR(resp[998], 0.25f, 1e-5);
    EXPECT_NEAR(resp[999], 0.0f, 1e-6);
  }
  EXPECT_NEAR(LeftImpulseResponse(NewIr("short.wav", -30.0f), 1100)[999], 0.25f, 1e-5);

  // Loud for 2000 frames, then a tail below -60 dB.
  std::vector<float> tail(2 * 3000);
  for (int n = 0; n < 3000; ++n) tail[2 * n] = tail[2 * n + 1] = n < 2000 ? 0.5f : 1e-4f;
  root.WriteWave("tail.wav", 44100, 2, tail);
  AEffect* fx = NewIr("tail.wav", -60.0f, 10.0f);
  LogCapture log(4);
  const std::vector<float> resp = LeftImpulseResponse(fx, 3000);
  EXPECT_TRUE(log.Has("[ON2L]:IR Trimmed 3000 --> 2000"));
  const double ramp = 441.0;  // 10 ms at 44100 Hz
  for (int k = 0; k < 3000; ++k) {
    double want = 0.0;
    if (k < 2000) want = k <= 2000 - ramp ? 0.5 : 0.5 * (2000 - k) / ramp;
    ASSERT_NEAR(resp[k], want, 1e-5) << k;
  }
}

// A lone centre or low-frequency speaker is never convolved. A name longer
// than 256 bytes is refused with 2001.
TEST_F(StudioIr, LoneCentreAndOverlongNamesPassTheSignal) {
  root.WriteWave("room.wav", 44100, 2, DecayingNoise(800, 2, 3u));
  const std::vector<float> mono = TestSignal(2000, 1, 44100.0f);
  for (uint64_t mask : {0x4ull, 0x8ull}) {
    StreamResult r =
        RunStream(NewIr("room.wav"), 44100.0f, 1, mono, OddChunks(), nullptr, true, mask);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(FirstDifference(r.output, mono), mono.size()) << mask;
  }

  // The refusal is the effect's own; the chain then runs it without units.
  // A value of exactly 256 bytes without terminator is a name like another.
  STUDIO_IR::StudioIrEffect direct;
  const std::string longName(300, 'a'), full(256, 'b');
  direct.SetParamData(0, longName.c_str(), 301);
  EXPECT_EQ(direct.UpdateParams(), ONDREL_E_NOMEM);
  AEffect* fx = NewIr("");
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM_DATA, 0, 256, const_cast<char*>(full.data()), 0.0f);
  const std::vector<float> x = TestSignal(2000, 2, 44100.0f);
  for (AEffect* h : {NewIr(longName), fx}) {
    const StreamResult r = RunStream(h, 44100.0f, 2, x);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(FirstDifference(r.output, x), x.size());
  }
}

}  // namespace
