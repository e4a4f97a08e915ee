#include <gtest/gtest.h>

#include <set>
#include <string>

#include "framework/effect_types.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

// Every row of the effect list builds an effect that reports its own type,
// under a unique short name; a type without a row is unknown.
TEST(EffectList, EveryRowCreatesItsTypeUnderAUniqueName) {
  size_t count = 0;
  const EffectTypeRow* rows = EffectTypeRows(&count);
  ASSERT_GT(count, 0u);
  std::set<std::string> names;
  std::set<int32_t> types;
  for (size_t i = 0; i < count; ++i) {
    const EffectTypeRow& row = rows[i];
    SCOPED_TRACE(row.shortName);
    EXPECT_TRUE(names.insert(row.shortName).second) << "duplicate short name";
    EXPECT_TRUE(types.insert(row.type).second) << "duplicate type";
    EXPECT_TRUE(row.type >= 1 && row.type <= 40);
    if (i > 0) {
      EXPECT_LT(rows[i - 1].type, row.type) << "rows out of type order";
    }
    EXPECT_EQ(FindEffectType(row.type), &row);

    AEffect* fx = nullptr;
    ASSERT_EQ(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(row.type), &fx), ONDREL_OK);
    ASSERT_NE(fx, nullptr);
    int32_t reported = 0;
    fx->dispatcher(fx, ONDREL_OP_GET_EFFECT_TYPE, 0, 0, &reported, 0.0f);
    EXPECT_EQ(reported, row.type);
    ondrel_destroy_effect(fx);
  }
  for (int32_t type = 0; type <= 41; ++type) {
    if (types.count(type) != 0) continue;
    AEffect* fx = reinterpret_cast<AEffect*>(1);
    EXPECT_EQ(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(type), &fx), ONDREL_E_INVALID);
    EXPECT_EQ(fx, nullptr) << "type " << type;
    EXPECT_EQ(FindEffectType(type), nullptr);
  }
}

}  // namespace
}  // namespace ONDREL2
