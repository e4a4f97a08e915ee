#include "effects/reverb/reverb_unit.h"

#include <algorithm>
#include <cmath>

#include "ondrel.h"

namespace ONDREL2 {
namespace ALREVERB {
namespace {

constexpr double kTwoPi = 6.283185307179586;
// -60 dB, taken as a float and widened: the decay reference of every
// feedback gain.
const double kDecayGain = static_cast<double>(0.001f);
constexpr float kSpeedOfSound = 343.3f;  // metres per second

// Gain of a feedback path of `t` seconds that decays by 60 dB in `d`
// seconds. A zero decay time gives 0 (also for t = 0, where the exponent
// would be undefined).
double Decay(float t, float d) {
  const float e = t / d;
  if (std::isnan(e)) return 0.0;
  return std::pow(kDecayGain, static_cast<double>(e));
}

// The longest line a setting may ask for. No value inside the parameter
// ranges needs more than a second; a value far outside them (a damaged or
// hostile stream) would otherwise reserve up to 2 GB for one line.
constexpr float kLongestLineSeconds = 8.0f;

// Sets `line` to the truncated product rate * seconds. A product that is not
// a usable length (negative, NaN, beyond a ring or the longest line) fails
// like an allocation.
int32_t SizeLine(DelayLine& line, int32_t rate, float seconds) {
  const float samples = static_cast<float>(rate) * seconds;
  if (!(samples >= 0.0f && samples < 536870912.0f && seconds <= kLongestLineSeconds))
    return ONDREL_E_NOMEM;
  return line.Resize(static_cast<int32_t>(samples));
}

// Shelf design: S = 0.75, A is the linear gain itself (not its root).
// `slopeTerm` is 1/S - 1, which the low shelf takes as a rounded float.
struct ShelfTerms {
  double c, k, p, m, A;
};

ShelfTerms ShelfOf(float f0, float gain, int32_t rate, double slopeTerm) {
  const float A = std::max(gain, 1e-5f);
  const float w0 = static_cast<float>(static_cast<double>(f0) * kTwoPi / rate);
  const double c = std::cos(static_cast<double>(w0));
  const double a = static_cast<double>(A);
  const float alpha = static_cast<float>(std::sqrt((1.0 / a + a) * slopeTerm + 2.0) *
                                         (std::sin(static_cast<double>(w0)) * 0.5));
  const double k = static_cast<double>(alpha) * (std::sqrt(a) * 2.0);
  return {c, k, static_cast<double>(A + 1.0f), static_cast<double>(A - 1.0f), a};
}

void DesignHighShelf(Shelf& s, float f0, float gain, int32_t rate) {
  s.enabled = static_cast<float>(rate / 2) >= f0;
  const ShelfTerms t = ShelfOf(f0, gain, rate, 1.0 / 0.75 - 1.0);
  const double a0 = static_cast<float>(t.k + (t.p - t.c * t.m));
  s.a1 = static_cast<float>(2.0 * (t.m - t.c * t.p) / a0);
  s.a2 = static_cast<float>(((t.p - t.c * t.m) - t.k) / a0);
  s.b0 = static_cast<float>(((t.p + t.c * t.m) + t.k) * t.A / a0);
  s.b1 = static_cast<float>(-2.0 * t.A * (t.c * t.p + t.m) / a0);
  s.b2 = static_cast<float>(((t.p + t.c * t.m) - t.k) * t.A / a0);
}

void DesignLowShelf(Shelf& s, float f0, float gain, int32_t rate) {
  s.enabled = true;
  const ShelfTerms t = ShelfOf(f0, gain, rate, static_cast<double>(0.33333337f));
  const double a0 = static_cast<float>(t.k + (t.p + t.c * t.m));
  s.a1 = static_cast<float>(-2.0 * (t.m + t.c * t.p) / a0);
  s.a2 = static_cast<float>(((t.p + t.c * t.m) - t.k) / a0);
  s.b0 = static_cast<float>(((t.p - t.c * t.m) + t.k) * t.A / a0);
  s.b1 = static_cast<float>(static_cast<double>(static_cast<float>(t.A + t.A)) * (t.m - t.c * t.p) /
                            a0);
  s.b2 = static_cast<float>(((t.p - t.c * t.m) - t.k) * t.A / a0);
}

// Coefficient of the one-pole low pass in a path of `t` seconds that makes
// the high band decay `ratio` times as fast as the rest; 0 for no damping.
float Damp(const ReverbSettings& s, float ratio, float t) {
  if (ratio >= 1.0f) return 0.0f;
  const double q = Decay(t, s.decay_time * ratio) / Decay(t, s.decay_time);
  double v = q * q;
  if (std::isnan(v) || v >= 0.9999) return 0.0f;
  v = std::max(v, 0.001);
  const double c = std::cos(static_cast<double>(s.lowpass_reference) * kTwoPi / s.sampleRate);
  const double coef =
      ((1.0 - c * v) - std::sqrt(2.0 * v * (1.0 - c) - (1.0 - c * c) * v * v)) / (1.0 - v);
  return static_cast<float>(std::min(coef, 0.98));
}

// Runs one sample through an all-pass record.
inline float AllPassRun(AllPass& a, float z) {
  const float o = a.ap.Read();
  a.ap.Write((o - a.apFeed * z) * a.apFeed + z);
  a.ap.Advance();
  return a.apDecay * o - a.apFeed * z;
}

}  // namespace

int32_t AlreverbUnit::Apply(const ReverbSettings& settings) {
  pending = settings;
  const ReverbSettings& s = pending;
  const int32_t rate = s.sampleRate;

  DesignHighShelf(highShelf, s.lowpass_reference, s.lowpass_gain, rate);
  DesignLowShelf(lowShelf, s.highpass_reference, s.highpass_gain, rate);

  int32_t status = preLine.Resize(1);
  if (status == ONDREL_OK) status = SizeLine(earlyLine, rate, s.early_delay);
  if (status == ONDREL_OK) status = SizeLine(lateLine, rate, s.late_delay);
  if (status != ONDREL_OK) return status;

  // Early reflections.
  static const float kEarlyTimes[4] = {0.0015f, 0.0045f, 0.0135f, 0.0405f};
  early.gain = s.reverbGain * 0.5f * s.early_gain;
  for (int i = 0; i < 4; ++i) {
    status = SizeLine(early.line[i], rate, kEarlyTimes[i]);
    if (status != ONDREL_OK) return status;
    early.coef[i] = static_cast<float>(Decay(kEarlyTimes[i], s.late_delay));
  }

  // High-frequency decay ratio, limited by air absorption over the distance
  // sound travels in the decay time.
  float ratio = s.lowpass_ratio;
  if (s.b_decay_lowpass_limit != 0 && s.lowpass_air_absorption_gain < 1.0f) {
    const double L = std::log(static_cast<double>(s.lowpass_air_absorption_gain)) *
                     static_cast<double>(s.decay_time) / std::log(kDecayGain);
    const double limit = std::fmax(0.1, 1.0 / (L * kSpeedOfSound));
    ratio = static_cast<float>(std::min(static_cast<double>(ratio), limit));
  }

  // Late reverberation.
  static const float kLateTimes[4] = {0.0211f, 0.0311f, 0.0461f, 0.068f};
  static const float kAllPassTimes[4] = {0.0151f, 0.0167f, 0.0183f, 0.02f};
  const float D = s.density * 4.0f + 1.0f;
  const float sqrt3 = static_cast<float>(std::sqrt(3.0));
  const float x = static_cast<float>(std::atan(static_cast<double>(sqrt3)) * s.diffusion);
  const float cx = static_cast<float>(std::cos(static_cast<double>(x)));
  late.mix = static_cast<float>(std::sin(static_cast<double>(x)) / sqrt3) / cx;
  late.gain = s.reverbGain * s.late_gain * cx;
  const double h = Decay(D * 0.041575f, s.decay_time);
  late.feedGain = static_cast<float>(std::sqrt(1.0 - h * h));
  for (int i = 0; i < 4; ++i) {
    const float t = kLateTimes[i] * D;
    status = SizeLine(late.line[i], rate, t);
    if (status != ONDREL_OK) return status;
    late.lpCoef[i] = Damp(s, ratio, t);
    late.allPass[i].apFeed = s.diffusion * s.diffusion * 0.5f;
    late.allPass[i].apDecay = static_cast<float>(Decay(kAllPassTimes[i], s.decay_time));
    status = SizeLine(late.allPass[i].ap, rate, kAllPassTimes[i]);
    if (status != ONDREL_OK) return status;
    late.lineCoef[i] = static_cast<float>(Decay(t, s.decay_time) * cx);
  }

  // Echo.
  echo.coef = static_cast<float>(Decay(s.echo_time, s.decay_time));
  echo.feedGain = static_cast<float>(std::sqrt(1.0 - static_cast<double>(echo.coef) * echo.coef));
  status = SizeLine(echo.line, rate, s.echo_time);
  if (status != ONDREL_OK) return status;
  echo.apFeed = s.diffusion * s.diffusion * 0.5f;
  echo.apDecay = static_cast<float>(Decay(0.0133f, s.decay_time));
  status = SizeLine(echo.ap, rate, 0.0133f);
  if (status != ONDREL_OK) return status;
  echo.lpCoef = Damp(s, ratio, s.echo_time);
  echo.gain = s.reverbGain * s.late_gain * s.echo_depth;
  echo.mix = 1.0f - (1.0f - s.diffusion) * (s.echo_depth * 0.5f);

  // Decorrelation lines for the late network's inputs 1 to 3.
  for (int i = 0; i < 3; ++i) {
    const float t = static_cast<float>((1 << i) * 0.15 * D * 0.0211);
    status = SizeLine(decoLine[i], rate, t);
    if (status != ONDREL_OK) return status;
  }

  lateFeedGain = late.feedGain;
  applied = pending;
  return ONDREL_OK;
}

void AlreverbUnit::Process(float* left, float* right, int32_t frames) {
  const bool stereo = applied.channelsIn == 2;
  for (int32_t n = 0; n < frames; ++n) {
    float in = stereo ? (left[n] + right[n]) * 0.125f : left[n] * 0.25f;
    if (highShelf.enabled) in = highShelf.Run(in);
    in = lowShelf.Run(in);

    preLine.Write(in);
    const float a = preLine.Read();
    preLine.Advance();
    earlyLine.Write(a);
    const float e = earlyLine.Read();
    earlyLine.Advance();

    // Early reflections: four lines around one node.
    float v[4], E[4];
    for (int i = 0; i < 4; ++i) v[i] = early.line[i].Read() * early.coef[i];
    const float f = ((v[0] + v[1] + v[2]) + v[3]) * 0.5f + e;
    for (int i = 0; i < 4; ++i) {
      const float w = f - v[i];
      early.line[i].Write(w);
      early.line[i].Advance();
      E[i] = w * early.gain;
    }

    // Late feed, decorrelated three ways.
    lateLine.Write(e);
    const float l = lateLine.Read();
    lateLine.Advance();
    float F[4];
    F[0] = lateFeedGain * l;
    for (int i = 0; i < 3; ++i) {
      decoLine[i].Write(F[0]);
      F[i + 1] = decoLine[i].Read();
      decoLine[i].Advance();
    }

    // Late network. Line i feeds all-pass record (2, 0, 3, 1)[i]: the
    // pairing is crossed on purpose and shapes the room's colour.
    float u[4];
    for (int i = 0; i < 4; ++i) {
      u[i] = late.line[i].Read() * late.lineCoef[i] + F[i];
      u[i] = (late.lpState[i] - u[i]) * late.lpCoef[i] + u[i];
      late.lpState[i] = u[i];
    }
    const float p0 = AllPassRun(late.allPass[0], u[2]);
    const float p1 = AllPassRun(late.allPass[1], u[0]);
    const float p2 = AllPassRun(late.allPass[2], u[3]);
    const float p3 = AllPassRun(late.allPass[3], u[1]);
    const float y = late.mix;
    float O[4];
    O[0] = (p1 - p2 + p3) * y + p0;
    O[1] = (p2 - p0 + p3) * y + p1;
    O[2] = (p0 - p1 + p3) * y + p2;
    O[3] = p3 - (p1 + p0 + p2) * y;
    for (int i = 0; i < 4; ++i) {
      late.line[i].Write(O[i]);
      late.line[i].Advance();
      O[i] *= late.gain;
    }

    // Echo.
    const float t = echo.line.Read() * echo.coef;
    for (int i = 0; i < 4; ++i) O[i] = echo.mix * O[i] + t * echo.gain;
    float x = echo.feedGain * l + t;
    x = (echo.lpState - x) * echo.lpCoef + x;
    echo.lpState = x;
    const float d = x * echo.apFeed;
    const float o = echo.ap.Read();
    echo.ap.Write((o - d) * echo.apFeed + x);
    echo.ap.Advance();
    echo.line.Write(echo.apDecay * o - d);
    echo.line.Advance();

    if (stereo) {
      left[n] += (E[0] + O[0]) * 8.0f;
      right[n] += (E[1] + O[1]) * 8.0f;
    } else {
      left[n] += (E[2] + O[2]) * 4.0f;
    }
  }
}

void AlreverbUnit::Reset() {
  highShelf.Clear();
  lowShelf.Clear();
  preLine.Clear();
  earlyLine.Clear();
  lateLine.Clear();
  for (DelayLine& line : early.line) line.Clear();
  for (int i = 0; i < 4; ++i) {
    late.line[i].Clear();
    late.allPass[i].ap.Clear();
    late.lpState[i] = 0.0f;
  }
  echo.line.Clear();
  echo.ap.Clear();
  echo.lpState = 0.0f;
  for (DelayLine& line : decoLine) line.Clear();
}

}  // namespace ALREVERB
}  // namespace ONDREL2
