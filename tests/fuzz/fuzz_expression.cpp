// libFuzzer entry point for the expression evaluator.
#include <cstdlib>

#include "script_fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!ondrel_fuzz::FuzzExpression(data, size)) std::abort();
  return 0;
}
