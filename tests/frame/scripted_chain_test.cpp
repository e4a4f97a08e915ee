// Scripts inside the chain: bypass by GV_FXBYPASSED, the two-pass
// configuration, refreshes after modulator changes.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ondrel.h"
#include "support/log_capture.h"

using namespace ONDREL2;
using ondrel_test::LogCapture;

namespace {

class ScriptedChain : public ::testing::Test {
 protected:
  void SetUp() override {
    ondrel_test::SilenceLog();
    inst = ondrel_create_inst();
  }
  void TearDown() override { ondrel_destroy_inst(inst); }

  AEffect* Amp(float dB, const char* script) {
    AEffect* fx = nullptr;
    EXPECT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &fx), 0);
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, dB);
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM_SCRIPT, 0, 0, const_cast<char*>(script), 0);
    return fx;
  }
  int Length() {
    int count = 0;
    AEffect* out[8];
    ondrel_get_params(inst, out, 8, &count);
    return count;
  }
  // One block of a constant through the chain; the first output sample.
  float Level() {
    std::vector<float> in(2 * 512, 0.5f), out(2 * 2048);
    int avail = 0, written = 0;
    EXPECT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &avail), 0);
    EXPECT_EQ(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written), 0);
    return written > 0 ? out[0] : -1.0f;
  }

  void* inst = nullptr;
};

float Gain(float dB) { return static_cast<float>(std::pow(10.0, static_cast<double>(dB / 20.0f))); }

TEST_F(ScriptedChain, BypassedEffectsLeaveTheChain) {
  LogCapture log(4);
  AEffect* list[3] = {Amp(-6.0f, ""), Amp(-20.0f, "#GV_FXBYPASSED=1\nin"), Amp(0.0f, "in*2")};
  ASSERT_EQ(ondrel_set_params(inst, list, 3), 0);
  EXPECT_EQ(Length(), 2);
  EXPECT_TRUE(log.Has("[ON2L]:Bypassed"));
  EXPECT_TRUE(log.Has("[ON2L]:<p/Gain>: -6"));
  EXPECT_TRUE(log.Has("[ON2L]:<p/Gain>: 0 <-- 0"));
  EXPECT_EQ(Level(), 0.5f * Gain(-6.0f));

  // Every effect bypassed: an empty chain passes the host's buffer through.
  AEffect* all[2] = {Amp(-6.0f, "#GV_FXBYPASSED=1"), Amp(-6.0f, "#GV_FXBYPASSED=2")};
  ASSERT_EQ(ondrel_set_params(inst, all, 2), 0);
  EXPECT_EQ(Length(), 0);
  float odd[7] = {};
  int avail = 0;
  EXPECT_EQ(ondrel_processf_input(inst, odd, 7, &avail), 0);
  EXPECT_EQ(avail, 7);
}

TEST_F(ScriptedChain, SecondPassSeesWhatLaterEffectsLeft) {
  LogCapture log(4);
  // The first effect asks for a second pass and reads `late`, which only
  // the second effect's script defines.
  AEffect* list[2] = {Amp(0.0f, ">0-1\nlate"), Amp(0.0f, "#late=-6")};
  ASSERT_EQ(ondrel_set_params(inst, list, 2), 0);
  EXPECT_TRUE(log.Has("[ON2L]:2-pass"));
  EXPECT_EQ(Length(), 2);
  EXPECT_EQ(Level(), 0.5f * Gain(-6.0f) * Gain(-6.0f));
}

TEST_F(ScriptedChain, ModulatorChangesRerunTheScripts) {
  ondrel_set_modulator(nullptr, "CHAIN_TEST", 0.0);
  AEffect* list[2] = {Amp(-6.0f, ""), Amp(0.0f, "#GV_FXBYPASSED=gt(CHAIN_TEST,1)\nin")};
  ASSERT_EQ(ondrel_set_params(inst, list, 2), 0);
  EXPECT_EQ(Length(), 2);
  LogCapture log(4);
  EXPECT_EQ(ondrel_set_modulator(inst, "CHAIN_TEST", 2.0), 0);
  EXPECT_EQ(Length(), 1);
  EXPECT_TRUE(log.Has("[ON2L]:FX:Amplifier Bypassed") || log.Has("[ON2L]:FX:音量调节器 Bypassed") ||
              log.Has("[ON2L]:FX: Bypassed"));

  // Dropped by a refresh, the effect comes back with the next full list.
  AEffect* again[2] = {Amp(-6.0f, ""), Amp(0.0f, "#GV_FXBYPASSED=gt(CHAIN_TEST,5)\nin")};
  ASSERT_EQ(ondrel_set_params(inst, again, 2), 0);
  EXPECT_EQ(Length(), 2);

  // A scripted value follows a modulator named by no instance at the next
  // process call.
  AEffect* follow = Amp(0.0f, "0-CHAIN_TEST");
  ASSERT_EQ(ondrel_set_params(inst, &follow, 1), 0);
  ondrel_set_modulator(nullptr, "CHAIN_TEST", 3.0);
  Level();  // serves the change; the effect is dirty from its refresh
  EXPECT_EQ(Level(), 0.5f * Gain(-3.0f));
}

}  // namespace
