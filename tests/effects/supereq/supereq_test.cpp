// SuperEQ: the composed response against a double-precision design written
// from the band, window and low-pass formulas; the stream through an
// instance against direct convolution with that design; a single band, more
// bands than gain parameters, a bad start frequency and a window change
// while running.
#include "effects/supereq/supereq.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using ONDREL2::SUPEREQ::SuperEQEffect;

struct Design {
  int windowBits = 12;
  int rate = 44100;
  double start = 38.8909988;
  double octave = 1.0;
  std::vector<double> gainsDb = std::vector<double>(10, 0.0);
};

double I0(double x) {
  double sum = 1.0, fact = 1.0;
  for (int j = 1; j < 16; ++j) {
    fact *= j;
    const double t = std::pow(x / 2.0, j) / fact;
    sum += t * t;
  }
  return sum;
}

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
      const double fc = d.start * std::pow(2.0, d.octave * i) / d.rate;
      const double value = n == 0 ? 2.0 * fc : std::sin(2.0 * pi * fc * n) / (pi * n);
      sum += (value - last) * std::pow(10.0, d.gainsDb[static_cast<size_t>(i)] / 20.0);
      last = value;
    }
    sum += ((n == 0 ? 1.0 : 0.0) - last) * std::pow(10.0, d.gainsDb.back() / 20.0);
    const double r = 2.0 * n / (length - 1.0);
    h[static_cast<size_t>(k)] = sum * I0(beta * std::sqrt(std::max(0.0, 1.0 - r * r))) / I0(beta);
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

// Makes the effect design: configure, then one block of silence.
void DesignNow(SuperEQEffect& eq, int rate) {
  eq.SetSampleRate(static_cast<float>(rate));
  ASSERT_EQ(eq.Resume(), 0);
  std::vector<float> l(static_cast<size_t>(eq.GetBlockSize()), 0.0f), r = l;
  int32_t frames = eq.GetBlockSize();
  ASSERT_EQ(eq.ProcessBlock({l.data(), r.data()}, &frames), 0);
}

TEST(SuperEqDesign, ResponseMatchesReferenceDesign) {
  set_xlog_level(7);
  const double start = 38.8909988;  // the default
  const Design designs[] = {
      {12, 44100, start, 1.0, {6, -3, 0, 4, -8, 2, 0, -5, 3, 1}},
      {11, 48000, 100.0, 0.7, {-18, 18, -6, 6, 0, 0, 12, -12, 3, -3}},
      // Two bands beyond the ten gain parameters: they stay flat.
      {12, 44100, start, 1.0, {3, 3, -3, -3, 6, 6, -6, -6, 9, -9, 0, 0}},
      {9, 44100, start, 1.0, {2.5, -1.5, -1.5, 2.5, -1.5, -1.5, 2.5, -1.5, -1.5, 2.5}},
      // One band: no low pass, the delta times the gain times the window's centre.
      {12, 44100, start, 1.0, {6}},
  };
  for (const Design& d : designs) {
    SuperEQEffect eq;
    EXPECT_EQ(eq.GetLatency(), 0);  // nothing designed yet
    Apply(eq, d);
    DesignNow(eq, d.rate);
    const int length = (1 << (d.windowBits - 1)) - 1;
    ASSERT_NE(eq.engine, nullptr);
    EXPECT_EQ(eq.GetBlockSize(), length);
    EXPECT_EQ(eq.GetLatency(), length / 2);
    const std::vector<double> want = ReferenceResponse(d);
    EXPECT_LT(ondrel_test::MaxError(eq.engine->response, want), 2e-6)
        << "window bits " << d.windowBits << ", " << d.gainsDb.size() << " bands";
  }

  // The corners climb by the step 2^octave rounded to float, each a float
  // product; a product in double rounds differently at this octave.
  {
    SuperEQEffect ladder;
    Apply(ladder, {10, 48000, start, 1.1, std::vector<double>(10, 0.0)});
    DesignNow(ladder, 48000);
    const float step = static_cast<float>(std::pow(2.0, static_cast<double>(1.1f)));
    std::vector<float> corners{static_cast<float>(start)};
    while (corners.size() < 10) corners.push_back(step * corners.back());
    EXPECT_EQ(ladder.engine->edges, corners);
  }

  // A gain change is designed on the next block, not in UpdateParams.
  SuperEQEffect eq;
  DesignNow(eq, 44100);
  const std::vector<float> before = eq.engine->response;
  eq.SetParam(6, 5.0f);
  ASSERT_EQ(eq.UpdateParams(), 0);
  EXPECT_EQ(eq.engine->response, before);
  std::vector<float> l(2047, 0.0f), r = l;
  int32_t frames = 2047;
  ASSERT_EQ(eq.ProcessBlock({l.data(), r.data()}, &frames), 0);
  EXPECT_NE(eq.engine->response, before);
}

TEST(SuperEqStream, StereoStreamMatchesDirectConvolution) {
  const std::vector<float> x = ondrel_test::TestSignal(6000, 2, 44100.0f);
  const Design designs[] = {
      {12, 44100, 38.8909988, 1.0, {6, -3, 0, 4, -8, 2, 0, -5, 3, 1}},
      {10, 48000, 38.8909988, 1.1, {-12, 0, 12, 0, -12, 0, 12, 0, -12, 0}},
      {},  // flat gains: the input back in time
  };
  const double tolerance[] = {5e-5, 5e-5, 2e-5};
  for (size_t i = 0; i < 3; ++i) {
    const Design& d = designs[i];
    ONDREL2::AEffect* fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ);
    Apply(*fx->object, d);
    const auto r = ondrel_test::RunStream(fx, static_cast<float>(d.rate), 2, x,
                                          {1, 2046, 2047, 2048, 5, 4096, 509});
    ASSERT_EQ(r.status, 0);
    const std::vector<double> want = i == 2 ? std::vector<double>(x.begin(), x.end())
                                            : CentredConvolution(ReferenceResponse(d), x, 2);
    EXPECT_LT(ondrel_test::MaxError(r.output, want), tolerance[i])
        << "window bits " << d.windowBits;
  }
}

TEST(SuperEqStream, BadStartFrequencyAndWindowChangeWhileRunning) {
  const std::vector<float> x = ondrel_test::TestSignal(30000, 2, 44100.0f);
  ONDREL2::AEffect* fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ, {{"start_f", 0.0f}});
  // A design that can't be made fails one block (the instance's recovery
  // then retries the call); the stream goes on dry instead of stopping.
  {
    void* inst = ONDREL2::ondrel_create_inst();
    ONDREL2::ondrel_setup_input(inst, 2, 0);
    ONDREL2::ondrel_set_samplerate(inst, 44100.0f);
    ASSERT_EQ(ONDREL2::ondrel_set_params(inst, &fx, 1), 0);
    std::vector<float> out(x.size());
    int failures = 0;
    size_t received = 0;
    for (size_t at = 0; at + 8192 <= x.size(); at += 8192) {
      int available = 0, written = 0;
      failures += ONDREL2::ondrel_processf_input(inst, const_cast<float*>(&x[at]), 8192,
                                                 &available) != 0;
      ONDREL2::ondrel_processf_output(inst, out.data(), available, &written);
      received += static_cast<size_t>(written);
    }
    ONDREL2::ondrel_destroy_inst(inst);
    EXPECT_EQ(failures, 0);
    EXPECT_GT(received, x.size() / 2);
  }
  // Many bands at one octave each run the corners past the sample rate (and
  // past the largest float): flat gains still give the input back.
  fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ, {{"gain_len", 1024.0f}});
  const auto ladder = ondrel_test::RunStream(fx, 44100.0f, 2, x);
  ASSERT_EQ(ladder.status, 0);
  EXPECT_LT(ondrel_test::MaxError(ladder.output, std::vector<double>(x.begin(), x.end())), 2e-5);
  // From 2047 to 8191 taps while the stream runs: no fault, and the stream
  // continues as the input, delayed by the difference of the two advances.
  fx = ondrel_test::NewEffect(ONDREL2::EFFECT_SUPEREQ);
  const auto r =
      ondrel_test::RunStream(fx, 44100.0f, 2, x, {1000}, [](int chunk, ONDREL2::AEffect* h) {
        if (chunk == 5) ondrel_test::SetParam(h, "window_bits", 14.0f);
      });
  ASSERT_EQ(r.status, 0);
  const size_t shift = (4095 - 1023) * 2;
  std::vector<float> delayed(shift, 0.0f);
  delayed.insert(delayed.end(), x.begin(), x.end());
  EXPECT_LT(ondrel_test::MaxError(r.output, delayed, 20000 * 2), 5e-5);
}

}  // namespace
