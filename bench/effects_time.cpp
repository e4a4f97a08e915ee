// Real-time factor of the time-based effects (reverb, delay, chaos) at
// 44.1 kHz stereo, each alone in a processing instance and fed through the
// public float interface in buffers of 4096 interleaved samples, at their
// defaults and at a typical setting. Counter "rtf": seconds of audio
// processed per second of CPU time. scripts/bench-peers-time.sh times
// FFmpeg's adelay / aecho and an LV2 reverb on the same kind of material.
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

// Ten seconds of stereo noise at -6 dBFS.
const std::vector<float>& Source() {
  static const std::vector<float> source = [] {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> u(-0.5f, 0.5f);
    std::vector<float> v(static_cast<size_t>(kSourceFrames * kChannels));
    for (float& s : v) s = u(rng);
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
  // Room for an output that is wider than the input (chaos).
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

// The presets/reverb.json hall.
const Settings kHall = {{"density", 1.0f},
                        {"diffusion", 1.0f},
                        {"reverbGain", 0.25f},
                        {"lowpass_gain", 0.8f},
                        {"highpass_gain", 1.0f},
                        {"decay_time", 1.8f},
                        {"lowpass_ratio", 0.6f},
                        {"early_gain", 0.25f},
                        {"late_gain", 1.2f},
                        {"lowpass_reference", 5000.0f},
                        {"highpass_reference", 250.0f},
                        {"echo_time", 0.25f},
                        {"early_delay", 0.02f},
                        {"late_delay", 0.03f},
                        {"lowpass_air_absorption_gain", 0.994f}};

// At its defaults the reverb runs its full network with a silent output.
void BM_Reverb_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_ALREVERB, {}); }
void BM_Reverb_Typical(benchmark::State& s) { RunEffect(s, EFFECT_ALREVERB, kHall); }
void BM_Delay_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_DELAY, {}); }
void BM_Delay_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_DELAY,
            {{"Left Time", 350.0f},
             {"Right Time", 500.0f},
             {"Left Feedback", 40.0f},
             {"Right Feedback", 40.0f}});
}
void BM_Chaos_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_CHAOS, {}); }
// Stereo to four channels, wrapped and mixed.
void BM_Chaos_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_CHAOS, {{"Output Multiplier", 1.0f}, {"Wrap", 1.0f}, {"Mixing Type", 1.0f}});
}

BENCHMARK(BM_Reverb_Defaults);
BENCHMARK(BM_Reverb_Typical);
BENCHMARK(BM_Delay_Defaults);
BENCHMARK(BM_Delay_Typical);
BENCHMARK(BM_Chaos_Defaults);
BENCHMARK(BM_Chaos_Typical);

}  // namespace

BENCHMARK_MAIN();
