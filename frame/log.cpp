#include "frame/log.h"

#include <cstdarg>
#include <cstdio>

namespace ONDREL2 {
namespace {

// Passes the format and its arguments to standard output and adds nothing:
// no level, no time, no line end.
void StdoutHandler(int /*level*/, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
}

}  // namespace

LogState& GetLogState() {
  static LogState state{&StdoutHandler, 4};
  return state;
}

}  // namespace ONDREL2

void set_xlog_handler(void (*handler)(int level, const char* format, ...)) {
  // A null handler would crash the next log site; keep the current one.
  if (handler == nullptr) return;
  ONDREL2::GetLogState().handler = handler;
}

void set_xlog_level(int level) { ONDREL2::GetLogState().threshold = level < 2 ? 2 : level; }
