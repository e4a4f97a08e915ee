#include "dsp/dsp_wrapper.h"
#include "framework/alloc.h"

#include <algorithm>
#include <new>

namespace ONDREL2 {
namespace ON_DSP_WRAPPERS {

IDspWrapper::~IDspWrapper() = default;

int32_t IDspWrapper::GetLatency() { return 0; }

void IDspWrapper::Reset() {}

int32_t IDspWrapper::NotImplemented(int32_t) { return ONDREL_E_UNAVAILABLE; }

int32_t IDspWrapper::ProcessPointers(float**, int32_t frames, const int32_t*) {
  return NotImplemented(frames);
}

int32_t IDspWrapper::ProcessInterleaved(float*, int32_t frames, const int32_t*) {
  return NotImplemented(frames);
}

int32_t IDspWrapper::ProcessVector(const std::vector<float*>&, int32_t frames, const int32_t*) {
  return NotImplemented(frames);
}

DspWrapperRunner::DspWrapperRunner(IDspWrapper* proto) : prototype(proto) {}

DspWrapperRunner::~DspWrapperRunner() {
  units.Clear();
  delete prototype;
}

void DspWrapperRunner::SetEffectType(int32_t type) { effectType = type; }

void DspWrapperRunner::SetScriptVersion(int32_t version) { scriptVersion = version; }

namespace {

// The group's speaker positions as bits of a 16-bit word: positions of 16
// and above fall out.
uint64_t ChannelBitsOf(const LayoutUtils& layout, const ChannelGroup& g) {
  auto bitOf = [&](int slot) -> uint16_t {
    const int position = slot >= 0 && slot < 64 ? layout.channelMap[slot] : 0;
    return static_cast<uint16_t>(uint64_t{1} << position);
  };
  uint16_t bits = bitOf(g.first);
  if (g.count > 1) bits = static_cast<uint16_t>(bits | bitOf(g.second));
  return bits;
}

}  // namespace

int32_t DspWrapperRunner::UpdateParams() {
  const int32_t channels = GetChannels();
  const uint64_t mask = handle.inputMask;
  const LayoutUtils* layout = units.layout();
  if (layout == nullptr || layout->channels != channels || layout->layout != mask) {
    // Groups only; each gets its wrapper below, one update at a time.
    const int32_t status = units.Rebuild(
        channels, mask, [](const ChannelGroup&, int32_t*) -> IDspWrapper* { return nullptr; });
    if (status != ONDREL_OK) return status;
  }
  const size_t blockFloats =
      static_cast<size_t>(std::max(channels, 0)) * static_cast<size_t>(GetBlockSize());
  if (interleaved_.size() < blockFloats) {
    if (!TryAllocating([&] { interleaved_.resize(blockFloats); })) {
      return ONDREL_E_NOMEM;
    }
  }

  for (size_t i = 0; i < units.Count(); ++i) {
    IDspWrapper* wrapper = units.UnitAt(i);
    if (wrapper == nullptr) {
      if (prototype == nullptr) continue;
      const ChannelGroup& g = units.layout()->groups[i];
      wrapper = prototype->Create(GetSampleRate(), g.count, ChannelBitsOf(*units.layout(), g));
      if (wrapper == nullptr) continue;
      units.SetUnit(i, wrapper);
    }
    const int32_t status = wrapper->UpdateParams(this);
    if (status != ONDREL_OK) {
      units.SetUnit(i, nullptr);
      return status;
    }
    if (mode == kNotProbed) {
      const std::vector<float*> none;
      if (wrapper->ProcessVector(none, 0, nullptr) != ONDREL_E_UNAVAILABLE)
        mode = kVector;
      else if (wrapper->ProcessPointers(nullptr, 0, nullptr) != ONDREL_E_UNAVAILABLE)
        mode = kPointers;
      else if (wrapper->ProcessInterleaved(nullptr, 0, nullptr) != ONDREL_E_UNAVAILABLE)
        mode = kInterleaved;
      else
        mode = kNone;
      return ONDREL_OK;
    }
  }
  return ONDREL_OK;
}

int32_t DspWrapperRunner::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  if (disabled || !units.built() || mode == kNone || mode == kNotProbed) return ONDREL_OK;
  const int32_t block = *frames;
  int32_t n = block;
  units.Run(static_cast<int32_t>(bufs.size()), [&](IDspWrapper& wrapper, const ChannelGroup& g,
                                                   int32_t first, int32_t second) {
    const int32_t indices[2] = {first, second};
    const int32_t count = g.count > 1 ? 2 : 1;
    float* channels[2] = {bufs[static_cast<size_t>(first)], bufs[static_cast<size_t>(second)]};
    switch (mode) {
      case kVector: n = wrapper.ProcessVector(bufs, n, indices); break;
      case kPointers: n = wrapper.ProcessPointers(channels, n, indices); break;
      case kInterleaved: {
        if (interleaved_.size() < static_cast<size_t>(n) * static_cast<size_t>(count)) return;
        float* il = interleaved_.data();
        for (int32_t f = 0; f < n; ++f)
          for (int32_t c = 0; c < count; ++c) il[f * count + c] = channels[c][f];
        n = wrapper.ProcessInterleaved(il, n, indices);
        // A count outside the block is no count of frames here; nothing
        // beyond the block is copied back.
        const int32_t back = std::min(std::max(n, 0), block);
        for (int32_t f = 0; f < back; ++f)
          for (int32_t c = 0; c < count; ++c) channels[c][f] = il[f * count + c];
        break;
      }
      default: break;
    }
    // The next group gets no more than the block holds.
    n = std::min(std::max(n, 0), block);
  });
  *frames = n;
  return ONDREL_OK;
}

int32_t DspWrapperRunner::GetLatency() {
  if (units.Count() == 0 || units.UnitAt(0) == nullptr) return 0;
  return units.UnitAt(0)->GetLatency();
}

void DspWrapperRunner::ResetDsp() {
  units.ForEach([](IDspWrapper& wrapper, const ChannelGroup&) { wrapper.Reset(); });
}

void DspWrapperRunner::ClearBuffers() { ResetDsp(); }

}  // namespace ON_DSP_WRAPPERS
}  // namespace ONDREL2
