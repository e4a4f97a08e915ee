// Real-time factor of the partitioned convolvers at 44.1 kHz stereo: seconds
// of stereo audio processed per second of CPU time ("rtf" counter).
// The sox peer runs from scripts/bench-peers-dsp.sh on the same tap counts.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "dsp/fast_convolution.h"

namespace {

constexpr double kRate = 44100.0;

std::vector<float> Noise(size_t n, unsigned seed, float scale) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(-scale, scale);
  std::vector<float> x(n);
  for (float& v : x) v = dist(rng);
  return x;
}

// One OndrelFastConvolution per channel, as SuperEQ runs them.
// Arguments: taps, block size; the pad equals the block size rounded up to
// an even transform.
void BM_FastConvolutionStereo(benchmark::State& state) {
  const int taps = static_cast<int>(state.range(0));
  const int blockSize = static_cast<int>(state.range(1));
  const int padSize = (blockSize & 1) ? blockSize + 2 : blockSize;
  const std::vector<float> h = Noise(static_cast<size_t>(taps), 1, 0.01f);

  ONDREL2::OndrelFastConvolution conv[2];
  for (auto& c : conv) {
    if (c.Init(blockSize, padSize) != 0 || c.SetImpulseResponse(h.data(), taps) != 0) {
      state.SkipWithError("set-up failed");
      return;
    }
  }
  const std::vector<float> input = Noise(static_cast<size_t>(blockSize), 2, 0.5f);
  std::vector<float> block[2] = {input, input};
  for (auto _ : state) {
    for (int ch = 0; ch < 2; ++ch) {
      std::copy(input.begin(), input.end(), block[ch].begin());
      int frames = 0;
      conv[ch].Process(block[ch].data(), &frames);
      benchmark::DoNotOptimize(block[ch].data());
    }
    benchmark::ClobberMemory();
  }
  state.counters["rtf"] = benchmark::Counter(static_cast<double>(blockSize) / kRate,
                                             benchmark::Counter::kIsIterationInvariantRate);
  state.counters["taps"] = taps;
}
BENCHMARK(BM_FastConvolutionStereo)
    ->ArgNames({"taps", "block"})
    ->Args({2048, 511})
    ->Args({16384, 511})
    ->Args({65536, 511})
    ->Args({2048, 2048})
    ->Args({16384, 2048})
    ->Args({65536, 2048})
    ->Unit(benchmark::kMicrosecond);

// The true-stereo matrix of the studio IR effect: four paths of a 2 s
// response, block 511 and pad 513, interleaved stereo.
void BM_StereoConvolutionFourPaths(benchmark::State& state) {
  const int blockSize = 511;
  const int taps = static_cast<int>(2.0 * kRate);
  ONDREL2::OndrelStereoConvolution conv;
  conv.SetChannels(2);
  if (conv.InitAll(blockSize, 513) != 0) {
    state.SkipWithError("set-up failed");
    return;
  }
  for (int path = 0; path < 4; ++path) {
    const std::vector<float> h =
        Noise(static_cast<size_t>(taps), 10u + static_cast<unsigned>(path), 0.005f);
    conv.SetImpulseResponse(h.data(), taps, path);
  }
  const std::vector<float> input = Noise(static_cast<size_t>(blockSize) * 2, 3, 0.5f);
  std::vector<float> block = input;
  for (auto _ : state) {
    std::copy(input.begin(), input.end(), block.begin());
    int count = blockSize * 2;
    conv.Process(block.data(), &count);
    benchmark::DoNotOptimize(block.data());
    benchmark::ClobberMemory();
  }
  state.counters["rtf"] = benchmark::Counter(static_cast<double>(blockSize) / kRate,
                                             benchmark::Counter::kIsIterationInvariantRate);
  state.counters["taps"] = taps;
}
BENCHMARK(BM_StereoConvolutionFourPaths)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
