// Fuzz bodies for the expression evaluator and the script interpreter,
// shared by the libFuzzer entry points and the corpus replay test.
// Each returns false on a finding that is not a crash (a broken invariant);
// crashes and memory errors are left to the sanitizers.
#pragma once

#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "frame/log.h"
#include "frame/modulators.h"
#include "framework/expression.h"
#include "framework/script.h"
#include "ondrel.h"

namespace ondrel_fuzz {

// Formats every log line into a scratch buffer: the format strings and
// their arguments are exercised without writing anything.
inline void FormatLog(int, const char* format, ...) {
  static char buffer[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
}

// Routes the library log to FormatLog for its lifetime.
class QuietLog {
 public:
  QuietLog() : saved_(ONDREL2::GetLogState()) {
    ONDREL2::GetLogState().handler = &FormatLog;
    ONDREL2::GetLogState().threshold = 2;
  }
  ~QuietLog() { ONDREL2::GetLogState() = saved_; }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

 private:
  ONDREL2::LogState saved_;
};

inline double FuzzTwice(double a) { return 2.0 * a; }
inline double FuzzScale(double a, double b, void* context) {
  return (a + b) * *static_cast<double*>(context);
}
inline double FuzzCounter() {
  static double calls = 0;
  return ++calls;
}

// Parses the bytes as one line with a small caller table (two variables, a
// pure function, a pure closure, a stateful function), then checks that the
// stop position lies in the text and that folding does not change a result
// when the line calls nothing stateful.
inline bool FuzzExpression(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  QuietLog quiet;
  static double x = 1.5;
  static double y = -2.0;
  static double factor = 0.5;
  const ONDREL2::xvariable table[] = {
      {"x", &x, ONDREL2::TE_VARIABLE, nullptr},
      {"y", &y, ONDREL2::TE_VARIABLE, nullptr},
      {"twice", reinterpret_cast<void*>(&FuzzTwice),
       ONDREL2::TE_FUNCTION0 + 1 + ONDREL2::TE_FLAG_PURE, nullptr},
      {"scale", reinterpret_cast<void*>(&FuzzScale),
       ONDREL2::TE_CLOSURE0 + 2 + ONDREL2::TE_FLAG_PURE, &factor},
      {"count", reinterpret_cast<void*>(&FuzzCounter), ONDREL2::TE_FUNCTION0 + 0, nullptr},
  };
  const int count = static_cast<int>(sizeof(table) / sizeof(table[0]));

  double results[2] = {0.0, 0.0};
  for (int pass = 0; pass < 2; ++pass) {
    ONDREL2::te_state state{};
    state.start = text.c_str();
    state.lookup = table;
    state.lookup_len = count;
    ONDREL2::te_node* root = ONDREL2::te_parse(&state);
    if (root == nullptr) return false;
    const char* end = text.c_str() + std::strlen(text.c_str());
    if (state.next < state.start || state.next > end) {
      ONDREL2::te_free(root);
      return false;
    }
    const bool ok = state.type == ONDREL2::TE_TOK_END;
    if (ok && pass == 1) ONDREL2::te_fold(root);
    results[pass] = ok ? ONDREL2::te_eval(root) : 0.0;
    ONDREL2::te_free(root);
    if (!ok) return true;
  }
  if (text.find("count") != std::string::npos) return true;
  const bool same = results[0] == results[1] || (std::isnan(results[0]) && std::isnan(results[1]));
  return same;
}

// Scripts that jump can loop for ever by design; inputs with a goto line
// marker are therefore skipped. The memory functions are bounded and fuzzed.
inline bool ScriptInputAccepted(const std::string& text) {
  return text.find('>') == std::string::npos;
}

inline void IgnoreScriptError(const char*) {}

// Runs the bytes as a script (text up to the first NUL; the first byte also
// picks the input value) and restores both modulator stores afterwards, so
// that every input starts from the same state.
inline bool FuzzScript(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!ScriptInputAccepted(text)) return true;
  const float in = size > 0 ? static_cast<float>(data[0]) / 16.0f : 0.0f;

  QuietLog quiet;
  const ONDREL2::ModulatorMap savedUser = ONDREL2::UserModulators();
  const ONDREL2::ModulatorMap savedSystem = ONDREL2::SystemModulators();
  const bool savedTwoPass = ONDREL2::TwoPassFlag();
  ONDREL2::ondrel_set_script_error_handler(&IgnoreScriptError);

  const float result = ONDREL2::RunScript(text.c_str(), in);
  const double out = ONDREL2::get_modulator_user("out");
  // The result is the value the script left in the user store.
  const bool ok = static_cast<float>(out) == result || (std::isnan(out) && std::isnan(result));

  ONDREL2::ondrel_set_script_error_handler(nullptr);
  ONDREL2::UserModulators() = savedUser;
  ONDREL2::SystemModulators() = savedSystem;
  ONDREL2::TwoPassFlag() = savedTwoPass;
  return ok;
}

}  // namespace ondrel_fuzz
