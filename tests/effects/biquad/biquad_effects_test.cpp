// Biquad filter effects: exact stereo output against a scalar model
// (cookbook designs in double, coefficients rounded to float, Direct Form I
// in float), the guard at half the rate, ordering of reversed edges, and the
// filter vector across channel changes, clears and empty blocks.
#include "effects/biquad/biquad_effects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using ONDREL2::AEffect;
using ONDREL2::ONDREL_EFFECT_TYPE;
using ondrel_test::FirstDifference;

// ---- Scalar model ------------------------------------------------------------

struct Coeffs {
  float b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
};

constexpr double kTwoPi = 6.283185307179586;

Coeffs Round(double b0, double b1, double b2, double a1, double a2) {
  return {static_cast<float>(b0), static_cast<float>(b1), static_cast<float>(b2),
          static_cast<float>(a1), static_cast<float>(a2)};
}

// Settings by parameter name, as the effect reads them (Hz, dB).
using Settings = std::map<std::string, float>;

// The model of one effect: guard and design. `rate` in Hz.
bool ModelDesign(ONDREL_EFFECT_TYPE type, Settings s, float rate, Coeffs* out) {
  const auto norm = [rate](float hz) { return static_cast<double>(hz / rate); };
  const auto nyquist = [rate](float hz) { return static_cast<double>(hz) >= rate * 0.5; };
  bool pass = false;
  if (type == ONDREL2::EFFECT_BP_FILTER || type == ONDREL2::EFFECT_NT_FILTER ||
      type == ONDREL2::EFFECT_PK_FILTER) {
    float lo = s["LowEdge"], hi = s["HighEdge"];
    const bool equal = lo == hi;
    if (!(type == ONDREL2::EFFECT_BP_FILTER && equal) && lo > hi) {
      const float sum = hi + lo;
      hi = sum - hi;
      lo = sum - hi;
    }
    pass = nyquist(hi) || (type == ONDREL2::EFFECT_BP_FILTER && equal);
    const double bw = std::log2(norm(hi) / norm(lo));
    const double w0 = std::pow(2.0, bw * 0.5) * norm(lo) * kTwoPi;
    const double sn = std::sin(w0), c = std::cos(w0);
    const double alpha = std::sinh(std::log(2.0)) * sn * 0.5 * bw * w0 / sn;
    if (type == ONDREL2::EFFECT_BP_FILTER) {
      const double a0 = 1 + alpha;
      *out = Round(alpha / a0, 0.0 / a0, -alpha / a0, -2 * c / a0, (1 - alpha) / a0);
    } else if (type == ONDREL2::EFFECT_NT_FILTER) {
      const double a0 = 1 + alpha;
      *out = Round(1 / a0, -2 * c / a0, 1 / a0, -2 * c / a0, (1 - alpha) / a0);
    } else {
      const double A = std::pow(10.0, static_cast<double>(s["Gain"]) / 40.0);
      const double a0 = 1 + alpha / A;
      *out = Round((A * alpha + 1) / a0, -2 * c / a0, (1 - A * alpha) / a0, -2 * c / a0,
                   (1 - alpha / A) / a0);
    }
    return pass;
  }
  const float f = s["Frequency"];
  const double q = s["Q"];
  const double w0 = kTwoPi * norm(f);
  const double sn = std::sin(w0), c = std::cos(w0);
  switch (type) {
    case ONDREL2::EFFECT_LP_FILTER: {
      const double alpha = sn / (q + q), a0 = 1 + alpha;
      *out = Round((1 - c) * 0.5 / a0, (1 - c) / a0, (1 - c) * 0.5 / a0, -2 * c / a0,
                   (1 - alpha) / a0);
      return nyquist(f);
    }
    case ONDREL2::EFFECT_HP_FILTER: {
      const double alpha = sn / (q + q), a0 = 1 + alpha;
      *out = Round((1 + c) * 0.5 / a0, -(1 + c) / a0, (1 + c) * 0.5 / a0, -2 * c / a0,
                   (1 - alpha) / a0);
      return nyquist(f);
    }
    case ONDREL2::EFFECT_AP_FILTER: {
      const double alpha = sn * 0.5 * q, a0 = 1 + alpha;
      *out = Round((1 - alpha) / a0, -2 * c / a0, a0 / a0, -2 * c / a0, (1 - alpha) / a0);
      return false;
    }
    default: {
      const double A = std::pow(10.0, static_cast<double>(s["Gain"]) / 40.0);
      const double k = std::sqrt(A) / q * sn, p = A + 1, m = A - 1;
      if (type == ONDREL2::EFFECT_LS_FILTER) {
        const double a0 = (p + m * c) + k;
        *out = Round(A * ((p - m * c) + k) / a0, 2 * A * (m - p * c) / a0,
                     A * ((p - m * c) - k) / a0, -2 * (m + p * c) / a0, ((p + m * c) - k) / a0);
      } else {
        const double a0 = (p - m * c) + k;
        *out = Round(A * ((p + m * c) + k) / a0, -2 * A * (m + p * c) / a0,
                     A * ((p + m * c) - k) / a0, 2 * (m - p * c) / a0, ((p - m * c) - k) / a0);
      }
      return false;
    }
  }
}

std::vector<float> ModelRun(ONDREL_EFFECT_TYPE type, const Settings& s, float rate,
                            const std::vector<float>& x, int channels) {
  Coeffs k;
  if (ModelDesign(type, s, rate, &k)) return x;
  std::vector<float> y = x, x1(channels, 0), x2(channels, 0), y1(channels, 0), y2(channels, 0);
  for (size_t i = 0; i < x.size(); ++i) {
    const size_t c = i % static_cast<size_t>(channels);
    float v = k.b0 * x[i];
    v = v + k.b1 * x1[c];
    v = v + k.b2 * x2[c];
    v = v - k.a1 * y1[c];
    v = v - k.a2 * y2[c];
    x2[c] = x1[c];
    x1[c] = x[i];
    y2[c] = y1[c];
    y1[c] = y[i] = v;
  }
  return y;
}

// Every value any of the effects reads, at the tables' defaults, with `changes`.
Settings With(const Settings& changes) {
  Settings s = {
      {"Frequency", 20.0f}, {"Q", 1.0f}, {"Gain", 0.0f}, {"LowEdge", 20.0f}, {"HighEdge", 20.0f}};
  for (const auto& kv : changes) s[kv.first] = kv.second;
  return s;
}

// The effect with those of `s` it has, streamed in stereo.
std::vector<float> RunEffect(ONDREL_EFFECT_TYPE type, const Settings& s, float rate,
                             const std::vector<float>& x) {
  AEffect* fx = ondrel_test::NewEffect(type);
  for (const ONDREL2::ParamDesc& p : fx->object->params)
    if (s.count(p.name) != 0) ondrel_test::SetParam(fx, p.name, s.at(p.name));
  const auto r = ondrel_test::RunStream(fx, rate, 2, x);
  EXPECT_EQ(r.status, 0);
  return r.output;
}

// ---- Streams -------------------------------------------------------------------

TEST(BiquadEffectStream, EveryShapeAndGuardMatchScalarModel) {
  struct Case {
    ONDREL_EFFECT_TYPE type;
    Settings changes;
    float rate;
    bool passes;  // the audio comes out untouched
  };
  std::vector<Case> cases = {
      {ONDREL2::EFFECT_LP_FILTER, {{"Frequency", 1000.0f}, {"Q", 0.707f}}, 48000.0f, false},
      {ONDREL2::EFFECT_LP_FILTER, {}, 44100.0f, false},
      {ONDREL2::EFFECT_HP_FILTER, {{"Frequency", 180.0f}, {"Q", 0.9f}}, 48000.0f, false},
      {ONDREL2::EFFECT_BP_FILTER, {{"LowEdge", 300.0f}, {"HighEdge", 3000.0f}}, 44100.0f, false},
      {ONDREL2::EFFECT_NT_FILTER, {{"LowEdge", 800.0f}, {"HighEdge", 1250.0f}}, 48000.0f, false},
      {ONDREL2::EFFECT_LS_FILTER,
       {{"Frequency", 150.0f}, {"Q", 0.7f}, {"Gain", 6.0f}},
       44100.0f,
       false},
      {ONDREL2::EFFECT_HS_FILTER,
       {{"Frequency", 6000.0f}, {"Q", 0.6f}, {"Gain", -4.5f}},
       48000.0f,
       false},
      {ONDREL2::EFFECT_PK_FILTER,
       {{"LowEdge", 900.0f}, {"HighEdge", 1800.0f}, {"Gain", 5.0f}},
       44100.0f,
       false},
      {ONDREL2::EFFECT_AP_FILTER, {{"Frequency", 1000.0f}, {"Q", 2.0f}}, 48000.0f, false},
      // Equal edges: the band pass passes.
      {ONDREL2::EFFECT_BP_FILTER, {{"LowEdge", 5000.0f}, {"HighEdge", 5000.0f}}, 48000.0f, true},
  };
  // At and above half the rate guarded shapes pass the audio; shelves and
  // the all pass have no guard and are designed as they stand.
  for (float edge : {24000.0f, 30000.0f}) {
    const Settings edges = {{"LowEdge", 1000.0f}, {"HighEdge", edge}, {"Gain", 9.0f}};
    const Settings corner = {{"Frequency", edge}, {"Q", 0.7f}, {"Gain", 6.0f}};
    for (ONDREL_EFFECT_TYPE type :
         {ONDREL2::EFFECT_BP_FILTER, ONDREL2::EFFECT_NT_FILTER, ONDREL2::EFFECT_PK_FILTER})
      cases.push_back({type, edges, 48000.0f, true});
    for (ONDREL_EFFECT_TYPE type :
         {ONDREL2::EFFECT_LP_FILTER, ONDREL2::EFFECT_HP_FILTER, ONDREL2::EFFECT_LS_FILTER,
          ONDREL2::EFFECT_HS_FILTER, ONDREL2::EFFECT_AP_FILTER})
      cases.push_back({type, corner, 48000.0f,
                       type == ONDREL2::EFFECT_LP_FILTER || type == ONDREL2::EFFECT_HP_FILTER});
  }
  const std::vector<float> x = ondrel_test::TestSignal(6000, 2, 44100.0f);
  for (const Case& c : cases) {
    const Settings s = With(c.changes);
    const std::vector<float> got = RunEffect(c.type, s, c.rate, x);
    EXPECT_EQ(FirstDifference(got, ModelRun(c.type, s, c.rate, x, 2)), x.size())
        << "type " << c.type << " at " << c.rate;
    EXPECT_EQ(FirstDifference(got, x) == x.size(), c.passes)
        << "type " << c.type << " at " << c.rate;
  }
  // Equal edges give notch and bell a unity transfer with poles on the unit
  // circle: float rounding makes the output wander slowly away from the
  // input, so the input is only the rough target.
  for (ONDREL_EFFECT_TYPE type : {ONDREL2::EFFECT_NT_FILTER, ONDREL2::EFFECT_PK_FILTER}) {
    const std::vector<float> got = RunEffect(type, With({}), 48000.0f, x);
    EXPECT_EQ(FirstDifference(got, ModelRun(type, With({}), 48000.0f, x, 2)), x.size());
    EXPECT_LT(ondrel_test::MaxError(got, x), 2e-3) << "type " << type;
  }
}

TEST(BiquadEffectStream, ReversedEdgesAreOrdered) {
  const float rate = 48000.0f;
  const std::vector<float> x = ondrel_test::TestSignal(3000, 2, rate);
  for (ONDREL_EFFECT_TYPE type :
       {ONDREL2::EFFECT_BP_FILTER, ONDREL2::EFFECT_NT_FILTER, ONDREL2::EFFECT_PK_FILTER}) {
    const Settings reversed = With({{"LowEdge", 5000.0f}, {"HighEdge", 1000.0f}, {"Gain", 4.0f}});
    const Settings ordered = With({{"LowEdge", 1000.0f}, {"HighEdge", 5000.0f}, {"Gain", 4.0f}});
    const std::vector<float> a = RunEffect(type, reversed, rate, x);
    EXPECT_EQ(FirstDifference(a, RunEffect(type, ordered, rate, x)), x.size()) << "type " << type;
    EXPECT_EQ(FirstDifference(a, ModelRun(type, ordered, rate, x, 2)), x.size()) << "type " << type;
  }
  // The exchange runs through the float sum, which moves the small edge by
  // a few ulps: 16000.7 and 10.3 become 10.2998047 and 16000.7, not a swap.
  const Settings odd = {{"LowEdge", 16000.7f}, {"HighEdge", 10.3f}};
  EXPECT_EQ(FirstDifference(RunEffect(ONDREL2::EFFECT_BP_FILTER, odd, rate, x),
                            ModelRun(ONDREL2::EFFECT_BP_FILTER, odd, rate, x, 2)),
            x.size());
}

// ---- The filter vector ------------------------------------------------------

TEST(BiquadEffectState, ChannelChangeClearAndEmptyBlock) {
  set_xlog_level(7);
  ONDREL2::BIQUADFILTER::LPFilterEffect lp;
  lp.SetParam(0, 2000.0f);
  lp.SetParam(1, 0.8f);
  lp.SetChannels(2, 0);
  ASSERT_EQ(lp.Resume(), 0);
  ASSERT_EQ(lp.filters.size(), 2u);

  // One stereo block, then the state must outlive a clear and an empty block.
  std::vector<float> stereo = ondrel_test::TestSignal(1024, 1, 44100.0f);
  int32_t frames = 512;
  ASSERT_EQ(lp.ProcessBlock({stereo.data(), stereo.data() + 512}, &frames), 0);
  const ONDREL2::BiquadFilter::Filter before = *lp.filters[1];
  lp.ClearBuffers();
  frames = 0;
  ASSERT_EQ(lp.ProcessBlock({stereo.data(), stereo.data() + 512}, &frames), 0);
  const ONDREL2::BiquadFilter::Filter& after = *lp.filters[1];
  EXPECT_NE(after.y1, 0.0f);
  EXPECT_TRUE(after.x1 == before.x1 && after.x2 == before.x2 && after.y1 == before.y1 &&
              after.y2 == before.y2);

  // Down to one channel: exactly one fresh filter, and the block runs mono.
  lp.SetChannels(1, 0);
  ASSERT_TRUE(lp.paramsDirty);
  ASSERT_EQ(lp.UpdateParams(), 0);
  ASSERT_EQ(lp.filters.size(), 1u);
  std::vector<float> mono = ondrel_test::TestSignal(512, 1, 44100.0f);
  const std::vector<float> want =
      ModelRun(ONDREL2::EFFECT_LP_FILTER, {{"Frequency", 2000.0f}, {"Q", 0.8f}}, 44100.0f, mono, 1);
  frames = 512;
  ASSERT_EQ(lp.ProcessBlock({mono.data()}, &frames), 0);
  EXPECT_EQ(FirstDifference(mono, want), want.size());
}

// ---- Tables and names -------------------------------------------------------

TEST(BiquadEffectParams, TablesLabelsAndNames) {
  using Row = ondrel_test::ParamRow;
  const Row freq = {"Frequency", 10, 20, 22050, "20.0 Hz"},
            lpFreq = {"Frequency", 20, 20, 22050, "20.0 Hz"};
  const Row q = {"Q", 0.001f, 1, 40, "1"}, hpQ = {"Q", 0.1f, 1, 40, "1"};
  const Row low = {"LowEdge", 10, 20, 22050, "20.0 Hz"},
            high = {"HighEdge", 10, 20, 22050, "20.0 Hz"};
  const Row bpHigh = {"HighEdge", 11, 20, 22050, "20.0 Hz"}, gain = {"Gain", -24, 0, 24, "+0.0 dB"};
  struct Effect {
    ONDREL_EFFECT_TYPE type;
    const char* en;
    const char* zh;
    std::vector<Row> params;
  };
  const Effect effects[] = {
      {ONDREL2::EFFECT_LP_FILTER, "HighCutFilter", "高切（低通）滤波器", {lpFreq, q}},
      {ONDREL2::EFFECT_HP_FILTER, "LowCutFilter", "低切（高通）滤波器", {freq, hpQ}},
      {ONDREL2::EFFECT_BP_FILTER, "BandPassFilter", "带通滤波器", {low, bpHigh}},
      {ONDREL2::EFFECT_NT_FILTER, "NotchFilter", "Notch带通滤波器", {low, high}},
      {ONDREL2::EFFECT_LS_FILTER, "LowShelfFilter", "LowShelf滤波器", {freq, q, gain}},
      {ONDREL2::EFFECT_HS_FILTER, "HighShelfFilter", "HighShelf滤波器", {freq, q, gain}},
      {ONDREL2::EFFECT_PK_FILTER, "BellFilter", "Bell滤波器", {low, high, gain}},
      {ONDREL2::EFFECT_AP_FILTER, "AllPassFilter", "AllPass滤波器", {freq, q}},
  };
  const std::map<std::string, std::string> zhLabels = {{"Frequency", "频率"},
                                                       {"LowEdge", "低边"},
                                                       {"HighEdge", "高边"},
                                                       {"Gain", "增益"},
                                                       {"Q", "Q"}};
  char buf[256];
  for (const Effect& row : effects) {
    AEffect* fx = ondrel_test::NewEffect(row.type);
    ASSERT_NE(fx, nullptr);
    ONDREL2::AudioEffect* obj = fx->object;
    ondrel_test::ExpectParams(*obj, row.params);
    for (size_t i = 0; i < row.params.size(); ++i) {
      obj->GetParamLabel(static_cast<int>(i), buf);
      EXPECT_EQ(zhLabels.at(row.params[i].name), buf) << row.en;
    }
    EXPECT_STREQ(obj->GetEffectName(buf), row.zh);
    ONDREL2::ondrel_set_locale("en", "US");
    EXPECT_STREQ(obj->GetEffectName(buf), row.en);
    ONDREL2::ondrel_set_locale("zh", "CN");
    ONDREL2::ondrel_destroy_effect(fx);
  }
}

}  // namespace
