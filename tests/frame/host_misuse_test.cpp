// What a careless or hostile host can hand the library: counts beyond any
// stream, values that are not numbers, samples that are not finite. Each is
// answered by a status or a safe result.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <vector>

#include "ondrel.h"
#include "support/log_capture.h"

using namespace ONDREL2;

namespace {

AEffect* Make(ONDREL_EFFECT_TYPE type) {
  AEffect* fx = nullptr;
  EXPECT_EQ(ondrel_create_effect(type, &fx), ONDREL_OK);
  return fx;
}

// Channel counts no queue can carry are accepted without error, as before,
// but allocate nothing for channels that can never arrive (this would take
// gigabytes and tens of seconds otherwise); the chain keeps working once a
// real count comes back.
TEST(HostMisuse, HugeChannelCountsAllocateNothing) {
  ondrel_test::SilenceLog();
  void* inst = ondrel_create_inst();
  EXPECT_EQ(ondrel_setup_input(inst, INT_MAX, 0), ONDREL_OK);
  AEffect* eq = Make(EFFECT_IIR_EQ30);
  eq->dispatcher(eq, ONDREL_OP_SET_PARAM, 1, 0, nullptr, 6.0f);
  ondrel_set_params(inst, &eq, 1);
  EXPECT_EQ(ondrel_setup_input(inst, 1000000, 0), ONDREL_OK);
  EXPECT_EQ(ondrel_setup_input(inst, 2, 0), ONDREL_OK);
  std::vector<float> in(2048, 0.25f), out(4096);
  int available = 0, written = 0;
  EXPECT_EQ(ondrel_processf_input(inst, in.data(), 2048, &available), ONDREL_OK);
  EXPECT_EQ(ondrel_processf_output(inst, out.data(), available, &written), ONDREL_OK);
  EXPECT_GT(written, 0);
  ondrel_destroy_inst(inst);
}

// Channel counts through the dispatcher that do not fit 32 bits, and
// parameter values that are not finite, are refused and change nothing.
TEST(HostMisuse, DispatcherRefusesValuesThatAreNotNumbers) {
  ondrel_test::SilenceLog();
  AEffect* fx = Make(EFFECT_AMPLIFIER);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  for (float bad : {nan, inf, -inf, 2147483648.0f, 1e30f, -1e30f}) {
    EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_CHANNELS, 0, 3, nullptr, bad), ONDREL_E_INVALID);
    EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_OUT_CHANNELS, 0, 0, nullptr, bad), ONDREL_E_INVALID);
  }
  EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, -6.0f), ONDREL_OK);
  for (float bad : {nan, inf, -inf}) {
    EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, bad), ONDREL_E_INVALID);
    EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, 0, 0, nullptr, bad),
              ONDREL_E_INVALID);
  }
  float value = 0.0f;
  fx->dispatcher(fx, ONDREL_OP_GET_PARAM, 0, 0, &value, 0.0f);
  EXPECT_EQ(value, -6.0f);
  ondrel_destroy_effect(fx);
}

// One burst of NaN and infinity from the host: recursive filters would
// carry it for ever; the samples enter as silence instead, and the output
// is finite from the start. Finite input is untouched: the same stream
// without the burst gives the same samples outside it.
TEST(HostMisuse, NonFiniteSamplesEnterAsSilence) {
  ondrel_test::SilenceLog();
  const int frames = 8192;
  std::vector<float> clean(2 * frames);
  for (int i = 0; i < frames; ++i)
    clean[2 * i] = clean[2 * i + 1] = 0.3f * static_cast<float>(std::sin(i * 0.05));
  std::vector<float> dirty = clean;
  for (int i = 1000; i < 1064; ++i) {
    dirty[2 * i] = std::numeric_limits<float>::quiet_NaN();
    dirty[2 * i + 1] = i % 2 ? std::numeric_limits<float>::infinity() : -INFINITY;
  }
  for (size_t i = 2000; i < 2128; ++i) clean[i] = 0.0f;  // what the burst becomes
  auto run = [&](std::vector<float> in) {
    void* inst = ondrel_create_inst();
    ondrel_setup_input(inst, 2, 0);
    ondrel_set_samplerate(inst, 44100.0f);
    AEffect* fx = Make(EFFECT_PK_FILTER);
    ondrel_set_params(inst, &fx, 1);
    std::vector<float> out(in.size() + 4096);
    int available = 0, written = 0;
    EXPECT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available),
              ONDREL_OK);
    ondrel_processf_output(inst, out.data(), available, &written);
    out.resize(static_cast<size_t>(written));
    ondrel_destroy_inst(inst);
    return out;
  };
  const std::vector<float> a = run(dirty), b = run(clean);
  ASSERT_EQ(a.size(), b.size());
  ASSERT_GT(a.size(), 4096u);
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_TRUE(std::isfinite(a[i])) << "sample " << i;
    ASSERT_EQ(a[i], b[i]) << "sample " << i;
  }
}

}  // namespace
