#include "effects/vocal/vocal.h"
#include "framework/alloc.h"

#include <new>

namespace ONDREL2 {
namespace VOCAL {
namespace {

const ParamDesc kParams[] = {
    {"Vocal", false, 0.0f, 127.0f, 127.0f, 1.0f, 12.6999998f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {""},
};

const float kFrequencies[kBands] = {31.25f,  62.5f,   125.0f,  250.0f,  500.0f,
                                    1000.0f, 2000.0f, 4000.0f, 8000.0f, 16000.0f};
const float kCurveDb[kBands] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 2.0f, 3.0f, 2.0f, 0.0f};
// The float with bits 0x3F9CC471.
constexpr float kWidth = 1.22474492f;

}  // namespace

VocalEffect::VocalEffect() {
  SetEffectName("zh", "清澈人声");
  SetEffectName("en", "Vocal");
  SetParamTable(kParams);
  SetParamLabels("Vocal", "zh", "清澈人声", "en", "", nullptr);
  effectType = EFFECT_VOCAL;
}

VocalEffect::~VocalEffect() = default;

AudioEffect* VocalEffect::CreateInstance() { return NewObject<VocalEffect>(); }

int32_t VocalEffect::UpdateParams() {
  const float hostRate = GetSampleRate();
  const int32_t rate =
      hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int32_t>(hostRate) : 0;
  const int32_t channels = GetChannels() > 0 ? GetChannels() : 0;
  if (!bands || !voices || builtChannels != channels || builtOutChannels != GetOutChannels() ||
      builtRate != rate) {
    builtChannels = channels;
    builtOutChannels = GetOutChannels();
    builtRate = rate;
    bands.reset();
    voices.reset();
    bands.reset(NewArray<ChannelBands>(static_cast<size_t>(channels)));
    voices.reset(NewArray<Voice>(static_cast<size_t>(channels)));
    if (!bands || !voices) {
      bands.reset();
      voices.reset();
      builtChannels = 0;
      return ONDREL_E_NOMEM;
    }
  }
  const float amount = GetScriptedParamByName("Vocal") / 127.0f;
  for (int32_t c = 0; c < builtChannels; ++c) {
    for (int32_t b = 0; b < kBands; ++b)
      DesignEqfbBand(bands[c].band[b], kFrequencies[b], kWidth, builtRate, kCurveDb[b]);
    voices[c].amount = amount;
  }
  return ONDREL_OK;
}

int32_t VocalEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t n = *frames;
  const int32_t channels = static_cast<int32_t>(bufs.size()) < builtChannels
                               ? static_cast<int32_t>(bufs.size())
                               : builtChannels;
  // The emphasis of a sample reads only the input, so each buffer gets it
  // first and then goes through the curve as a whole block.
  for (int32_t c = 0; c < channels; ++c) {
    float* x = bufs[static_cast<size_t>(c)];
    Voice& v = voices[c];
    for (int32_t i = 0; i < n; ++i) {
      const float in = x[i];
      x[i] = (in - v.previous) * v.amount + in;
      v.previous = in;
    }
  }
  static_assert(sizeof(ChannelBands) == kBands * sizeof(EqfbBand), "curves lie back to back");
  if (bands) RunEqfbBandsBlock(bands[0].band, kBands, bufs.data(), channels, n);
  return ONDREL_OK;
}

void VocalEffect::ResetDsp() {
  for (int32_t c = 0; c < builtChannels && bands && voices; ++c) {
    for (EqfbBand& b : bands[c].band) b.state1 = b.state2 = 0.0f;
    voices[c].previous = 0.0f;
  }
}

// A flush clears the filters; the queues keep what they hold.
void VocalEffect::ClearBuffers() { ResetDsp(); }

}  // namespace VOCAL
}  // namespace ONDREL2
