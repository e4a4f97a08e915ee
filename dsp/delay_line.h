// DelayLine: a float ring whose size is the smallest power of two above the
// delay, for the reverb and the Dfx family.
//
// Write(x) stores x `length` samples ahead of the read position; Read() gives
// the oldest sample; Advance() moves one sample on. Used as write, read,
// advance once per sample, a value comes back `length` samples after it was
// written. Resize() carries the content of a running line over to the new
// length by resampling it, so that a line can be stretched while it holds
// sound without a click.
//
// Resize allocates (and frees the old ring); Write, Read, Advance and Clear
// neither allocate nor lock.
#pragma once

#include <cstdint>

namespace ONDREL2 {

struct DelayLine {
  int32_t length = -1;       // delay in samples; -1 while unallocated
  uint32_t readPos = 0;      // index of the oldest sample
  float* samples = nullptr;  // the ring; null while unallocated
  int32_t mask = -1;         // ring size - 1; -1 while unallocated

  DelayLine() = default;
  ~DelayLine();
  DelayLine(const DelayLine&) = delete;
  DelayLine& operator=(const DelayLine&) = delete;

  void Write(float x) {
    samples[(readPos + static_cast<uint32_t>(length)) & static_cast<uint32_t>(mask)] = x;
  }
  float Read() const { return samples[readPos]; }
  void Advance() { readPos = (readPos + 1) & static_cast<uint32_t>(mask); }

  // Writes `length` zeros, advancing after each.
  void Clear();
  // Sets the delay to `newLength` (>= 0). 0 when the length is unchanged or
  // the new ring is in place; ONDREL_E_NOMEM when it can't be allocated (the
  // line is then unchanged) or the length is negative or too large for a
  // ring.
  int32_t Resize(int32_t newLength);
  // Frees the ring: the line is unallocated again.
  void Free();
};

}  // namespace ONDREL2
