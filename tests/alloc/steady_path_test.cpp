// Counts allocations across processing calls once sizes are stable.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

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
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

using namespace ONDREL2;

TEST(SteadyPath, ProcessingAllocatesNothingOnceSizesAreStable) {
  ondrel_test::SilenceLog();
  void* inst = ondrel_create_inst();
  AEffect* list[3] = {};
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &list[0]), 0);
  ASSERT_EQ(ondrel_create_effect(EFFECT_THROUGH, &list[1]), 0);
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &list[2]), 0);
  ASSERT_EQ(ondrel_set_params(inst, list, 3), 0);
  std::vector<float> in(2 * 1500, 0.1f), out(2 * 4096);
  std::vector<int16_t> in16(2 * 1500, 1000), out16(2 * 4096);
  int avail = 0, written = 0;
  // Warm-up: queues grow to their working size.
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &avail), 0);
    ASSERT_EQ(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written), 0);
    ASSERT_EQ(ondrel_process_input(inst, in16.data(), static_cast<int>(in16.size()), &avail), 0);
    ASSERT_EQ(ondrel_process_output(inst, out16.data(), static_cast<int>(out16.size()), &written),
              0);
  }
  const long before = g_allocations;
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &avail), 0);
    ASSERT_EQ(ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written), 0);
    ASSERT_EQ(ondrel_process_input(inst, in16.data(), static_cast<int>(in16.size()), &avail), 0);
    ASSERT_EQ(ondrel_process_output(inst, out16.data(), static_cast<int>(out16.size()), &written),
              0);
  }
  EXPECT_EQ(g_allocations - before, 0);
  // The counter does see the library's allocations.
  const long mark = g_allocations;
  AEffect* extra = nullptr;
  ASSERT_EQ(ondrel_create_effect(EFFECT_AMPLIFIER, &extra), 0);
  EXPECT_GT(g_allocations, mark);
  ondrel_destroy_effect(extra);
  ondrel_destroy_inst(inst);
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
