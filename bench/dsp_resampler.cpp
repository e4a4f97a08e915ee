// Real-time factor of the resamplers on stereo noise: seconds of input audio
// converted per second of CPU, fed in blocks of 1024 frames as a player
// would. Peer figures for sox come from scripts/bench-peers-resampler.sh.

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "dsp/resampler.h"

namespace {

constexpr int kChannels = 2;
constexpr int kBlockFrames = 1024;

template <class Resampler>
void RunResampler(benchmark::State& state, int inRate, int outRate, bool fast) {
  Resampler resampler;
  if (!resampler.Init(inRate, outRate, kChannels, fast)) {
    state.SkipWithError("Init failed");
    return;
  }
  // One second of stereo noise, converted block by block per iteration.
  std::vector<float> input(static_cast<size_t>(inRate) * kChannels);
  std::mt19937 gen(1);
  std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
  for (float& v : input) v = noise(gen);
  std::vector<float> output((static_cast<size_t>(kBlockFrames) * outRate / inRate + 4096) *
                            kChannels);

  const int blocks = inRate / kBlockFrames;
  for (auto _ : state) {
    for (int b = 0; b < blocks; ++b) {
      const int n = resampler.Process(
          input.data() + static_cast<size_t>(b) * kBlockFrames * kChannels,
          kBlockFrames * kChannels, output.data(), static_cast<int>(output.size()));
      benchmark::DoNotOptimize(n);
      benchmark::ClobberMemory();
    }
  }
  const double seconds = static_cast<double>(blocks) * kBlockFrames / inRate;
  state.counters["rtf"] =
      benchmark::Counter(seconds, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Src_44100_48000(benchmark::State& s) {
  RunResampler<ONDREL2::CResampler_SRC>(s, 44100, 48000, true);
}
void BM_Src_96000_44100(benchmark::State& s) {
  RunResampler<ONDREL2::CResampler_SRC>(s, 96000, 44100, true);
}
void BM_SsrcFast_44100_48000(benchmark::State& s) {
  RunResampler<ONDREL2::CResampler_SSRC>(s, 44100, 48000, true);
}
void BM_SsrcFast_96000_44100(benchmark::State& s) {
  RunResampler<ONDREL2::CResampler_SSRC>(s, 96000, 44100, true);
}
void BM_SsrcSlow_44100_48000(benchmark::State& s) {
  RunResampler<ONDREL2::CResampler_SSRC>(s, 44100, 48000, false);
}
void BM_SsrcSlow_96000_44100(benchmark::State& s) {
  RunResampler<ONDREL2::CResampler_SSRC>(s, 96000, 44100, false);
}

}  // namespace

BENCHMARK(BM_Src_44100_48000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Src_96000_44100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SsrcFast_44100_48000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SsrcFast_96000_44100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SsrcSlow_44100_48000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SsrcSlow_96000_44100)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
