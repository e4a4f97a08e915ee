// Runs the preset fuzz target on the shipped presets, on mutations of them
// and on binary streams, in every build with tests.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#define ONDREL_FUZZ_PRESET_NO_ENTRY
#include "fuzz/fuzz_preset.cpp"

namespace {

std::string ReadText(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

bool Feed(const std::string& text) {
  return fuzz_preset::RunOnce(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

const char* const kTokens[] = {
    "{",           "}",          "[",           "]",        ",",       ":",           "\"effects\"",
    "\"type\"",    "\"params\"", "\"scripts\"", "\"text\"", "\"hex\"", "\"limiter\"", "2",
    "25",          "0",          "-1e30",       "1e400",    "null",    "true",        "\"Limit\"",
    "\"IR File\"", "\"00ff\"",   "\"in*2\"",    "1.5",      "\"\"",    "41",          "\"\\u0000\"",
};

TEST(PresetFuzzSmoke, ShippedMutatedAndGeneratedPresets) {
  set_xlog_level(7);
  ONDREL2::ondrel_init(nullptr);
  std::vector<std::string> seeds = {
      ReadText(std::string(ONDREL_TEST_SOURCE_DIR) + "/../presets/demo.json"),
      ReadText(std::string(ONDREL_TEST_SOURCE_DIR) + "/../presets/reverb.json"),
      R"({"text":"t","effects":[{"type":"amplifier","params":{"Gain":-6},"scripts":{"Gain":"in"}}]})",
      R"({"effects":[{"type":2,"params":{"IR File":{"hex":"414200"}}}]})",
  };
  for (const std::string& s : seeds) {
    ASSERT_FALSE(s.empty());
    ASSERT_TRUE(Feed(s)) << s;
  }
  // A binary stream of the demo chain, and the same with damaged bytes.
  ondrel_tool::LoadedPreset demo;
  ASSERT_EQ(fuzz_preset::Load(seeds[0], &demo), fuzz_preset::Outcome::kLoaded);
  void* stream = nullptr;
  int size = 0;
  ASSERT_EQ(ONDREL2::ondrel_params2stream(&stream, &size, demo.effects.data(), demo.effects.size(),
                                          "demo"),
            0);
  const std::string binary(static_cast<const char*>(stream), static_cast<size_t>(size));
  ONDREL2::ondrel_destroy_paramstream(stream);
  seeds.push_back(binary);

  std::mt19937 rng(2718u);
  for (int i = 0; i < 2500; ++i) {
    std::string text;
    if (i % 3 == 0) {
      const int n = 1 + static_cast<int>(rng() % 24);
      for (int k = 0; k < n; ++k) text += kTokens[rng() % std::size(kTokens)];
    } else {
      text = seeds[rng() % seeds.size()];
      for (int e = 0, edits = 1 + static_cast<int>(rng() % 4); e < edits && !text.empty(); ++e) {
        const size_t at = rng() % text.size();
        switch (rng() % 3) {
          case 0: text[at] = static_cast<char>(rng()); break;
          case 1: text.erase(at, 1 + rng() % 8); break;
          default: text.insert(at, kTokens[rng() % std::size(kTokens)]); break;
        }
      }
    }
    ASSERT_TRUE(Feed(text)) << "input " << i << ": " << text;
  }
}

}  // namespace
