#include "frame/processing_instance.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/log.h"
#include "frame/modulators.h"
#include "frame/play_speed.h"
#include "framework/alloc.h"
#include "framework/audio_effect.h"
#include "framework/catalogue.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {

ProcessingInstance::ProcessingInstance() { AllocBlockBuffers(0, 0); }

ProcessingInstance::~ProcessingInstance() {
  for (AudioEffect* fx : effects) {
    fx->Close();
    fx->Destroy();
  }
  effects.clear();
  AllocBlockBuffers(0, 0);
  delete speedController;
  speedController = nullptr;
}

int ProcessingInstance::AllocBlockBuffers(int channels, int frames) {
  if (!blockVector.empty()) std::free(blockVector[0]);
  blockVector.clear();
  ringVector.clear();
  if (static_cast<long>(channels) * frames < 1) {
    maxBlockSize = frames;
    return ONDREL_OK;
  }
  const size_t total = static_cast<size_t>(channels) * static_cast<size_t>(frames);
  float* block = AllocBlock<float>(total);
  if (block == nullptr) {
    maxBlockSize = 0;
    return ONDREL_E_NOMEM;
  }
  for (int c = 0; c < channels; ++c) blockVector.push_back(block + static_cast<size_t>(c) * frames);
  ringVector.assign(blockVector.size(), nullptr);
  maxBlockSize = frames;
  return ONDREL_OK;
}

void ProcessingInstance::SetFormatModulators() {
  SetSystemModulator("GV_SAMPLERATE", inRate);
  SetSystemModulator("GV_CHANNELS", inChannels);
}

int ProcessingInstance::ConfigureChain() {
  outChannels = inChannels;
  outLayout = inLayout;
  outRate = inRate;
  int maxChannels = inChannels;
  int maxBlock = 1;
  Log(kLogInfo, "[ON2L]:in/sr:%g, ch:%d, layout:%llx", static_cast<double>(inRate), inChannels,
      static_cast<unsigned long long>(inLayout));
  ClearSystemModulators();

  if (!effects.empty()) {
    SetFormatModulators();
    for (size_t i = 0; i < effects.size();) {
      AudioEffect* fx = effects[i];
      char name[64] = {0};
      fx->GetEffectName(name);
      Log(kLogInfo, "[ON2L]:FX:%s", name);
      fx->SetChannels(outChannels, outLayout);
      fx->SetSampleRate(outRate);
      SetSystemModulator("GV_FXBYPASSED", 0.0);
      fx->Resume();
      if (GetSystemModulator("GV_FXBYPASSED") != 0.0) {
        Log(kLogInfo, "[ON2L]:Bypassed");
        fx->Destroy();
        effects.erase(effects.begin() + static_cast<long>(i));
        continue;
      }
      // An effect that reports a rate no stream can have (from raw
      // parameter values outside their ranges) leaves the stream's rate.
      if (UsableRate(fx->GetSampleRate())) outRate = fx->GetSampleRate();
      outChannels = fx->GetOutChannels();
      outLayout = fx->GetOutChannelMask();
      const int block = fx->GetBlockSize();
      Log(kLogTrace, "[ON2L]:FX:BSize=%d", block);
      maxBlock = std::max(maxBlock, block);
      maxChannels = std::max({maxChannels, outChannels, static_cast<int>(fx->GetChannels())});
      ++i;
    }
  }

  if (TwoPassFlag()) {
    Log(kLogInfo, "[ON2L]:2-pass");
    ApplyBypassPass();
  }

  inputBlockSize = effects.empty() ? maxBlock : effects[0]->GetBlockSize();
  Log(kLogInfo, "[ON2L]:out/sr:%g, ch:%d, layout:%llx, mbs:%d, list:%d",
      static_cast<double>(outRate), outChannels, static_cast<unsigned long long>(outLayout),
      maxBlock, static_cast<int>(effects.size()));

  const bool widthChanged = inChannels != input.channels || outChannels != output.channels;
  // A width above 64 keeps the old queue: no error reaches the host here.
  input.SetChannelCount(inChannels);
  output.SetChannelCount(outChannels);

  // The scratch must hold every channel the queues or effects can hand it;
  // no block ever carries more channels than a queue holds, so a count asked
  // beyond that allocates nothing for channels that can't be processed.
  maxChannels = std::min(std::max({maxChannels, input.channels, output.channels}), kMaxChannels);
  if (AllocBlockBuffers(maxChannels, maxBlock) != 0) return ONDREL_E_NOMEM;

  if (widthChanged) {
    Log(kLogInfo, "[ON2L]:Flushing IO");
    FlushBuffers();
  }
  return ONDREL_OK;
}

void ProcessingInstance::ApplyBypassPass() {
  if (effects.empty()) return;
  SetFormatModulators();
  for (size_t i = 0; i < effects.size();) {
    AudioEffect* fx = effects[i];
    SetSystemModulator("GV_FXBYPASSED", 0.0);
    fx->Resume();
    if (GetSystemModulator("GV_FXBYPASSED") != 0.0) {
      char name[64] = {0};
      fx->GetEffectName(name);
      Log(kLogInfo, "[ON2L]:FX:%s Bypassed", name);
      fx->Destroy();
      effects.erase(effects.begin() + static_cast<long>(i));
      continue;
    }
    ++i;
  }
}

int ProcessingInstance::KissEffectList() {
  Log(kLogInfo, "[ON2L]:KissEffectList:%d", static_cast<int>(effects.size()));
  ClearSystemModulators();
  ApplyBypassPass();
  if (TwoPassFlag()) {
    Log(kLogInfo, "[ON2L]:2-pass");
    ApplyBypassPass();
  }
  Log(kLogInfo, "[ON2L]:KissEffectList:%d", static_cast<int>(effects.size()));
  return ONDREL_OK;
}

namespace {

// Compares two parameters' value bytes and scripts. Returns true on a
// difference; `scriptDiffers` tells whether the script caused it.
bool ParamDiffers(AEffect* running, AEffect* fresh, int p, bool* scriptDiffers) {
  void* a = nullptr;
  void* b = nullptr;
  const int32_t sizeA = running->dispatcher(running, ONDREL_OP_GET_PARAM_DATA, p, 0, &a, 0.0f);
  const int32_t sizeB = fresh->dispatcher(fresh, ONDREL_OP_GET_PARAM_DATA, p, 0, &b, 0.0f);
  if (sizeA != sizeB) return true;
  if (sizeA > 0 &&
      (a == nullptr || b == nullptr || std::memcmp(a, b, static_cast<size_t>(sizeA)) != 0))
    return true;
  const char* scriptA = nullptr;
  const char* scriptB = nullptr;
  running->dispatcher(running, ONDREL_OP_GET_PARAM_SCRIPT, p, 0, &scriptA, 0.0f);
  fresh->dispatcher(fresh, ONDREL_OP_GET_PARAM_SCRIPT, p, 0, &scriptB, 0.0f);
  if (scriptA == scriptB) return false;
  if (scriptA != nullptr && scriptB != nullptr && std::strcmp(scriptA, scriptB) == 0) return false;
  *scriptDiffers = true;
  return true;
}

// The object behind handle `i` of the list if it may enter a chain: not
// null, not running in `running`, not a registry object, and not already
// named earlier in the list.
AudioEffect* Admissible(AEffect** list, int i, const std::vector<AudioEffect*>& running) {
  AudioEffect* object = list[i] != nullptr ? list[i]->object : nullptr;
  if (object == nullptr || IsRegistryObject(object)) return nullptr;
  if (std::find(running.begin(), running.end(), object) != running.end()) return nullptr;
  for (int k = 0; k < i; ++k)
    if (list[k] != nullptr && list[k]->object == object) return nullptr;
  return object;
}

}  // namespace

void DestroyHandedInEffects(AEffect** list, int count, const std::vector<AudioEffect*>& running) {
  // Collected first: a handle lives inside its object, so none may be read
  // once the first object is gone.
  std::vector<AudioEffect*> doomed;
  for (int i = 0; list != nullptr && i < count; ++i)
    if (AudioEffect* object = Admissible(list, i, running)) doomed.push_back(object);
  for (AudioEffect* object : doomed) object->Destroy();
}

int ProcessingInstance::SetParams(AEffect** list, int count) {
  bool& modchg = ModulatorChangedFlag();
  Log(kLogInfo, "[ON2L]:SetParams: %p, %d (current:%d), modchg=%d", static_cast<void*>(list), count,
      static_cast<int>(effects.size()), modchg ? 1 : 0);
  if (count < 0) count = 0;
  if (list == nullptr) count = 0;
  // A handle without an object, one of the running effects, a registry
  // object or a repeated object cannot enter a chain. The list is still the
  // library's: the handed-in objects are destroyed once each, nothing else,
  // and a pending modulator change stays pending.
  for (int i = 0; i < count; ++i) {
    if (Admissible(list, i, effects) != nullptr) continue;
    DestroyHandedInEffects(list, count, effects);
    return ONDREL_E_INVALID;
  }
  bool rebuild = modchg || count == 0 || count != static_cast<int>(effects.size());
  modchg = false;
  int changedEffect = -1;
  int changedParam = -1;
  bool scriptChanged = false;

  for (int i = 0; !rebuild && i < count; ++i) {
    AEffect* fresh = list[i];
    AEffect* running = effects[static_cast<size_t>(i)]->GetAEffect();
    int32_t typeA = 0;
    int32_t typeB = 0;
    running->dispatcher(running, ONDREL_OP_GET_EFFECT_TYPE, 0, 0, &typeA, 0.0f);
    fresh->dispatcher(fresh, ONDREL_OP_GET_EFFECT_TYPE, 0, 0, &typeB, 0.0f);
    if (typeA != typeB) {
      rebuild = true;
      break;
    }
    for (int p = 0; p < running->numParams; ++p) {
      if (!ParamDiffers(running, fresh, p, &scriptChanged)) continue;
      if (changedParam != -1 ||
          fresh->dispatcher(fresh, ONDREL_OP_PARAM_NEEDS_REBUILD, p, 0, nullptr, 0.0f) != 0) {
        rebuild = true;
        break;
      }
      changedEffect = i;
      changedParam = p;
    }
  }

  if (!rebuild) {
    int result = ONDREL_NOTHING_TO_DO;
    if (changedParam != -1) {
      AudioEffect* target = effects[static_cast<size_t>(changedEffect)];
      AEffect* source = list[changedEffect];
      for (int q = 0; q < source->numParams; ++q) {
        void* data = nullptr;
        const int32_t size =
            source->dispatcher(source, ONDREL_OP_GET_PARAM_DATA, q, 0, &data, 0.0f);
        target->SetParamData(q, data, size);
        const char* text = nullptr;
        source->dispatcher(source, ONDREL_OP_GET_PARAM_SCRIPT, q, 0, &text, 0.0f);
        if (text != nullptr) {
          // Overwritten at every parameter: what counts is whether the
          // effect's last parameter has a script. Deliberate.
          scriptChanged = text[0] != 0;
          target->SetParamScript(q, text);
        }
      }
      if (scriptChanged) {
        Log(kLogNotable, "[ON2L]:KissEffectList because of Script");
        result = KissEffectList();
      } else {
        Log(kLogTrace, "[ON2L]:FX %d is On the fly", changedEffect);
        result = 0;
      }
    }
    for (int i = 0; i < count; ++i) list[i]->object->Destroy();
    return result;
  }

  for (AudioEffect* fx : effects) fx->Destroy();
  effects.clear();
  for (int i = 0; i < count; ++i) effects.push_back(list[i]->object);
  Log(kLogInfo, "[ON2L]:UpdateCurrentEffectList");
  return ConfigureChain();
}

int ProcessingInstance::PumpInput(int* available) {
  while (input.Count() >= inputBlockSize && inputBlockSize > 0) {
    int got = 0;
    if (int rc = input.GetPlanar(blockVector, inputBlockSize, &got, 0)) return rc;
    if (int rc = RunChainBlock(blockVector, got)) return rc;
  }
  if (available != nullptr) *available = output.channels * output.Count();
  return ONDREL_OK;
}

int ProcessingInstance::AcceptHost(int count) {
  if (input.channels <= 0 || count % input.channels != 0) return ONDREL_E_INVALID;
  // The queue grows as if the whole buffer went in, so that a shortage of
  // memory shows before any block runs.
  return input.EnsureCapacity(input.Count() + count / input.channels);
}

template <typename Sample>
int ProcessingInstance::FeedHost(const Sample* samples, int count, int* available) {
  const int channels = input.channels;
  if (channels <= 0 || count % channels != 0) return ONDREL_E_INVALID;
  const int frames = count / channels;
  if (int rc = PumpInput(nullptr)) return rc;
  // Whole blocks are taken from the host's buffer without a stop in the
  // queue: what the queue holds first, then host frames behind it.
  const int block = inputBlockSize;
  int done = 0;
  if (block > 0 && static_cast<int>(blockVector.size()) >= channels && block <= maxBlockSize) {
    while (input.Count() + (frames - done) >= block) {
      int queued = 0;
      if (input.Count() > 0) input.GetPlanar(blockVector, block, &queued, 0);
      const int fresh = block - queued;
      const Sample* src = samples + static_cast<size_t>(done) * static_cast<size_t>(channels);
      if constexpr (sizeof(Sample) == 2)
        SampleFifo::Deinterleave16(src, channels, fresh, blockVector.data(), queued);
      else
        SampleFifo::DeinterleaveFloat(src, channels, fresh, blockVector.data(), queued);
      done += fresh;
      if (int rc = RunChainBlock(blockVector, block)) {
        // The block in flight is lost; the frames behind it wait in the
        // queue, as they would had the whole buffer been queued first.
        QueueHost(samples, channels, done, frames);
        return rc;
      }
    }
  }
  if (int rc = QueueHost(samples, channels, done, frames)) return rc;
  return PumpInput(available);
}

template <typename Sample>
int ProcessingInstance::QueueHost(const Sample* samples, int channels, int from, int frames) {
  const Sample* rest = samples + static_cast<size_t>(from) * static_cast<size_t>(channels);
  const int left = (frames - from) * channels;
  if constexpr (sizeof(Sample) == 2)
    return input.PutInterleaved16(rest, left);
  else
    return input.PutInterleavedFloat(rest, left);
}

template int ProcessingInstance::FeedHost<int16_t>(const int16_t*, int, int*);
template int ProcessingInstance::FeedHost<float>(const float*, int, int*);

int ProcessingInstance::RunChainBlock(const std::vector<float*>& vec, int frames) {
  if (effects.empty()) return output.PutPlanar(vec, frames, 0);
  const int n = effects[0]->GetChannels();
  for (size_t c = static_cast<size_t>(std::max(n, 0)); c < vec.size(); ++c)
    std::memset(vec[c], 0, sizeof(float) * static_cast<size_t>(frames));
  int32_t avail = 0;
  if (int rc = effects[0]->ProcessInput(vec, frames, &avail)) return rc;
  for (size_t i = 1; i < effects.size(); ++i) {
    for (;;) {
      avail = 0;
      if (int rc = effects[i - 1]->ProcessOutput(vec, maxBlockSize, &avail)) return rc;
      if (avail == 0) break;
      if (int rc = effects[i]->ProcessInput(vec, avail, &avail)) return rc;
    }
  }
  return DrainLastEffect(vec);
}

int ProcessingInstance::DrainLastEffect(const std::vector<float*>& vec) {
  AudioEffect* last = effects.back();
  // The last effect writes straight into the output ring where a block fits
  // there contiguously; channels beyond the queue's go to the scratch, as
  // they would through a copy. Otherwise it goes through the scratch.
  // The copy leaves the output in the chain's vector too, and the next run
  // reads channels of that vector that the host does not fill (from
  // input.channels up). So the ring takes the output directly only where
  // every channel of `output` is one the host overwrites, and where the
  // effect's own output queue covers all of them (one with fewer, its count
  // changed while streaming, leaves scratch contents in the others).
  const size_t direct = static_cast<size_t>(std::max(output.channels, 0));
  const auto* adapter = dynamic_cast<const IOndrel2*>(last);
  const bool covers = adapter != nullptr && adapter->outFifo.channels >= output.channels &&
                      output.channels <= input.channels;
  for (;;) {
    bool fits = false;
    if (covers && direct <= vec.size() && direct > 0 && ringVector.size() == vec.size()) {
      if (int rc = output.ReserveContiguous(maxBlockSize, &fits)) return rc;
    }
    int32_t avail = 0;
    if (fits) {
      for (size_t c = 0; c < vec.size(); ++c)
        ringVector[c] = c < direct ? output.buffers[c] + output.writePos : vec[c];
      if (int rc = last->ProcessOutput(ringVector, maxBlockSize, &avail)) return rc;
      if (avail <= 0) return ONDREL_OK;
      output.CommitWrite(avail);
    } else {
      if (int rc = last->ProcessOutput(vec, maxBlockSize, &avail)) return rc;
      if (avail <= 0) return ONDREL_OK;
      if (int rc = output.PutPlanar(vec, avail, 0)) return rc;
    }
  }
}

void ProcessingInstance::FlushBuffers() {
  for (AudioEffect* fx : effects) fx->ClearBuffers();
  input.Clear();
  output.Clear();
}

int ProcessingInstance::DrainChain(int* available) {
  int dummy = 0;
  if (available == nullptr) available = &dummy;
  *available = 0;
  if (effects.empty()) return ONDREL_OK;
  int got = 0;
  if (int rc = input.GetPlanar(blockVector, maxBlockSize, &got, 0)) return rc;
  int32_t ignored = 0;
  if (int rc = effects[0]->ProcessInput(blockVector, got, &ignored)) return rc;
  for (size_t i = 0; i < effects.size(); ++i) {
    if (*available > 0) {
      do {
        int32_t n = 0;
        if (int rc = effects[i - 1]->ProcessOutput(blockVector, maxBlockSize, &n)) return rc;
        *available = n;
        if (n == 0) break;
        if (int rc = effects[i]->ProcessInput(blockVector, n, &ignored)) return rc;
      } while (*available > 0);
    }
    int32_t tail = 0;
    if (int rc = effects[i]->FlushTail(&tail)) return rc;
    *available = tail;
  }
  int32_t n = 0;
  do {
    n = 0;
    if (int rc = effects.back()->ProcessOutput(blockVector, maxBlockSize, &n)) return rc;
    if (int rc = output.PutPlanar(blockVector, n, 0)) return rc;
  } while (n > 0);
  *available = output.channels * output.Count();
  return ONDREL_OK;
}

}  // namespace ONDREL2
