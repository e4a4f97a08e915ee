#include "effects/through/through.h"
#include "framework/alloc.h"

#include <new>

namespace ONDREL2 {
namespace THROUGH {

ThroughEffect::ThroughEffect() { effectType = EFFECT_THROUGH; }

ThroughEffect::~ThroughEffect() = default;

AudioEffect* ThroughEffect::CreateInstance() { return NewObject<ThroughEffect>(); }

}  // namespace THROUGH
}  // namespace ONDREL2
