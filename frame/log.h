// Library logging: one process-wide handler and threshold.
//
// A message goes to the handler as handler(level, format, args...) when the
// threshold is not above its level. Levels: 3 trace, 4 information,
// 5 notable event, 6 error. Every message of the library starts with
// "[ON2L]:" and has no trailing newline.
#pragma once

#include "ondrel.h"

namespace ONDREL2 {

using LogHandler = void (*)(int level, const char* format, ...);

struct LogState {
  LogHandler handler;
  int threshold;
};

LogState& GetLogState();

template <typename... Args>
inline void Log(int level, const char* format, Args... args) {
  LogState& state = GetLogState();
  if (state.threshold <= level) state.handler(level, format, args...);
}

enum LogLevel { kLogTrace = 3, kLogInfo = 4, kLogNotable = 5, kLogError = 6 };

}  // namespace ONDREL2
