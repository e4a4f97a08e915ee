// Helpers for the effect tests: effects set up by parameter name, streams
// through a processing instance, test signals and comparisons.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "framework/audio_effect.h"
#include "framework/effect_types.h"
#include "ondrel.h"

namespace ondrel_test {

// Every type in the effect list, for suites that run over the catalogue.
inline std::vector<int> BuiltTypes() {
  size_t count = 0;
  const ONDREL2::EffectTypeRow* rows = ONDREL2::EffectTypeRows(&count);
  std::vector<int> types;
  for (size_t i = 0; i < count; ++i) types.push_back(rows[i].type);
  return types;
}

using Settings = std::vector<std::pair<const char*, float>>;

// The library initialised (locale zh-CN) with its log quiet.
inline void InitQuiet() {
  set_xlog_level(7);
  ONDREL2::ondrel_init(nullptr);
}

struct EffectTest : ::testing::Test {
  void SetUp() override { InitQuiet(); }
};

inline void SetParam(ONDREL2::AEffect* fx, const char* name, float value) {
  const int index =
      fx->dispatcher(fx, ONDREL2::ONDREL_OP_GET_PARAM_INDEX, 0, 0, const_cast<char*>(name), 0.0f);
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, index, 0, nullptr, value);
}

// A new effect of `type` with `settings` applied by name.
inline ONDREL2::AEffect* NewEffect(ONDREL2::ONDREL_EFFECT_TYPE type,
                                   const Settings& settings = {}) {
  InitQuiet();
  ONDREL2::AEffect* fx = nullptr;
  EXPECT_EQ(ONDREL2::ondrel_create_effect(type, &fx), 0);
  if (fx != nullptr)
    for (const auto& kv : settings) SetParam(fx, kv.first, kv.second);
  return fx;
}

struct StreamResult {
  std::vector<float> output;  // interleaved
  int status = 0;             // first non-zero status of the instance calls
  int outChannels = 0;        // the chain's output width once set up
};

using OnChunk = std::function<void(int chunk, ONDREL2::AEffect* fx)>;

// Odd host call sizes around the usual block sizes.
inline const std::vector<int>& OddChunks() {
  static const std::vector<int> chunks = {1, 1023, 1024, 1025, 4096, 31, 4099, 2, 511, 513, 7};
  return chunks;
}

// Pushes `input` (interleaved, `channels` wide) through a new instance that
// owns `fx`, in host calls whose sizes (frames) cycle through `chunks`,
// draining after each, then flushes the tail if `flush`. `onChunk`, if set,
// runs before chunk i with the effect's handle.
inline StreamResult RunStream(ONDREL2::AEffect* fx, float rate, int channels,
                              const std::vector<float>& input,
                              const std::vector<int>& chunks = OddChunks(),
                              const OnChunk& onChunk = nullptr, bool flush = true,
                              uint64_t mask = 0) {
  StreamResult result;
  void* inst = ONDREL2::ondrel_create_inst();
  auto note = [&result](int rc) {
    if (rc != 0 && result.status == 0) result.status = rc;
  };
  note(ONDREL2::ondrel_setup_input(inst, channels, mask));
  note(ONDREL2::ondrel_set_samplerate(inst, rate));
  note(ONDREL2::ondrel_set_params(inst, &fx, 1));
  uint64_t outMask = 0;
  ONDREL2::ondrel_get_out_chns(inst, &result.outChannels, &outMask);
  std::vector<float> buf;
  auto drain = [&](int available) {
    if (available <= 0) return;
    buf.resize(static_cast<size_t>(available));
    int written = 0;
    note(ONDREL2::ondrel_processf_output(inst, buf.data(), available, &written));
    result.output.insert(result.output.end(), buf.begin(), buf.begin() + written);
  };
  const int totalFrames = static_cast<int>(input.size()) / channels;
  int frame = 0;
  for (size_t i = 0; frame < totalFrames && result.status == 0; ++i) {
    if (onChunk) onChunk(static_cast<int>(i), fx);
    const int n = std::min(chunks[i % chunks.size()], totalFrames - frame);
    int available = 0;
    note(ONDREL2::ondrel_processf_input(inst, const_cast<float*>(input.data()) + frame * channels,
                                        n * channels, &available));
    drain(available);
    frame += n;
  }
  if (flush && result.status == 0) {
    int available = 0;
    note(ONDREL2::ondrel_flush_to_buf(inst, &available));
    drain(available);
  }
  ONDREL2::ondrel_destroy_inst(inst);
  return result;
}

// Interleaved test signal: a falling chirp plus low-level noise from a fixed
// linear congruential generator, different on each channel, peak below 0.7;
// every third stretch of 97 frames is scaled by `burst`.
inline std::vector<float> TestSignal(int frames, int channels, float rate, float burst = 1.0f) {
  std::vector<float> x(static_cast<size_t>(frames) * static_cast<size_t>(channels));
  uint32_t seed = 12345u;
  for (int n = 0; n < frames; ++n) {
    const double t = n / static_cast<double>(rate);
    for (int c = 0; c < channels; ++c) {
      seed = seed * 1664525u + 1013904223u;
      const double noise = (static_cast<double>(seed >> 8) / 16777216.0 - 0.5) * 0.4;
      const double f0 = 12000.0 / (1.0 + 40.0 * t) + 30.0 * (c + 1);
      const double tone = 0.45 * std::sin(2.0 * 3.141592653589793 * f0 * t + c);
      x[static_cast<size_t>(n) * channels + c] =
          static_cast<float>(tone + noise) * ((n / 97) % 3 == 1 ? burst : 1.0f);
    }
  }
  return x;
}

// Index of the first sample whose bits differ; a.size() when equal.
inline size_t FirstDifference(const std::vector<float>& a, const std::vector<float>& b) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i)
    if (std::memcmp(&a[i], &b[i], 4) != 0) return i;
  return a.size() == b.size() ? a.size() : std::min(a.size(), b.size());
}

template <typename T>
double MaxError(const std::vector<float>& got, const std::vector<T>& want, size_t from = 0) {
  double worst = got.size() == want.size() ? 0.0 : HUGE_VAL;
  for (size_t i = from; i < got.size() && i < want.size(); ++i)
    worst = std::max(worst, std::fabs(static_cast<double>(got[i]) - static_cast<double>(want[i])));
  return worst;
}

}  // namespace ondrel_test
