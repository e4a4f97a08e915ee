// What a careless or hostile host can hand the library: counts beyond any
// stream, missing pointers, values that are not numbers. Each is answered
// by a status or a safe result. (Samples that are not finite enter as
// silence: the queue tests; every type under them: the misuse sweep.)
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
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

bool IsStatus(int rc) { return rc == ONDREL_OK || rc == ONDREL_E_INVALID || rc == ONDREL_E_NOMEM; }

// Every exported function of the library and instance families with null
// pointers, negative and odd counts: a status or a harmless result each
// (the resource helpers' null paths: the resource tests).
TEST(HostMisuse, ExportedFunctionsTakeNullsAndBadCounts) {
  ondrel_test::SilenceLog();
  int16_t pcm[64] = {};
  float pcmf[64] = {};
  int n = 0;
  float rate = 0.0f;
  uint64_t mask = 0;
  AEffect* fx = nullptr;

  // No instance at all.
  EXPECT_EQ(ondrel_setup_input(nullptr, 2, 0), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_set_samplerate(nullptr, 44100.0f), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_get_samplerate(nullptr, &rate), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_get_in_chns(nullptr, &n, &mask), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_get_out_chns(nullptr, &n, &mask), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_set_params(nullptr, nullptr, 0), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_get_params(nullptr, nullptr, 0, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_process_input(nullptr, pcm, 2, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_processf_input(nullptr, pcmf, 2, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_process_output(nullptr, pcm, 2, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_processf_output(nullptr, pcmf, 2, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_flush_to_buf(nullptr, &n), ONDREL_OK);
  ondrel_flush_out(nullptr);
  ondrel_destroy_inst(nullptr);

  // Library helpers.
  EXPECT_EQ(ondrel_set_locale(nullptr, nullptr), ONDREL_OK);
  EXPECT_EQ(ondrel_set_resource_root(nullptr, 0), ONDREL_OK);
  EXPECT_NE(ondrel_get_res_paths(nullptr), nullptr);
  EXPECT_EQ(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(-1), &fx), ONDREL_E_INVALID);
  EXPECT_EQ(fx, nullptr);
  EXPECT_EQ(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(41), &fx), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_get_existing_effect(static_cast<ONDREL_EFFECT_TYPE>(0), &fx), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_destroy_effect(nullptr), ONDREL_OK);
  AEffect hollow{};
  EXPECT_EQ(ondrel_destroy_effect(&hollow), ONDREL_OK);
  EXPECT_EQ(ondrel_destroy_paramstream(nullptr), ONDREL_OK);
  EXPECT_TRUE(IsStatus(ondrel_destroy_params(nullptr, 3, true)));
  void* stream = nullptr;
  EXPECT_EQ(ondrel_params2stream(nullptr, &n, nullptr, 0, nullptr), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_params2stream(&stream, nullptr, nullptr, 0, nullptr), ONDREL_E_INVALID);
  AEffect** list = nullptr;
  const uint8_t junk[16] = {1, 2, 3};
  EXPECT_EQ(ondrel_stream2params(&list, &n, nullptr, 16, nullptr), ONDREL_E_INVALID);
  for (int size : {-1, 0, INT_MIN}) {
    EXPECT_EQ(ondrel_stream2params(&list, &n, junk, size, nullptr), ONDREL_E_INVALID) << size;
    EXPECT_EQ(list, nullptr);
  }
  EXPECT_EQ(ondrel_set_modulator(nullptr, "RELIABILITY_PROBE", 1.0), ONDREL_OK);

  // An instance, stereo at 44100 Hz with one effect.
  void* inst = ondrel_create_inst();
  ASSERT_NE(inst, nullptr);
  for (int channels : {0, -1, INT_MIN})
    EXPECT_EQ(ondrel_setup_input(inst, channels, 0), ONDREL_E_INVALID) << channels;
  EXPECT_EQ(ondrel_setup_input(inst, 2, 0), ONDREL_OK);
  for (float bad : {0.0f, -44100.0f, NAN, -INFINITY, INFINITY, 1e30f, 16777218.0f})
    EXPECT_EQ(ondrel_set_samplerate(inst, bad), ONDREL_E_INVALID) << bad;
  EXPECT_EQ(ondrel_get_samplerate(inst, nullptr), ONDREL_OK);
  fx = Make(EFFECT_PK_FILTER);
  ASSERT_EQ(ondrel_set_params(inst, &fx, 1), ONDREL_OK);
  EXPECT_EQ(ondrel_get_params(inst, nullptr, 4, &n), ONDREL_E_NOMEM);
  EXPECT_EQ(n, 1);
  AEffect* one[1];
  EXPECT_EQ(ondrel_get_params(inst, one, 0, &n), ONDREL_E_NOMEM);
  EXPECT_EQ(ondrel_get_params(inst, one, 1, &n), ONDREL_OK);
  EXPECT_EQ(one[0], fx);
  // A list with a null handle is refused; the running chain stays.
  AEffect* withNull[2] = {Make(EFFECT_AMPLIFIER), nullptr};
  EXPECT_EQ(ondrel_set_params(inst, withNull, 2), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_get_params(inst, one, 1, &n), ONDREL_OK);
  EXPECT_EQ(one[0], fx);

  // Odd and negative counts never touch the buffers beyond their end.
  for (int count : {1, 3, -1, -2, INT_MIN, INT_MIN + 1}) {
    EXPECT_EQ(ondrel_process_input(inst, pcm, count, &n), ONDREL_E_INVALID) << count;
    EXPECT_EQ(ondrel_processf_input(inst, pcmf, count, &n), ONDREL_E_INVALID) << count;
  }
  EXPECT_EQ(ondrel_processf_input(inst, pcmf, 0, &n), ONDREL_OK);
  EXPECT_EQ(ondrel_processf_input(inst, pcmf, 64, &n), ONDREL_OK);
  for (int count : {-1, -2, INT_MIN, 0, 1, 3}) {
    EXPECT_TRUE(IsStatus(ondrel_process_output(inst, pcm, count, &n))) << count;
    EXPECT_TRUE(IsStatus(ondrel_processf_output(inst, pcmf, count, &n))) << count;
  }
  // Rates from one hertz to 384 kHz; each renegotiates and processes.
  std::vector<float> in(2 * 2048, 0.25f), out(2 * 8192);
  for (float r : {1.0f, 8000.0f, 384000.0f, 44100.0f}) {
    EXPECT_EQ(ondrel_set_samplerate(inst, r), ONDREL_OK) << r;
    EXPECT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &n), ONDREL_OK);
    int written = 0;
    EXPECT_EQ(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written),
              ONDREL_OK);
    for (int i = 0; i < written; ++i) ASSERT_TRUE(std::isfinite(out[i])) << r;
  }
  // 65 channels: the queues stay stereo-wide, calls fail or drop channels.
  EXPECT_EQ(ondrel_setup_input(inst, 65, 0), ONDREL_OK);
  std::vector<float> wide(65 * 600, 0.1f);
  EXPECT_TRUE(
      IsStatus(ondrel_processf_input(inst, wide.data(), static_cast<int>(wide.size()), &n)));
  EXPECT_TRUE(IsStatus(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &n)));
  EXPECT_TRUE(IsStatus(ondrel_flush_to_buf(inst, &n)));
  ondrel_flush_out(inst);
  EXPECT_EQ(ondrel_set_params(inst, nullptr, 0), ONDREL_OK);
  ondrel_destroy_inst(inst);
}

// Result and text pointers left null, null keys and list entries, indices
// outside the parameter table, values that are not numbers: every call
// returns, none writes through the missing pointer.
TEST(HostMisuse, MissingPointersAndIndicesOutsideTheTable) {
  ondrel_test::SilenceLog();
  void* inst = ondrel_create_inst();
  AEffect* fx = Make(EFFECT_AMPLIFIER);
  ASSERT_EQ(ondrel_set_params(inst, &fx, 1), ONDREL_OK);
  // Channel counts through the dispatcher that do not fit 32 bits, and
  // normalised values that are not finite, are refused and change nothing
  // (plain values that are not finite: the misuse sweep, for every type).
  EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, -6.0f), ONDREL_OK);
  for (float bad : {NAN, INFINITY, -INFINITY, 2147483648.0f, 1e30f, -1e30f}) {
    EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_CHANNELS, 0, 3, nullptr, bad), ONDREL_E_INVALID);
    EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_OUT_CHANNELS, 0, 0, nullptr, bad), ONDREL_E_INVALID);
    if (!std::isfinite(bad)) {
      EXPECT_EQ(fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, 0, 0, nullptr, bad),
                ONDREL_E_INVALID);
    }
  }
  float value = 0.0f;
  fx->dispatcher(fx, ONDREL_OP_GET_PARAM, 0, 0, &value, 0.0f);
  EXPECT_EQ(value, -6.0f);

  float pcm[8] = {};
  int n = 0;
  EXPECT_EQ(ondrel_set_modulator(nullptr, nullptr, 1.0), ONDREL_OK);
  EXPECT_EQ(ondrel_set_modulator(inst, nullptr, 1.0), ONDREL_OK);
  set_modulator_user(nullptr, 1.0);
  EXPECT_FALSE(get_modulator_user(nullptr, nullptr));
  EXPECT_TRUE(IsStatus(ondrel_get_in_chns(inst, nullptr, nullptr)));
  EXPECT_TRUE(IsStatus(ondrel_get_out_chns(inst, nullptr, nullptr)));
  EXPECT_EQ(ondrel_processf_input(inst, nullptr, 4, &n), ONDREL_E_INVALID);
  EXPECT_EQ(ondrel_process_input(inst, nullptr, 4, &n), ONDREL_E_INVALID);
  EXPECT_TRUE(IsStatus(ondrel_processf_input(inst, pcm, 4, nullptr)));
  EXPECT_TRUE(IsStatus(ondrel_processf_output(inst, nullptr, 4, &n)));
  EXPECT_TRUE(IsStatus(ondrel_processf_output(inst, pcm, 4, nullptr)));
  EXPECT_TRUE(IsStatus(ondrel_process_output(inst, nullptr, 4, nullptr)));
  EXPECT_TRUE(IsStatus(ondrel_get_params(inst, &fx, 1, nullptr)));
  EXPECT_TRUE(IsStatus(ondrel_flush_to_buf(inst, nullptr)));
  EXPECT_TRUE(IsStatus(ondrel_set_params(inst, nullptr, 3)));
  EXPECT_TRUE(IsStatus(ondrel_set_params(inst, &fx, -1)));
  EXPECT_EQ(ondrel_stream2params(nullptr, nullptr, pcm, 8, nullptr), ONDREL_E_INVALID);
  for (int count : {2, -3}) {
    void* stream = nullptr;
    int size = 0;
    EXPECT_TRUE(IsStatus(ondrel_params2stream(&stream, &size, nullptr, count, nullptr)));
    ondrel_destroy_paramstream(stream);
  }
  const char* roots[2] = {"/nonexistent/", nullptr};
  EXPECT_EQ(ondrel_set_resource_root(nullptr, 3), ONDREL_OK);
  EXPECT_EQ(ondrel_set_resource_root(roots, 2), ONDREL_OK);
  EXPECT_EQ(ondrel_set_resource_root(roots, -5), ONDREL_OK);
  EXPECT_EQ(ondrel_set_resource_root(nullptr, 0), ONDREL_OK);
  EXPECT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, nullptr), ONDREL_E_INVALID);
  EXPECT_TRUE(IsStatus(ondrel_get_existing_effect(EFFECT_AMPLIFIER, nullptr)));

  // Every opcode with a null pointer, and with indices outside the table.
  AEffect* limiter = Make(EFFECT_LIMITER);
  for (int op = ONDREL_OP_OPEN; op <= ONDREL_OP_GET_SCRIPT_VERSION; ++op)
    if (op != ONDREL_OP_CLOSE) limiter->dispatcher(limiter, op, 0, 0, nullptr, 0.0f);
  char text[256] = "in";
  for (int index : {-1, 999, INT_MIN, limiter->numParams})
    for (int op = ONDREL_OP_GET_PARAM_LABEL; op <= ONDREL_OP_PARAM_NEEDS_REBUILD; ++op) {
      // Skipped: the opcodes without a parameter index.
      if (op == ONDREL_OP_GET_PARAM_INDEX ||
          (op >= ONDREL_OP_SET_CHANNELS && op <= ONDREL_OP_SUSPEND_RESUME && op != ONDREL_OP_NONE))
        continue;
      // Value and data results aim at `value`, which must stay as it is.
      const bool number = op == ONDREL_OP_GET_PARAM_DATA || op == ONDREL_OP_GET_PARAM ||
                          op == ONDREL_OP_GET_PARAM_DEFAULT || op == ONDREL_OP_GET_PARAM_HINTS ||
                          op == ONDREL_OP_GET_PARAM_NORMALIZED;
      void* ptr = number ? static_cast<void*>(&value) : text;
      const int32_t r = limiter->dispatcher(limiter, op, index, 4, ptr, 0.5f);
      if (op == ONDREL_OP_GET_PARAM_DATA || op == ONDREL_OP_SET_PARAM_DATA ||
          op == ONDREL_OP_IS_PARAM_BINARY || op == ONDREL_OP_GET_PARAM_HINTS) {
        EXPECT_EQ(r, 0) << "opcode " << op << " index " << index;
      }
    }
  EXPECT_EQ(value, -6.0f);
  // Binary data of negative or huge claimed size without a buffer.
  AEffect* ir = Make(EFFECT_STUDIO_IR);
  EXPECT_TRUE(IsStatus(ir->dispatcher(ir, ONDREL_OP_SET_PARAM_DATA, 0, -5, text, 0.0f)));
  EXPECT_TRUE(IsStatus(ir->dispatcher(ir, ONDREL_OP_SET_PARAM_DATA, 0, INT_MAX, nullptr, 0.0f)));
  ondrel_destroy_effect(ir);
  ondrel_destroy_effect(limiter);
  ondrel_destroy_inst(inst);
}

}  // namespace
