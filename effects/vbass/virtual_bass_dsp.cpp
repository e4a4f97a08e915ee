#include "effects/vbass/virtual_bass_dsp.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace ONDREL2 {
namespace VBASS {
namespace {

constexpr double kTwoPi = 6.283185307179586;

inline float RunSection(const VirtualBassDsp::Section& s, VirtualBassDsp::History& h, float x) {
  const float y = (s.b0 * x + s.b1 * h.x1 + s.b2 * h.x2) * s.a0 - s.a1 * h.y1 - s.a2 * h.y2;
  h.x2 = h.x1;
  h.x1 = x;
  h.y2 = h.y1;
  h.y1 = y;
  return y;
}

}  // namespace

const VirtualBassDsp::PluginInfo VirtualBassDsp::kPlugin = {
    "virtual_bass", "Virtual bass", "Virtual bass DSP Plugin",
    "property \"Crossover cutoff\" hscale[50,500,10] 0 1;"
    "property \"Effect level\" hscale[0.3,3,0.1] 1 1;"};

void VirtualBassDsp::SetParam(int index, const char* text) {
  switch (index) {
    case 0:
      cutoff = std::atoi(text);
      ClearHistories();
      ComputeCoefficients();
      break;
    case 1: level = static_cast<float>(std::atof(text)); break;
    default: std::fprintf(stderr, "virtual_bass_param: invalid param index (%d)\n", index); break;
  }
}

void VirtualBassDsp::GetParamName(int index, char* buf, int size) const {
  switch (index) {
    case 0: std::snprintf(buf, static_cast<size_t>(size), "Crossover cutoff"); break;
    case 1: std::snprintf(buf, static_cast<size_t>(size), "Effect level"); break;
    default:
      std::fprintf(stderr, "virtual_bass_param_name: invalid param index (%d)\n", index);
      break;
  }
}

void VirtualBassDsp::GetParamValue(int index, char* buf, int size) const {
  switch (index) {
    case 0: std::snprintf(buf, static_cast<size_t>(size), "%d", cutoff); break;
    case 1: std::snprintf(buf, static_cast<size_t>(size), "%f", static_cast<double>(level)); break;
    default:
      std::fprintf(stderr, "virtual_bass_get_param: invalid param index (%d)\n", index);
      break;
  }
}

void VirtualBassDsp::ClearHistories() {
  for (int c = 0; c < 2; ++c) {
    for (int s = 0; s < 3; ++s) lowHist[c][s] = highHist[c][s] = History();
    bandHist[c] = History();
  }
}

void VirtualBassDsp::ComputeCoefficients() {
  // Without a rate there is nothing to design for; the first block does it.
  if (sampleRate <= 0) return;
  const float rate = static_cast<float>(sampleRate);
  const double w = kTwoPi * static_cast<double>(static_cast<float>(cutoff) / rate);
  const double s = std::sin(w);
  const double c = std::cos(w);
  const float d = static_cast<float>(s / 1.6 + 1.0);
  Section lp, hp;
  lp.a0 = hp.a0 = d / d;
  lp.a1 = hp.a1 = static_cast<float>(c * -2.0 / d);
  lp.a2 = hp.a2 = static_cast<float>((1.0 - s / 1.6) / d);
  lp.b0 = lp.b2 = static_cast<float>((1.0 - c) * 0.5 / d);
  lp.b1 = static_cast<float>((1.0 - c) / d);
  hp.b0 = hp.b2 = static_cast<float>((c + 1.0) * 0.5 / d);
  hp.b1 = static_cast<float>((-1.0 - c) / d);
  for (int i = 0; i < 3; ++i) {
    lowPass[i] = lp;
    highPass[i] = hp;
  }

  // Band pass from the crossover to four times it, centred on the
  // geometric mean. The sine cancels but is multiplied and divided as
  // written.
  const float f1 = static_cast<float>(cutoff) / rate;
  const float f2 = static_cast<float>(cutoff * 4) / rate;
  const double bw = std::log2(static_cast<double>(f2 / f1));
  const double w0 = std::pow(2.0, bw * 0.5) * static_cast<double>(f1) * kTwoPi;
  const double q = std::sinh(std::log(2.0)) * std::sin(w0) * 0.5 * bw * w0 / std::sin(w0);
  const float d2 = static_cast<float>(q + 1.0);
  bandPass.a0 = 1.0f;
  bandPass.a1 = static_cast<float>(std::cos(w0) * -2.0 / d2);
  bandPass.a2 = static_cast<float>((1.0 - q) / d2);
  bandPass.b0 = static_cast<float>(q / d2);
  bandPass.b1 = 0.0f;
  bandPass.b2 = static_cast<float>(-q / d2);
}

void VirtualBassDsp::Process(float* samples, int32_t frames, int32_t rate) {
  if (rate <= 0) return;
  if (rate != sampleRate) {
    sampleRate = rate;
    ComputeCoefficients();
  }
  for (int32_t f = 0; f < frames; ++f) {
    for (int c = 0; c < 2; ++c) {
      float& sample = samples[2 * f + c];
      const float x = sample;
      float low = x;
      for (int i = 0; i < 3; ++i) low = RunSection(lowPass[i], lowHist[c][i], low);
      const double u = static_cast<double>(low) * 0.9;
      float v = static_cast<float>(1.0 - u * u);
      if (v < 0.0f) v = 0.0f;
      const float g =
          static_cast<float>(2.5 * std::sqrt(static_cast<double>(v)) + 2.5 * std::atan(u) - 2.5);
      const float harmonics = RunSection(bandPass, bandHist[c], g);
      float high = x;
      for (int i = 0; i < 3; ++i) high = RunSection(highPass[i], highHist[c][i], high);
      sample = harmonics * level + high;
    }
  }
}

}  // namespace VBASS
}  // namespace ONDREL2
