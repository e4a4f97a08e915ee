// De-esser: table, coefficients, and the sample-exact arithmetic against a
// scalar float model. Since all channels share one set of states, the model
// runs over the interleaved stream as if it were one mono signal.
#include "effects/deesser/deesser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "ondrel.h"

namespace ONDREL2 {
namespace {

struct RefDeEsser {
  float low = 0, mid = 0, env = 0, coef, gain, thr;

  RefDeEsser(float thresh, float freq, float drive, float rate) {
    const float f = freq / rate;
    thr = std::pow(10.0f, thresh * 3.0f - 3.0f);
    coef = static_cast<float>(static_cast<double>(f) * 0.94 * static_cast<double>(f) + 0.05);
    gain = std::pow(10.0f, drive * 2.0f - 1.0f);
  }

  // `samples` interleaved samples make one block; states are cut after it.
  void Block(float* x, int samples) {
    const float c = 1.0f - coef;
    for (int i = 0; i < samples; ++i) {
      low = low * c + x[i] * coef;
      const float t = x[i] - low;
      mid = t * coef + c * mid;
      const float h = (t - mid) * gain;
      env = h > env ? (h - env) * 0.01f + env : env * 0.992f;
      x[i] = env > thr ? (thr / env) * h + (mid + low) : mid + low + h;
    }
    if (std::fabs(low) < 1e-10f) low = mid = 0;
    if (std::fabs(env) < 1e-10f) env = 0;
  }

  void Stream(std::vector<float>& v, int ch) {
    for (size_t at = 0; at < v.size(); at += static_cast<size_t>(512 * ch))
      Block(v.data() + at,
            static_cast<int>(std::min(v.size() - at, static_cast<size_t>(512 * ch))));
  }
};

// Speech-like test signal: a low tone with bursts of bright noise.
std::vector<float> Sibilant(int frames, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> v(static_cast<size_t>(frames * 2));
  for (int i = 0; i < frames; ++i) {
    const float t = static_cast<float>(i);
    const float hiss = ((i / 300) % 2) ? 0.5f * u(rng) : 0.0f;
    v[static_cast<size_t>(2 * i)] = 0.4f * std::sin(0.02f * t) + hiss;
    v[static_cast<size_t>(2 * i + 1)] = 0.3f * std::sin(0.031f * t) - 0.7f * hiss;
  }
  return v;
}

std::vector<float> Push(void* inst, const std::vector<float>& in, int chunkFrames) {
  std::vector<float> out, buf(in.size() + 2048), chunk;
  for (size_t at = 0; at < in.size();) {
    const size_t n = std::min(in.size() - at, static_cast<size_t>(chunkFrames * 2));
    chunk.assign(in.begin() + static_cast<long>(at), in.begin() + static_cast<long>(at + n));
    int available = 0, written = 0;
    EXPECT_EQ(ondrel_processf_input(inst, chunk.data(), static_cast<int>(n), &available), 0);
    EXPECT_EQ(ondrel_processf_output(inst, buf.data(), static_cast<int>(buf.size()), &written), 0);
    out.insert(out.end(), buf.begin(), buf.begin() + written);
    at += n;
  }
  return out;
}

void* DeEsserChain(float thresh, float freq, float drive, AEffect** handle = nullptr) {
  AEffect* fx = nullptr;
  EXPECT_EQ(ondrel_create_effect(EFFECT_DEESSER, &fx), 0);
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, thresh);
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 1, 0, nullptr, freq);
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 2, 0, nullptr, drive);
  void* inst = ondrel_create_inst();
  EXPECT_EQ(ondrel_setup_input(inst, 2, 0), 0);
  EXPECT_EQ(ondrel_set_samplerate(inst, 44100.0f), 0);
  EXPECT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  if (handle != nullptr) *handle = fx;
  return inst;
}

class DeEsserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    set_xlog_level(7);
    ondrel_init(nullptr);
  }
};

TEST_F(DeEsserTest, TableNamesAndCoefficients) {
  DEESSER_EFFECT::DeEsserEffect fx;
  EXPECT_EQ(fx.GetEffectType(), 37);
  ASSERT_EQ(fx.GetAEffect()->numParams, 3);
  char buf[128];
  const char* names[] = {"Thresh", "Frequency", "Drive"};
  const float bounds[3][5] = {
      {-60, 60, 0, 0.618034f, -42}, {1000, 22050, 22050, 1, 7060}, {-20, 20, 0, 0.618034f, 0}};
  const char* displays[] = {"-42.0 dB", "7060.0 Hz", "+0.0 dB"};
  const char* zh[] = {"Thresh", "频率", "Drive"};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(names[i]);
    const ParamDesc& p = fx.params[static_cast<size_t>(i)];
    EXPECT_STREQ(p.name, names[i]);
    EXPECT_EQ(p.minValue, bounds[i][0]);
    EXPECT_EQ(p.maxValue, bounds[i][1]);
    EXPECT_EQ(p.center, bounds[i][2]);
    EXPECT_EQ(p.shape, bounds[i][3]);
    EXPECT_EQ(fx.GetParamDefault(i), bounds[i][4]);
    fx.GetParamDisplay(i, buf);
    EXPECT_STREQ(buf, displays[i]);
    fx.GetParamLabel(i, buf);
    EXPECT_STREQ(buf, zh[i]);
  }
  EXPECT_STREQ(fx.GetEffectName(buf), "DeEsser");
  ondrel_set_locale("en", "US");
  fx.GetParamLabel(1, buf);
  EXPECT_STREQ(buf, "Frequency");
  EXPECT_STREQ(fx.GetEffectName(buf), "DeEsser");
  ondrel_set_locale("zh", "CN");

  // Thresh and Drive slide in linear gain around 0 dB.
  EXPECT_NEAR(fx.GetParamNormalized(2), 0.618034, 1e-6);
  const double g = std::pow(10.0, -42.0 / 20.0), gmin = std::pow(10.0, -60.0 / 20.0);
  EXPECT_NEAR(fx.GetParamNormalized(0), 0.618034 * (1.0 - (g - 1.0) / (gmin - 1.0)), 1e-5);

  // Defaults at 44.1 kHz: the threshold underflows to 0, the drive is 0.1.
  EXPECT_NEAR(7060.0f / 44100.0f, 0.16009, 1e-5);
  EXPECT_NEAR(fx.coef, 0.16009 * 0.16009 * 0.94 + 0.05, 1e-5);
  EXPECT_EQ(fx.threshold, 0.0f);
  EXPECT_NEAR(fx.gain, 0.1f, 1e-7f);
  EXPECT_EQ(fx.attack, 0.01f);
  EXPECT_EQ(fx.release, 0.992f);
  EXPECT_EQ(fx.GetLatency(), 0);
  EXPECT_EQ(fx.GetBlockSize(), 512);

  // With a zero threshold a positive envelope removes the driven high part
  // entirely: what is left is the low and mid parts.
  std::vector<float> a = {0.0f, 0.9f, 0.9f, 0.9f};
  std::vector<float*> bufs = {a.data()};
  fx.SetChannels(1, 0);
  int32_t frames = 4;
  ASSERT_EQ(fx.ProcessBlock(bufs, &frames), 0);
  EXPECT_GT(fx.envelope, 0.0f);
  EXPECT_EQ(a[3], fx.midState + fx.low);
}

TEST_F(DeEsserTest, StereoStreamMatchesModelWithSharedState) {
  struct Case {
    float thresh, freq, drive;
  };
  const int frames = 512 * 6;
  const std::vector<float> in = Sibilant(frames, 3);
  for (const Case& k : {Case{-42, 7060, 0}, Case{0.3f, 5000, 0.6f}, Case{0.1f, 12000, 0.9f}}) {
    SCOPED_TRACE(testing::Message() << k.thresh << " " << k.freq << " " << k.drive);
    std::vector<float> expected = in;
    RefDeEsser(k.thresh, k.freq, k.drive, 44100.0f).Stream(expected, 2);
    for (int chunk : {frames, 7, 512, 700}) {
      void* inst = DeEsserChain(k.thresh, k.freq, k.drive);
      const std::vector<float> out = Push(inst, in, chunk);
      ondrel_destroy_inst(inst);
      ASSERT_EQ(out.size(), expected.size());
      for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], expected[i]) << "sample " << i << ", chunk " << chunk;
    }

    // Left and right share the states: swapping the inputs is not the
    // same as swapping the outputs.
    std::vector<float> swapped = in;
    for (size_t i = 0; i < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
    std::vector<float> swappedExpected = swapped;
    RefDeEsser(k.thresh, k.freq, k.drive, 44100.0f).Stream(swappedExpected, 2);
    void* inst = DeEsserChain(k.thresh, k.freq, k.drive);
    const std::vector<float> out = Push(inst, swapped, frames);
    ondrel_destroy_inst(inst);
    EXPECT_EQ(out, swappedExpected);
    size_t differ = 0;
    for (size_t i = 0; i < out.size(); i += 2) differ += out[i] != expected[i + 1];
    EXPECT_GT(differ, out.size() / 4);
  }
}

TEST_F(DeEsserTest, ParameterChangeResetsStateAndSilenceEndsInZeros) {
  const int frames = 512 * 4;
  const std::vector<float> in = Sibilant(frames, 8);
  AEffect* fx = nullptr;
  void* inst = DeEsserChain(0.2f, 6000, 0.5f, &fx);
  const std::vector<float> first(in.begin(), in.begin() + 2048);
  const std::vector<float> second(in.begin() + 2048, in.end());
  std::vector<float> out = Push(inst, first, 512);
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 1, 0, nullptr, 9000.0f);
  const std::vector<float> rest = Push(inst, second, 512);
  ondrel_destroy_inst(inst);
  std::vector<float> want = second;
  RefDeEsser(0.2f, 9000, 0.5f, 44100.0f).Stream(want, 2);
  EXPECT_EQ(rest, want);

  // After a loud burst the states end in exact zeros, never denormal at a
  // block boundary; a clear doesn't touch them.
  DEESSER_EFFECT::DeEsserEffect d;
  d.SetParam(0, 0.2f);
  d.SetParam(2, 0.9f);
  ASSERT_EQ(d.UpdateParams(), 0);
  std::vector<float> l(512), r(512);
  std::vector<float*> bufs = {l.data(), r.data()};
  bool subnormal = false;
  for (int b = 0; b < 40; ++b) {
    for (int i = 0; i < 512; ++i) {
      l[static_cast<size_t>(i)] = b == 0 ? 3.0f * in[static_cast<size_t>(2 * i)] : 0.0f;
      r[static_cast<size_t>(i)] = b == 0 ? 3.0f * in[static_cast<size_t>(2 * i + 1)] : 0.0f;
    }
    int32_t n = 512;
    ASSERT_EQ(d.ProcessBlock(bufs, &n), 0);
    for (float s : {d.low, d.midState, d.envelope})
      subnormal = subnormal || std::fpclassify(s) == FP_SUBNORMAL;
    if (b == 0) {
      d.ClearBuffers();
      d.ResetDsp();
      EXPECT_NE(d.envelope, 0.0f);
    }
  }
  EXPECT_FALSE(subnormal);
  EXPECT_EQ(d.low, 0.0f);
  EXPECT_EQ(d.midState, 0.0f);
  EXPECT_EQ(d.envelope, 0.0f);
}

}  // namespace
}  // namespace ONDREL2
