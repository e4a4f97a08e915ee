#include "preset.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

#include "common.h"

namespace ondrel_tool {

using ONDREL2::AEffect;

namespace {

std::string JsonTypeName(const json& j) { return j.type_name(); }

// Text that a JSON file can hold as a string: UTF-8 as the JSON writer
// checks it (no overlong forms, no surrogates), and no NUL.
bool IsUtf8Text(const std::string& s) {
  if (s.find('\0') != std::string::npos) return false;
  try {
    (void)json(s).dump();
  } catch (const json::type_error&) {
    return false;
  }
  return true;
}

// `s` as a JSON string can hold it: a stream's texts (labels written by
// older hosts may be in a local code page) get U+FFFD for every byte that is
// not part of valid UTF-8, and the user is told.
std::string TextForJson(const std::string& s, const std::string& what) {
  try {
    (void)json(s).dump();
    return s;
  } catch (const json::type_error&) {
  }
  Warn(what + " is not UTF-8; its other bytes are written as U+FFFD");
  return json::parse(json(s).dump(-1, ' ', false, json::error_handler_t::replace))
      .get<std::string>();
}

std::string ToHex(const std::string& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

std::string FromHex(const std::string& hex, const std::string& where) {
  auto nibble = [&](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    UsageError(where + ": '" + hex + "' is not a hex string");
  };
  if (hex.size() % 2 != 0) UsageError(where + ": hex string of odd length");
  std::string out;
  for (size_t i = 0; i < hex.size(); i += 2)
    out += static_cast<char>(nibble(hex[i]) * 16 + nibble(hex[i + 1]));
  return out;
}

void CheckKeys(const json& object, std::initializer_list<const char*> valid,
               const std::string& where) {
  for (auto it = object.begin(); it != object.end(); ++it) {
    bool ok = false;
    for (const char* v : valid) ok = ok || it.key() == v;
    if (!ok) {
      std::string list;
      for (const char* v : valid) list += std::string(list.empty() ? "" : ", ") + "'" + v + "'";
      UsageError(where + ": unknown key '" + it.key() + "'; valid keys are " + list);
    }
  }
}

}  // namespace

json ParseJsonText(const std::string& text, const std::string& source) {
  try {
    return json::parse(text);
  } catch (const json::parse_error& e) {
    UsageError(source + ": not valid JSON: " + e.what());
  } catch (const json::out_of_range&) {
    // A number beyond what a double holds (1e400).
    UsageError(source + ": a number is out of range (beyond +-1.8e308)");
  }
}

LoadedPreset PresetFromJson(const json& root, const std::string& source, Unavailable unavailable) {
  if (!root.is_object()) UsageError(source + ": a preset is a JSON object with \"effects\"");
  CheckKeys(root, {"text", "effects"}, source);
  LoadedPreset preset;
  if (root.contains("text")) {
    if (!root["text"].is_string()) UsageError(source + ": \"text\" must be a string");
    preset.text = root["text"].get<std::string>();
  }
  if (!root.contains("effects")) return preset;
  const json& effects = root["effects"];
  if (!effects.is_array()) UsageError(source + ": \"effects\" must be an array");
  for (size_t n = 0; n < effects.size(); ++n) {
    const json& fx = effects[n];
    const std::string where = source + ": effects[" + std::to_string(n) + "]";
    if (!fx.is_object()) UsageError(where + " must be an object with \"type\"");
    CheckKeys(fx, {"type", "params", "scripts"}, where);
    if (!fx.contains("type")) UsageError(where + " has no \"type\"");
    const json& t = fx["type"];
    int type = 0;
    if (t.is_string()) {
      type = ParseEffectType(t.get<std::string>(), where);
    } else if (t.is_number_integer()) {
      type = ParseEffectType(std::to_string(t.get<long long>()), where);
    } else {
      UsageError(where + ": \"type\" must be a short name or a whole number, not " + t.dump());
    }
    if (unavailable != Unavailable::kFail && !EffectAvailable(type)) {
      if (unavailable == Unavailable::kSkipWithNote)
        std::fprintf(stderr, "note: %s: effect '%s' is not in this build of libondrel; skipped\n",
                     where.c_str(), EffectShortName(type).c_str());
      continue;
    }
    AEffect* effect = CreateEffect(type, where);
    preset.effects.Add(effect);
    const std::string fxWhere = where + " (" + EffectShortName(type) + ")";
    if (fx.contains("params")) {
      const json& params = fx["params"];
      if (!params.is_object()) UsageError(fxWhere + ": \"params\" must be an object");
      for (auto it = params.begin(); it != params.end(); ++it) {
        int index = RequireParam(effect, it.key(), fxWhere);
        const json& v = it.value();
        const std::string pWhere = fxWhere + ": \"" + it.key() + "\"";
        if (ParamIsBinary(effect, index)) {
          if (v.is_string()) {
            SetBinaryParam(effect, index, v.get<std::string>(), true);
          } else if (v.is_object() && v.size() == 1 && v.contains("hex") && v["hex"].is_string()) {
            SetBinaryParam(effect, index, FromHex(v["hex"].get<std::string>(), pWhere), false);
          } else {
            UsageError(pWhere + " is a binary parameter: give a string (or {\"hex\": \"...\"})");
          }
        } else {
          if (!v.is_number())
            UsageError(pWhere + " must be a number in real units, not " + JsonTypeName(v));
          SetFloatParam(effect, index, v.get<double>(), fxWhere);
        }
      }
    }
    if (fx.contains("scripts")) {
      const json& scripts = fx["scripts"];
      if (!scripts.is_object()) UsageError(fxWhere + ": \"scripts\" must be an object");
      for (auto it = scripts.begin(); it != scripts.end(); ++it) {
        int index = RequireParam(effect, it.key(), fxWhere + ": scripts");
        if (!it.value().is_string())
          UsageError(fxWhere + ": the script of \"" + it.key() + "\" must be a string");
        SetParamScript(effect, index, it.value().get<std::string>());
      }
    }
  }
  return preset;
}

LoadedPreset PresetFromStream(const std::string& bytes, const std::string& source) {
  if (bytes.empty()) UsageError(source + ": empty file");
  AEffect** handles = nullptr;
  int count = 0;
  // The library copies the stream's text without bounds: it cannot be longer
  // than the stream itself.
  std::vector<char> text(bytes.size() + 1, 0);
  int status = 0;
  try {
    status = ONDREL2::ondrel_stream2params(&handles, &count, bytes.data(),
                                           static_cast<int>(bytes.size()), text.data());
  } catch (const std::out_of_range&) {
    UsageError(source + ": the stream names a parameter that its effect does not have");
  }
  if (status == ONDREL2::ONDREL_E_INVALID)
    UsageError(source +
               ": not a JSON preset (which starts with '{') and not a valid parameter stream "
               "(the library's verifier rejected it: invalid argument)");
  if (status != 0 || handles == nullptr) {
    if (handles != nullptr) ONDREL2::ondrel_destroy_params(handles, count, true);
    Failure(source + ": the parameter stream cannot be loaded: status " + StatusText(status) +
            " (written by a newer library, or it holds effects this build lacks)");
  }
  LoadedPreset preset;
  preset.text = text.data();
  for (int i = 0; i < count; ++i) preset.effects.Add(handles[i]);
  ONDREL2::ondrel_destroy_params(handles, count, false);
  // A stream stores raw float bits, so it can hold NaN or infinity, which
  // no JSON preset can express and no effect can use: such a parameter gets
  // its default, and the user is told.
  for (int i = 0; i < preset.effects.size(); ++i) {
    AEffect* effect = preset.effects[i];
    for (int p = 0; p < effect->numParams; ++p) {
      if (ParamIsBinary(effect, p) || std::isfinite(GetParamValue(effect, p))) continue;
      float fallback = 0.0f;
      effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM_DEFAULT, p, 0, &fallback, 0.0f);
      effect->dispatcher(effect, ONDREL2::ONDREL_OP_SET_PARAM_DATA, p, sizeof fallback, &fallback,
                         0.0f);
      Warn(source + ": effect " + std::to_string(i + 1) + " (" +
           EffectShortName(EffectType(effect)) + "), parameter '" + ParamName(effect, p) +
           "' is not a number; its default " + FloatText(fallback) + " is used");
    }
  }
  return preset;
}

bool StartsWithJsonObject(const std::string& bytes) {
  const size_t start = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  size_t first = bytes.find_first_not_of(" \t\r\n", start);
  return first != std::string::npos && bytes[first] == '{';
}

LoadedPreset LoadPresetFile(const std::string& path) {
  std::string bytes = ReadFileBytes(path);
  if (StartsWithJsonObject(bytes)) return PresetFromJson(ParseJsonText(bytes, path), path);
  return PresetFromStream(bytes, path);
}

json PresetToJson(const std::string& text, AEffect* const* effects, int count) {
  json root = json::object();
  root["text"] = TextForJson(text, "the preset's text");
  json list = json::array();
  for (int i = 0; i < count; ++i) {
    AEffect* effect = effects[i];
    json fx = json::object();
    fx["type"] = EffectShortName(EffectType(effect));
    json params = json::object();
    json scripts = json::object();
    for (int p = 0; p < effect->numParams; ++p) {
      std::string name = ParamName(effect, p);
      if (ParamIsBinary(effect, p)) {
        std::string bytes = GetParamBytes(effect, p);
        while (!bytes.empty() && bytes.back() == '\0') bytes.pop_back();
        if (IsUtf8Text(bytes)) {
          params[name] = bytes;
        } else {
          params[name] = json{{"hex", ToHex(GetParamBytes(effect, p))}};
        }
      } else {
        params[name] = FloatForJson(GetParamValue(effect, p));
      }
      std::string script = GetParamScript(effect, p);
      if (!script.empty())
        scripts[name] =
            TextForJson(script, EffectShortName(EffectType(effect)) + " script of '" + name + "'");
    }
    fx["params"] = params;
    if (!scripts.empty()) fx["scripts"] = scripts;
    list.push_back(fx);
  }
  root["effects"] = list;
  return root;
}

std::string DescribeChain(AEffect* const* effects, int count) {
  if (count == 0) return "(empty chain)";
  std::string out;
  for (int i = 0; i < count; ++i) {
    if (i > 0) out += " > ";
    out += EffectShortName(EffectType(effects[i]));
  }
  return out;
}

}  // namespace ondrel_tool
