#include "framework/audio_effect.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/library.h"
#include "frame/log.h"
#include "framework/alloc.h"
#include "framework/script.h"

namespace ONDREL2 {

float IdentityMapping(float value) { return value; }

AudioEffect::AudioEffect()
    : handle{&EffectDispatcher, 0, 2, 2, 0, 0, this},
      sampleRate(0.0f),
      scriptVersion(2),
      paramsDirty(false),
      effectType(0) {
  // The first setting of the rate counts as a change: a new object is dirty.
  AudioEffect::SetSampleRate(44100.0f);
}

AudioEffect::~AudioEffect() {
  for (ParamDesc& p : params) {
    std::free(p.value);
    p.value = nullptr;
  }
}

void AudioEffect::Open() {}
void AudioEffect::Close() {}
void AudioEffect::Suspend() {}
int32_t AudioEffect::Resume() { return 0; }
AEffect* AudioEffect::GetAEffect() { return &handle; }

void AudioEffect::SetSampleRate(float rate) {
  if (rate != sampleRate) {
    sampleRate = rate;
    paramsDirty = true;
  }
}

float AudioEffect::GetSampleRate() { return sampleRate; }

void AudioEffect::SetChannels(int32_t chns, uint64_t mask) {
  if (handle.numInputs != chns) {
    handle.numInputs = chns;
    paramsDirty = true;
  }
  if (handle.inputMask != mask) {
    handle.inputMask = mask;
    paramsDirty = true;
  }
  if (handle.numOutputs != chns) {
    handle.numOutputs = chns;
    paramsDirty = true;
  }
  if (handle.outputMask != mask) {
    handle.outputMask = mask;
    paramsDirty = true;
  }
}

int32_t AudioEffect::GetChannels() { return handle.numInputs; }

void AudioEffect::SetOutChannels(int32_t chns) {
  if (handle.numOutputs != chns) {
    handle.numOutputs = chns;
    paramsDirty = true;
  }
}

int32_t AudioEffect::GetOutChannels() { return handle.numOutputs; }
uint64_t AudioEffect::GetOutChannelMask() { return handle.outputMask; }
int32_t AudioEffect::GetBlockSize() { return 1; }

float AudioEffect::GetScriptedParamByName(const char* name) {
  return GetScriptedParam(GetParamIndex(name));
}

float AudioEffect::GetScriptedParam(int32_t index) {
  const float raw = GetParam(index);
  const ParamDesc& p = params[static_cast<size_t>(index)];
  if (p.script.empty()) {
    Log(kLogInfo, "[ON2L]:<p/%s>: %g", p.name, static_cast<double>(raw));
    return raw;
  }
  const float out = RunScript(p.script.c_str(), raw);
  Log(kLogInfo, "[ON2L]:<p/%s>: %g <-- %g", p.name, static_cast<double>(out),
      static_cast<double>(raw));
  // Limited to the bounds; a NaN stays NaN.
  if (out > p.maxValue) return p.maxValue;
  return out < p.minValue ? p.minValue : out;
}

void AudioEffect::SetParamNormalized(int32_t index, float norm) {
  const ParamDesc& p = params[static_cast<size_t>(index)];
  if (p.binary) return;
  const float high = p.toLinear(p.maxValue);
  const float low = p.toLinear(p.minValue);
  const float center = p.toLinear(p.center);
  const float value = p.fromLinear(denorm_center(norm, high, low, center, p.shape));
  SetParamData(index, &value, 4);
}

void AudioEffect::SetParam(int32_t index, float value) {
  if (params[static_cast<size_t>(index)].binary) return;
  SetParamData(index, &value, 4);
}

float AudioEffect::GetParamByName(const char* name) { return GetParam(GetParamIndex(name)); }

float AudioEffect::GetParam(int32_t index) {
  const ParamDesc& p = params[static_cast<size_t>(index)];
  if (p.binary || p.value == nullptr) return -1.0f;
  float value;
  std::memcpy(&value, p.value, sizeof(float));
  return value;
}

float AudioEffect::GetParamNormalizedByName(const char* name) {
  return GetParamNormalized(GetParamIndex(name));
}

float AudioEffect::GetParamNormalized(int32_t index) {
  const ParamDesc& p = params[static_cast<size_t>(index)];
  if (p.binary) return -1.0f;
  return norm_center(p.toLinear(GetParam(index)), p.toLinear(p.maxValue), p.toLinear(p.minValue),
                     p.toLinear(p.center), p.shape);
}

float AudioEffect::GetParamDefault(int32_t index) {
  const ParamDesc& p = params[static_cast<size_t>(index)];
  return p.binary ? -1.0f : p.defaultValue;
}

int32_t AudioEffect::SetParamData(int32_t index, const void* data, int32_t size) {
  ParamDesc& p = params[static_cast<size_t>(index)];
  int32_t bytes = p.binary ? size : 4;
  if (bytes < 0) bytes = 0;
  // A host's null data stores nothing.
  if (data == nullptr && bytes > 0) return 0;
  if (bytes > p.valueSize) {
    std::free(p.value);
    p.value = AllocBlock<char>(static_cast<size_t>(bytes));
    if (p.value == nullptr) throw std::bad_alloc();
    // A fresh buffer always differs from what was stored.
    p.valueSize = bytes;
    std::memcpy(p.value, data, static_cast<size_t>(bytes));
    paramsDirty = true;
    return bytes;
  }
  if (p.value == nullptr) {
    p.valueSize = 0;
    return 0;
  }
  const bool changed =
      bytes != p.valueSize || std::memcmp(p.value, data, static_cast<size_t>(bytes)) != 0;
  if (bytes > 0) std::memcpy(p.value, data, static_cast<size_t>(bytes));
  p.valueSize = bytes;
  if (changed) paramsDirty = true;
  return bytes;
}

void* AudioEffect::GetParamData(int32_t index, int32_t* size) {
  const ParamDesc& p = params[static_cast<size_t>(index)];
  if (size != nullptr) *size = p.valueSize;
  return p.value;
}

void AudioEffect::GetParamName(int32_t index, char* buf) {
  if (buf == nullptr || index < 0 || index >= static_cast<int32_t>(params.size())) return;
  std::strcpy(buf, params[static_cast<size_t>(index)].name);
}

void AudioEffect::GetParamLabel(int32_t index, char* buf) {
  if (buf == nullptr || index < 0 || index >= static_cast<int32_t>(params.size())) return;
  if (!LookupLocalized(buf, &params[static_cast<size_t>(index)].labels)) GetParamName(index, buf);
}

void AudioEffect::GetParamDisplay(int32_t index, char* buf) {
  if (buf == nullptr || index < 0 || index >= static_cast<int32_t>(params.size())) return;
  ParamDesc& p = params[static_cast<size_t>(index)];
  p.formatter(buf, p.name, this);
}

int32_t AudioEffect::GetParamIndex(const char* name) { return paramIndex.at(name); }

int32_t AudioEffect::GetParamHints(int32_t index, int32_t* second) {
  const ParamDesc& p = params[static_cast<size_t>(index)];
  if (second != nullptr) *second = p.hintB;
  return p.hintA;
}

bool AudioEffect::IsParamBinary(int32_t index) { return params[static_cast<size_t>(index)].binary; }

int32_t AudioEffect::GetEffectType() { return effectType; }

char* AudioEffect::GetEffectName(char* buf) {
  if (buf == nullptr) return buf;
  if (!LookupLocalized(buf, &effectNames)) buf[0] = 0;
  return buf;
}

void AudioEffect::Destroy() { delete this; }

bool AudioEffect::LookupLocalized(char* buf, const TextMap* texts) {
  if (texts == nullptr) return false;
  auto find = [texts](const std::string& key) -> const std::string* {
    auto it = texts->find(key);
    if (it == texts->end() || it->second.empty()) return nullptr;
    return &it->second;
  };
  const std::string language = LocaleLanguage();
  const std::string tag = language + "-" + LocaleCountry();
  const std::string* text = find(tag);
  if (text == nullptr) text = find(language);
  if (text == nullptr) text = find("en");
  if (text == nullptr) return false;
  if (buf != nullptr) std::strcpy(buf, text->c_str());
  return true;
}

bool AudioEffect::GetBoolText(char* buf, bool on) {
  if (buf == nullptr) return false;
  static const TextMap kOn = {{"zh", "是"}, {"zh-HK", "開"}, {"ja", "オン"}, {"en", "On"}};
  static const TextMap kOff = {{"zh", "否"}, {"zh-HK", "関"}, {"ja", "オフ"}, {"en", "Off"}};
  return LookupLocalized(buf, on ? &kOn : &kOff);
}

const char* AudioEffect::GetParamScript(int32_t index) {
  return params[static_cast<size_t>(index)].script.c_str();
}

void AudioEffect::SetParamScript(int32_t index, const char* text) {
  ParamDesc& p = params[static_cast<size_t>(index)];
  if (text == nullptr) text = "";
  if (p.script != text) {
    p.script = text;
    paramsDirty = true;
  }
}

bool AudioEffect::ParamNeedsRebuild(int32_t index) {
  return params[static_cast<size_t>(index)].needsRebuild;
}

int32_t ScriptVersionOf(const std::string& script) {
  if (script.empty() || script[0] != '#') return 2;
  std::string head = script.substr(1);
  const size_t eq = head.find('=');
  if (eq == std::string::npos) return 2;
  if (head.compare(0, eq, "GV_SCRIPTVERSION") != 0 || eq != std::strlen("GV_SCRIPTVERSION"))
    return 2;
  Log(kLogTrace, "[ON2L]:detectScriptVersion:");
  return std::atoi(head.c_str() + eq + 1);
}

int32_t AudioEffect::GetScriptVersion() {
  for (const ParamDesc& p : params) {
    const int32_t version = ScriptVersionOf(p.script);
    if (version > scriptVersion) scriptVersion = version;
  }
  return scriptVersion;
}

void AudioEffect::SetEffectName(const char* locale, const char* name) {
  if (locale == nullptr || name == nullptr) return;
  effectNames[locale] = name;
}

void AudioEffect::SetParamLabels(const char* name, ...) {
  TextMap labels;
  va_list args;
  va_start(args, name);
  for (;;) {
    const char* locale = va_arg(args, const char*);
    const char* text = va_arg(args, const char*);
    if (locale == nullptr) break;
    const bool last = std::strcmp(locale, "en") == 0;
    labels[locale] = (last && (text == nullptr || text[0] == 0)) ? name : (text ? text : "");
    if (last) break;
  }
  va_end(args);
  params[static_cast<size_t>(GetParamIndex(name))].labels = std::move(labels);
}

Param::operator ParamDesc() const {
  ParamDesc d{};
  std::snprintf(d.name, sizeof d.name, "%s", name_ != nullptr ? name_ : "");
  d.binary = binary_;
  d.minValue = min_;
  d.maxValue = max_;
  d.center = centerSet_ ? center_ : max_;
  d.shape = centerSet_ ? shape_ : 1.0f;
  d.defaultValue = default_;
  d.formatter = formatter_;
  d.hintA = hintA_;
  d.hintB = hintB_;
  d.toLinear = toLinear_;
  d.fromLinear = fromLinear_;
  d.needsRebuild = rebuild_;
  return d;
}

void AudioEffect::SetParamTable(const ParamDesc* table) {
  for (const ParamDesc* src = table; src->name[0] != 0; ++src) {
    ParamDesc p = *src;
    if (p.formatter == nullptr) p.formatter = &FormatDefault;
    if (p.toLinear == nullptr) p.toLinear = &IdentityMapping;
    if (p.fromLinear == nullptr) p.fromLinear = &IdentityMapping;
    if (p.binary) {
      p.value = nullptr;
      p.valueSize = 0;
    } else {
      p.value = AllocBlock<float>(1);
      if (p.value == nullptr) throw std::bad_alloc();
      std::memcpy(p.value, &p.defaultValue, sizeof(float));
      p.valueSize = 4;
    }
    paramIndex[p.name] = static_cast<int32_t>(params.size());
    params.push_back(std::move(p));
  }
  handle.numParams = static_cast<int32_t>(params.size());
}

// ---- Formatters ----------------------------------------------------------

namespace {

int32_t PrintReal(char* buf, const char* format, float value) {
  std::sprintf(buf, format, static_cast<double>(value));
  return 0;
}

// Whether `v` converts to a 32-bit integer without overflow (false for NaN).
bool FitsInt32(float v) { return v > -2147483904.0f && v < 2147483648.0f; }

// Integer-like formatters truncate the stored value toward zero.
int32_t PrintWhole(char* buf, const char* format, float value) {
  std::sprintf(buf, format, static_cast<int>(value));
  return 0;
}

}  // namespace

int32_t FormatDefault(char* buf, const char* name, AudioEffect* effect) {
  return PrintReal(buf, "%g", effect->GetParamNormalizedByName(name));
}

int32_t FormatPlain(char* buf, const char* name, AudioEffect* effect) {
  return PrintReal(buf, "%g", effect->GetParamByName(name));
}

int32_t FormatThreeDigits(char* buf, const char* name, AudioEffect* effect) {
  return PrintReal(buf, "%.3g", effect->GetParamByName(name));
}

int32_t FormatDecibels(char* buf, const char* name, AudioEffect* effect) {
  return PrintReal(buf, "%+.1f dB", effect->GetParamByName(name));
}

int32_t FormatPercent(char* buf, const char* name, AudioEffect* effect) {
  return PrintWhole(buf, "%d%%", effect->GetParamByName(name));
}

int32_t FormatHertz(char* buf, const char* name, AudioEffect* effect) {
  return PrintReal(buf, "%.1f Hz", effect->GetParamByName(name));
}

int32_t FormatMilliseconds(char* buf, const char* name, AudioEffect* effect) {
  return PrintReal(buf, "%.1f ms", effect->GetParamByName(name));
}

int32_t FormatWholeMilliseconds(char* buf, const char* name, AudioEffect* effect) {
  return PrintWhole(buf, "%d ms", effect->GetParamByName(name));
}

int32_t FormatInteger(char* buf, const char* name, AudioEffect* effect) {
  return PrintWhole(buf, "%d", effect->GetParamByName(name));
}

int32_t FormatOnOff(char* buf, const char* name, AudioEffect* effect) {
  effect->GetBoolText(buf, static_cast<int>(effect->GetParamByName(name)) > 0);
  return 0;
}

int32_t FormatRatio(char* buf, const char* name, AudioEffect* effect) {
  const int n = static_cast<int>(std::floor(effect->GetParamByName(name)));
  if (n == 0)
    std::strcpy(buf, "1:1");
  else if (n > 0)
    std::sprintf(buf, "%d X", n + 1);
  else
    std::sprintf(buf, "1/%d", 1 - n);
  return 0;
}

// ---- Dispatcher ------------------------------------------------------------

int32_t EffectDispatcher(AEffect* effect, int32_t opcode, int32_t index, int32_t value, void* ptr,
                         float opt) {
  if (effect == nullptr || effect->object == nullptr) return 0;
  AudioEffect* fx = effect->object;
  // A host's parameter index outside the table reaches nothing: the opcodes
  // that take one answer 0 and leave `ptr` alone.
  const bool takesIndex =
      (opcode >= ONDREL_OP_GET_PARAM_LABEL && opcode <= ONDREL_OP_IS_PARAM_BINARY) ||
      opcode == ONDREL_OP_GET_PARAM_HINTS ||
      (opcode >= ONDREL_OP_SET_PARAM_NORMALIZED && opcode <= ONDREL_OP_PARAM_NEEDS_REBUILD);
  if (takesIndex && (index < 0 || index >= static_cast<int32_t>(fx->params.size()))) return 0;
  switch (opcode) {
    case ONDREL_OP_OPEN: fx->Open(); return 0;
    case ONDREL_OP_CLOSE:
      fx->Close();
      delete fx;
      return 1;
    case ONDREL_OP_GET_PARAM_LABEL: fx->GetParamLabel(index, static_cast<char*>(ptr)); return 0;
    case ONDREL_OP_GET_PARAM_DISPLAY: fx->GetParamDisplay(index, static_cast<char*>(ptr)); return 0;
    case ONDREL_OP_GET_PARAM_NAME: fx->GetParamName(index, static_cast<char*>(ptr)); return 0;
    case ONDREL_OP_GET_PARAM_DATA: {
      int32_t size = 0;
      void* data = fx->GetParamData(index, &size);
      if (ptr != nullptr) *static_cast<void**>(ptr) = data;
      return size;
    }
    case ONDREL_OP_SET_PARAM_DATA: return fx->SetParamData(index, ptr, value);
    case ONDREL_OP_GET_PARAM:
      if (ptr != nullptr) *static_cast<float*>(ptr) = fx->GetParam(index);
      return 0;
    case ONDREL_OP_SET_PARAM:
      // A value that is not a number or infinite keeps the old one.
      if (!std::isfinite(opt)) return ONDREL_E_INVALID;
      fx->SetParam(index, opt);
      return 0;
    case ONDREL_OP_GET_PARAM_DEFAULT:
      if (ptr != nullptr) *static_cast<float*>(ptr) = fx->GetParamDefault(index);
      return 0;
    case ONDREL_OP_IS_PARAM_BINARY: return fx->IsParamBinary(index) ? 1 : 0;
    case ONDREL_OP_GET_PARAM_INDEX:
      if (ptr == nullptr) return -1;
      return fx->GetParamIndex(static_cast<const char*>(ptr));
    case ONDREL_OP_GET_PARAM_HINTS: return fx->GetParamHints(index, static_cast<int32_t*>(ptr));
    case ONDREL_OP_SET_CHANNELS: {
      // A count that is not a number or does not fit 32 bits is refused.
      if (!FitsInt32(opt)) return ONDREL_E_INVALID;
      const uint64_t mask = (static_cast<uint64_t>(static_cast<uint32_t>(index)) << 32) |
                            static_cast<uint32_t>(value);
      fx->SetChannels(static_cast<int32_t>(opt), mask);
      return 0;
    }
    case ONDREL_OP_SET_OUT_CHANNELS:
      if (!FitsInt32(opt)) return ONDREL_E_INVALID;
      fx->SetOutChannels(static_cast<int32_t>(opt));
      return 0;
    case ONDREL_OP_GET_EFFECT_TYPE:
      if (ptr != nullptr) *static_cast<int32_t*>(ptr) = fx->GetEffectType();
      return 0;
    case ONDREL_OP_GET_EFFECT_NAME: fx->GetEffectName(static_cast<char*>(ptr)); return 0;
    case ONDREL_OP_SET_SAMPLE_RATE: fx->SetSampleRate(opt); return 0;
    case ONDREL_OP_SUSPEND_RESUME:
      if (value == 0)
        fx->Suspend();
      else
        fx->Resume();
      return 0;
    case ONDREL_OP_SET_PARAM_NORMALIZED:
      if (!std::isfinite(opt)) return ONDREL_E_INVALID;
      fx->SetParamNormalized(index, opt);
      return 0;
    case ONDREL_OP_GET_PARAM_NORMALIZED:
      if (ptr != nullptr) *static_cast<float*>(ptr) = fx->GetParamNormalized(index);
      return 0;
    case ONDREL_OP_SET_PARAM_SCRIPT:
      fx->SetParamScript(index, static_cast<const char*>(ptr));
      return 0;
    case ONDREL_OP_GET_PARAM_SCRIPT:
      if (ptr != nullptr) *static_cast<const char**>(ptr) = fx->GetParamScript(index);
      return 0;
    case ONDREL_OP_PARAM_NEEDS_REBUILD: return fx->ParamNeedsRebuild(index) ? 1 : 0;
    case ONDREL_OP_GET_SCRIPT_VERSION: return fx->GetScriptVersion();
    default: return 0;
  }
}

}  // namespace ONDREL2
