// Real-time factor of the studio IR convolution with a 2 s stereo impulse
// response, and of the sampler, at 44.1 kHz stereo, each alone in a
// processing instance fed through the public float interface in buffers of
// 4096 interleaved samples. Counter "rtf": seconds of audio processed per
// second of CPU time. The response and the loop are written as wave files
// to a scratch resource root (ONDREL_BENCH_DIR, else /tmp/ondrel-bench-ir),
// where they stay for peer timings (ffmpeg's afir on the same ir.wav).
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dsp/simd.h"
#include "effect_bench.h"
#include "ondrel.h"

namespace {

using namespace ONDREL2;

using namespace ondrel_bench;

std::string Root() {
  const char* dir = std::getenv("ONDREL_BENCH_DIR");
  std::string root = dir != nullptr ? dir : "/tmp/ondrel-bench-ir";
  mkdir(root.c_str(), 0755);
  return root + "/";
}

// Stereo noise decaying by 60 dB over `frames`, different on each side.
std::vector<float> DecayingNoise(int frames, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-0.5f, 0.5f);
  std::vector<float> v(static_cast<size_t>(frames) * kChannels);
  for (int f = 0; f < frames; ++f)
    for (int c = 0; c < kChannels; ++c)
      v[static_cast<size_t>(f) * kChannels + c] = u(rng) * std::pow(0.001f, f / float(frames));
  return v;
}

void WriteWave(const std::string& path, const std::vector<float>& samples) {
  WaveFile w;
  if (!w.SetFilePathUTF8(path.c_str(), true, false)) return;
  w.SetChannels(kChannels);
  w.SetSampleRate(static_cast<int32_t>(kRate));
  w.SetSampleFormat(SF_FLOAT32);
  w.SetupDone();
  w.WriteFrames(samples.data(), static_cast<int32_t>(samples.size() / kChannels));
}

const std::vector<float>& Source() {
  static const std::vector<float> source = DecayingNoise(kSourceFrames, 1234);
  return source;
}

void RunWithFile(benchmark::State& state, ONDREL_EFFECT_TYPE type, const char* file) {
  set_xlog_level(7);
  ondrel_init(nullptr);
  const std::string root = Root();
  WriteWave(root + "ir.wav", DecayingNoise(2 * 44100, 99));
  WriteWave(root + "loop.wav", DecayingNoise(2 * 44100, 98));
  const char* roots[] = {root.c_str()};
  ondrel_set_resource_root(roots, 1);

  AEffect* fx = nullptr;
  if (ondrel_create_effect(type, &fx) != 0) {
    state.SkipWithError("effect not available");
    return;
  }
  if (file != nullptr)
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM_DATA, 0, static_cast<int32_t>(std::strlen(file) + 1),
                   const_cast<char*>(file), 0.0f);
  if (void* inst = StereoInstance(state, fx)) TimeInstance(state, inst, Source());
  ondrel_set_resource_root(nullptr, 0);
}

void BM_StudioIr_TwoSecondStereo(benchmark::State& s) {
  RunWithFile(s, EFFECT_STUDIO_IR, "ir.wav");
}
// The same on the plain kernels, as on a processor without AVX2.
void BM_StudioIr_TwoSecondStereo_Plain(benchmark::State& s) {
  OndrelSimdOverride(0);
  RunWithFile(s, EFFECT_STUDIO_IR, "ir.wav");
  OndrelSimdOverride(-1);
}
void BM_Sampler_Defaults(benchmark::State& s) { RunWithFile(s, EFFECT_SAMPLER, nullptr); }
void BM_Sampler_TwoSecondLoop(benchmark::State& s) { RunWithFile(s, EFFECT_SAMPLER, "loop.wav"); }

BENCHMARK(BM_StudioIr_TwoSecondStereo);
BENCHMARK(BM_StudioIr_TwoSecondStereo_Plain);
BENCHMARK(BM_Sampler_Defaults);
BENCHMARK(BM_Sampler_TwoSecondLoop);

}  // namespace

BENCHMARK_MAIN();
