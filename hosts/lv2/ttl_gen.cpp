// Writes the data files of the ondrel LV2 bundle (manifest.ttl, ondrel.ttl)
// from the library's catalogue: every plugin, its ports, ranges, defaults,
// units, choice words and localised names as the effects themselves report
// them.
//
//   ondrel_lv2_ttl OUTDIR BINARY
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ondrel.h"
#include "plugin_catalogue.h"

using ONDREL2::AEffect;
using namespace ondrel_lv2;

namespace {

struct Locale {
  const char* language;
  const char* country;
  const char* tag;  // the Turtle language tag
};
// The locales for which effects carry their own texts.
const Locale kLocales[] = {
    {"zh", "CN", "zh"}, {"zh", "TW", "zh-TW"}, {"zh", "HK", "zh-HK"}, {"ja", "JP", "ja"}};

void SetEnglish() { ONDREL2::ondrel_set_locale("en", "US"); }

std::string Quote(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out + "\"";
}

std::string Number(double value) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.9g", value);
  std::string text = buf;
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

std::string Text(AEffect* fx, int opcode, int index) {
  char buf[1024] = {};
  fx->dispatcher(fx, opcode, index, 0, buf, 0.0f);
  return buf;
}

std::string EffectName(AEffect* fx) { return Text(fx, ONDREL2::ONDREL_OP_GET_EFFECT_NAME, 0); }

float GetFloat(AEffect* fx, int opcode, int index) {
  float v = 0.0f;
  fx->dispatcher(fx, opcode, index, 0, &v, 0.0f);
  return v;
}

std::string Display(AEffect* fx, int index, float value) {
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, index, 0, nullptr, value);
  return Text(fx, ONDREL2::ONDREL_OP_GET_PARAM_DISPLAY, index);
}

// A bound read back through the gain mapping carries a rounding error
// (-95.996765 for -96): the shortest text within 5e-5 of it.
double Tidy(float value) {
  const double v = value;
  for (int digits = 1; digits <= 9; ++digits) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*g", digits, v);
    const double t = std::strtod(buf, nullptr);
    if (t == v || std::fabs(t - v) <= 5e-5 * std::fabs(v)) return t;
  }
  return v;
}

bool EndsWith(const std::string& s, const char* tail) {
  size_t n = std::strlen(tail);
  return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// Localised variants of a text that differ from the English one.
template <typename Fn>
std::string LocalisedLiterals(const std::string& english, Fn text) {
  std::string out, chinese;
  for (const Locale& l : kLocales) {
    ONDREL2::ondrel_set_locale(l.language, l.country);
    std::string t = text();
    // zh-TW and zh-HK fall back to zh: only their own texts are written.
    const bool region = std::strchr(l.tag, '-') != nullptr;
    if (!region && std::strcmp(l.language, "zh") == 0) chinese = t;
    if (region && t == chinese) continue;
    if (!t.empty() && t != english) out += ", " + Quote(t) + "@" + l.tag;
  }
  SetEnglish();
  return out;
}

const char* PluginClass(int type) {
  switch (type) {
    case ONDREL2::EFFECT_LIMITER: return "lv2:LimiterPlugin";
    case ONDREL2::EFFECT_MULTIBAND_COMPRESSOR: return "lv2:CompressorPlugin";
    case ONDREL2::EFFECT_DEESSER: return "lv2:DynamicsPlugin";
    case ONDREL2::EFFECT_AMPLIFIER: return "lv2:AmplifierPlugin";
    case ONDREL2::EFFECT_IIR_EQ10:
    case ONDREL2::EFFECT_IIR_EQ30:
    case ONDREL2::EFFECT_SUPEREQ: return "lv2:MultiEQPlugin";
    case ONDREL2::EFFECT_ALREVERB: return "lv2:ReverbPlugin";
    case ONDREL2::EFFECT_DELAY: return "lv2:DelayPlugin";
    case ONDREL2::EFFECT_PITCH_SHIFTER: return "lv2:PitchPlugin";
    case ONDREL2::EFFECT_STUDIO_IR:
    case ONDREL2::EFFECT_HEADPHONE:
    case ONDREL2::EFFECT_DFX_3DSURROUND:
    case ONDREL2::EFFECT_DFX_HEADPHONE:
    case ONDREL2::EFFECT_AMBIENCE:
    case ONDREL2::EFFECT_PANNER:
    case ONDREL2::EFFECT_ROTATOR:
    case ONDREL2::EFFECT_STEREO_ENHANCER:
    case ONDREL2::EFFECT_MONO2DUAL:
    case ONDREL2::EFFECT_TWO_TO_SIX: return "lv2:SpatialPlugin";
    case ONDREL2::EFFECT_GROWL: return "lv2:DistortionPlugin";
    default: break;
  }
  if (type >= ONDREL2::EFFECT_LP_FILTER && type <= ONDREL2::EFFECT_AP_FILTER)
    return "lv2:FilterPlugin";
  return nullptr;
}

void WriteControlPort(std::ostream& o, AEffect* fx, const ControlParam& c, uint32_t index) {
  const int p = c.index;
  const std::string name = Text(fx, ONDREL2::ONDREL_OP_GET_PARAM_LABEL, p);
  float lo = 0.0f, hi = 0.0f;
  // The bounds: the normalised ends of the parameter.
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.0f);
  lo = GetFloat(fx, ONDREL2::ONDREL_OP_GET_PARAM, p);
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 1.0f);
  hi = GetFloat(fx, ONDREL2::ONDREL_OP_GET_PARAM, p);
  const float def = GetFloat(fx, ONDREL2::ONDREL_OP_GET_PARAM_DEFAULT, p);

  o << "  lv2:port [\n    a lv2:InputPort, lv2:ControlPort ;\n";
  o << "    lv2:index " << index << " ;\n    lv2:symbol " << Quote(c.symbol) << " ;\n";
  o << "    lv2:name " << Quote(name)
    << LocalisedLiterals(name, [&] { return Text(fx, ONDREL2::ONDREL_OP_GET_PARAM_LABEL, p); })
    << " ;\n";

  // Choices are read truncated and have a maximum just under the next whole
  // number (1.99999905 for a switch).
  const double top = std::floor(static_cast<double>(hi));
  const bool wholeMin = std::floor(static_cast<double>(lo)) == static_cast<double>(lo);
  const bool choice = wholeMin && hi - top > 0.999 && top >= lo;
  if (choice) {
    const int first = static_cast<int>(lo), last = static_cast<int>(top);
    const std::string off = Display(fx, p, static_cast<float>(first));
    const std::string on = last == first + 1 ? Display(fx, p, static_cast<float>(last)) : "";
    double d = std::floor(static_cast<double>(def));
    if (d < first) d = first;
    if (d > last) d = last;
    o << "    lv2:default " << static_cast<int>(d) << " ;\n    lv2:minimum " << first
      << " ;\n    lv2:maximum " << last << " ;\n";
    if (first == 0 && last == 1 && off == "Off" && on == "On") {
      o << "    lv2:portProperty lv2:toggled ;\n";
    } else {
      o << "    lv2:portProperty lv2:integer";
      if (last - first < 64) {
        o << ", lv2:enumeration ;\n";
        for (int k = first; k <= last; ++k) {
          std::string word = Display(fx, p, static_cast<float>(k));
          // A formatter that shows the normalised position says nothing:
          // the number itself is the better word.
          char* end = nullptr;
          double shown = std::strtod(word.c_str(), &end);
          if (word.empty() || (end != nullptr && *end == '\0' && shown != k))
            word = std::to_string(k);
          o << "    lv2:scalePoint [ rdfs:label " << Quote(word) << " ; rdf:value " << k
            << " ] ;\n";
        }
      } else {
        o << " ;\n";
      }
    }
  } else {
    const double tlo = Tidy(lo), thi = Tidy(hi);
    const double d = def < tlo ? tlo : (def > thi ? thi : static_cast<double>(def));
    o << "    lv2:default " << Number(d) << " ;\n    lv2:minimum " << Number(tlo)
      << " ;\n    lv2:maximum " << Number(thi) << " ;\n";
    const std::string shown = Display(fx, p, static_cast<float>(d));
    if (EndsWith(shown, " dB")) o << "    units:unit units:db ;\n";
    if (EndsWith(shown, " Hz")) o << "    units:unit units:hz ;\n";
    if (EndsWith(shown, " ms")) o << "    units:unit units:ms ;\n";
    if (EndsWith(shown, "%")) o << "    units:unit units:pc ;\n";
  }
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, p, 0, nullptr, def);
  o << "  ] ;\n";
}

// Speaker designations of a side with `channels` channels, in the library's
// channel order (front left, front right, centre, LFE, rear left, rear
// right for 5.1), and the port group class they form; null where no
// standard group fits.
const char* GroupClass(int channels) {
  switch (channels) {
    case 1: return "pg:MonoGroup";
    case 2: return "pg:StereoGroup";
    case 6: return "pg:FivePointOneGroup";
    default: return nullptr;
  }
}
const char* Designation(int channels, int c) {
  static const char* const kMono[] = {"pg:center"};
  static const char* const kStereo[] = {"pg:left", "pg:right"};
  static const char* const kSix[] = {
      "pg:left", "pg:right", "pg:center", "pg:lowFrequencyEffects", "pg:rearLeft", "pg:rearRight"};
  if (channels == 1) return kMono[c];
  if (channels == 2) return kStereo[c];
  if (channels == 6) return kSix[c];
  return nullptr;
}

// Audio ports, grouped per side so that hosts such as GStreamer see one
// multi-channel stream each way.
void WriteGroups(std::ostream& o, const Variant& v, const Layout& l) {
  for (int side = 0; side < 2; ++side) {
    const int channels = side == 0 ? l.inChannels : l.outChannels;
    const char* cls = GroupClass(channels);
    if (cls == nullptr) continue;
    o << "<" << v.Uri() << (side == 0 ? "#in" : "#out") << ">\n  a " << cls << ", "
      << (side == 0 ? "pg:InputGroup" : "pg:OutputGroup") << " ;\n  lv2:symbol \""
      << (side == 0 ? "in" : "out") << "\" ;\n  rdfs:label \"" << (side == 0 ? "Input" : "Output")
      << "\" .\n\n";
  }
}

void WriteAudioPorts(std::ostream& o, const Variant& v, const Layout& l) {
  for (int c = 0; c < l.inChannels + l.outChannels; ++c) {
    const bool in = c < l.inChannels;
    const int n = in ? c + 1 : c - l.inChannels + 1;
    const int channels = in ? l.inChannels : l.outChannels;
    o << "  lv2:port [\n    a lv2:AudioPort, " << (in ? "lv2:InputPort" : "lv2:OutputPort")
      << " ;\n    lv2:index " << c << " ;\n    lv2:symbol \"" << (in ? "in_" : "out_") << n
      << "\" ;\n    lv2:name \"" << (in ? "In " : "Out ") << n << "\" ;\n";
    if (GroupClass(channels) != nullptr)
      o << "    pg:group <" << v.Uri() << (in ? "#in" : "#out") << "> ;\n    lv2:designation "
        << Designation(channels, n - 1) << " ;\n";
    o << "  ] ;\n";
  }
}

void WritePlugin(std::ostream& o, const Variant& v) {
  const Layout layout = DescribeVariant(v);
  AEffect* fx = nullptr;
  std::string name = v.type == 0 ? "Preset Chain" : "";
  if (v.type != 0) {
    ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(v.type), &fx);
    name = EffectName(fx);
  }
  if (name.empty()) name = v.shortName;
  std::string suffix = v.inChannels == 6 ? " (5.1)" : "";

  for (const PathParam& p : layout.paths) {
    o << "<" << p.uri << ">\n  a lv2:Parameter ;\n  rdfs:label " << Quote(p.name)
      << " ;\n  rdfs:range atom:Path .\n\n";
  }
  WriteGroups(o, v, layout);
  o << "<" << v.Uri() << ">\n  a lv2:Plugin";
  if (const char* cls = PluginClass(v.type)) o << ", " << cls;
  o << " ;\n  doap:name " << Quote("ondrel " + name + suffix);
  if (fx != nullptr)
    o << LocalisedLiterals(name, [&] {
      std::string t = EffectName(fx);
      return t.empty() ? t : t + suffix;
    });
  o << " ;\n  lv2:project <urn:ondrel> ;\n";
  if (layout.HasAtomPorts()) {
    o << "  lv2:requiredFeature urid:map ;\n";
    o << "  lv2:optionalFeature work:schedule, state:mapPath, lv2:isLive ;\n";
    o << "  lv2:extensionData work:interface, state:interface ;\n";
    o << "  patch:writable ";
    for (size_t i = 0; i < layout.paths.size(); ++i)
      o << (i ? ", " : "") << "<" << layout.paths[i].uri << ">";
    o << " ;\n";
  }
  WriteAudioPorts(o, v, layout);
  for (size_t i = 0; i < layout.controls.size(); ++i)
    WriteControlPort(o, fx, layout.controls[i], layout.FirstControl() + static_cast<uint32_t>(i));
  o << "  lv2:port [\n    a lv2:OutputPort, lv2:ControlPort ;\n    lv2:index "
    << layout.LatencyPort()
    << " ;\n    lv2:symbol \"latency\" ;\n    lv2:name \"Latency\" ;\n"
       "    lv2:designation lv2:latency ;\n"
       "    lv2:portProperty lv2:reportsLatency, lv2:integer ;\n"
       "    units:unit units:frame ;\n  ]";
  if (layout.HasAtomPorts()) {
    o << " ;\n  lv2:port [\n    a lv2:InputPort, atom:AtomPort ;\n    atom:bufferType "
         "atom:Sequence ;\n    atom:supports patch:Message ;\n    lv2:designation lv2:control ;\n"
         "    lv2:index "
      << layout.AtomIn()
      << " ;\n    lv2:symbol \"control\" ;\n    lv2:name \"Control\" ;\n  ] ;\n"
         "  lv2:port [\n    a lv2:OutputPort, atom:AtomPort ;\n    atom:bufferType "
         "atom:Sequence ;\n    atom:supports patch:Message ;\n    lv2:designation lv2:control ;\n"
         "    lv2:index "
      << layout.AtomOut() << " ;\n    lv2:symbol \"notify\" ;\n    lv2:name \"Notify\" ;\n  ]";
  }
  o << " .\n\n";
  if (fx != nullptr) ONDREL2::ondrel_destroy_effect(fx);
}

const char* kPrefixes =
    "@prefix atom: <http://lv2plug.in/ns/ext/atom#> .\n"
    "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
    "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
    "@prefix patch: <http://lv2plug.in/ns/ext/patch#> .\n"
    "@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .\n"
    "@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .\n"
    "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
    "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n"
    "@prefix units: <http://lv2plug.in/ns/extensions/units#> .\n"
    "@prefix urid: <http://lv2plug.in/ns/ext/urid#> .\n"
    "@prefix work: <http://lv2plug.in/ns/ext/worker#> .\n\n";

bool WriteFile(const std::string& path, const std::string& text) {
  std::ofstream f(path, std::ios::binary);
  f << text;
  return static_cast<bool>(f);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s OUTDIR BINARY\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1], binary = argv[2];
  set_xlog_level(7);
  SetEnglish();

  std::ostringstream manifest, plugins;
  manifest << kPrefixes;
  plugins << kPrefixes;
  plugins << "<urn:ondrel>\n  a doap:Project ;\n  doap:name \"ondrel\" .\n\n";
  for (const Variant& v : Variants()) {
    manifest << "<" << v.Uri() << ">\n  a lv2:Plugin ;\n  lv2:binary <" << binary
             << "> ;\n  rdfs:seeAlso <ondrel.ttl> .\n\n";
    try {
      WritePlugin(plugins, v);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "ondrel_lv2_ttl: %s: %s\n", v.shortName.c_str(), e.what());
      return 1;
    }
  }
  ONDREL2::ondrel_uninit();
  if (!WriteFile(dir + "/manifest.ttl", manifest.str()) ||
      !WriteFile(dir + "/ondrel.ttl", plugins.str())) {
    std::fprintf(stderr, "ondrel_lv2_ttl: cannot write into %s\n", dir.c_str());
    return 1;
  }
  return 0;
}
