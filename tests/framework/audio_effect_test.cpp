// The effect base and parameter model: value store, normalisation, texts,
// locales and the dispatcher.
#include "framework/audio_effect.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "framework/ondrel2.h"
#include "ondrel.h"
#include "support/log_capture.h"

namespace ONDREL2 {
namespace {

// A small effect with a float, an integer-like and a binary parameter.
class ProbeEffect : public IOndrel2 {
 public:
  ProbeEffect() {
    static const ParamDesc kTable[] = {
        {"Level", false, -60.0f, 12.0f, 0.0f, kGainShape, -3.0f, &FormatDecibels, 7, 9, &dB2scale,
         &scale2dB, false},
        {"Mode", false, 1.0f, 3.99999905f, 3.99999905f, 1.0f, 2.0f, &FormatInteger, 0, 0, nullptr,
         nullptr, true},
        {"File", true},
        {"Ratio", false, -3.0f, 3.99999905f, 0.0f, 0.5f, 9.0f, &FormatRatio},
        {""},
    };
    SetEffectName("zh", "探针");
    SetEffectName("zh-TW", "探針");
    SetEffectName("en", "Probe");
    SetParamTable(kTable);
    SetParamLabels("Level", "zh", "电平", "zh-TW", "電平", "en", "", nullptr);
    SetParamLabels("Mode", "ja", "モード", "en", "Operating mode", nullptr);
    effectType = 99;
  }
  AudioEffect* CreateInstance() override { return new ProbeEffect(); }
};

class EffectBase : public ::testing::Test {
 protected:
  void SetUp() override {
    ondrel_test::SilenceLog();
    ondrel_set_locale("en", "US");
  }
};

TEST_F(EffectBase, NewObjectStateAndChannelChanges) {
  ProbeEffect fx;
  AEffect* h = fx.GetAEffect();
  EXPECT_TRUE(fx.paramsDirty);
  fx.paramsDirty = false;
  fx.SetChannels(2, 0);
  EXPECT_FALSE(fx.paramsDirty);
  fx.SetChannels(2, 0x3);  // a new mask alone is a change
  EXPECT_TRUE(fx.paramsDirty);
  EXPECT_EQ(h->outputMask, 0x3u);
  fx.paramsDirty = false;
  fx.SetSampleRate(44100.0f);
  EXPECT_FALSE(fx.paramsDirty);

  // Opcode 13 carries the mask's high word in `index` and low word in `value`.
  h->dispatcher(h, ONDREL_OP_SET_CHANNELS, 0x1, 0x2, nullptr, 3.9f);
  EXPECT_EQ(h->numInputs, 3);
  EXPECT_EQ(h->inputMask, 0x100000002ull);
}

TEST_F(EffectBase, ValueStoreComparesBytesAndSizes) {
  ProbeEffect fx;
  fx.paramsDirty = false;
  fx.SetParam(0, -3.0f);  // the stored value: clean
  EXPECT_FALSE(fx.paramsDirty);
  double wide = 1.0;
  float first;
  std::memcpy(&first, &wide, 4);
  EXPECT_EQ(fx.SetParamData(0, &wide, 8), 4);  // a float parameter takes 4 bytes
  EXPECT_TRUE(fx.paramsDirty);
  EXPECT_EQ(fx.GetParam(0), first);

  // Binary parameter: no buffer until data arrives; grows, shrinks in place.
  fx.paramsDirty = false;
  EXPECT_EQ(fx.SetParamData(2, "", 0), 0);
  EXPECT_FALSE(fx.paramsDirty);
  EXPECT_EQ(fx.SetParamData(2, "hall.wav", 9), 9);
  EXPECT_TRUE(fx.paramsDirty);
  void* buffer = fx.GetParamData(2, nullptr);
  EXPECT_EQ(fx.SetParamData(2, "ab", 3), 3);
  int32_t size = 0;
  EXPECT_EQ(fx.GetParamData(2, &size), buffer);
  EXPECT_EQ(size, 3);
  EXPECT_STREQ(static_cast<const char*>(fx.GetParamData(2, nullptr)), "ab");
  fx.paramsDirty = false;
  EXPECT_EQ(fx.SetParamData(2, "ab", 3), 3);
  EXPECT_FALSE(fx.paramsDirty);
  EXPECT_EQ(fx.GetParam(2), -1.0f);
  EXPECT_EQ(fx.GetParamDefault(2), -1.0f);
  EXPECT_EQ(fx.GetParamNormalized(2), -1.0f);
  fx.SetParam(2, 5.0f);  // no float view: nothing happens
  EXPECT_EQ(size, 3);

  // Defaults outside the bounds are kept as given.
  EXPECT_EQ(fx.GetParam(3), 9.0f);
  EXPECT_EQ(fx.GetScriptedParam(3), 9.0f);
}

TEST_F(EffectBase, NormalisedValuesInterpolateInTheLinearDomain) {
  ProbeEffect fx;
  fx.SetParamNormalized(0, 2.0f);
  EXPECT_FLOAT_EQ(fx.GetParam(0), 12.0f);
  fx.SetParamNormalized(0, -1.0f);
  EXPECT_NEAR(fx.GetParam(0), -60.0f, 1e-3);
  fx.SetParamNormalized(0, kGainShape);
  EXPECT_NEAR(fx.GetParam(0), 0.0f, 1e-5);
  // Halfway between centre and top is halfway in linear gain, not in dB.
  const float halfway = kGainShape + (1.0f - kGainShape) / 2.0f;
  fx.SetParamNormalized(0, halfway);
  const double expect = 20.0 * std::log10((1.0 + std::pow(10.0, 12.0 / 20.0)) / 2.0);
  EXPECT_NEAR(fx.GetParam(0), expect, 1e-4);
  EXPECT_NEAR(fx.GetParamNormalized(0), halfway, 1e-6);

  EXPECT_EQ(norm_center(5.0f, 10.0f, 0.0f, 5.0f, 0.3f), 0.3f);
  EXPECT_EQ(denorm_center(0.3f, 10.0f, 0.0f, 5.0f, 0.3f), 5.0f);
  EXPECT_EQ(denorm_center(0.0f, 10.0f, -4.0f, 5.0f, 0.3f), -4.0f);
  EXPECT_EQ(denorm_center(1.0f, 10.0f, -4.0f, 5.0f, 0.3f), 10.0f);
  EXPECT_EQ(norm_center(20.0f, 10.0f, 0.0f, 5.0f, 0.3f), 1.0f);
}

TEST_F(EffectBase, ScriptsVersionsAndTheScriptedRead) {
  ProbeEffect fx;
  EXPECT_EQ(fx.GetScriptVersion(), 2);
  fx.paramsDirty = false;
  fx.SetParamScript(1, nullptr);
  EXPECT_FALSE(fx.paramsDirty);
  fx.SetParamScript(1, "#GV_SCRIPTVERSION=3\nin");
  EXPECT_TRUE(fx.paramsDirty);
  EXPECT_EQ(fx.GetScriptVersion(), 3);
  fx.SetParamScript(1, "#GV_SCRIPTVERSIONX=7");
  EXPECT_EQ(fx.GetScriptVersion(), 3);  // never falls back, and the key must match
  fx.SetParamScript(0, "#GV_SCRIPTVERSION=4");
  EXPECT_EQ(fx.GetScriptVersion(), 4);

  ondrel_test::LogCapture log(4);
  fx.SetParamScript(0, "");
  fx.SetParam(0, 40.0f);
  EXPECT_EQ(fx.GetScriptedParam(0), 40.0f);  // no script: not clamped
  EXPECT_TRUE(log.Has("[ON2L]:<p/Level>: 40"));
  EXPECT_THROW(fx.GetParamIndex("Nope"), std::out_of_range);
}

TEST_F(EffectBase, DispatcherOpcodes) {
  auto* fx = new ProbeEffect();
  AEffect* h = fx->GetAEffect();
  EXPECT_EQ(h->dispatcher(h, ONDREL_OP_GET_PARAM_INDEX, 0, 0, const_cast<char*>("File"), 0), 2);
  EXPECT_EQ(h->dispatcher(h, ONDREL_OP_SET_PARAM_DATA, 2, 4, const_cast<char*>("abc"), 0), 4);
  void* data = nullptr;
  EXPECT_EQ(h->dispatcher(h, ONDREL_OP_GET_PARAM_DATA, 2, 0, &data, 0), 4);
  EXPECT_STREQ(static_cast<char*>(data), "abc");
  fx->paramsDirty = false;
  EXPECT_EQ(h->dispatcher(h, ONDREL_OP_NONE, 0, 0, nullptr, 0), 0);
  EXPECT_EQ(h->dispatcher(h, 26, 0, 0, nullptr, 0), 0);
  EXPECT_FALSE(fx->paramsDirty);
  EXPECT_EQ(h->dispatcher(h, ONDREL_OP_SUSPEND_RESUME, 0, 1, nullptr, 0), 0);
  EXPECT_GT(fx->scratchSize, 0);
  // Close deletes the object; the sanitizer build checks nothing leaks.
  EXPECT_EQ(h->dispatcher(h, ONDREL_OP_CLOSE, 0, 0, nullptr, 0), 1);
}

}  // namespace
}  // namespace ONDREL2
