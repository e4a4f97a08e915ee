#include "effects/dfx_hyperbass/dfx_hyperbass.h"

#include <algorithm>
#include <cmath>

#include "framework/alloc.h"

namespace ONDREL2 {
namespace DFXHYPERBASS {
namespace {

const ParamDesc kParams[] = {
    {"Hyperbass", false, 0.0f, 127.0f, 127.0f, 1.0f, 0.0f, &FormatPlain, 0, 0, nullptr, nullptr,
     false},
    {""},
};

constexpr double kPi = 3.141592653589793;

// Truncation to an integer; NaN and values beyond the integer range count
// as 0.
int32_t Truncated(float value) {
  const double v = static_cast<double>(value);
  return v > -2147483648.0 && v < 2147483648.0 ? static_cast<int32_t>(v) : 0;
}

}  // namespace

// The bell is designed on the bilinear frequency axis: t = tan((f - 1/4) pi)
// places the centre, the band angle p comes from the requested bandwidth
// f0 / W, and k sets the level B at the band edges for the peak G. Values
// rounded to float where they are stored, math functions in double.
BellDesign DesignBell(int32_t amount, double f0, int32_t rate, float width, float lowGain,
                      float highGain) {
  BellDesign out;
  const float g = ((highGain - lowGain) / 127.0f) * static_cast<float>(amount) + lowGain;
  out.gainDb = g;
  float w = width;
  if (f0 < 60.0 && (f0 - 20.0) * 0.475 + 1.0 <= static_cast<double>(w))
    w = static_cast<float>((f0 - 20.0) * 0.475 + 1.0);
  if (g < 6.0f && g * 3.3f + 0.2f <= w) w = g * 3.3f + 0.2f;
  out.width = w;
  if (g == 0.0f) return out;

  const double f = f0 / static_cast<double>(rate);
  const float t = static_cast<float>(std::tan((f - 0.25) * kPi));
  const float t2 = t * t;
  const float G = static_cast<float>(std::pow(10.0, static_cast<double>(g) * 0.05));
  const float B = g >= 6.0f ? static_cast<float>(static_cast<double>(G) / std::sqrt(2.0))
                            : static_cast<float>(std::sqrt(static_cast<double>(G)));
  const double b = f / static_cast<double>(w);
  float p;
  if (b >= 0.5) {
    p = 0.0007957747f;
  } else {
    const float u = static_cast<float>(std::tan(2.0 * b * kPi));
    const float d = 1.0f - t2 * t2;
    const float n = (t2 * t2 + 1.0f) * u;
    const float A = static_cast<float>(std::atan2(static_cast<double>(n), static_cast<double>(d)));
    const float S = static_cast<float>(std::asin(static_cast<double>(2.0f * u * t2) /
                                                 std::sqrt(static_cast<double>(n * n + d * d))));
    p = static_cast<float>((kPi - static_cast<double>(S) - static_cast<double>(A)) * 0.5);
    const float half = (S - A) * 0.5f;
    if (half > 0.0f) p = std::min(half, p);
    p = p * 0.15915494f;
  }
  const float q = static_cast<float>(std::tan(2.0 * static_cast<double>(p) * kPi));
  float k = 1.0f / q;
  if (std::fabs(G * G - B * B) > 1e-7f)
    k = static_cast<float>(
        std::sqrt(static_cast<double>(k * k * (B * B - 1.0f) / (G * G - B * B))));
  const float c = t2 + 1.0f;
  const float m = k * G * (1.0f - t2);
  const float r = (1.0f - t2) * k;
  const float D = r + c;
  out.b0 = (m + c) / D;
  out.b1 = 4.0f * t / D;
  out.b2 = (c - m) / D;
  out.a1 = 4.0f * t / D;
  out.a2 = (c - r) / D;
  return out;
}

DfxHyperbassEffect::DfxHyperbassEffect() {
  SetEffectName("zh", "超重低音");
  SetEffectName("en", "Hyperbass");
  SetParamTable(kParams);
  SetParamLabels("Hyperbass", "zh", "超重低音", "en", "", nullptr);
  effectType = EFFECT_DFX_HYPERBASS;
}

DfxHyperbassEffect::~DfxHyperbassEffect() = default;

AudioEffect* DfxHyperbassEffect::CreateInstance() { return NewObject<DfxHyperbassEffect>(); }

int32_t DfxHyperbassEffect::UpdateParams() {
  const int32_t channels = GetChannels();
  const int32_t outChannels = GetOutChannels();
  const float hostRate = GetSampleRate();
  const int32_t rate =
      hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int32_t>(hostRate) : 0;
  if (!sections || channels != cachedChannels || outChannels != cachedOutChannels ||
      rate != cachedRate) {
    cachedChannels = channels;
    cachedOutChannels = outChannels;
    cachedRate = rate;
    sections.reset();
    if (channels > 0) {
      sections.reset(NewArray<Section>(static_cast<size_t>(channels)));
      if (!sections) return ONDREL_E_NOMEM;
    }
  }
  // Without a usable rate there is no bell to design: the audio passes.
  if (rate < 1) {
    sections.reset();
    return ONDREL_E_INVALID;
  }
  const int32_t amount = Truncated(GetScriptedParamByName("Hyperbass"));
  const BellDesign bell = DesignBell(amount, 90.0, rate, 2.5f, 0.0f, 15.0f);
  for (int32_t c = 0; c < channels; ++c) {
    Section& s = sections[static_cast<size_t>(c)];
    s.b0 = bell.b0;
    s.b1 = bell.b1;
    s.b2 = bell.b2;
    s.a1 = bell.a1;
    s.a2 = bell.a2;
  }
  return ONDREL_OK;
}

void DfxHyperbassEffect::ResetDsp() {
  if (!sections) return;
  for (int32_t c = 0; c < cachedChannels; ++c) {
    sections[static_cast<size_t>(c)].s1 = 0.0f;
    sections[static_cast<size_t>(c)].s2 = 0.0f;
  }
}

void DfxHyperbassEffect::ClearBuffers() { ResetDsp(); }

int32_t DfxHyperbassEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (!sections) return ONDREL_OK;
  const int32_t channels = std::min(cachedChannels, static_cast<int32_t>(bufs.size()));
  const int32_t n = *frames;
  // The section's states in locals (the buffers are floats too, and would
  // force a reload after every store), two channels per loop so that their
  // recursions overlap.
  const auto run = [n](Section& s, float* x) {
    const Section k = s;
    float s1 = s.s1, s2 = s.s2;
    for (int32_t i = 0; i < n; ++i) {
      const float in = x[i];
      const float y = k.b0 * in + s1;
      s1 = k.b1 * in - k.a1 * y + s2;
      s2 = in * k.b2 - y * k.a2;
      x[i] = y;
    }
    s.s1 = s1;
    s.s2 = s2;
  };
  int32_t c = 0;
  for (; c + 1 < channels; c += 2) {
    Section& s = sections[static_cast<size_t>(c)];
    Section& t = sections[static_cast<size_t>(c) + 1];
    float* x = bufs[static_cast<size_t>(c)];
    float* z = bufs[static_cast<size_t>(c) + 1];
    const Section k = s, m = t;
    float s1 = s.s1, s2 = s.s2, t1 = t.s1, t2 = t.s2;
    for (int32_t i = 0; i < n; ++i) {
      const float in = x[i];
      const float jn = z[i];
      const float y = k.b0 * in + s1;
      const float w = m.b0 * jn + t1;
      s1 = k.b1 * in - k.a1 * y + s2;
      t1 = m.b1 * jn - m.a1 * w + t2;
      s2 = in * k.b2 - y * k.a2;
      t2 = jn * m.b2 - w * m.a2;
      x[i] = y;
      z[i] = w;
    }
    s.s1 = s1;
    s.s2 = s2;
    t.s1 = t1;
    t.s2 = t2;
  }
  for (; c < channels; ++c) run(sections[static_cast<size_t>(c)], bufs[static_cast<size_t>(c)]);
  return ONDREL_OK;
}

}  // namespace DFXHYPERBASS
}  // namespace ONDREL2
