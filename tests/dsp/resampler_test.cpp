// Resamplers: the polyphase converter against a direct evaluation in double
// of its windowed sinc, the two-stage converter's ratio rule, pass band
// (sine fits) and streaming in random pieces against one call.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "dsp/resampler.h"
#include "dsp/resampler_ssrc.h"
#include "effects/tone_util.h"

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

// The resampler's prototype written out in double: sinc with its corner at
// `cutoff` of the input Nyquist over n = -H..H, Kaiser window with beta 16.
struct DirectSinc {
  long L, M, T, N, start, H;
  double cutoff;
  std::vector<double> h;

  DirectSinc(int inRate, int outRate) {
    const double ratio = double(inRate) / outRate;
    T = (ratio >= 0.5 && ratio <= 2) ? 35 : (ratio >= 0.25 && ratio <= 4) ? 40 : 45;
    const long a = std::gcd(inRate, outRate);
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

  // Output m of one call over x (one channel at a stride): the upsampled
  // time First * L + m * M convolved with x at multiples of L, where First
  // is what the first call spends on filling the half-full history.
  std::vector<double> Run(const std::vector<float>& x, size_t stride, size_t channel) const {
    const long frames = long(x.size() / stride), first = T - (T / 2 + 1);
    std::vector<double> y;
    for (long t = first * L; t < frames * L; t += M) {
      double acc = 0;
      for (long q = std::max(0L, (t - N) / L); q < frames && t - q * L >= 0; ++q)
        if (t - q * L < N) acc += h[t - q * L] * x[q * stride + channel];
      y.push_back(acc);
    }
    return y;
  }
};

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
      const std::vector<float> x = Noise(size_t(700) * channels, 5, 0.9f);
      std::vector<float> y(size_t(700) * c.L / c.M * channels + 64, 0.0f);
      const int n = src.Process(x.data(), int(x.size()), y.data(), int(y.size()));
      for (int ch = 0; ch < channels; ++ch) {
        const std::vector<double> want = ref.Run(x, channels, ch);
        ASSERT_EQ(size_t(n), want.size() * channels) << "channels " << channels;
        for (size_t m = 0; m < want.size(); ++m)
          ASSERT_NEAR(y[m * channels + ch], want[m], 2e-5) << "channel " << ch << " frame " << m;
      }
    }
  }
}

TEST(SsrcFactory, RatioRuleAndDirection) {
  // r, the lower rate over the common divisor, must be 1 or a multiple of
  // 2 or 3; equal and non-positive rates are refused.
  const struct {
    int in, out, kind;  // 0 refused, 1 up, 2 down
  } cases[] = {
      {44100, 48000, 1}, {96000, 44100, 2}, {96000, 48000, 2}, {32000, 44100, 1}, {48000, 40000, 0},
      {48000, 35000, 0}, {44100, 44100, 0}, {0, 44100, 0},     {44100, -8000, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.in << " -> " << c.out);
    std::unique_ptr<ssrc_resampler> r(CreateSsrcResampler(c.in, c.out, 2, true));
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

// A sine keeps its amplitude through the pass band, up and down, and the
// stream holds two frames more than the ratio gives.
TEST(CResamplerSsrc, SineKeepsItsAmplitude) {
  for (const auto& [in, out, hz] :
       {std::tuple<int, int, double>{44100, 48000, 19000}, {96000, 44100, 1000}}) {
    const std::vector<float> x = ondrel_test::Tone(in / 4, 1, in, hz, 0.5);
    std::unique_ptr<ssrc_resampler> r(CreateSsrcResampler(in, out, 1, true));
    r->Write(x.data(), int(x.size()));
    r->Finish();
    const float* p = r->GetBuffer(r->GetDataInBuffer());
    const std::vector<float> y(p, p + r->GetDataInBuffer());
    ASSERT_EQ(y.size(), size_t(long(in / 4) * out / in + 2)) << in;
    const double got = ondrel_test::ToneAmplitude(y, 1, 0, 400, y.size() - 800, out, hz);
    EXPECT_NEAR(20 * std::log10(got / 0.5), 0.0, 0.001) << in;
  }
}

TEST(CResamplerSsrc, PiecesAndSmallBuffersGiveTheSameStream) {
  const int cases[][3] = {{96000, 44100, 2}, {44100, 88200, 1}, {96000, 48000, 3}};
  std::mt19937 gen(17);
  for (const auto& p : cases) {
    SCOPED_TRACE(::testing::Message() << p[0] << " -> " << p[1] << ", " << p[2] << " channels");
    const std::vector<float> x = Noise(size_t(20000) * p[2], 3);
    CResampler_SSRC whole, pieces;
    ASSERT_TRUE(whole.Init(p[0], p[1], p[2], true));
    ASSERT_TRUE(pieces.Init(p[0], p[1], p[2], true));
    std::vector<float> want(x.size() * p[1] / p[0] + 64);
    want.resize(whole.Process(x.data(), int(x.size()), want.data(), int(want.size())));
    ASSERT_GT(want.size(), x.size() * p[1] / p[0] / 2);
    float spare[8];
    EXPECT_EQ(whole.Process(nullptr, 0, spare, 8), 0);  // nothing left waiting

    // Pieces of any sample count, odd ones splitting frames, and output
    // buffers of any size, down to nothing.
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
    EXPECT_EQ(got, want);

    // Finish drains and discards: nothing more comes out.
    pieces.Finish();
    std::vector<float> after(4096);
    EXPECT_EQ(pieces.Process(nullptr, 0, after.data(), 4096), 0);
  }
}

}  // namespace
}  // namespace ONDREL2
