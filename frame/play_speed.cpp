#include "frame/play_speed.h"

#include <soundtouch/SoundTouch.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>

#include "frame/processing_instance.h"
#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {

// ---- Speed map -------------------------------------------------------------

int SpeedMap::Add(float multiple) {
  if (multiple <= 0.0f) return ONDREL_E_SPEED;
  if (segments.empty()) {
    segments.push_back({total, kOpen, multiple});
    return ONDREL_OK;
  }
  SpeedSegment& last = segments.back();
  if (std::fabs(last.multiple - multiple) <= 1e-6) return ONDREL_OK;
  int result = ONDREL_OK;
  if (total == last.start) {
    last.multiple = multiple;
  } else if (total > last.start && total <= last.end) {
    last.end = total;
    segments.push_back({total, kOpen, multiple});
  } else {
    result = ONDREL_E_SPEED;
  }
  // Going back to the previous speed before any audio passed leaves one
  // segment, not two of the same speed.
  const size_t n = segments.size();
  if (n >= 2 && std::fabs(segments[n - 2].multiple - segments[n - 1].multiple) <= 1e-6) {
    segments[n - 2].end = segments[n - 1].end;
    segments.pop_back();
  }
  return result;
}

int SpeedMap::ActualBytes(uint64_t position, uint64_t* actual) const {
  if (segments.empty() || position < segments.front().start) return ONDREL_E_UNAVAILABLE;
  uint64_t acc = segments.front().start;
  for (const SpeedSegment& s : segments) {
    float m = s.multiple;
    // A small rise of the factor with speed, 0 at half speed and 0.005 at
    // double speed, is part of how hosts' positions line up with the
    // stretched output; it is kept on purpose.
    if (m != 1.0f) m = static_cast<float>((m - 0.5) / 1.5 * 0.005 + m);
    if (s.start <= position && position < s.end) {
      acc += static_cast<uint64_t>(static_cast<float>(position - s.start) * m);
      *actual = acc;
      return ONDREL_OK;
    }
    acc += static_cast<uint64_t>(static_cast<float>(s.end - s.start) * m);
  }
  return ONDREL_E_UNAVAILABLE;
}

// ---- Controller ------------------------------------------------------------

namespace {

// A speed the engine can run: a tempo of 0 or below would make it loop
// without consuming input. Such a speed is stored and refused at the next
// input call.
bool Playable(float multiple) { return multiple > 0.0f && std::isfinite(multiple); }

// The engine's tempo change in percent, the product and difference in float.
double TempoChange(float multiple) { return static_cast<double>(multiple * 100.0f - 100.0f); }

}  // namespace

PlaySpeedController::PlaySpeedController(uint32_t rate, uint32_t bits, int32_t count, float speed,
                                         uint64_t position)
    : multiple(speed), sampleRate(rate), channels(count), bitsPerSample(bits) {
  CreateEngine();
  dirty = kNothing;
  AllocateBuffers();
  speedMap.segments.clear();
  speedMap.total = position;
  if (multiple > 0.0f) speedMap.segments.push_back({position, SpeedMap::kOpen, multiple});
}

PlaySpeedController::~PlaySpeedController() {
  delete engine;
  std::free(block);
}

void PlaySpeedController::CreateEngine() {
  speedMap.segments.clear();
  speedMap.total = 0;
  // The replaced engine goes with the samples it held.
  delete engine;
  engine = nullptr;
  engineChannels = 0;
  soundtouch::SoundTouch* fresh = nullptr;
  {
    try {
      fresh = new soundtouch::SoundTouch();
      fresh->setChannels(static_cast<unsigned>(channels));
      fresh->setSampleRate(sampleRate);
      fresh->setPitch(1.0);
      fresh->setRate(1.0);
      fresh->setSetting(SETTING_USE_QUICKSEEK, 0);
      fresh->setSetting(SETTING_USE_AA_FILTER, 0);
      if (Playable(multiple)) fresh->setTempoChange(TempoChange(multiple));
      engine = fresh;
      engineChannels = channels;
    } catch (const std::exception&) {
      // A channel count or rate the engine refuses: no engine, and audio
      // that needs one is refused by Input.
      delete fresh;
    }
  }
  speedMap.Add(multiple);
}

int PlaySpeedController::AllocateBuffers() {
  if (int rc = inQueue.SetChannelCount(channels)) return rc;
  if (int rc = outQueue.SetChannelCount(channels)) return rc;
  if (channels < 1) return ONDREL_E_INVALID;
  const int32_t need = channels * kBlockFrames;
  if (blockSize < need) {
    blockSize = need;
    blockVector.clear();
    std::free(block);
    block = AllocBlock<float>(static_cast<size_t>(need));
    if (block == nullptr) {
      blockSize = 0;
      return ONDREL_E_NOMEM;
    }
  }
  if (static_cast<int32_t>(blockVector.size()) != channels) {
    blockVector.clear();
    for (int32_t c = 0; c < channels; ++c) blockVector.push_back(block + c * kBlockFrames);
  }
  if (interleaved.size() < static_cast<size_t>(need)) interleaved.assign(need, 0.0f);
  if (dryQueue.channels != 0) return dryQueue.SetChannelCount(0);
  return ONDREL_OK;
}

int PlaySpeedController::SetMultiple(float value) {
  if (value == multiple) return ONDREL_OK;
  multiple = value;
  dirty = kMultiple;
  return ONDREL_OK;
}

int PlaySpeedController::SetSampleRate(uint32_t rate) {
  if (rate == sampleRate) return ONDREL_OK;
  sampleRate = rate;
  dirty = kSampleRate;
  return ONDREL_OK;
}

int PlaySpeedController::SetChannels(int32_t count) {
  if (count == channels) return ONDREL_OK;
  channels = count;
  dirty = kChannels;
  return ONDREL_OK;
}

uint64_t PlaySpeedController::BytesOf(int frames) const {
  // Unsigned 32-bit arithmetic, as the host's byte positions are counted.
  return static_cast<uint64_t>(((bitsPerSample * static_cast<uint32_t>(frames)) >> 3) *
                               static_cast<uint32_t>(channels));
}

int PlaySpeedController::ReceiveBlock(int limit) {
  const int n = static_cast<int>(engine->receiveSamples(interleaved.data(), limit));
  const int width = engineChannels;
  for (int c = 0; c < width; ++c) {
    float* dst = blockVector[c];
    for (int i = 0; i < n; ++i) dst[i] = interleaved[static_cast<size_t>(i * width + c)];
  }
  return n;
}

int PlaySpeedController::Stretch(int frames) {
  if (std::fabs(static_cast<double>(multiple) - 1.0) <= 1e-6) return frames;
  const int width = engineChannels;
  for (int c = 0; c < width; ++c) {
    const float* src = blockVector[c];
    for (int i = 0; i < frames; ++i) interleaved[static_cast<size_t>(i * width + c)] = src[i];
  }
  engine->putSamples(interleaved.data(), static_cast<unsigned>(frames));
  // At most what went in comes back now; the rest waits in the engine for
  // the drain at the top of the next input call.
  return ReceiveBlock(frames);
}

int PlaySpeedController::Input(const std::vector<float*>& vec, int frames, int* available) {
  if (dirty != kNothing) {
    const int32_t pending = dirty;
    int rc = ONDREL_OK;
    if (pending == kMultiple) {
      if (engine != nullptr && Playable(multiple)) engine->setTempoChange(TempoChange(multiple));
      speedMap.Add(multiple);  // a refused speed leaves the map as it was
    } else if (pending == kChannels) {
      rc = AllocateBuffers();
      inQueue.Clear();
      outQueue.Clear();
      CreateEngine();
    } else {
      CreateEngine();
    }
    dirty = kNothing;
    return rc != ONDREL_OK ? rc : ONDREL_E_INVALID;
  }
  if (frames == 0) {
    if (available != nullptr) *available = outQueue.Count();
    return ONDREL_OK;
  }
  if (blockSize == 0 || frames < 0 || channels < 1) return ONDREL_E_INVALID;
  if (!Playable(multiple)) return ONDREL_E_SPEED;
  const bool bypass = std::fabs(static_cast<double>(multiple) - 1.0) <= 1e-6;
  // The engine must match the queues' width. They differ only after a
  // channel change that a later setter replaced before it was applied.
  const bool engineFits = engine != nullptr && engineChannels == inQueue.channels;
  if (!bypass && !engineFits) return ONDREL_E_INVALID;
  if (int rc = inQueue.PutPlanar(vec, frames, 0)) return rc;
  const int width = inQueue.channels;
  if (static_cast<int>(vec.size()) > width) {
    const int extra = static_cast<int>(vec.size()) - width;
    if (dryQueue.channels < extra) {
      const int a = inQueue.channels, b = outQueue.channels, c = static_cast<int>(vec.size());
      if (int rc = dryQueue.SetChannelCount(std::max({a, b, c}) - std::min({a, b, c}))) return rc;
      dryQueue.Clear();
    }
    if (int rc = dryQueue.PutPlanar(vec, frames, width)) return rc;
  }
  if (engineFits) {
    for (;;) {
      const int n = ReceiveBlock(kBlockFrames);
      if (n <= 0) break;
      if (int rc = outQueue.PutPlanar(blockVector, n, 0)) return rc;
      speedMap.total += BytesOf(n);
    }
  }
  while (inQueue.Count() >= kBlockFrames) {
    int n = 0;
    if (int rc = inQueue.GetPlanar(blockVector, kBlockFrames, &n, 0)) return rc;
    n = Stretch(n);
    if (n >= 1) {
      if (int rc = outQueue.PutPlanar(blockVector, n, 0)) return rc;
      speedMap.total += BytesOf(n);
    }
  }
  if (available != nullptr) *available = outQueue.Count();
  return ONDREL_OK;
}

int PlaySpeedController::Output(const std::vector<float*>& vec, int frames, int* got) {
  int delivered = 0;
  if (int rc = outQueue.GetPlanar(vec, frames, &delivered, 0)) return rc;
  if (static_cast<int>(vec.size()) > outQueue.channels) {
    // The dry channels' count replaces the stretched one: the two are not
    // aligned in time, and hosts that pass extra channels read this count.
    if (int rc = dryQueue.GetPlanar(vec, frames, &delivered, outQueue.channels)) return rc;
  }
  if (got != nullptr) *got = delivered;
  return ONDREL_OK;
}

int PlaySpeedController::GetActualBytes(uint64_t position, uint64_t& actual) const {
  return speedMap.ActualBytes(position, &actual);
}

int PlaySpeedController::Seek() {
  speedMap.total = 0;
  if (multiple <= 0.0f) return ONDREL_E_SPEED;
  speedMap.segments.clear();
  speedMap.segments.push_back({0, SpeedMap::kOpen, multiple});
  return ONDREL_OK;
}

// ---- Exported functions ----------------------------------------------------

namespace {

// The instance's controller, or the status that explains why there is none.
int ControllerOf(void* instance, PlaySpeedController** controller) {
  if (instance == nullptr) return ONDREL_E_INVALID;
  *controller = static_cast<ProcessingInstance*>(instance)->speedController;
  return *controller == nullptr ? ONDREL_E_UNAVAILABLE : ONDREL_OK;
}

}  // namespace

int ondrel_psctrl_init(void* instance, unsigned sampleRate, unsigned bitsPerSample,
                       unsigned channels, float multiple, uint64_t position) {
  if (instance == nullptr) return ONDREL_E_INVALID;
  ProcessingInstance* inst = static_cast<ProcessingInstance*>(instance);
  delete inst->speedController;
  inst->speedController = nullptr;
  // Counts beyond int are as unusable as 0 channels: the controller then
  // refuses audio.
  const int32_t count = channels > static_cast<unsigned>(kMaxChannels)
                            ? kMaxChannels + 1
                            : static_cast<int32_t>(channels);
  // The controller's own containers may run out while it is being built.
  PlaySpeedController* fresh = nullptr;
  TryAllocating([&] {
    fresh = NewObject<PlaySpeedController>(sampleRate, bitsPerSample, count, multiple, position);
  });
  inst->speedController = fresh;
  return fresh == nullptr ? ONDREL_E_NOMEM : ONDREL_OK;
}

int ondrel_psctrl_set_multiple(void* instance, float multiple) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->SetMultiple(multiple);
}

int ondrel_psctrl_set_samplerate(void* instance, unsigned sampleRate) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->SetSampleRate(sampleRate);
}

int ondrel_psctrl_set_channels(void* instance, int channels) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->SetChannels(channels);
}

int ondrel_psctrl_input(void* instance, const std::vector<float*>& channels, int frames,
                        int* available) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->Input(channels, frames, available);
}

int ondrel_psctrl_output(void* instance, const std::vector<float*>& channels, int frames,
                         int* got) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->Output(channels, frames, got);
}

int ondrel_psctrl_getActualBytes(void* instance, uint64_t position, uint64_t& actual) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->GetActualBytes(position, actual);
}

int ondrel_psctrl_seek(void* instance) {
  PlaySpeedController* c = nullptr;
  if (int rc = ControllerOf(instance, &c)) return rc;
  return c->Seek();
}

}  // namespace ONDREL2
