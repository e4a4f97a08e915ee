// Real-time factor of the studio IR convolution with a 2 s stereo impulse
// response, and of the sampler, at 44.1 kHz stereo, each alone in a
// processing instance fed through the public float interface in buffers of
// 4096 interleaved samples. Counter "rtf": seconds of audio processed per
// second of CPU time. The response and the loop are written as wave files
// to a scratch resource root (ONDREL_BENCH_DIR, else /tmp/ondrel-bench-ir),
// where they stay for peer timings (ffmpeg's afir on the same ir.wav).
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ondrel.h"

namespace {

using namespace ONDREL2;

constexpr float kRate = 44100.0f;
constexpr int kChannels = 2;
constexpr int kBufferSamples = 4096;
constexpr int kSourceFrames = 44100 * 10;

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

void RunEffect(benchmark::State& state, ONDREL_EFFECT_TYPE type, const char* file) {
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
  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, kChannels, 0);
  ondrel_set_samplerate(inst, kRate);
  if (ondrel_set_params(inst, &fx, 1) != 0) {
    state.SkipWithError("chain not configured");
    ondrel_destroy_inst(inst);
    return;
  }

  const std::vector<float>& source = Source();
  std::vector<float> in(kBufferSamples), out(kBufferSamples * 2);
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
  ondrel_set_resource_root(nullptr, 0);
}

void BM_StudioIr_TwoSecondStereo(benchmark::State& s) { RunEffect(s, EFFECT_STUDIO_IR, "ir.wav"); }
void BM_Sampler_Defaults(benchmark::State& s) { RunEffect(s, EFFECT_SAMPLER, nullptr); }
void BM_Sampler_TwoSecondLoop(benchmark::State& s) { RunEffect(s, EFFECT_SAMPLER, "loop.wav"); }

BENCHMARK(BM_StudioIr_TwoSecondStereo);
BENCHMARK(BM_Sampler_Defaults);
BENCHMARK(BM_Sampler_TwoSecondLoop);

}  // namespace

BENCHMARK_MAIN();
