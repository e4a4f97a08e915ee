// AudioEffect: the base of every effect, and ParamDesc, the parameter model.
//
// An effect has three faces: the public handle AEffect that hosts drive
// through one opcode function, the virtual operations the processing
// instance calls, and the parameter store. Each parameter is declared in a
// static ParamDesc table; an object copies the table, owns one value buffer
// per parameter, and offers the value as stored (real units), normalised to
// 0..1 for sliders, as display text, and scripted (what the DSP reads).
//
// A change of a parameter or of the format only sets `paramsDirty`; the
// effect reads its parameters again before its next block.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ondrel.h"

namespace ONDREL2 {

using TextMap = std::map<std::string, std::string>;
using ParamFormatter = int32_t (*)(char* buf, const char* name, AudioEffect* effect);
using ParamMapping = float (*)(float);

// The normalised position of `center` for gain-like parameters (0x3F1E377A).
constexpr float kGainShape = 0.618034f;
// Maximum of an integer-like parameter read truncated: 2 - 2^-20 and so on.
constexpr float kSwitchMax = 1.99999905f;

// One parameter: the record of an effect's static table (ended by a record
// with an empty name) and, copied by SetParamTable, the object's own
// parameter with its value. Positional initialisation follows the field
// order; the Param builder below reads better for new tables.
struct ParamDesc {
  char name[64];             // unique key within the effect; what streams and UpdateParams use
  bool binary;               // a byte string (path, blob): no float view, numbers unused
  float minValue;            // lower bound of the real value
  float maxValue;            // upper bound; integer-like parameters stop just under an integer
  float center;              // the real value that sits at normalised `shape`
  float shape;               // normalised position of `center` (center == max, shape 1: linear)
  float defaultValue;        // initial value, copied as it stands (need not be in bounds)
  ParamFormatter formatter;  // display text; null: FormatDefault
  int32_t hintA;             // opaque user-interface hints, handed out unread
  int32_t hintB;
  ParamMapping toLinear;    // domain in which center/shape interpolate; null: identity
  ParamMapping fromLinear;  // inverse of toLinear; null: identity
  bool needsRebuild;        // a change rebuilds the chain instead of applying in place
  TextMap labels;           // locale tag -> label
  std::string script;       // the parameter's script, empty if none
  void* value;              // the object's value buffer (owned by the object)
  int32_t valueSize;        // bytes in `value`: 4 for a float parameter
};

// Maximum of an integer-like parameter whose values run below `n`: n - 2^-20.
constexpr float IntegerMax(int n) { return static_cast<float>(n) - 9.5367431640625e-7f; }
static_assert(IntegerMax(2) == kSwitchMax, "the switch maximum is 2 - 2^-20");

// Builds one ParamDesc by name:
//   Param("Attack Time").Range(0.1f, 80).Default(5).Format(&FormatMilliseconds).Hints(2)
// Unset fields mean a linear slider (center at the maximum, shape 1), the
// default formatter, no hints, identity mapping, no rebuild.
class Param {
 public:
  explicit constexpr Param(const char* name) : name_(name) {}

  constexpr Param Range(float min, float max) const {
    Param p = *this;
    p.min_ = min;
    p.max_ = max;
    return p;
  }
  // Gain-like sliders put `center` at normalised `shape` instead of linear.
  constexpr Param Center(float center, float shape) const {
    Param p = *this;
    p.center_ = center;
    p.shape_ = shape;
    p.centerSet_ = true;
    return p;
  }
  constexpr Param Default(float value) const {
    Param p = *this;
    p.default_ = value;
    return p;
  }
  constexpr Param Format(ParamFormatter formatter) const {
    Param p = *this;
    p.formatter_ = formatter;
    return p;
  }
  constexpr Param Hints(int32_t a, int32_t b = 0) const {
    Param p = *this;
    p.hintA_ = a;
    p.hintB_ = b;
    return p;
  }
  constexpr Param Mapping(ParamMapping to, ParamMapping from) const {
    Param p = *this;
    p.toLinear_ = to;
    p.fromLinear_ = from;
    return p;
  }
  // Interpolates in linear gain (dB2scale / scale2dB).
  constexpr Param DecibelMapping() const { return Mapping(&dB2scale, &scale2dB); }
  constexpr Param Rebuild() const {
    Param p = *this;
    p.rebuild_ = true;
    return p;
  }
  constexpr Param Binary() const {
    Param p = *this;
    p.binary_ = true;
    return p;
  }

  operator ParamDesc() const;  // NOLINT: tables list builders among records

 private:
  const char* name_;
  bool binary_ = false;
  float min_ = 0.0f;
  float max_ = 1.0f;
  float center_ = 0.0f;
  float shape_ = 1.0f;
  bool centerSet_ = false;
  float default_ = 0.0f;
  ParamFormatter formatter_ = nullptr;
  int32_t hintA_ = 0;
  int32_t hintB_ = 0;
  ParamMapping toLinear_ = nullptr;
  ParamMapping fromLinear_ = nullptr;
  bool rebuild_ = false;
};

// The record that ends a table.
inline ParamDesc EndOfTable() { return ParamDesc{""}; }

// Formatters of the parameter tables; each reads the value by name.
int32_t FormatDefault(char* buf, const char* name, AudioEffect* effect);       // "%g" normalised
int32_t FormatPlain(char* buf, const char* name, AudioEffect* effect);         // "%g"
int32_t FormatThreeDigits(char* buf, const char* name, AudioEffect* effect);   // "%.3g"
int32_t FormatDecibels(char* buf, const char* name, AudioEffect* effect);      // "%+.1f dB"
int32_t FormatPercent(char* buf, const char* name, AudioEffect* effect);       // "%d%%"
int32_t FormatHertz(char* buf, const char* name, AudioEffect* effect);         // "%.1f Hz"
int32_t FormatMilliseconds(char* buf, const char* name, AudioEffect* effect);  // "%.1f ms"
int32_t FormatWholeMilliseconds(char* buf, const char* name, AudioEffect* effect);  // "%d ms"
int32_t FormatInteger(char* buf, const char* name, AudioEffect* effect);            // "%d"
int32_t FormatOnOff(char* buf, const char* name, AudioEffect* effect);              // On / Off
int32_t FormatRatio(char* buf, const char* name, AudioEffect* effect);  // "1:1", "4 X", "1/4"

float IdentityMapping(float value);

class AudioEffect {
 public:
  using ChannelVector = std::vector<float*>;

  AudioEffect();
  virtual ~AudioEffect();
  AudioEffect(const AudioEffect&) = delete;
  AudioEffect& operator=(const AudioEffect&) = delete;

  virtual void Open();
  virtual void Close();
  virtual void Suspend();
  virtual int32_t Resume();
  virtual AEffect* GetAEffect();
  virtual void SetSampleRate(float rate);
  virtual float GetSampleRate();
  virtual void SetChannels(int32_t chns, uint64_t mask);
  virtual int32_t GetChannels();
  virtual void SetOutChannels(int32_t chns);
  virtual int32_t GetOutChannels();
  virtual uint64_t GetOutChannelMask();
  virtual int32_t GetBlockSize();
  virtual float GetScriptedParamByName(const char* name);
  virtual float GetScriptedParam(int32_t index);
  virtual void SetParamNormalized(int32_t index, float norm);
  virtual void SetParam(int32_t index, float value);
  virtual float GetParamByName(const char* name);
  virtual float GetParam(int32_t index);
  virtual float GetParamNormalizedByName(const char* name);
  virtual float GetParamNormalized(int32_t index);
  virtual float GetParamDefault(int32_t index);
  virtual int32_t SetParamData(int32_t index, const void* data, int32_t size);
  virtual void* GetParamData(int32_t index, int32_t* size);
  virtual void GetParamName(int32_t index, char* buf);
  virtual void GetParamLabel(int32_t index, char* buf);
  virtual void GetParamDisplay(int32_t index, char* buf);
  virtual int32_t GetParamIndex(const char* name);
  virtual int32_t GetParamHints(int32_t index, int32_t* second);
  virtual bool IsParamBinary(int32_t index);
  virtual AudioEffect* CreateInstance() = 0;
  virtual int32_t GetEffectType();
  virtual char* GetEffectName(char* buf);
  virtual void ClearBuffers() = 0;
  virtual int32_t ProcessInput(const ChannelVector& in, int32_t frames, int32_t* available) = 0;
  virtual int32_t ProcessOutput(const ChannelVector& out, int32_t frames, int32_t* got) = 0;
  virtual int32_t FlushTail(int32_t* frames) = 0;
  virtual int32_t UpdateParams() = 0;
  virtual void Destroy();
  virtual bool LookupLocalized(char* buf, const TextMap* texts);
  virtual bool GetBoolText(char* buf, bool on);
  virtual const char* GetParamScript(int32_t index);
  virtual void SetParamScript(int32_t index, const char* text);
  virtual bool ParamNeedsRebuild(int32_t index);
  virtual int32_t GetScriptVersion();
  virtual void SetEffectName(const char* locale, const char* name);
  // name, then pairs of locale and text ending with the pair whose locale
  // is "en" (an empty "en" text means the label is the name itself).
  virtual void SetParamLabels(const char* name, ...);
  // Appends the records of `table` up to the one with an empty name.
  virtual void SetParamTable(const ParamDesc* table);

  // State shared with the derived classes.
  AEffect handle;
  float sampleRate;
  int32_t scriptVersion;
  bool paramsDirty;
  int32_t effectType;
  TextMap effectNames;
  std::vector<ParamDesc> params;
  std::map<std::string, int32_t> paramIndex;
};

// The opcode entry point that every handle carries.
int32_t EffectDispatcher(AEffect* effect, int32_t opcode, int32_t index, int32_t value, void* ptr,
                         float opt);

// The version a script declares on its first line ("#GV_SCRIPTVERSION=n"),
// or 2.
int32_t ScriptVersionOf(const std::string& script);

}  // namespace ONDREL2
