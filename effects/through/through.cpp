#include "effects/through/through.h"

#include <new>

namespace ONDREL2 {
namespace THROUGH {

ThroughEffect::ThroughEffect() { effectType = EFFECT_THROUGH; }

ThroughEffect::~ThroughEffect() = default;

AudioEffect* ThroughEffect::CreateInstance() { return new (std::nothrow) ThroughEffect(); }

}  // namespace THROUGH
}  // namespace ONDREL2
