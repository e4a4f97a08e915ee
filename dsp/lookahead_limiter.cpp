#include "dsp/lookahead_limiter.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

inline float Larger(float a, float b) { return a > b ? a : b; }
inline float Smaller(float a, float b) { return a < b ? a : b; }

}  // namespace

LookaheadLimiter::LookaheadLimiter(const LookaheadLimiterParams* params) {
  if (params != nullptr) saved = *params;
  Reset();
}

LookaheadLimiter::~LookaheadLimiter() { FreeArrays(); }

void LookaheadLimiter::FreeArrays() {
  std::free(buffer);
  std::free(nextDelta);
  std::free(nextPos);
  buffer = nullptr;
  nextDelta = nullptr;
  nextPos = nullptr;
}

void LookaheadLimiter::Reset() {
  const size_t n = bufferCapacity > 0 ? static_cast<size_t>(bufferCapacity) : 0;
  if (buffer != nullptr) std::memset(buffer, 0, n * sizeof(float));
  if (nextDelta != nullptr) std::memset(nextDelta, 0, n * sizeof(float));
  if (nextPos != nullptr) std::memset(nextPos, 0xFF, n * sizeof(int32_t));

  // Everything but the arrays, the ring length and the format starts over.
  levelIn = saved.levelIn;
  levelOut = saved.levelOut;
  limit = saved.limit;
  attack = saved.attack / 1000.0f;
  release = saved.release / 1000.0f;
  autoRelease = saved.autoRelease;
  autoLevel = saved.autoLevel;
  att = 1.0f;
  ascSum = 0.0f;
  ascCount = 0;
  ascPos = -1;
  pos = 0;
  delta = 0.0f;
  nextIter = 0;
  nextLen = 0;
  ascChanged = 0;
  const float base =
      static_cast<float>(std::pow(0.5, static_cast<double>(saved.autoReleaseLevel) - 0.5));
  ascCoeff = base * 2.0f * -1.0f;
}

int32_t LookaheadLimiter::SetFormat(int32_t rate, int32_t chns) {
  sampleRate = rate;
  channels = chns;
  if (chns < 1 || chns > kMaxChannels) {
    bufferSize = 0;
    return ONDREL_E_INVALID;
  }

  // 100 ms of audio plus one frame: the longest look-ahead of the parameter
  // range fits, with room for the one sample a mono group reads beyond its
  // last frame.
  const double neededD =
      static_cast<double>(rate) * static_cast<double>(chns) * 100.0 / 1000.0 + chns;
  if (!(neededD >= chns && neededD < 2147483647.0)) {
    bufferSize = 0;
    return ONDREL_E_INVALID;
  }
  const int32_t needed = static_cast<int32_t>(neededD);
  if (needed > bufferCapacity) {
    FreeArrays();
    bufferCapacity = 0;
    buffer = AllocBlock<float>(static_cast<size_t>(needed));
    nextDelta = AllocBlock<float>(static_cast<size_t>(needed));
    nextPos = AllocBlock<int32_t>(static_cast<size_t>(needed));
    if (buffer == nullptr || nextDelta == nullptr || nextPos == nullptr) {
      FreeArrays();
      bufferSize = 0;
      return ONDREL_E_NOMEM;
    }
    std::memset(buffer, 0, sizeof(float) * static_cast<size_t>(needed));
    std::memset(nextDelta, 0, sizeof(float) * static_cast<size_t>(needed));
    std::memset(nextPos, 0xFF, sizeof(int32_t) * static_cast<size_t>(needed));
    bufferCapacity = needed;
  }

  // The look-ahead in samples, rounded down to whole frames; `attack` is in
  // seconds here. A ring shorter than one frame, or one longer than the
  // allocation (an attack time beyond the parameter range), is refused.
  const float frameTime = static_cast<float>(rate) * attack;
  const float rawF = frameTime * static_cast<float>(chns);
  if (!(rawF >= static_cast<float>(chns) && rawF < static_cast<float>(bufferCapacity))) {
    bufferSize = 0;
    return ONDREL_E_INVALID;
  }
  const int32_t raw = static_cast<int32_t>(rawF);
  bufferSize = raw - raw % chns;
  return ONDREL_OK;
}

void LookaheadLimiter::ProcessPlanar(float* const* channelBuffers, int32_t frames,
                                     const int32_t* channelIndices) {
  // A refused format leaves no ring: nothing to run, and the channel
  // indexes of that format must not be read.
  if (bufferSize < channels || channels < 1 || buffer == nullptr) return;
  const float* src[kMaxChannels];
  float* dst[kMaxChannels];
  for (int32_t c = 0; c < channels && c < kMaxChannels; ++c) {
    dst[c] = channelBuffers[channelIndices[c]];
    src[c] = dst[c];
  }
  Run(src, dst, 1, frames);
}

void LookaheadLimiter::ProcessInterleaved(const float* source, float* destination) {
  if (bufferSize < channels || channels < 1 || buffer == nullptr) return;
  const float* src[kMaxChannels];
  float* dst[kMaxChannels];
  for (int32_t c = 0; c < channels && c < kMaxChannels; ++c) {
    src[c] = source + c;
    dst[c] = destination + c;
  }
  Run(src, dst, channels, kInterleavedBlock / channels);
}

void LookaheadLimiter::Run(const float* const* src, float* const* dst, int32_t stride,
                           int32_t frames) {
  if (bufferSize < channels || channels < 1 || buffer == nullptr) return;
  // The common counts get loops whose length the compiler knows.
  if (channels == 2)
    RunFor<2>(src, dst, stride, frames);
  else if (channels == 1)
    RunFor<1>(src, dst, stride, frames);
  else
    RunFor<0>(src, dst, stride, frames);
}

template <int32_t kChannels>
void LookaheadLimiter::RunFor(const float* const* src, float* const* dst, int32_t stride,
                              int32_t frames) {
  const int32_t chns = kChannels > 0 ? kChannels : channels;
  const int32_t size = bufferSize;
  const float fChannels = static_cast<float>(chns);
  const float fSize = static_cast<float>(size);
  const float fRate = static_cast<float>(sampleRate);
  const float level = autoLevel != 0 ? 1.0f / limit : 1.0f;

  // The loop works on local copies of the settings and the running state:
  // the ring and the outputs are floats too, so with the members the
  // compiler would have to reload every one of them after each store.
  const float levelIn = this->levelIn, levelOut = this->levelOut, limit = this->limit;
  const float release = this->release, ascCoeff = this->ascCoeff;
  const int32_t autoRelease = this->autoRelease, ascChanged = this->ascChanged;
  float* const buffer = this->buffer;
  int32_t* const nextPos = this->nextPos;
  float* const nextDelta = this->nextDelta;
  float att = this->att, delta = this->delta, ascSum = this->ascSum;
  int32_t ascCount = this->ascCount, ascPos = this->ascPos, pos = this->pos;
  int32_t nextIter = this->nextIter, nextLen = this->nextLen;

  // Whole frames from ring position `from` forward to `to` (both in the
  // ring): the integer divisions of the plain formula, without dividing
  // where the ring or the frame make it unnecessary.
  const auto FramesBetween = [size, chns](int32_t from, int32_t to) {
    int32_t d = to - from + size;
    if (d >= size) d -= size;
    return chns == 2 ? d >> 1 : chns == 1 ? d : d / chns;
  };

  for (int32_t n = 0; n < frames; ++n) {
    const int32_t at = n * stride;

    // 1. Into the ring, scaled by the input level; peak of the frame.
    float peak = 0.0f;
    for (int32_t c = 0; c < chns; ++c) {
      const float s = src[c][at] * levelIn;
      buffer[pos + c] = s;
      peak = Larger(peak, std::fabs(s));
    }

    // 2. Peaks above the ceiling inside the look-ahead, for auto-release.
    if (autoRelease != 0 && peak > limit) {
      ascSum += peak;
      ascCount += 1;
    }

    // 3. A new peak: ramp the gain so it arrives at limit / peak when this
    // frame leaves the ring.
    if (peak > limit) {
      const float ratio = limit / peak;
      const float patt = Smaller(ratio, 1.0f);
      const float rdelta = (1.0f - patt) / (fRate * release);
      const float newDelta = (ratio - att) / fSize * fChannels;
      if (delta > newDelta) {
        // Steepest so far: it replaces every pending change.
        delta = newDelta;
        nextPos[0] = pos;
        nextPos[1] = -1;
        nextDelta[0] = rdelta;
        nextLen = 1;
        nextIter = 0;
      } else {
        for (int32_t i = nextIter; i < nextIter + nextLen; ++i) {
          // nextIter < size and nextLen <= size: one subtraction wraps i.
          const int32_t j = i >= size ? i - size : i;
          const int32_t p = nextPos[j];
          // A mono ring can wrap its pending list onto itself; an entry
          // without a position ends the search instead of reading before
          // the ring.
          if (p < 0) break;
          // Exactly these two samples, whatever the channel count: a mono
          // group also looks at the sample of the following frame (at the
          // ring's end that is buffer[bufferSize], inside the allocation).
          const float ppeak = Larger(std::fabs(buffer[p]), std::fabs(buffer[p + 1]));
          const float pdelta = (ratio - limit / ppeak) / static_cast<float>(FramesBetween(p, pos));
          if (nextDelta[j] > pdelta) {
            // Re-aim the ramp after the pending change at j towards this
            // peak; the changes behind j are dropped.
            nextDelta[j] = pdelta;
            nextLen = i - nextIter + 1;
            const int32_t k = (nextIter + nextLen) % size;
            nextPos[k] = pos;
            nextDelta[k] = rdelta;
            nextPos[(nextIter + nextLen + 1) % size] = -1;
            nextLen += 1;
            break;
          }
        }
      }
    }

    // 4. The oldest frame of the ring leaves it.
    // pos < size and chns <= size: one subtraction wraps it.
    const int32_t out = pos + chns >= size ? pos + chns - size : pos + chns;
    peak = 0.0f;
    for (int32_t c = 0; c < chns; ++c) peak = Larger(peak, std::fabs(buffer[out + c]));

    // 5./6. ascPos stays -1 from the reset on, so every departing peak above
    // the ceiling leaves the auto-release sum.
    if (pos == ascPos && ascChanged == 0) ascPos = -1;
    if (autoRelease != 0 && ascPos == -1 && peak > limit) {
      ascSum -= peak;
      ascCount -= 1;
    }

    // 7. Apply the ramp.
    att += delta;
    float y[kMaxChannels];
    for (int32_t c = 0; c < chns; ++c) y[c] = buffer[out + c] * att;

    // 8. The frame of a pending change has arrived.
    if (out == nextPos[nextIter]) {
      if (autoRelease != 0) {
        const float base = fRate * release;
        float rdelta = (1.0f - att) / base;
        if (ascCount > 0) {
          // ascCoeff is negative, so aAtt is too and the test fails: the
          // release keeps the plain slope. Kept as it is on purpose.
          const float aAtt = limit / (ascSum * ascCoeff) * static_cast<float>(ascCount);
          if (aAtt > att) rdelta = Smaller(Larger((aAtt - att) / base, rdelta / 10.0f), rdelta);
        }
        delta = rdelta;
        if (nextLen > 1) {
          const int32_t q = nextPos[(nextIter + 1) % size];
          if (q >= 0) {
            const float ppeak = Larger(std::fabs(buffer[q]), std::fabs(buffer[q + 1]));
            const float pdelta = (limit / ppeak - att) / static_cast<float>(FramesBetween(out, q));
            if (rdelta > pdelta) delta = pdelta;
          }
        }
      } else {
        delta = nextDelta[nextIter];
        att = limit / peak;
      }
      nextLen -= 1;
      nextPos[nextIter] = -1;
      nextIter = (nextIter + 1) % size;
    }

    // 9.-12. Keep the gain and the slope in range.
    if (att > 1.0f) {
      att = 1.0f;
      delta = 0.0f;
      nextIter = 0;
      nextLen = 0;
      nextPos[0] = -1;
    }
    if (att <= 0.0f) {
      att = 0.000001f;
      delta = 0.999999f / (fRate * release);
    }
    if (att != 1.0f && 1.0f - att < 0.000001f) att = 1.0f;
    if (delta != 0.0f && std::fabs(delta) < 0.000001f) delta = 0.0f;

    // 13. Hard ceiling, then the output level.
    for (int32_t c = 0; c < chns; ++c) {
      float v = y[c];
      if (v < -limit) v = -limit;
      if (v > limit) v = limit;
      dst[c][at] = v * level * levelOut;
    }

    // 14.
    pos = out;
  }
  this->att = att;
  this->delta = delta;
  this->ascSum = ascSum;
  this->ascCount = ascCount;
  this->ascPos = ascPos;
  this->pos = pos;
  this->nextIter = nextIter;
  this->nextLen = nextLen;
}

}  // namespace ONDREL2
