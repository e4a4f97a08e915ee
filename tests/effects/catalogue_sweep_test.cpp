// Properties every built effect type must have, checked for each row of the
// effect list (a new type gets them by its row):
//  - host call sizes do not change the output (seeded random chunks against
//    one call, flushed tails included);
//  - 1, 2, 6 and 8 channels with their standard masks keep the channel count
//    and give finite output; at the defaults it stays bounded and the tail
//    after silence holds no denormals;
//  - a busy setting (every slider near its top) gives finite output and only
//    the library's statuses;
//  - the flushed stream is the input length plus the reported latency;
//  - the parameter table is well formed.
// A type opts out of one property only through kExceptions below.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"
#include "framework/effect_types.h"
#include "framework/ondrel2.h"
#include "support/log_capture.h"

using namespace ONDREL2;

namespace {

enum Property : unsigned {
  kKeepsChannels = 1u << 0,    // output channel count equals input
  kLengthIsLatency = 1u << 1,  // flushed output = input frames + GetLatency
  kQuietTail = 1u << 2,        // no denormals in the reply to silence
  kStatusOk = 1u << 3,         // process calls on audio return 0
};

// Types whose rules make them break one property, and why. Keep it short.
struct Exception {
  int type;
  unsigned skip;
};
const Exception kExceptions[] = {
    {3, kKeepsChannels},  // chaos: its rules set the output channel count
    // resampler: it only sets the rate; a block with frames stops the pass
    // with its frame count as the status.
    {10, kLengthIsLatency | kStatusOk},
    {25, kKeepsChannels},    // headphone rooms: any layout in, two ears out
    {27, kKeepsChannels},    // mono to dual: one channel in, two out
    {28, kLengthIsLatency},  // pitch: gives fewer frames while it fills
    // de-esser: one filter state runs through all channels in turn, so with
    // many channels it decays past the block-end cut inside one block.
    {37, kQuietTail},
    // vocal, virtual bass, two to six: their recursions are fixed to the
    // last bit and decay through the denormal range after the music stops.
    {21, kQuietTail},
    {38, kQuietTail},
    {40, kKeepsChannels | kQuietTail},  // two to six: the upmix is its purpose
};

bool Skips(int type, Property p) {
  for (const Exception& e : kExceptions)
    if (e.type == type && (e.skip & p) != 0) return true;
  return false;
}

// The status a process call may give for `type`.
bool StatusAllowed(int type, int status) {
  return status == ONDREL_OK || (Skips(type, kStatusOk) && status > 0 && status < 1000);
}

uint64_t MaskOf(int channels) {
  switch (channels) {
    case 1: return 0x4;
    case 2: return 0x3;
    case 6: return 0x3F;
    case 8: return 0x63F;
    default: return 0;
  }
}

AEffect* Make(int type, bool busy) {
  AEffect* fx = ondrel_test::NewEffect(static_cast<ONDREL_EFFECT_TYPE>(type));
  if (fx != nullptr && busy)
    for (int p = 0; p < fx->numParams; ++p)
      if (!fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f))
        fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.9f);
  return fx;
}

int32_t LatencyOf(AEffect* fx) {
  auto* adapter = dynamic_cast<IOndrel2*>(fx->object);
  return adapter != nullptr ? adapter->GetLatency() : 0;
}

class Catalogue : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { ondrel_test::SilenceLog(); }
};

TEST_P(Catalogue, ChunkSizesDoNotChangeTheOutput) {
  const int type = GetParam();
  const std::vector<float> in = ondrel_test::TestSignal(9000, 2, 44100.0f, 1.5f);
  for (bool busy : {false, true}) {
    const ondrel_test::StreamResult whole =
        ondrel_test::RunStream(Make(type, busy), 44100.0f, 2, in, {9000});
    std::mt19937 rng(static_cast<unsigned>(type) * 7919u + busy);
    std::vector<int> chunks(64);
    for (int& c : chunks) c = std::uniform_int_distribution<int>(1, 2500)(rng);
    const ondrel_test::StreamResult split =
        ondrel_test::RunStream(Make(type, busy), 44100.0f, 2, in, chunks);
    EXPECT_EQ(split.status, whole.status) << "busy " << busy;
    EXPECT_EQ(ondrel_test::FirstDifference(split.output, whole.output), whole.output.size())
        << "busy " << busy;
  }
}

TEST_P(Catalogue, ChannelCountsAndLayouts) {
  const int type = GetParam();
  for (int channels : {1, 2, 6, 8}) {
    AEffect* fx = Make(type, false);
    const int32_t latency = LatencyOf(fx);
    void* inst = ondrel_create_inst();
    ASSERT_EQ(ondrel_setup_input(inst, channels, MaskOf(channels)), ONDREL_OK);
    ASSERT_EQ(ondrel_set_params(inst, &fx, 1), ONDREL_OK);
    int outChannels = 0;
    uint64_t outMask = 0;
    ondrel_get_out_chns(inst, &outChannels, &outMask);
    if (!Skips(type, kKeepsChannels)) {
      EXPECT_EQ(outChannels, channels);
      EXPECT_EQ(outMask, MaskOf(channels));
    }
    ASSERT_GT(outChannels, 0);
    // A sine and a decaying noise burst, then silence.
    const int frames = 30000;
    std::vector<float> in(static_cast<size_t>(frames) * channels);
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> noise(-0.4f, 0.4f);
    for (int n = 0; n < 20000; ++n)
      for (int c = 0; c < channels; ++c)
        in[static_cast<size_t>(n) * channels + c] =
            0.5f * std::sin(0.05f * n + c) + noise(rng) * std::exp(-n / 4000.0f);
    std::vector<float> out;
    int available = 0;
    ASSERT_TRUE(StatusAllowed(
        type, ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available)));
    ASSERT_TRUE(StatusAllowed(type, ondrel_flush_to_buf(inst, &available)));
    out.resize(static_cast<size_t>(available));
    int written = 0;
    ASSERT_EQ(ondrel_processf_output(inst, out.data(), available, &written), ONDREL_OK);
    ondrel_destroy_inst(inst);
    if (!Skips(type, kLengthIsLatency) && !Skips(type, kKeepsChannels)) {
      EXPECT_EQ(written, (frames + latency) * outChannels) << channels << " channels";
    }
    float peak = 0.0f;
    for (int i = 0; i < written; ++i) {
      ASSERT_TRUE(std::isfinite(out[static_cast<size_t>(i)])) << channels << " channels, " << i;
      peak = std::max(peak, std::fabs(out[static_cast<size_t>(i)]));
    }
    EXPECT_LT(peak, 8.0f) << channels << " channels";
    // The last half second is the reply to silence: never denormal (that
    // would slow the host down for good).
    for (int i = std::max(0, written - 22050 * outChannels);
         i < written && !Skips(type, kQuietTail); ++i) {
      const float v = out[static_cast<size_t>(i)];
      ASSERT_TRUE(v == 0.0f || std::fpclassify(v) == FP_NORMAL) << channels << " channels, " << i;
    }
  }
}

TEST_P(Catalogue, BusySettingStaysFinite) {
  // The busy setting may ask for arithmetic far outside ordinary gains or a
  // design the effect refuses with a status; the output stays finite.
  const int type = GetParam();
  const ondrel_test::StreamResult r = ondrel_test::RunStream(
      Make(type, true), 48000.0f, 2, ondrel_test::TestSignal(20000, 2, 48000.0f, 3.0f));
  EXPECT_TRUE(StatusAllowed(type, r.status) || r.status == ONDREL_E_INVALID ||
              r.status == ONDREL_E_NOMEM)
      << r.status;
  for (size_t i = 0; i < r.output.size(); ++i) ASSERT_TRUE(std::isfinite(r.output[i])) << i;
}

TEST_P(Catalogue, ParameterTableIsWellFormed) {
  AEffect* fx = Make(GetParam(), false);
  AudioEffect& effect = *fx->object;
  ASSERT_EQ(fx->numParams, static_cast<int>(effect.params.size()));
  std::set<std::string> names;
  for (const ParamDesc& p : effect.params) {
    EXPECT_TRUE(names.insert(p.name).second) << "repeated " << p.name;
    EXPECT_GT(std::strlen(p.name), 0u);
    if (p.binary) continue;
    EXPECT_LE(p.minValue, p.maxValue) << p.name;
    EXPECT_TRUE(p.center >= p.minValue && p.center <= p.maxValue) << p.name;
    EXPECT_TRUE(p.shape >= 0.0f && p.shape <= 1.0f) << p.name;
    EXPECT_TRUE(std::isfinite(p.defaultValue)) << p.name;
    // A maximum close under an integer is an integer-like parameter: it
    // must sit exactly 2^-20 under it so that truncation stays in range.
    const float next = std::ceil(p.maxValue);
    if (next != p.maxValue && next - p.maxValue < 1e-4f) {
      EXPECT_EQ(p.maxValue, IntegerMax(static_cast<int>(next))) << p.name;
    }
  }
  ondrel_destroy_effect(fx);
}

INSTANTIATE_TEST_SUITE_P(AllTypes, Catalogue, testing::ValuesIn(ondrel_test::BuiltTypes()),
                         [](const testing::TestParamInfo<int>& info) {
                           return "type" + std::to_string(info.param);
                         });

}  // namespace
