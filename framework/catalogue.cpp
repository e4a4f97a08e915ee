#include "framework/catalogue.h"

#include <map>
#include <new>

#include "effects/amplifier/amplifier.h"
#include "effects/biquad/biquad_effects.h"
#include "effects/compressor/multiband_compressor.h"
#include "effects/deesser/deesser.h"
#include "effects/eq/eqfb.h"
#include "effects/limiter/limiter.h"
#include "effects/supereq/supereq.h"
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

}  // namespace

AudioEffect* CreateEffectObject(int type) {
  // Types not listed are not built yet: they behave as unknown types.
  switch (type) {
    case EFFECT_THROUGH: return Make<THROUGH::ThroughEffect>();
    case EFFECT_AMPLIFIER: return Make<AMPLIFIER::AmplifierEffect>();
    case EFFECT_LIMITER: return Make<LIMITER::LimiterEffect>();
    case EFFECT_IIR_EQ30: return Make<IIR_EQ_FIXED_BANDS::IirEQ30Effect>();
    case EFFECT_IIR_EQ10: return Make<IIR_EQ_FIXED_BANDS::IirEQ10Effect>();
    case EFFECT_MULTIBAND_COMPRESSOR: return Make<COMPRESSOR::MultiBandCompressorEffect>();
    case EFFECT_SUPEREQ: return Make<SUPEREQ::SuperEQEffect>();
    case EFFECT_LP_FILTER: return Make<BIQUADFILTER::LPFilterEffect>();
    case EFFECT_HP_FILTER: return Make<BIQUADFILTER::HPFilterEffect>();
    case EFFECT_BP_FILTER: return Make<BIQUADFILTER::BPFilterEffect>();
    case EFFECT_NT_FILTER: return Make<BIQUADFILTER::NTFilterEffect>();
    case EFFECT_LS_FILTER: return Make<BIQUADFILTER::LSFilterEffect>();
    case EFFECT_HS_FILTER: return Make<BIQUADFILTER::HSFilterEffect>();
    case EFFECT_PK_FILTER: return Make<BIQUADFILTER::PKFilterEffect>();
    case EFFECT_AP_FILTER: return Make<BIQUADFILTER::APFilterEffect>();
    case EFFECT_DEESSER: return Make<DEESSER_EFFECT::DeEsserEffect>();
    default: return nullptr;
  }
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

bool IsRegistryObject(const AudioEffect* object) {
  const Registry* registry = RegistryPtr();
  if (registry == nullptr || object == nullptr) return false;
  for (const auto& kv : *registry)
    if (kv.second == object) return true;
  return false;
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
  // A registry object stays: the registry deletes it at ondrel_uninit.
  if (effect != nullptr && effect->object != nullptr && !IsRegistryObject(effect->object))
    delete effect->object;
  return 0;
}

}  // namespace ONDREL2
