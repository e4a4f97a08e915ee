// Counts allocations across processing calls once sizes are stable.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <new>
#include <vector>

#include "framework/effect_types.h"
#include "ondrel.h"
#include "support/log_capture.h"

namespace {
long g_allocations = 0;
}

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t n, size_t size);
void* __real_realloc(void* p, size_t size);
void* __wrap_malloc(size_t size) {
  ++g_allocations;
  return __real_malloc(size);
}
void* __wrap_calloc(size_t n, size_t size) {
  ++g_allocations;
  return __real_calloc(n, size);
}
void* __wrap_realloc(void* p, size_t size) {
  ++g_allocations;
  return __real_realloc(p, size);
}
}

// The replaced operators allocate with malloc and free with free, which is
// a matched pair; the compiler cannot see that through the replacement.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  ++g_allocations;
  return std::malloc(size ? size : 1);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

using namespace ONDREL2;

// Runs `inst` until its queues have grown, then counts allocations over 50
// more rounds of float and int16 calls.
long SteadyAllocations(void* inst, int channels) {
  const int frames = 1500;
  std::vector<float> in(static_cast<size_t>(channels) * frames, 0.1f), out(in.size() * 3);
  std::vector<int16_t> in16(in.size(), 1000), out16(out.size());
  int avail = 0, written = 0;
  auto round = [&] {
    EXPECT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &avail), 0);
    EXPECT_EQ(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written), 0);
    EXPECT_EQ(ondrel_process_input(inst, in16.data(), static_cast<int>(in16.size()), &avail), 0);
    EXPECT_EQ(ondrel_process_output(inst, out16.data(), static_cast<int>(out16.size()), &written),
              0);
  };
  for (int i = 0; i < 6; ++i) round();
  const long before = g_allocations;
  for (int i = 0; i < 50; ++i) round();
  return g_allocations - before;
}

TEST(SteadyPath, ChainProcessingAllocatesNothingOnceSizesAreStable) {
  ondrel_test::SilenceLog();
  void* inst = ondrel_create_inst();
  AEffect* list[3] = {};
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &list[0]), 0);
  ASSERT_EQ(ondrel_create_effect(EFFECT_THROUGH, &list[1]), 0);
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &list[2]), 0);
  ASSERT_EQ(ondrel_set_params(inst, list, 3), 0);
  EXPECT_EQ(SteadyAllocations(inst, 2), 0);
  // The counter does see the library's allocations.
  const long mark = g_allocations;
  AEffect* extra = nullptr;
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &extra), 0);
  EXPECT_GT(g_allocations, mark);
  ondrel_destroy_effect(extra);
  ondrel_destroy_inst(inst);
}

// Types whose rules allocate per block; each entry says why. None so far.
const int kAllocatingTypes[] = {0};

TEST(SteadyPath, EveryBuiltTypeAllocatesNothingOnceSizesAreStable) {
  ondrel_test::SilenceLog();
  size_t count = 0;
  const EffectTypeRow* rows = EffectTypeRows(&count);
  for (size_t r = 0; r < count; ++r) {
    if (std::find(std::begin(kAllocatingTypes), std::end(kAllocatingTypes), rows[r].type) !=
        std::end(kAllocatingTypes))
      continue;
    for (int channels : {2, 6}) {
      void* inst = ondrel_create_inst();
      AEffect* fx = nullptr;
      ASSERT_EQ(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(rows[r].type), &fx), 0);
      ASSERT_EQ(ondrel_setup_input(inst, channels, 0), 0);
      ASSERT_EQ(ondrel_set_params(inst, &fx, 1), 0);
      EXPECT_EQ(SteadyAllocations(inst, channels), 0) << rows[r].shortName << ", " << channels;
      ondrel_destroy_inst(inst);
    }
  }
}

// The enhancers that keep state across parameter moves (Dfx family,
// Fidelity, DfxHyperbass), all switched on in one chain.
TEST(SteadyPath, EnhancersAllocateNothingOnceRunning) {
  ondrel_test::SilenceLog();
  void* inst = ondrel_create_inst();
  const ONDREL_EFFECT_TYPE types[6] = {EFFECT_FIDELITY,       EFFECT_DFX_HYPERBASS,
                                       EFFECT_DFX_3DSURROUND, EFFECT_DFX_HEADPHONE,
                                       EFFECT_AMBIENCE,       EFFECT_DYNAMICBOOST};
  AEffect* list[6] = {};
  for (int i = 0; i < 6; ++i) {
    ASSERT_EQ(ondrel_create_effect(types[i], &list[i]), 0);
    list[i]->dispatcher(list[i], ONDREL_OP_SET_PARAM, 0, 0, nullptr, 1.0f);
  }
  ASSERT_EQ(ondrel_set_params(inst, list, 6), 0);
  std::vector<float> in(2 * 1500, 0.1f), out(2 * 8192);
  int avail = 0, written = 0;
  auto run = [&] {
    ASSERT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &avail), 0);
    ASSERT_EQ(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written), 0);
  };
  for (int i = 0; i < 8; ++i) run();
  const long before = g_allocations;
  for (int i = 0; i < 50; ++i) run();
  EXPECT_EQ(g_allocations - before, 0);
  ondrel_destroy_inst(inst);
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
