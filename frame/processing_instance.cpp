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
      outRate = fx->GetSampleRate();
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
  avail = 0;
  if (int rc = effects.back()->ProcessOutput(vec, maxBlockSize, &avail)) return rc;
  while (avail > 0) {
    if (int rc = output.PutPlanar(vec, avail, 0)) return rc;
    avail = 0;
    if (int rc = effects.back()->ProcessOutput(vec, maxBlockSize, &avail)) return rc;
  }
  return ONDREL_OK;
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
