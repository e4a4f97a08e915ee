// The table of built effect types, as the catalogue sees it. The table itself
// is defined with the effects (from the effect list), so that the framework
// knows no effect class.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ONDREL2 {

class AudioEffect;

struct EffectTypeRow {
  int32_t type;              // ONDREL_EFFECT_TYPE value
  const char* shortName;     // stable machine name ("limiter")
  AudioEffect* (*create)();  // a new object, or null when memory runs out
};

// The rows, in ascending type order, and their count.
const EffectTypeRow* EffectTypeRows(size_t* count);
// The row of `type`, or null for a type that is not built.
const EffectTypeRow* FindEffectType(int32_t type);

}  // namespace ONDREL2
