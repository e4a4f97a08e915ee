// libFuzzer target for the tool's preset reader: the input is a preset file,
// JSON or a binary stream, read the way `ondrel process --preset` reads it.
// A bad preset must end in one of the tool's own errors (or the library's
// unknown name, which the tool reports as such); any other exception is a
// finding.
// A preset that loads must survive its own JSON form: written out and read
// back, it gives the same chain description and the same JSON again.
//
// The corpus replay test includes this file with
// ONDREL_FUZZ_PRESET_NO_ENTRY defined and calls RunOnce.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "common.h"
#include "ondrel.h"
#include "preset.h"

namespace fuzz_preset {

enum class Outcome { kLoaded, kRefused, kFinding };

inline Outcome Load(const std::string& bytes, ondrel_tool::LoadedPreset* out) {
  try {
    if (ondrel_tool::StartsWithJsonObject(bytes))
      *out = ondrel_tool::PresetFromJson(ondrel_tool::ParseJsonText(bytes, "fuzz"), "fuzz",
                                         ondrel_tool::Unavailable::kSkipSilently);
    else
      *out = ondrel_tool::PresetFromStream(bytes, "fuzz");
    return Outcome::kLoaded;
  } catch (const ondrel_tool::ToolError&) {
    return Outcome::kRefused;  // a usage error, or a stream this build cannot load
  } catch (const std::out_of_range&) {
    return Outcome::kRefused;
  } catch (...) {
    return Outcome::kFinding;
  }
}

// Runs one input; false on a finding.
inline bool RunOnce(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  ondrel_tool::LoadedPreset first;
  const Outcome outcome = Load(bytes, &first);
  if (outcome != Outcome::kLoaded) return outcome == Outcome::kRefused;
  std::string json, again;
  try {
    json = ondrel_tool::PresetToJson(first.text, first.effects.data(), first.effects.size()).dump();
  } catch (...) {
    return false;
  }
  ondrel_tool::LoadedPreset second;
  if (Load(json, &second) != Outcome::kLoaded) return false;
  if (ondrel_tool::DescribeChain(first.effects.data(), first.effects.size()) !=
      ondrel_tool::DescribeChain(second.effects.data(), second.effects.size()))
    return false;
  try {
    again =
        ondrel_tool::PresetToJson(second.text, second.effects.data(), second.effects.size()).dump();
  } catch (...) {
    return false;
  }
  return again == json;
}

}  // namespace fuzz_preset

#ifndef ONDREL_FUZZ_PRESET_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  set_xlog_level(7);
  ONDREL2::ondrel_init(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz_preset::RunOnce(data, size)) __builtin_trap();
  return 0;
}
#endif
