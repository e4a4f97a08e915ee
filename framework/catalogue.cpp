#include "framework/catalogue.h"

#include <map>
#include <new>

#include "effects/amplifier/amplifier.h"
#include "effects/limiter/limiter.h"
#include "effects/compressor/multiband_compressor.h"
#include "effects/deesser/deesser.h"
#include "effects/through/through.h"

namespace ONDREL2 {
namespace {

using Registry = std::map<int32_t, AudioEffect*>;

Registry*& RegistryPtr() {
  static Registry* registry = nullptr;
  return registry;
}

template <typename T>
AudioEffect* Make() {
  return new (std::nothrow) T();
}

constexpr const char* kShortNames[41] = {
    nullptr,      "through",      "studio-ir",   "chaos",        "amplifier",  "rotator",
    "limiter",    "sampler",      "eq30",        "exciter",      "resampler",  "stereo-enhancer",
    "delay",      "eq10",         "fidelity",    "dfx-hyperbass", "dfx-3dsurround", "dfx-headphone",
    "ambience",   "dynamicboost", "reverb",      "vocal",        "hyperbass",  "mbc",
    "supereq",    "headphone",    "panner",      "mono2dual",    "pitch",      "lowpass",
    "highpass",   "bandpass",     "notch",       "lowshelf",     "highshelf",  "peak",
    "allpass",    "deesser",      "vbass",       "growl",        "two2six"};

}  // namespace

AudioEffect* CreateEffectObject(int type) {
  switch (type) {
    case EFFECT_THROUGH:
      return Make<THROUGH::ThroughEffect>();
    case EFFECT_AMPLIFIER:
      return Make<AMPLIFIER::AmplifierEffect>();
    case EFFECT_LIMITER: return Make<LIMITER::LimiterEffect>();
    case EFFECT_MULTIBAND_COMPRESSOR: return Make<COMPRESSOR::MultiBandCompressorEffect>();
    case EFFECT_DEESSER: return Make<DEESSER_EFFECT::DeEsserEffect>();
    default:
      return nullptr;
  }
}

const char* EffectShortName(int type) {
  if (type < 1 || type > 40) return nullptr;
  return kShortNames[type];
}

bool EnsureRegistry() {
  Registry*& registry = RegistryPtr();
  if (registry == nullptr) registry = new (std::nothrow) Registry();
  return registry != nullptr;
}

void DestroyRegistry() {
  if (!EnsureRegistry()) return;
  Registry*& registry = RegistryPtr();
  for (auto& kv : *registry) delete kv.second;
  registry->clear();
  delete registry;
  registry = nullptr;
}

int ondrel_create_effect(ONDREL_EFFECT_TYPE type, AEffect** effect) {
  EnsureRegistry();
  AudioEffect* object = CreateEffectObject(type);
  if (effect != nullptr) *effect = object != nullptr ? object->GetAEffect() : nullptr;
  if (object == nullptr) return 2000;
  if (effect == nullptr) {
    // Nowhere to hand the object to: don't leak it.
    delete object;
    return 2000;
  }
  return 0;
}

int ondrel_get_existing_effect(ONDREL_EFFECT_TYPE type, AEffect** effect) {
  if (!EnsureRegistry()) {
    if (effect != nullptr) *effect = nullptr;
    return 2000;
  }
  Registry& registry = *RegistryPtr();
  auto it = registry.find(type);
  AudioEffect* object = nullptr;
  if (it != registry.end()) {
    object = it->second;
  } else {
    object = CreateEffectObject(type);
    if (object != nullptr) registry[type] = object;
  }
  if (effect != nullptr) *effect = object != nullptr ? object->GetAEffect() : nullptr;
  return object != nullptr ? 0 : 2000;
}

int ondrel_destroy_effect(AEffect* effect) {
  if (effect != nullptr && effect->object != nullptr) delete effect->object;
  return 0;
}

}  // namespace ONDREL2
