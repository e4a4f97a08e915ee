#include "effects/supereq/supereq.h"
#include "framework/alloc.h"

#include <cmath>
#include <cstdio>
#include <new>
#include <vector>

namespace ONDREL2 {
namespace SUPEREQ {
namespace {

constexpr int32_t kBands = 10;
constexpr int32_t kFirstGain = 4;
constexpr int32_t kMaxGainCount = 1024;

const ParamDesc kParams[] = {
    Param("gain_len").Range(1.0f, 1024.0f).Default(10.0f).Format(&FormatThreeDigits).Hints(2),
    Param("start_f").Range(1.0f, 22050.0f).Default(38.8909988f).Format(&FormatThreeDigits).Hints(2),
    Param("octave").Range(0.1f, 10.0f).Default(1.0f).Format(&FormatThreeDigits).Hints(2),
    Param("window_bits").Range(1.0f, 15.999999f).Default(12.0f).Format(&FormatThreeDigits).Hints(2),
    EndOfTable(),
};

// Truncates toward zero and keeps the result within lo..hi; NaN gives lo.
int32_t TruncateWithin(float value, int32_t lo, int32_t hi) {
  if (!(value >= static_cast<float>(lo))) return lo;
  if (value >= static_cast<float>(hi)) return hi;
  return static_cast<int32_t>(value);
}

}  // namespace

SuperEQEffect::SuperEQEffect() {
  char text[64];
  std::snprintf(text, sizeof(text), "%d段均衡II", kBands);
  SetEffectName("zh", text);
  std::snprintf(text, sizeof(text), "%dバンド・イコライザーII", kBands);
  SetEffectName("ja", text);
  std::snprintf(text, sizeof(text), "%d Bands EQ II", kBands);
  SetEffectName("en", text);
  SetParamTable(kParams);

  // Band names climb from 16 Hz in steps of (22050 / 16)^(1 / 10).
  ParamDesc bands[kBands + 1];
  const double ratio = std::pow(1378.125, 0.1);
  double f = 16.0;
  for (int32_t b = 0; b < kBands; ++b) {
    bands[b] =
        Param("").Range(-18.0f, 18.0f).Center(0.0f, 0.5f).Format(&FormatDecibels).DecibelMapping();
    std::snprintf(bands[b].name, sizeof(bands[b].name), "%d Hz",
                  static_cast<int>(f * 10.0 + 5.0) / 10);
    f *= ratio;
  }
  bands[kBands] = EndOfTable();
  SetParamTable(bands);
  effectType = EFFECT_SUPEREQ;
}

SuperEQEffect::~SuperEQEffect() { FreeEngine(); }

AudioEffect* SuperEQEffect::CreateInstance() { return NewObject<SuperEQEffect>(); }

void SuperEQEffect::FreeEngine() { engine.reset(); }

int32_t SuperEQEffect::GetBlockSize() {
  if (sizingBuffers) return SuperEqEngine::LargestBlock();
  return engine ? engine->filterLength : 512;
}

int32_t SuperEQEffect::GetLatency() { return engine ? engine->GetLatency() : 0; }

int32_t SuperEQEffect::SetupBuffers() {
  sizingBuffers = true;
  const int32_t rc = IOndrel2::SetupBuffers();
  sizingBuffers = false;
  return rc;
}

int32_t SuperEQEffect::UpdateParams() {
  const int32_t count = TruncateWithin(GetScriptedParamByName("gain_len"), 1, kMaxGainCount);
  if (!engine) {
    engine.reset(NewObject<SuperEqEngine>());
    if (!engine) return ONDREL_E_NOMEM;
  }
  engine->SetFormat(static_cast<int>(GetSampleRate()), GetChannels());
  const float start = GetScriptedParamByName("start_f");
  const float octave = GetScriptedParamByName("octave");
  engine->SetBands(start, octave);

  std::vector<float> gains;
  if (!TryAllocating([&] {
        gains.assign(static_cast<size_t>(count), 0.0f);
        // Bands beyond the gain parameters stay flat.
        for (int32_t i = 0; i < count && kFirstGain + i < handle.numParams; ++i)
          gains[static_cast<size_t>(i)] = GetScriptedParam(kFirstGain + i);
        engine->SetGains(gains.data(), count);
      })) {
    return ONDREL_E_NOMEM;
  }

  engine->SetWindowBits(TruncateWithin(GetScriptedParamByName("window_bits"), 2, 15));
  engine->pending = 1;
  return ONDREL_OK;
}

int32_t SuperEQEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (!engine) return ONDREL_OK;
  SuperEqEngine& e = *engine;
  if (e.rebuild != 0 && e.pending != 0) {
    // A block cut for the previous design (window_bits changed within one
    // adapter call) goes through the previous design; the new one starts
    // with the next block of its own size.
    if (*frames == e.filterLength) {
      e.rebuild = 0;
      e.pending = 0;
      if (int32_t rc = e.Rebuild()) {
        // A design that can't be made fails this block only; later blocks
        // pass through dry until a setting changes, so that no parameter
        // value (a start frequency a script drove to 0, say) can stop the
        // stream for good.
        e.designFailed = 1;
        return rc;
      }
      e.designFailed = 0;
    }
  } else {
    e.pending = 0;
  }
  if (e.designFailed != 0) return 0;
  return e.Process(bufs, frames);
}

}  // namespace SUPEREQ
}  // namespace ONDREL2
