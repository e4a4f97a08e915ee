// Captures the library's log lines for assertions.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ondrel.h"

namespace ondrel_test {

struct LogLine {
  int level;
  std::string text;
};

inline std::vector<LogLine>& CapturedLog() {
  static std::vector<LogLine> lines;
  return lines;
}

inline void CaptureHandler(int level, const char* format, ...) {
  char buf[2048];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  CapturedLog().push_back({level, buf});
}

// Installs the capturing handler at `threshold` for its lifetime; restores a
// silent threshold afterwards.
class LogCapture {
 public:
  explicit LogCapture(int threshold = 2) {
    CapturedLog().clear();
    set_xlog_handler(&CaptureHandler);
    set_xlog_level(threshold);
  }
  ~LogCapture() {
    set_xlog_level(7);
    CapturedLog().clear();
  }
  const std::vector<LogLine>& lines() const { return CapturedLog(); }
  void clear() { CapturedLog().clear(); }
  bool Has(const std::string& text) const {
    for (const LogLine& l : CapturedLog())
      if (l.text == text) return true;
    return false;
  }
  int Count(const std::string& text) const {
    int n = 0;
    for (const LogLine& l : CapturedLog())
      if (l.text == text) ++n;
    return n;
  }
};

// Keeps the library quiet during a test binary run.
inline void SilenceLog() {
  set_xlog_handler(&CaptureHandler);
  set_xlog_level(7);
}

}  // namespace ondrel_test
