// Deterministic smoke run of the parameter stream fuzz target: a few
// thousand mutations of valid streams (bit flips, interesting bytes and
// words, truncations, cuts, insertions, copied chunks) through the same
// function that libFuzzer drives. Broken invariants trap inside RunOnce;
// the sanitizer build catches memory errors and leaks.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#define ONDREL_FUZZ_PARAM_STREAM_NO_ENTRY
#include "fuzz/fuzz_param_stream.cpp"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

std::vector<uint8_t> Write(const std::vector<AEffect*>& fx, const char* text) {
  void* data = nullptr;
  int size = 0;
  EXPECT_EQ(
      ondrel_params2stream(&data, &size, const_cast<AEffect**>(fx.data()), int(fx.size()), text),
      0);
  std::vector<uint8_t> out(static_cast<const uint8_t*>(data),
                           static_cast<const uint8_t*>(data) + size);
  ondrel_destroy_paramstream(data);
  return out;
}

std::vector<std::vector<uint8_t>> Seeds() {
  std::vector<AEffect*> fx(3, nullptr);
  ondrel_create_effect(EFFECT_AMPLIFIER, &fx[0]);
  ondrel_create_effect(EFFECT_THROUGH, &fx[1]);
  ondrel_create_effect(EFFECT_AMPLIFIER, &fx[2]);
  fx[0]->dispatcher(fx[0], ONDREL_OP_SET_PARAM, 0, 0, nullptr, -6.5f);
  fx[0]->dispatcher(fx[0], ONDREL_OP_SET_PARAM_SCRIPT, 0, 0, const_cast<char*>("out = in * 0.5"),
                    0.0f);
  fx[2]->dispatcher(fx[2], ONDREL_OP_SET_PARAM, 0, 0, nullptr, 3.25f);

  std::vector<std::vector<uint8_t>> seeds;
  seeds.push_back(Write(fx, "preset"));
  seeds.push_back(Write({fx[1]}, nullptr));
  seeds.push_back(Write({}, "empty"));
  // The first stream as version 1 (normalised values): the version field
  // sits 20 bytes into the root table.
  std::vector<uint8_t> old = seeds[0];
  old[old[0] + 20u] = 1;
  seeds.push_back(old);
  for (AEffect* e : fx) ondrel_destroy_effect(e);
  return seeds;
}

void Mutate(std::vector<uint8_t>* s, const std::vector<uint8_t>& other, std::mt19937* rng) {
  auto pick = [rng](size_t n) { return n == 0 ? size_t{0} : static_cast<size_t>((*rng)() % n); };
  static const uint8_t kBytes[] = {0x00, 0x01, 0x02, 0x04, 0x7F, 0x80, 0xFE, 0xFF};
  static const uint32_t kWords[] = {0,          1,          2,          4,          8,
                                    0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFFC, 1000001};
  switch ((*rng)() % 7) {
    case 0:
      if (!s->empty()) (*s)[pick(s->size())] ^= static_cast<uint8_t>(1u << pick(8));
      break;
    case 1:
      if (!s->empty()) (*s)[pick(s->size())] = kBytes[pick(sizeof kBytes)];
      break;
    case 2:
      if (s->size() >= 4) {
        uint32_t w = kWords[pick(sizeof kWords / sizeof kWords[0])];
        if (w == 8) w = static_cast<uint32_t>(s->size());
        std::memcpy(s->data() + (pick(s->size() - 3) & ~size_t{3}), &w, 4);
      }
      break;
    case 3: s->resize(pick(s->size() + 1)); break;
    case 4: {
      const size_t at = pick(s->size() + 1);
      const size_t n = std::min(s->size() - at, pick(16) + 1);
      s->erase(s->begin() + static_cast<std::ptrdiff_t>(at),
               s->begin() + static_cast<std::ptrdiff_t>(at + n));
      break;
    }
    case 5: {
      const size_t at = pick(s->size() + 1);
      std::vector<uint8_t> junk(pick(16) + 1);
      for (uint8_t& b : junk) b = static_cast<uint8_t>((*rng)());
      s->insert(s->begin() + static_cast<std::ptrdiff_t>(at), junk.begin(), junk.end());
      break;
    }
    default: {  // a chunk of another stream over this one
      if (other.empty() || s->empty()) break;
      const size_t from = pick(other.size());
      const size_t to = pick(s->size());
      const size_t n = std::min({other.size() - from, s->size() - to, pick(24) + 1});
      std::memcpy(s->data() + to, other.data() + from, n);
      break;
    }
  }
}

TEST(ParamStreamFuzzSmoke, MutatedStreamsNeverBreakTheReader) {
  set_xlog_level(7);
  const std::vector<std::vector<uint8_t>> seeds = Seeds();
  for (const auto& s : seeds)
    EXPECT_EQ(fuzz_param_stream::RunOnce(s.data(), s.size()), 0) << "every seed loads";

  std::mt19937 rng(20240611);
  std::map<int, int> outcomes;
  for (int i = 0; i < 6000; ++i) {
    std::vector<uint8_t> s = seeds[static_cast<size_t>(i) % seeds.size()];
    const int rounds = 1 + static_cast<int>(rng() % 4);
    for (int r = 0; r < rounds; ++r) Mutate(&s, seeds[rng() % seeds.size()], &rng);
    // An exact-size heap copy, so that any read past the end is caught.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[s.size() + (s.empty() ? 1 : 0)]);
    if (!s.empty()) std::memcpy(exact.get(), s.data(), s.size());
    outcomes[fuzz_param_stream::RunOnce(exact.get(), s.size())]++;
  }
  // The mutations reach both the loading and the refusing paths.
  EXPECT_GT(outcomes[0], 0);
  EXPECT_GT(outcomes[2000], 0);
}

}  // namespace
}  // namespace ONDREL2
