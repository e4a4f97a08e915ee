// The plugins of the ondrel LV2 bundle and their ports, worked out from the
// library's catalogue. The Turtle generator and the plugin binary both use
// this code, so that the ports the host reads from the data files are the
// ports the plugin maps at run time.
#ifndef ONDREL_LV2_PLUGIN_CATALOGUE_H
#define ONDREL_LV2_PLUGIN_CATALOGUE_H

#include <cstdint>
#include <string>
#include <vector>

#include "ondrel.h"

namespace ondrel_lv2 {

// "urn:ondrel:" + short name; the chain plugin is "urn:ondrel:chain".
extern const char* const kUriPrefix;
extern const char* const kChainUri;

// One plugin of the bundle: an effect type fed with `inChannels` channels.
struct Variant {
  int type = 0;           // ONDREL_EFFECT_TYPE; 0 for the chain plugin
  std::string shortName;  // "limiter", "headphone-51", "chain"
  int inChannels = 2;
  std::string Uri() const;
};

// Every plugin of the bundle, the chain plugin last. Built from the effect
// list: one plugin per built type, a 5.1 variant of the headphone rooms,
// no resampler (its output rate differs from the input's, which a plugin
// cannot have).
const std::vector<Variant>& Variants();
const Variant* FindVariant(const char* uri);

// A float parameter that becomes a control input port.
struct ControlParam {
  int index = 0;       // the effect's parameter index
  std::string symbol;  // LV2 symbol, unique in the plugin
};

// A binary parameter (a file path) that the host sets through patch:Set.
struct PathParam {
  int index = 0;
  std::string name;  // the parameter's table name, "IR File"
  std::string uri;   // plugin URI + "#" + symbol
  std::string symbol;
};

// Port layout: audio inputs, audio outputs, one control input per float
// parameter, the latency output, then (with path parameters) an atom input
// for patch messages and an atom output for notifications.
struct Layout {
  int inChannels = 2;
  int outChannels = 2;
  std::vector<ControlParam> controls;
  std::vector<PathParam> paths;
  uint32_t FirstControl() const { return static_cast<uint32_t>(inChannels + outChannels); }
  uint32_t LatencyPort() const { return FirstControl() + static_cast<uint32_t>(controls.size()); }
  bool HasAtomPorts() const { return !paths.empty(); }
  uint32_t AtomIn() const { return LatencyPort() + 1; }
  uint32_t AtomOut() const { return LatencyPort() + 2; }
  uint32_t PortCount() const { return LatencyPort() + 1 + (HasAtomPorts() ? 2u : 0u); }
};

// The layout of `variant`. Output channels come from the library's own
// negotiation: an instance fed with the variant's input channels at
// `rate`. Throws std::runtime_error when the library lacks the type.
Layout DescribeVariant(const Variant& variant, float rate = 44100.0f);

// "Release Time" -> "release_time"; unique within `taken`, which it extends.
std::string MakeSymbol(const std::string& name, std::vector<std::string>* taken);

// Parameter helpers through the dispatcher.
std::string ParamName(ONDREL2::AEffect* effect, int index);
bool ParamIsBinary(ONDREL2::AEffect* effect, int index);

}  // namespace ondrel_lv2

#endif  // ONDREL_LV2_PLUGIN_CATALOGUE_H
