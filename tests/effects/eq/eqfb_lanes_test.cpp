// The equaliser's band pipeline against its frame-by-frame loop: the same
// bits for any set of active bands, any channel count, blocks shorter than
// the pipeline, and states carried from block to block.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "effects/eq/eqfb.h"

namespace {

using ONDREL2::IIR_EQ_FIXED_BANDS::IirEQ10Effect;
using ONDREL2::IIR_EQ_FIXED_BANDS::IirEQ30Effect;

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
    std::vector<std::vector<float>> a(static_cast<size_t>(channels)), b;
    for (auto& ch : a)
      for (int i = 0; i < n; ++i) ch.push_back(u(rng));
    if (n == 333) a[0][100] = std::numeric_limits<float>::infinity();
    b = a;
    std::vector<float*> va, vb;
    for (int c = 0; c < channels; ++c) {
      va.push_back(a[static_cast<size_t>(c)].data());
      vb.push_back(b[static_cast<size_t>(c)].data());
    }
    int32_t fa = n, fb = n;
    ASSERT_EQ(fast.ProcessBlock(va, &fa), 0);
    ASSERT_EQ(slow.ProcessBlockScalar(vb, &fb), 0);
    ASSERT_EQ(fa, fb);
    for (int c = 0; c < channels && n > 0; ++c)
      ASSERT_EQ(std::memcmp(a[static_cast<size_t>(c)].data(), b[static_cast<size_t>(c)].data(),
                            sizeof(float) * static_cast<size_t>(n)),
                0)
          << "bands " << bands << " channels " << channels << " block " << n;
  }
  for (size_t i = 0; i < fast.filters.size(); ++i) {
    EXPECT_EQ(std::memcmp(&fast.filters[i]->state1, &slow.filters[i]->state1, sizeof(float)), 0);
    EXPECT_EQ(std::memcmp(&fast.filters[i]->state2, &slow.filters[i]->state2, sizeof(float)), 0);
  }
}

TEST(EqfbPipeline, SameBitsAsFrameByFrame) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> g(-18.0f, 18.0f);
  for (int channels : {1, 2, 3}) {
    // Every band active, every band flat, and scattered flat bands (whole
    // lane vectors and partly used ones).
    std::vector<float> all(30), none(30, 0.0f), some(30);
    for (int b = 0; b < 30; ++b) {
      all[static_cast<size_t>(b)] = g(rng);
      some[static_cast<size_t>(b)] = (b % 3 == 1 || b == 7) ? 0.0f : g(rng);
    }
    std::vector<float> one(30, 0.0f);
    one[4] = 9.0f;
    for (const auto* gains : {&all, &none, &some, &one}) {
      ExpectSameBits<IirEQ10Effect>(10, channels, *gains, 11u + static_cast<unsigned>(channels));
      ExpectSameBits<IirEQ30Effect>(30, channels, *gains, 29u + static_cast<unsigned>(channels));
    }
  }
}

}  // namespace
