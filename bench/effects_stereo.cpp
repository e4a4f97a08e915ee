// Real-time factor of the stereo tools (panner, rotator, mono-to-dual,
// stereo enhancer), the two-to-six upmixer and the vocal effect at 44.1 kHz
// stereo, each alone in a processing instance and fed through the public
// float interface in buffers of 4096 interleaved samples. Counter "rtf":
// seconds of audio processed per second of CPU time. The upmixer's output
// is three times as wide as its input.
#include "effect_bench.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_bench;

void BM_Panner_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_PANNER, {}); }
void BM_Panner_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_PANNER, {{"Left/Right", 0.4f}, {"Cross", 1.0f}});
}
void BM_Rotator_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_ROTATOR, {}); }
void BM_Rotator_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_ROTATOR, {{"Speed", 90.0f}, {"Offset", 30.0f}});
}
void BM_Mono2Dual_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_MONO2DUAL, {}); }
void BM_Mono2Dual_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_MONO2DUAL, {{"Mute Right", 1.0f}});
}
void BM_StereoEnhancer_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_STEREO_ENHANCER, {}); }
void BM_StereoEnhancer_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_STEREO_ENHANCER, {{"Width", 180.0f}, {"Center", 90.0f}});
}
void BM_TwoToSix_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_TWO_TO_SIX, {}); }
void BM_TwoToSix_Typical(benchmark::State& s) {
  RunEffect(s, EFFECT_TWO_TO_SIX, {{"Enabled", 1.0f}});
}
void BM_Vocal_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_VOCAL, {}); }
void BM_Vocal_Typical(benchmark::State& s) { RunEffect(s, EFFECT_VOCAL, {{"Vocal", 60.0f}}); }

BENCHMARK(BM_Panner_Defaults);
BENCHMARK(BM_Panner_Typical);
BENCHMARK(BM_Rotator_Defaults);
BENCHMARK(BM_Rotator_Typical);
BENCHMARK(BM_Mono2Dual_Defaults);
BENCHMARK(BM_Mono2Dual_Typical);
BENCHMARK(BM_StereoEnhancer_Defaults);
BENCHMARK(BM_StereoEnhancer_Typical);
BENCHMARK(BM_TwoToSix_Defaults);
BENCHMARK(BM_TwoToSix_Typical);
BENCHMARK(BM_Vocal_Defaults);
BENCHMARK(BM_Vocal_Typical);

}  // namespace

BENCHMARK_MAIN();
