// Real-time factor of the bass and harmonics enhancers (HyperBass, virtual
// bass, exciter, growl) at 44.1 kHz stereo, each alone in a processing
// instance and fed through the public float interface in buffers of 4096
// interleaved samples, at their defaults and at a typical setting.
// Counter "rtf": seconds of audio processed per second of CPU time.
// Peers for comparison: FFmpeg's asubboost, virtualbass and aexciter, run
// with `ffmpeg -threads 1 -i F -af X -f null -` net of an anull run.
#include "effect_bench.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_bench;

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
