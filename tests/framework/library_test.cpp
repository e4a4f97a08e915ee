// Library state, catalogue, modulators and logging.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "frame/modulators.h"
#include "ondrel.h"
#include "support/log_capture.h"

using namespace ONDREL2;
using ondrel_test::LogCapture;

namespace {

TEST(Library, InitSetsLocaleModulatorsAndLogs) {
  LogCapture log(4);
  ASSERT_EQ(ondrel_init(nullptr), 0);
  EXPECT_TRUE(log.Has("[ON2L]:ondrel v4 init"));
  EXPECT_TRUE(log.Has("[ON2L]:set_modulator: GEAR_PRICE, 0"));
  EXPECT_EQ(get_modulator_user("GEAR_PRICE"), 400000.0);
  EXPECT_EQ(get_modulator_user("CPU"), 50.0);
  // zh-CN at start; a null part stays, longer parts are cut to two letters.
  char lang[3], country[3];
  const struct {
    const char *setLang, *setCountry, *lang, *country;
  } locales[] = {
      {nullptr, nullptr, "zh", "CN"}, {nullptr, "US", "zh", "US"}, {"e", "GBR", "e", "GB"}};
  for (const auto& l : locales) {
    if (l.setCountry != nullptr) ondrel_set_locale(l.setLang, l.setCountry);
    ondrel_get_locale(lang, country);
    EXPECT_STREQ(lang, l.lang);
    EXPECT_STREQ(country, l.country);
  }
  EXPECT_EQ(lang[2], '\0');
  // The default reader reports every resource missing.
  const ONDREL_STREAM_READER* reader = ondrel_get_onr();
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->open("anything"), nullptr);
  uint32_t high = 7;
  EXPECT_EQ(reader->tell(nullptr, &high), 0);
  EXPECT_EQ(high, 0u);
  ondrel_uninit();
}

TEST(Library, ResourceRootsKeepAnEmptyLastRoot) {
  ondrel_test::SilenceLog();
  int count = 99;
  ondrel_uninit();
  ondrel_get_res_paths(&count);
  EXPECT_EQ(count, -1);
  const char* roots[] = {"/a/", "/b/"};
  LogCapture log(4);
  ASSERT_EQ(ondrel_set_resource_root(roots, 2), 0);
  EXPECT_TRUE(log.Has("[ON2L]:set_resource_root[1]: /b/"));
  const char** list = ondrel_get_res_paths(&count);
  ASSERT_EQ(count, 3);
  EXPECT_STREQ(list[0], "/a/");
  EXPECT_STREQ(list[1], "/b/");
  EXPECT_STREQ(list[2], "");
  ondrel_uninit();
  EXPECT_EQ(ondrel_get_res_paths(&count), nullptr);
  EXPECT_EQ(count, -1);
}

TEST(Library, LogThresholdAndLevels) {
  LogCapture log(0);  // clamps to 2: trace lines appear
  void* inst = ondrel_create_inst();
  AEffect* fx = nullptr;
  ASSERT_EQ(ondrel_create_effect(EFFECT_THROUGH, &fx), 0);
  ASSERT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  EXPECT_TRUE(log.Has("[ON2L]:FX:BSize=512"));
  int ch = 0;
  uint64_t mask = 0;
  ondrel_get_in_chns(inst, &ch, &mask);
  char expect[128];
  std::snprintf(expect, sizeof expect, "[ON2L]:get_in_chns: %p, %d, %llx", inst, 2, 0ull);
  EXPECT_TRUE(log.Has(expect));
  for (const auto& line : log.lines()) {
    EXPECT_GE(line.level, 3);
    EXPECT_EQ(line.text.rfind("[ON2L]:", 0), 0u) << line.text;
  }
  log.clear();
  set_xlog_level(5);
  ondrel_set_samplerate(inst, 48000.0f);
  EXPECT_TRUE(log.lines().empty());
  ondrel_destroy_inst(inst);
}

TEST(Catalogue, RegistryObjectsAreSharedAndCreatedOnesNew) {
  ondrel_test::SilenceLog();
  AEffect *a = nullptr, *b = nullptr, *c = nullptr;
  ASSERT_EQ(ondrel_get_existing_effect(EFFECT_AMPLIFIER, &a), 0);
  ASSERT_EQ(ondrel_get_existing_effect(EFFECT_AMPLIFIER, &b), 0);
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &c), 0);
  EXPECT_EQ(a, b);
  EXPECT_NE(c, a);
  ondrel_destroy_effect(c);
  ondrel_uninit();  // frees the registry object behind a and b
}

TEST(Modulators, HostMappingsAndScriptMemory) {
  ondrel_test::SilenceLog();
  // Host values mapped to price classes and genre classes.
  const struct {
    const char* set;
    double value;
    const char* read;
    double expected;
  } mappings[] = {
      {"GEAR_PRICE", 0.0, "GEAR_PRICE", 400000.0}, {"GEAR_PRICE", 325000.0, "GEAR_PRICE", 450000.0},
      {"GEAR_PRICE", 1e6, "GEAR_PRICE", 500000.0}, {"GENRE_ZKV", 9.0, "GENRE", 1.0},
      {"GENRE_ZKV", 9.0, "GENRE_ZKV", 9.0},        {"GENRE_ZKV", 63.0, "GENRE", 3.0},
      {"GENRE_ZKV", 22.0, "GENRE", 2.0},           {"GENRE_ZKV", -1.0, "GENRE", 3.0},
  };
  for (const auto& m : mappings) {
    ondrel_set_modulator(nullptr, m.set, m.value);
    EXPECT_EQ(get_modulator_user(m.read), m.expected) << m.set << "=" << m.value;
  }

  // A new key set to 0 stays absent; the flag is not raised.
  ModulatorChangedFlag() = false;
  ondrel_set_modulator(nullptr, "NEVER_SET", 0.0);
  double value = 42;
  EXPECT_FALSE(get_modulator_user("NEVER_SET", &value));
  EXPECT_EQ(value, 42);
  EXPECT_FALSE(ModulatorChangedFlag());
  set_modulator_user("DIRECT", 3.0);  // no mapping, no flag
  EXPECT_FALSE(ModulatorChangedFlag());

  // lock_modulators: user, system, then the 13 functions; reading an
  // absent system name creates it.
  ClearSystemModulators();
  xvariable* list = nullptr;
  const int before = lock_modulators(&list);
  unlock_modulators(list, before);
  GetSystemModulator("FRESH");
  const int after = lock_modulators(&list);
  EXPECT_EQ(after, before + 1);
  EXPECT_EQ(static_cast<int>(UserModulators().size() + 1) + 13, after);
  EXPECT_STREQ(list[after - 13].name, "get");
  EXPECT_STREQ(list[after - 1].name, "rnd");
  EXPECT_EQ(list[after - 1].type, 41);
  EXPECT_STREQ(list[after - 14].name, "FRESH");

  // fill and cpy on the script memory through the function records.
  using F3 = double (*)(double, double, double);
  using F2 = double (*)(double, double);
  auto fill = reinterpret_cast<F3>(const_cast<void*>(list[after - 13 + 2].address));
  auto cpy = reinterpret_cast<F3>(const_cast<void*>(list[after - 13 + 3].address));
  auto lt = reinterpret_cast<F2>(const_cast<void*>(list[after - 13 + 10].address));
  double* m = ScriptMemory();
  fill(1.0, 1000, -1);
  EXPECT_EQ(m[999], 0.0);
  EXPECT_EQ(m[1000], 1.0);
  EXPECT_EQ(m[1023], 1.0);
  fill(2.0, 0, 0.5);
  EXPECT_EQ(m[0], 2.0);
  EXPECT_EQ(m[1], 0.0);
  EXPECT_EQ(cpy(1, 0, 1), 2.0);
  EXPECT_EQ(lt(1, 2), 1.0);

  // Presets are shared files: no index reaches outside the 1024 cells. Out of
  // range reads give 0 and writes are dropped; moves keep their in-range part.
  auto get = reinterpret_cast<double (*)(double)>(const_cast<void*>(list[after - 13].address));
  auto put = reinterpret_cast<F2>(const_cast<void*>(list[after - 13 + 1].address));
  for (double bad : {-1.0, 1024.0, 1e12, -1e12, 1e300, std::nan("")}) {
    EXPECT_EQ(get(bad), 0.0) << bad;
    EXPECT_EQ(put(bad, 5.0), 5.0) << bad;
    EXPECT_EQ(fill(7.0, bad, 1e300), 7.0) << bad;
    cpy(bad, 0, 1e300);
    cpy(0, bad, 4);
  }
  m[0] = m[1] = m[2] = 0.0;
  EXPECT_EQ(put(-0.5, 4.0), 4.0);  // truncates to cell 0
  EXPECT_EQ(m[0], 4.0);
  fill(3.0, -2, 4);  // cells -2..1: only 0 and 1 exist
  EXPECT_EQ(m[0] + m[1] + m[2], 6.0);
  m[1022] = 9.0;
  m[1023] = 8.0;
  EXPECT_EQ(cpy(1023, 1022, 2), 9.0);  // the second double would land outside
  EXPECT_EQ(cpy(10, 1023, -1), 9.0);   // n = 1024 - 1023
  unlock_modulators(list, after);
  ClearSystemModulators();
  EXPECT_EQ(m[1000], 0.0);
}

}  // namespace
