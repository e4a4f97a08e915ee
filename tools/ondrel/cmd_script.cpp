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

// A probe in front of the amplifier counts the configuring passes: its
// script adds one to a system variable of its own at every run, and the
// amplifier's Gain is read exactly once per pass. System variables survive
// from the first pass into the second and are cleared only by the next
// configuration, so after installing the chain the variable holds the
// number of times the amplifier's script ran.
constexpr const char* kPassCounter = "ondrel_tool_passes";

std::vector<std::string>* g_errors = nullptr;

void CaptureError(const char* message) {
  if (g_errors != nullptr) g_errors->push_back(message != nullptr ? message : "");
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

  std::vector<std::string> errors;
  g_errors = &errors;
  ONDREL2::ondrel_set_script_error_handler(&CaptureError);

  EffectList effects;
  ONDREL2::AEffect* probe = CreateEffect(ONDREL2::EFFECT_AMPLIFIER);
  effects.Add(probe);
  SetParamScript(probe, RequireParam(probe, "Gain", "amplifier"),
                 std::string("#") + kPassCounter + "=" + kPassCounter + "+1\n0");
  ONDREL2::AEffect* amp = CreateEffect(ONDREL2::EFFECT_AMPLIFIER);
  effects.Add(amp);
  const int gain = RequireParam(amp, "Gain", "amplifier");
  amp->dispatcher(amp, ONDREL2::ONDREL_OP_SET_PARAM, gain, 0, nullptr,
                  static_cast<float>(options.input));
  SetParamScript(amp, gain, text);
  int version = amp->dispatcher(amp, ONDREL2::ONDREL_OP_GET_SCRIPT_VERSION, 0, 0, nullptr, 0.0f);

  // Installing the effects configures the chain: Resume runs UpdateParams,
  // which reads Gain through its script. The amplifier's script is the
  // last one to run in every pass, so the interpreter's `out` afterwards is
  // its result, before the effect limits it to Gain's range.
  Chain chain(2, 48000.0f);
  chain.Install(effects);
  const bool bypassed = chain.Size() < 2;
  std::vector<Variable> after = Variables();
  g_errors = nullptr;

  int runs = 0;
  for (const Variable& v : after)
    if (v.system && v.name == kPassCounter) runs = static_cast<int>(v.value);
  const double result = ONDREL2::get_modulator_user("out");

  float stored = static_cast<float>(options.input);
  if (runs == 0) {
    std::printf("the script did not run\n");
    return kExitFailure;
  }
  // What the effect uses: the script's result limited to Gain's range.
  double used = result > 18.0 ? 18.0 : std::max(-96.0, result);
  if (std::isnan(result)) used = result;
  if (bypassed) {
    std::printf("result: %s (in %s; the effect left the chain)\n", Number(result).c_str(),
                Number(static_cast<double>(stored)).c_str());
  } else {
    std::printf("result: %s (in %s; amplifier Gain uses %s after limiting to -96..18)\n",
                Number(result).c_str(), Number(static_cast<double>(stored)).c_str(),
                Number(used).c_str());
  }
  std::printf("runs: %d%s, script version %d\n", runs, runs > 1 ? " (two-pass)" : "", version);
  if (bypassed)
    std::printf("bypassed: GV_FXBYPASSED was not 0 after the run, so the effect left the chain\n");
  if (errors.empty()) {
    std::printf("errors: none\n");
  } else {
    std::printf("errors: %zu\n", errors.size());
    for (const std::string& e : errors) {
      std::string indented = e;
      for (size_t p = indented.find('\n'); p != std::string::npos; p = indented.find('\n', p + 1))
        indented.insert(p + 1, "    ");
      std::printf("  - %s\n", indented.c_str());
    }
  }
  std::string system;
  for (const Variable& v : after)
    if (v.system && v.name != kPassCounter) system += " " + v.name + "=" + Number(v.value);
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
  return errors.empty() ? kExitOk : kExitFailure;
}

}  // namespace ondrel_tool
