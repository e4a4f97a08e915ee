// libFuzzer entry point for the parameter script interpreter.
#include <cstdlib>

#include "script_fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!ondrel_fuzz::FuzzScript(data, size)) std::abort();
  return 0;
}
