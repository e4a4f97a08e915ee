#include "effects/eq/eqfb.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "frame/sample_fifo.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace IIR_EQ_FIXED_BANDS {
namespace {

// The band ladder without a frequency list: from 16 Hz, each band the last
// times (22050 / 16)^(1 / bands).
constexpr double kLadderStart = 16.0;
constexpr double kLadderSpan = 1378.125;

const float kTenBands[10] = {31.25f,  62.5f,   125.0f,  250.0f,  500.0f,
                             1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};

}  // namespace

void BandName(char* buf, double frequency) {
  std::snprintf(buf, 64, "%d Hz", static_cast<int>(frequency * 10.0 + 5.0) / 10);
}

EqfbEffect::EqfbEffect(int32_t bands, const float* list) {
  if (bands < 0) bands = 0;
  frequencies.resize(static_cast<size_t>(bands));
  const double ratio = std::pow(kLadderSpan, 1.0 / static_cast<double>(bands));
  double f = kLadderStart;
  for (int32_t b = 0; b < bands; ++b) {
    frequencies[static_cast<size_t>(b)] = list != nullptr ? list[b] : static_cast<float>(f);
    f *= ratio;
  }

  char text[64];
  std::snprintf(text, sizeof(text), "%d段均衡", bands);
  SetEffectName("zh", text);
  std::snprintf(text, sizeof(text), "%dバンド・イコライザー", bands);
  SetEffectName("ja", text);
  std::snprintf(text, sizeof(text), "%d Bands EQ", bands);
  SetEffectName("en", text);

  // The table depends on the band count, so it is built here; SetParamTable
  // copies the records.
  std::vector<ParamDesc> table;
  table.reserve(static_cast<size_t>(bands) + 2);
  table.push_back(Param("Q")
                      .Range(0.025f, 1.25f)
                      .Center(1.0f, 0.5f)
                      .Default(1.22474492f)
                      .Format(&FormatThreeDigits)
                      .Hints(2));
  for (int32_t b = 0; b < bands; ++b) {
    ParamDesc p =
        Param("").Range(-18.0f, 18.0f).Center(0.0f, 0.5f).Format(&FormatDecibels).DecibelMapping();
    BandName(p.name, static_cast<double>(frequencies[static_cast<size_t>(b)]));
    table.push_back(p);
  }
  table.push_back(EndOfTable());
  SetParamTable(table.data());
  for (const ParamDesc& p : params) SetParamLabels(p.name, "en", "", nullptr);

  paramsDirty = true;
  EqfbEffect::UpdateParams();
}

EqfbEffect::~EqfbEffect() = default;

AudioEffect* EqfbEffect::CreateInstance() {
  return NewObject<EqfbEffect>(static_cast<int32_t>(frequencies.size()), frequencies.data());
}

int32_t EqfbEffect::GetBlockSize() { return 1024; }

void EqfbEffect::FreeFilters() {
  filters.clear();
  bandTable.clear();
  filterChannels = 0;
}

int32_t EqfbEffect::UpdateParams() {
  FreeFilters();
  const float width = GetScriptedParamByName("Q");
  const int32_t rate = static_cast<int32_t>(GetSampleRate());
  // A block never holds more channels than a queue does: no filters for
  // channels that can't arrive.
  const int32_t channels = std::min(std::max(GetChannels(), 0), kMaxChannels);
  const size_t bands = frequencies.size();
  filters.reserve(bands * static_cast<size_t>(channels));
  bandTable.reserve(bands * static_cast<size_t>(channels));
  for (size_t b = 0; b < bands; ++b) {
    const float gainDb = GetScriptedParam(static_cast<int32_t>(b) + 1);
    for (int32_t c = 0; c < channels; ++c) {
      std::unique_ptr<EqfbBand> band(new EqfbBand());
      DesignEqfbBand(*band, frequencies[b], width, rate, gainDb);
      bandTable.push_back(band.get());
      filters.push_back(std::move(band));
    }
  }
  filterChannels = channels;
  return ONDREL_OK;
}

int32_t EqfbEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t channels = std::min(static_cast<int32_t>(bufs.size()), filterChannels);
  RunEqfbBandsBlock(bandTable.data(), static_cast<int32_t>(frequencies.size()), filterChannels,
                    bufs.data(), channels, *frames);
  return ONDREL_OK;
}

int32_t EqfbEffect::ProcessBlockScalar(const ChannelVector& bufs, int32_t* frames) {
  const int32_t n = *frames;
  const int32_t stride = filterChannels;
  const int32_t channels =
      static_cast<int32_t>(bufs.size()) < stride ? static_cast<int32_t>(bufs.size()) : stride;
  const size_t bands = frequencies.size();
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      float y = bufs[static_cast<size_t>(c)][i];
      for (size_t b = 0; b < bands; ++b) {
        EqfbBand& f = *filters[b * static_cast<size_t>(stride) + static_cast<size_t>(c)];
        if (f.bypass != 0) continue;
        float w = f.inputScale * y + f.state1 * f.feedback1;
        w = w + f.feedback2 * f.state2;
        y = y + (f.zero2 * f.state2 + w) * f.gain;
        f.state2 = f.state1;
        f.state1 = w;
      }
      bufs[static_cast<size_t>(c)][i] = y;
    }
  }
  return ONDREL_OK;
}

IirEQ10Effect::IirEQ10Effect() : EqfbEffect(10, kTenBands) { effectType = EFFECT_IIR_EQ10; }
IirEQ10Effect::~IirEQ10Effect() = default;
AudioEffect* IirEQ10Effect::CreateInstance() { return NewObject<IirEQ10Effect>(); }

IirEQ30Effect::IirEQ30Effect() : EqfbEffect(30) { effectType = EFFECT_IIR_EQ30; }
IirEQ30Effect::~IirEQ30Effect() = default;
AudioEffect* IirEQ30Effect::CreateInstance() { return NewObject<IirEQ30Effect>(); }

}  // namespace IIR_EQ_FIXED_BANDS
}  // namespace ONDREL2
