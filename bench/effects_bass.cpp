// Real-time factor of the bass and harmonics enhancers (HyperBass, virtual
// bass, exciter, growl) at 44.1 kHz stereo, each alone in a processing
// instance and fed through the public float interface in buffers of 4096
// interleaved samples, at their defaults and at a typical setting.
// Counter "rtf": seconds of audio processed per second of CPU time.
// Peers for comparison: FFmpeg's asubboost, virtualbass and aexciter, run
// with `ffmpeg -threads 1 -i F -af X -f null -` net of an anull run.
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

// Ten seconds of stereo noise with louder passages every half second.
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

void BM_HyperBass_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_HYPERBASS, {}); }
void BM_HyperBass_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_HYPERBASS, {{"Selectivity", 100.0f}, {"Gain", 1.0f}, {"Ratio", 1.0f}});
}
void BM_VirtualBass_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_VBASS, {}); }
void BM_VirtualBass_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_VBASS, {{"Crossover cutoff", 150.0f}, {"Effect level", 1.5f}});
}
void BM_Exciter_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_EXCITER, {}); }
void BM_Exciter_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_EXCITER, {{"Frequency", 3000.0f}, {"ClipBoost", 3.0f}, {"Harmonics", 30.0f}});
}
void BM_Growl_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_GROWL, {}); }
void BM_Growl_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_GROWL, {{"Threshold", -30.0f}, {"Filter Mod", 0.5f}, {"Mix", 0.3f}});
}

BENCHMARK(BM_HyperBass_Defaults);
BENCHMARK(BM_HyperBass_Typical);
BENCHMARK(BM_VirtualBass_Defaults);
BENCHMARK(BM_VirtualBass_Typical);
BENCHMARK(BM_Exciter_Defaults);
BENCHMARK(BM_Exciter_Typical);
BENCHMARK(BM_Growl_Defaults);
BENCHMARK(BM_Growl_Typical);

}  // namespace

BENCHMARK_MAIN();
