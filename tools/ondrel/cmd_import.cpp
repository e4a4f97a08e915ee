// `ondrel preset import`: the equaliser text that headphone measurement
// databases publish, turned into a preset of biquad effects.
//
// Parametric form, one filter per line (OFF filters are skipped):
//   Preamp: -6.2 dB
//   Filter 1: ON PK Fc 105 Hz Gain -2.1 dB Q 0.70
// Each filter is a cookbook biquad with the given Q. The effects match it:
//   - shelves, low and high pass take Fc and Q as they are;
//   - the all pass takes 1/Q (its design multiplies by Q where the
//     cookbook divides);
//   - bell, notch and band pass are given by band edges centred
//     geometrically on Fc. Their design uses alpha = 0.375 * bw * w0 for a
//     band of bw octaves, where the cookbook has alpha = sin(w0) / (2 Q), so
//     bw = sin(w0) / (0.75 Q w0): the same coefficients for the rate the
//     edges are computed for. A script on each edge recomputes it from
//     GV_SAMPLERATE, so that the preset matches at any rate.
// The only differences left are the parameters' float rounding and the
// ranges of the effects (edges 10 Hz to 22050 Hz, gains up to 24 dB), which
// the import reports.
//
// Graphic form: "GraphicEQ: 20 -1.2; 21 -1.3; ..." (Hz and dB, interpolated
// on a logarithmic frequency axis). It is fitted by 31 bells at the third
// octave centres from 20 Hz, Q 2, their gains found by least squares on the
// bells' exact dB responses; the import prints the largest deviation.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <complex>
#include <cstdio>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "preset.h"

namespace ondrel_tool {

namespace {

constexpr double kPi = 3.141592653589793;

struct EqFilter {
  int line = 0;
  std::string type;  // upper case: PK, LS, ...
  double fc = 0.0, gain = 0.0, q = 0.0;
  bool hasQ = false;
};

struct EqText {
  double preamp = 0.0;
  bool hasPreamp = false;
  std::vector<EqFilter> filters;
  std::vector<std::pair<double, double>> graphic;  // Hz, dB
};

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

bool ParseNumber(const std::string& text, double* value) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  in >> *value;
  return !in.fail() && in.peek() == std::char_traits<char>::eof() && std::isfinite(*value);
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string w; in >> w;) words.push_back(w);
  return words;
}

EqText ParseEqText(const std::string& bytes, const std::string& source) {
  EqText eq;
  std::istringstream in(bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? bytes.substr(3) : bytes);
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string where = source + ":" + std::to_string(number);
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    const size_t colon = line.find(':');
    const std::string key =
        colon == std::string::npos ? "" : Upper(line.substr(first, colon - first));
    const std::string rest = colon == std::string::npos ? "" : line.substr(colon + 1);
    if (key == "PREAMP") {
      std::vector<std::string> w = Words(rest);
      if (w.empty() || !ParseNumber(w[0], &eq.preamp) || (w.size() > 1 && Upper(w[1]) != "DB"))
        UsageError(where + ": expected 'Preamp: GAIN dB'");
      eq.hasPreamp = true;
    } else if (key == "GRAPHICEQ") {
      std::istringstream points(rest);
      for (std::string point; std::getline(points, point, ';');) {
        std::vector<std::string> w = Words(point);
        if (w.empty()) continue;
        double f = 0.0, g = 0.0;
        if (w.size() != 2 || !ParseNumber(w[0], &f) || !ParseNumber(w[1], &g) || f <= 0.0)
          UsageError(where + ": expected 'FREQUENCY GAIN' pairs separated by ';', not '" + point +
                     "'");
        eq.graphic.emplace_back(f, g);
      }
    } else if (key.compare(0, 6, "FILTER") == 0) {
      std::vector<std::string> w = Words(rest);
      if (w.size() < 2) UsageError(where + ": expected 'Filter N: ON TYPE Fc ... Hz ...'");
      const std::string state = Upper(w[0]);
      if (state == "OFF") continue;
      if (state != "ON") UsageError(where + ": a filter is ON or OFF, not '" + w[0] + "'");
      EqFilter f;
      f.line = number;
      f.type = Upper(w[1]);
      if (f.type == "PEQ") f.type = "PK";
      if (f.type == "LPQ") f.type = "LP";
      if (f.type == "HPQ") f.type = "HP";
      if (f.type == "LSC") f.type = "LS";
      if (f.type == "HSC") f.type = "HS";
      static const char* kTypes[] = {"PK", "LS", "HS", "LP", "HP", "NO", "AP", "BP"};
      if (std::find(std::begin(kTypes), std::end(kTypes), f.type) == std::end(kTypes))
        UsageError(where + ": unknown filter type '" + w[1] +
                   "'; known are PK, LS, HS, LSC, HSC, LP, HP, LPQ, HPQ, NO, AP, BP");
      bool hasFc = false, hasGain = false;
      for (size_t i = 2; i < w.size(); ++i) {
        const std::string name = Upper(w[i]);
        double value = 0.0;
        if (i + 1 >= w.size() || !ParseNumber(w[i + 1], &value)) {
          if (name == "HZ" || name == "DB") continue;
          if (std::isdigit(static_cast<unsigned char>(w[i][0])))
            UsageError(where + ": shelf slopes in dB per octave are not supported; give Q");
          UsageError(where + ": '" + w[i] + "' is not followed by a number");
        }
        if (name == "FC") {
          f.fc = value;
          hasFc = true;
        } else if (name == "GAIN") {
          f.gain = value;
          hasGain = true;
        } else if (name == "Q") {
          f.q = value;
          f.hasQ = true;
        } else if (name == "BW") {
          UsageError(where + ": band widths are not supported; give Q");
        } else {
          UsageError(where + ": unknown setting '" + w[i] + "'");
        }
        ++i;
      }
      if (!hasFc || f.fc <= 0.0) UsageError(where + ": the filter has no positive 'Fc'");
      const bool needsGain = f.type == "PK" || f.type == "LS" || f.type == "HS";
      if (needsGain && !hasGain) UsageError(where + ": the filter has no 'Gain'");
      if (f.hasQ && f.q <= 0.0) UsageError(where + ": Q must be above 0");
      if (!f.hasQ) f.q = 1.0 / std::sqrt(2.0);
      eq.filters.push_back(f);
    } else {
      Warn(where + ": line not understood, ignored: " + line);
    }
  }
  if (eq.filters.empty() && eq.graphic.empty())
    UsageError(source + ": no 'Filter' lines (that are ON) and no 'GraphicEQ' line");
  if (!eq.filters.empty() && !eq.graphic.empty())
    UsageError(source +
               ": holds both parametric filters and a GraphicEQ line; import one at a time");
  return eq;
}

std::string Number(double v) { return Format("%.15g", v); }

// The band width in octaves that makes an edge-defined band (bell, notch,
// band pass) the cookbook design with `q` at w0.
double OctavesForQ(double w0, double q) { return std::sin(w0) / (0.75 * q * w0); }

// A script for one band edge (sign -1 low, +1 high): the same formula for
// the rate the chain runs at; the stored value where no rate is known.
std::string EdgeScript(double fc, double q, int sign) {
  const std::string w0 = "(2*pi*" + Number(fc) + "/GV_SAMPLERATE)";
  return "if(gt(GV_SAMPLERATE,0)," + Number(fc) + "*pow(2," + (sign < 0 ? "-" : "") + "0.5*sin" +
         w0 + "/(0.75*" + Number(q) + "*" + w0 + ")),in)";
}

double Clamped(double value, double low, double high, const std::string& what,
               const std::string& where) {
  // Stored as the float the effect will hold, shown in its shortest form.
  if (value >= low && value <= high) return FloatForJson(static_cast<float>(value));
  const double c = std::min(high, std::max(low, value));
  Warn(
      Format("%s: %s %g is outside the effect's range %g to %g; %g is used, and the response "
             "differs",
             where.c_str(), what.c_str(), value, low, high, c));
  return FloatForJson(static_cast<float>(c));
}

json EffectJson(const char* type, json params) {
  json fx = json::object();
  fx["type"] = type;
  fx["params"] = std::move(params);
  return fx;
}

// An edge-defined effect for the cookbook filter with centre `fc` and `q`.
json EdgeEffect(const char* type, const EqFilter& f, int rate, bool scripts,
                const std::string& where) {
  const double w0 = 2.0 * kPi * f.fc / rate;
  if (w0 >= kPi) UsageError(where + Format(": Fc %g Hz is not below half of %d Hz", f.fc, rate));
  const double half = 0.5 * OctavesForQ(w0, f.q);
  const double low = f.fc * std::pow(2.0, -half);
  const double high = f.fc * std::pow(2.0, half);
  json params = json::object();
  params["LowEdge"] = Clamped(low, 10.0, 22050.0, "the low edge", where);
  params["HighEdge"] = Clamped(high, 10.0, 22050.0, "the high edge", where);
  if (high >= 0.5 * rate)
    Warn(where + Format(": the high edge %g Hz reaches half the rate; the effect passes the sound "
                        "unfiltered at %d Hz",
                        high, rate));
  if (std::string(type) == "peak") params["Gain"] = Clamped(f.gain, -24.0, 24.0, "the gain", where);
  json fx = EffectJson(type, std::move(params));
  if (scripts)
    fx["scripts"] =
        json{{"LowEdge", EdgeScript(f.fc, f.q, -1)}, {"HighEdge", EdgeScript(f.fc, f.q, 1)}};
  return fx;
}

json ParametricEffect(const EqFilter& f, int rate, bool scripts, const std::string& where) {
  if (f.type == "PK") return EdgeEffect("peak", f, rate, scripts, where);
  if (f.type == "NO") return EdgeEffect("notch", f, rate, scripts, where);
  if (f.type == "BP") return EdgeEffect("bandpass", f, rate, scripts, where);
  json params = json::object();
  if (f.type == "LS" || f.type == "HS") {
    params["Frequency"] = Clamped(f.fc, 10.0, 22050.0, "Fc", where);
    params["Q"] = Clamped(f.q, 0.001, 40.0, "Q", where);
    params["Gain"] = Clamped(f.gain, -24.0, 24.0, "the gain", where);
    return EffectJson(f.type == "LS" ? "lowshelf" : "highshelf", std::move(params));
  }
  if (f.type == "AP") {
    params["Frequency"] = Clamped(f.fc, 10.0, 22050.0, "Fc", where);
    params["Q"] = Clamped(1.0 / f.q, 0.001, 40.0, "1/Q", where);
    return EffectJson("allpass", std::move(params));
  }
  const bool lp = f.type == "LP";
  params["Frequency"] = Clamped(f.fc, lp ? 20.0 : 10.0, 22050.0, "Fc", where);
  params["Q"] = Clamped(f.q, lp ? 0.001 : 0.1, 40.0, "Q", where);
  return EffectJson(lp ? "lowpass" : "highpass", std::move(params));
}

// dB response at `f` of the cookbook bell (fc, q, gain) at `rate`.
double BellDb(double f, double fc, double q, double gain, double rate) {
  const double w0 = 2.0 * kPi * fc / rate, alpha = std::sin(w0) / (2.0 * q), c = std::cos(w0);
  const double a = std::pow(10.0, gain / 40.0);
  const double w = 2.0 * kPi * f / rate;
  const std::complex<double> z1 = std::polar(1.0, -w), z2 = z1 * z1;
  const std::complex<double> num = (1.0 + alpha * a) - 2.0 * c * z1 + (1.0 - alpha * a) * z2;
  const std::complex<double> den = (1.0 + alpha / a) - 2.0 * c * z1 + (1.0 - alpha / a) * z2;
  return 20.0 * std::log10(std::abs(num / den));
}

// Solves the symmetric system m x = v in place (Gaussian elimination with
// partial pivoting); m is n by n, row after row.
std::vector<double> Solve(std::vector<double> m, std::vector<double> v) {
  const size_t n = v.size();
  for (size_t col = 0; col < n; ++col) {
    size_t pivot = col;
    for (size_t r = col + 1; r < n; ++r)
      if (std::fabs(m[r * n + col]) > std::fabs(m[pivot * n + col])) pivot = r;
    for (size_t k = 0; k < n; ++k) std::swap(m[col * n + k], m[pivot * n + k]);
    std::swap(v[col], v[pivot]);
    for (size_t r = col + 1; r < n; ++r) {
      const double factor = m[r * n + col] / m[col * n + col];
      for (size_t k = col; k < n; ++k) m[r * n + k] -= factor * m[col * n + k];
      v[r] -= factor * v[col];
    }
  }
  std::vector<double> x(n);
  for (size_t i = n; i-- > 0;) {
    double s = v[i];
    for (size_t k = i + 1; k < n; ++k) s -= m[i * n + k] * x[k];
    x[i] = s / m[i * n + i];
  }
  return x;
}

struct GraphicFit {
  std::vector<double> centres, gains;
  double q = 2.0;
  double worst = 0.0, worstAt = 0.0;
};

// Fits the curve with bells at the third octave centres by Gauss-Newton
// iterations on the dB error over a 1/24 octave grid from 20 Hz to 20 kHz.
GraphicFit FitGraphic(std::vector<std::pair<double, double>> points, int rate) {
  std::sort(points.begin(), points.end());
  auto target = [&](double f) {
    if (f <= points.front().first) return points.front().second;
    if (f >= points.back().first) return points.back().second;
    auto hi = std::upper_bound(points.begin(), points.end(), std::make_pair(f, -1e300));
    auto lo = hi - 1;
    const double t = std::log(f / lo->first) / std::log(hi->first / lo->first);
    return lo->second + t * (hi->second - lo->second);
  };
  GraphicFit fit;
  for (int k = 0; k < 31; ++k) {
    const double fc = 20.0 * std::pow(2.0, k / 3.0);
    if (fc < 0.45 * rate) fit.centres.push_back(fc);
  }
  std::vector<double> grid;
  for (double f = 20.0; f <= 20000.0 * 1.0001 && f < 0.5 * rate; f *= std::pow(2.0, 1.0 / 24.0))
    grid.push_back(f);
  const size_t n = fit.centres.size(), m = grid.size();
  fit.gains.resize(n);
  for (size_t k = 0; k < n; ++k) fit.gains[k] = target(fit.centres[k]);
  std::vector<double> resid(m), jac(m * n);
  auto evaluate = [&]() {
    for (size_t i = 0; i < m; ++i) {
      double sum = 0.0;
      for (size_t k = 0; k < n; ++k)
        sum += BellDb(grid[i], fit.centres[k], fit.q, fit.gains[k], rate);
      resid[i] = target(grid[i]) - sum;
    }
  };
  for (int iteration = 0; iteration < 12; ++iteration) {
    evaluate();
    for (size_t k = 0; k < n; ++k)
      for (size_t i = 0; i < m; ++i)
        jac[i * n + k] = (BellDb(grid[i], fit.centres[k], fit.q, fit.gains[k] + 0.01, rate) -
                          BellDb(grid[i], fit.centres[k], fit.q, fit.gains[k], rate)) /
                         0.01;
    std::vector<double> normal(n * n, 0.0), rhs(n, 0.0);
    for (size_t i = 0; i < m; ++i)
      for (size_t a = 0; a < n; ++a) {
        rhs[a] += jac[i * n + a] * resid[i];
        for (size_t b = 0; b < n; ++b) normal[a * n + b] += jac[i * n + a] * jac[i * n + b];
      }
    for (size_t a = 0; a < n; ++a) normal[a * n + a] += 1e-3;  // keeps the far bands tame
    std::vector<double> step = Solve(normal, rhs);
    for (size_t k = 0; k < n; ++k)
      fit.gains[k] = std::min(24.0, std::max(-24.0, fit.gains[k] + step[k]));
  }
  evaluate();
  for (size_t i = 0; i < m; ++i)
    if (std::fabs(resid[i]) > fit.worst) {
      fit.worst = std::fabs(resid[i]);
      fit.worstAt = grid[i];
    }
  return fit;
}

}  // namespace

int RunPresetImport(const CommonOptions& common, const ImportOptions& options) {
  const EqText eq = ParseEqText(ReadFileBytes(options.input), options.input);
  RequireOutputPath(options.output);
  std::string name = options.input;
  if (size_t slash = name.find_last_of('/'); slash != std::string::npos)
    name = name.substr(slash + 1);

  json effects = json::array();
  if (eq.hasPreamp && eq.preamp != 0.0)
    effects.push_back(EffectJson(
        "amplifier", json{{"Gain", Clamped(eq.preamp, -96.0, 18.0, "the preamp", options.input)}}));
  std::string summary;
  if (!eq.filters.empty()) {
    for (const EqFilter& f : eq.filters)
      effects.push_back(ParametricEffect(f, options.rate, !options.noScripts,
                                         options.input + ":" + std::to_string(f.line)));
    summary = Format("%zu filters", eq.filters.size());
  } else {
    const GraphicFit fit = FitGraphic(eq.graphic, options.rate);
    for (size_t k = 0; k < fit.centres.size(); ++k) {
      if (std::fabs(fit.gains[k]) < 0.005) continue;
      EqFilter f;
      f.type = "PK";
      f.fc = fit.centres[k];
      f.q = fit.q;
      f.gain = fit.gains[k];
      effects.push_back(EdgeEffect("peak", f, options.rate, !options.noScripts, options.input));
    }
    summary = Format("%zu curve points fitted by %zu bells, within %.2f dB (largest at %.0f Hz)",
                     eq.graphic.size(), effects.size() - (eq.hasPreamp && eq.preamp != 0.0),
                     fit.worst, fit.worstAt);
  }
  json root = json::object();
  root["text"] = name;
  root["effects"] = std::move(effects);

  // Load it once through the library: what is written is what `process`
  // will run.
  {
    LibrarySession session(common);
    PresetFromJson(root, options.output);
  }
  WriteFileAtomically(options.output, root.dump(2) + "\n");
  std::printf("%s: %s%s -> %s\n", options.input.c_str(), summary.c_str(),
              eq.hasPreamp ? Format(", preamp %+.1f dB", eq.preamp).c_str() : "",
              options.output.c_str());
  return kExitOk;
}

}  // namespace ondrel_tool
