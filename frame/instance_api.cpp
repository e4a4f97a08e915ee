// The exported instance functions and ondrel_set_modulator. Every function
// checks its instance pointer before use.
#include <cmath>
#include <cstring>
#include <new>

#include "frame/log.h"
#include "frame/modulators.h"
#include "frame/processing_instance.h"
#include "framework/alloc.h"
#include "framework/audio_effect.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

inline ProcessingInstance* Inst(void* instance) {
  return static_cast<ProcessingInstance*>(instance);
}

// A modulator changed with no instance named: refresh this instance's
// scripts before it processes.
void ServeModulatorChange(ProcessingInstance* inst) {
  bool& flag = ModulatorChangedFlag();
  if (flag) {
    flag = false;
    inst->KissEffectList();
  }
}

template <typename Sample>
int ProcessInput(void* instance, const Sample* samples, int count, int* available) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  ServeModulatorChange(inst);
  if (inst->effects.empty()) {
    // The host's own buffer is the output.
    if (available != nullptr) *available = count;
    return ONDREL_OK;
  }
  if (count < 0 || (samples == nullptr && count > 0)) return ONDREL_E_INVALID;
  if (count == 0) {
    if (available != nullptr) *available = inst->output.channels * inst->output.Count();
    return ONDREL_OK;
  }
  int dummy = 0;
  if (available == nullptr) available = &dummy;
  // A buffer the queue refuses (not whole frames, no memory) is not retried.
  if (int rc = inst->AcceptHost(count)) return rc;
  if (inst->FeedHost(samples, count, available) == 0) return ONDREL_OK;
  // The one recovery: drop what was queued and give this buffer a second
  // chance.
  inst->input.Clear();
  return inst->FeedHost(samples, count, available);
}

}  // namespace

void* ondrel_create_inst() {
  ProcessingInstance* inst = NewObject<ProcessingInstance>();
  if (inst == nullptr) return nullptr;
  if (inst->input.SetChannelCount(1) != 0 || inst->output.SetChannelCount(1) != 0 ||
      inst->ConfigureChain() != 0) {
    delete inst;
    return nullptr;
  }
  return inst;
}

void ondrel_destroy_inst(void* instance) { delete Inst(instance); }

int ondrel_setup_input(void* instance, int channels, uint64_t layout) {
  Log(kLogInfo, "[ON2L]:setup_input: %p, %d", instance, channels);
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  // No channels is no stream: refused, the format stays as it was.
  if (channels < 1) return ONDREL_E_INVALID;
  inst->inChannels = channels;
  inst->inLayout = layout;
  return inst->ConfigureChain();
}

int ondrel_set_samplerate(void* instance, float rate) {
  Log(kLogInfo, "[ON2L]:set_samplerate: %p, %g", instance, static_cast<double>(rate));
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  // A rate that is not a positive number, or beyond any audio format, is
  // refused; the format stays.
  if (!ProcessingInstance::UsableRate(rate)) return ONDREL_E_INVALID;
  // The same rate again changes nothing, so the chain is left as it is.
  if (rate == inst->inRate) return ONDREL_OK;
  inst->inRate = rate;
  return inst->ConfigureChain();
}

int ondrel_get_samplerate(void* instance, float* rate) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  if (rate != nullptr) *rate = inst->outRate;
  return ONDREL_OK;
}

int ondrel_get_in_chns(void* instance, int* channels, uint64_t* layout) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  if (channels != nullptr) *channels = inst->inChannels;
  if (layout != nullptr) *layout = inst->inLayout;
  Log(kLogInfo, "[ON2L]:get_in_chns: %p, %d, %llx", instance, inst->inChannels,
      static_cast<unsigned long long>(inst->inLayout));
  return ONDREL_OK;
}

int ondrel_get_out_chns(void* instance, int* channels, uint64_t* layout) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  if (channels != nullptr) *channels = inst->outChannels;
  if (layout != nullptr) *layout = inst->outLayout;
  Log(kLogInfo, "[ON2L]:get_out_chns: %p, %d, %llx", instance, inst->outChannels,
      static_cast<unsigned long long>(inst->outLayout));
  return ONDREL_OK;
}

int ondrel_set_params(void* instance, AEffect** effects, int count) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) {
    // The handles are the library's in every outcome.
    DestroyHandedInEffects(effects, count, {});
    return ONDREL_E_INVALID;
  }
  return inst->SetParams(effects, count);
}

int ondrel_get_params(void* instance, AEffect** out, int capacity, int* count) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  const int length = static_cast<int>(inst->effects.size());
  if (count != nullptr) *count = length;
  if (out == nullptr || capacity < length) return ONDREL_E_NOMEM;
  for (int i = 0; i < length; ++i) out[i] = inst->effects[static_cast<size_t>(i)]->GetAEffect();
  return ONDREL_OK;
}

int ondrel_process_input(void* instance, int16_t* samples, int count, int* available) {
  return ProcessInput<int16_t>(instance, samples, count, available);
}

int ondrel_processf_input(void* instance, float* samples, int count, int* available) {
  return ProcessInput<float>(instance, samples, count, available);
}

int ondrel_process_output(void* instance, int16_t* samples, int count, int* written) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  if (inst->effects.empty()) {
    if (written != nullptr) *written = count;
    return ONDREL_OK;
  }
  if (samples == nullptr || count < 0) count = 0;
  int got = 0;
  const int rc = inst->output.GetInterleaved16(samples, count, &got);
  if (written != nullptr) *written = got;
  return rc;
}

int ondrel_processf_output(void* instance, float* samples, int count, int* written) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_E_INVALID;
  // With an empty chain *written stays as the host set it.
  if (inst->effects.empty()) return ONDREL_OK;
  if (samples == nullptr || count < 0) count = 0;
  int got = 0;
  const int rc = inst->output.GetInterleavedFloat(samples, count, &got);
  if (written != nullptr) *written = got;
  return rc;
}

void ondrel_flush_out(void* instance) {
  ProcessingInstance* inst = Inst(instance);
  if (inst != nullptr) inst->FlushBuffers();
}

int ondrel_flush_to_buf(void* instance, int* available) {
  ProcessingInstance* inst = Inst(instance);
  if (inst == nullptr) return ONDREL_OK;
  return inst->DrainChain(available);
}

int ondrel_set_modulator(void* instance, const char* key, double value) {
  if (key == nullptr) return ONDREL_OK;
  Log(kLogInfo, "[ON2L]:set_modulator: %s, %g", key, value);
  if (std::strcmp(key, "GEAR_PRICE") == 0) {
    // The host's price is squeezed into 400000..500000.
    double v = value < 150000.0 ? 150000.0 : (value > 500000.0 ? 500000.0 : value);
    value = (v - 150000.0) / 350000.0 * 100000.0 + 400000.0;
  }
  if (std::strcmp(key, "GENRE_ZKV") == 0) {
    const double t = std::trunc(value);
    const int index = (t >= 0.0 && t <= 62.0) ? static_cast<int>(t) : 0;
    ondrel_set_modulator(instance, "GENRE", GenreOfZkv(index));
  }
  if (get_modulator_user(key) == value) return ONDREL_OK;
  set_modulator_user(key, value);
  if (instance != nullptr) {
    ModulatorChangedFlag() = false;
    Inst(instance)->KissEffectList();
  } else {
    ModulatorChangedFlag() = true;
  }
  return ONDREL_OK;
}

}  // namespace ONDREL2
