// Real-time factor of the dynamics effects (limiter, multi-band compressor,
// de-esser) at 44.1 kHz stereo, each alone in a processing instance and fed
// through the public float interface in buffers of 4096 interleaved samples.
// Counter "rtf": seconds of audio processed per second of CPU time.
// scripts/bench-peers-dynamics.sh times sox's compand and mcompand on the
// same kind of material for comparison.
#include <benchmark/benchmark.h>

#include <random>
#include <utility>
#include <vector>

#include "ondrel.h"

namespace {

using namespace ONDREL2;

constexpr float kRate = 44100.0f;
constexpr int kChannels = 2;
constexpr int kBufferSamples = 4096;
constexpr int kSourceFrames = 44100 * 10;

using Settings = std::vector<std::pair<const char*, float>>;

// Ten seconds of stereo noise with louder passages every half second, so
// the limiter and the compressors have work to do.
const std::vector<float>& Source() {
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

void RunEffect(benchmark::State& state, ONDREL_EFFECT_TYPE type, const Settings& settings) {
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
  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, kChannels, 0);
  ondrel_set_samplerate(inst, kRate);
  if (ondrel_set_params(inst, &fx, 1) != 0) {
    state.SkipWithError("chain not configured");
    ondrel_destroy_inst(inst);
    return;
  }

  const std::vector<float>& source = Source();
  std::vector<float> in(kBufferSamples), out(kBufferSamples * 2);
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

void BM_Limiter_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_LIMITER, {}); }
void BM_Limiter_Typical(benchmark::State& s) {
  RunEffect(
      s, EFFECT_LIMITER,
      {{"Limit", -6.0f}, {"Attack Time", 2.0f}, {"Release Time", 120.0f}, {"Auto Release", 1.5f}});
}
void BM_MultiBandCompressor_Defaults(benchmark::State& s) {
  RunEffect(s, EFFECT_MULTIBAND_COMPRESSOR, {});
}
// The compressor plays a fixed voicing; a host's settings change nothing.
void BM_MultiBandCompressor_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_MULTIBAND_COMPRESSOR, {{"M drive", 12.0f}, {"width", 0.8f}});
}
void BM_DeEsser_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_DEESSER, {}); }
void BM_DeEsser_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_DEESSER, {{"Thresh", 0.3f}, {"Frequency", 5000.0f}, {"Drive", 0.6f}});
}

BENCHMARK(BM_Limiter_Defaults);
BENCHMARK(BM_Limiter_Typical);
BENCHMARK(BM_MultiBandCompressor_Defaults);
BENCHMARK(BM_MultiBandCompressor_Typical);
BENCHMARK(BM_DeEsser_Defaults);
BENCHMARK(BM_DeEsser_Typical);

}  // namespace

BENCHMARK_MAIN();
