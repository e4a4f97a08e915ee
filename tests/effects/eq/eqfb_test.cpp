// Fixed-band equaliser: band magnitudes from a naive DFT against the closed
// form, bypassed bands, and the band pipeline against its scalar loop.
#include "effects/eq/eqfb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using ONDREL2::IIR_EQ_FIXED_BANDS::IirEQ10Effect;
using ONDREL2::IIR_EQ_FIXED_BANDS::IirEQ30Effect;
using ondrel_test::FirstDifference;

using ondrel_test::kTestPi;

double DftDb(const std::vector<float>& x, double f, double rate) {
  std::complex<double> sum = 0.0;
  for (size_t n = 0; n < x.size(); ++n)
    sum += static_cast<double>(x[n]) * std::polar(1.0, -2.0 * kTestPi * f * n / rate);
  return 20.0 * std::log10(std::abs(sum));
}

const std::vector<float> kTenBands = {31.25f,  62.5f,   125.0f,  250.0f,  500.0f,
                                      1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};

TEST(EqfbBands, ImpulseResponseMatchesClosedFormPeak) {
  set_xlog_level(7);
  const int rate = 44100;
  const float width = 1.22474492f;  // the default Q
  for (float gainDb : {12.0f, -9.0f}) {
    for (size_t band = 0; band < kTenBands.size(); ++band) {
      IirEQ10Effect eq;
      eq.SetChannels(1, 0);
      eq.SetParam(static_cast<int>(band) + 1, gainDb);
      eq.UpdateParams();
      std::vector<float> y(16384, 0.0f);
      y[0] = 1.0f;
      for (size_t b = 0; b < y.size(); b += 1024) {
        int32_t frames = 1024;
        ASSERT_EQ(eq.ProcessBlock({y.data() + b}, &frames), 0);
      }
      const double f0 = kTenBands[band];
      for (double f : {f0 * 0.5, f0, std::min(f0 * 1.7, 20000.0)}) {
        const double want =
            20.0 * std::log10(std::abs(ondrel_test::PeakBand(f0, width, gainDb, rate, f, rate)));
        EXPECT_NEAR(DftDb(y, f, rate), want, 0.01)
            << f0 << " Hz band at " << f << " Hz, " << gainDb << " dB";
      }
    }
  }
}

TEST(EqfbStream, NearlyFlatBandsAndBandsAtHalfTheRatePassBitForBit) {
  std::vector<float> nearlyFlat(30), top(10, 0.0f);
  for (size_t b = 0; b < 30; ++b) nearlyFlat[b] = (b % 2 ? 1 : -1) * 0.0009f;  // under 0.001 dB
  top[9] = 12.0f;  // 16 kHz at 32 kHz: 2 * 16000 >= 32000
  const struct {
    ONDREL2::ONDREL_EFFECT_TYPE type;
    float rate;
    const std::vector<float>& gains;
  } cases[] = {{ONDREL2::EFFECT_IIR_EQ30, 48000.0f, nearlyFlat},
               {ONDREL2::EFFECT_IIR_EQ10, 32000.0f, top}};
  const std::vector<float> x = ondrel_test::TestSignal(9000, 2, 44100.0f);
  for (const auto& c : cases) {
    ONDREL2::AEffect* fx = ondrel_test::NewEffect(c.type, {});
    for (size_t b = 0; b < c.gains.size(); ++b)
      fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, static_cast<int>(b) + 1, 0, nullptr,
                     c.gains[b]);
    const auto r = ondrel_test::RunStream(fx, c.rate, 2, x);
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(FirstDifference(r.output, x), x.size()) << c.type << " at " << c.rate;
  }
}

// The band pipeline against its frame-by-frame loop: the same bits for any
// set of active bands, any channel count, blocks shorter than the pipeline,
// and states carried from block to block.
template <typename Eq>
void ExpectSameBits(int bands, int channels, const std::vector<float>& gains, unsigned seed) {
  Eq fast, slow;
  for (Eq* eq : {&fast, &slow}) {
    eq->SetChannels(channels, 0);
    eq->SetSampleRate(44100.0f);
    for (int b = 0; b < bands; ++b) eq->SetParam(b + 1, gains[static_cast<size_t>(b)]);
    eq->UpdateParams();
  }
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  // Block lengths: empty, shorter than any pipeline, odd, and a whole block.
  for (int n : {0, 1, 3, 5, 17, 1024, 2, 333}) {
    std::vector<std::vector<float>> a(static_cast<size_t>(channels));
    for (auto& ch : a)
      for (int i = 0; i < n; ++i) ch.push_back(u(rng));
    std::vector<std::vector<float>> b = a;
    std::vector<float*> va, vb;
    for (int c = 0; c < channels; ++c) {
      va.push_back(a[c].data());
      vb.push_back(b[c].data());
    }
    int32_t fa = n, fb = n;
    ASSERT_EQ(fast.ProcessBlock(va, &fa), 0);
    ASSERT_EQ(slow.ProcessBlockScalar(vb, &fb), 0);
    ASSERT_EQ(fa, fb);
    ASSERT_EQ(a, b) << "bands " << bands << " channels " << channels << " block " << n;
  }
}

TEST(EqfbPipeline, SameBitsAsFrameByFrame) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> g(-18.0f, 18.0f);
  for (int channels : {1, 3}) {
    // Every band active, every band flat, and scattered flat bands (whole
    // lane vectors and partly used ones).
    std::vector<float> all(30), none(30, 0.0f), some(30);
    for (int b = 0; b < 30; ++b) {
      all[static_cast<size_t>(b)] = g(rng);
      some[static_cast<size_t>(b)] = (b % 3 == 1 || b == 7) ? 0.0f : g(rng);
    }
    for (const auto* gains : {&all, &none, &some}) {
      ExpectSameBits<IirEQ10Effect>(10, channels, *gains, 11u + static_cast<unsigned>(channels));
      ExpectSameBits<IirEQ30Effect>(30, channels, *gains, 29u + static_cast<unsigned>(channels));
    }
  }
}

}  // namespace
