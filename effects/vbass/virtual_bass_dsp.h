// VirtualBassDsp: a plain, plug-in style virtual bass processor for
// interleaved stereo.
//
// The signal is split at a crossover by three second-order low-pass and
// three high-pass sections (cookbook sections with Q 0.8). The low band is
// bent by a fixed nonlinearity,
//   g = 2.5 * sqrt(1 - u^2) + 2.5 * atan(u) - 2.5,   u = 0.9 * low,
// which makes its harmonics; a band pass from the crossover to four times it
// keeps those, and they are added to the high band at `level`. The low band
// itself is dropped. Its two parameters are set as text, as a host of such
// plug-ins does: the crossover in whole Hz (50 to 500), the level (0.3 to 3).
//
// The band pass uses alpha = sinh(ln 2) * 0.5 * bw * w0, the same decided
// form as the library's band filters, not the usual hyperbolic one.
//
// Setting the crossover clears the histories; a new rate recomputes the
// coefficients at the next block and keeps them. Process allocates nothing;
// no latency.
#pragma once

#include <cstdint>

namespace ONDREL2 {
namespace VBASS {

class VirtualBassDsp {
 public:
  // One second-order section; the coefficients are shared by both channels.
  struct Section {
    float a0 = 1.0f, a1 = 0.0f, a2 = 0.0f, b0 = 0.0f, b1 = 0.0f, b2 = 0.0f;
  };
  struct History {
    float x1 = 0.0f, x2 = 0.0f, y1 = 0.0f, y2 = 0.0f;
  };
  struct PluginInfo {
    const char* id;
    const char* name;
    const char* description;
    const char* config;
  };
  static const PluginInfo kPlugin;

  // Parameter access by index (0 crossover, 1 level), as text. A bad index
  // writes a message to standard error and changes nothing.
  void SetParam(int index, const char* text);
  void GetParamName(int index, char* buf, int size) const;
  void GetParamValue(int index, char* buf, int size) const;

  void ClearHistories();
  // `samples` holds `frames` frames of interleaved stereo, processed in
  // place at `rate` Hz.
  void Process(float* samples, int32_t frames, int32_t rate);

  int32_t sampleRate = 0;  // the rate the coefficients were made for; 0 until the first block
  int32_t cutoff = 250;
  float level = 1.0f;
  Section lowPass[3];
  Section highPass[3];
  Section bandPass;
  History lowHist[2][3];
  History highHist[2][3];
  History bandHist[2];

 private:
  void ComputeCoefficients();
};

}  // namespace VBASS
}  // namespace ONDREL2
