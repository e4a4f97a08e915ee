// Every effect type this build has, at its defaults and with every float
// parameter near the top of its slider, through many blocks of a standard
// signal. At the defaults the output stays finite and bounded and nothing
// is left denormal. The busy setting may ask for arithmetic far outside
// ordinary gains (the de-esser's drive is a power of ten of the dB value)
// or a design the effect refuses with a status: there the output must stay
// finite and every status must be one of the library's codes.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "ondrel.h"
#include "support/log_capture.h"

using namespace ONDREL2;

namespace {

struct Setting {
  int type;
  bool busy;
};

std::string Name(const testing::TestParamInfo<Setting>& info) {
  return "type" + std::to_string(info.param.type) + (info.param.busy ? "_busy" : "_defaults");
}

class CatalogueSweep : public testing::TestWithParam<Setting> {};

TEST_P(CatalogueSweep, StaysFiniteBoundedAndQuiet) {
  ondrel_test::SilenceLog();
  const Setting setting = GetParam();
  AEffect* fx = nullptr;
  ASSERT_EQ(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(setting.type), &fx), 0);
  if (setting.busy) {
    for (int p = 0; p < fx->numParams; ++p) {
      if (fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0)) continue;
      // Slightly below the top keeps integer-like choices inside their range.
      fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.9f);
    }
  }
  void* inst = ondrel_create_inst();
  ASSERT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  int channels = 0;
  uint64_t layout = 0;
  ondrel_get_out_chns(inst, &channels, &layout);
  ASSERT_GT(channels, 0);

  // Half a second of a decaying noise burst and a sine at -6 dBFS, then
  // silence, in 1024-frame buffers.
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
  const int frames = 1024;
  std::vector<float> in(2 * frames), out(static_cast<size_t>(channels) * frames * 8);
  float peak = 0.0f;
  int blocks = 0;
  auto expectStatus = [&](int status) {
    // The resampler only sets the rate: a block with frames stops the pass
    // with its frame count, by design.
    if (setting.type == EFFECT_RESAMPLER && status == 512) return;
    if (setting.busy)
      EXPECT_TRUE(status == 0 || status == 2000 || status == 2001) << "type " << setting.type;
    else
      EXPECT_EQ(status, 0) << "type " << setting.type;
  };
  auto check = [&](int written) {
    for (int i = 0; i < written; ++i) {
      const float v = out[static_cast<size_t>(i)];
      ASSERT_TRUE(std::isfinite(v)) << "type " << setting.type << " sample " << i;
      peak = std::max(peak, std::fabs(v));
    }
  };
  for (int b = 0; b < 64; ++b, ++blocks) {
    for (int i = 0; i < frames; ++i) {
      const int n = b * frames + i;
      const float s = n < 22050 ? 0.5f * std::sin(0.05f * static_cast<float>(n)) +
                                      noise(rng) * std::exp(-static_cast<float>(n) / 4000.0f)
                                : 0.0f;
      in[static_cast<size_t>(2 * i)] = s;
      in[static_cast<size_t>(2 * i + 1)] = -s;
    }
    int avail = 0, written = 0;
    expectStatus(ondrel_processf_input(inst, in.data(), 2 * frames, &avail));
    expectStatus(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written));
    check(written);
  }
  // A second of silence has passed: what comes out now is small and never
  // denormal (denormals would slow the host down for good).
  int avail = 0, written = 0;
  expectStatus(ondrel_flush_to_buf(inst, &avail));
  expectStatus(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written));
  check(written);
  if (!setting.busy) {
    for (int i = 0; i < written; ++i) {
      const float v = out[static_cast<size_t>(i)];
      EXPECT_TRUE(v == 0.0f || std::fpclassify(v) == FP_NORMAL) << "type " << setting.type;
    }
    EXPECT_LT(peak, 8.0f) << "type " << setting.type;
  }
  ondrel_destroy_inst(inst);
}

std::vector<Setting> AllSettings() {
  // Only the types this build has; the others are unknown to it. This runs
  // while the tests are listed, so the library must not print.
  ondrel_test::SilenceLog();
  std::vector<Setting> settings;
  for (int type = 1; type <= 40; ++type) {
    AEffect* fx = nullptr;
    if (ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(type), &fx) != 0) continue;
    ondrel_destroy_effect(fx);
    settings.push_back({type, false});
    settings.push_back({type, true});
  }
  return settings;
}

INSTANTIATE_TEST_SUITE_P(AllTypes, CatalogueSweep, testing::ValuesIn(AllSettings()), Name);

}  // namespace
