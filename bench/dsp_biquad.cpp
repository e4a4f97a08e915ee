// Real-time factor of the biquad recursion at 44.1 kHz stereo, beside a plain
// scalar Direct Form I loop over local variables (the floor that any
// implementation of the same float recursion pays).

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "dsp/biquad.h"

namespace {

constexpr double kRate = 44100.0;
constexpr int kFrames = 512;

std::vector<float> Noise(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(-0.5f, 0.5f);
  std::vector<float> x(n);
  for (float& v : x) v = dist(rng);
  return x;
}

// One filter object per channel, running in place on planar blocks.
void BM_BiquadFilterStereo(benchmark::State& state) {
  ONDREL2::BiquadFilter::PKFilter filters[2] = {{1000.0 / kRate, 1400.0 / kRate, 6.0},
                                                {1000.0 / kRate, 1400.0 / kRate, 6.0}};
  const std::vector<float> input = Noise(kFrames, 1);
  std::vector<float> block[2] = {input, input};
  for (auto _ : state) {
    for (int ch = 0; ch < 2; ++ch) {
      std::copy(input.begin(), input.end(), block[ch].begin());
      filters[ch].Process(block[ch].data(), kFrames);
      benchmark::DoNotOptimize(block[ch].data());
    }
    benchmark::ClobberMemory();
  }
  state.counters["rtf"] =
      benchmark::Counter(kFrames / kRate, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_BiquadFilterStereo);

// Peer: the same recursion written as a bare loop with everything in locals.
void BM_ScalarFloorStereo(benchmark::State& state) {
  const ONDREL2::BiquadFilter::PKFilter design(1000.0 / kRate, 1400.0 / kRate, 6.0);
  const float b0 = design.b0, b1 = design.b1, b2 = design.b2, a1 = design.a1, a2 = design.a2;
  float st[2][4] = {};
  const std::vector<float> input = Noise(kFrames, 1);
  std::vector<float> block[2] = {input, input};
  for (auto _ : state) {
    for (int ch = 0; ch < 2; ++ch) {
      std::copy(input.begin(), input.end(), block[ch].begin());
      float x1 = st[ch][0], x2 = st[ch][1], y1 = st[ch][2], y2 = st[ch][3];
      float* s = block[ch].data();
      for (int n = 0; n < kFrames; ++n) {
        const float x = s[n];
        float y = b0 * x;
        y = y + b1 * x1;
        y = y + b2 * x2;
        y = y - a1 * y1;
        y = y - a2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        s[n] = y;
      }
      st[ch][0] = x1;
      st[ch][1] = x2;
      st[ch][2] = y1;
      st[ch][3] = y2;
      benchmark::DoNotOptimize(s);
    }
    benchmark::ClobberMemory();
  }
  state.counters["rtf"] =
      benchmark::Counter(kFrames / kRate, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ScalarFloorStereo);

}  // namespace

BENCHMARK_MAIN();
