// The processing instance through the exported interface: chain decisions
// and renegotiation. Sample-exact paths are checked where the conversions
// live (the queue tests) and end to end by the tool tests.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ondrel.h"
#include "support/log_capture.h"

using namespace ONDREL2;
using ondrel_test::LogCapture;

namespace {

std::string Ptr(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
}

class Instance : public ::testing::Test {
 protected:
  void SetUp() override {
    ondrel_test::SilenceLog();
    ondrel_init(nullptr);
    inst = ondrel_create_inst();
    ASSERT_NE(inst, nullptr);
  }
  void TearDown() override {
    ondrel_destroy_inst(inst);
    ondrel_uninit();
  }

  AEffect* Make(ONDREL_EFFECT_TYPE type) {
    AEffect* fx = nullptr;
    EXPECT_EQ(ondrel_create_effect(type, &fx), 0);
    return fx;
  }
  AEffect* Amp(float dB, const char* script = nullptr) {
    AEffect* fx = Make(EFFECT_AMPLIFIER);
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, dB);
    if (script) fx->dispatcher(fx, ONDREL_OP_SET_PARAM_SCRIPT, 0, 0, const_cast<char*>(script), 0);
    return fx;
  }

  void* inst = nullptr;
};

TEST_F(Instance, SetParamsChoosesBetweenNothingOnTheFlyAndRebuild) {
  LogCapture log(3);
  AEffect* first[2] = {Amp(-6.0f), Amp(0.0f)};
  ASSERT_EQ(ondrel_set_params(inst, first, 2), 0);
  EXPECT_TRUE(log.Has("[ON2L]:UpdateCurrentEffectList"));
  AEffect *running[2], *after[2];
  int count = 0;
  ASSERT_EQ(ondrel_get_params(inst, running, 2, &count), 0);

  // Identical values: nothing to do, and the handed-in effects are gone
  // (the sanitizer build would report a leak otherwise).
  log.clear();
  AEffect* same[2] = {Amp(-6.0f), Amp(0.0f)};
  EXPECT_EQ(ondrel_set_params(inst, same, 2), 12000);
  EXPECT_FALSE(log.Has("[ON2L]:UpdateCurrentEffectList"));

  // One changed value: applied on the fly to the running object.
  AEffect* one[2] = {Amp(-6.0f), Amp(-12.0f)};
  EXPECT_EQ(ondrel_set_params(inst, one, 2), 0);
  EXPECT_TRUE(log.Has("[ON2L]:FX 1 is On the fly"));
  ASSERT_EQ(ondrel_get_params(inst, after, 2, &count), 0);
  EXPECT_EQ(after[1], running[1]);
  float gain = 0;
  after[1]->dispatcher(after[1], ONDREL_OP_GET_PARAM, 0, 0, &gain, 0);
  EXPECT_EQ(gain, -12.0f);

  // A script on the effect's last parameter refreshes the whole list.
  log.clear();
  AEffect* scripted[2] = {Amp(-6.0f), Amp(-12.0f, "in")};
  EXPECT_EQ(ondrel_set_params(inst, scripted, 2), 0);
  EXPECT_TRUE(log.Has("[ON2L]:KissEffectList because of Script"));
  EXPECT_EQ(log.Count("[ON2L]:KissEffectList:2"), 2);

  // Two changes, even in two effects, or another type at a position: rebuild.
  AEffect* two[2] = {Amp(-3.0f), Amp(-1.0f, "in")};
  AEffect* typed[2] = {Amp(-3.0f), Make(EFFECT_THROUGH)};
  for (AEffect** list : {two, typed}) {
    log.clear();
    EXPECT_EQ(ondrel_set_params(inst, list, 2), 0);
    EXPECT_TRUE(log.Has("[ON2L]:UpdateCurrentEffectList"));
    ASSERT_EQ(ondrel_get_params(inst, after, 2, &count), 0);
    EXPECT_EQ(after[0], list[0]);
  }
  // A count of 0 clears the chain.
  EXPECT_EQ(ondrel_set_params(inst, nullptr, 0), 0);
  EXPECT_EQ(ondrel_get_params(inst, after, 2, &count), 0);
  EXPECT_EQ(count, 0);
}

// A null instance still takes ownership of the list (the sanitizer build
// sees a leak otherwise). The same rate again does not reconfigure the
// chain; another does.
TEST_F(Instance, NullInstanceOwnsTheListAndTheSameRateChangesNothing) {
  ASSERT_EQ(ondrel_setup_input(inst, 6, 0x3F), 0);
  ASSERT_EQ(ondrel_set_samplerate(inst, 48000.0f), 0);
  AEffect* fx = Amp(0.0f);
  ASSERT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  AEffect* orphan = Amp(1.0f);
  EXPECT_EQ(ondrel_set_params(nullptr, &orphan, 1), 2000);
  LogCapture log(4);
  EXPECT_EQ(ondrel_set_samplerate(inst, 48000.0f), 0);
  EXPECT_TRUE(log.Has("[ON2L]:set_samplerate: " + Ptr(inst) + ", 48000"));
  EXPECT_FALSE(log.Has("[ON2L]:in/sr:48000, ch:6, layout:3f"));
  EXPECT_EQ(ondrel_set_samplerate(inst, 44100.0f), 0);
  EXPECT_TRUE(log.Has("[ON2L]:in/sr:44100, ch:6, layout:3f"));
}

}  // namespace
