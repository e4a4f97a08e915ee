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

void MultiplyAccumulatePlain(const float* hr, const float* hi, const float* xr, const float* xi,
                             float* accR, float* accI, int count) {
  for (int k = 0; k < count; ++k) {
    accR[k] += hr[k] * xr[k] - hi[k] * xi[k];
    accI[k] += hi[k] * xr[k] + hr[k] * xi[k];
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// OndrelFastConvolution

void OndrelFastConvolution::Reset() {
  firstBlock = true;
  std::fill(overlap.begin(), overlap.end(), 0.0f);
  std::fill(accumulators.begin(), accumulators.end(), 0.0f);
}

int OndrelFastConvolution::Init(int newBlockSize, int newPadSize) {
  if (newBlockSize < 1 || newPadSize < 0 || newPadSize > (1 << 30) - newBlockSize)
    return ONDREL_E_INVALID;

  // Partition spectra are cut and sized for the old sizes; they can't be
  // carried over to new ones.
  if (newBlockSize != blockSize || newPadSize != padSize) {
    partitionCount = 0;
    current = 0;
    std::vector<float>().swap(partitions);
    std::vector<float>().swap(accumulators);
  }

  blockSize = newBlockSize;
  padSize = newPadSize;
  fftSize = blockSize + padSize;
  fft.reset();
  if (!TryAllocating([&] {
        fft = std::make_unique<RealFftPlan>();
        overlap.assign(static_cast<size_t>(blockSize), 0.0f);
        work.assign(static_cast<size_t>(fftSize), 0.0f);
        spectrum.assign(static_cast<size_t>(fftSize), 0.0f);
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
    current = 0;
    std::vector<float>().swap(partitions);
    std::vector<float>().swap(accumulators);
    if (!TryAllocating([&] {
          partitions.assign(spectrumSize * static_cast<size_t>(count), 0.0f);
          accumulators.assign(spectrumSize * static_cast<size_t>(count), 0.0f);
        })) {
      std::vector<float>().swap(partitions);
      std::vector<float>().swap(accumulators);
      return ONDREL_E_NOMEM;
    }
    partitionCount = count;
  }
  // With the same count the running accumulators and overlap are kept, so
  // that the new response takes over mid-stream without a gap.

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
  float* const xr = spectrum.data();
  float* const xi = xr + half;

  std::memcpy(in, buffer, sizeof(float) * static_cast<size_t>(blockSize));
  std::fill(in + blockSize, in + fftSize, 0.0f);
  fft->ForwardSplit(in, xr, xi);

  // Partition i is added into the accumulator that is due i blocks from
  // now. Element 0 of the real and of the imaginary half are the real bins
  // 0 and N/2, which multiply as plain numbers; the kernel treats them as
  // one complex bin, and they are then set from the values kept before.
  const auto multiplyAccumulate =
      vectorKernels ? fftavx2::MultiplyAccumulate : MultiplyAccumulatePlain;
  for (int i = 0; i < partitionCount; ++i) {
    int r = current + i;
    if (r >= partitionCount) r -= partitionCount;
    const float* hr = partitions.data() + spectrumSize * static_cast<size_t>(i);
    const float* hi = hr + half;
    float* accR = accumulators.data() + spectrumSize * static_cast<size_t>(r);
    float* accI = accR + half;
    const float dc = accR[0];
    const float nyquist = accI[0];
    multiplyAccumulate(hr, hi, xr, xi, accR, accI, half);
    accR[0] = dc + hr[0] * xr[0];
    accI[0] = nyquist + hi[0] * xi[0];
  }

  float* const due = accumulators.data() + spectrumSize * static_cast<size_t>(current);
  fft->InverseSplit(due, due + half, in);

  // The only scaling of the chain: it removes the factor N of the
  // unscaled forward/inverse pair.
  const float scale = static_cast<float>(fftSize);
  for (int n = 0; n < blockSize; ++n) buffer[n] = (in[n] + overlap[static_cast<size_t>(n)]) / scale;

  // What lies behind the block becomes the overlap of the next one.
  const int tail = std::min(blockSize, padSize);
  std::memcpy(overlap.data(), in + blockSize, sizeof(float) * static_cast<size_t>(tail));
  std::fill(overlap.begin() + tail, overlap.end(), 0.0f);

  std::fill(due, due + fftSize, 0.0f);
  current = current + 1 == partitionCount ? 0 : current + 1;

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
