// Real-time factor of the time-based effects (reverb, delay, chaos) at
// 44.1 kHz stereo, each alone in a processing instance and fed through the
// public float interface in buffers of 4096 interleaved samples, at their
// defaults and at a typical setting. Counter "rtf": seconds of audio
// processed per second of CPU time. scripts/bench-peers-time.sh times
// FFmpeg's adelay / aecho and an LV2 reverb on the same kind of material.
#include <random>
#include <vector>

#include "effect_bench.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_bench;

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

// Every time effect runs over the quieter source.
void RunQuiet(benchmark::State& state, ONDREL_EFFECT_TYPE type, const Settings& settings) {
  RunEffect(state, type, settings, Source());
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
void BM_Reverb_Defaults(benchmark::State& s) { RunQuiet(s, EFFECT_ALREVERB, {}); }
void BM_Reverb_Typical(benchmark::State& s) { RunQuiet(s, EFFECT_ALREVERB, kHall); }
void BM_Delay_Defaults(benchmark::State& s) { RunQuiet(s, EFFECT_DELAY, {}); }
void BM_Delay_Typical(benchmark::State& s) {
  RunQuiet(s, EFFECT_DELAY,
           {{"Left Time", 350.0f},
            {"Right Time", 500.0f},
            {"Left Feedback", 40.0f},
            {"Right Feedback", 40.0f}});
}
void BM_Chaos_Defaults(benchmark::State& s) { RunQuiet(s, EFFECT_CHAOS, {}); }
// Stereo to four channels, wrapped and mixed.
void BM_Chaos_Typical(benchmark::State& s) {
  RunQuiet(s, EFFECT_CHAOS, {{"Output Multiplier", 1.0f}, {"Wrap", 1.0f}, {"Mixing Type", 1.0f}});
}

BENCHMARK(BM_Reverb_Defaults);
BENCHMARK(BM_Reverb_Typical);
BENCHMARK(BM_Delay_Defaults);
BENCHMARK(BM_Delay_Typical);
BENCHMARK(BM_Chaos_Defaults);
BENCHMARK(BM_Chaos_Typical);

}  // namespace

BENCHMARK_MAIN();
