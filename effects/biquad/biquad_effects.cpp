#include "effects/biquad/biquad_effects.h"
#include "framework/alloc.h"

#include <cstring>
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
  if (passThrough) return ONDREL_OK;
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

// ---- The eight shapes ------------------------------------------------------

namespace {

template <typename Shape>
std::unique_ptr<BiquadFilter::Filter> MakeTwo(double a, double b, double) {
  return std::make_unique<Shape>(a, b);
}

template <typename Shape>
std::unique_ptr<BiquadFilter::Filter> MakeThree(double a, double b, double gainDb) {
  return std::make_unique<Shape>(a, b, gainDb);
}

// Labels of the parameters that have one; Q has none.
struct Label {
  const char* name;
  const char* zh;
};
const Label kLabels[] = {
    {"Frequency", "频率"}, {"LowEdge", "低边"}, {"HighEdge", "高边"}, {"Gain", "增益"}};

}  // namespace

// Which parameters a shape's filter takes.
enum class Inputs { kFrequencyQ, kFrequencyQGain, kEdges, kEdgesGain };

// When a shape leaves the audio untouched: never, at or above half the
// rate, or also when its two edges are equal.
enum class Guard { kNone, kNyquist, kNyquistOrEqualEdges };

// What sets one effect of the family apart; `make` gets frequencies in
// cycles per sample.
struct BiquadShape {
  ONDREL_EFFECT_TYPE type;
  const char* zhName;
  const char* enName;
  const ParamDesc* params;
  Inputs inputs;
  Guard guard;
  std::unique_ptr<BiquadFilter::Filter> (*make)(double, double, double);
};

namespace {

using namespace BiquadFilter;

const BiquadShape kShapes[] = {
    {EFFECT_LP_FILTER, "高切（低通）滤波器", "HighCutFilter", kLowPassParams, Inputs::kFrequencyQ,
     Guard::kNyquist, &MakeTwo<LPFilter>},
    {EFFECT_HP_FILTER, "低切（高通）滤波器", "LowCutFilter", kHighPassParams, Inputs::kFrequencyQ,
     Guard::kNyquist, &MakeTwo<HPFilter>},
    {EFFECT_BP_FILTER, "带通滤波器", "BandPassFilter", kBandPassParams, Inputs::kEdges,
     Guard::kNyquistOrEqualEdges, &MakeTwo<BPFilter>},
    {EFFECT_NT_FILTER, "Notch带通滤波器", "NotchFilter", kNotchParams, Inputs::kEdges,
     Guard::kNyquist, &MakeTwo<NTFilter>},
    {EFFECT_LS_FILTER, "LowShelf滤波器", "LowShelfFilter", kShelfParams, Inputs::kFrequencyQGain,
     Guard::kNone, &MakeThree<LSFilter>},
    {EFFECT_HS_FILTER, "HighShelf滤波器", "HighShelfFilter", kShelfParams, Inputs::kFrequencyQGain,
     Guard::kNone, &MakeThree<HSFilter>},
    {EFFECT_PK_FILTER, "Bell滤波器", "BellFilter", kBellParams, Inputs::kEdgesGain, Guard::kNyquist,
     &MakeThree<PKFilter>},
    {EFFECT_AP_FILTER, "AllPass滤波器", "AllPassFilter", kAllPassParams, Inputs::kFrequencyQ,
     Guard::kNone, &MakeTwo<APFilter>},
};

const BiquadShape& ShapeOf(ONDREL_EFFECT_TYPE type) {
  for (const BiquadShape& shape : kShapes)
    if (shape.type == type) return shape;
  return kShapes[0];  // not reached: every instantiation names a row
}

}  // namespace

BiquadEffectBase::BiquadEffectBase(ONDREL_EFFECT_TYPE type) : shape(ShapeOf(type)) {
  SetEffectName("zh", shape.zhName);
  SetEffectName("en", shape.enName);
  SetParamTable(shape.params);
  for (const Label& label : kLabels)
    for (const ParamDesc* p = shape.params; p->name[0] != '\0'; ++p)
      if (std::strcmp(p->name, label.name) == 0)
        SetParamLabels(label.name, "zh", label.zh, "en", "", nullptr);
  effectType = shape.type;
  BiquadEffectBase::UpdateParams();
}

int32_t BiquadEffectBase::UpdateParams() {
  filters.clear();
  const float rate = GetSampleRate();
  const bool withGain =
      shape.inputs == Inputs::kFrequencyQGain || shape.inputs == Inputs::kEdgesGain;
  const float gain = withGain ? GetScriptedParamByName("Gain") : 0.0f;
  if (shape.inputs == Inputs::kFrequencyQ || shape.inputs == Inputs::kFrequencyQGain) {
    const float frequency = GetScriptedParamByName("Frequency");
    const float q = GetScriptedParamByName("Q");
    passThrough = shape.guard != Guard::kNone && AtOrAboveNyquist(frequency, rate);
    BuildFilters([&] { return shape.make(Normalised(frequency, rate), q, gain); });
    return ONDREL_OK;
  }
  float lowEdge = GetScriptedParamByName("LowEdge");
  float highEdge = GetScriptedParamByName("HighEdge");
  // Equal edges that pass the audio are not exchanged.
  if (shape.guard == Guard::kNyquistOrEqualEdges && lowEdge == highEdge) {
    passThrough = true;
  } else {
    OrderEdges(lowEdge, highEdge);
    passThrough = shape.guard != Guard::kNone && AtOrAboveNyquist(highEdge, rate);
  }
  BuildFilters(
      [&] { return shape.make(Normalised(lowEdge, rate), Normalised(highEdge, rate), gain); });
  return ONDREL_OK;
}

}  // namespace BIQUADFILTER
}  // namespace ONDREL2
