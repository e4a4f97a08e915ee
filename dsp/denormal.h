// The denormal guard of the dynamics effects: at the end of each block,
// envelopes and filter states smaller in magnitude than kDenormalCut are set
// to 0, so that a decaying state never reaches the slow denormal range.
#pragma once

#include <cmath>

namespace ONDREL2 {

constexpr float kDenormalCut = 1e-10f;

// True when `v` is below the cut in magnitude (and would be set to 0).
inline bool BelowDenormalCut(float v) { return std::fabs(v) < kDenormalCut; }

// Sets `v` to 0 when it is below the cut in magnitude.
inline void CutDenormal(float& v) {
  if (BelowDenormalCut(v)) v = 0.0f;
}

}  // namespace ONDREL2
