// Fidelity: the small-signal response against the cookbook high pass at
// two rates.
#include "effects/fidelity/fidelity.h"

#include <gtest/gtest.h>

#include <complex>

#include "effects/effect_test_util.h"
#include "effects/tone_util.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_test;

TEST_F(EffectTest, FidelityAddsHighPassedBandAtSmallLevels) {
  for (double rate : {44100.0, 96000.0}) {
    for (double hz : {200.0, 1737.0, 6000.0}) {
      const double amp = 1e-3;
      const std::vector<float> in = Tone(static_cast<int>(rate) + 9600, 2, rate, hz, amp);
      const StreamResult r = RunStream(NewEffect(EFFECT_FIDELITY, {{"Fidelity", 127.0f}}),
                                       static_cast<float>(rate), 2, in);
      // sin(v) * 1.5 * 0.377953 with drive 3.39292 at full amount.
      const double k = 1.5 * 0.377953 * 3.39292;
      const double want = amp * std::abs(1.0 + k * CookbookHighPass(1736.58, 0.70710677, hz, rate));
      EXPECT_NEAR(ToneAmplitude(r.output, 2, 1, 9600, static_cast<int>(rate), rate, hz), want,
                  want * 1e-3)
          << hz << " Hz at " << rate;
    }
  }
}

}  // namespace
