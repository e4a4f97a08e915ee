// Real-time factor of the time-based SoundTouch users and the resampler
// effect at 44.1 kHz stereo. Counter "rtf": seconds of audio processed per
// second of wall time.
//  - play speed through the psctrl functions in calls of 2048 planar frames:
//    1.0 (the bypass: two queue copies, beside two plain memcpy of the
//    same frames), 1.25 and 0.8;
//  - the pitch shifter in an instance, Key 0 (default) and +3 semitones;
//  - the resampler effect in an instance (its blocks stop at the status, so
//    this is the cost of the queues), and the converters it sets up run
//    directly: polyphase 44100 -> 96000 (its default) and the fast
//    two-stage converter 44100 -> 88200 (Multiplier 2 X, Sinc).
// scripts/bench-peers-pitch.sh times FFmpeg's atempo, rubberband and
// aresample (swr, soxr) on the same kind of material.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "dsp/resampler.h"
#include "ondrel.h"

namespace {

using namespace ONDREL2;

constexpr int kRate = 44100;
constexpr int kChannels = 2;
constexpr int kFrames = 2048;
constexpr int kSourceFrames = kRate * 10;

// Ten seconds of two tones plus noise per channel, planar.
const std::vector<std::vector<float>>& Source() {
  static const std::vector<std::vector<float>> source = [] {
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> u(-0.1f, 0.1f);
    std::vector<std::vector<float>> v(kChannels, std::vector<float>(kSourceFrames));
    for (int c = 0; c < kChannels; ++c)
      for (int f = 0; f < kSourceFrames; ++f)
        v[c][f] = 0.3f * std::sin(0.0627f * (c + 1) * f) + 0.2f * std::sin(0.0071f * f) + u(rng);
    return v;
  }();
  return source;
}

void SetRtf(benchmark::State& state) {
  state.counters["rtf"] = benchmark::Counter(static_cast<double>(kFrames) / kRate,
                                             benchmark::Counter::kIsIterationInvariantRate);
}

void BM_PlaySpeed(benchmark::State& state) {
  const float speed = static_cast<float>(state.range(0)) / 100.0f;
  set_xlog_level(7);
  void* inst = ondrel_create_inst();
  ondrel_psctrl_init(inst, kRate, 16, kChannels, speed, 0);
  std::vector<std::vector<float>> out(kChannels, std::vector<float>(kFrames * 4));
  std::vector<float*> outPtr = {out[0].data(), out[1].data()};
  int at = 0;
  for (auto _ : state) {
    if (at + kFrames > kSourceFrames) at = 0;
    const std::vector<float*> in = {const_cast<float*>(Source()[0].data()) + at,
                                    const_cast<float*>(Source()[1].data()) + at};
    at += kFrames;
    int available = 0, got = 0;
    ondrel_psctrl_input(inst, in, kFrames, &available);
    ondrel_psctrl_output(inst, outPtr, kFrames * 4, &got);
    benchmark::DoNotOptimize(out[0].data());
  }
  SetRtf(state);
  ondrel_destroy_inst(inst);
}
BENCHMARK(BM_PlaySpeed)->Arg(100)->Arg(125)->Arg(80)->UseRealTime();

// What the bypass at speed 1.0 is measured against: the same frames copied
// twice (into a queue and out of it) with plain memcpy.
void BM_TwoPlainCopies(benchmark::State& state) {
  std::vector<std::vector<float>> queue(kChannels, std::vector<float>(kFrames)),
      out(kChannels, std::vector<float>(kFrames));
  int at = 0;
  for (auto _ : state) {
    if (at + kFrames > kSourceFrames) at = 0;
    for (int c = 0; c < kChannels; ++c) {
      std::memcpy(queue[c].data(), Source()[c].data() + at, kFrames * sizeof(float));
      std::memcpy(out[c].data(), queue[c].data(), kFrames * sizeof(float));
    }
    at += kFrames;
    benchmark::DoNotOptimize(out[0].data());
    benchmark::ClobberMemory();
  }
  SetRtf(state);
}
BENCHMARK(BM_TwoPlainCopies)->UseRealTime();

void RunChain(benchmark::State& state, ONDREL_EFFECT_TYPE type, int param, float value) {
  set_xlog_level(7);
  ondrel_init(nullptr);
  AEffect* fx = nullptr;
  ondrel_create_effect(type, &fx);
  if (param >= 0) fx->dispatcher(fx, ONDREL_OP_SET_PARAM, param, 0, nullptr, value);
  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, kChannels, 0);
  ondrel_set_samplerate(inst, static_cast<float>(kRate));
  ondrel_set_params(inst, &fx, 1);
  std::vector<float> in(kFrames * kChannels), out(kFrames * kChannels * 8);
  int at = 0;
  for (auto _ : state) {
    if (at + kFrames > kSourceFrames) at = 0;
    for (int f = 0; f < kFrames; ++f)
      for (int c = 0; c < kChannels; ++c) in[f * kChannels + c] = Source()[c][at + f];
    at += kFrames;
    int available = 0, written = 0;
    ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available);
    ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
    benchmark::DoNotOptimize(out.data());
  }
  SetRtf(state);
  ondrel_destroy_inst(inst);
}

void BM_PitchShifter(benchmark::State& state) {
  RunChain(state, EFFECT_PITCH_SHIFTER, 0, static_cast<float>(state.range(0)));
}
BENCHMARK(BM_PitchShifter)->Arg(0)->Arg(3)->UseRealTime();

void BM_ResamplerEffectChain(benchmark::State& state) {
  RunChain(state, EFFECT_RESAMPLER, -1, 0.0f);
}
BENCHMARK(BM_ResamplerEffectChain)->UseRealTime();

// The converter the effect holds, run on interleaved input directly.
void BM_ResamplerEffectConverter(benchmark::State& state) {
  const bool twoStage = state.range(0) != 0;
  std::unique_ptr<CResampler> r;
  if (twoStage)
    r = std::make_unique<CResampler_SSRC>();
  else
    r = std::make_unique<CResampler_SRC>();
  const int outRate = twoStage ? 88200 : 96000;
  r->Init(kRate, outRate, kChannels, true);
  std::vector<float> in(kFrames * kChannels), out(kFrames * kChannels * 4);
  int at = 0;
  for (auto _ : state) {
    if (at + kFrames > kSourceFrames) at = 0;
    for (int f = 0; f < kFrames; ++f)
      for (int c = 0; c < kChannels; ++c) in[f * kChannels + c] = Source()[c][at + f];
    at += kFrames;
    benchmark::DoNotOptimize(r->Process(in.data(), static_cast<int>(in.size()), out.data(),
                                        static_cast<int>(out.size())));
  }
  SetRtf(state);
}
BENCHMARK(BM_ResamplerEffectConverter)->Arg(0)->Arg(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
