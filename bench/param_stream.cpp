// Parameter stream: time to encode and to decode a chain of 10 effects
// (amplifiers with scripts alternating with pass-through effects), beside the
// FlatBuffers verification alone, which is the floor of any decoder that
// checks its input before trusting it.

#include <benchmark/benchmark.h>

#include <vector>

#include "ondrel.h"
#include "param_stream_generated.h"

namespace {

constexpr int kEffects = 10;

struct Chain {
  std::vector<ONDREL2::AEffect*> fx;
  Chain() {
    set_xlog_level(7);
    for (int i = 0; i < kEffects; ++i) {
      ONDREL2::AEffect* e = nullptr;
      if (i % 2 == 0) {
        ONDREL2::ondrel_create_effect(ONDREL2::EFFECT_AMPLIFIER, &e);
        e->dispatcher(e, ONDREL2::ONDREL_OP_SET_PARAM, 0, 0, nullptr,
                      -0.5f * static_cast<float>(i));
        e->dispatcher(e, ONDREL2::ONDREL_OP_SET_PARAM_SCRIPT, 0, 0,
                      const_cast<char*>("GENRE == 3 ? out = in - 3 : out = in"), 0.0f);
      } else {
        ONDREL2::ondrel_create_effect(ONDREL2::EFFECT_THROUGH, &e);
      }
      fx.push_back(e);
    }
  }
  ~Chain() {
    for (ONDREL2::AEffect* e : fx) ONDREL2::ondrel_destroy_effect(e);
  }
};

void BM_Encode10(benchmark::State& state) {
  Chain chain;
  int size = 0;
  for (auto _ : state) {
    void* data = nullptr;
    ONDREL2::ondrel_params2stream(&data, &size, chain.fx.data(), kEffects, "benchmark preset");
    benchmark::DoNotOptimize(data);
    ONDREL2::ondrel_destroy_paramstream(data);
  }
  state.counters["bytes"] = size;
}
BENCHMARK(BM_Encode10);

// Verification, effect construction and parameter setting; the list is
// destroyed inside the loop as well.
void BM_Decode10(benchmark::State& state) {
  Chain chain;
  void* data = nullptr;
  int size = 0;
  ONDREL2::ondrel_params2stream(&data, &size, chain.fx.data(), kEffects, "benchmark preset");
  char text[64];
  for (auto _ : state) {
    ONDREL2::AEffect** list = nullptr;
    int count = 0;
    ONDREL2::ondrel_stream2params(&list, &count, data, size, text);
    benchmark::DoNotOptimize(list);
    ONDREL2::ondrel_destroy_params(list, count, true);
  }
  ONDREL2::ondrel_destroy_paramstream(data);
}
BENCHMARK(BM_Decode10);

// Peer: the FlatBuffers verifier over the same bytes, nothing built.
void BM_VerifyOnly10(benchmark::State& state) {
  Chain chain;
  void* data = nullptr;
  int size = 0;
  ONDREL2::ondrel_params2stream(&data, &size, chain.fx.data(), kEffects, "benchmark preset");
  for (auto _ : state) {
    flatbuffers::Verifier verifier(static_cast<const uint8_t*>(data), static_cast<size_t>(size), 64,
                                   1000000);
    benchmark::DoNotOptimize(ONDREL2::Stream::VerifyParamStreamBuffer(verifier));
  }
  ONDREL2::ondrel_destroy_paramstream(data);
}
BENCHMARK(BM_VerifyOnly10);

}  // namespace

BENCHMARK_MAIN();
