// Parameter stream: a list of effects with all parameter values and scripts
// as one FlatBuffers buffer (schema frame/param_stream.fbs), and back.
//
// The exported functions ondrel_params2stream, ondrel_stream2params,
// ondrel_destroy_paramstream and ondrel_destroy_params are declared in
// ondrel.h; this header holds the format's version numbers.
#pragma once

#include <cstdint>

namespace ONDREL2 {

// The base format, and the least version a writer stores.
constexpr int32_t kParamStreamBaseVersion = 2;
// The newest format this library reads (3 and 4 mark newer effects or
// script forms); streams above it are refused with 1000.
constexpr int32_t kParamStreamMaxVersion = 4;
// Below this, `value` holds a normalised float instead of raw bytes.
constexpr int32_t kParamStreamRawValueVersion = 2;

}  // namespace ONDREL2
