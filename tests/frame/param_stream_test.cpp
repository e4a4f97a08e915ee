// Parameter stream: the written layout as the real flatc tool decodes it,
// older and newer versions, and the failure paths with their clean-up.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ondrel.h"
#include "param_stream_generated.h"

namespace ONDREL2 {
namespace {

namespace fb = flatbuffers;

// A stream from ondrel_params2stream, freed at scope exit.
struct Written {
  void* data = nullptr;
  int size = 0;
  ~Written() { ondrel_destroy_paramstream(data); }
};

// A list from ondrel_stream2params, destroyed with its effects.
struct Loaded {
  AEffect** list = nullptr;
  int count = 0;
  ~Loaded() { ondrel_destroy_params(list, count, true); }
};

// Effects created for writing, destroyed at scope exit.
struct Chain {
  std::vector<AEffect*> fx;
  ~Chain() {
    for (AEffect* e : fx) ondrel_destroy_effect(e);
  }
  AEffect* Add(ONDREL_EFFECT_TYPE type, float gain = 0.0f, const char* script = nullptr) {
    AEffect* e = nullptr;
    EXPECT_EQ(ondrel_create_effect(type, &e), 0);
    if (type == EFFECT_AMPLIFIER) e->dispatcher(e, ONDREL_OP_SET_PARAM, 0, 0, nullptr, gain);
    if (script != nullptr)
      e->dispatcher(e, ONDREL_OP_SET_PARAM_SCRIPT, 0, 0, const_cast<char*>(script), 0.0f);
    fx.push_back(e);
    return e;
  }
};

class ParamStream : public ::testing::Test {
 protected:
  void SetUp() override { set_xlog_level(7); }
};

float ParamOf(AEffect* e, int index) {
  float v = 0.0f;
  e->dispatcher(e, ONDREL_OP_GET_PARAM, index, 0, &v, 0.0f);
  return v;
}

struct RecordSpec {
  const char* name;
  std::vector<uint8_t> value;
  const char* script;  // null: no script field
};

struct EffectSpec {
  int32_t type;
  std::vector<RecordSpec> params;
  bool hasParams = true;
};

RecordSpec Gain(float v, const char* script = nullptr) {
  uint8_t b[4];
  std::memcpy(b, &v, 4);
  return {"Gain", std::vector<uint8_t>(b, b + 4), script};
}

// A stream built through the generated builder, not the writer.
std::vector<uint8_t> Build(int32_t version, const std::vector<EffectSpec>& effects,
                           bool hasEffects = true, const char* text = nullptr) {
  fb::FlatBufferBuilder fbb;
  std::vector<fb::Offset<Stream::EffectRecord>> records;
  for (const EffectSpec& e : effects) {
    std::vector<fb::Offset<Stream::ParamRecord>> params;
    for (const RecordSpec& r : e.params) {
      auto name = r.name != nullptr ? fbb.CreateString(r.name) : fb::Offset<fb::String>();
      auto value = fbb.CreateVector(r.value);
      auto script = r.script != nullptr ? fbb.CreateString(r.script) : fb::Offset<fb::String>();
      params.push_back(Stream::CreateParamRecord(fbb, name, value, script));
    }
    records.push_back(
        Stream::CreateEffectRecord(fbb, e.type, e.hasParams ? fbb.CreateVector(params) : 0));
  }
  auto list = hasEffects ? fbb.CreateVector(records) : 0;
  auto t = text != nullptr ? fbb.CreateString(text) : 0;
  fbb.Finish(Stream::CreateParamStream(fbb, version, list, t, 1234));
  return std::vector<uint8_t>(fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize());
}

// Reads `s`; a refused stream must leave no list behind.
int Read(const std::vector<uint8_t>& s, Loaded* out, char* text = nullptr) {
  const int rc =
      ondrel_stream2params(&out->list, &out->count, s.data(), static_cast<int>(s.size()), text);
  if (rc == 2000) {
    EXPECT_EQ(out->list, nullptr);
  }
  return rc;
}

// Decodes `stream` with flatc against the schema, without whitespace (the
// strings written here hold none) and with the time value replaced by "T",
// which goes to `time`; "" on failure.
std::string FlatcJson(const Written& stream, int64_t* time = nullptr) {
  const std::string dir = std::string(ONDREL_TEST_BINARY_DIR) + "/param_stream_flatc";
  const std::string schema = std::string(ONDREL_TEST_SOURCE_DIR) + "/../frame/param_stream.fbs";
  std::remove((dir + "/stream.json").c_str());
  if (std::system(("mkdir -p '" + dir + "'").c_str()) != 0) return "";
  std::ofstream(dir + "/stream.bin", std::ios::binary)
      .write(static_cast<const char*>(stream.data), stream.size);
  const std::string cmd = "cd '" + dir + "' && flatc --json --strict-json --raw-binary '" + schema +
                          "' -- stream.bin > /dev/null 2>&1";
  std::stringstream json;
  if (std::system(cmd.c_str()) == 0) json << std::ifstream(dir + "/stream.json").rdbuf();
  std::string text = json.str();
  text.erase(std::remove_if(text.begin(), text.end(), ::isspace), text.end());
  const size_t found = text.find("\"time\":");
  if (found == std::string::npos) return text;
  const size_t at = found + 7, end = text.find_first_not_of("0123456789", at);
  if (time != nullptr) *time = std::atoll(text.c_str() + at);
  return text.replace(at, end - at, "T");
}

TEST_F(ParamStream, FlatcDecodesWrittenStreams) {
  if (std::system("flatc --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "flatc not installed";
  Chain chain;
  chain.Add(EFFECT_AMPLIFIER, -6.5f, "out=in");
  chain.Add(EFFECT_THROUGH);
  chain.Add(EFFECT_AMPLIFIER, 1.0f);
  const int64_t before = static_cast<int64_t>(std::time(nullptr));
  Written w;
  ASSERT_EQ(ondrel_params2stream(&w.data, &w.size, chain.fx.data(), 3, "night-mode"), 0);
  int64_t t = -1;
  // -6.5f = 0xC0D00000, 1.0f = 0x3F800000, little-endian.
  EXPECT_EQ(
      FlatcJson(w, &t),
      "{\"version\":2,\"effects\":["
      "{\"type\":4,\"params\":[{\"name\":\"Gain\",\"value\":[0,0,208,192],\"script\":\"out=in\"}]},"
      "{\"type\":1,\"params\":[]},"
      "{\"type\":4,\"params\":[{\"name\":\"Gain\",\"value\":[0,0,128,63],\"script\":\"\"}]}],"
      "\"text\":\"night-mode\",\"time\":T}");
  EXPECT_GE(t, before);
  EXPECT_LE(t, static_cast<int64_t>(std::time(nullptr)));

  // A script that declares a newer form raises the stream's version.
  chain.fx[2]->dispatcher(chain.fx[2], ONDREL_OP_SET_PARAM_SCRIPT, 0, 0,
                          const_cast<char*>("#GV_SCRIPTVERSION=3\nout=in"), 0.0f);
  Written v3;
  ASSERT_EQ(ondrel_params2stream(&v3.data, &v3.size, &chain.fx[2], 1, nullptr), 0);
  EXPECT_EQ(FlatcJson(v3),
            "{\"version\":3,\"effects\":[{\"type\":4,\"params\":[{\"name\":\"Gain\",\"value\":[0,0,"
            "128,63],\"script\":\"#GV_SCRIPTVERSION=3\\nout=in\"}]}],\"text\":\"\",\"time\":T}");
}

TEST_F(ParamStream, OldVersionsSetNormalisedValuesAndTooNewIsRefused) {
  // Versions 0 and 1 hold a normalised float for a non-binary first
  // parameter, normalised in the linear domain: 1 is the top of the range, 0
  // the bottom; 2 and later hold the value. A value shorter than a float
  // leaves the default.
  Chain direct;
  AEffect* d = direct.Add(EFFECT_AMPLIFIER);
  d->dispatcher(d, ONDREL_OP_SET_PARAM_NORMALIZED, 0, 0, nullptr, 0.25f);
  for (int32_t version : {0, 1, 2, 3, 4}) {
    SCOPED_TRACE(version);
    Loaded l;
    ASSERT_EQ(Read(Build(version, {{EFFECT_AMPLIFIER, {Gain(1.0f)}},
                                   {EFFECT_AMPLIFIER, {Gain(0.0f)}},
                                   {EFFECT_AMPLIFIER, {Gain(0.25f, "")}},
                                   {EFFECT_AMPLIFIER, {{"Gain", {1, 2}, nullptr}}}}),
                   &l),
              0);
    ASSERT_EQ(l.count, 4);
    if (version < 2) {
      EXPECT_NEAR(ParamOf(l.list[0], 0), 18.0f, 0.01f);
      EXPECT_NEAR(ParamOf(l.list[1], 0), -96.0f, 0.01f);
      EXPECT_EQ(ParamOf(l.list[2], 0), ParamOf(d, 0));
    } else {
      EXPECT_EQ(ParamOf(l.list[0], 0), 1.0f);
      EXPECT_EQ(ParamOf(l.list[2], 0), 0.25f);
    }
    EXPECT_EQ(ParamOf(l.list[3], 0), 0.0f);
  }
  // Too new: 1000, no list, but the host learns the stream's effect count
  // and text.
  char text[16] = "old";
  Loaded l;
  EXPECT_EQ(Read(Build(5, {{EFFECT_AMPLIFIER, {}}, {EFFECT_THROUGH, {}}}, true, "new"), &l, text),
            1000);
  EXPECT_EQ(l.list, nullptr);
  EXPECT_EQ(l.count, 2);
  EXPECT_STREQ(text, "new");
  l.count = 0;
}

TEST_F(ParamStream, UnloadableListsGive1000AndDestroyWhatWasBuilt) {
  // Unknown types after a built effect (types outside the catalogue of this
  // build behave the same), more records than parameters, a record without
  // a name.
  const std::vector<std::vector<EffectSpec>> lists = {
      {{EFFECT_AMPLIFIER, {Gain(-3.0f)}}, {EFFECT_THROUGH, {}}, {0, {}}},
      {{EFFECT_AMPLIFIER, {Gain(-3.0f)}}, {-1, {}}},
      {{EFFECT_AMPLIFIER, {Gain(-3.0f)}}, {41, {}}},
      {{1000000, {}}},
      {{EFFECT_AMPLIFIER, {Gain(-3.0f)}}, {EFFECT_AMPLIFIER, {Gain(1.0f), Gain(2.0f)}}},
      {{EFFECT_THROUGH, {Gain(1.0f)}}},
      {{EFFECT_AMPLIFIER, {{nullptr, {0, 0, 0, 0}, nullptr}}}},
  };
  for (const auto& list : lists) {
    Loaded l;
    EXPECT_EQ(Read(Build(2, list), &l), 1000) << list.back().type;
    EXPECT_EQ(l.list, nullptr);
    EXPECT_EQ(l.count, 0);
  }
  // Missing parts that the writer always stores: no params is an empty
  // list (defaults stay), no effects is a broken stream; no text leaves the
  // caller's buffer alone.
  char text[8] = "keep";
  Loaded bare, none;
  ASSERT_EQ(Read(Build(2, {{EFFECT_AMPLIFIER, {}, false}}), &bare, text), 0);
  ASSERT_EQ(bare.count, 1);
  EXPECT_EQ(ParamOf(bare.list[0], 0), 0.0f);
  EXPECT_STREQ(text, "keep");
  EXPECT_EQ(Read(Build(2, {}, false), &none), 2000);
  EXPECT_EQ(none.count, 0);
  // An unknown parameter name leaves as out_of_range, after the effects
  // built so far are destroyed (the sanitizer build checks for leaks).
  Loaded l;
  try {
    Read(Build(2, {{EFFECT_AMPLIFIER, {Gain(1.0f)}},
                   {EFFECT_AMPLIFIER, {{"Volume", {0, 0, 0, 0}, nullptr}}}}),
         &l);
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid map<K, T> key");
  }
  EXPECT_EQ(l.list, nullptr);
  EXPECT_EQ(l.count, 0);
}

TEST_F(ParamStream, CorruptOrTruncatedDataGives2000WithoutCrashing) {
  Chain chain;
  chain.Add(EFFECT_AMPLIFIER, -6.5f, "out = in");
  chain.Add(EFFECT_THROUGH);
  Written w;
  ASSERT_EQ(ondrel_params2stream(&w.data, &w.size, chain.fx.data(), 2, "abc"), 0);
  const uint8_t* bytes = static_cast<const uint8_t*>(w.data);
  const std::vector<uint8_t> good(bytes, bytes + w.size);
  Loaded l;
  // Offsets pointing outside: the root table's effects offset, the vtable
  // size (odd and too large), the root offset itself.
  const size_t table = static_cast<size_t>(good[0] | good[1] << 8);
  for (size_t at : {table + 24, size_t{4}, size_t{0}}) {
    std::vector<uint8_t> bad = good;
    bad[at] = 0xFF;
    bad[at + 1] = 0x7F;
    EXPECT_EQ(Read(bad, &l), 2000) << "byte " << at;
  }
  // A stream cut anywhere before its last string's padding fails
  // verification (random cuts and flips run in the fuzz smoke test).
  for (size_t n : {size_t{1}, size_t{4}, good.size() / 2, good.size() - 4}) {
    EXPECT_EQ(Read({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n)}, &l), 2000) << n;
  }
}

}  // namespace
}  // namespace ONDREL2
