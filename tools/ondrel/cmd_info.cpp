// `ondrel effects` and `ondrel params`: the catalogue and parameter tables as
// a host sees them through the dispatcher.
#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "effects.h"
#include "preset.h"

namespace ondrel_tool {

int RunEffects(const CommonOptions& common) {
  LibrarySession session(common);
  struct Row {
    std::string value, shortName, display, params, built;
  };
  std::vector<Row> rows;
  rows.push_back({"type", "short name", "display name", "params", "built"});
  int builtCount = 0;
  for (int type = 1; type <= 40; ++type) {
    Row row;
    row.value = std::to_string(type);
    row.shortName = KnownShortName(type) != nullptr ? KnownShortName(type) : "-";
    ONDREL2::AEffect* shared = nullptr;
    ONDREL2::ondrel_get_existing_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(type), &shared);
    bool built = EffectAvailable(type);
    if (shared != nullptr) {
      row.display = EffectDisplayName(shared);
      row.params = std::to_string(shared->numParams);
    } else {
      row.params = "-";
    }
    if (row.display.empty()) row.display = "-";
    row.built = built ? "yes" : "no";
    builtCount += built ? 1 : 0;
    rows.push_back(row);
  }
  int w[4] = {0, 0, 0, 0};
  for (const Row& r : rows) {
    w[0] = std::max(w[0], DisplayWidth(r.value));
    w[1] = std::max(w[1], DisplayWidth(r.shortName));
    w[2] = std::max(w[2], DisplayWidth(r.display));
    w[3] = std::max(w[3], DisplayWidth(r.params));
  }
  for (const Row& r : rows) {
    std::printf("%s  %s  %s  %s  %s\n", PadRight(r.value, w[0]).c_str(),
                PadRight(r.shortName, w[1]).c_str(), PadRight(r.display, w[2]).c_str(),
                PadRight(r.params, w[3]).c_str(), r.built.c_str());
  }
  std::printf("%d of 40 effect types are built into this libondrel.\n", builtCount);
  return kExitOk;
}

int RunParams(const CommonOptions& common, const ParamsOptions& options) {
  LibrarySession session(common);
  int type = ParseEffectType(options.effect, "");
  std::vector<ParamInfo> table = ParamTable(type);
  ONDREL2::AEffect* shared = nullptr;
  ONDREL2::ondrel_get_existing_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(type), &shared);
  std::string display = shared != nullptr ? EffectDisplayName(shared) : "";

  if (options.json) {
    json root = json::object();
    root["type"] = type;
    root["name"] = EffectShortName(type);
    root["display_name"] = display;
    json params = json::array();
    for (const ParamInfo& p : table) {
      json j = json::object();
      j["index"] = p.index;
      j["name"] = p.name;
      j["label"] = p.label;
      j["binary"] = p.binary;
      if (p.binary) {
        j["min"] = nullptr;
        j["default"] = nullptr;
        j["max"] = nullptr;
      } else {
        j["min"] = FloatForJson(p.minValue);
        j["default"] = FloatForJson(p.defaultValue);
        j["max"] = FloatForJson(p.maxValue);
      }
      j["display"] = p.defaultDisplay;
      j["rebuild"] = p.rebuild;
      j["hints"] = json::array({p.hintA, p.hintB});
      params.push_back(j);
    }
    root["params"] = params;
    std::printf("%s\n", root.dump(2).c_str());
    return kExitOk;
  }

  std::printf("%s (%d)%s%s: %zu parameter%s\n", EffectShortName(type).c_str(), type,
              display.empty() ? "" : ", ", display.c_str(), table.size(),
              table.size() == 1 ? "" : "s");
  if (table.empty()) return kExitOk;
  std::vector<std::vector<std::string>> rows;
  rows.push_back(
      {"#", "name", "label", "min", "default", "max", "display", "binary", "rebuild", "hints"});
  for (const ParamInfo& p : table) {
    rows.push_back(
        {std::to_string(p.index), p.name, p.label, p.binary ? "-" : FloatText(p.minValue),
         p.binary ? "-" : FloatText(p.defaultValue), p.binary ? "-" : FloatText(p.maxValue),
         p.defaultDisplay.empty() ? "-" : p.defaultDisplay, p.binary ? "yes" : "no",
         p.rebuild ? "yes" : "no", Format("%d,%d", p.hintA, p.hintB)});
  }
  std::vector<int> widths(rows[0].size(), 0);
  for (const auto& r : rows)
    for (size_t c = 0; c < r.size(); ++c) widths[c] = std::max(widths[c], DisplayWidth(r[c]));
  for (const auto& r : rows) {
    std::string line;
    for (size_t c = 0; c < r.size(); ++c) {
      line += c + 1 < r.size() ? PadRight(r[c], widths[c]) + "  " : r[c];
    }
    std::printf("%s\n", line.c_str());
  }
  return kExitOk;
}

}  // namespace ondrel_tool
