// Multi-band compressor: table, fixed voicing, and the per-sample arithmetic
// against a scalar float model written from the compressor's formulas.
#include "effects/compressor/multiband_compressor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "ondrel.h"

namespace ONDREL2 {
namespace {

float P10(double e) { return static_cast<float>(std::pow(10.0, e)); }

// The voicing, computed here at run time in double and rounded to float.
struct RefVoicing {
  float lowDrive = P10(0.35), lowAttack = P10(-0.6), lowRelease = P10(-4.107);
  float lowGain = static_cast<float>(std::pow(10.0, -0.1) * 1.0605717897415161);
  float midDrive = P10(-1), midAttack = P10(-0.49), midRelease = P10(-3.806), midGain = 0.5f;
  float highDrive = P10(0.5), highAttack = P10(-0.38), highRelease = P10(-3.505);
  float highGain = static_cast<float>(1.2689599990844727);
  float lowCoef = P10(-1.597), splitCoef = P10(-0.172), width = static_cast<float>(0.55);
};

// Scalar model over interleaved stereo frames; zeroed state at construction.
struct RefMbc {
  RefVoicing v;
  float eL = 0, eM = 0, eH = 0, s1 = 0, sp = 0, s2 = 0;

  static float Env(float e, float x, float a, float r) {
    return x > e ? e + (x - e) * a : e * (1.0f - r);
  }

  // One block of `frames` frames, then the denormal cut.
  void Block(float* lr, int frames) {
    for (int i = 0; i < frames; ++i) {
      const float l = lr[2 * i], r = lr[2 * i + 1];
      const float side = (l - r) * v.width;
      const float sum = l + r;
      sp = sp * (1.0f - v.splitCoef) + sum * v.splitCoef;
      const float high = sum - sp;
      s1 = s1 * (1.0f - v.lowCoef) + sp * v.lowCoef;
      s2 = (1.0f - v.lowCoef) * s2 + s1 * v.lowCoef;
      const float low = s2, mid = sp - low;
      eL = Env(eL, std::fabs(low), v.lowAttack, v.lowRelease);
      eM = Env(eM, std::fabs(mid), v.midAttack, v.midRelease);
      eH = Env(eH, std::fabs(high), v.highAttack, v.highRelease);
      const float gM = 1.0f / (v.midDrive * eM + 1.0f);
      const float gH = 1.0f / (v.highDrive * eH + 1.0f);
      const float m = gM * mid * v.midGain + gH * low * v.lowGain + gH * high * v.highGain;
      lr[2 * i] = side + m;
      lr[2 * i + 1] = m - side;
    }
    if (eL < 1e-10f) eL = 0;
    if (eM < 1e-10f) eM = 0;
    if (eH < 1e-10f) eH = 0;
    if (std::fabs(s1) < 1e-10f) s1 = sp = s2 = 0;
  }
};

std::vector<float> Music(int frames, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-0.3f, 0.3f);
  std::vector<float> v(static_cast<size_t>(frames * 2));
  for (int i = 0; i < frames; ++i) {
    const float t = static_cast<float>(i);
    const float bass = 0.6f * std::sin(t * 0.01f), hiss = u(rng);
    v[static_cast<size_t>(2 * i)] = bass + hiss + 0.2f * std::sin(t * 0.3f);
    v[static_cast<size_t>(2 * i + 1)] = bass - 0.5f * hiss;
  }
  return v;
}

// Pushes `in` through `inst` in chunks and returns all output.
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

void* StereoChain(AEffect* fx) {
  void* inst = ondrel_create_inst();
  EXPECT_EQ(ondrel_setup_input(inst, 2, 0), 0);
  EXPECT_EQ(ondrel_set_samplerate(inst, 44100.0f), 0);
  EXPECT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  return inst;
}

class MultiBandCompressorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    set_xlog_level(7);
    ondrel_init(nullptr);
  }
};

TEST_F(MultiBandCompressorTest, TableNamesAndVoicing) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  EXPECT_EQ(fx.GetEffectType(), 23);
  ASSERT_EQ(fx.GetAEffect()->numParams, 13);
  struct Row {
    const char* name;
    float min, def, max;
    const char* display;
  };
  const Row rows[] = {
      {"Listen", 0, 1, 3, "0.333333"},
      {"xover1", 87, 0.103f, 1020, "0.1 Hz"},
      {"xover2", 111, 0.878f, 19606, "0.9 Hz"},
      {"L drive", 0, 0.54f, 30, "+0.5 dB"},
      {"M drive", 0, 0, 30, "+0.0 dB"},
      {"H drive", 0, 0.6f, 30, "+0.6 dB"},
      {"L trim", -20, 0.45f, 20, "+0.4 dB"},
      {"M trim", -20, 0.5f, 20, "+0.5 dB"},
      {"H trim", -20, 0.5f, 20, "+0.5 dB"},
      {"attack", 7, 0.22f, 1755, "0.2 ms"},
      {"release", 1, 0.602f, 1571, "0.6 ms"},
      {"width", 0, 0.55f, 1, "0%"},
      {"MS swap", 0, 0, 1, "0"},
  };
  char buf[128];
  for (int i = 0; i < 13; ++i) {
    const Row& r = rows[i];
    SCOPED_TRACE(r.name);
    const ParamDesc& p = fx.params[static_cast<size_t>(i)];
    EXPECT_STREQ(p.name, r.name);
    EXPECT_EQ(p.minValue, r.min);
    EXPECT_EQ(p.maxValue, r.max);
    EXPECT_EQ(p.center, r.max);
    EXPECT_EQ(p.shape, 1.0f);
    // Defaults outside the range come back unchanged.
    EXPECT_EQ(fx.GetParam(i), r.def);
    EXPECT_EQ(fx.GetScriptedParam(i), r.def);
    fx.GetParamDisplay(i, buf);
    EXPECT_STREQ(buf, r.display);
    fx.GetParamLabel(i, buf);
    EXPECT_STREQ(buf, r.name);
  }
  fx.SetParam(fx.GetParamIndex("width"), 0.999f);
  fx.GetParamDisplay(fx.GetParamIndex("width"), buf);
  EXPECT_STREQ(buf, "0%");
  EXPECT_STREQ(fx.GetEffectName(buf), "多段压缩器");
  ondrel_set_locale("en", "GB");
  EXPECT_STREQ(fx.GetEffectName(buf), "MultiBandCompressor");
  ondrel_set_locale("ja", "JP");
  EXPECT_STREQ(fx.GetEffectName(buf), "MultiBandCompressor");
  ondrel_set_locale("zh", "CN");

  // The checked-in table against the formulas evaluated here.
  const RefVoicing v;
  const COMPRESSOR::Voicing& t = fx.voicing;
  const float got[] = {t.lowDrive,    t.lowAttack,  t.lowRelease, t.lowGain,   t.midDrive,
                       t.midAttack,   t.midRelease, t.midGain,    t.highDrive, t.highAttack,
                       t.highRelease, t.highGain,   t.lowCoef,    t.splitCoef, t.width};
  const float want[] = {v.lowDrive,    v.lowAttack,  v.lowRelease, v.lowGain,   v.midDrive,
                        v.midAttack,   v.midRelease, v.midGain,    v.highDrive, v.highAttack,
                        v.highRelease, v.highGain,   v.lowCoef,    v.splitCoef, v.width};
  for (size_t i = 0; i < 15; ++i) EXPECT_EQ(got[i], want[i]) << "voicing field " << i;
  EXPECT_EQ(fx.msSwap, 0);
}

TEST_F(MultiBandCompressorTest, StereoStreamMatchesModelAndParametersOnlyResetState) {
  const int frames = 512 * 8;
  const std::vector<float> in = Music(frames, 5);
  RefMbc ref;
  std::vector<float> expected = in;
  for (int b = 0; b < 8; ++b) ref.Block(expected.data() + b * 1024, 512);

  for (int chunk : {frames, 1, 333, 512, 1025}) {
    AEffect* fx = nullptr;
    ASSERT_EQ(ondrel_create_effect(EFFECT_MULTIBAND_COMPRESSOR, &fx), 0);
    void* inst = StereoChain(fx);
    const std::vector<float> out = Push(inst, in, chunk);
    ondrel_destroy_inst(inst);
    ASSERT_EQ(out.size(), expected.size());
    for (size_t i = 0; i < out.size(); ++i)
      ASSERT_EQ(out[i], expected[i]) << "sample " << i << ", chunk " << chunk;
  }

  // Changing parameters mid-stream changes no coefficient, but the next
  // block starts again from zeroed state.
  AEffect* fx = nullptr;
  ASSERT_EQ(ondrel_create_effect(EFFECT_MULTIBAND_COMPRESSOR, &fx), 0);
  void* inst = StereoChain(fx);
  const std::vector<float> first(in.begin(), in.begin() + 2048);
  const std::vector<float> second(in.begin() + 2048, in.end());
  std::vector<float> out = Push(inst, first, 1024);
  AEffect* running = nullptr;
  int count = 0;
  ASSERT_EQ(ondrel_get_params(inst, &running, 1, &count), 0);
  for (int i = 0; i < 13; ++i)
    running->dispatcher(running, ONDREL_OP_SET_PARAM, i, 0, nullptr,
                        0.77f * static_cast<float>(i + 1));
  const std::vector<float> rest = Push(inst, second, 1024);
  ondrel_destroy_inst(inst);
  RefMbc fresh;
  std::vector<float> want = second;
  for (size_t b = 0; b * 1024 < want.size(); ++b) fresh.Block(want.data() + b * 1024, 512);
  ASSERT_EQ(rest.size(), want.size());
  EXPECT_EQ(rest, want);
  // ... which differs from the uninterrupted stream.
  EXPECT_NE(rest, std::vector<float>(expected.begin() + 2048, expected.end()));
}

TEST_F(MultiBandCompressorTest, SideSignalSwapAndPassThrough) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  const int n = 512;
  std::vector<float> l(n), r(n);
  for (int i = 0; i < n; ++i) {
    l[static_cast<size_t>(i)] = 0.9f * std::sin(0.37f * static_cast<float>(i));
    r[static_cast<size_t>(i)] = -l[static_cast<size_t>(i)];
  }
  const std::vector<float> l0 = l;
  std::vector<float*> bufs = {l.data(), r.data()};
  int32_t frames = n;
  ASSERT_EQ(fx.ProcessBlock(bufs, &frames), 0);
  // l = -r: the sum is silent, and the side leaves at the width.
  for (int i = 0; i < n; ++i) {
    const float side = (l0[static_cast<size_t>(i)] - (-l0[static_cast<size_t>(i)])) * 0.55f;
    ASSERT_EQ(l[static_cast<size_t>(i)], side) << i;
    ASSERT_EQ(r[static_cast<size_t>(i)], -side) << i;
  }
  EXPECT_EQ(fx.envMid, 0.0f);
  EXPECT_EQ(fx.split, 0.0f);

  // With the polarity switch the right channel is inverted on the way in
  // and out: an in-phase pair is treated as pure side.
  fx.msSwap = 1;
  l = l0;
  r = l0;
  ASSERT_EQ(fx.ProcessBlock(bufs, &frames), 0);
  for (int i = 0; i < n; ++i) {
    const float side = (l0[static_cast<size_t>(i)] - (-l0[static_cast<size_t>(i)])) * 0.55f;
    ASSERT_EQ(l[static_cast<size_t>(i)], side);
    ASSERT_EQ(r[static_cast<size_t>(i)], side);
  }

  // Mono and four channels pass unchanged.
  for (size_t chns : {1u, 4u}) {
    std::vector<std::vector<float>> d(chns, l0);
    std::vector<float*> p;
    for (auto& c : d) p.push_back(c.data());
    ASSERT_EQ(fx.ProcessBlock(p, &frames), 0);
    for (auto& c : d) EXPECT_EQ(c, l0);
  }
}

TEST_F(MultiBandCompressorTest, LoudThenSilenceEndsInExactZeros) {
  COMPRESSOR::MultiBandCompressorEffect fx;
  RefMbc ref;
  std::vector<float> block = Music(512, 9);
  for (float& v : block) v *= 3.0f;
  std::vector<float> l(512), r(512);
  std::vector<float*> bufs = {l.data(), r.data()};
  bool subnormal = false;
  for (int b = 0; b < 700; ++b) {
    std::vector<float> lr = b == 0 ? block : std::vector<float>(1024, 0.0f);
    for (int i = 0; i < 512; ++i) {
      l[static_cast<size_t>(i)] = lr[static_cast<size_t>(2 * i)];
      r[static_cast<size_t>(i)] = lr[static_cast<size_t>(2 * i + 1)];
    }
    int32_t frames = 512;
    ASSERT_EQ(fx.ProcessBlock(bufs, &frames), 0);
    ref.Block(lr.data(), 512);
    for (int i = 0; i < 512; ++i) {
      ASSERT_EQ(l[static_cast<size_t>(i)], lr[static_cast<size_t>(2 * i)]) << "block " << b;
      ASSERT_EQ(r[static_cast<size_t>(i)], lr[static_cast<size_t>(2 * i + 1)]) << "block " << b;
    }
    for (float s : {fx.envLow, fx.envMid, fx.envHigh, fx.lowStage1, fx.split, fx.lowStage2})
      subnormal = subnormal || std::fpclassify(s) == FP_SUBNORMAL;
  }
  EXPECT_FALSE(subnormal);
  for (float s : {fx.envLow, fx.envMid, fx.envHigh, fx.lowStage1, fx.split, fx.lowStage2})
    EXPECT_EQ(s, 0.0f);
  EXPECT_TRUE(std::all_of(l.begin(), l.end(), [](float v) { return v == 0.0f; }));

  // A clear leaves the states alone.
  fx.envHigh = 0.5f;
  fx.ClearBuffers();
  fx.ResetDsp();
  EXPECT_EQ(fx.envHigh, 0.5f);
  EXPECT_EQ(fx.GetLatency(), 0);
  EXPECT_EQ(fx.GetBlockSize(), 512);
}

}  // namespace
}  // namespace ONDREL2
