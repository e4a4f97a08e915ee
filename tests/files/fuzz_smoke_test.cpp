// Runs every fuzz entry point (expression, script, parameter stream, wave
// file) over a few thousand deterministic mutations of valid inputs, so that
// each build, the sanitizer build in particular, exercises the parsers on
// hostile input. Broken invariants trap or return false inside the bodies.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "files/file_test_util.h"
#include "fuzz/script_fuzz_targets.h"
#define ONDREL_FUZZ_PARAM_STREAM_NO_ENTRY
#include "fuzz/fuzz_param_stream.cpp"
#define FUZZ_WAVE_DIR ONDREL_TEST_BINARY_DIR
#include "fuzz/fuzz_wave.cpp"

namespace {

using namespace ONDREL2;
using Input = std::vector<uint8_t>;

Input Of(const std::string& s) { return Input(s.begin(), s.end()); }

// Bit flips, boundary bytes and 16/32-bit fields, truncation, cuts, junk
// insertions and chunks of another seed, aimed at the first `reach` bytes.
Input Mutate(Input s, const Input& other, std::mt19937& rng, size_t reach = 256) {
  static const uint32_t kWords[] = {0,  1,  2,  3,     7,          8,          16,         18,
                                    24, 32, 40, 65534, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 44100};
  auto pick = [&rng](size_t n) { return n == 0 ? size_t{0} : size_t(rng() % n); };
  for (int m = 1 + int(rng() % 4); m > 0; --m) {
    const size_t at = pick(std::min(s.size(), reach));
    switch (rng() % 7) {
      case 0:
        if (!s.empty()) s[at] ^= uint8_t(1u << pick(8));
        break;
      case 1:
        if (!s.empty()) s[at] = uint8_t(rng());
        break;
      case 2:
      case 3: {
        const uint32_t v = kWords[pick(std::size(kWords))];
        for (size_t i = 0; i < (rng() % 2 ? 4u : 2u) && at + i < s.size(); ++i)
          s[at + i] = uint8_t(v >> (8 * i));
        break;
      }
      case 4: s.resize(pick(s.size() + 1)); break;
      case 5: {
        Input junk(pick(16) + 1);
        for (uint8_t& b : junk) b = uint8_t(rng());
        s.insert(s.begin() + std::ptrdiff_t(at), junk.begin(), junk.end());
        break;
      }
      default: {
        if (other.empty() || s.empty()) break;
        const size_t from = pick(other.size());
        const size_t n = std::min({other.size() - from, s.size() - at, pick(24) + 1});
        std::memcpy(s.data() + at, other.data() + from, n);
        break;
      }
    }
  }
  return s;
}

// Feeds `runs` mutations of the seeds through `body` as exact-size heap
// copies, so that any read past the end is caught; returns how many passed.
template <typename Body>
int Drive(const std::vector<Input>& seeds, int runs, uint32_t seed, Body body, size_t reach = 256) {
  std::mt19937 rng(seed);
  int passed = 0;
  for (int i = 0; i < runs; ++i) {
    const Input s =
        Mutate(seeds[size_t(i) % seeds.size()], seeds[rng() % seeds.size()], rng, reach);
    std::unique_ptr<uint8_t[]> exact(new uint8_t[s.size() + 1]);
    std::copy(s.begin(), s.end(), exact.get());
    if (body(exact.get(), s.size())) ++passed;
  }
  return passed;
}

// Token soup from the expression language, which mutation reaches slowly.
std::vector<Input> ExpressionSeeds() {
  static const char* const kTokens[] = {"1",      "2.5",        ".5",
                                        "1e3",    "4294967296", "x",
                                        "y",      "pi",         "sin",
                                        "atan2",  "pow",        "fac",
                                        "ncr",    "npr",        "floor",
                                        "ceil",   "log10",      "ln",
                                        "twice",  "scale",      "count",
                                        "nosuch", "(",          ")",
                                        ",",      "+",          "-",
                                        "*",      "/",          "%",
                                        "^",      " ",          "e(",
                                        "((",     "))",         "\n",
                                        "#v=",    ":l\n",       "GV_FXBYPASSED",
                                        "if(",    "rnd(",       "GEAR_PRICE",
                                        "in",     "out"};
  std::vector<Input> seeds = {Of("in*pow(10,GENRE/20)"), Of("2^3^2+-2^2*atan2(1,2)"),
                              Of("sin 2^2,fac(12)/ncr(30,15)"),
                              Of("#low=lt(GEAR_PRICE,420000)\n#GV_FXBYPASSED=low\nin*0.5\n:done"),
                              Of("#x=in*2\n\nout+x\n:a\nfloor(2.5)+ceil(x)")};
  std::mt19937 rng(20240611u);
  for (int i = 0; i < 200; ++i) {
    std::string text;
    for (int n = 1 + int(rng() % 30); n > 0; --n) text += kTokens[rng() % std::size(kTokens)];
    seeds.push_back(Of(text));
  }
  return seeds;
}

TEST(FuzzSmoke, EveryEntryPointSurvivesMutatedInputs) {
  set_xlog_level(7);
  const std::vector<Input> text = ExpressionSeeds();
  EXPECT_EQ(Drive(text, 3000, 1u, ondrel_fuzz::FuzzExpression), 3000);
  EXPECT_EQ(Drive(text, 2000, 2u, ondrel_fuzz::FuzzScript), 2000);
  // Deep and long inputs.
  for (const char c : {'(', '-'}) {
    const std::string deep = std::string(20000, c) + "1";
    EXPECT_TRUE(
        ondrel_fuzz::FuzzExpression(reinterpret_cast<const uint8_t*>(deep.data()), deep.size()));
  }

  // Parameter streams: a scripted chain, a single effect, an empty list and
  // the first as version 1 (its version field sits 20 bytes into the root).
  std::vector<AEffect*> fx(3, nullptr);
  ondrel_create_effect(EFFECT_AMPLIFIER, &fx[0]);
  ondrel_create_effect(EFFECT_THROUGH, &fx[1]);
  ondrel_create_effect(EFFECT_AMPLIFIER, &fx[2]);
  fx[0]->dispatcher(fx[0], ONDREL_OP_SET_PARAM, 0, 0, nullptr, -6.5f);
  fx[0]->dispatcher(fx[0], ONDREL_OP_SET_PARAM_SCRIPT, 0, 0, const_cast<char*>("out = in * 0.5"),
                    0.0f);
  auto write = [](std::vector<AEffect*> list, const char* label) {
    void* data = nullptr;
    int size = 0;
    EXPECT_EQ(ondrel_params2stream(&data, &size, list.data(), int(list.size()), label), ONDREL_OK);
    Input out(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
    ondrel_destroy_paramstream(data);
    return out;
  };
  std::vector<Input> streams = {write(fx, "preset"), write({fx[1]}, nullptr), write({}, "empty")};
  streams.push_back(streams[0]);
  streams.back()[streams[0][0] + 20u] = 1;
  for (AEffect* e : fx) ondrel_destroy_effect(e);
  for (const Input& s : streams)
    EXPECT_EQ(fuzz_param_stream::RunOnce(s.data(), s.size()), ONDREL_OK);
  const int loaded = Drive(streams, 6000, 3u, [](const uint8_t* d, size_t n) {
    return fuzz_param_stream::RunOnce(d, n) == ONDREL_OK;
  });
  EXPECT_GT(loaded, 0);  // both the loading and the refusing paths are reached
  EXPECT_LT(loaded, 6000);

  // Wave files of every sample format and header form, mutated in the header.
  std::vector<Input> waves;
  const uint32_t shapes[][5] = {
      {1, 8, 1, 16, 1},      {1, 16, 2, 16, 1},     {1, 24, 2, 18, 1},
      {1, 32, 3, 16, 1},     {3, 32, 2, 16, 3},     {3, 64, 1, 18, 3},
      {65534, 24, 6, 40, 1}, {65534, 32, 2, 40, 3}, {65534, 64, 4, 40, 3}};
  for (const auto& s : shapes) {
    ondrel_test::WaveShape shape;
    shape.tag = s[0], shape.bits = s[1], shape.channels = s[2], shape.fmtSize = s[3];
    shape.subFormat = s[4], shape.mask = s[3] == 40 ? 0x3F : 0, shape.frames = 150;
    shape.between = ondrel_test::Bytes().Tag("fact").U32(4).U32(150).data;
    waves.push_back(ondrel_test::MakeWave(shape));
    ASSERT_TRUE(fuzz_wave::RunOnce(waves.back().data(), waves.back().size()));
  }
  const int opened = Drive(waves, 3000, 4u, fuzz_wave::RunOnce, 96);
  LLVMFuzzerTestOneInput(nullptr, 0);
  EXPECT_GT(opened, 3000 / 20);  // mutations hit the checks often, but not always
  EXPECT_LT(opened, 3000);
}

}  // namespace
