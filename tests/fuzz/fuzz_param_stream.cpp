// libFuzzer target for the parameter stream reader: the input bytes are
// read as a stream, and whatever list comes back is destroyed with its
// effects. An unknown parameter name (out_of_range) is an expected outcome.
// Broken invariants of the result trap; memory errors and leaks are left to
// the sanitizers.
//
// Build with clang: -fsanitize=fuzzer,address,undefined, linked with the
// library built by clang with -fsanitize=fuzzer-no-link,address,undefined
// (the generated param_stream_generated.h is not needed here). The
// corpus replay test includes this file with
// ONDREL_FUZZ_PARAM_STREAM_NO_ENTRY defined and calls RunOnce.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "ondrel.h"

namespace fuzz_param_stream {

// Reads `data` as a parameter stream; returns the status (-1 for the
// out_of_range of an unknown name).
inline int RunOnce(const uint8_t* data, size_t size) {
  if (size > (1u << 24)) return 2000;
  // The stream's text can't be longer than the stream.
  std::vector<char> text(size + 1, 0);
  ONDREL2::AEffect** list = nullptr;
  int count = -1;
  int status;
  try {
    status =
        ONDREL2::ondrel_stream2params(&list, &count, data, static_cast<int>(size), text.data());
  } catch (const std::out_of_range&) {
    if (list != nullptr || count != 0) __builtin_trap();
    return -1;
  }
  switch (status) {
    case 0:
      if (list == nullptr || count < 0) __builtin_trap();
      for (int i = 0; i < count; ++i) {
        if (list[i] == nullptr || list[i]->object == nullptr) __builtin_trap();
      }
      break;
    case 1000:  // too new keeps the count, the others clear it
    case 2000:
    case 2001:
      if (list != nullptr) __builtin_trap();
      if (status != 1000 && count != 0) __builtin_trap();
      break;
    default: __builtin_trap();
  }
  ONDREL2::ondrel_destroy_params(list, count, true);
  return status;
}

}  // namespace fuzz_param_stream

#ifndef ONDREL_FUZZ_PARAM_STREAM_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  set_xlog_level(7);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_param_stream::RunOnce(data, size);
  return 0;
}
#endif
