// Parameter script interpreter ("xq" in the log).
//
// A script is a few lines of text; every line is one of:
//   :name        label: `name` becomes a user modulator holding the line's
//                index; does nothing when reached
//   #name=expr   definition: `name` is a system modulator and gets the value
//   #name        declaration: creates `name` at 0 if absent
//   >expr        goto: to the line after the label whose index `expr`
//                gives; a negative value asks for a second configuring pass
//   expr         expression: its value goes to `out`
// Empty lines do not count. Every executed expression is parsed again,
// folded, computed, rounded to float and stored in `out`; the script's
// result is `out`. A bad line goes to the host's error handler.
//
// Not real-time safe (allocates, parses, logs); scripts run while effects
// read their parameters, never per block. Process-wide, unguarded state:
// the modulator stores, the error handler and the engine, which owns the
// locale the evaluator reads numbers with.
#include "framework/script.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame/log.h"
#include "frame/modulators.h"
#include "framework/expression.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

using ScriptErrorHandler = void (*)(const char* message);

void IgnoreScriptError(const char*) {}

ScriptErrorHandler g_errorHandler = &IgnoreScriptError;

// Lives from the first script run to library shutdown; owns the evaluator's
// number-parsing locale.
class ScriptEngine {
 public:
  ScriptEngine() { te_init(); }
  ~ScriptEngine() { te_uninit(); }
  ScriptEngine(const ScriptEngine&) = delete;
  ScriptEngine& operator=(const ScriptEngine&) = delete;
};

ScriptEngine* g_engine = nullptr;

// Truncates a goto target for the failure text. Values an int cannot hold,
// NaN included, show as INT_MIN, as the processor's own conversion gives.
int TruncateForMessage(double value) {
  if (!(value > static_cast<double>(INT_MIN) - 1.0 && value < static_cast<double>(INT_MAX) + 1.0))
    return INT_MIN;
  return static_cast<int>(value);
}

std::string Format(const char* format, int number) {
  char buf[32];
  std::snprintf(buf, sizeof buf, format, number);
  return buf;
}

// Variables only: a definition never writes into a function record.
double* FindFromBack(xvariable* list, int count, const char* name) {
  for (int i = count - 1; i >= 0; --i) {
    if (list[i].type == TE_VARIABLE && list[i].name != nullptr &&
        std::strcmp(list[i].name, name) == 0)
      return static_cast<double*>(const_cast<void*>(list[i].address));
  }
  return nullptr;
}

std::vector<std::string> SplitLines(const char* text) {
  std::vector<std::string> lines;
  if (text == nullptr) return lines;
  const char* p = text;
  while (*p != '\0') {
    const char* begin = p;
    while (*p != '\0' && *p != '\r' && *p != '\n') ++p;
    if (p != begin) lines.emplace_back(begin, p);
    if (*p != '\0') ++p;
  }
  return lines;
}

// Parses and computes one line into *outAddr. On failure the handler gets
// up to 9 characters from where the parser stopped, then " (LINE n):\n"
// and the whole line.
bool EvalLine(int lineIndex, const char* text, const xvariable* list, int count, double* outAddr) {
  if (*text == '\0') {
    Log(kLogTrace, "[ON2L]:xq:N/A....");
    return true;
  }
  te_state state{};
  state.start = text;
  state.lookup = list;
  state.lookup_len = count;
  te_node* root = te_parse(&state);
  if (state.type == TE_TOK_END) {
    te_fold(root);
    const double value = te_eval(root);
    *outAddr = static_cast<double>(static_cast<float>(value));
    Log(kLogTrace, "[ON2L]:xq:%s, out=%g", text, *outAddr);
    te_free(root);
    return true;
  }
  te_free(root);
  size_t position = static_cast<size_t>(state.next - text);
  if (position == 0) position = 1;
  const size_t length = std::strlen(text);
  if (position > length) position = length;
  const size_t shown = length - position < 9 ? length - position : 9;
  std::string message(text + position, shown);
  message += Format(" (LINE %d):\n", lineIndex + 1);
  message += text;
  g_errorHandler(message.c_str());
  Log(kLogError, "[ON2L]:Script Error:\n %s\npre-out=%g", message.c_str(), *outAddr);
  return false;
}

bool IsDefinitionOrDeclaration(const std::string& line) { return line[0] == '#'; }
bool IsLabel(const std::string& line) { return line[0] == ':'; }
bool IsGoto(const std::string& line) { return line[0] == '>'; }

}  // namespace

float RunScript(const char* text, float in) {
  if (g_engine == nullptr) g_engine = new ScriptEngine;

  set_modulator_user("in", static_cast<double>(in));
  set_modulator_user("out", static_cast<double>(in));

  const std::vector<std::string> lines = SplitLines(text);
  const int n = static_cast<int>(lines.size());

  // Labels and script variables are known before the first line runs, so a
  // forward goto works and every name compiles to its store.
  for (int i = 0; i < n; ++i) {
    const std::string& line = lines[i];
    if (IsLabel(line)) {
      set_modulator_user(line.c_str() + 1, static_cast<double>(i));
    } else if (IsDefinitionOrDeclaration(line)) {
      const std::string name = line.substr(1, line.find('=') - 1);
      InitSystemModulator(name.c_str(), 0.0);
    }
  }

  xvariable* list = nullptr;
  const int count = lock_modulators(&list);
  double fallbackOut = static_cast<double>(in);
  double* outAddr = list != nullptr ? FindFromBack(list, count, "out") : nullptr;
  if (outAddr == nullptr) outAddr = &fallbackOut;
  const int listCount = list != nullptr ? count : 0;

  int i = 0;
  while (i < n) {
    const std::string& line = lines[i];
    if (IsDefinitionOrDeclaration(line)) {
      const size_t eq = line.find('=');
      if (eq != std::string::npos) {
        const std::string name = line.substr(1, eq - 1);
        Log(kLogTrace, "[ON2L]:xq:%s=", name.c_str());
        if (EvalLine(i, line.c_str() + eq + 1, list, listCount, outAddr)) {
          double* target = list != nullptr ? FindFromBack(list, count, name.c_str()) : nullptr;
          if (target != nullptr) *target = *outAddr;
        }
      }
      ++i;
    } else if (IsLabel(line)) {
      ++i;
    } else if (IsGoto(line)) {
      Log(kLogTrace, "[ON2L]:xq/goto:");
      if (!EvalLine(i, line.c_str() + 1, list, listCount, outAddr)) {
        // The goto line is reported a second time, as an expression under
        // the next line's number, and the script stops.
        ++i;
        EvalLine(i, line.c_str(), list, listCount, outAddr);
        break;
      }
      const double target = *outAddr;
      if (target < 0) {
        TwoPassFlag() = true;
        ++i;
        continue;
      }
      // A target of exactly n (no line there) or NaN fails too.
      if (!(target < n) || !IsLabel(lines[static_cast<int>(target)])) {
        std::string message = Format("(line %d):\n", i + 1);
        message += line;
        message += Format(" (>%d)", TruncateForMessage(target));
        g_errorHandler(message.c_str());
        break;
      }
      i = static_cast<int>(target + 1);
    } else {
      if (!EvalLine(i, line.c_str(), list, listCount, outAddr)) break;
      ++i;
    }
  }

  unlock_modulators(list, count);
  return static_cast<float>(get_modulator_user("out"));
}

void DestroyScriptEngine() {
  delete g_engine;
  g_engine = nullptr;
}

int ondrel_set_script_error_handler(void (*handler)(const char* message)) {
  // A null handler would crash at the next error: fall back to ignoring.
  g_errorHandler = handler != nullptr ? handler : &IgnoreScriptError;
  return 0;
}

}  // namespace ONDREL2
