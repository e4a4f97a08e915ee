// Real-time factor of the filter and equaliser effects at 44.1 kHz stereo,
// each through a processing instance fed 4096-sample (2048-frame)
// interleaved buffers of noise, at its defaults and at a typical setting.
// Counter "rtf": seconds of audio processed per second of wall time, as the
// sox peers (scripts/bench-peers-eq.sh) are timed.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "dsp/simd.h"
#include "ondrel.h"

namespace {

using Setting = std::vector<std::pair<const char*, float>>;

constexpr int kChannels = 2;
constexpr int kSamples = 4096;
constexpr float kRate = 44100.0f;

void RunEffect(benchmark::State& state, ONDREL2::ONDREL_EFFECT_TYPE type, Setting setting) {
  set_xlog_level(7);
  ONDREL2::ondrel_init(nullptr);
  ONDREL2::AEffect* fx = nullptr;
  if (ONDREL2::ondrel_create_effect(type, &fx) != 0 || fx == nullptr) {
    state.SkipWithError("effect not available");
    return;
  }
  for (const auto& p : setting) {
    const int index = fx->dispatcher(fx, ONDREL2::ONDREL_OP_GET_PARAM_INDEX, 0, 0,
                                     const_cast<char*>(p.first), 0.0f);
    fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, index, 0, nullptr, p.second);
  }
  void* inst = ONDREL2::ondrel_create_inst();
  ONDREL2::ondrel_setup_input(inst, kChannels, 0);
  ONDREL2::ondrel_set_samplerate(inst, kRate);
  ONDREL2::ondrel_set_params(inst, &fx, 1);

  std::vector<float> in(kSamples), out(kSamples * 4);
  uint32_t seed = 1u;
  for (float& v : in) {
    seed = seed * 1664525u + 1013904223u;
    v = (static_cast<float>(seed >> 8) / 16777216.0f - 0.5f) * 0.5f;
  }
  for (auto _ : state) {
    int available = 0;
    ONDREL2::ondrel_processf_input(inst, in.data(), kSamples, &available);
    int written = 0;
    while (available > 0) {
      const int n =
          available < static_cast<int>(out.size()) ? available : static_cast<int>(out.size());
      ONDREL2::ondrel_processf_output(inst, out.data(), n, &written);
      available -= written;
      if (written == 0) break;
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["rtf"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * (kSamples / kChannels) / kRate,
                         benchmark::Counter::kIsRate);
  ONDREL2::ondrel_destroy_inst(inst);
}

const Setting kEq10Typical = {
    {"31 Hz", 4.0f},   {"63 Hz", 3.0f},   {"125 Hz", 1.5f},  {"250 Hz", -1.0f}, {"500 Hz", -2.0f},
    {"1000 Hz", 0.5f}, {"2000 Hz", 2.0f}, {"4000 Hz", 3.0f}, {"8000 Hz", 4.5f}, {"16000 Hz", 5.0f}};

Setting Eq30Typical() {
  static const char* names[] = {
      "16 Hz",   "20 Hz",   "26 Hz",   "33 Hz",    "42 Hz",    "53 Hz",   "68 Hz",   "86 Hz",
      "110 Hz",  "140 Hz",  "178 Hz",  "227 Hz",   "288 Hz",   "367 Hz",  "467 Hz",  "594 Hz",
      "756 Hz",  "962 Hz",  "1224 Hz", "1557 Hz",  "1981 Hz",  "2521 Hz", "3208 Hz", "4082 Hz",
      "5195 Hz", "6610 Hz", "8411 Hz", "10702 Hz", "13618 Hz", "17329 Hz"};
  Setting s;
  for (int i = 0; i < 30; ++i) s.push_back({names[i], static_cast<float>((i % 7) - 3)});
  return s;
}

const Setting kSuperEqTypical = {
    {"16 Hz", 4.0f},  {"33 Hz", 3.0f},   {"68 Hz", 1.5f},   {"140 Hz", -1.0f}, {"288 Hz", -2.0f},
    {"594 Hz", 0.5f}, {"1224 Hz", 2.0f}, {"2521 Hz", 3.0f}, {"5195 Hz", 4.5f}, {"10702 Hz", 5.0f}};

#define EQ_BENCH(name, type, setting)                                     \
  void name(benchmark::State& state) { RunEffect(state, type, setting); } \
  BENCHMARK(name)->Unit(benchmark::kMicrosecond)->UseRealTime()

EQ_BENCH(Eq10_Defaults, ONDREL2::EFFECT_IIR_EQ10, {});
EQ_BENCH(Eq10_Typical, ONDREL2::EFFECT_IIR_EQ10, kEq10Typical);
EQ_BENCH(Eq30_Defaults, ONDREL2::EFFECT_IIR_EQ30, {});
EQ_BENCH(Eq30_Typical, ONDREL2::EFFECT_IIR_EQ30, Eq30Typical());
EQ_BENCH(SuperEq_Defaults, ONDREL2::EFFECT_SUPEREQ, {});
EQ_BENCH(SuperEq_Typical, ONDREL2::EFFECT_SUPEREQ, kSuperEqTypical);
// The same on the plain kernels, as on a processor without AVX2.
void SuperEq_Typical_Plain(benchmark::State& state) {
  ONDREL2::OndrelSimdOverride(0);
  RunEffect(state, ONDREL2::EFFECT_SUPEREQ, kSuperEqTypical);
  ONDREL2::OndrelSimdOverride(-1);
}
BENCHMARK(SuperEq_Typical_Plain)->Unit(benchmark::kMicrosecond)->UseRealTime();
EQ_BENCH(LowPass_Defaults, ONDREL2::EFFECT_LP_FILTER, {});
EQ_BENCH(LowPass_Typical, ONDREL2::EFFECT_LP_FILTER,
         (Setting{{"Frequency", 4000.0f}, {"Q", 0.707f}}));
EQ_BENCH(HighPass_Defaults, ONDREL2::EFFECT_HP_FILTER, {});
EQ_BENCH(HighPass_Typical, ONDREL2::EFFECT_HP_FILTER,
         (Setting{{"Frequency", 80.0f}, {"Q", 0.707f}}));
EQ_BENCH(BandPass_Defaults, ONDREL2::EFFECT_BP_FILTER, {});
EQ_BENCH(BandPass_Typical, ONDREL2::EFFECT_BP_FILTER,
         (Setting{{"LowEdge", 300.0f}, {"HighEdge", 3000.0f}}));
EQ_BENCH(Notch_Defaults, ONDREL2::EFFECT_NT_FILTER, {});
EQ_BENCH(Notch_Typical, ONDREL2::EFFECT_NT_FILTER,
         (Setting{{"LowEdge", 900.0f}, {"HighEdge", 1100.0f}}));
EQ_BENCH(LowShelf_Defaults, ONDREL2::EFFECT_LS_FILTER, {});
EQ_BENCH(LowShelf_Typical, ONDREL2::EFFECT_LS_FILTER,
         (Setting{{"Frequency", 120.0f}, {"Q", 0.7f}, {"Gain", 6.0f}}));
EQ_BENCH(HighShelf_Defaults, ONDREL2::EFFECT_HS_FILTER, {});
EQ_BENCH(HighShelf_Typical, ONDREL2::EFFECT_HS_FILTER,
         (Setting{{"Frequency", 8000.0f}, {"Q", 0.7f}, {"Gain", -4.0f}}));
EQ_BENCH(Bell_Defaults, ONDREL2::EFFECT_PK_FILTER, {});
EQ_BENCH(Bell_Typical, ONDREL2::EFFECT_PK_FILTER,
         (Setting{{"LowEdge", 700.0f}, {"HighEdge", 1400.0f}, {"Gain", 5.0f}}));
EQ_BENCH(AllPass_Defaults, ONDREL2::EFFECT_AP_FILTER, {});
EQ_BENCH(AllPass_Typical, ONDREL2::EFFECT_AP_FILTER,
         (Setting{{"Frequency", 1000.0f}, {"Q", 1.0f}}));

}  // namespace

BENCHMARK_MAIN();
