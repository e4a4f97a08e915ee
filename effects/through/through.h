// ThroughEffect: the smallest effect. It overrides nothing of substance, so
// audio passes the adapter's queues unchanged with one block (512 frames)
// of delay. Useful as a placeholder in a list. No parameters, no name.
#pragma once

#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace THROUGH {

class ThroughEffect : public IOndrel2 {
 public:
  ThroughEffect();
  ~ThroughEffect() override;
  AudioEffect* CreateInstance() override;
};

}  // namespace THROUGH
}  // namespace ONDREL2
