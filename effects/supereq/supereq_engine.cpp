#include "effects/supereq/supereq_engine.h"

#include "framework/alloc.h"
#include "ondrel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace ONDREL2 {
namespace SUPEREQ {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kPi = 3.141592653589793;
// Stopband attenuation of the window in dB.
constexpr float kAttenuation = 96.0f;
// Cutoffs closer than this count as the same design.
constexpr float kCutoffTolerance = 1e-9f;
// Start frequency and octave count as changed beyond this.
constexpr float kSettingTolerance = 1e-5f;
constexpr int kFactorials = 16;

int BetaKey(float beta) { return static_cast<int>(beta * 10.0f + 0.5f); }

// Rounds a gain to tenths of a dB for the change test. A gain whose key
// would not fit an int (NaN, infinity, a script's 1e30) has none.
bool GainKey(float db, int* key) {
  const double tenths = static_cast<double>(db * 10.0f) + 0.5;
  if (!(tenths > -2147483648.0 && tenths < 2147483648.0)) return false;
  *key = static_cast<int>(tenths);
  return true;
}

// Whether a gain moved by the change test; gains without a key moved unless
// they are the same bits.
bool GainMoved(float was, float now) {
  int a = 0;
  int b = 0;
  const bool keyed = GainKey(was, &a);
  if (keyed != GainKey(now, &b)) return true;
  if (keyed) return a != b;
  return std::memcmp(&was, &now, sizeof was) != 0;
}

}  // namespace

// ---- IdealLowpass ----------------------------------------------------------

int IdealLowpass::Design(float newCutoff, int newLength) {
  if (!(newCutoff > 0.0f) || !std::isfinite(newCutoff)) return ONDREL_E_INVALID;
  if (newLength <= 0 || newLength % 2 == 0) return ONDREL_E_INVALID;
  if (std::fabs(newCutoff - cutoff) > kCutoffTolerance) {
    cutoff = newCutoff;
    dirty = 1;
  }
  if (newLength != length) {
    if (!TryAllocating([&] { taps.assign(static_cast<size_t>(newLength), 0.0f); })) {
      length = 0;
      return ONDREL_E_NOMEM;
    }
    length = newLength;
    dirty = 1;
  }
  if (dirty == 0) return ONDREL_OK;
  // The sinc is even about the centre tap, bit for bit (its sine is odd in
  // n), so each mirrored pair is computed once.
  const int m = (length - 1) / 2;
  taps[static_cast<size_t>(m)] = 2.0f * cutoff;
  for (int k = 1; k <= m; ++k) {
    const double n = static_cast<double>(k);
    const float tap =
        static_cast<float>(std::sin(n * kTwoPi * static_cast<double>(cutoff)) / (n * kPi));
    taps[static_cast<size_t>(m + k)] = tap;
    taps[static_cast<size_t>(m - k)] = tap;
  }
  dirty = 0;
  return ONDREL_OK;
}

// ---- KaiserWindow ----------------------------------------------------------

double KaiserWindow::BesselI0(double x) const {
  const double half = x / 2.0;
  double sum = 1.0;
  double power = 1.0;
  for (int j = 1; j < kFactorials; ++j) {
    power *= half;
    const double term = power / static_cast<double>(factorials[static_cast<size_t>(j)]);
    sum += term * term;
  }
  return sum;
}

int KaiserWindow::Design(int newLength, float attenuation) {
  float newBeta = 0.0f;
  if (attenuation <= 21.0f) {
    newBeta = 0.0f;
  } else if (attenuation <= 50.0f) {
    newBeta = 0.5842f * std::pow(attenuation - 21.0f, 0.4f) + 0.07886f * (attenuation - 21.0f);
  } else {
    newBeta = 0.1102f * (attenuation - 8.7f);
  }
  if (BetaKey(newBeta) != BetaKey(beta)) dirty = 1;
  beta = newBeta;
  if (!TryAllocating([&] {
        if (factorials.size() != kFactorials) {
          factorials.resize(kFactorials);
          factorials[0] = 1.0f;
          for (int j = 1; j < kFactorials; ++j)
            factorials[static_cast<size_t>(j)] =
                factorials[static_cast<size_t>(j - 1)] * static_cast<float>(j);
          dirty = 1;
        }
        if (newLength != length) {
          values.assign(static_cast<size_t>(std::max(newLength, 0)), 0.0f);
          length = newLength;
          dirty = 1;
        }
      })) {
    length = 0;
    factorials.clear();
    return ONDREL_E_NOMEM;
  }
  if (dirty == 0) return ONDREL_OK;
  const double b = static_cast<double>(beta);
  const double norm = BesselI0(b);
  const double span = static_cast<double>(length - 1) * static_cast<double>(length - 1);
  for (int i = 0; i < length; ++i) {
    if (length == 1) {
      values[0] = 1.0f;
      break;
    }
    const double m = static_cast<double>(i - length / 2);
    const double r = std::max(0.0, 1.0 - 4.0 * m * m / span);
    values[static_cast<size_t>(i)] = static_cast<float>(BesselI0(b * std::sqrt(r)) / norm);
  }
  dirty = 0;
  return ONDREL_OK;
}

// ---- SuperEqEngine ---------------------------------------------------------

void SuperEqEngine::SetFormat(int rate, int channelCount) {
  if (rate != sampleRate) rebuild = 1;
  sampleRate = rate;
  if (channelCount != channels) rebuild = 1;
  channels = channelCount;
}

void SuperEqEngine::SetBands(float start, float octaves) {
  if (start != startFrequency || octaves != octave) rebuild = 1;
  startFrequency = start;
  octave = octaves;
}

void SuperEqEngine::SetGains(const float* db, int count) {
  if (count != gainCount) {
    gainsDb.assign(static_cast<size_t>(count), 0.0f);
    gainsLinear.assign(static_cast<size_t>(count), 1.0f);
    gainCount = count;
    rebuild = 1;
    gainsChanged = 1;
  } else {
    for (int i = 0; i < count; ++i) {
      if (GainMoved(gainsDb[static_cast<size_t>(i)], db[i])) {
        rebuild = 1;
        gainsChanged = 1;
        break;
      }
    }
  }
  std::copy(db, db + count, gainsDb.begin());
}

void SuperEqEngine::SetWindowBits(int bits) {
  bits = std::min(std::max(bits, 2), 15);
  if (bits != windowBits) rebuild = 1;
  windowBits = bits;
  filterLength = (1 << (windowBits - 1)) - 1;
}

int SuperEqEngine::Rebuild() {
  const bool startChanged = std::fabs(startFrequency - built.startFrequency) > kSettingTolerance;
  const bool octaveChanged = std::fabs(octave - built.octave) > kSettingTolerance;
  const bool windowChanged = windowBits != built.windowBits;
  const bool rateChanged = sampleRate != built.sampleRate;
  const bool channelsChanged = channels != built.channels;
  // A new gain count needs new corners and low passes even when start and
  // octave stayed, or the composition would read past the gains.
  const bool bandsChanged = gainCount != bandCount;
  // Any early status ends the lambda; a failed container leaves it by the
  // allocation check.
  int status = ONDREL_OK;
  if (!TryAllocating([&] {
        if (gainsChanged != 0) {
          for (int i = 0; i < gainCount; ++i)
            gainsLinear[static_cast<size_t>(i)] = static_cast<float>(
                std::pow(10.0, static_cast<double>(gainsDb[static_cast<size_t>(i)]) / 20.0));
        }

        if (startChanged || octaveChanged || bandsChanged) {
          if (bandsChanged) {
            edges.assign(static_cast<size_t>(gainCount), 0.0f);
            lowpasses.clear();
            lowpasses.resize(static_cast<size_t>(std::max(gainCount - 1, 0)));
            bandCount = gainCount;
          }
          // The step is rounded to float first; each corner is a float product.
          const float step = static_cast<float>(std::pow(2.0, static_cast<double>(octave)));
          for (int i = 0; i < bandCount; ++i) {
            edges[static_cast<size_t>(i)] =
                i == 0 ? startFrequency : step * edges[static_cast<size_t>(i - 1)];
          }
        }

        if (windowChanged) {
          if (int rc = window.Design(filterLength, kAttenuation)) {
            status = rc;
            return;
          }
        }

        if (startChanged || octaveChanged || windowChanged || rateChanged || bandsChanged) {
          held.assign(lowpasses.size(), 0);
          for (int i = 0; i + 1 < bandCount; ++i) {
            const float cutoff = edges[static_cast<size_t>(i)] / static_cast<float>(sampleRate);
            IdealLowpass& lowpass = lowpasses[static_cast<size_t>(i)];
            // A ladder of many bands runs past the sample rate and on to
            // infinity; a corner at or beyond the rate is held at Nyquist, where
            // the low pass is the whole band and its band above adds nothing.
            // Such corners share the one Nyquist design; corners below the
            // rate keep their design exactly.
            if (cutoff >= 1.0f) {
              if (int rc = nyquist.Design(0.5f, filterLength)) {
                status = rc;
                return;
              }
              // The band's own low pass gives up its taps; should its corner
              // come back below the rate, it is designed afresh.
              std::vector<float>().swap(lowpass.taps);
              lowpass.length = 0;
              lowpass.cutoff = 0.5f;
              lowpass.dirty = 1;
              held[static_cast<size_t>(i)] = 1;
              continue;
            }
            if (int rc = lowpass.Design(cutoff, filterLength)) {
              status = rc;
              return;
            }
          }
        }

        // Compose: band 0 is the lowest low pass, each middle band the
        // difference of two neighbours, the top band what remains of the delta.
        // A held band after another held band has the same low pass as its
        // neighbour, so its term is (x - x) * gain: +0 for a finite gain,
        // which leaves the sum as it is (the sum starts at +0 and so is never
        // -0). Such bands are left out of the loop.
        std::vector<const float*> sources;
        std::vector<float> weights;
        for (int i = 0; i + 1 < bandCount; ++i) {
          const size_t b = static_cast<size_t>(i);
          const float gain = gainsLinear[b];
          if (held[b] != 0 && i > 0 && held[b - 1] != 0 && std::isfinite(gain)) continue;
          sources.push_back(held[b] != 0 ? nyquist.taps.data() : lowpasses[b].taps.data());
          weights.push_back(gain);
        }
        response.assign(static_cast<size_t>(filterLength), 0.0f);
        const int half = filterLength / 2;
        for (int k = 0; k < filterLength; ++k) {
          float sum = 0.0f;
          float last = 0.0f;
          for (size_t j = 0; j < sources.size(); ++j) {
            const float value = sources[j][k];
            sum += (value - last) * weights[j];
            last = value;
          }
          const float delta = k == half ? 1.0f : 0.0f;
          if (bandCount > 0)
            sum += (delta - last) * gainsLinear[static_cast<size_t>(bandCount - 1)];
          response[static_cast<size_t>(k)] = sum * window.values[static_cast<size_t>(k)];
        }

        const int pad = (1 << windowBits) - filterLength;
        if (channelsChanged) {
          convolvers.clear();
          for (int c = 0; c < channels; ++c) {
            convolvers.push_back(std::make_unique<OndrelFastConvolution>());
            if (int rc = convolvers.back()->Init(filterLength, pad)) {
              status = rc;
              return;
            }
          }
          convolverBlock = filterLength;
        } else if (convolverBlock != filterLength) {
          // A new window keeps the convolvers but must give them the new block
          // and transform size: they read exactly one block per call.
          for (auto& convolver : convolvers) {
            if (int rc = convolver->Init(filterLength, pad)) {
              status = rc;
              return;
            }
          }
          convolverBlock = filterLength;
        }

        for (auto& convolver : convolvers) {
          if (int rc = convolver->SetImpulseResponse(response.data(), filterLength)) {
            status = rc;
            return;
          }
        }
      }))
    status = ONDREL_E_NOMEM;
  if (status != ONDREL_OK) {
    // A failed rebuild may have taken on a new band count without designing
    // its low passes; a rate of 0 makes the next rebuild design them all.
    built.sampleRate = 0;
    return status;
  }

  gainsChanged = 0;
  built = {sampleRate, channels, startFrequency, octave, windowBits, filterLength};
  return ONDREL_OK;
}

int SuperEqEngine::Process(const std::vector<float*>& bufs, int32_t* frames) {
  const int32_t offered = *frames;
  // A block cut for another design is left as it is.
  if (offered != convolverBlock) return ONDREL_OK;
  const size_t count = std::min(bufs.size(), convolvers.size());
  int32_t valid = offered;
  for (size_t c = 0; c < count; ++c) {
    int n = offered;
    if (int rc = convolvers[c]->Process(bufs[c], &n)) return rc;
    valid = n;
  }
  *frames = valid;
  return ONDREL_OK;
}

int SuperEqEngine::GetLatency() const {
  return convolvers.empty() ? 0 : convolvers[0]->GetLatency();
}

}  // namespace SUPEREQ
}  // namespace ONDREL2
