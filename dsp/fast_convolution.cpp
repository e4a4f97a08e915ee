#include "dsp/fast_convolution.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "dsp/fft_avx2.h"
#include "dsp/simd.h"
#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

// The plain kernels are written so that the compiler can run them in the
// vector lanes the target always has: the sums never alias the operands.
void MultiplyAccumulatePlain(const float* __restrict hr, const float* __restrict hi,
                             const float* __restrict xr, const float* __restrict xi,
                             float* __restrict accR, float* __restrict accI, int count) {
  for (int k = 0; k < count; ++k) {
    accR[k] += hr[k] * xr[k] - hi[k] * xi[k];
    accI[k] += hi[k] * xr[k] + hr[k] * xi[k];
  }
}

void MultiplyAccumulate4Plain(const float* const h[4], const float* const x[4], float* accR,
                              float* accI, int count) {
  const size_t n = static_cast<size_t>(count);
  for (int j = 0; j < 4; ++j)
    MultiplyAccumulatePlain(h[j], h[j] + n, x[j], x[j] + n, accR, accI, count);
}

}  // namespace

// ---------------------------------------------------------------------------
// OndrelFastConvolution

void OndrelFastConvolution::Reset() {
  firstBlock = true;
  std::fill(overlap.begin(), overlap.end(), 0.0f);
  std::fill(carried.begin(), carried.end(), 0.0f);
  valid = 0;
  carriedBlocks = 0;
}

// sum += h * x for one spectrum. Element 0 of the real and of the imaginary
// half are the real bins 0 and N/2, which multiply as plain numbers; the
// kernel treats them as one complex bin, and they are then set from the
// values kept before.
void OndrelFastConvolution::Accumulate(const float* h, const float* x, float* sum) const {
  const int half = fftSize / 2;
  float* sumR = sum;
  float* sumI = sum + half;
  const float dc = sumR[0];
  const float nyquist = sumI[0];
  if (vectorKernels) {
    fftavx2::MultiplyAccumulate(h, h + half, x, x + half, sumR, sumI, half);
  } else {
    MultiplyAccumulatePlain(h, h + half, x, x + half, sumR, sumI, half);
  }
  sumR[0] = dc + h[0] * x[0];
  sumI[0] = nyquist + h[half] * x[half];
}

void OndrelFastConvolution::Accumulate4(const float* const h[4], const float* const x[4],
                                        float* sum) const {
  const int half = fftSize / 2;
  float* sumR = sum;
  float* sumI = sum + half;
  float dc = sumR[0];
  float nyquist = sumI[0];
  if (vectorKernels) {
    fftavx2::MultiplyAccumulate4(h, x, sumR, sumI, half);
  } else {
    MultiplyAccumulate4Plain(h, x, sumR, sumI, half);
  }
  for (int j = 0; j < 4; ++j) {
    dc = dc + h[j][0] * x[j][0];
    nyquist = nyquist + h[j][half] * x[j][half];
  }
  sumR[0] = dc;
  sumI[0] = nyquist;
}

int OndrelFastConvolution::Init(int newBlockSize, int newPadSize) {
  if (newBlockSize < 1 || newPadSize < 0 || newPadSize > (1 << 30) - newBlockSize)
    return ONDREL_E_INVALID;

  // Partition spectra are cut and sized for the old sizes; they can't be
  // carried over to new ones.
  if (newBlockSize != blockSize || newPadSize != padSize) {
    partitionCount = 0;
    head = current = valid = carriedBlocks = 0;
    std::vector<float>().swap(partitions);
    std::vector<float>().swap(history);
    std::vector<float>().swap(carried);
  }

  blockSize = newBlockSize;
  padSize = newPadSize;
  fftSize = blockSize + padSize;
  fft.reset();
  if (!TryAllocating([&] {
        fft = std::make_unique<RealFftPlan>();
        overlap.assign(static_cast<size_t>(blockSize), 0.0f);
        work.assign(static_cast<size_t>(fftSize), 0.0f);
        due.assign(static_cast<size_t>(fftSize), 0.0f);
      })) {
    fft.reset();
    return ONDREL_E_NOMEM;
  }
  vectorKernels = fftavx2::Available();
  // An odd transform size has no real FFT; it is refused like a failed
  // allocation.
  if (!fft->Init(fftSize, vectorKernels)) {
    fft.reset();
    return ONDREL_E_NOMEM;
  }
  return ONDREL_OK;
}

int OndrelFastConvolution::SetImpulseResponse(const float* samples, int length) {
  if (!fft || samples == nullptr || length < 1) return ONDREL_E_INVALID;

  irLength = length;
  // P partitions of blockSize samples, the last one possibly short.
  const int count = static_cast<int>((static_cast<long long>(length) - 1 + blockSize) / blockSize);
  const size_t spectrumSize = static_cast<size_t>(fftSize);

  if (count != partitionCount) {
    partitionCount = 0;
    head = current = valid = carriedBlocks = 0;
    std::vector<float>().swap(partitions);
    std::vector<float>().swap(history);
    std::vector<float>().swap(carried);
    if (!TryAllocating([&] {
          partitions.assign(spectrumSize * static_cast<size_t>(count), 0.0f);
          history.assign(spectrumSize * static_cast<size_t>(count), 0.0f);
          carried.assign(spectrumSize * static_cast<size_t>(count), 0.0f);
        })) {
      std::vector<float>().swap(partitions);
      std::vector<float>().swap(history);
      std::vector<float>().swap(carried);
      return ONDREL_E_NOMEM;
    }
    partitionCount = count;
  } else if (valid > 0) {
    // Same count, mid-stream: what the blocks seen so far owe to upcoming
    // outputs under the old response is summed now, in the order the
    // blocks came, onto whatever was already carried. Upcoming block k
    // (k = 0 next) receives block n-j (j = 1 newest) times partition k + j.
    const int newest = head == 0 ? count - 1 : head - 1;
    for (int k = 0; k + 1 < count; ++k) {
      int slot = current + k;
      if (slot >= count) slot -= count;
      float* sum = carried.data() + spectrumSize * static_cast<size_t>(slot);
      for (int j = std::min(valid, count - 1 - k); j >= 1; --j) {
        int from = newest - (j - 1);
        if (from < 0) from += count;
        Accumulate(partitions.data() + spectrumSize * static_cast<size_t>(k + j),
                   history.data() + spectrumSize * static_cast<size_t>(from), sum);
      }
    }
    carriedBlocks = count - 1;
    valid = 0;
  }

  float* const in = work.data();
  const size_t half = spectrumSize / 2;
  for (int i = 0; i < count; ++i) {
    float* partition = partitions.data() + spectrumSize * static_cast<size_t>(i);
    const int offset = blockSize * i;
    const int taken = std::min(blockSize, length - offset);
    std::memcpy(in, samples + offset, sizeof(float) * static_cast<size_t>(taken));
    std::fill(in + taken, in + fftSize, 0.0f);
    fft->ForwardSplit(in, partition, partition + half);
  }
  return ONDREL_OK;
}

int OndrelFastConvolution::Process(float* buffer, int* frames) {
  if (partitionCount == 0 || !fft) {
    *frames = 0;
    return ONDREL_E_INVALID;
  }

  const size_t spectrumSize = static_cast<size_t>(fftSize);
  const int half = fftSize / 2;
  float* const in = work.data();

  std::memcpy(in, buffer, sizeof(float) * static_cast<size_t>(blockSize));
  std::fill(in + blockSize, in + fftSize, 0.0f);
  const int newest = head;
  float* const spectrum = history.data() + spectrumSize * static_cast<size_t>(newest);
  fft->ForwardSplit(in, spectrum, spectrum + half);
  head = head + 1 == partitionCount ? 0 : head + 1;
  valid = std::min(valid + 1, partitionCount);

  // The due spectrum starts from what is carried for it, else from zero,
  // and then takes block n-i times partition i for i = valid-1 .. 0: the
  // oldest block first, as the blocks came.
  float* const sum = due.data();
  float* const carry = carried.data() + spectrumSize * static_cast<size_t>(current);
  if (carriedBlocks > 0) {
    std::copy(carry, carry + fftSize, sum);
    std::fill(carry, carry + fftSize, 0.0f);
    --carriedBlocks;
  } else {
    std::fill(sum, sum + fftSize, 0.0f);
  }
  current = current + 1 == partitionCount ? 0 : current + 1;
  // Four partitions per pass keep the sum in registers between them.
  const auto partition = [&](int i) {
    return partitions.data() + spectrumSize * static_cast<size_t>(i);
  };
  const auto block = [&](int i) {
    int slot = newest - i;
    if (slot < 0) slot += partitionCount;
    return history.data() + spectrumSize * static_cast<size_t>(slot);
  };
  int i = valid - 1;
  for (; i >= 3; i -= 4) {
    const float* const h[4] = {partition(i), partition(i - 1), partition(i - 2), partition(i - 3)};
    const float* const x[4] = {block(i), block(i - 1), block(i - 2), block(i - 3)};
    Accumulate4(h, x, sum);
  }
  for (; i >= 0; --i) Accumulate(partition(i), block(i), sum);
  fft->InverseSplit(sum, sum + half, in);

  // The only scaling of the chain: it removes the factor N of the
  // unscaled forward/inverse pair.
  const float scale = static_cast<float>(fftSize);
  for (int n = 0; n < blockSize; ++n) buffer[n] = (in[n] + overlap[static_cast<size_t>(n)]) / scale;

  // What lies behind the block becomes the overlap of the next one.
  const int tail = std::min(blockSize, padSize);
  std::memcpy(overlap.data(), in + blockSize, sizeof(float) * static_cast<size_t>(tail));
  std::fill(overlap.begin() + tail, overlap.end(), 0.0f);

  if (firstBlock) {
    // Advance the output once by the reported latency.
    const int drop = blockSize / 2;
    std::memmove(buffer, buffer + drop, sizeof(float) * static_cast<size_t>(blockSize - drop));
    *frames = blockSize - drop;
    firstBlock = false;
  } else {
    *frames = blockSize;
  }
  return ONDREL_OK;
}

int OndrelFastConvolution::GetLatency() { return blockSize / 2; }

// ---------------------------------------------------------------------------
// OndrelStereoConvolution

bool OndrelStereoConvolution::SetChannels(int count) {
  channels = count;
  return (count & 1) == 0;
}

void OndrelStereoConvolution::Reset() {
  // Deliberately empty: the paths keep their overlap and accumulators.
}

int OndrelStereoConvolution::InitPath(int blockSize, int padSize, int path) {
  if (path < 0 || path >= kPaths) return ONDREL_E_INVALID;
  if (!paths[path]) {
    if (!TryAllocating([&] { paths[path] = std::make_unique<OndrelFastConvolution>(); })) {
      return ONDREL_E_NOMEM;
    }
  }
  pathBlockSize[path] = blockSize;
  return paths[path]->Init(blockSize, padSize);
}

int OndrelStereoConvolution::InitAll(int blockSize, int padSize) {
  for (int path = 0; path < kPaths; ++path) {
    const int status = InitPath(blockSize, padSize, path);
    if (status != ONDREL_OK) return status;
  }
  return ONDREL_OK;
}

int OndrelStereoConvolution::SetImpulseResponse(const float* samples, int length, int path) {
  if (path < 0 || path >= kPaths) return ONDREL_E_INVALID;
  if (!paths[path]) return ONDREL_OK;
  return paths[path]->SetImpulseResponse(samples, length);
}

int OndrelStereoConvolution::Process(float* samples, int* count) {
  const int k = channels;
  if (k < 2) return ONDREL_OK;
  if (*count < 0) return ONDREL_E_INVALID;

  const int frames = *count / k;
  // No whole frame: running the paths would feed them a block of silence
  // and shift every later output.
  if (frames == 0) {
    *count = 0;
    return ONDREL_OK;
  }
  const size_t step = static_cast<size_t>(k);

  // Each convolver reads a whole block whatever the caller passed, so the
  // scratch buffers hold at least that much, zero behind the input.
  int scratchFrames = frames;
  for (int path = 0; path < kPaths; ++path) {
    if (paths[path]) scratchFrames = std::max(scratchFrames, pathBlockSize[path]);
  }
  const size_t stride = static_cast<size_t>(scratchFrames);
  if (!TryAllocating([&] {
        if (planar.size() < stride * step) planar.resize(stride * step);
        if (ownScratch.size() < stride) {
          ownScratch.resize(stride);
          partnerScratch.resize(stride);
        }
      })) {
    return ONDREL_E_NOMEM;
  }

  for (size_t c = 0; c < step; ++c) {
    float* channel = planar.data() + stride * c;
    for (size_t n = 0; n < static_cast<size_t>(frames); ++n) channel[n] = samples[n * step + c];
    std::fill(channel + frames, channel + stride, 0.0f);
  }

  int outFrames = frames;
  int status = ONDREL_OK;
  for (int c = 0; c < k; ++c) {
    const int partner = c ^ 1;
    OndrelFastConvolution* own = paths[((2 * c) | c) & 3].get();
    // An odd channel count has no partner for its last channel.
    OndrelFastConvolution* cross = partner < k ? paths[((2 * c) | partner) & 3].get() : nullptr;

    int ownFrames = 0;
    int crossFrames = 0;
    if (own != nullptr) {
      std::copy_n(planar.data() + stride * static_cast<size_t>(c), stride, ownScratch.data());
      const int result = own->Process(ownScratch.data(), &ownFrames);
      status = status != ONDREL_OK ? status : result;
      outFrames = ownFrames;
    }
    if (cross != nullptr) {
      std::copy_n(planar.data() + stride * static_cast<size_t>(partner), stride,
                  partnerScratch.data());
      const int result = cross->Process(partnerScratch.data(), &crossFrames);
      status = status != ONDREL_OK ? status : result;
      outFrames = crossFrames;
    }

    // Never write behind the caller's frames, whatever a path returned.
    float* out = samples + c;
    if (own != nullptr && cross != nullptr) {
      const size_t n = static_cast<size_t>(std::min(frames, std::min(ownFrames, crossFrames)));
      for (size_t i = 0; i < n; ++i) out[i * step] = ownScratch[i] + partnerScratch[i];
    } else if (own != nullptr || cross != nullptr) {
      const float* result = own != nullptr ? ownScratch.data() : partnerScratch.data();
      const size_t n =
          static_cast<size_t>(std::min(frames, own != nullptr ? ownFrames : crossFrames));
      for (size_t i = 0; i < n; ++i) out[i * step] = result[i];
    }
  }

  *count = k * std::min(frames, outFrames);
  return status;
}

int OndrelStereoConvolution::GetLatency() {
  for (int path = 0; path < kPaths; ++path) {
    if (paths[path]) return paths[path]->GetLatency();
  }
  return 0;
}

}  // namespace ONDREL2
