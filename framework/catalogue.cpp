#include "framework/catalogue.h"

#include <map>
#include <new>

#include "framework/alloc.h"
#include "framework/effect_types.h"

namespace ONDREL2 {
namespace {

using Registry = std::map<int32_t, AudioEffect*>;

Registry*& RegistryPtr() {
  static Registry* registry = nullptr;
  return registry;
}

}  // namespace

AudioEffect* CreateEffectObject(int type) {
  // A type without a row in the effect list is not built: unknown.
  const EffectTypeRow* row = FindEffectType(type);
  return row != nullptr ? row->create() : nullptr;
}

bool EnsureRegistry() {
  Registry*& registry = RegistryPtr();
  if (registry == nullptr) registry = NewObject<Registry>();
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
  if (object == nullptr) return ONDREL_E_INVALID;
  if (effect == nullptr) {
    // Nowhere to hand the object to: don't leak it.
    delete object;
    return ONDREL_E_INVALID;
  }
  return ONDREL_OK;
}

int ondrel_get_existing_effect(ONDREL_EFFECT_TYPE type, AEffect** effect) {
  if (!EnsureRegistry()) {
    if (effect != nullptr) *effect = nullptr;
    return ONDREL_E_INVALID;
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
  return object != nullptr ? 0 : ONDREL_E_INVALID;
}

int ondrel_destroy_effect(AEffect* effect) {
  // A registry object stays: the registry deletes it at ondrel_uninit.
  if (effect != nullptr && effect->object != nullptr && !IsRegistryObject(effect->object))
    delete effect->object;
  return ONDREL_OK;
}

}  // namespace ONDREL2
