// Amplitude of one frequency in a stretch of a channel, by least squares
// on a sine and a cosine: what the enhancer tests measure magnitude
// responses and harmonics with.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

namespace ondrel_test {

// `x` interleaved, `channels` wide; frames [from, from + count) of channel
// `channel`; `frequency` in cycles per sample. Best over whole periods.
inline double ToneAmplitude(const std::vector<float>& x, int channels, int channel, size_t from,
                            size_t count, double frequency) {
  double ss = 0, sc = 0, cc = 0, xs = 0, xc = 0;
  for (size_t n = from; n < from + count; ++n) {
    const double ph = 2.0 * 3.141592653589793 * frequency * static_cast<double>(n);
    const double s = std::sin(ph), c = std::cos(ph);
    const double v = x[n * static_cast<size_t>(channels) + static_cast<size_t>(channel)];
    ss += s * s;
    sc += s * c;
    cc += c * c;
    xs += v * s;
    xc += v * c;
  }
  const double det = ss * cc - sc * sc;
  const double a = (xs * cc - xc * sc) / det, b = (xc * ss - xs * sc) / det;
  return std::sqrt(a * a + b * b);
}

// A sine of `amplitude` at `frequency` cycles per sample, the same on every
// channel, interleaved.
inline std::vector<float> Tone(int frames, int channels, double frequency, double amplitude) {
  std::vector<float> x(static_cast<size_t>(frames) * static_cast<size_t>(channels));
  for (int n = 0; n < frames; ++n)
    for (int c = 0; c < channels; ++c)
      x[static_cast<size_t>(n) * channels + c] =
          static_cast<float>(amplitude * std::sin(2.0 * 3.141592653589793 * frequency * n));
  return x;
}

}  // namespace ondrel_test
