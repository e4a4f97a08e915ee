// Fixed-band equaliser: exact output against a scalar model of the band
// recursion, flat pass-through, band bypass at half the rate, names, and the
// magnitude at each band centre against the closed-form response.
#include "effects/eq/eqfb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using ONDREL2::IIR_EQ_FIXED_BANDS::IirEQ10Effect;
using ONDREL2::IIR_EQ_FIXED_BANDS::IirEQ30Effect;
using ondrel_test::FirstDifference;

// ---- Scalar model, written from the band formulas -------------------------

struct ModelBand {
  bool active = false;
  float fb1 = 0, fb2 = 0, in = 0, z2 = 0, gain = 0, s1 = 0, s2 = 0;
};

ModelBand ModelDesign(float freq, float width, int rate, float gainDb) {
  ModelBand b;
  if (std::fabs(gainDb) < 0.001f || 2.0f * freq >= static_cast<float>(rate)) return b;
  b.active = true;
  b.gain = static_cast<float>(std::pow(10.0, static_cast<double>(gainDb / 20.0f)) - 1.0);
  const float w = static_cast<float>(static_cast<double>(freq) * 6.283185307179586 / rate);
  const double t = std::tan(static_cast<double>(w * width * 0.5f));
  const float k = static_cast<float>((1.0 - t) / (t + 1.0));
  const uint32_t bits = 0xBF80A3D7u;  // the zero pair just off the unit circle
  std::memcpy(&b.z2, &bits, 4);
  b.fb1 = static_cast<float>(std::cos(static_cast<double>(w))) * (k + 1.0f);
  b.fb2 = -k;
  b.in = (1.0f - k) * 0.5f;
  return b;
}

std::vector<float> ModelRun(const std::vector<float>& freqs, float width, int rate,
                            const std::vector<float>& gainsDb, const std::vector<float>& x,
                            int channels) {
  std::vector<std::vector<ModelBand>> bands(static_cast<size_t>(channels));
  for (auto& ch : bands)
    for (size_t b = 0; b < freqs.size(); ++b)
      ch.push_back(ModelDesign(freqs[b], width, rate, gainsDb[b]));
  std::vector<float> y = x;
  for (size_t i = 0; i < y.size(); ++i) {
    float v = y[i];
    for (ModelBand& b : bands[i % static_cast<size_t>(channels)]) {
      if (!b.active) continue;
      float w = b.in * v + b.s1 * b.fb1;
      w = w + b.fb2 * b.s2;
      v = v + (b.z2 * b.s2 + w) * b.gain;
      b.s2 = b.s1;
      b.s1 = w;
    }
    y[i] = v;
  }
  return y;
}

const std::vector<float> kTenBands = {31.25f,  62.5f,   125.0f,  250.0f,  500.0f,
                                      1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};

std::vector<float> ThirtyBands() {
  std::vector<float> f;
  const double ratio = std::pow(1378.125, 1.0 / 30.0);
  double v = 16.0;
  for (int i = 0; i < 30; ++i, v *= ratio) f.push_back(static_cast<float>(v));
  return f;
}

// ---- Streams through an instance -------------------------------------------

TEST(EqfbStream, MatchesScalarModelAndBypassesFlatBands) {
  struct Case {
    ONDREL2::ONDREL_EFFECT_TYPE type;
    std::vector<float> freqs;
    float rate;
    float q;
    std::vector<float> gains;
    bool passes;  // every band bypassed: the input bit for bit
  };
  std::vector<float> thirty(30), nearlyFlat(30), top(10, 0.0f);
  for (size_t b = 0; b < 30; ++b) {
    thirty[b] = std::sin(static_cast<float>(b) * 1.7f) * 15.0f;
    nearlyFlat[b] = (b % 2 ? 1 : -1) * 0.0009f;  // within 0.001 dB of flat
  }
  top[9] = 12.0f;
  const std::vector<Case> cases = {
      {ONDREL2::EFFECT_IIR_EQ10,
       kTenBands,
       44100.0f,
       0.7f,
       {6.0f, -4.0f, 3.0f, 0.0f, -12.0f, 8.0f, 0.5f, -2.0f, 5.0f, 10.0f},
       false},
      {ONDREL2::EFFECT_IIR_EQ10,
       kTenBands,
       96000.0f,
       1.22474492f,
       {-18.0f, 18.0f, -18.0f, 18.0f, 0.0f, 0.0f, 3.0f, -3.0f, 12.0f, -12.0f},
       false},
      {ONDREL2::EFFECT_IIR_EQ30, ThirtyBands(), 48000.0f, 1.1f, thirty, false},
      {ONDREL2::EFFECT_IIR_EQ10, kTenBands, 44100.0f, 1.22474492f, std::vector<float>(10), true},
      {ONDREL2::EFFECT_IIR_EQ30, ThirtyBands(), 48000.0f, 0.3f, nearlyFlat, true},
      // The 16 kHz band falls silent at 32 kHz (2 * 16000 >= 32000).
      {ONDREL2::EFFECT_IIR_EQ10, kTenBands, 32000.0f, 1.22474492f, top, true},
  };
  const std::vector<float> x = ondrel_test::TestSignal(9000, 2, 44100.0f);
  for (const Case& c : cases) {
    ONDREL2::AEffect* fx = ondrel_test::NewEffect(c.type, {{"Q", c.q}});
    for (size_t b = 0; b < c.gains.size(); ++b)
      ondrel_test::SetParamAt(fx, static_cast<int>(b) + 1, c.gains[b]);
    const auto r = ondrel_test::RunStream(fx, c.rate, 2, x);
    ASSERT_EQ(r.status, 0);
    const std::vector<float> want = ModelRun(c.freqs, c.q, static_cast<int>(c.rate), c.gains, x, 2);
    EXPECT_EQ(FirstDifference(r.output, want), want.size())
        << "type " << c.type << " at " << c.rate;
    EXPECT_EQ(FirstDifference(r.output, x) == x.size(), c.passes) << "type " << c.type;
  }

  // Thirty bands at 22050 Hz: from 13618 Hz upward bypassed, 10702 Hz active.
  IirEQ30Effect eq;
  eq.SetSampleRate(22050.0f);
  for (int b = 0; b < 30; ++b) eq.SetParam(b + 1, 6.0f);
  eq.UpdateParams();
  ASSERT_EQ(eq.filters.size(), 60u);
  for (size_t i = 0; i < 60; ++i)
    EXPECT_EQ(eq.filters[i]->bypass != 0, i / 2 >= 28) << "band " << i / 2;
}

// Steady-state gain of a sine at `freq` through one band at `gainDb`,
// measured by a least-squares fit, against |1 + g H(e^jw)| of the designed
// recursion.
TEST(EqfbBands, MagnitudeAtEachCentreMatchesClosedForm) {
  set_xlog_level(7);
  const int rate = 44100;
  for (float gainDb : {12.0f, -12.0f}) {
    for (size_t band = 0; band < kTenBands.size(); ++band) {
      IirEQ10Effect eq;
      eq.SetChannels(1, 0);
      eq.SetParam(static_cast<int>(band) + 1, gainDb);
      eq.UpdateParams();
      std::vector<float> y(40 * 1024);
      const double w = 2.0 * 3.141592653589793 * kTenBands[band] / rate;
      for (size_t n = 0; n < y.size(); ++n) y[n] = static_cast<float>(0.25 * std::sin(w * n));
      for (size_t b = 0; b < y.size(); b += 1024) {
        int32_t frames = 1024;
        ASSERT_EQ(eq.ProcessBlock({y.data() + b}, &frames), 0);
      }
      // Fit a sin + b cos over the last 16384 samples.
      double ss = 0, cc = 0, sc = 0, ys = 0, yc = 0;
      for (size_t n = y.size() - 16384; n < y.size(); ++n) {
        const double s = std::sin(w * n), c = std::cos(w * n);
        ss += s * s;
        cc += c * c;
        sc += s * c;
        ys += y[n] * s;
        yc += y[n] * c;
      }
      const double det = ss * cc - sc * sc;
      const double a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
      const double measuredDb = 20.0 * std::log10(std::hypot(a, b) / 0.25);

      const ModelBand m = ModelDesign(kTenBands[band], 1.22474492f, rate, gainDb);
      const std::complex<double> z1 = std::polar(1.0, -w), z2 = z1 * z1;
      const std::complex<double> h =
          static_cast<double>(m.in) * (1.0 + static_cast<double>(m.z2) * z2) /
          (1.0 - static_cast<double>(m.fb1) * z1 - static_cast<double>(m.fb2) * z2);
      const double closedDb = 20.0 * std::log10(std::abs(1.0 + static_cast<double>(m.gain) * h));
      EXPECT_NEAR(measuredDb, closedDb, 0.01) << kTenBands[band] << " Hz at " << gainDb << " dB";
      // From 250 Hz up a band reaches its nominal gain at its centre; below,
      // the zero pair just off the unit circle keeps cuts shallower.
      if (kTenBands[band] >= 250.0f) {
        EXPECT_NEAR(closedDb, gainDb, 0.25) << kTenBands[band] << " Hz at " << gainDb << " dB";
      }
    }
  }
}

TEST(EqfbParams, BandNamesSlidersAndTexts) {
  ondrel_test::InitQuiet();
  IirEQ10Effect eq10;
  IirEQ30Effect eq30;
  // Band names round the centre to the nearest hertz.
  const std::vector<const char*> names10 = {"31 Hz",   "63 Hz",   "125 Hz",  "250 Hz",  "500 Hz",
                                            "1000 Hz", "2000 Hz", "4000 Hz", "8000 Hz", "16000 Hz"};
  const std::vector<const char*> names30 = {
      "16 Hz",   "20 Hz",   "26 Hz",   "33 Hz",    "42 Hz",    "53 Hz",   "68 Hz",   "86 Hz",
      "110 Hz",  "140 Hz",  "178 Hz",  "227 Hz",   "288 Hz",   "367 Hz",  "467 Hz",  "594 Hz",
      "756 Hz",  "962 Hz",  "1224 Hz", "1557 Hz",  "1981 Hz",  "2521 Hz", "3208 Hz", "4082 Hz",
      "5195 Hz", "6610 Hz", "8411 Hz", "10702 Hz", "13618 Hz", "17329 Hz"};
  for (const auto* names : {&names10, &names30}) {
    ONDREL2::AudioEffect& eq = names == &names10 ? static_cast<ONDREL2::AudioEffect&>(eq10) : eq30;
    ASSERT_EQ(eq.params.size(), names->size() + 1);
    for (size_t b = 0; b < names->size(); ++b) EXPECT_STREQ(eq.params[b + 1].name, (*names)[b]);
  }

  // Band gains move linearly in gain on each side of 0 dB.
  eq30.SetParamNormalized(7, 0.75f);
  const float top = static_cast<float>(std::pow(10.0, 18.0 / 20.0));
  EXPECT_NEAR(eq30.GetParam(7), 20.0 * std::log10((top - 1.0) * 0.5 + 1.0), 1e-3);
  EXPECT_NEAR(eq30.GetParamNormalized(7), 0.75f, 1e-5);

  // French has no name of its own: the English one.
  char buf[128];
  const char* locales[][4] = {{"zh", "CN", "10段均衡", "30段均衡"},
                              {"ja", "JP", "10バンド・イコライザー", "30バンド・イコライザー"},
                              {"fr", "FR", "10 Bands EQ", "30 Bands EQ"}};
  for (const auto& l : locales) {
    ONDREL2::ondrel_set_locale(l[0], l[1]);
    EXPECT_STREQ(eq10.GetEffectName(buf), l[2]) << l[0];
    EXPECT_STREQ(eq30.GetEffectName(buf), l[3]) << l[0];
  }
  ONDREL2::ondrel_set_locale("zh", "CN");
}

}  // namespace
