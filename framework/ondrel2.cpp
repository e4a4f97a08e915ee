#include "framework/ondrel2.h"
#include "framework/alloc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ONDREL2 {
namespace {
constexpr int32_t kMaxFlushBlocks = 1 << 16;
}  // namespace

IOndrel2::~IOndrel2() {
  std::free(scratch);
  scratch = nullptr;
}

int32_t IOndrel2::Resume() {
  UpdateParams();
  paramsDirty = false;
  return SetupBuffers();
}

int32_t IOndrel2::GetBlockSize() { return 512; }

void IOndrel2::ClearBuffers() {
  inFifo.Clear();
  dryFifo.Clear();
  outFifo.Clear();
}

int32_t IOndrel2::UpdateParams() { return ONDREL_OK; }
int32_t IOndrel2::GetLatency() { return 0; }

void IOndrel2::FreeScratch() {
  std::free(scratch);
  scratch = nullptr;
}

void IOndrel2::ResetDsp() {}

int32_t IOndrel2::ProcessBlock(const ChannelVector&, int32_t*) { return ONDREL_OK; }

int32_t IOndrel2::SetupBuffers() {
  // Both widths are checked before either queue changes: a queue that took
  // its new width while the other refused would no longer match the block
  // buffers, and no block could be taken from it.
  if (handle.numInputs > kMaxChannels || handle.numOutputs > kMaxChannels)
    return ONDREL_E_INVALID;
  if (int32_t rc = inFifo.SetChannelCount(handle.numInputs)) return rc;
  if (int32_t rc = outFifo.SetChannelCount(handle.numOutputs)) return rc;
  const int32_t maxChannels = std::max(handle.numInputs, handle.numOutputs);
  const int32_t block = GetBlockSize();
  // Both queues accepted their widths, so this holds; it keeps the size
  // below from overflowing whatever a subclass reports.
  if (maxChannels < 0 || maxChannels > kMaxChannels || block < 0 ||
      block > (1 << 30) / kMaxChannels)
    return ONDREL_E_INVALID;
  const int32_t need = block * maxChannels;
  if (scratchSize < need) {
    scratchSize = need;
    std::free(scratch);
    scratch = AllocBlock<float>(static_cast<size_t>(need));
    if (scratch == nullptr) return ONDREL_E_NOMEM;
  }
  // The channel pointers are laid out again whenever the count, the block
  // size or the allocation changed; a stale pointer would reach into freed
  // scratch. The vector keeps its capacity, so this allocates only on growth.
  const bool stale = static_cast<int32_t>(blockBufs.size()) != maxChannels ||
                     (maxChannels > 0 && blockBufs[0] != scratch) ||
                     (maxChannels > 1 && blockBufs[1] != scratch + block);
  if (stale) {
    blockBufs.clear();
    for (int32_t c = 0; c < maxChannels; ++c) blockBufs.push_back(scratch + c * block);
  }
  return SetupDryFifo(handle.numInputs, handle.numOutputs, handle.numInputs);
}

int32_t IOndrel2::SetupDryFifo(int32_t a, int32_t b, int32_t c) {
  const int32_t n = std::max({a, b, c}) - std::min({a, b, c});
  if (n != dryFifo.channels) return dryFifo.SetChannelCount(n);
  return ONDREL_OK;
}

int32_t IOndrel2::ProcessInput(const ChannelVector& in, int32_t frames, int32_t* available) {
  if (scratchSize == 0 || scratch == nullptr) return ONDREL_E_INVALID;
  const int32_t inChannels = static_cast<int32_t>(in.size());
  const int32_t block = GetBlockSize();
  int32_t taken = 0;
  // Whole blocks go from the caller's vector straight into the block
  // buffers while nothing waits in the queue: the same frames in the same
  // order, one copy fewer. Only without a dry path and with nothing to
  // update, so that no step of a block can see the queue's contents.
  if (inFifo.Count() == 0 && inChannels == inFifo.channels && !paramsDirty && block > 0 &&
      frames >= block && inChannels <= static_cast<int32_t>(blockBufs.size())) {
    if (int32_t rc = inFifo.EnsureCapacity(frames)) return rc;
    while (frames - taken >= block && !paramsDirty) {
      for (int32_t c = 0; c < inChannels; ++c)
        std::memcpy(blockBufs[static_cast<size_t>(c)], in[static_cast<size_t>(c)] + taken,
                    sizeof(float) * static_cast<size_t>(block));
      taken += block;
      int32_t got = block;
      if (int32_t rc = ProcessBlock(blockBufs, &got)) {
        // The frames behind the lost block stay queued.
        inFifo.PutPlanar(in, frames - taken, 0, taken);
        return rc;
      }
      outFifo.PutPlanar(blockBufs, got, 0);
      if (static_cast<int32_t>(blockBufs.size()) > outFifo.channels)
        dryFifo.PutPlanar(blockBufs, got, outFifo.channels);
    }
  }
  if (int32_t rc = inFifo.PutPlanar(in, frames - taken, 0, taken)) return rc;
  if (inChannels > inFifo.channels) {
    if (dryFifo.channels < inChannels - inFifo.channels)
      SetupDryFifo(inFifo.channels, outFifo.channels, inChannels);
    dryFifo.PutPlanar(in, frames, inFifo.channels);
  }
  // Surplus input channels that cannot ride in the block (a chain wider than
  // this effect, which has more inputs than outputs) stay in the dry queue
  // until ProcessOutput takes them. The block's channels beyond the outputs
  // must not join them then: the queue would gain a second copy of every
  // frame and grow without end.
  while (inFifo.Count() >= block) {
    int32_t got = 0;
    // A queue the block buffers cannot take from would never shrink.
    if (int32_t rc = inFifo.GetPlanar(blockBufs, block, &got, 0)) return rc;
    const bool surplusInput = inChannels > inFifo.channels;
    const bool surplusRides = surplusInput && dryFifo.channels + inFifo.channels <=
                                                  static_cast<int32_t>(blockBufs.size());
    if (surplusRides) dryFifo.GetPlanar(blockBufs, got, &got, inFifo.channels);
    if (paramsDirty) {
      const int32_t rc = UpdateParams();
      paramsDirty = false;
      if (rc != 0) return rc;
    }
    if (int32_t rc = ProcessBlock(blockBufs, &got)) return rc;
    outFifo.PutPlanar(blockBufs, got, 0);
    if (static_cast<int32_t>(blockBufs.size()) > outFifo.channels &&
        (!surplusInput || surplusRides))
      dryFifo.PutPlanar(blockBufs, got, outFifo.channels);
  }
  if (available != nullptr) *available = outFifo.Count();
  return ONDREL_OK;
}

int32_t IOndrel2::ProcessOutput(const ChannelVector& out, int32_t frames, int32_t* got) {
  int32_t n = 0;
  if (int32_t rc = outFifo.GetPlanar(out, frames, &n, 0)) return rc;
  int32_t rc = 0;
  if (static_cast<int32_t>(out.size()) > outFifo.channels)
    rc = dryFifo.GetPlanar(out, n, &n, outFifo.channels);
  if (got != nullptr) *got = n;
  return rc;
}

int32_t IOndrel2::FlushTail(int32_t* frames) {
  int32_t dummy = 0;
  if (frames == nullptr) frames = &dummy;
  if (scratchSize == 0 || scratch == nullptr) {
    *frames = 0;
    return ONDREL_OK;
  }
  const int32_t target = inFifo.Count() + outFifo.Count() + GetLatency();
  const int32_t block = GetBlockSize();
  // An effect that never gives frames back would keep this loop going; a
  // generous bound keeps a faulty effect from hanging the host.
  int32_t rounds = 0;
  do {
    if (++rounds > kMaxFlushBlocks) break;
    std::memset(scratch, 0, sizeof(float) * static_cast<size_t>(scratchSize));
    if (dryFifo.channels > 0) dryFifo.PutPlanar(blockBufs, block, 0);
    if (int32_t rc = ProcessInput(blockBufs, block, frames)) return rc;
  } while (*frames <= target);
  if (*frames > target) outFifo.DropNewest(*frames - target);
  *frames = outFifo.Count();
  inFifo.Clear();
  ResetDsp();
  return ONDREL_OK;
}

}  // namespace ONDREL2
