#include "effects/two2six/two2six.h"
#include "framework/alloc.h"

#include <cmath>
#include <new>

namespace ONDREL2 {
namespace TWOTOSIX {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr int32_t kBlock = 1024;

// Weights of the mix: square roots of 0.125 (centre in float, LFE), 0.19
// (own side into a back channel) and 0.06 (other side).
constexpr float kCentre = 0.35355338f;
constexpr double kLfe = 0.3535533905932738;
constexpr double kOwnSide = 0.43588989435406733;
constexpr double kOtherSide = 0.2449489742783178;

// 2 pi times 50 Hz: the low end of the sweep; the top is 16 times that.
constexpr double kSweepLow = 314.1592653589793;

const ParamDesc kParams[] = {
    {"Enabled", false, 0.0f, kSwitchMax, kSwitchMax, 1.0f, 0.0f, &FormatOnOff, 4, 3, nullptr,
     nullptr, false},
    {""},
};

// The shared denominator and feedback of both shapes. The square root of 2
// is rounded through a float, on purpose: the responses are tuned with it.
Crossover DesignCommon(double corner, int32_t rate, double* wc4, double* k4, double* d) {
  const double wc = 2.0 * kPi * corner;
  const double k = wc / std::tan(kPi * corner / static_cast<double>(rate));
  const double wc2 = wc * wc, k2 = k * k;
  *wc4 = wc2 * wc2;
  *k4 = k2 * k2;
  const double s = static_cast<double>(static_cast<float>(std::sqrt(2.0)));
  const double a = wc2 * wc * s * k;
  const double b = k2 * k * s * wc;
  *d = 2.0 * a + 4.0 * wc2 * k2 + *k4 + 2.0 * b + *wc4;
  Crossover c;
  c.a1 = 4.0 * (a + *wc4 - *k4 - b) / *d;
  c.a2 = (6.0 * *wc4 - 8.0 * wc2 * k2 + 6.0 * *k4) / *d;
  c.a3 = 4.0 * (*wc4 - a + b - *k4) / *d;
  c.a4 = (*k4 - 2.0 * a + *wc4 - 2.0 * b + 4.0 * wc2 * k2) / *d;
  return c;
}

inline double Run(const Crossover& c, CrossoverHistory& h, double x) {
  const double y = c.b0 * x + c.b1 * h.x1 + c.b2 * h.x2 + c.b3 * h.x3 + c.b4 * h.x4 - c.a1 * h.y1 -
                   c.a2 * h.y2 - c.a3 * h.y3 - c.a4 * h.y4;
  h.x4 = h.x3;
  h.x3 = h.x2;
  h.x2 = h.x1;
  h.x1 = x;
  h.y4 = h.y3;
  h.y3 = h.y2;
  h.y2 = h.y1;
  h.y1 = y;
  return y;
}

inline double Run(SweptAllpass& u, double x) {
  const double a = (1.0 - u.w) / (1.0 + u.w);
  for (auto& stage : u.stages) {
    const double y = (x + stage[1]) * a - stage[0];
    stage[0] = x;
    stage[1] = y;
    x = y;
  }
  u.last = x;
  u.w = u.w * u.factor;
  if (u.w > u.wMax)
    u.factor = 1.0 / u.step;
  else if (u.w < u.wMin)
    u.factor = u.step;
  return u.invert == 1 ? -x : x;
}

}  // namespace

Crossover DesignLowPass(double corner, int32_t rate) {
  double wc4 = 0.0, k4 = 0.0, d = 1.0;
  Crossover c = DesignCommon(corner, rate, &wc4, &k4, &d);
  c.b0 = c.b4 = wc4 / d;
  c.b1 = c.b3 = 4.0 * wc4 / d;
  c.b2 = 6.0 * wc4 / d;
  return c;
}

Crossover DesignHighPass(double corner, int32_t rate) {
  double wc4 = 0.0, k4 = 0.0, d = 1.0;
  Crossover c = DesignCommon(corner, rate, &wc4, &k4, &d);
  c.b0 = c.b4 = k4 / d;
  c.b1 = c.b3 = -4.0 * k4 / d;
  c.b2 = 6.0 * k4 / d;
  return c;
}

TwotoSix::TwotoSix() {
  SetEffectName("zh", "Two to Six");
  SetEffectName("en", "Two to Six");
  SetParamTable(kParams);
  SetParamLabels("Enabled", "zh", "Enabled", "en", "", nullptr);
  effectType = EFFECT_TWO_TO_SIX;
  inChannels = GetChannels();
  outChannels = GetOutChannels();
  Initialise();
}

TwotoSix::~TwotoSix() = default;

AudioEffect* TwotoSix::CreateInstance() { return NewObject<TwotoSix>(); }

void TwotoSix::SetChannels(int32_t chns, uint64_t mask) {
  // The output keeps the input's mask; only the count becomes six.
  AudioEffect::SetChannels(chns, mask);
  SetOutChannels(6);
}

int32_t TwotoSix::GetBlockSize() { return kBlock; }

// A flush keeps the filters, the sweep and the delays running.
void TwotoSix::ClearBuffers() { ResetDsp(); }

int32_t TwotoSix::UpdateParams() {
  GetScriptedParamByName("Enabled");  // read for its script; the upmix always runs
  return Initialise();
}

int32_t TwotoSix::Initialise() {
  const float hostRate = GetSampleRate();
  rate = hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int32_t>(hostRate) : 0;
  if (rate < 2) return ONDREL_E_INVALID;
  // At 40 kHz and below the 20 kHz corner is at or beyond Nyquist; the
  // design is used as it comes out.
  lowPassAt120 = DesignLowPass(120.0, rate);
  lowPassAt20000 = DesignLowPass(20000.0, rate);
  highpass70 = DesignHighPass(70.0, rate);
  highpass100 = DesignHighPass(100.0, rate);
  lfeLow = centreLow = centreHigh = CrossoverHistory();
  for (CrossoverHistory& h : backHigh) h = CrossoverHistory();
  const double step = std::pow(16.0, 0.1 / static_cast<double>(rate / 2));
  for (int32_t i = 0; i < 4; ++i) {
    SweptAllpass& u = sweeps[i];
    u = SweptAllpass();
    u.step = u.factor = step;
    u.w = u.wMin = kSweepLow / static_cast<double>(rate);
    u.wMax = 16.0 * kSweepLow / static_cast<double>(rate);
    u.invert = (i % 2 == 0) ? 1 : 0;
  }
  const size_t length = static_cast<size_t>(static_cast<int32_t>(rate / 1000.0 * 10.0));
  delayLeft.assign(length, 0.0);
  delayRight.assign(length, 0.0);
  delayPos = 0;
  return ONDREL_OK;
}

int32_t TwotoSix::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t n = *frames;
  if (n < kBlock || bufs.size() < 6 || rate < 2) return ONDREL_OK;
  const size_t length = delayLeft.size();
  for (int32_t i = 0; i < n; ++i) {
    // Every output of frame i is computed from frame i's input before any
    // channel is written, so the upmix runs in place.
    const float lf = bufs[0][i], rf = bufs[1][i];
    const double l = lf, r = rf;

    const double centre =
        Run(lowPassAt20000, centreLow,
            Run(highpass70, centreHigh, static_cast<double>(rf * kCentre + lf * kCentre)));

    double backLeft = Run(sweeps[0], Run(highpass100, backHigh[0], l * kOwnSide)) +
                      Run(sweeps[1], Run(highpass100, backHigh[1], r * kOtherSide));
    double backRight = Run(sweeps[2], Run(highpass100, backHigh[2], l * kOtherSide)) +
                       Run(sweeps[3], Run(highpass100, backHigh[3], r * kOwnSide));
    if (length > 0) {
      const double outLeft = delayLeft[delayPos], outRight = delayRight[delayPos];
      delayLeft[delayPos] = backLeft;
      delayRight[delayPos] = backRight;
      if (++delayPos == length) delayPos = 0;
      backLeft = outLeft;
      backRight = outRight;
    }

    const double lfe = Run(lowPassAt120, lfeLow, r * kLfe + l * kLfe);

    bufs[0][i] = static_cast<float>(l * 0.5);
    bufs[1][i] = static_cast<float>(r * 0.5);
    bufs[2][i] = static_cast<float>(centre);
    bufs[3][i] = static_cast<float>(lfe);
    bufs[4][i] = static_cast<float>(backLeft);
    bufs[5][i] = static_cast<float>(backRight);
  }
  return ONDREL_OK;
}

}  // namespace TWOTOSIX
}  // namespace ONDREL2
