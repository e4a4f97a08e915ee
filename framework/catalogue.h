// The effect catalogue: the factory for the 40 effect types and the
// process-wide registry of shared objects that hosts query for parameter
// tables.
#pragma once

#include "framework/audio_effect.h"
#include "ondrel.h"

namespace ONDREL2 {

// A new object of `type`, or null for an unknown or not yet built type, or
// when memory runs out.
AudioEffect* CreateEffectObject(int type);

// Creates the registry if absent; false if that fails.
bool EnsureRegistry();
// Deletes every registry object (in type order) and the registry.
void DestroyRegistry();
// Whether `object` is one of the registry's shared objects, which the
// library owns and which must never enter a chain or be deleted by a host.
bool IsRegistryObject(const AudioEffect* object);

}  // namespace ONDREL2
