#include "effects/biquad/biquad_effects.h"
#include "framework/alloc.h"

#include <new>

namespace ONDREL2 {
namespace BIQUADFILTER {
namespace {

const ParamDesc kLowPassParams[] = {
    Param("Frequency").Range(20.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    Param("Q").Range(0.001f, 40.0f).Default(1.0f).Format(&FormatThreeDigits),
    EndOfTable(),
};

const ParamDesc kHighPassParams[] = {
    Param("Frequency").Range(10.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    Param("Q").Range(0.1f, 40.0f).Default(1.0f).Format(&FormatThreeDigits),
    EndOfTable(),
};

const ParamDesc kBandPassParams[] = {
    Param("LowEdge").Range(10.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    Param("HighEdge").Range(11.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    EndOfTable(),
};

const ParamDesc kNotchParams[] = {
    Param("LowEdge").Range(10.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    Param("HighEdge").Range(10.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    EndOfTable(),
};

const ParamDesc kShelfParams[] = {
    Param("Frequency").Range(10.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    Param("Q").Range(0.001f, 40.0f).Default(1.0f).Format(&FormatThreeDigits),
    Param("Gain")
        .Range(-24.0f, 24.0f)
        .Center(0.0f, kGainShape)
        .Default(0.0f)
        .Format(&FormatDecibels),
    EndOfTable(),
};

const ParamDesc kBellParams[] = {
    Param("LowEdge")
        .Range(10.0f, 22050.0f)
        .Center(500.0f, 0.8f)
        .Default(20.0f)
        .Format(&FormatHertz),
    Param("HighEdge")
        .Range(10.0f, 22050.0f)
        .Center(500.0f, 0.8f)
        .Default(20.0f)
        .Format(&FormatHertz),
    Param("Gain").Range(-24.0f, 24.0f).Center(0.0f, 0.5f).Default(0.0f).Format(&FormatDecibels),
    EndOfTable(),
};

const ParamDesc kAllPassParams[] = {
    Param("Frequency").Range(10.0f, 22050.0f).Default(20.0f).Format(&FormatHertz),
    Param("Q").Range(0.001f, 40.0f).Default(1.0f).Format(&FormatThreeDigits),
    EndOfTable(),
};

// Exchanges reversed edges through their sum, in float. The result may
// differ from a plain swap in the last bit; stored presets were made with
// this form, so it stays.
void OrderEdges(float& lowEdge, float& highEdge) {
  if (lowEdge > highEdge) {
    const float sum = highEdge + lowEdge;
    highEdge = sum - highEdge;
    lowEdge = sum - highEdge;
  }
}

// Frequency in Hz to cycles per sample, divided in float.
double Normalised(float hertz, float rate) { return static_cast<double>(hertz / rate); }

bool AtOrAboveNyquist(float hertz, float rate) {
  return static_cast<double>(hertz) >= static_cast<double>(rate) * 0.5;
}

}  // namespace

BiquadEffectBase::BiquadEffectBase(bool isGuarded) : guarded(isGuarded) {}

BiquadEffectBase::~BiquadEffectBase() = default;

namespace {

// A stereo pair's two recursions, each Filter::Process term for term, with
// the coefficients and delay values held in registers for the block, so
// that the two channels run side by side instead of through memory.
void RunPair(BiquadFilter::Filter& l, BiquadFilter::Filter& r, float* a, float* b, int32_t n) {
  const float lb0 = l.b0, lb1 = l.b1, lb2 = l.b2, la1 = l.a1, la2 = l.a2;
  const float rb0 = r.b0, rb1 = r.b1, rb2 = r.b2, ra1 = r.a1, ra2 = r.a2;
  float lx1 = l.x1, lx2 = l.x2, ly1 = l.y1, ly2 = l.y2;
  float rx1 = r.x1, rx2 = r.x2, ry1 = r.y1, ry2 = r.y2;
  for (int32_t i = 0; i < n; ++i) {
    const float lx = a[i];
    const float rx = b[i];
    float ly = lb0 * lx;
    float ry = rb0 * rx;
    ly = ly + lb1 * lx1;
    ry = ry + rb1 * rx1;
    ly = ly + lb2 * lx2;
    ry = ry + rb2 * rx2;
    ly = ly - la1 * ly1;
    ry = ry - ra1 * ry1;
    ly = ly - la2 * ly2;
    ry = ry - ra2 * ry2;
    lx2 = lx1;
    lx1 = lx;
    ly2 = ly1;
    ly1 = ly;
    rx2 = rx1;
    rx1 = rx;
    ry2 = ry1;
    ry1 = ry;
    a[i] = ly;
    b[i] = ry;
  }
  l.x1 = lx1, l.x2 = lx2, l.y1 = ly1, l.y2 = ly2;
  r.x1 = rx1, r.x2 = rx2, r.y1 = ry1, r.y2 = ry2;
}

}  // namespace

int32_t BiquadEffectBase::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (guarded && passThrough) return ONDREL_OK;
  // Frame by frame, channel by channel: the channels' recursions overlap in
  // the processor. Filter::Process adds and subtracts term by term in its
  // fixed order.
  const int32_t n = *frames;
  const size_t channels = bufs.size() < filters.size() ? bufs.size() : filters.size();
  if (channels == 2) {
    RunPair(*filters[0], *filters[1], bufs[0], bufs[1], n);
    return ONDREL_OK;
  }
  for (int32_t i = 0; i < n; ++i)
    for (size_t c = 0; c < channels; ++c) bufs[c][i] = filters[c]->Process(bufs[c][i]);
  return ONDREL_OK;
}

// ---- Low pass ------------------------------------------------------------

LPFilterEffect::LPFilterEffect() : BiquadEffectBase(true) {
  SetEffectName("zh", "高切（低通）滤波器");
  SetEffectName("en", "HighCutFilter");
  SetParamTable(kLowPassParams);
  SetParamLabels("Frequency", "zh", "频率", "en", "", nullptr);
  effectType = EFFECT_LP_FILTER;
  LPFilterEffect::UpdateParams();
}

AudioEffect* LPFilterEffect::CreateInstance() { return NewObject<LPFilterEffect>(); }

int32_t LPFilterEffect::UpdateParams() {
  filters.clear();
  const float frequency = GetScriptedParamByName("Frequency");
  const float q = GetScriptedParamByName("Q");
  const float rate = GetSampleRate();
  passThrough = AtOrAboveNyquist(frequency, rate);
  BuildFilters(
      [&] { return std::make_unique<BiquadFilter::LPFilter>(Normalised(frequency, rate), q); });
  return ONDREL_OK;
}

// ---- High pass -----------------------------------------------------------

HPFilterEffect::HPFilterEffect() : BiquadEffectBase(true) {
  SetEffectName("zh", "低切（高通）滤波器");
  SetEffectName("en", "LowCutFilter");
  SetParamTable(kHighPassParams);
  SetParamLabels("Frequency", "zh", "频率", "en", "", nullptr);
  effectType = EFFECT_HP_FILTER;
  HPFilterEffect::UpdateParams();
}

AudioEffect* HPFilterEffect::CreateInstance() { return NewObject<HPFilterEffect>(); }

int32_t HPFilterEffect::UpdateParams() {
  filters.clear();
  const float frequency = GetScriptedParamByName("Frequency");
  const float q = GetScriptedParamByName("Q");
  const float rate = GetSampleRate();
  passThrough = AtOrAboveNyquist(frequency, rate);
  BuildFilters(
      [&] { return std::make_unique<BiquadFilter::HPFilter>(Normalised(frequency, rate), q); });
  return ONDREL_OK;
}

// ---- Band pass -----------------------------------------------------------

BPFilterEffect::BPFilterEffect() : BiquadEffectBase(true) {
  SetEffectName("zh", "带通滤波器");
  SetEffectName("en", "BandPassFilter");
  SetParamTable(kBandPassParams);
  SetParamLabels("LowEdge", "zh", "低边", "en", "", nullptr);
  SetParamLabels("HighEdge", "zh", "高边", "en", "", nullptr);
  effectType = EFFECT_BP_FILTER;
  BPFilterEffect::UpdateParams();
}

AudioEffect* BPFilterEffect::CreateInstance() { return NewObject<BPFilterEffect>(); }

int32_t BPFilterEffect::UpdateParams() {
  filters.clear();
  float lowEdge = GetScriptedParamByName("LowEdge");
  float highEdge = GetScriptedParamByName("HighEdge");
  const float rate = GetSampleRate();
  // Equal edges pass the audio; they are not exchanged.
  if (lowEdge == highEdge) {
    passThrough = true;
  } else {
    OrderEdges(lowEdge, highEdge);
    passThrough = AtOrAboveNyquist(highEdge, rate);
  }
  BuildFilters([&] {
    return std::make_unique<BiquadFilter::BPFilter>(Normalised(lowEdge, rate),
                                                    Normalised(highEdge, rate));
  });
  return ONDREL_OK;
}

// ---- Notch ---------------------------------------------------------------

NTFilterEffect::NTFilterEffect() : BiquadEffectBase(true) {
  SetEffectName("zh", "Notch带通滤波器");
  SetEffectName("en", "NotchFilter");
  SetParamTable(kNotchParams);
  SetParamLabels("LowEdge", "zh", "低边", "en", "", nullptr);
  SetParamLabels("HighEdge", "zh", "高边", "en", "", nullptr);
  effectType = EFFECT_NT_FILTER;
  NTFilterEffect::UpdateParams();
}

AudioEffect* NTFilterEffect::CreateInstance() { return NewObject<NTFilterEffect>(); }

int32_t NTFilterEffect::UpdateParams() {
  filters.clear();
  float lowEdge = GetScriptedParamByName("LowEdge");
  float highEdge = GetScriptedParamByName("HighEdge");
  const float rate = GetSampleRate();
  OrderEdges(lowEdge, highEdge);
  passThrough = AtOrAboveNyquist(highEdge, rate);
  BuildFilters([&] {
    return std::make_unique<BiquadFilter::NTFilter>(Normalised(lowEdge, rate),
                                                    Normalised(highEdge, rate));
  });
  return ONDREL_OK;
}

// ---- Shelves -------------------------------------------------------------

void BiquadEffectBase::SetUpShelf(const char* zhName, const char* enName, int32_t type) {
  SetEffectName("zh", zhName);
  SetEffectName("en", enName);
  SetParamTable(kShelfParams);
  SetParamLabels("Frequency", "zh", "频率", "en", "", nullptr);
  SetParamLabels("Gain", "zh", "增益", "en", "", nullptr);
  effectType = type;
}

template <typename Shelf>
int32_t BiquadEffectBase::UpdateShelf() {
  filters.clear();
  const float frequency = GetScriptedParamByName("Frequency");
  const float q = GetScriptedParamByName("Q");
  const float gain = GetScriptedParamByName("Gain");
  const float rate = GetSampleRate();
  BuildFilters([&] { return std::make_unique<Shelf>(Normalised(frequency, rate), q, gain); });
  return ONDREL_OK;
}

LSFilterEffect::LSFilterEffect() : BiquadEffectBase(false) {
  SetUpShelf("LowShelf滤波器", "LowShelfFilter", EFFECT_LS_FILTER);
  LSFilterEffect::UpdateParams();
}

AudioEffect* LSFilterEffect::CreateInstance() { return NewObject<LSFilterEffect>(); }

int32_t LSFilterEffect::UpdateParams() { return UpdateShelf<BiquadFilter::LSFilter>(); }

HSFilterEffect::HSFilterEffect() : BiquadEffectBase(false) {
  SetUpShelf("HighShelf滤波器", "HighShelfFilter", EFFECT_HS_FILTER);
  HSFilterEffect::UpdateParams();
}

AudioEffect* HSFilterEffect::CreateInstance() { return NewObject<HSFilterEffect>(); }

int32_t HSFilterEffect::UpdateParams() { return UpdateShelf<BiquadFilter::HSFilter>(); }

// ---- Bell ----------------------------------------------------------------

PKFilterEffect::PKFilterEffect() : BiquadEffectBase(true) {
  SetEffectName("zh", "Bell滤波器");
  SetEffectName("en", "BellFilter");
  SetParamTable(kBellParams);
  SetParamLabels("LowEdge", "zh", "低边", "en", "", nullptr);
  SetParamLabels("HighEdge", "zh", "高边", "en", "", nullptr);
  SetParamLabels("Gain", "zh", "增益", "en", "", nullptr);
  effectType = EFFECT_PK_FILTER;
  PKFilterEffect::UpdateParams();
}

AudioEffect* PKFilterEffect::CreateInstance() { return NewObject<PKFilterEffect>(); }

int32_t PKFilterEffect::UpdateParams() {
  filters.clear();
  float lowEdge = GetScriptedParamByName("LowEdge");
  float highEdge = GetScriptedParamByName("HighEdge");
  const float gain = GetScriptedParamByName("Gain");
  const float rate = GetSampleRate();
  OrderEdges(lowEdge, highEdge);
  passThrough = AtOrAboveNyquist(highEdge, rate);
  BuildFilters([&] {
    return std::make_unique<BiquadFilter::PKFilter>(Normalised(lowEdge, rate),
                                                    Normalised(highEdge, rate), gain);
  });
  return ONDREL_OK;
}

// ---- All pass ------------------------------------------------------------

APFilterEffect::APFilterEffect() : BiquadEffectBase(false) {
  SetEffectName("zh", "AllPass滤波器");
  SetEffectName("en", "AllPassFilter");
  SetParamTable(kAllPassParams);
  SetParamLabels("Frequency", "zh", "频率", "en", "", nullptr);
  effectType = EFFECT_AP_FILTER;
  APFilterEffect::UpdateParams();
}

AudioEffect* APFilterEffect::CreateInstance() { return NewObject<APFilterEffect>(); }

int32_t APFilterEffect::UpdateParams() {
  filters.clear();
  const float frequency = GetScriptedParamByName("Frequency");
  const float q = GetScriptedParamByName("Q");
  const float rate = GetSampleRate();
  BuildFilters(
      [&] { return std::make_unique<BiquadFilter::APFilter>(Normalised(frequency, rate), q); });
  return ONDREL_OK;
}

}  // namespace BIQUADFILTER
}  // namespace ONDREL2
