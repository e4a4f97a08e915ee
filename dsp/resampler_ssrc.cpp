#include "dsp/resampler_ssrc.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>

#include "dsp/resampler_kaiser.h"
#include "framework/alloc.h"

namespace ONDREL2 {

namespace {

// Limits on the designs: table sizes and filter lengths beyond these are
// refused rather than allocated.
constexpr int64_t kMaxTableEntries = 1LL << 26;
constexpr int64_t kMaxLongFilter = 1LL << 24;

// Kaiser design from the stop-band attenuation A in dB: `d` relates the
// filter length to its transition width, `alpha` is the window parameter.
double KaiserD(double A) { return A <= 21.0 ? 0.9222 : (A - 7.95) / 14.36; }

double KaiserAlpha(double A) {
  if (A <= 21.0) return 0.0;
  if (A <= 50.0) return 0.5842 * std::pow(A - 21.0, 0.4) + 0.07886 * (A - 21.0);
  return 0.1102 * (A - 8.7);
}

double Window(double n, double len, double alpha) {
  const double r = 1.0 - 4.0 * n * n / ((len - 1.0) * (len - 1.0));
  return ResamplerBesselI0(alpha * std::sqrt(std::max(r, 0.0))) / ResamplerBesselI0(alpha);
}

// Ideal low pass with corner f at rate fs. The constant is 2 pi rounded
// through a float on purpose; the tap values are defined with it.
double Lowpass(double n, double f, double fs) {
  const double x = n * 6.2831854820251465 * f / fs;
  const double sinc = (x == 0.0) ? 1.0 : std::sin(x) / x;
  return 2.0 * f / fs * sinc;
}

// Length of the long filter at rate fs: fftLength, 2 fftLength, 4 fftLength
// and so on, made odd, until the transition width falls below `transition`.
// Returns 0 when no length within the limit does.
int64_t LongFilterLength(double fs, double d, int fftLength, double transition, double& df) {
  for (int64_t i = 1;; i *= 2) {
    int64_t len = static_cast<int64_t>(fftLength) * i;
    if (len % 2 == 0) --len;
    if (len > kMaxLongFilter) return 0;
    df = fs * d / static_cast<double>(len - 1);
    if (df < transition) return len;
  }
}

int OsfOf(int64_t r) {
  if (r == 1) return 1;
  return (r % 2 == 0) ? 2 : 3;
}

template <int N>
float FixedSum(const float* row, const float* x) {
  float acc = 0.0f;
  for (int c = 0; c < N; ++c) acc += row[c] * x[c];
  return acc;
}

}  // namespace

// ---------------------------------------------------------------------------

bool ResamplerGrowingBuffer::Reserve(int64_t needed) {
  if (needed <= capacity) return true;
  int64_t next = capacity > 0 ? capacity : 1;
  while (next < needed) next *= 2;
  if (next > INT_MAX) return false;
  float* grown = NewArray<float>(static_cast<size_t>(next));
  if (!grown) return false;
  if (used > 0) std::memcpy(grown, data.get(), sizeof(float) * static_cast<size_t>(used));
  data.reset(grown);
  capacity = next;
  return true;
}

void ResamplerGrowingBuffer::Drop(int64_t count) {
  count = std::min(std::max<int64_t>(count, 0), used);
  if (count == 0) return;
  used -= count;
  if (used > 0)
    std::memmove(data.get(), data.get() + count, sizeof(float) * static_cast<size_t>(used));
}

// ---------------------------------------------------------------------------

Resampler_base::Resampler_base(int channelCount, int inputRate, int outputRate, bool fast)
    : channels(channelCount),
      inRate(inputRate),
      outRate(outputRate),
      attenuation(fast ? 96.0 : 120.0),
      transition(fast ? 8000.0 : 100.0),
      fftLength(fast ? 1024 : 16384) {}

bool Resampler_base::Write(const float* samples, int count) {
  if (!samples || count <= 0) return true;
  if (!input.Reserve(input.used + count)) return false;
  std::memcpy(input.data.get() + input.used, samples, sizeof(float) * static_cast<size_t>(count));
  input.used += count;
  samplesWritten += count;
  for (;;) {
    const int consumed = Run(input.data.get(), static_cast<int>(input.used), false);
    if (consumed <= 0) break;
    input.Drop(consumed);
  }
  return true;
}

void Resampler_base::Finish() {
  for (;;) {
    const int consumed = Run(input.data.get(), static_cast<int>(input.used), true);
    if (consumed <= 0) break;
    input.Drop(consumed);
  }
}

int Resampler_base::GetDataInBuffer() const { return static_cast<int>(output.used); }

const float* Resampler_base::GetBuffer(int) const { return output.data.get(); }

void Resampler_base::Read(int count) { output.Drop(count); }

void Resampler_base::Flush() { output.used = 0; }

double Resampler_base::GetLatency() const {
  return static_cast<double>(output.used) / (static_cast<double>(outRate) * channels) +
         static_cast<double>(input.used) / (static_cast<double>(inRate) * channels);
}

bool Resampler_base::ReserveOutputFrames(int64_t frames) {
  return output.Reserve(output.used + frames * channels);
}

int64_t Resampler_base::FinalFrameLimit() const {
  const int64_t frames = samplesWritten / channels;
  return frames * outRate / inRate + 2;
}

// ---------------------------------------------------------------------------

bool SsrcPolyphaseStage::Build(int64_t fsHigh, int64_t rowCount, int64_t step, int64_t cycle,
                               int64_t taps, double corner, double alpha) {
  const int64_t colCount = taps / rowCount + 1;
  if (rowCount < 1 || step < 1 || cycle < 1 || taps < 1 || rowCount * colCount > kMaxTableEntries ||
      cycle > kMaxTableEntries)
    return false;
  if (!TryAllocating([&] {
        table.assign(static_cast<size_t>(rowCount * colCount), 0.0f);
        order.assign(static_cast<size_t>(cycle), 0);
        advance.assign(static_cast<size_t>(cycle), 0);
      })) {
    return false;
  }
  length = static_cast<int>(taps);
  rows = static_cast<int>(rowCount);
  cols = static_cast<int>(colCount);
  next = 0;

  const double fs = static_cast<double>(fsHigh);
  const double gain = static_cast<double>(rowCount);
  const int64_t halfLen = taps / 2;
  for (int64_t i = -halfLen; i <= halfLen; ++i) {
    const int64_t k = i + halfLen;
    const double n = static_cast<double>(i);
    const double v = Window(n, static_cast<double>(taps), alpha) * Lowpass(n, corner, fs) * gain;
    table[static_cast<size_t>((k % rowCount) * colCount + k / rowCount)] = static_cast<float>(v);
  }
  // Output j sits at fsHigh index j * step; the symmetric prototype is
  // read forward from the first input frame at or after it, so the row is
  // (-j * step) mod rows and the read position moves on by the number of
  // input frames passed before output j + 1.
  for (int64_t j = 0; j < cycle; ++j) {
    int64_t o = rowCount - (step * j) % rowCount;
    if (o == rowCount) o = 0;
    order[static_cast<size_t>(j)] = static_cast<int>(o);
    const int64_t here = (step * j + rowCount - 1) / rowCount;
    const int64_t there = (step * (j + 1) + rowCount - 1) / rowCount;
    advance[static_cast<size_t>(j)] = static_cast<int>(there - here);
  }
  return true;
}

float SsrcPolyphaseStage::Sum(int row, const float* x) const {
  const float* r = table.data() + static_cast<size_t>(row) * cols;
  switch (cols) {
    case 7: return FixedSum<7>(r, x);
    case 9: return FixedSum<9>(r, x);
    default: break;
  }
  float acc = 0.0f;
  for (int c = 0; c < cols; ++c) acc += r[c] * x[c];
  return acc;
}

// ---------------------------------------------------------------------------

bool SsrcLongFilter::Build(int channelCount, int taps, double corner, double fs, double gain,
                           double alpha) {
  int64_t pow2 = 1;
  while (pow2 < taps) pow2 *= 2;
  const int64_t n = 2 * pow2;
  if (n > kMaxLongFilter * 4) return false;
  length = taps;
  nb = static_cast<int>(n);
  if (!fft.Init(nb)) return false;
  if (!TryAllocating([&] {
        spectrum.assign(static_cast<size_t>(nb), 0.0f);
        overlap.assign(static_cast<size_t>(nb / 2) * channelCount, 0.0f);
        work.assign(static_cast<size_t>(nb), 0.0f);
      })) {
    return false;
  }
  const int halfLen = taps / 2;
  const double scale = 2.0 / nb;
  for (int i = -halfLen; i <= halfLen; ++i) {
    const double x = static_cast<double>(i);
    const double v = Window(x, taps, alpha) * Lowpass(x, corner, fs) * gain;
    spectrum[static_cast<size_t>(i + halfLen)] = static_cast<float>(v * scale);
  }
  fft.Forward(spectrum.data());
  return true;
}

void SsrcLongFilter::Apply(int channel, const float* blockIn, float* out) {
  const int half = nb / 2;
  float* w = work.data();
  std::memcpy(w, blockIn, sizeof(float) * half);
  std::memset(w + half, 0, sizeof(float) * half);
  fft.Forward(w);
  const float* h = spectrum.data();
  w[0] *= h[0];
  w[1] *= h[1];
  for (int k = 2; k < nb; k += 2) {
    const float re = w[k] * h[k] - w[k + 1] * h[k + 1];
    const float im = w[k] * h[k + 1] + w[k + 1] * h[k];
    w[k] = re;
    w[k + 1] = im;
  }
  fft.Inverse(w);
  float* ov = overlap.data() + static_cast<size_t>(channel) * half;
  for (int i = 0; i < half; ++i) {
    out[i] = w[i] + ov[i];
    ov[i] = w[half + i];
  }
}

// ---------------------------------------------------------------------------

Upsampler::Upsampler(int inputRate, int outputRate, int channelCount, bool fast)
    : Resampler_base(channelCount, inputRate, outputRate, fast) {
  const int64_t g = ResamplerGcd(inRate, outRate);
  fs1 = inRate / g * outRate;
  osf = OsfOf(fs1 / outRate);
  fs2 = static_cast<int64_t>(outRate) * osf;
  const double d = KaiserD(attenuation);
  const double alpha = KaiserAlpha(attenuation);

  // Stage one: pass up to inRate/2, stop from fs2/2, at the rate fs1.
  const int64_t half = fs2 / 2 - inRate / 2;
  const double df = static_cast<double>(half);
  const double f = static_cast<double>(half) * 0.5 + inRate / 2;
  int64_t firstLength = static_cast<int64_t>(static_cast<double>(fs1) / df * d + 1.0);
  if (firstLength % 2 == 0) ++firstLength;
  const int64_t rows = fs1 / inRate;
  if (!stageOne.Build(fs1, rows, fs1 / fs2, osf * rows, firstLength, f, alpha)) return;

  // Stage two: the long low pass at fs2 with its corner at inRate/2.
  double df2 = 0.0;
  const int64_t len = LongFilterLength(static_cast<double>(fs2), d, fftLength, transition, df2);
  if (len == 0) return;
  if (!stageTwo.Build(channels, static_cast<int>(len), inRate / 2, static_cast<double>(fs2), 1.0,
                      alpha))
    return;

  const int halfBlock = stageTwo.nb / 2;
  const int64_t need = static_cast<int64_t>(halfBlock) * inRate / fs2 + stageOne.cols + 1;
  if (need > INT_MAX / 4 / channels) return;
  needFrames = static_cast<int>(need);
  // Zero frames ahead of the input centre the stage one prototype on the
  // first input frame, to the nearest frame.
  primeFrames = static_cast<int>((firstLength - 1) / 2.0 / static_cast<double>(rows) + 0.5);
  dropFrames = static_cast<int64_t>((len * 0.5) / static_cast<double>(fs2 / outRate));
  if (!TryAllocating([&] {
        stageIn.assign(static_cast<size_t>(needFrames) * channels, 0.0f);
        stageOut.assign(static_cast<size_t>(halfBlock) * channels, 0.0f);
        block.assign(static_cast<size_t>(halfBlock), 0.0f);
      })) {
    return;
  }
  ready = true;
}

int Upsampler::Run(const float* samples, int count, bool final) {
  if (!ready || finished) return 0;
  const int C = channels;
  const int frames = count / C;
  const int halfBlock = stageTwo.nb / 2;
  const int64_t limit = final ? FinalFrameLimit() : INT64_MAX;
  int consumed = 0;
  for (;;) {
    const int real = frames - consumed;
    if (!final && primeFrames + real < needFrames) break;
    if (final && emitted >= limit) {
      finished = true;
      break;
    }
    if (!ReserveOutputFrames(halfBlock / osf + 1)) break;

    // Planar view of the frames this block may read: pending zero
    // frames, then input, then zeros past the end of a final input.
    const int zeros = std::min(primeFrames, needFrames);
    const int fromInput = std::min(real, needFrames - zeros);
    for (int c = 0; c < C; ++c) {
      float* in = stageIn.data() + static_cast<size_t>(c) * needFrames;
      std::fill(in, in + zeros, 0.0f);
      const float* src = samples + static_cast<size_t>(consumed) * C + c;
      for (int i = 0; i < fromInput; ++i) in[zeros + i] = src[static_cast<size_t>(i) * C];
      std::fill(in + zeros + fromInput, in + needFrames, 0.0f);
    }

    int startNext = stageOne.next;
    int readPos = 0;
    for (int c = 0; c < C; ++c) {
      const float* in = stageIn.data() + static_cast<size_t>(c) * needFrames;
      int j = startNext;
      readPos = 0;
      for (int s = 0; s < halfBlock; ++s) {
        block[s] = stageOne.Sum(stageOne.order[j], in + readPos);
        readPos += stageOne.advance[j];
        if (++j == static_cast<int>(stageOne.order.size())) j = 0;
      }
      if (c == C - 1) stageOne.next = j;
      stageTwo.Apply(c, block.data(), stageOut.data() + static_cast<size_t>(c) * halfBlock);
    }
    const int fromZeros = std::min(primeFrames, readPos);
    primeFrames -= fromZeros;
    consumed += std::min(readPos - fromZeros, real);

    // Every osf-th sample at fs2 is an output frame.
    int first = static_cast<int>((osf - fs2Index % osf) % osf);
    for (int i = first; i < halfBlock; i += osf) {
      const int64_t m = (fs2Index + i) / osf;
      if (m < dropFrames) continue;
      if (emitted >= limit) break;
      float* dst = output.data.get() + output.used;
      for (int c = 0; c < C; ++c) dst[c] = stageOut[static_cast<size_t>(c) * halfBlock + i];
      output.used += C;
      ++emitted;
    }
    fs2Index += halfBlock;
  }
  return consumed * C;
}

// ---------------------------------------------------------------------------

Downsampler::Downsampler(int inputRate, int outputRate, int channelCount, bool fast)
    : Resampler_base(channelCount, inputRate, outputRate, fast) {
  const int64_t g = ResamplerGcd(inRate, outRate);
  osf = OsfOf(outRate / g);
  fs1 = static_cast<int64_t>(inRate) * osf;
  fs2 = inRate / g * outRate;
  const double d = KaiserD(attenuation);
  const double alpha = KaiserAlpha(attenuation);

  // Stage one: the long low pass at fs1, stop band from outRate/2.
  double df = 0.0;
  const int64_t len = LongFilterLength(static_cast<double>(fs1), d, fftLength, transition, df);
  if (len == 0) return;
  const double f = (outRate - df) / 2.0;
  if (!stageOne.Build(channels, static_cast<int>(len), f, static_cast<double>(fs1),
                      static_cast<double>(fs1) / inRate, alpha))
    return;

  // Stage two: from fs1 to outRate through the common multiple fs2.
  int64_t secondLength = 1;
  int primeFrames = 0;
  if (osf != 1) {
    const int64_t half = fs1 / 2 - inRate / 2;
    const double df2 = static_cast<double>(half);
    const double f2 = static_cast<double>(half) * 0.5 + inRate / 2;
    secondLength = static_cast<int64_t>(static_cast<double>(fs2) / df2 * d + 1.0);
    if (secondLength % 2 == 0) ++secondLength;
    const int64_t rows = fs2 / fs1;
    if (!stageTwo.Build(fs2, rows, fs2 / outRate, osf * rows, secondLength, f2, alpha)) return;
    // Zeros ahead of the filtered signal make the stage causal, with the
    // delay of half its prototype that the dropped frames account for.
    primeFrames = static_cast<int>((secondLength - 1) / static_cast<double>(rows) + 0.5);
  } else {
    // Plain decimation: one row holding the single tap 1.
    stageTwo.length = 1;
    stageTwo.rows = 1;
    stageTwo.cols = 1;
    stageTwo.table.assign(1, 1.0f);
    stageTwo.order.assign(1, 0);
    stageTwo.advance.assign(1, static_cast<int>(inRate / outRate));
    stageTwo.next = 0;
  }
  dropFrames = static_cast<int64_t>(
      static_cast<double>(secondLength) * 0.5 / (static_cast<double>(fs2) / outRate) +
      static_cast<double>(len) * 0.5 / (static_cast<double>(fs1) / outRate));

  const int halfBlock = stageOne.nb / 2;
  const int64_t maxAdvance = *std::max_element(stageTwo.advance.begin(), stageTwo.advance.end());
  const int64_t capacity = primeFrames + halfBlock + stageTwo.cols + maxAdvance;
  if (capacity > INT_MAX / 4 / channels) return;
  middleCapacity = static_cast<int>(capacity);
  middleUsed = primeFrames;
  if (!TryAllocating([&] {
        block.assign(static_cast<size_t>(halfBlock), 0.0f);
        middle.assign(static_cast<size_t>(middleCapacity) * channels, 0.0f);
        frame.assign(static_cast<size_t>(channels), 0.0f);
      })) {
    return;
  }
  ready = true;
}

int Downsampler::Run(const float* samples, int count, bool final) {
  if (!ready || finished) return 0;
  const int C = channels;
  const int frames = count / C;
  const int halfBlock = stageOne.nb / 2;
  const int64_t limit = final ? FinalFrameLimit() : INT64_MAX;
  int consumed = 0;
  for (;;) {
    // Input frames land on the fs1 indices that are multiples of osf.
    const int offset = (osf - stuffPhase) % osf;
    const int blockFrames = (halfBlock - offset + osf - 1) / osf;
    const int real = frames - consumed;
    if (!final && real < blockFrames) break;
    if (final && emitted >= limit) {
      finished = true;
      break;
    }
    if (!ReserveOutputFrames(middleCapacity + 2)) break;

    for (int c = 0; c < C; ++c) {
      std::fill(block.begin(), block.end(), 0.0f);
      const float* src = samples + static_cast<size_t>(consumed) * C + c;
      const int n = std::min(blockFrames, real);
      for (int r = 0; r < n; ++r) block[offset + r * osf] = src[static_cast<size_t>(r) * C];
      float* mid = middle.data() + static_cast<size_t>(c) * middleCapacity;
      stageOne.Apply(c, block.data(), mid + middleUsed);
    }
    middleUsed += halfBlock;
    stuffPhase = static_cast<int>((stuffPhase + halfBlock) % osf);
    consumed += std::min(blockFrames, real);

    while (readPos + stageTwo.cols <= middleUsed) {
      const int row = stageTwo.order[stageTwo.next];
      if (produced >= dropFrames && emitted < limit) {
        float* dst = output.data.get() + output.used;
        for (int c = 0; c < C; ++c) {
          const float* mid = middle.data() + static_cast<size_t>(c) * middleCapacity;
          dst[c] = stageTwo.Sum(row, mid + readPos);
        }
        output.used += C;
        ++emitted;
      }
      ++produced;
      readPos += stageTwo.advance[stageTwo.next];
      if (++stageTwo.next == static_cast<int>(stageTwo.order.size())) stageTwo.next = 0;
    }
    const int shift = static_cast<int>(std::min<int64_t>(readPos, middleUsed));
    if (shift > 0) {
      for (int c = 0; c < C; ++c) {
        float* mid = middle.data() + static_cast<size_t>(c) * middleCapacity;
        std::memmove(mid, mid + shift, sizeof(float) * static_cast<size_t>(middleUsed - shift));
      }
      middleUsed -= shift;
      readPos -= shift;
    }
  }
  return consumed * C;
}

// ---------------------------------------------------------------------------

ssrc_resampler* CreateSsrcResampler(int inRate, int outRate, int channels, bool fast) {
  if (inRate <= 0 || outRate <= 0 || channels <= 0) return nullptr;
  const int64_t g = ResamplerGcd(inRate, outRate);
  const int64_t r = (outRate <= inRate) ? outRate / g : inRate / g;
  if (!(inRate == outRate || r == 1 || r % 2 == 0 || r % 3 == 0)) return nullptr;
  ssrc_resampler* made = nullptr;
  if (!TryAllocating([&] {
        if (inRate < outRate) {
          std::unique_ptr<Upsampler> up(new Upsampler(inRate, outRate, channels, fast));
          if (up->Ready()) made = up.release();
        } else if (inRate > outRate) {
          std::unique_ptr<Downsampler> down(new Downsampler(inRate, outRate, channels, fast));
          if (down->Ready()) made = down.release();
        }
      }))
    return nullptr;
  return made;
}

}  // namespace ONDREL2
