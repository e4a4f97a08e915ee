// Effect types by short name, effect handles owned by the tool, and the
// parameter table of an effect read through its dispatcher.
#ifndef ONDREL_TOOL_EFFECTS_H
#define ONDREL_TOOL_EFFECTS_H

#include <string>
#include <vector>

#include "ondrel.h"

namespace ondrel_tool {

// The stable machine name of a built type, from the library's effect list;
// null for a type that is not built (or outside 1..40).
const char* KnownShortName(int type);

// "limiter", "LIMITER" or "6" -> 6. Anything else is a usage error naming
// `text` (and `where`, e.g. "preset.json: effects[2]") and the valid names.
int ParseEffectType(const std::string& text, const std::string& where);
// "limiter" for 6; "type 99" for a type that is not built.
std::string EffectShortName(int type);

// The effect's display name in the current locale (opcode 16), empty when it
// has none.
std::string EffectDisplayName(ONDREL2::AEffect* effect);
int EffectType(ONDREL2::AEffect* effect);

// A list of effects that the tool owns until it hands them to an instance.
// Destroys what it still holds.
class EffectList {
 public:
  EffectList() = default;
  ~EffectList();
  EffectList(EffectList&& other) noexcept;
  EffectList& operator=(EffectList&& other) noexcept;
  EffectList(const EffectList&) = delete;
  EffectList& operator=(const EffectList&) = delete;

  void Add(ONDREL2::AEffect* effect) { effects_.push_back(effect); }
  void Append(EffectList&& other);
  ONDREL2::AEffect** data() { return effects_.data(); }
  int size() const { return static_cast<int>(effects_.size()); }
  bool empty() const { return effects_.empty(); }
  ONDREL2::AEffect* operator[](int i) const { return effects_[static_cast<size_t>(i)]; }
  // Gives up ownership (after ondrel_set_params took the handles).
  void Release() { effects_.clear(); }

 private:
  std::vector<ONDREL2::AEffect*> effects_;
};

// A new effect of `type`; a processing failure naming the type (and
// `where` it was asked for) if this build of the library does not have it.
ONDREL2::AEffect* CreateEffect(int type, const std::string& where = "");
// True when ondrel_create_effect accepts `type`.
bool EffectAvailable(int type);

// One parameter as a host sees it.
struct ParamInfo {
  int index = 0;
  std::string name;   // table name: what presets and the stream key on
  std::string label;  // localised label
  bool binary = false;
  bool rebuild = false;
  int hintA = 0;
  int hintB = 0;
  float minValue = 0.0f;  // real units; unused for binary parameters
  float maxValue = 0.0f;
  float defaultValue = 0.0f;
  std::string defaultDisplay;  // display text of the default value
};

std::string ParamName(ONDREL2::AEffect* effect, int index);
std::vector<std::string> ParamNames(ONDREL2::AEffect* effect);
// The full table of `type`, bounds found on a scratch object.
std::vector<ParamInfo> ParamTable(int type);

// Index of the parameter called `name` (exact, else the one match ignoring
// case), or -1.
int FindParam(ONDREL2::AEffect* effect, const std::string& name);
// As FindParam, but a usage error that names the effect, the bad key, where
// it came from and the valid names.
int RequireParam(ONDREL2::AEffect* effect, const std::string& name, const std::string& where);

bool ParamIsBinary(ONDREL2::AEffect* effect, int index);
float GetParamValue(ONDREL2::AEffect* effect, int index);
// The raw bytes of a parameter (opcode 5).
std::string GetParamBytes(ONDREL2::AEffect* effect, int index);
std::string GetParamScript(ONDREL2::AEffect* effect, int index);

// Sets a float parameter in real units; warns (once per call) when the value
// lies outside the parameter's bounds, since the library stores it as given.
// A value that is not finite as a float (nan, inf, 1e40) is a usage error.
void SetFloatParam(ONDREL2::AEffect* effect, int index, double value, const std::string& where);
// Sets a binary parameter to `bytes`; with `text` a terminating zero is
// added, since effects read paths as C texts.
void SetBinaryParam(ONDREL2::AEffect* effect, int index, const std::string& bytes, bool text);
void SetParamScript(ONDREL2::AEffect* effect, int index, const std::string& script);

// Parses an inline effect: "limiter Limit=-1 Release Time=80".
// The first word is the effect (short name or number). The rest is a list of
// NAME=VALUE pairs: a name runs from the end of the previous value up to the
// next '=', so it may contain spaces; a value runs up to the next space,
// unless it is quoted with '...' or "..." (for file names with spaces).
struct InlineEffect {
  int type = 0;
  std::vector<std::pair<std::string, std::string>> params;
};
InlineEffect ParseInlineEffect(const std::string& text);

// A new effect configured from an inline text such as "limiter Limit=-1".
ONDREL2::AEffect* BuildInlineEffect(const std::string& text);

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_EFFECTS_H
