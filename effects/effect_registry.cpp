// The factory rows of every built effect type, expanded from the effect list.
#include "effect_list_headers.h"  // generated: the headers the rows name
#include "framework/alloc.h"
#include "framework/effect_types.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

template <typename T>
AudioEffect* Make() {
  return NewObject<T>();
}

const EffectTypeRow kRows[] = {
#define ONDREL_EFFECT(type, name, cls, header) {type, name, &Make<cls>},
#include "effects/effect_list.inc"
#undef ONDREL_EFFECT
};

constexpr size_t kRowCount = sizeof(kRows) / sizeof(kRows[0]);

}  // namespace

const EffectTypeRow* EffectTypeRows(size_t* count) {
  if (count != nullptr) *count = kRowCount;
  return kRows;
}

const EffectTypeRow* FindEffectType(int32_t type) {
  for (const EffectTypeRow& row : kRows)
    if (row.type == type) return &row;
  return nullptr;
}

}  // namespace ONDREL2
