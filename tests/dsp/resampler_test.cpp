// Resamplers against references computed here in double: a direct
// evaluation of the windowed sinc for the polyphase converter, sine fits for
// the two-stage converter's pass band, time alignment and stop band, its
// ratio rule and stream length, and its streaming in random pieces against
// one call.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "dsp/resampler.h"
#include "dsp/resampler_ssrc.h"

namespace ONDREL2 {
namespace {

const double kPi = 3.14159265358979323846;

std::vector<float> Noise(size_t n, unsigned seed, float amplitude = 0.5f) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> dist(-amplitude, amplitude);
  std::vector<float> v(n);
  for (float& x : v) x = dist(gen);
  return v;
}

// Least-squares fit of a * sin(w m) + b * cos(w m) over [from, to).
struct SineFit {
  double amplitude;
  double phase;     // of sin(w m + phase)
  double residual;  // rms of what the fit leaves, relative to the amplitude
};

SineFit FitSine(const std::vector<float>& y, size_t stride, size_t channel, double w, size_t from,
                size_t to) {
  double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0;
  for (size_t m = from; m < to; ++m) {
    const double s = std::sin(w * m), c = std::cos(w * m), v = y[m * stride + channel];
    ss += s * s;
    sc += s * c;
    cc += c * c;
    ys += v * s;
    yc += v * c;
  }
  const double det = ss * cc - sc * sc;
  const double a = (ys * cc - yc * sc) / det;
  const double b = (yc * ss - ys * sc) / det;
  double err = 0;
  for (size_t m = from; m < to; ++m) {
    const double e = y[m * stride + channel] - (a * std::sin(w * m) + b * std::cos(w * m));
    err += e * e;
  }
  const double amp = std::hypot(a, b);
  return {amp, std::atan2(b, a), std::sqrt(err / (to - from)) / amp};
}

// The resampler's prototype written out in double: sinc with its corner at
// `cutoff` of the input Nyquist over n = -H..H, Kaiser window with beta 16.
struct DirectSinc {
  long L, M, T, N, start, H;
  double cutoff;
  std::vector<double> h;

  DirectSinc(int inRate, int outRate) {
    const double ratio = double(inRate) / outRate;
    T = (ratio >= 0.5 && ratio <= 2) ? 35 : (ratio >= 0.25 && ratio <= 4) ? 40 : 45;
    long a = inRate, b = outRate;
    while (b) {
      long t = a % b;
      a = b;
      b = t;
    }
    L = outRate / a;
    M = inRate / a;
    cutoff = 1.0;
    if (L < M) {
      cutoff = double(L) / M;
      T = M * T / L;
    }
    N = T * L;
    start = (N % 2 == 0) ? 1 : 0;
    H = (N - start) / 2;
    h.assign(N, 0.0);
    const double i0 = std::cyl_bessel_i(0.0, 16.0);
    for (long i = start; i < N; ++i) {
      const double n = double(i - start - H);
      const double v = n == 0 ? cutoff : L * std::sin(kPi * n * cutoff / L) / (kPi * n);
      const double r = n / (H + 1);
      h[i] = v * std::cyl_bessel_i(0.0, 16.0 * std::sqrt(1 - r * r)) / i0;
    }
  }

  // Input samples the first call spends on filling the half-full history.
  long First() const { return T - (T / 2 + 1); }

  // Output m of one call over x (one channel at a stride): the upsampled
  // time First() * L + m * M convolved with x at multiples of L.
  std::vector<double> Run(const std::vector<float>& x, size_t stride, size_t channel) const {
    const long frames = long(x.size() / stride);
    std::vector<double> y;
    for (long t = First() * L; t < frames * L; t += M) {
      double acc = 0;
      for (long q = std::max(0L, (t - N) / L); q < frames; ++q) {
        const long idx = t - q * L;
        if (idx < 0) break;
        if (idx < N) acc += h[idx] * x[q * stride + channel];
      }
      y.push_back(acc);
    }
    return y;
  }
};

// ---------------------------------------------------------------------------

TEST(CResamplerSrc, MatchesDirectWindowedSincForManyRatePairs) {
  struct Case {
    int in, out, L, M, T;
  };
  const Case cases[] = {
      {44100, 48000, 160, 147, 35}, {96000, 44100, 147, 320, 87}, {48000, 44100, 147, 160, 38},
      {44100, 44100, 1, 1, 35},     {8000, 44100, 441, 80, 45},   {44100, 11025, 1, 4, 160},
      {22050, 44100, 2, 1, 35},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in << " -> " << c.out);
    const DirectSinc ref(c.in, c.out);
    for (int channels : {1, 2}) {
      CResampler_SRC src;
      ASSERT_TRUE(src.Init(c.in, c.out, channels, true));
      const PolyphaseFilter& f = src.Filter();
      EXPECT_EQ(f.Up(), c.L);
      EXPECT_EQ(f.Down(), c.M);
      EXPECT_EQ(f.Taps(), c.T);
      EXPECT_EQ(f.Coefficients().size(), size_t(c.L) * c.T);

      const int frames = 700;
      const std::vector<float> x = Noise(size_t(frames) * channels, 5, 0.9f);
      std::vector<float> y(size_t(frames) * c.L / c.M * channels + 64, 0.0f);
      const int n = src.Process(x.data(), int(x.size()), y.data(), int(y.size()));
      for (int ch = 0; ch < channels; ++ch) {
        const std::vector<double> want = ref.Run(x, channels, ch);
        ASSERT_EQ(size_t(n), want.size() * channels) << "channels " << channels;
        for (size_t m = 0; m < want.size(); ++m)
          ASSERT_NEAR(y[m * channels + ch], want[m], 2e-5)
              << "channels " << channels << " channel " << ch << " frame " << m;
      }
    }
  }
}

// ---------------------------------------------------------------------------

// Runs a whole signal through a fresh converter and drains it.
std::vector<float> Convert(int in, int out, int channels, bool fast, const std::vector<float>& x) {
  std::unique_ptr<ssrc_resampler> r(CreateSsrcResampler(in, out, channels, fast));
  if (!r) return {};
  r->Write(x.data(), int(x.size()));
  r->Finish();
  const float* p = r->GetBuffer(r->GetDataInBuffer());
  return std::vector<float>(p, p + r->GetDataInBuffer());
}

TEST(SsrcFactory, RatioRuleAndDirection) {
  struct Case {
    int in, out;
    int kind;
  };  // 0 refused, 1 up, 2 down
  // r, the lower rate over the common divisor, must be 1 or a multiple of
  // 2 or 3; equal and non-positive rates are refused.
  const Case cases[] = {
      {44100, 48000, 1}, {96000, 44100, 2}, {44100, 88200, 1},
      {96000, 48000, 2},                                        // r = 147, 147, 1, 1
      {44100, 8000, 2},  {32000, 44100, 1},                     // r = 80, 320
      {48000, 40000, 0}, {40000, 48000, 0}, {48000, 35000, 0},  // r = 5, 5, 35
      {44100, 44100, 0}, {0, 44100, 0},     {44100, -8000, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in << " -> " << c.out);
    std::unique_ptr<ssrc_resampler> r(CreateSsrcResampler(c.in, c.out, 2, true));
    EXPECT_EQ(r != nullptr, c.kind != 0);
    EXPECT_EQ(dynamic_cast<Upsampler*>(r.get()) != nullptr, c.kind == 1);
    EXPECT_EQ(dynamic_cast<Downsampler*>(r.get()) != nullptr, c.kind == 2);
    CResampler_SSRC s;
    EXPECT_EQ(s.Init(c.in, c.out, 2, true), c.kind != 0);
  }
  CResampler_SSRC s;
  EXPECT_FALSE(s.Init(44100, 48000, 0, true));
  float in[4] = {1, 2, 3, 4}, out[4];
  EXPECT_EQ(s.Process(in, 4, out, 4), 0);
}

TEST(CResamplerSsrc, SineKeepsFrequencyAmplitudeAndTime) {
  struct Case {
    int in, out;
    bool fast;
    double freqs[2];
  };
  const Case cases[] = {
      {44100, 48000, true, {1000, 19000}},  {96000, 44100, true, {1000, 19000}},
      {48000, 44100, true, {440, 20000}},   {44100, 88200, true, {3000, 20000}},
      {96000, 48000, true, {1000, 21000}},  {44100, 8000, true, {500, 3000}},
      {44100, 48000, false, {1000, 21500}}, {96000, 44100, false, {1000, 21500}},
  };
  for (const Case& c : cases) {
    for (double freq : c.freqs) {
      SCOPED_TRACE(::testing::Message() << c.in << " -> " << c.out << (c.fast ? " fast" : " slow")
                                        << " at " << freq << " Hz");
      const int frames = c.fast ? c.in / 4 : c.in * 3 / 5;
      std::vector<float> x(size_t(frames) * 2);
      for (int i = 0; i < frames; ++i) {
        x[2 * i] = float(0.5 * std::sin(2 * kPi * freq * i / c.in + 0.7));
        x[2 * i + 1] = float(0.25 * std::sin(2 * kPi * freq * i / c.in - 1.1));
      }
      const std::vector<float> y = Convert(c.in, c.out, 2, c.fast, x);
      ASSERT_EQ(y.size(), size_t(2 * (long(frames) * c.out / c.in + 2)));
      const size_t n = y.size() / 2;
      const double w = 2 * kPi * freq / c.out;
      const double amps[2] = {0.5, 0.25}, phases[2] = {0.7, -1.1};
      // The onset and end of the tone ring for about half the long
      // filter; the fit stays clear of that.
      const size_t edge = c.fast ? 400 : 3000;
      for (int ch = 0; ch < 2; ++ch) {
        const SineFit fit = FitSine(y, 2, ch, w, edge, n - edge);
        EXPECT_NEAR(20 * std::log10(fit.amplitude / amps[ch]), 0.0, 0.001) << "channel " << ch;
        EXPECT_LT(20 * std::log10(fit.residual), c.fast ? -100.0 : -120.0) << "channel " << ch;
        double d = phases[ch] - fit.phase;
        d = std::remainder(d, 2 * kPi);
        EXPECT_LT(std::abs(d / w), 1.0) << "delay in output samples, channel " << ch;
      }
    }
  }
}

TEST(CResamplerSsrc, PiecesAndSmallBuffersGiveTheSameStream) {
  const int cases[][3] = {
      {44100, 48000, 2}, {96000, 44100, 2}, {44100, 88200, 1}, {96000, 48000, 3}};
  std::mt19937 gen(17);
  for (const auto& p : cases) {
    SCOPED_TRACE(::testing::Message() << p[0] << " -> " << p[1] << ", " << p[2] << " channels");
    const int channels = p[2];
    std::vector<float> x(size_t(20000) * channels);
    std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
    for (float& v : x) v = noise(gen);

    CResampler_SSRC whole;
    ASSERT_TRUE(whole.Init(p[0], p[1], channels, true));
    std::vector<float> want(x.size() * p[1] / p[0] + 64);
    want.resize(whole.Process(x.data(), int(x.size()), want.data(), int(want.size())));
    ASSERT_GT(want.size(), x.size() * p[1] / p[0] / 2);
    // Nothing is left waiting when the buffer was large enough.
    float spare[8];
    EXPECT_EQ(whole.Process(nullptr, 0, spare, 8), 0);

    // Pieces of any sample count, odd ones splitting frames, and output
    // buffers of any size, down to nothing.
    CResampler_SSRC pieces;
    ASSERT_TRUE(pieces.Init(p[0], p[1], channels, true));
    std::uniform_int_distribution<int> piece(0, 1500), room(0, 900);
    std::vector<float> got;
    size_t pos = 0;
    while (pos < x.size() || got.size() < want.size()) {
      const int n = int(std::min<size_t>(piece(gen), x.size() - pos));
      std::vector<float> out(room(gen) + 1, -5.0f);
      const int capacity = int(out.size()) - 1;
      const int written = pieces.Process(n ? x.data() + pos : nullptr, n, out.data(), capacity);
      ASSERT_LE(written, capacity);
      ASSERT_EQ(out[capacity], -5.0f);
      got.insert(got.end(), out.begin(), out.begin() + written);
      pos += n;
      if (pos == x.size() && written == 0) break;
    }
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i], want[i]) << "sample " << i;

    // Finish drains and discards: nothing more comes out.
    pieces.Finish();
    std::vector<float> after(4096);
    EXPECT_EQ(pieces.Process(nullptr, 0, after.data(), 4096), 0);
  }
}

}  // namespace
}  // namespace ONDREL2
