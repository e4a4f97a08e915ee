// Shared harness of the effect benchmarks: one effect alone in a processing
// instance at 44.1 kHz stereo, fed through the public float interface in
// buffers of 4096 interleaved samples. Counter "rtf": seconds of audio
// processed per second of CPU time.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "ondrel.h"

namespace ondrel_bench {

constexpr float kRate = 44100.0f;
constexpr int kChannels = 2;
constexpr int kBufferSamples = 4096;
constexpr int kSourceFrames = 44100 * 10;

using Settings = std::vector<std::pair<const char*, float>>;

// Ten seconds of stereo noise with louder passages every half second, so
// that dynamics and enhancers have work to do.
inline const std::vector<float>& LoudPassages() {
  static const std::vector<float> source = [] {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::vector<float> v(static_cast<size_t>(kSourceFrames * kChannels));
    for (int f = 0; f < kSourceFrames; ++f) {
      const float level = ((f / 22050) % 2) ? 1.6f : 0.5f;
      for (int c = 0; c < kChannels; ++c)
        v[static_cast<size_t>(f * kChannels + c)] = u(rng) * level;
    }
    return v;
  }();
  return source;
}

// Feeds `source` through `inst` in a loop of host calls and reports the
// real-time factor; destroys `inst`. The output buffer has room for a chain
// eight times wider than its input.
inline void TimeInstance(benchmark::State& state, void* inst, const std::vector<float>& source) {
  using namespace ONDREL2;
  std::vector<float> in(kBufferSamples), out(kBufferSamples * 8);
  size_t at = 0;
  for (auto _ : state) {
    if (at + kBufferSamples > source.size()) at = 0;
    std::copy(source.begin() + static_cast<long>(at),
              source.begin() + static_cast<long>(at + kBufferSamples), in.begin());
    at += kBufferSamples;
    int available = 0, written = 0;
    ondrel_processf_input(inst, in.data(), kBufferSamples, &available);
    ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  const double secondsPerIteration = kBufferSamples / kChannels / static_cast<double>(kRate);
  state.counters["rtf"] = benchmark::Counter(
      secondsPerIteration * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  ondrel_destroy_inst(inst);
}

// An instance at 44.1 kHz stereo holding `fx`, or null (with the benchmark
// skipped) when the chain can't be configured.
inline void* StereoInstance(benchmark::State& state, ONDREL2::AEffect* fx) {
  using namespace ONDREL2;
  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, kChannels, 0);
  ondrel_set_samplerate(inst, kRate);
  if (ondrel_set_params(inst, &fx, 1) != 0) {
    state.SkipWithError("chain not configured");
    ondrel_destroy_inst(inst);
    return nullptr;
  }
  return inst;
}

// Runs `type` with `settings` (by parameter name) over `source`.
inline void RunEffect(benchmark::State& state, ONDREL2::ONDREL_EFFECT_TYPE type,
                      const Settings& settings, const std::vector<float>& source = LoudPassages()) {
  using namespace ONDREL2;
  set_xlog_level(7);
  ondrel_init(nullptr);
  AEffect* fx = nullptr;
  if (ondrel_create_effect(type, &fx) != 0) {
    state.SkipWithError("effect not available");
    return;
  }
  for (const auto& kv : settings) {
    const int index =
        fx->dispatcher(fx, ONDREL_OP_GET_PARAM_INDEX, 0, 0, const_cast<char*>(kv.first), 0.0f);
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM, index, 0, nullptr, kv.second);
  }
  if (void* inst = StereoInstance(state, fx)) TimeInstance(state, inst, source);
}

}  // namespace ondrel_bench
