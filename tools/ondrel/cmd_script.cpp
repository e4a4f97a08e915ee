// `ondrel script`: one parameter script run the way the library runs it, on
// the Gain of an amplifier inside a processing instance.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>

#include "audio.h"
#include "commands.h"

namespace ondrel_tool {

namespace {

struct ScriptCapture {
  int runs = 0;
  double output = 0.0;
  double input = 0.0;
  std::vector<std::string> errors;
};

ScriptCapture* g_capture = nullptr;

// GetScriptedParam logs "<p/NAME>: out <-- raw" after each run of a script:
// the arguments carry the script's result at full precision.
void CaptureLog(void* context, int, const char* format, va_list args) {
  auto* capture = static_cast<ScriptCapture*>(context);
  if (std::strcmp(format, "[ON2L]:<p/%s>: %g <-- %g") != 0) return;
  const char* name = va_arg(args, const char*);
  double out = va_arg(args, double);
  double raw = va_arg(args, double);
  if (name == nullptr || std::strcmp(name, "Gain") != 0) return;
  capture->runs++;
  capture->output = out;
  capture->input = raw;
}

void CaptureError(const char* message) {
  if (g_capture != nullptr) g_capture->errors.push_back(message != nullptr ? message : "");
}

struct Variable {
  std::string name;
  double value;
  bool system;
};

// The named values scripts see: user modulators first, then system ones (a
// name in both stores appears twice, the user one first).
std::vector<Variable> Variables() {
  ONDREL2::xvariable* list = nullptr;
  int count = ONDREL2::lock_modulators(&list);
  std::vector<Variable> out;
  std::set<std::string> seen;
  for (int i = 0; i < count && list != nullptr; ++i) {
    const ONDREL2::xvariable& v = list[i];
    if (v.type != 0 || v.name == nullptr || v.address == nullptr) continue;
    double userValue = 0.0;
    bool user = seen.count(v.name) == 0 && ONDREL2::get_modulator_user(v.name, &userValue);
    seen.insert(v.name);
    out.push_back({v.name, *static_cast<const double*>(v.address), !user});
  }
  ONDREL2::unlock_modulators(list, count);
  return out;
}

std::string Number(double v) { return Format("%.9g", v); }

}  // namespace

int RunScript(const CommonOptions& common, const ScriptOptions& options) {
  std::string text = options.script;
  if (!text.empty() && text[0] == '@') text = ReadFileBytes(text.substr(1));
  if (text.empty()) UsageError("the script is empty: an empty script never runs");

  LibrarySession session(common);
  ApplyModulators(options.modulators);
  std::vector<Variable> before = Variables();

  ScriptCapture capture;
  g_capture = &capture;
  ONDREL2::ondrel_set_script_error_handler(&CaptureError);
  LibrarySession::SetCapture(&CaptureLog, &capture, 4);

  EffectList effects;
  ONDREL2::AEffect* amp = CreateEffect(ONDREL2::EFFECT_AMPLIFIER);
  effects.Add(amp);
  const int gain = RequireParam(amp, "Gain", "amplifier");
  amp->dispatcher(amp, ONDREL2::ONDREL_OP_SET_PARAM, gain, 0, nullptr,
                  static_cast<float>(options.input));
  SetParamScript(amp, gain, text);
  int version = amp->dispatcher(amp, ONDREL2::ONDREL_OP_GET_SCRIPT_VERSION, 0, 0, nullptr, 0.0f);

  // Installing the effect configures the chain: Resume runs UpdateParams,
  // which reads Gain through its script.
  Chain chain(2, 48000.0f);
  chain.Install(effects);
  bool bypassed = chain.Empty();
  std::vector<Variable> after = Variables();
  LibrarySession::ClearCapture();
  g_capture = nullptr;

  float stored = static_cast<float>(options.input);
  if (capture.runs == 0) {
    std::printf("the script did not run\n");
    return kExitFailure;
  }
  // What the effect uses: the script's result limited to Gain's range.
  double used = capture.output > 18.0 ? 18.0 : std::max(-96.0, capture.output);
  if (std::isnan(capture.output)) used = capture.output;
  if (bypassed) {
    std::printf("result: %s (in %s; the effect left the chain)\n", Number(capture.output).c_str(),
                Number(static_cast<double>(stored)).c_str());
  } else {
    std::printf("result: %s (in %s; amplifier Gain uses %s after limiting to -96..18)\n",
                Number(capture.output).c_str(), Number(static_cast<double>(stored)).c_str(),
                Number(used).c_str());
  }
  std::printf("runs: %d%s, script version %d\n", capture.runs,
              capture.runs > 1 ? " (two-pass)" : "", version);
  if (bypassed)
    std::printf("bypassed: GV_FXBYPASSED was not 0 after the run, so the effect left the chain\n");
  if (capture.errors.empty()) {
    std::printf("errors: none\n");
  } else {
    std::printf("errors: %zu\n", capture.errors.size());
    for (const std::string& e : capture.errors) {
      std::string indented = e;
      for (size_t p = indented.find('\n'); p != std::string::npos; p = indented.find('\n', p + 1))
        indented.insert(p + 1, "    ");
      std::printf("  - %s\n", indented.c_str());
    }
  }
  std::string system;
  for (const Variable& v : after)
    if (v.system) system += " " + v.name + "=" + Number(v.value);
  std::printf("system variables:%s\n", system.empty() ? " none" : system.c_str());
  std::string user;
  for (const Variable& v : after) {
    if (v.system) continue;
    bool changed = true;
    for (const Variable& b : before)
      if (!b.system && b.name == v.name &&
          (b.value == v.value || (std::isnan(b.value) && std::isnan(v.value))))
        changed = false;
    if (changed) user += " " + v.name + "=" + Number(v.value);
  }
  std::printf("user variables set:%s\n", user.empty() ? " none" : user.c_str());
  return capture.errors.empty() ? kExitOk : kExitFailure;
}

}  // namespace ondrel_tool
