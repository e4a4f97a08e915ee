// Runs the loader fuzz targets (resource files through the studio IR
// convolver and the sampler, room data through a host stream reader,
// parameter streams of real chains) on deterministic inputs, so that every
// build, the sanitizer build in particular, exercises them.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <random>
#include <vector>

#include "files/file_test_util.h"
#include "support/log_capture.h"

#define FUZZ_RESOURCE_DIR ONDREL_TEST_BINARY_DIR
#define ONDREL_FUZZ_RESOURCE_NO_ENTRY
#include "fuzz/fuzz_resource.cpp"
#define ONDREL_FUZZ_ROOM_NO_ENTRY
#include "fuzz/fuzz_room.cpp"
#define ONDREL_FUZZ_PARAMS_NO_ENTRY
#include "fuzz/fuzz_params.cpp"

namespace {

// Wave files of every sample format and header form, one, two and four
// channels, of 40 to 1500 frames.
std::vector<std::vector<uint8_t>> WaveSeeds() {
  const struct {
    uint32_t tag, bits, channels, fmtSize, subFormat, frames;
  } shapes[] = {
      {1, 8, 1, 16, 1, 300},       {1, 16, 2, 16, 1, 1500},    {1, 24, 2, 18, 1, 40},
      {1, 32, 4, 16, 1, 200},      {3, 32, 2, 16, 3, 1100},    {3, 64, 1, 18, 3, 90},
      {65534, 24, 4, 40, 1, 120},  {65534, 32, 2, 40, 3, 700}, {65534, 64, 2, 40, 3, 60},
      {65534, 16, 1, 40, 1, 1030},
  };
  std::vector<std::vector<uint8_t>> seeds;
  for (const auto& s : shapes) {
    ondrel_test::WaveShape shape;
    shape.tag = s.tag, shape.bits = s.bits, shape.channels = s.channels;
    shape.fmtSize = s.fmtSize, shape.subFormat = s.subFormat, shape.frames = s.frames;
    shape.rate = s.frames % 3 == 0 ? 22050 : 44100;
    shape.mask = s.fmtSize == 40 ? 0x3F : 0;
    seeds.push_back(ondrel_test::MakeWave(shape));
  }
  return seeds;
}

// Random byte edits, mostly in the header, boundary values in size fields
// and truncation.
std::vector<uint8_t> Mutate(std::vector<uint8_t> file, std::mt19937& rng) {
  static const uint32_t kFields[] = {0, 1, 3, 4, 8, 24, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 48000};
  const int count = 1 + static_cast<int>(rng() % 3);
  for (int m = 0; m < count && !file.empty(); ++m) {
    const size_t at = rng() % (rng() % 4 == 0 ? file.size() : std::min<size_t>(file.size(), 80));
    switch (rng() % 4) {
      case 0: file[at] = static_cast<uint8_t>(rng()); break;
      case 1: {
        const uint32_t v = kFields[rng() % std::size(kFields)];
        for (size_t i = 0; i < 4 && at + i < file.size(); ++i)
          file[at + i] = static_cast<uint8_t>(v >> (8 * i));
        break;
      }
      case 2: file.resize(rng() % (file.size() + 1)); break;
      default: break;  // unchanged
    }
  }
  return file;
}

TEST(LoaderFuzzSmoke, ResourceFilesOfEveryFormatClearAndScrambled) {
  ondrel_test::SilenceLog();
  const std::vector<std::vector<uint8_t>> seeds = WaveSeeds();
  std::mt19937 rng(20261124u);
  for (int i = 0; i < 600; ++i) {
    std::vector<uint8_t> input = {static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
                                  static_cast<uint8_t>(rng())};
    const std::vector<uint8_t> file =
        i < 40 ? seeds[i % seeds.size()] : Mutate(seeds[rng() % seeds.size()], rng);
    input.insert(input.end(), file.begin(), file.end());
    ASSERT_TRUE(fuzz_resource::RunOnce(input.data(), input.size())) << "input " << i;
  }
  ONDREL2::ondrel_set_resource_root(nullptr, 0);
}

TEST(LoaderFuzzSmoke, RoomDataThroughShortFailingAndMissingReads) {
  ondrel_test::SilenceLog();
  std::mt19937 rng(4096u);
  std::uniform_real_distribution<float> sample(-0.5f, 0.5f);
  for (int i = 0; i < 48; ++i) {
    std::vector<uint8_t> input = {static_cast<uint8_t>(i * 37), static_cast<uint8_t>(i)};
    const size_t floats = rng() % 1400;
    for (size_t k = 0; k < floats; ++k) {
      float v = sample(rng) * std::exp(-static_cast<float>(k) / 200.0f);
      if (i % 7 == 6 && k % 97 == 0) v = i % 2 ? NAN : 3e38f;  // garbage among the data
      uint8_t b[4];
      std::memcpy(b, &v, 4);
      input.insert(input.end(), b, b + 4);
    }
    if (i % 5 == 4) input.resize(2 + rng() % (input.size() - 1));  // a torn last sample
    ASSERT_TRUE(fuzz_room::RunOnce(input.data(), input.size())) << "input " << i;
    EXPECT_GT(fuzz_room::Current().opens, 0) << "the room data was never asked for";
  }
}

TEST(LoaderFuzzSmoke, ParameterStreamsOfRealChains) {
  ondrel_test::SilenceLog();
  std::mt19937 rng(31337u);
  for (int i = 0; i < 1500; ++i) {
    std::vector<uint8_t> input(rng() % 160);
    for (uint8_t& b : input) b = static_cast<uint8_t>(rng());
    ASSERT_TRUE(fuzz_params::RunOnce(input.data(), input.size())) << "input " << i;
  }
}

}  // namespace
