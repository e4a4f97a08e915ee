// Real-time factor of the instance frame: seconds of 44.1 kHz stereo audio
// processed per second of CPU, for the empty chain, Through and Amplifier
// chains over int16 and float I/O, and the queue conversions alone.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "frame/sample_fifo.h"
#include "ondrel.h"

namespace {

using namespace ONDREL2;

constexpr int kFrames = 4096;  // host buffer, frames
constexpr double kRate = 44100.0;

void SetRtf(benchmark::State& state, int64_t frames) {
  state.counters["rtf"] =
      benchmark::Counter(static_cast<double>(frames) / kRate, benchmark::Counter::kIsRate);
}

void* MakeChain(int kind) {
  set_xlog_level(7);
  void* inst = ondrel_create_inst();
  if (kind == 0) return inst;
  AEffect* fx = nullptr;
  ondrel_create_effect(kind == 1 ? EFFECT_THROUGH : EFFECT_AMPLIFIER, &fx);
  if (kind == 2) fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, -6.0f);
  ondrel_set_params(inst, &fx, 1);
  return inst;
}

template <typename Sample>
void BM_Chain(benchmark::State& state) {
  void* inst = MakeChain(static_cast<int>(state.range(0)));
  std::vector<Sample> in(2 * kFrames), out(2 * kFrames * 2);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<Sample>((i * 37) % 2000);
  int available = 0, written = 0;
  for (auto _ : state) {
    if constexpr (sizeof(Sample) == 2) {
      ondrel_process_input(inst, reinterpret_cast<int16_t*>(in.data()), 2 * kFrames, &available);
      ondrel_process_output(inst, reinterpret_cast<int16_t*>(out.data()),
                            static_cast<int>(out.size()), &written);
    } else {
      ondrel_processf_input(inst, reinterpret_cast<float*>(in.data()), 2 * kFrames, &available);
      ondrel_processf_output(inst, reinterpret_cast<float*>(out.data()),
                             static_cast<int>(out.size()), &written);
    }
    benchmark::DoNotOptimize(out.data());
  }
  SetRtf(state, state.iterations() * kFrames);
  ondrel_destroy_inst(inst);
}
BENCHMARK_TEMPLATE(BM_Chain, int16_t)->ArgName("chain")->Arg(0)->Arg(1)->Arg(2);
BENCHMARK_TEMPLATE(BM_Chain, float)->ArgName("chain")->Arg(0)->Arg(1)->Arg(2);

void BM_QueueInt16RoundTrip(benchmark::State& state) {
  SampleFifo q;
  q.SetChannelCount(2);
  std::vector<int16_t> in(2 * kFrames, 1234), out(2 * kFrames);
  int got = 0;
  for (auto _ : state) {
    q.PutInterleaved16(in.data(), 2 * kFrames);
    q.GetInterleaved16(out.data(), 2 * kFrames, &got);
    benchmark::DoNotOptimize(out.data());
  }
  SetRtf(state, state.iterations() * kFrames);
}
BENCHMARK(BM_QueueInt16RoundTrip);

void BM_QueueFloatRoundTrip(benchmark::State& state) {
  SampleFifo q;
  q.SetChannelCount(2);
  std::vector<float> in(2 * kFrames, 0.25f), out(2 * kFrames);
  int got = 0;
  for (auto _ : state) {
    q.PutInterleavedFloat(in.data(), 2 * kFrames);
    q.GetInterleavedFloat(out.data(), 2 * kFrames, &got);
    benchmark::DoNotOptimize(out.data());
  }
  SetRtf(state, state.iterations() * kFrames);
}
BENCHMARK(BM_QueueFloatRoundTrip);

void BM_QueuePlanarRoundTrip(benchmark::State& state) {
  SampleFifo q;
  q.SetChannelCount(2);
  std::vector<float> a(kFrames, 0.25f), b(kFrames, 0.5f);
  std::vector<float*> vec = {a.data(), b.data()};
  int got = 0;
  for (auto _ : state) {
    q.PutPlanar(vec, kFrames, 0);
    q.GetPlanar(vec, kFrames, &got, 0);
    benchmark::DoNotOptimize(a.data());
  }
  SetRtf(state, state.iterations() * kFrames);
}
BENCHMARK(BM_QueuePlanarRoundTrip);

}  // namespace

BENCHMARK_MAIN();
