// Biquad designs against the audio-EQ cookbook forms computed here in
// double, and their degenerate cases.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "dsp/biquad.h"

namespace ONDREL2 {
namespace {

using BiquadFilter::Filter;

struct Reference {
  double b0, b1, b2, a0, a1, a2;
};

// Cookbook forms with w0 = 2*pi*f, alpha = sin(w0)/(2Q): 'L'ow pass, 'H'igh
// pass, 'A'll pass, low 'S'helf and high 'T'helf of `dB`.
Reference Cookbook(char kind, double f, double Q, double dB = 0.0) {
  const double w0 = 2.0 * M_PI * f, alpha = std::sin(w0) / (2.0 * Q), cw = std::cos(w0);
  const double A = std::pow(10.0, dB / 40.0), r = 2.0 * std::sqrt(A) * alpha;
  switch (kind) {
    case 'L': return {(1 - cw) / 2, 1 - cw, (1 - cw) / 2, 1 + alpha, -2 * cw, 1 - alpha};
    case 'H': return {(1 + cw) / 2, -(1 + cw), (1 + cw) / 2, 1 + alpha, -2 * cw, 1 - alpha};
    case 'A': return {1 - alpha, -2 * cw, 1 + alpha, 1 + alpha, -2 * cw, 1 - alpha};
    case 'S':
      return {A * ((A + 1) - (A - 1) * cw + r), 2 * A * ((A - 1) - (A + 1) * cw),
              A * ((A + 1) - (A - 1) * cw - r), (A + 1) + (A - 1) * cw + r,
              -2 * ((A - 1) + (A + 1) * cw),    (A + 1) + (A - 1) * cw - r};
    default:
      return {A * ((A + 1) + (A - 1) * cw + r), -2 * A * ((A - 1) + (A + 1) * cw),
              A * ((A + 1) + (A - 1) * cw - r), (A + 1) - (A - 1) * cw + r,
              2 * ((A - 1) - (A + 1) * cw),     (A + 1) - (A - 1) * cw - r};
  }
}

// The band shapes of this library centre on the geometric mean of the edges
// and use alpha = 0.75 * 0.5 * octaves * w0 (a linear width law, by design):
// 'B'and pass, 'N'otch, 'P'eak of `dB`.
Reference CookbookBand(char kind, double lo, double hi, double dB = 0.0) {
  const double w0 = 2.0 * M_PI * std::sqrt(lo * hi), alpha = 0.375 * std::log2(hi / lo) * w0;
  const double c = -2 * std::cos(w0), A = std::pow(10.0, dB / 40.0);
  if (kind == 'B') return {alpha, 0, -alpha, 1 + alpha, c, 1 - alpha};
  if (kind == 'N') return {1, c, 1, 1 + alpha, c, 1 - alpha};
  return {1 + alpha * A, c, 1 - alpha * A, 1 + alpha / A, c, 1 - alpha / A};
}

// Stored coefficients are the double design rounded to float: allow a few
// float ulps relative to the largest coefficient.
void ExpectCoefficients(const Filter& f, const Reference& r, const std::string& what) {
  const double want[5] = {r.b0 / r.a0, r.b1 / r.a0, r.b2 / r.a0, r.a1 / r.a0, r.a2 / r.a0};
  const float got[5] = {f.b0, f.b1, f.b2, f.a1, f.a2};
  double scale = 1.0;
  for (double w : want) scale = std::max(scale, std::fabs(w));
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(got[i], want[i], 4e-7 * scale) << what << " " << i;
  EXPECT_TRUE(f.x1 == 0.0f && f.x2 == 0.0f && f.y1 == 0.0f && f.y2 == 0.0f) << what;
}

TEST(BiquadFilter, CoefficientsMatchCookbook) {
  // Up to and beyond half the rate, where the all-pass is still built as
  // designed.
  for (double f : {0.001, 0.02, 0.1, 0.3, 0.45, 0.6}) {
    for (double q : {0.3, 0.7071, 2.0, 10.0}) {
      const std::string at = "f=" + std::to_string(f) + " q=" + std::to_string(q);
      // The all-pass width grows with q: it is the cookbook all-pass of 1/q.
      ExpectCoefficients(BiquadFilter::APFilter(f, q), Cookbook('A', f, 1.0 / q), "AP " + at);
      if (f > 0.5) continue;
      ExpectCoefficients(BiquadFilter::LPFilter(f, q), Cookbook('L', f, q), "LP " + at);
      ExpectCoefficients(BiquadFilter::HPFilter(f, q), Cookbook('H', f, q), "HP " + at);
      for (double dB : {-12.0, 3.0, 15.0}) {
        const std::string g = at + " dB=" + std::to_string(dB);
        ExpectCoefficients(BiquadFilter::LSFilter(f, q, dB), Cookbook('S', f, q, dB), "LS " + g);
        ExpectCoefficients(BiquadFilter::HSFilter(f, q, dB), Cookbook('T', f, q, dB), "HS " + g);
      }
    }
  }
  const double edges[][2] = {{0.01, 0.02}, {0.05, 0.06}, {0.001, 0.004}, {0.1, 0.2}};
  for (const auto& e : edges) {
    const std::string at = "edges " + std::to_string(e[0]) + ".." + std::to_string(e[1]);
    ExpectCoefficients(BiquadFilter::BPFilter(e[0], e[1]), CookbookBand('B', e[0], e[1]), at);
    ExpectCoefficients(BiquadFilter::NTFilter(e[0], e[1]), CookbookBand('N', e[0], e[1]), at);
    for (double dB : {-9.0, 6.0})
      ExpectCoefficients(BiquadFilter::PKFilter(e[0], e[1], dB), CookbookBand('P', e[0], e[1], dB),
                         at + " dB=" + std::to_string(dB));
  }
}

TEST(BiquadFilter, DegenerateDesignsFollowTheirFormulas) {
  // Equal edges: zero width, alpha 0, numerator equal to denominator with
  // poles on the unit circle; a bell of 0 dB is one polynomial over itself.
  const BiquadFilter::NTFilter narrowNotch(0.05, 0.05);
  const BiquadFilter::PKFilter narrowBell(0.05, 0.05, 6.0), flat(0.01, 0.03, 0.0);
  for (const Filter* f : std::vector<const Filter*>{&narrowNotch, &narrowBell, &flat}) {
    EXPECT_EQ(f->b0, 1.0f);
    EXPECT_EQ(f->b1, f->a1);
    EXPECT_EQ(f->b2, f->a2);
  }
  EXPECT_EQ(narrowNotch.a2, 1.0f);
  EXPECT_FLOAT_EQ(narrowNotch.a1, static_cast<float>(-2.0 * std::cos(2.0 * M_PI * 0.05)));
  const BiquadFilter::BPFilter silent(0.05, 0.05);
  EXPECT_EQ(silent.b0, 0.0f);
  EXPECT_EQ(silent.b2, 0.0f);

  // Shelves of 0 dB are the identity: their impulse response is exact.
  BiquadFilter::LSFilter lowShelf(0.01, 0.7, 0.0);
  BiquadFilter::HSFilter highShelf(0.3, 2.0, 0.0);
  for (Filter* f : std::vector<Filter*>{&lowShelf, &highShelf})
    for (int n = 0; n < 64; ++n)
      ASSERT_EQ(f->Process(n == 0 ? 1.0f : 0.0f), n == 0 ? 1.0f : 0.0f) << "sample " << n;

  // Edges at zero give no usable band: not a number, not a crash.
  EXPECT_TRUE(std::isnan(BiquadFilter::BPFilter(0.0, 0.0).b0));
}

}  // namespace
}  // namespace ONDREL2
