#include "plugin_catalogue.h"

#include <cctype>
#include <cstring>
#include <stdexcept>

namespace ondrel_lv2 {

using ONDREL2::AEffect;

const char* const kUriPrefix = "urn:ondrel:";
const char* const kChainUri = "urn:ondrel:chain";

std::string Variant::Uri() const { return kUriPrefix + shortName; }

namespace {

std::vector<Variant> BuildVariants() {
  std::vector<Variant> list;
  auto add = [&list](int type, const char* name) {
    if (type == ONDREL2::EFFECT_RESAMPLER) return;
    Variant v;
    v.type = type;
    v.shortName = name;
    // Mono to Dual is fed one channel; everything else a stereo pair.
    v.inChannels = type == ONDREL2::EFFECT_MONO2DUAL ? 1 : 2;
    list.push_back(v);
    // The headphone rooms also take 5.1 and fold it to the two ears.
    if (type == ONDREL2::EFFECT_HEADPHONE) {
      v.shortName = std::string(name) + "-51";
      v.inChannels = 6;
      list.push_back(v);
    }
  };
#define ONDREL_EFFECT(type, name, cls, header) add(ONDREL2::type, name);
#include "effects/effect_list.inc"
#undef ONDREL_EFFECT
  Variant chain;
  chain.shortName = "chain";
  list.push_back(chain);
  return list;
}

}  // namespace

const std::vector<Variant>& Variants() {
  static const std::vector<Variant> variants = BuildVariants();
  return variants;
}

const Variant* FindVariant(const char* uri) {
  if (uri == nullptr) return nullptr;
  for (const Variant& v : Variants())
    if (v.Uri() == uri) return &v;
  return nullptr;
}

std::string MakeSymbol(const std::string& name, std::vector<std::string>* taken) {
  std::string symbol;
  for (char c : name) {
    unsigned char u = static_cast<unsigned char>(c);
    if (std::isalnum(u)) {
      symbol += static_cast<char>(std::tolower(u));
    } else if (!symbol.empty() && symbol.back() != '_') {
      symbol += '_';
    }
  }
  while (!symbol.empty() && symbol.back() == '_') symbol.pop_back();
  if (symbol.empty() || std::isdigit(static_cast<unsigned char>(symbol[0]))) symbol = "p_" + symbol;
  std::string unique = symbol;
  for (int n = 2;; ++n) {
    bool clash = false;
    for (const std::string& t : *taken) clash = clash || t == unique;
    if (!clash) break;
    unique = symbol + "_" + std::to_string(n);
  }
  taken->push_back(unique);
  return unique;
}

std::string ParamName(AEffect* effect, int index) {
  char buf[256] = {};
  effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_PARAM_NAME, index, 0, buf, 0.0f);
  return buf;
}

bool ParamIsBinary(AEffect* effect, int index) {
  return effect->dispatcher(effect, ONDREL2::ONDREL_OP_IS_PARAM_BINARY, index, 0, nullptr, 0.0f) !=
         0;
}

Layout DescribeVariant(const Variant& variant, float rate) {
  Layout layout;
  layout.inChannels = variant.inChannels;
  // Words reserved for the fixed ports.
  std::vector<std::string> taken = {"latency", "control", "notify"};
  for (int c = 0; c < 8; ++c) {
    taken.push_back("in_" + std::to_string(c + 1));
    taken.push_back("out_" + std::to_string(c + 1));
  }
  if (variant.type == 0) {
    // The chain plugin: a stereo bus; the preset decides what runs on it.
    layout.outChannels = 2;
    PathParam preset;
    preset.name = "preset";
    preset.symbol = "preset";
    preset.uri = variant.Uri() + "#preset";
    layout.paths.push_back(preset);
    return layout;
  }
  AEffect* effect = nullptr;
  if (ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(variant.type),
                                    &effect) != 0 ||
      effect == nullptr)
    throw std::runtime_error("effect type " + std::to_string(variant.type) + " is not built");
  for (int p = 0; p < effect->numParams; ++p) {
    std::string name = ParamName(effect, p);
    std::string symbol = MakeSymbol(name, &taken);
    if (ParamIsBinary(effect, p)) {
      layout.paths.push_back({p, name, variant.Uri() + "#" + symbol, symbol});
    } else {
      layout.controls.push_back({p, symbol});
    }
  }
  // The library negotiates the output format when the effect joins a chain.
  void* inst = ONDREL2::ondrel_create_inst();
  ONDREL2::ondrel_setup_input(inst, variant.inChannels, 0);
  ONDREL2::ondrel_set_samplerate(inst, rate);
  ONDREL2::ondrel_set_params(inst, &effect, 1);
  int channels = 0;
  uint64_t mask = 0;
  ONDREL2::ondrel_get_out_chns(inst, &channels, &mask);
  ONDREL2::ondrel_destroy_inst(inst);
  layout.outChannels = channels > 0 ? channels : variant.inChannels;
  return layout;
}

}  // namespace ondrel_lv2
