#include "frame/sample_fifo.h"

#include "framework/alloc.h"
#include "ondrel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace ONDREL2 {
namespace {

float* AllocZeroed(int frames) { return AllocBlock<float>(static_cast<size_t>(frames)); }

// Float to int16 as the host sees it: scale by 32767 in float, round half
// away from zero in double, keep the low 16 bits (wraps above full scale).
inline int16_t ToInt16(float value) {
  float x = value * 32767.0f;
  double d = static_cast<double>(x);
  d = x > 0 ? d + 0.5 : d - 0.5;
  // Out of the 32-bit range (and NaN) the hardware conversion yields
  // INT32_MIN; do the same without undefined behaviour.
  int32_t i = (d < 2147483648.0 && d >= -2147483648.0) ? static_cast<int32_t>(d) : INT32_MIN;
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(i)));
}

}  // namespace

SampleFifo::~SampleFifo() { FreeBuffers(); }

void SampleFifo::FreeBuffers() {
  for (float*& b : buffers) {
    std::free(b);
    b = nullptr;
  }
}

int SampleFifo::SetChannelCount(int n) {
  if (n > kMaxChannels) return ONDREL_E_INVALID;
  if (n == channels) return ONDREL_OK;
  FreeBuffers();
  if (capacity == 0) capacity = 1024;
  for (int c = 0; c < n; ++c) {
    buffers[c] = AllocZeroed(capacity);
    if (buffers[c] == nullptr) return ONDREL_E_NOMEM;
  }
  channels = n < 0 ? 0 : n;
  return ONDREL_OK;
}

int SampleFifo::Count() const {
  int stored = writePos - readPos;
  if (writePos < readPos) stored += capacity;
  return stored;
}

void SampleFifo::Clear() {
  readPos = 0;
  writePos = 0;
}

int SampleFifo::EnsureCapacity(int need) {
  if (need + 1 <= capacity) return ONDREL_OK;
  const int newCapacity = ((need + 1) & ~0x3ff) + 1024;
  const int stored = Count();
  for (int c = 0; c < channels; ++c) {
    float* fresh = AllocZeroed(newCapacity);
    if (fresh == nullptr) return ONDREL_E_NOMEM;
    float* old = buffers[c];
    if (old != nullptr && stored > 0) {
      if (readPos + stored <= capacity) {
        std::memcpy(fresh, old + readPos, sizeof(float) * static_cast<size_t>(stored));
      } else {
        const int head = capacity - readPos;
        std::memcpy(fresh, old + readPos, sizeof(float) * static_cast<size_t>(head));
        std::memcpy(fresh + head, old, sizeof(float) * static_cast<size_t>(stored - head));
      }
    }
    std::free(old);
    buffers[c] = fresh;
  }
  for (int c = std::max(channels, 0); c < kMaxChannels; ++c) {
    std::free(buffers[c]);
    buffers[c] = nullptr;
  }
  writePos = stored;
  readPos = 0;
  capacity = newCapacity;
  return ONDREL_OK;
}

void SampleFifo::AdvanceWrite(int frames) {
  writePos += frames;
  if (writePos >= capacity) writePos -= capacity;
}

void SampleFifo::AdvanceRead(int frames) {
  readPos += frames;
  if (readPos >= capacity) readPos -= capacity;
}

int SampleFifo::PutInterleaved16(const int16_t* buffer, int samples) {
  if (channels <= 0 || samples % channels != 0) return ONDREL_E_INVALID;
  const int frames = samples / channels;
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  const float scale = 3.0517578e-05f;  // 2^-15
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) buffers[c][writePos] = static_cast<float>(*buffer++) * scale;
    if (++writePos == capacity) writePos = 0;
  }
  return ONDREL_OK;
}

int SampleFifo::PutInterleavedFloat(const float* buffer, int samples) {
  if (channels <= 0 || samples % channels != 0) return ONDREL_E_INVALID;
  const int frames = samples / channels;
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) {
      // A sample that is not finite (a bad decoded frame) enters as
      // silence: one such frame would otherwise leave every recursive
      // filter of the chain producing NaN until it is rebuilt.
      const float v = *buffer++;
      buffers[c][writePos] = std::isfinite(v) ? v : 0.0f;
    }
    if (++writePos == capacity) writePos = 0;
  }
  return ONDREL_OK;
}

int SampleFifo::PutPlanar(const ChannelVector& vec, int frames, int first) {
  if (static_cast<int>(vec.size()) < channels) return ONDREL_E_INVALID;
  if (frames <= 0) return ONDREL_OK;
  if (int rc = EnsureCapacity(Count() + frames)) return rc;
  for (int c = 0; c < channels; ++c) {
    float* dst = buffers[c];
    // A source channel beyond the vector (an offset `first` too large for
    // it) is stored as silence, so the channels stay frame-aligned.
    if (first + c < 0 || first + c >= static_cast<int>(vec.size())) {
      for (int i = 0, pos = writePos; i < frames; ++i) {
        dst[pos] = 0.0f;
        if (++pos == capacity) pos = 0;
      }
      continue;
    }
    const float* src = vec[static_cast<size_t>(first + c)];
    if (writePos + frames >= capacity) {
      const int head = capacity - writePos;
      std::memcpy(dst + writePos, src, sizeof(float) * static_cast<size_t>(head));
      std::memcpy(dst, src + head, sizeof(float) * static_cast<size_t>(frames - head));
    } else {
      std::memcpy(dst + writePos, src, sizeof(float) * static_cast<size_t>(frames));
    }
  }
  AdvanceWrite(frames);
  return ONDREL_OK;
}

int SampleFifo::GetInterleaved16(int16_t* buffer, int samples, int* got) {
  if (channels <= 0) {
    if (got) *got = 0;
    return ONDREL_OK;
  }
  const int frames = std::min(samples / channels, Count());
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) *buffer++ = ToInt16(buffers[c][readPos]);
    if (++readPos == capacity) readPos = 0;
  }
  if (got) *got = frames * channels;
  return ONDREL_OK;
}

int SampleFifo::GetInterleavedFloat(float* buffer, int samples, int* got) {
  if (channels <= 0) {
    if (got) *got = 0;
    return ONDREL_OK;
  }
  const int frames = std::min(samples / channels, Count());
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) *buffer++ = buffers[c][readPos];
    if (++readPos == capacity) readPos = 0;
  }
  if (got) *got = frames * channels;
  return ONDREL_OK;
}

int SampleFifo::GetPlanar(const ChannelVector& vec, int frames, int* got, int first) {
  if (static_cast<int>(vec.size()) < channels) return ONDREL_E_INVALID;
  const int out = std::max(0, std::min(frames, Count()));
  if (got) *got = out;
  if (out == 0) return ONDREL_OK;
  for (int c = 0; c < channels; ++c) {
    if (first + c >= static_cast<int>(vec.size())) break;
    float* dst = vec[static_cast<size_t>(first + c)];
    const float* src = buffers[c];
    if (readPos + out >= capacity) {
      const int head = capacity - readPos;
      std::memcpy(dst, src + readPos, sizeof(float) * static_cast<size_t>(head));
      std::memcpy(dst + head, src, sizeof(float) * static_cast<size_t>(out - head));
    } else {
      std::memcpy(dst, src + readPos, sizeof(float) * static_cast<size_t>(out));
    }
  }
  AdvanceRead(out);
  return ONDREL_OK;
}

int SampleFifo::DropNewest(int frames) {
  const int n = std::max(0, std::min(frames, Count()));
  writePos -= n;
  if (writePos < 0) writePos += capacity;
  return ONDREL_OK;
}

}  // namespace ONDREL2
