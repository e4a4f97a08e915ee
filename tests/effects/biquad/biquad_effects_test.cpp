// Biquad filter effects: the ordering of reversed edges (the designs
// themselves are checked against the cookbook in the dsp tests).
#include "effects/biquad/biquad_effects.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"

namespace {

using ONDREL2::AEffect;
using ONDREL2::ONDREL_EFFECT_TYPE;
using ondrel_test::FirstDifference;
using Settings = std::map<std::string, float>;

// The effect with those of `s` it has, streamed in stereo.
std::vector<float> RunEffect(ONDREL_EFFECT_TYPE type, const Settings& s, float rate,
                             const std::vector<float>& x) {
  AEffect* fx = ondrel_test::NewEffect(type);
  for (const ONDREL2::ParamDesc& p : fx->object->params)
    if (s.count(p.name) != 0) ondrel_test::SetParam(fx, p.name, s.at(p.name));
  const auto r = ondrel_test::RunStream(fx, rate, 2, x);
  EXPECT_EQ(r.status, 0);
  return r.output;
}

TEST(BiquadEffectStream, ReversedEdgesAreOrdered) {
  const float rate = 48000.0f;
  const std::vector<float> x = ondrel_test::TestSignal(3000, 2, rate);
  for (ONDREL_EFFECT_TYPE type :
       {ONDREL2::EFFECT_BP_FILTER, ONDREL2::EFFECT_NT_FILTER, ONDREL2::EFFECT_PK_FILTER}) {
    const Settings reversed = {{"LowEdge", 5000.0f}, {"HighEdge", 1000.0f}, {"Gain", 4.0f}};
    const Settings ordered = {{"LowEdge", 1000.0f}, {"HighEdge", 5000.0f}, {"Gain", 4.0f}};
    EXPECT_EQ(
        FirstDifference(RunEffect(type, reversed, rate, x), RunEffect(type, ordered, rate, x)),
        x.size())
        << "type " << type;
  }
}

}  // namespace
