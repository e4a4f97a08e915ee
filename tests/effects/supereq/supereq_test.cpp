// SuperEQ against direct convolution with a double-precision design, a bad
// start frequency, a failed band count and a window change while running.
#include "effects/supereq/supereq.h"
#include "effects/supereq/supereq_engine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

struct Design {
  int windowBits = 12;
  int rate = 44100;
  double start = 38.8909988;
  double octave = 1.0;
  std::vector<double> gainsDb = std::vector<double>(10, 0.0);
};

// The response in double: Kaiser window (96 dB) times the band-weighted sum
// of differences of ideal low passes.
std::vector<double> ReferenceResponse(const Design& d) {
  const int length = (1 << (d.windowBits - 1)) - 1;
  const int half = length / 2;
  const int bands = static_cast<int>(d.gainsDb.size());
  const double pi = 3.141592653589793;
  const double beta = 0.1102 * (96.0 - 8.7);
  std::vector<double> h(static_cast<size_t>(length));
  for (int k = 0; k < length; ++k) {
    const int n = k - half;
    double sum = 0.0, last = 0.0;
    for (int i = 0; i + 1 < bands; ++i) {
      double fc = d.start * std::pow(2.0, d.octave * i) / d.rate;
      if (fc >= 1.0) fc = 0.5;  // corners at or past the rate sit at Nyquist
      const double value = n == 0 ? 2.0 * fc : std::sin(2.0 * pi * fc * n) / (pi * n);
      sum += (value - last) * std::pow(10.0, d.gainsDb[static_cast<size_t>(i)] / 20.0);
      last = value;
    }
    sum += ((n == 0 ? 1.0 : 0.0) - last) * std::pow(10.0, d.gainsDb.back() / 20.0);
    const double r = 2.0 * n / (length - 1.0);
    h[static_cast<size_t>(k)] =
        sum * std::cyl_bessel_i(0.0, beta * std::sqrt(std::max(0.0, 1.0 - r * r))) /
        std::cyl_bessel_i(0.0, beta);
  }
  return h;
}

// y[n] = sum_j h[j] x[n + half - j]: the filter centred in time, as the
// effect delivers it after its convolver's advance.
std::vector<double> CentredConvolution(const std::vector<double>& h, const std::vector<float>& x,
                                       int channels) {
  const int frames = static_cast<int>(x.size()) / channels;
  const int half = static_cast<int>(h.size()) / 2;
  std::vector<double> y(x.size(), 0.0);
  for (int c = 0; c < channels; ++c) {
    for (int n = 0; n < frames; ++n) {
      double acc = 0.0;
      const int jlo = std::max(0, n + half - frames + 1);
      const int jhi = std::min(static_cast<int>(h.size()) - 1, n + half);
      for (int j = jlo; j <= jhi; ++j)
        acc += h[static_cast<size_t>(j)] * x[static_cast<size_t>((n + half - j) * channels + c)];
      y[static_cast<size_t>(n * channels + c)] = acc;
    }
  }
  return y;
}

void Apply(ONDREL2::AudioEffect& fx, const Design& d) {
  fx.SetParam(0, static_cast<float>(d.gainsDb.size()));
  fx.SetParam(1, static_cast<float>(d.start));
  fx.SetParam(2, static_cast<float>(d.octave));
  fx.SetParam(3, static_cast<float>(d.windowBits));
  for (size_t i = 0; i < d.gainsDb.size() && i < 10; ++i)
    fx.SetParam(static_cast<int>(i) + 4, static_cast<float>(d.gainsDb[i]));
}

TEST(SuperEqStream, StereoStreamMatchesDirectConvolution) {
  const std::vector<float> x = ondrel_test::TestSignal(6000, 2, 44100.0f);
  const double start = 38.8909988;  // the default
  const Design designs[] = {
      {12, 44100, start, 1.0, {6, -3, 0, 4, -8, 2, 0, -5, 3, 1}},
      {10, 48000, start, 1.1, {-12, 0, 12, 0, -12, 0, 12, 0, -12, 0}},
      {11, 48000, 100.0, 0.7, {-18, 18, -6, 6, 0, 0, 12, -12, 3, -3}},
      // Two bands beyond the ten gain parameters: they stay flat.
      {9, 44100, start, 1.0, {3, 3, -3, -3, 6, 6, -6, -6, 9, -9, 0, 0}},
      // Corners from the twelfth on lie past the sample rate.
      {9, 44100, start, 1.0, {4, -4, 2, -2, 6, -6, 0, 3, -3, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      // One band: no low pass, the delta times the gain times the window's centre.
      {12, 44100, start, 1.0, {6}},
  };
  for (const Design& d : designs) {
    SCOPED_TRACE(testing::Message()
                 << "window bits " << d.windowBits << ", " << d.gainsDb.size() << " bands");
    ONDREL2::AEffect* fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ);
    Apply(*fx->object, d);
    const auto r = ondrel_test::RunStream(fx, static_cast<float>(d.rate), 2, x,
                                          {1, 2046, 2047, 2048, 5, 4096, 509});
    ASSERT_EQ(r.status, 0);
    EXPECT_LT(ondrel_test::MaxError(r.output, CentredConvolution(ReferenceResponse(d), x, 2)),
              5e-5);
  }
}

// A band count whose ladder underflows to a corner of 0 fails; the settings
// after it must be designed in full, as a fresh engine designs them.
TEST(SuperEqEngine, RecoversFromFailedBandCount) {
  ONDREL2::SUPEREQ::SuperEqEngine engine;
  engine.SetFormat(44100, 1);
  engine.SetWindowBits(9);
  engine.SetBands(38.89f, -10.0f);
  std::vector<float> gains(10, 0.0f);
  engine.SetGains(gains.data(), 10);
  ASSERT_EQ(engine.Rebuild(), ONDREL2::ONDREL_OK);
  gains.assign(20, 0.0f);
  engine.SetGains(gains.data(), 20);
  EXPECT_EQ(engine.Rebuild(), ONDREL2::ONDREL_E_INVALID);
  gains[3] = 6.0f;
  engine.SetGains(gains.data(), 20);
  EXPECT_EQ(engine.Rebuild(), ONDREL2::ONDREL_E_INVALID);
  engine.SetBands(38.89f, 1.0f);
  ASSERT_EQ(engine.Rebuild(), ONDREL2::ONDREL_OK);

  ONDREL2::SUPEREQ::SuperEqEngine fresh;
  fresh.SetFormat(44100, 1);
  fresh.SetWindowBits(9);
  fresh.SetBands(38.89f, 1.0f);
  fresh.SetGains(gains.data(), 20);
  ASSERT_EQ(fresh.Rebuild(), ONDREL2::ONDREL_OK);
  EXPECT_EQ(engine.response, fresh.response);
}

TEST(SuperEqStream, BadStartFrequencyAndWindowChangeWhileRunning) {
  const std::vector<float> x = ondrel_test::TestSignal(30000, 2, 44100.0f);
  // A design that can't be made fails one block (the instance's recovery
  // then retries the call); the stream goes on dry instead of stopping.
  ONDREL2::AEffect* fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ, {{"start_f", 0.0f}});
  const auto bad = ondrel_test::RunStream(fx, 44100.0f, 2, x, {8192});
  EXPECT_EQ(bad.status, 0);
  EXPECT_GT(bad.output.size(), x.size() / 2);
  // From 2047 to 8191 taps while the stream runs: no fault, and the stream
  // continues as the input, delayed by the difference of the two advances.
  fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ);
  const auto r =
      ondrel_test::RunStream(fx, 44100.0f, 2, x, {1000}, [](int chunk, ONDREL2::AEffect* h) {
        if (chunk == 5) ondrel_test::SetParam(h, "window_bits", 14.0f);
      });
  ASSERT_EQ(r.status, 0);
  std::vector<float> delayed((4095 - 1023) * 2, 0.0f);
  delayed.insert(delayed.end(), x.begin(), x.end());
  EXPECT_LT(ondrel_test::MaxError(r.output, delayed, 20000 * 2), 5e-5);
}

}  // namespace
