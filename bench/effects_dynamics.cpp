// Real-time factor of the dynamics effects (limiter, multi-band compressor,
// de-esser) at 44.1 kHz stereo, each alone in a processing instance and fed
// through the public float interface in buffers of 4096 interleaved samples.
// Counter "rtf": seconds of audio processed per second of CPU time.
// scripts/bench-peers-dynamics.sh times sox's compand and mcompand on the
// same kind of material for comparison.
#include "effect_bench.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_bench;

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
