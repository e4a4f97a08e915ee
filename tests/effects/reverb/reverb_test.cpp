// The reverb against a double-precision model written from its rules, and
// its pass-through at zero gain.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/reverb/reverb_unit.h"

namespace {

using namespace ondrel_test;
using ONDREL2::EFFECT_ALREVERB;

// A lively room: every stage and both shelves on, damping active.
const Settings kRoom = {{"density", 1.0f},
                        {"diffusion", 0.8f},
                        {"reverbGain", 0.5f},
                        {"lowpass_gain", 0.6f},
                        {"highpass_gain", 0.9f},
                        {"decay_time", 1.5f},
                        {"lowpass_ratio", 0.7f},
                        {"early_gain", 0.3f},
                        {"late_gain", 1.2f},
                        {"lowpass_reference", 4000.0f},
                        {"highpass_reference", 200.0f},
                        {"echo_time", 0.1137f},
                        {"echo_depth", 0.3f},
                        {"early_delay", 0.0213f},
                        {"late_delay", 0.0317f},
                        {"lowpass_air_absorption_gain", 0.99f}};

float Get(const char* name) {
  for (const auto& kv : kRoom)
    if (std::string(kv.first) == name) return kv.second;
  return 0.0f;
}

// Double-precision model of one stereo unit. Line lengths are the truncated
// float products the rules fix; everything else is computed in double.
struct Line {
  std::vector<double> v;
  size_t at = 0;
  explicit Line(float seconds) : Line(static_cast<size_t>(44100.0f * seconds)) {}
  explicit Line(size_t length) : v(length) {}
  double Tap() const { return v[at]; }  // what was put `length` samples ago
  void Put(double x) {
    v[at] = x;
    at = (at + 1) % v.size();
  }
};

std::vector<float> ModelStereo(const std::vector<float>& x, int rate) {
  const double g = 0.001, pi2 = 2.0 * M_PI;
  const double dec = Get("decay_time"), diff = Get("diffusion"), gain = Get("reverbGain");
  auto decay = [&](double t, double d) { return std::pow(g, t / d); };
  double ratio = Get("lowpass_ratio");
  const double L =
      std::log(static_cast<double>(Get("lowpass_air_absorption_gain"))) * dec / std::log(g);
  ratio = std::min(ratio, std::max(0.1, 1.0 / (L * 343.3)));
  auto damp = [&](double t) {
    double v = std::pow(decay(t, dec * ratio) / decay(t, dec), 2.0);
    if (v >= 0.9999) return 0.0;
    v = std::max(v, 0.001);
    const double c = std::cos(Get("lowpass_reference") * pi2 / rate);
    return std::min(0.98,
                    ((1 - c * v) - std::sqrt(2 * v * (1 - c) - (1 - c * c) * v * v)) / (1 - v));
  };
  // Shelves: cookbook-style with A the linear gain, S = 0.75.
  struct Biquad {
    double b0, b1, b2, a1, a2, x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    double Run(double x) {
      const double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
      x2 = x1, x1 = x, y2 = y1, y1 = y;
      return y;
    }
  };
  auto shelf = [&](double f0, double A, bool high) {
    const double w = f0 * pi2 / rate, c = std::cos(w);
    const double k =
        std::sqrt((1 / A + A) * (1 / 0.75 - 1) + 2) * std::sin(w) * 0.5 * 2 * std::sqrt(A);
    const double p = A + 1, m = A - 1, s = high ? 1 : -1;
    const double a0 = k + (p - s * c * m);
    return Biquad{(p + s * c * m + k) * A / a0, -2 * s * A * (m + s * c * p) / a0,
                  (p + s * c * m - k) * A / a0, 2 * s * (m - s * c * p) / a0,
                  (p - s * c * m - k) / a0};
  };
  Biquad hs = shelf(Get("lowpass_reference"), Get("lowpass_gain"), true);
  Biquad ls = shelf(Get("highpass_reference"), Get("highpass_gain"), false);

  const float earlyT[4] = {0.0015f, 0.0045f, 0.0135f, 0.0405f};
  const float lateT[4] = {0.0211f, 0.0311f, 0.0461f, 0.068f};
  const float apT[4] = {0.0151f, 0.0167f, 0.0183f, 0.02f};
  const float D = Get("density") * 4.0f + 1.0f;
  Line pre(size_t{1}), earlyL(Get("early_delay")), lateL(Get("late_delay"));
  std::vector<Line> el, ll, ap, deco;
  double ec[4], lc[4], lp[4], ls_[4] = {}, apd[4];
  const double xa = std::atan(std::sqrt(3.0)) * diff, cx = std::cos(xa);
  const double mix = std::sin(xa) / std::sqrt(3.0) / cx, apFeed = diff * diff * 0.5;
  for (int i = 0; i < 4; ++i) {
    el.emplace_back(earlyT[i]);
    ec[i] = decay(earlyT[i], Get("late_delay"));
    const float t = lateT[i] * D;
    ll.emplace_back(t);
    ap.emplace_back(apT[i]);
    lc[i] = decay(t, dec) * cx;
    lp[i] = damp(t);
    apd[i] = decay(apT[i], dec);
  }
  for (int i = 0; i < 3; ++i) deco.emplace_back(static_cast<float>((1 << i) * 0.15 * D * 0.0211));
  const double h = decay(D * 0.041575, dec), feed = std::sqrt(1 - h * h);
  const double lateGain = gain * Get("late_gain") * cx, earlyGain = gain * 0.5 * Get("early_gain");
  const double et = Get("echo_time"), depth = Get("echo_depth");
  const double ecoef = decay(et, dec), efeed = std::sqrt(1 - ecoef * ecoef), elp = damp(et);
  const double egain = gain * Get("late_gain") * depth, emix = 1 - (1 - diff) * depth * 0.5;
  const double eapd = decay(0.0133, dec);
  Line echoL(Get("echo_time")), echoAp(0.0133f);
  double elpState = 0;

  std::vector<float> y(x.size());
  for (size_t n = 0; n < x.size() / 2; ++n) {
    const double in = ls.Run(hs.Run((double(x[2 * n]) + x[2 * n + 1]) * 0.125));
    const double a = pre.Tap();
    pre.Put(in);
    const double e = earlyL.Tap();
    earlyL.Put(a);
    double v[4], E[4];
    for (int i = 0; i < 4; ++i) v[i] = el[i].Tap() * ec[i];
    const double f = (v[0] + v[1] + v[2] + v[3]) * 0.5 + e;
    for (int i = 0; i < 4; ++i) el[i].Put(f - v[i]), E[i] = (f - v[i]) * earlyGain;
    const double l = lateL.Tap();
    lateL.Put(e);
    double F[4] = {feed * l};
    for (int i = 0; i < 3; ++i) F[i + 1] = deco[i].Tap(), deco[i].Put(F[0]);
    double u[4];
    for (int i = 0; i < 4; ++i) {
      u[i] = ll[i].Tap() * lc[i] + F[i];
      ls_[i] = u[i] = (ls_[i] - u[i]) * lp[i] + u[i];
    }
    const int feeds[4] = {2, 0, 3, 1};  // all-pass i takes line feeds[i]
    double p[4];
    for (int i = 0; i < 4; ++i) {
      const double z = u[feeds[i]], o = ap[i].Tap();
      ap[i].Put((o - apFeed * z) * apFeed + z);
      p[i] = apd[i] * o - apFeed * z;
    }
    double O[4] = {(p[1] - p[2] + p[3]) * mix + p[0], (p[2] - p[0] + p[3]) * mix + p[1],
                   (p[0] - p[1] + p[3]) * mix + p[2], p[3] - (p[1] + p[0] + p[2]) * mix};
    for (int i = 0; i < 4; ++i) ll[i].Put(O[i]), O[i] *= lateGain;
    const double t = echoL.Tap() * ecoef;
    for (double& o : O) o = emix * o + t * egain;
    double xe = efeed * l + t;
    elpState = xe = (elpState - xe) * elp + xe;
    const double d = xe * apFeed, o = echoAp.Tap();
    echoAp.Put((o - d) * apFeed + xe);
    echoL.Put(eapd * o - d);
    y[2 * n] = static_cast<float>(x[2 * n] + (E[0] + O[0]) * 8);
    y[2 * n + 1] = static_cast<float>(x[2 * n + 1] + (E[1] + O[1]) * 8);
  }
  return y;
}

TEST(Reverb, FollowsDoubleModelOnBurst) {
  // 300 frames of test signal, then 0.4 s of silence: the tail is the
  // reverb alone.
  std::vector<float> x = TestSignal(18000, 2, 44100.0f);
  std::fill(x.begin() + 600, x.end(), 0.0f);
  const StreamResult r = RunStream(NewEffect(EFFECT_ALREVERB, kRoom), 44100.0f, 2, x);
  ASSERT_EQ(r.status, 0);
  const std::vector<float> want = ModelStereo(x, 44100);
  double peakWet = 0;
  for (size_t i = 600; i < want.size(); ++i)
    peakWet = std::max(peakWet, std::fabs(double(want[i])));
  ASSERT_GT(peakWet, 1e-3);  // the tail is really there
  // Float recursion against double: within 1e-4 of the tail's peak.
  EXPECT_LT(MaxError(r.output, want), 1e-4 * peakWet);
}

// reverbGain 0 silences every stage, whatever the other gains.
TEST(Reverb, PassesDryAtZeroGain) {
  Settings silent = kRoom;
  silent.push_back({"reverbGain", 0.0f});
  const std::vector<float> x = TestSignal(3000, 2, 44100.0f);
  const StreamResult r = RunStream(NewEffect(EFFECT_ALREVERB, silent), 44100.0f, 2, x);
  EXPECT_EQ(FirstDifference(r.output, x), x.size());
}

}  // namespace
