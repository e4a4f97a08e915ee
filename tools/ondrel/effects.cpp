#include "effects.h"

#include <algorithm>
#include <cctype>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <utility>

#include "common.h"

namespace ondrel_tool {

using ONDREL2::AEffect;

namespace {

// The short names of the built types, expanded from the library's effect
// list; index = type value, null where the type is not built.
struct ShortNameTable {
  const char* names[41] = {};
  ShortNameTable() {
#define ONDREL_EFFECT(type, name, cls, header) names[ONDREL2::type] = name;
#include "effects/effect_list.inc"
#undef ONDREL_EFFECT
  }
};

const ShortNameTable kShortNames;

std::vector<std::string> BuiltShortNames() {
  std::vector<std::string> names;
  for (const char* n : kShortNames.names)
    if (n != nullptr) names.push_back(n);
  return names;
}

}  // namespace

const char* KnownShortName(int type) {
  return type >= 1 && type <= 40 ? kShortNames.names[type] : nullptr;
}

namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string JoinNames(const std::vector<std::string>& names) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) out += ", ";
    out += "'" + names[i] + "'";
  }
  return out.empty() ? "(none)" : out;
}

// Edit distance between two texts, ignoring case; swapping two neighbouring
// letters counts as one edit, like any other typing slip.
size_t Distance(const std::string& a, const std::string& b) {
  const std::string x = Lower(a), y = Lower(b);
  std::vector<std::vector<size_t>> d(x.size() + 1, std::vector<size_t>(y.size() + 1, 0));
  for (size_t i = 0; i <= x.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= y.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= x.size(); ++i) {
    for (size_t j = 1; j <= y.size(); ++j) {
      d[i][j] = std::min(
          {d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (x[i - 1] == y[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && x[i - 1] == y[j - 2] && x[i - 2] == y[j - 1])
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[x.size()][y.size()];
}

// " (did you mean 'limiter'?)" for the name closest to a mistyped `key`, if
// one is close enough to be the likely intent; else empty.
std::string Suggestion(const std::string& key, const std::vector<std::string>& names) {
  size_t best = std::string::npos;
  std::string bestName;
  for (const std::string& n : names) {
    size_t d = Distance(key, n);
    if (d < best) {
      best = d;
      bestName = n;
    }
  }
  if (bestName.empty() || best > std::max<size_t>(1, std::min(key.size(), bestName.size()) / 3))
    return "";
  return " (did you mean '" + bestName + "'?)";
}

std::string Prefix(const std::string& where) { return where.empty() ? "" : where + ": "; }

// Text from a dispatcher call that fills a caller's buffer. The library does
// not bound these copies; 1 KiB is far above any name, label or display text.
std::string TextOpcode(AEffect* effect, int opcode, int index) {
  char buffer[1024];
  std::memset(buffer, 0, sizeof buffer);
  effect->dispatcher(effect, opcode, index, 0, buffer, 0.0f);
  buffer[sizeof buffer - 1] = 0;
  return buffer;
}

struct Bounds {
  float minValue;
  float maxValue;
};

// The real value at slider end `end` (0 or 1). Parameters whose slider runs
// in linear gain come back a little off (-95.996765 for -96), since the
// mapping subtracts nearly equal floats; the shortest decimal (at most six
// digits) within 1e-4 of the raw value that maps to the same slider end is
// the bound the table holds.
float SliderEnd(AEffect* scratch, int index, float end) {
  float raw = 0.0f;
  scratch->dispatcher(scratch, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, index, 0, nullptr, end);
  scratch->dispatcher(scratch, ONDREL2::ONDREL_OP_GET_PARAM, index, 0, &raw, 0.0f);
  if (!std::isfinite(raw)) return raw;
  // The maximum of an integer-like parameter sits just under the next
  // integer on purpose (2 - 2^-20 = 1.99999905): that is exact already.
  const double belowInteger = static_cast<double>(raw) + 1.0 / 1048576.0;
  if (belowInteger == std::floor(belowInteger)) return raw;
  float result = raw;
  for (int digits = 1; digits <= 6; ++digits) {
    float candidate =
        std::strtof(Format("%.*g", digits, static_cast<double>(raw)).c_str(), nullptr);
    if (std::fabs(candidate - raw) > 1e-4f * std::max(1.0f, std::fabs(raw))) continue;
    float norm = -1.0f;
    scratch->dispatcher(scratch, ONDREL2::ONDREL_OP_SET_PARAM, index, 0, nullptr, candidate);
    scratch->dispatcher(scratch, ONDREL2::ONDREL_OP_GET_PARAM_NORMALIZED, index, 0, &norm, 0.0f);
    if (std::fabs(norm - end) <= 1e-6f) {
      result = candidate;
      break;
    }
  }
  return result;
}

// The bounds in real units: slider ends 0 and 1 on a scratch object.
std::vector<Bounds> ScratchBounds(int type) {
  static std::map<int, std::vector<Bounds>> cache;
  auto it = cache.find(type);
  if (it != cache.end()) return it->second;
  std::vector<Bounds> bounds;
  AEffect* scratch = nullptr;
  if (ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(type), &scratch) ==
          0 &&
      scratch != nullptr) {
    for (int i = 0; i < scratch->numParams; ++i) {
      Bounds b = {0.0f, 0.0f};
      if (scratch->dispatcher(scratch, ONDREL2::ONDREL_OP_IS_PARAM_BINARY, i, 0, nullptr, 0.0f) ==
          0) {
        b.minValue = SliderEnd(scratch, i, 0.0f);
        b.maxValue = SliderEnd(scratch, i, 1.0f);
      }
      bounds.push_back(b);
    }
    ONDREL2::ondrel_destroy_effect(scratch);
  }
  cache[type] = bounds;
  return bounds;
}

std::string CollapseSpaces(const std::string& text) {
  std::string out;
  bool space = false;
  for (char c : text) {
    if (c == ' ' || c == '\t') {
      space = true;
      continue;
    }
    if (space && !out.empty()) out += ' ';
    space = false;
    out += c;
  }
  return out;
}

}  // namespace

int ParseEffectType(const std::string& text, const std::string& where) {
  std::string key = Lower(text);
  for (int t = 1; t <= 40; ++t)
    if (KnownShortName(t) != nullptr && key == KnownShortName(t)) return t;
  char* end = nullptr;
  long number = std::strtol(key.c_str(), &end, 10);
  if (!key.empty() && end != nullptr && *end == 0 && number >= 1 && number <= 40)
    return static_cast<int>(number);
  const std::vector<std::string> names = BuiltShortNames();
  UsageError(Prefix(where) + "unknown effect '" + text + "'" + Suggestion(text, names) +
             "; valid effects are " + JoinNames(names) +
             " or their numbers 1 to 40 (see 'ondrel effects')");
}

std::string EffectShortName(int type) {
  const char* name = KnownShortName(type);
  return name != nullptr ? name : Format("type %d", type);
}

std::string EffectDisplayName(AEffect* effect) {
  return TextOpcode(effect, ONDREL2::ONDREL_OP_GET_EFFECT_NAME, 0);
}

int EffectType(AEffect* effect) {
  int32_t type = 0;
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_EFFECT_TYPE, 0, 0, &type, 0.0f);
  return type;
}

EffectList::~EffectList() {
  for (auto it = effects_.rbegin(); it != effects_.rend(); ++it)
    ONDREL2::ondrel_destroy_effect(*it);
}

EffectList::EffectList(EffectList&& other) noexcept : effects_(std::move(other.effects_)) {
  other.effects_.clear();
}

EffectList& EffectList::operator=(EffectList&& other) noexcept {
  if (this != &other) {
    for (auto it = effects_.rbegin(); it != effects_.rend(); ++it)
      ONDREL2::ondrel_destroy_effect(*it);
    effects_ = std::move(other.effects_);
    other.effects_.clear();
  }
  return *this;
}

void EffectList::Append(EffectList&& other) {
  effects_.insert(effects_.end(), other.effects_.begin(), other.effects_.end());
  other.effects_.clear();
}

AEffect* CreateEffect(int type, const std::string& where) {
  AEffect* effect = nullptr;
  int status =
      ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(type), &effect);
  if (status != 0 || effect == nullptr)
    Failure(Prefix(where) + "effect '" + EffectShortName(type) + "' (" + std::to_string(type) +
            ") is not in this build of libondrel (ondrel_create_effect returned " +
            StatusText(status) + "); 'ondrel effects' lists the built ones");
  return effect;
}

bool EffectAvailable(int type) {
  AEffect* effect = nullptr;
  int status =
      ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(type), &effect);
  if (effect != nullptr) ONDREL2::ondrel_destroy_effect(effect);
  return status == 0 && effect != nullptr;
}

std::string ParamName(AEffect* effect, int index) {
  return TextOpcode(effect, ONDREL2::ONDREL_OP_GET_PARAM_NAME, index);
}

std::vector<std::string> ParamNames(AEffect* effect) {
  std::vector<std::string> names;
  for (int i = 0; i < effect->numParams; ++i) names.push_back(ParamName(effect, i));
  return names;
}

std::vector<ParamInfo> ParamTable(int type) {
  AEffect* effect = CreateEffect(type);
  std::vector<Bounds> bounds = ScratchBounds(type);
  std::vector<ParamInfo> table;
  for (int i = 0; i < effect->numParams; ++i) {
    ParamInfo p;
    p.index = i;
    p.name = ParamName(effect, i);
    p.label = TextOpcode(effect, ONDREL2::ONDREL_OP_GET_PARAM_LABEL, i);
    p.binary =
        effect->dispatcher(effect, ONDREL2::ONDREL_OP_IS_PARAM_BINARY, i, 0, nullptr, 0.0f) != 0;
    p.rebuild = effect->dispatcher(effect, ONDREL2::ONDREL_OP_PARAM_NEEDS_REBUILD, i, 0, nullptr,
                                   0.0f) != 0;
    int32_t second = 0;
    p.hintA = effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM_HINTS, i, 0, &second, 0.0f);
    p.hintB = second;
    if (!p.binary) {
      effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM_DEFAULT, i, 0, &p.defaultValue, 0.0f);
      if (static_cast<size_t>(i) < bounds.size()) {
        p.minValue = bounds[static_cast<size_t>(i)].minValue;
        p.maxValue = bounds[static_cast<size_t>(i)].maxValue;
      }
    }
    // A new object holds its defaults, so its display text is the default's.
    p.defaultDisplay = TextOpcode(effect, ONDREL2::ONDREL_OP_GET_PARAM_DISPLAY, i);
    table.push_back(p);
  }
  ONDREL2::ondrel_destroy_effect(effect);
  return table;
}

int FindParam(AEffect* effect, const std::string& name) {
  std::vector<std::string> names = ParamNames(effect);
  for (size_t i = 0; i < names.size(); ++i)
    if (names[i] == name) return static_cast<int>(i);
  std::string key = Lower(CollapseSpaces(name));
  int found = -1;
  for (size_t i = 0; i < names.size(); ++i) {
    if (Lower(names[i]) == key) {
      if (found >= 0) return -1;  // ambiguous without the exact case
      found = static_cast<int>(i);
    }
  }
  return found;
}

int RequireParam(AEffect* effect, const std::string& name, const std::string& where) {
  int index = FindParam(effect, name);
  if (index < 0) {
    int type = EffectType(effect);
    const std::vector<std::string> names = ParamNames(effect);
    UsageError(Prefix(where) + "effect '" + EffectShortName(type) + "' has no parameter '" + name +
               "'" + Suggestion(name, names) + "; its parameters are " + JoinNames(names));
  }
  return index;
}

bool ParamIsBinary(AEffect* effect, int index) {
  return effect->dispatcher(effect, ONDREL2::ONDREL_OP_IS_PARAM_BINARY, index, 0, nullptr, 0.0f) !=
         0;
}

float GetParamValue(AEffect* effect, int index) {
  float value = 0.0f;
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM, index, 0, &value, 0.0f);
  return value;
}

std::string GetParamBytes(AEffect* effect, int index) {
  void* data = nullptr;
  int32_t size =
      effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM_DATA, index, 0, &data, 0.0f);
  if (data == nullptr || size <= 0) return std::string();
  return std::string(static_cast<const char*>(data), static_cast<size_t>(size));
}

std::string GetParamScript(AEffect* effect, int index) {
  const char* script = nullptr;
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM_SCRIPT, index, 0, &script, 0.0f);
  return script != nullptr ? script : "";
}

void SetFloatParam(AEffect* effect, int index, double given, const std::string& where) {
  if (!std::isfinite(given) || std::fabs(given) > static_cast<double>(FLT_MAX))
    UsageError(Prefix(where) + EffectShortName(EffectType(effect)) + " " +
               ParamName(effect, index) + "=" + Format("%g", given) +
               " is not a number that a parameter can hold (finite, at most 3.4e38 in size)");
  const float value = static_cast<float>(given);
  std::vector<Bounds> bounds = ScratchBounds(EffectType(effect));
  if (static_cast<size_t>(index) < bounds.size()) {
    const Bounds& b = bounds[static_cast<size_t>(index)];
    // The bounds come back through the slider mapping, a little off in the
    // last digits for dB parameters: allow for that.
    float slack = 1e-4f * std::max(std::fabs(b.minValue), std::fabs(b.maxValue)) + 1e-6f;
    if (value < b.minValue - slack || value > b.maxValue + slack)
      Warn(Prefix(where) + EffectShortName(EffectType(effect)) + " " + ParamName(effect, index) +
           "=" + FloatText(value) + " is outside its range " + FloatText(b.minValue) + " to " +
           FloatText(b.maxValue) + "; it is stored as given");
  }
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_SET_PARAM, index, 0, nullptr, value);
}

void SetBinaryParam(AEffect* effect, int index, const std::string& bytes, bool text) {
  std::string data = bytes;
  if (text && (data.empty() || data.back() != '\0')) data.push_back('\0');
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_SET_PARAM_DATA, index,
                     static_cast<int32_t>(data.size()), const_cast<char*>(data.data()), 0.0f);
}

void SetParamScript(AEffect* effect, int index, const std::string& script) {
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_SET_PARAM_SCRIPT, index, 0,
                     const_cast<char*>(script.c_str()), 0.0f);
}

InlineEffect ParseInlineEffect(const std::string& text) {
  const std::string where = "--effect \"" + text + "\"";
  size_t pos = text.find_first_not_of(" \t");
  if (pos == std::string::npos) UsageError(where + ": empty effect");
  size_t end = text.find_first_of(" \t", pos);
  InlineEffect out;
  out.type = ParseEffectType(text.substr(pos, end - pos), where);
  pos = end;
  while (pos != std::string::npos && pos < text.size()) {
    pos = text.find_first_not_of(" \t", pos);
    if (pos == std::string::npos) break;
    size_t eq = text.find('=', pos);
    if (eq == std::string::npos)
      UsageError(where + ": '" + text.substr(pos) + "' is not of the form NAME=VALUE");
    std::string name = CollapseSpaces(text.substr(pos, eq - pos));
    if (name.empty()) UsageError(where + ": a value without a parameter name");
    size_t v = eq + 1;
    std::string value;
    if (v < text.size() && (text[v] == '\'' || text[v] == '"')) {
      size_t close = text.find(text[v], v + 1);
      if (close == std::string::npos)
        UsageError(where + ": unterminated quote in the value of '" + name + "'");
      value = text.substr(v + 1, close - v - 1);
      pos = close + 1;
      if (pos < text.size() && text[pos] != ' ' && text[pos] != '\t')
        UsageError(where + ": the quoted value of '" + name + "' must be followed by a space");
    } else {
      size_t stop = text.find_first_of(" \t", v);
      value = text.substr(v, stop == std::string::npos ? std::string::npos : stop - v);
      if (value.empty()) UsageError(where + ": no value for '" + name + "'");
      pos = stop;
    }
    out.params.emplace_back(name, value);
  }
  return out;
}

AEffect* BuildInlineEffect(const std::string& text) {
  const std::string where = "--effect \"" + text + "\"";
  InlineEffect parsed = ParseInlineEffect(text);
  EffectList holder;  // destroys the effect if a parameter is wrong
  AEffect* effect = CreateEffect(parsed.type, where);
  holder.Add(effect);
  for (const auto& kv : parsed.params) {
    int index = RequireParam(effect, kv.first, where);
    if (ParamIsBinary(effect, index)) {
      SetBinaryParam(effect, index, kv.second, true);
      continue;
    }
    char* end = nullptr;
    double value = std::strtod(kv.second.c_str(), &end);
    if (end == nullptr || *end != 0)
      UsageError(where + ": the value of '" + kv.first + "' must be a number, not '" + kv.second +
                 "'");
    SetFloatParam(effect, index, value, where);
  }
  holder.Release();
  return effect;
}

}  // namespace ondrel_tool
