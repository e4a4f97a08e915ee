// Presets: a chain of effects with parameter values and scripts, kept as
// JSON for people or as the library's binary parameter stream.
//
// JSON form:
//   {"text": "Warm room",
//    "effects": [
//      {"type": "limiter",
//       "params": {"Limit": -1.0, "Release Time": 80},
//       "scripts": {"Limit": "in*0.5"}},
//      {"type": 2, "params": {"IR File": "rooms/hall.wav"}}]}
// Types by short name or number; parameters by table name in real units;
// binary parameters as UTF-8 texts (or {"hex": "00ff..."} for other bytes).
#ifndef ONDREL_TOOL_PRESET_H
#define ONDREL_TOOL_PRESET_H

#include <string>

#include <nlohmann/json.hpp>

#include "effects.h"

namespace ondrel_tool {

// Objects keep their keys in file order, so parameters apply and print in
// the order a person wrote or the effect's table has.
using json = nlohmann::ordered_json;

struct LoadedPreset {
  std::string text;  // the preset's name or note
  EffectList effects;
};

// What to do with an effect type that this build of the library lacks.
enum class Unavailable { kFail, kSkipWithNote, kSkipSilently };

// Builds the effects of a JSON preset. `source` names the preset in messages.
// Unknown keys, effects or parameters are usage errors naming the valid ones.
LoadedPreset PresetFromJson(const json& json, const std::string& source,
                            Unavailable unavailable = Unavailable::kFail);
// Parses JSON text (usage error with the parser's position on failure).
json ParseJsonText(const std::string& text, const std::string& source);

// True when `bytes` start with '{' after white space and a UTF-8 byte order
// mark: a JSON preset rather than a binary stream.
bool StartsWithJsonObject(const std::string& bytes);

// Reads a preset file: JSON when it starts with '{', else a binary stream.
LoadedPreset LoadPresetFile(const std::string& path);
// Decodes a binary parameter stream.
LoadedPreset PresetFromStream(const std::string& bytes, const std::string& source);

// The JSON form of a list of effects: every parameter with its current value,
// the scripts that are not empty.
json PresetToJson(const std::string& text, ONDREL2::AEffect* const* effects, int count);

// A short description of a chain: "amplifier > limiter" ("(empty)").
std::string DescribeChain(ONDREL2::AEffect* const* effects, int count);

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_PRESET_H
