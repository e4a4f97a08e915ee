// Real-time factor of the Dfx enhancers (3D surround, headphone cross-feed,
// ambience, dynamic boost), Fidelity and DfxHyperbass at 44.1 kHz stereo,
// each alone in a processing instance and fed through the public float
// interface in buffers of 4096 interleaved samples, at the defaults (where
// the Dfx four bypass) and at a typical setting. Counter "rtf": seconds of
// audio processed per second of CPU time. scripts/bench-peers-dfx.sh times
// FFmpeg's nearest filters on the same kind of material.
#include "effect_bench.h"

namespace {

using namespace ONDREL2;
using namespace ondrel_bench;

#define DFX_BENCH(name, type, param, typical)                                               \
  void BM_##name##_Defaults(benchmark::State& s) { RunEffect(s, type, {}); }                \
  void BM_##name##_Typical(benchmark::State& s) { RunEffect(s, type, {{param, typical}}); } \
  BENCHMARK(BM_##name##_Defaults);                                                          \
  BENCHMARK(BM_##name##_Typical);

DFX_BENCH(Fidelity, EFFECT_FIDELITY, "Fidelity", 64.0f)
DFX_BENCH(DfxHyperbass, EFFECT_DFX_HYPERBASS, "Hyperbass", 64.0f)
DFX_BENCH(Dfx3dSurround, EFFECT_DFX_3DSURROUND, "3DSurround", 64.0f)
DFX_BENCH(DfxHeadphone, EFFECT_DFX_HEADPHONE, "Headphone", 1.0f)
DFX_BENCH(Ambience, EFFECT_AMBIENCE, "Ambience", 64.0f)
DFX_BENCH(DynamicBoost, EFFECT_DYNAMICBOOST, "Dynamicboost", 64.0f)

}  // namespace

BENCHMARK_MAIN();
