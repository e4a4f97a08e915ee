// Runs the WaveFile fuzz target over deterministic mutations of valid
// headers, so that every build (the sanitizer build in particular) exercises
// the parser and the converters on hostile input.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "files/file_test_util.h"

#define FUZZ_WAVE_DIR ONDREL_TEST_BINARY_DIR
#include "fuzz/fuzz_wave.cpp"

namespace {

using ondrel_test::WaveShape;

std::vector<std::vector<uint8_t>> Seeds() {
  std::vector<std::vector<uint8_t>> seeds;
  const struct {
    uint32_t tag, bits, channels, fmtSize, subFormat;
  } shapes[] = {
      {1, 8, 1, 16, 1},      {1, 16, 2, 16, 1},     {1, 24, 2, 18, 1},
      {1, 32, 3, 16, 1},     {3, 32, 2, 16, 3},     {3, 64, 1, 18, 3},
      {65534, 24, 6, 40, 1}, {65534, 32, 2, 40, 3}, {65534, 64, 4, 40, 3},
  };
  for (const auto& s : shapes) {
    WaveShape shape;
    shape.tag = s.tag, shape.bits = s.bits, shape.channels = s.channels;
    shape.fmtSize = s.fmtSize, shape.subFormat = s.subFormat,
    shape.mask = s.fmtSize == 40 ? 0x3F : 0;
    shape.frames = 150;
    shape.between = ondrel_test::Bytes().Tag("fact").U32(4).U32(150).data;
    seeds.push_back(ondrel_test::MakeWave(shape));
  }
  return seeds;
}

// Mutations aimed at the header: replaced bytes, size and count fields set
// to boundary values, truncation, and a stray chunk in front of the data.
std::vector<uint8_t> Mutate(std::vector<uint8_t> file, std::mt19937& rng) {
  static const uint32_t interesting[] = {
      0,  1,  2,  3,  7,     8,          16,         18,         20,         24,
      32, 33, 40, 64, 65534, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFF0, 44100};
  const int count = 1 + static_cast<int>(rng() % 4);
  for (int m = 0; m < count && !file.empty(); ++m) {
    const size_t at = rng() % std::min<size_t>(file.size(), 96);
    switch (const uint32_t kind = rng() % 5) {
      case 0: file[at] = static_cast<uint8_t>(rng()); break;
      case 1:    // a 32-bit field
      case 2: {  // a 16-bit field
        const uint32_t v = interesting[rng() % std::size(interesting)];
        for (size_t i = 0; i < (kind == 1 ? 4u : 2u) && at + i < file.size(); ++i)
          file[at + i] = static_cast<uint8_t>(v >> (8 * i));
        break;
      }
      case 3: file.resize(rng() % (file.size() + 1)); break;
      default: {
        ondrel_test::Bytes stray;
        stray.Tag("junk").U32(rng() % 9).Raw(std::vector<uint8_t>(rng() % 9, 0xEE));
        file.insert(file.begin() + static_cast<long>(at), stray.data.begin(), stray.data.end());
        break;
      }
    }
  }
  return file;
}

TEST(WaveFileFuzzSmoke, MutatedHeadersNeitherCrashNorAllFail) {
  const std::vector<std::vector<uint8_t>> seeds = Seeds();
  for (const auto& seed : seeds) ASSERT_TRUE(fuzz_wave::RunOnce(seed.data(), seed.size()));

  std::mt19937 rng(20240607);
  const int runs = 3000;
  int opened = 0;
  for (int i = 0; i < runs; ++i) {
    std::vector<uint8_t> input = Mutate(seeds[i % seeds.size()], rng);
    if (fuzz_wave::RunOnce(input.data(), input.size())) ++opened;
  }
  LLVMFuzzerTestOneInput(nullptr, 0);
  RecordProperty("opened", opened);
  // Mutations hit the checks often, but not always.
  EXPECT_GT(opened, runs / 20);
  EXPECT_LT(opened, runs);
}

}  // namespace
