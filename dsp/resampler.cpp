#include "dsp/resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "dsp/resampler_kaiser.h"
#include "dsp/resampler_ssrc.h"
#include "framework/alloc.h"

namespace ONDREL2 {

namespace {

// Largest prototype held, in coefficients: rate pairs with a huge reduced
// ratio (such as 44100 to 44101) still fit, absurd ones are refused.
constexpr long long kMaxPolyphaseCoefficients = 1LL << 26;

}  // namespace

// The prototype is a sinc with its corner at `cutoff` times the input
// Nyquist, evaluated over tap index n = -H..H at the upsampled rate. The tap
// positions go through a float pi (n * 3.1415927f, rounded to float) on
// purpose: the stored coefficients are defined by that rounding.
int PolyphaseFilter::Setup(int newChannels, int outRate, int inRate,
                           const PolyphaseOption* options) {
  channels = down = up = taps = 0;
  coefficients.clear();
  history.clear();
  historyFill = phase = 0;

  double gain = 1.0;
  double cutoff = 1.0;
  long long t = 45;
  double beta = 16.0;
  for (const PolyphaseOption* o = options; o && o->key != POLYPHASE_END; ++o) {
    switch (o->key) {
      case POLYPHASE_GAIN: gain = o->value; break;
      case POLYPHASE_CUTOFF: cutoff = o->value; break;
      case POLYPHASE_TAPS: t = static_cast<long long>(o->value); break;
      case POLYPHASE_BETA: beta = o->value; break;
      default: return -1;
    }
  }
  if (inRate < 1 || outRate < 1 || newChannels < 1 || t < 1) return -1;

  const long long g = ResamplerGcd(inRate, outRate);
  const long long L = outRate / g;
  const long long M = inRate / g;
  if (L < M) {
    cutoff = static_cast<double>(L) * cutoff / static_cast<double>(M);
    t = (M * t) / L;
  }
  const long long N = t * L;
  // The last output step may overshoot the input by up to ceil(M/L)
  // samples; the history must be able to absorb that.
  if (t * L < M || N > kMaxPolyphaseCoefficients || t * newChannels > kMaxPolyphaseCoefficients)
    return -1;

  std::vector<float> coef;
  std::vector<float> hist;
  if (!TryAllocating([&] {
        coef.assign(static_cast<size_t>(N), 0.0f);
        hist.assign(static_cast<size_t>(t * newChannels), 0.0f);
      })) {
    return -1;
  }

  // With an even count the first coefficient stays 0 so that the
  // remaining odd number of taps is symmetric about its centre. Tap n and
  // tap -n hold the same value bit for bit (the float pi product, the sine
  // and the window are all odd or even in n), so each pair is computed once.
  const long long start = (N % 2 == 0) ? 1 : 0;
  const long long counted = N - start;
  const long long H = counted / 2;
  const double i0Beta = ResamplerBesselI0(beta);
  const double edge = static_cast<double>(H + 1) * static_cast<double>(H + 1);
  const double Ld = static_cast<double>(L);
  const auto place = [&](long long i, float stored) {
    coef[static_cast<size_t>((i % L) * t + i / L)] = stored;
  };
  for (long long n = 0; n <= H; ++n) {
    double value;
    if (n == 0) {
      value = cutoff;
    } else {
      const double x = static_cast<double>(static_cast<float>(n) * 3.1415927f);
      value = Ld * std::sin(x * cutoff / Ld) / x;
    }
    float stored = static_cast<float>(value * gain);
    const double nd = static_cast<double>(n);
    const double window = ResamplerBesselI0(beta * std::sqrt(1.0 - nd * nd / edge)) / i0Beta;
    stored *= static_cast<float>(window);
    place(start + H + n, stored);
    if (n != 0) place(start + H - n, stored);
  }

  channels = newChannels;
  down = static_cast<int>(M);
  up = static_cast<int>(L);
  taps = static_cast<int>(t);
  coefficients.swap(coef);
  history.swap(hist);
  historyFill = taps / 2 + 1;
  phase = 0;
  return 0;
}

int PolyphaseFilter::RunChannel(int channel, const float* input, int frames, float* output,
                                int maxOutFrames, int& fill, int& ph) {
  const int T = taps;
  const int stride = channels;
  float* hist = history.data() + static_cast<size_t>(channel) * T;

  // Top the history up to T samples from the input.
  const int first = T - fill;
  if (frames < first) return -1;
  for (int i = 0; i < first; ++i) hist[fill + i] = input[static_cast<size_t>(i) * stride];

  // Output at input position pos and phase p: row p against the samples
  // at pos, pos - 1, ..., back through the input to `first`, then on from
  // the end of the history.
  int pos = first;
  int p = ph;
  int computed = 0;
  while (pos < frames) {
    if (computed < maxOutFrames) {
      const float* row = coefficients.data() + static_cast<size_t>(p) * T;
      const int back = pos - first;
      const int fromInput = std::min(back, T - 1);
      float acc = 0.0f;
      int t = 0;
      for (; t <= fromInput; ++t) acc += row[t] * input[static_cast<size_t>(pos - t) * stride];
      for (; t < T; ++t) acc += row[t] * hist[T - t + back];
      output[static_cast<size_t>(computed) * stride] = acc;
    }
    ++computed;
    p += down;
    while (p >= up) {
      p -= up;
      ++pos;
    }
  }

  // Keep the last T - k samples, where k is how far the last step
  // overshot the input; the next call tops up those k first.
  ph = p;
  const int k = pos - frames;
  const int n = pos - first;
  int kept = 0;
  if (n < T) {
    kept = T - n;
    std::memmove(hist, hist + n, sizeof(float) * static_cast<size_t>(kept));
  }
  for (int i = pos - std::min(n, T); i < frames; ++i)
    hist[kept++] = input[static_cast<size_t>(i) * stride];
  fill = T - k;
  return computed;
}

int PolyphaseFilter::Run(const float* input, int frames, float* output, int maxOutFrames) {
  if (!Ready() || !input || frames <= 0) return 0;
  if (!output) maxOutFrames = 0;
  maxOutFrames = std::max(maxOutFrames, 0);
  int fill = historyFill;
  int ph = phase;
  int computed = 0;
  for (int c = 0; c < channels; ++c) {
    fill = historyFill;
    ph = phase;
    computed =
        RunChannel(c, input + c, frames, output ? output + c : nullptr, maxOutFrames, fill, ph);
    if (computed < 0) return 0;  // every channel fails alike; state unchanged
  }
  historyFill = fill;
  phase = ph;
  return std::min(computed, maxOutFrames);
}

bool CResampler_SRC::Init(int32_t inRate, int32_t outRate, int32_t channels, bool) {
  if (inRate <= 0 || outRate <= 0 || channels <= 0) {
    filter.Setup(0, 0, 0, nullptr);  // leaves it empty
    return false;
  }
  const double ratio = static_cast<double>(inRate) / static_cast<double>(outRate);
  int taps = 45;
  if (ratio >= 0.5 && ratio <= 2.0)
    taps = 35;
  else if (ratio >= 0.25 && ratio <= 4.0)
    taps = 40;
  const PolyphaseOption options[] = {{POLYPHASE_TAPS, static_cast<double>(taps)},
                                     {POLYPHASE_END, 0.0}};
  if (filter.Setup(channels, outRate, inRate, options) != 0) return false;
  channelCount = channels;
  return true;
}

int32_t CResampler_SRC::Process(const float* input, int32_t inputCount, float* output,
                                int32_t outputCapacity) {
  if (!input || inputCount <= 0 || !filter.Ready()) return 0;
  const int frames = inputCount / channelCount;
  const int maxOut = output ? std::max(outputCapacity, 0) / channelCount : 0;
  return filter.Run(input, frames, output, maxOut) * channelCount;
}

CResampler_SSRC::CResampler_SSRC() = default;
CResampler_SSRC::~CResampler_SSRC() = default;

bool CResampler_SSRC::Init(int32_t inRate, int32_t outRate, int32_t channels, bool fast) {
  converter.reset();
  if (inRate <= 0 || outRate <= 0 || channels <= 0) return false;
  converter.reset(CreateSsrcResampler(inRate, outRate, channels, fast));
  return converter != nullptr;
}

int32_t CResampler_SSRC::Process(const float* input, int32_t inputCount, float* output,
                                 int32_t outputCapacity) {
  if (!converter) return 0;
  if (input && inputCount > 0) converter->Write(input, inputCount);
  const int capacity = output ? std::max(outputCapacity, 0) : 0;
  const int n = std::min(converter->GetDataInBuffer(), capacity);
  if (n > 0) {
    std::memcpy(output, converter->GetBuffer(n), sizeof(float) * static_cast<size_t>(n));
    converter->Read(n);
  }
  return n;
}

void CResampler_SSRC::Finish() {
  if (!converter) return;
  converter->Finish();
  converter->Flush();
}

}  // namespace ONDREL2
