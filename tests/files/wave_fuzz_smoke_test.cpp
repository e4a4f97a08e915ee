// Runs the WaveFile fuzz target over deterministic mutations of valid
// headers, so that every build (the sanitizer build in particular) exercises
// the parser and the converters on hostile input.
#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "files/file_test_util.h"

#define FUZZ_WAVE_DIR ONDREL_TEST_BINARY_DIR
#include "fuzz/fuzz_wave.cpp"

namespace {

using ondrel_test::MakeWave;
using ondrel_test::WaveSpec;

std::vector<std::vector<uint8_t>> Seeds() {
  std::vector<std::vector<uint8_t>> seeds;
  const struct {
    uint32_t tag, bits, channels, fmtSize, subFormat;
  } shapes[] = {
      {1, 8, 1, 16, 1},  {1, 16, 2, 16, 1},  {1, 24, 2, 18, 1},  {1, 32, 3, 16, 1},
      {3, 32, 2, 16, 3}, {3, 64, 1, 18, 3},  {65534, 24, 6, 40, 1}, {65534, 32, 2, 40, 3},
      {65534, 64, 4, 40, 3},
  };
  for (const auto& s : shapes) {
    WaveSpec spec;
    spec.tag = s.tag;
    spec.bits = s.bits;
    spec.channels = s.channels;
    spec.fmtSize = s.fmtSize;
    spec.subFormat = s.subFormat;
    spec.mask = s.fmtSize == 40 ? 0x3F : 0;
    spec.frames = 150;
    ondrel_test::Bytes fact;
    fact.Tag("fact").U32(4).U32(150);
    spec.between = fact.data;
    seeds.push_back(MakeWave(spec));
  }
  return seeds;
}

// Mutations aimed at the header: replaced bytes, size and count fields set
// to boundary values, truncation, and a stray chunk in front of the data.
std::vector<uint8_t> Mutate(std::vector<uint8_t> file, std::mt19937& rng) {
  static const uint32_t interesting[] = {0,  1,  2,  3,  7,  8,  16, 18, 20, 24, 32, 33,
                                         40, 64, 65534, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF,
                                         0xFFFFFFF0, 44100};
  const int count = 1 + static_cast<int>(rng() % 4);
  for (int m = 0; m < count && !file.empty(); ++m) {
    const size_t headerEnd = std::min<size_t>(file.size(), 96);
    const size_t at = rng() % headerEnd;
    switch (rng() % 5) {
      case 0:
        file[at] = static_cast<uint8_t>(rng());
        break;
      case 1: {
        uint32_t v = interesting[rng() % (sizeof interesting / sizeof interesting[0])];
        for (size_t i = 0; i < 4 && at + i < file.size(); ++i) file[at + i] = static_cast<uint8_t>(v >> (8 * i));
        break;
      }
      case 2: {
        uint32_t v = interesting[rng() % (sizeof interesting / sizeof interesting[0])];
        for (size_t i = 0; i < 2 && at + i < file.size(); ++i) file[at + i] = static_cast<uint8_t>(v >> (8 * i));
        break;
      }
      case 3:
        file.resize(rng() % (file.size() + 1));
        break;
      case 4: {
        ondrel_test::Bytes stray;
        stray.Tag("junk").U32(rng() % 9).Raw(std::vector<uint8_t>(rng() % 9, 0xEE));
        file.insert(file.begin() + static_cast<long>(std::min<size_t>(at, file.size())),
                    stray.data.begin(), stray.data.end());
        break;
      }
    }
  }
  return file;
}

TEST(WaveFileFuzzSmoke, MutatedHeadersNeitherCrashNorAllFail) {
  const std::vector<std::vector<uint8_t>> seeds = Seeds();
  // The unmutated seeds all open.
  for (const auto& seed : seeds) ASSERT_TRUE(fuzz_wave::RunOnce(seed.data(), seed.size()));

  std::mt19937 rng(20240607);
  const int runs = 3000;
  int opened = 0;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < runs; ++i) {
    std::vector<uint8_t> input = Mutate(seeds[i % seeds.size()], rng);
    if (fuzz_wave::RunOnce(input.data(), input.size())) ++opened;
  }
  LLVMFuzzerTestOneInput(nullptr, 0);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  RecordProperty("executions", runs + 1);
  RecordProperty("opened", opened);
  std::printf("wave fuzz smoke: %d executions, %d opened, %.3f s\n", runs + 1, opened, seconds);
  // Mutations hit the checks often, but not always.
  EXPECT_GT(opened, runs / 20);
  EXPECT_LT(opened, runs);
}

}  // namespace
