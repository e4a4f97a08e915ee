// Host misuse against every built effect type: 1 to 8 and 64 channels, host
// calls of 0 to 5000 frames and NaN or infinite samples; every slider at,
// below and above its ends through the dispatcher, refused NaN and infinity,
// and scripts giving NaN or infinity, on a running chain. Out-of-range values
// and a script's NaN reach the effect as they are (the parameter model's
// rule), so only the status is checked for those.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"
#include "framework/effect_types.h"
#include "framework/ondrel2.h"
#include "support/log_capture.h"

using namespace ONDREL2;

namespace {

// The resampler only sets the rate: a block with frames stops the pass with
// its frame count as the status, and nothing comes out. The pitch shifter
// gives fewer frames while it fills.
bool StatusOf(int type, int rc) {
  return rc == ONDREL_OK || rc == ONDREL_E_INVALID || rc == ONDREL_E_NOMEM ||
         rc == ONDREL_E_UNAVAILABLE || rc == ONDREL_CHANNELS_CHANGED ||
         (type == EFFECT_RESAMPLER && rc > 0 && rc < 1000);
}
bool DeliversEveryFrame(int type) {
  return type != EFFECT_RESAMPLER && type != EFFECT_PITCH_SHIFTER;
}

// Index of the first non-finite sample, or x.size().
size_t FirstNonFinite(const std::vector<float>& x) {
  return std::find_if(x.begin(), x.end(), [](float v) { return !std::isfinite(v); }) - x.begin();
}

class MisuseSweep : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { ondrel_test::SilenceLog(); }
  AEffect* New() const {
    return ondrel_test::NewEffect(static_cast<ONDREL_EFFECT_TYPE>(GetParam()));
  }
};

TEST_P(MisuseSweep, ChannelCountsChunkSizesAndNonFiniteInput) {
  const int type = GetParam();
  // Zero-length calls, single frames, calls far above any block size.
  const std::vector<int> chunks = {0, 1, 5000, 7, 0, 513, 2, 1999, 4096, 3};
  const float bad[3] = {NAN, INFINITY, -INFINITY};
  for (int channels : {1, 2, 3, 4, 5, 6, 7, 8, 64}) {
    SCOPED_TRACE(channels);
    const int frames = channels == 64 ? 1500 : 6000;
    std::vector<float> in = ondrel_test::TestSignal(frames, channels, 48000.0f);
    for (int i = 700 * channels; i < 760 * channels; ++i) in[static_cast<size_t>(i)] = bad[i % 3];
    AEffect* fx = New();  // busy: every slider near its top
    ASSERT_NE(fx, nullptr);
    for (int p = 0; p < fx->numParams; ++p)
      if (!fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f))
        fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.85f);
    const ondrel_test::StreamResult r = ondrel_test::RunStream(fx, 48000.0f, channels, in, chunks);
    EXPECT_TRUE(StatusOf(type, r.status)) << r.status;
    // The output width may differ from the input (upmixers, room simulation).
    const size_t width = static_cast<size_t>(r.outChannels);
    ASSERT_GT(width, 0u);
    EXPECT_EQ(r.output.size() % width, 0u);
    // A chain wider than the queues (chaos multiplying 64 channels) drops
    // its output; anything narrower delivers every frame.
    const bool everyFrame = width <= 64 && DeliversEveryFrame(type);
    EXPECT_TRUE(!everyFrame || r.output.size() / width >= size_t(frames)) << r.output.size();
    EXPECT_EQ(FirstNonFinite(r.output), r.output.size());
  }
}

// Settings at the ends of a parameter's range whose arithmetic, fixed by
// the effect's own rules, leaves the float range: the de-esser's drive is a
// power of ten of the value in dB, 10^39 at the top.
bool NonFiniteByDesign(int type, const std::string& param) {
  return type == EFFECT_DEESSER && param == "Drive";
}

TEST_P(MisuseSweep, ParameterExtremesThroughDispatcherAndScripts) {
  const int type = GetParam();
  // Each setting runs from the start of a stream for kSet frames; then the
  // parameter returns to its default without script for kAfter frames.
  const int kChunk = 600, kSet = 4 * kChunk, kAfter = 8 * kChunk;
  const std::vector<float> in = ondrel_test::TestSignal(kSet + kAfter, 2, 44100.0f, 1.5f);
  static const char* const kStep[] = {"min",       "max",        "below min",
                                      "above max", "script 0/0", "script 1/0"};
  AEffect* table = New();
  ASSERT_NE(table, nullptr);
  for (int p = 0; p < table->numParams; ++p) {
    if (table->dispatcher(table, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f)) continue;
    char name[64] = {};
    table->dispatcher(table, ONDREL_OP_GET_PARAM_NAME, p, 0, name, 0.0f);
    const float lo = table->object->params[p].minValue, hi = table->object->params[p].maxValue;
    float def = 0.0f;
    table->dispatcher(table, ONDREL_OP_GET_PARAM_DEFAULT, p, 0, &def, 0.0f);
    const float values[] = {lo, hi, lo - (hi - lo), hi + (hi - lo)};
    for (int step = 0; step < 6; ++step) {
      AEffect* fx = New();
      if (step < 4) {
        ASSERT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM, p, 0, nullptr, values[step]), 0);
      } else {
        fx->dispatcher(fx, ONDREL_OP_SET_PARAM_SCRIPT, p, 0,
                       const_cast<char*>(step == 4 ? "0/0" : "1/0"), 0.0f);
      }
      // Refused values change nothing, also on the running chain below.
      EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM, p, 0, nullptr, NAN), ONDREL_E_INVALID);
      const ondrel_test::StreamResult r =
          ondrel_test::RunStream(fx, 44100.0f, 2, in, {kChunk}, [&](int i, AEffect* h) {
            if (i == 2) {
              EXPECT_EQ(h->dispatcher(h, ONDREL_OP_SET_PARAM, p, 0, nullptr, INFINITY),
                        ONDREL_E_INVALID);
            }
            if (i == kSet / kChunk) {
              h->dispatcher(h, ONDREL_OP_SET_PARAM_SCRIPT, p, 0, const_cast<char*>(""), 0.0f);
              h->dispatcher(h, ONDREL_OP_SET_PARAM, p, 0, nullptr, def);
            }
          });
      EXPECT_TRUE(StatusOf(type, r.status)) << name << " " << kStep[step] << ": " << r.status;
      // A user can set the ends of the range; those must stay finite.
      const bool mustBeFinite = step < 2 && !NonFiniteByDesign(type, name);
      EXPECT_TRUE(!mustBeFinite || FirstNonFinite(r.output) == r.output.size())
          << "'" << name << "' at its " << kStep[step];
    }
  }
  ondrel_destroy_effect(table);
}

std::string TypeName(const testing::TestParamInfo<int>& info) {
  return "type" + std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(Catalogue, MisuseSweep, testing::ValuesIn(ondrel_test::BuiltTypes()),
                         TypeName);

// A router whose input count grows on a running chain that is wider than it
// (the upmixer behind it makes the chain six channels wide): the frames of
// the surplus channels must leave the effect as fast as they enter, and the
// audio keeps flowing.
TEST(MisuseChain, ChannelCountChangeOnARunningChainKeepsQueuesBounded) {
  ondrel_test::SilenceLog();
  AEffect* chain[2] = {ondrel_test::NewEffect(EFFECT_CHAOS),
                       ondrel_test::NewEffect(EFFECT_TWO_TO_SIX)};
  AEffect* chaos = chain[0];
  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, 2, 0);
  ondrel_set_samplerate(inst, 44100.0f);
  ASSERT_EQ(ondrel_set_params(inst, chain, 2), ONDREL_OK);
  const std::vector<float> in = ondrel_test::TestSignal(1024, 2, 44100.0f);
  std::vector<float> out(64 * 4096);
  long pushed = 0, delivered = 0;
  for (int call = 0; call < 400; ++call) {
    if (call == 10)  // the input multiplier to 2x: four inputs, two outputs
      chaos->dispatcher(chaos, ONDREL_OP_SET_PARAM, 0, 0, nullptr, 1.0f);
    int available = 0, written = 0;
    ondrel_processf_input(inst, const_cast<float*>(in.data()), 2048, &available);
    ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
    pushed += 1024;
    delivered += written / 6;
  }
  auto* adapter = dynamic_cast<IOndrel2*>(chaos->object);
  ASSERT_NE(adapter, nullptr);
  EXPECT_LT(adapter->dryFifo.Count(), 8 * 1024);
  EXPECT_GT(delivered, pushed - 16 * 1024);
  ondrel_destroy_inst(inst);
}

}  // namespace
