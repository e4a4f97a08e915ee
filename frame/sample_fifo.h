// SampleFifo: the one queue type of the library.
//
// Planar 32-bit float samples, one ring per channel (at most 64), all
// channels sharing a read and a write position. It is where interleaved host
// samples become planar floats (int16 times 2^-15) and back (times 32767,
// rounded half away from zero, wrapping through the 16-bit store above full
// scale; there is deliberately no clipping).
//
// One frame of the ring always stays free. Capacity grows in steps of 1024
// frames on the put path and never shrinks; once the ring has grown to its
// working size, puts and gets allocate nothing. Not thread-safe.
#pragma once

#include <cstdint>
#include <vector>

namespace ONDREL2 {

constexpr int kMaxChannels = 64;

class SampleFifo {
 public:
  using ChannelVector = std::vector<float*>;

  SampleFifo() = default;
  ~SampleFifo();
  SampleFifo(const SampleFifo&) = delete;
  SampleFifo& operator=(const SampleFifo&) = delete;

  // Resets storage for `n` channels; the same count keeps the contents.
  // Positions are left as they were: a caller that changes the count clears.
  int SetChannelCount(int n);
  // Guarantees room for `frames` stored frames.
  int EnsureCapacity(int frames);

  int PutInterleaved16(const int16_t* buffer, int samples);
  int PutInterleavedFloat(const float* buffer, int samples);
  // Appends `frames` frames of each vec[first + c], starting `offset`
  // frames into the vectors' buffers.
  int PutPlanar(const ChannelVector& vec, int frames, int first, int offset = 0);

  int GetInterleaved16(int16_t* buffer, int samples, int* got);
  int GetInterleavedFloat(float* buffer, int samples, int* got);
  int GetPlanar(const ChannelVector& vec, int frames, int* got, int first);

  // Takes up to `frames` frames off the write end. Returns 0.
  int DropNewest(int frames);
  int Count() const;
  void Clear();

  // The host conversions of PutInterleaved16/Float without the queue:
  // `frames` frames of `channels` interleaved host samples into dst[c] at
  // `offset`, for c below `channels`. Used to hand a whole block straight to
  // a chain while the queue is empty.
  static void Deinterleave16(const int16_t* src, int channels, int frames, float* const* dst,
                             int offset);
  static void DeinterleaveFloat(const float* src, int channels, int frames, float* const* dst,
                                int offset);

  // Writing in place: makes room for `frames` more frames (as a put would)
  // and tells whether they fit contiguously from `writePos`; a writer then
  // fills buffers[c] + writePos and calls CommitWrite with what it wrote.
  // An empty queue restarts at position 0, so that a run rarely wraps.
  int ReserveContiguous(int frames, bool* fits);
  void CommitWrite(int frames) { AdvanceWrite(frames); }

  // Frees all buffers (owner's destruction step).
  void FreeBuffers();

  int channels = 0;
  float* buffers[kMaxChannels] = {};
  int readPos = 0;
  int writePos = 0;
  int capacity = 0;

 private:
  void AdvanceWrite(int frames);
  void AdvanceRead(int frames);
};

}  // namespace ONDREL2
