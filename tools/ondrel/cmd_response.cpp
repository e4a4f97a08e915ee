// `ondrel response`: the magnitude response of a chain, measured with an
// impulse and drawn with cairo.
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "audio.h"
#include "commands.h"
#include "preset.h"

namespace ondrel_tool {

namespace {

// Frames analysed: a power of two covering at least half a second.
int AnalysisLength(float rate) {
  int n = 8192;
  while (n < 0.5f * rate && n < (1 << 20)) n *= 2;
  return n;
}

struct Rgb {
  double r, g, b;
};
const Rgb kColours[] = {{0.12, 0.47, 0.71}, {0.85, 0.37, 0.01}, {0.17, 0.63, 0.17},
                        {0.84, 0.15, 0.16}, {0.58, 0.40, 0.74}, {0.55, 0.34, 0.29},
                        {0.89, 0.47, 0.76}, {0.50, 0.50, 0.50}};

std::string ChannelName(int channel, int channels) {
  if (channels == 2) return channel == 0 ? "left" : "right";
  if (channels == 1) return "mono";
  return Format("channel %d", channel + 1);
}

std::string FrequencyLabel(double f) {
  if (f >= 1000.0) return Format("%gk", f / 1000.0);
  return Format("%g", f);
}

}  // namespace

Response MeasureResponse(EffectList& effects, int channels, float rate, double levelDb) {
  const int n = AnalysisLength(rate);
  const float amplitude = static_cast<float>(std::pow(10.0, levelDb / 20.0));
  std::vector<float> input(static_cast<size_t>(n) * static_cast<size_t>(channels), 0.0f);
  for (int c = 0; c < channels; ++c) input[static_cast<size_t>(c)] = amplitude;
  ProcessResult result = ProcessBuffer(effects, input, channels, rate);

  Response response;
  response.rate = result.rate;
  response.channels = result.channels;
  response.chain = result.chain;
  // The analysis length follows the output rate, so that a resampling chain
  // is measured over the same time span.
  const int m = AnalysisLength(result.rate);
  const size_t frames = result.samples.size() / static_cast<size_t>(std::max(1, result.channels));
  kiss_fftr_cfg cfg = kiss_fftr_alloc(m, 0, nullptr, nullptr);
  if (cfg == nullptr) Failure("out of memory for the FFT");
  std::vector<kiss_fft_scalar> time(static_cast<size_t>(m));
  std::vector<kiss_fft_cpx> spectrum(static_cast<size_t>(m / 2 + 1));
  for (int k = 0; k <= m / 2; ++k)
    response.frequencies.push_back(static_cast<double>(k) * result.rate / m);
  for (int c = 0; c < result.channels; ++c) {
    for (int i = 0; i < m; ++i) {
      size_t at =
          static_cast<size_t>(i) * static_cast<size_t>(result.channels) + static_cast<size_t>(c);
      time[static_cast<size_t>(i)] = static_cast<size_t>(i) < frames ? result.samples[at] : 0.0f;
    }
    kiss_fftr(cfg, time.data(), spectrum.data());
    std::vector<double> db;
    for (const kiss_fft_cpx& x : spectrum) {
      double mag = std::hypot(static_cast<double>(x.r), static_cast<double>(x.i)) / amplitude;
      db.push_back(mag > 1e-10 ? 20.0 * std::log10(mag) : -200.0);
    }
    response.decibels.push_back(db);
  }
  kiss_fftr_free(cfg);
  return response;
}

void WriteResponseCsv(const Response& response, const std::string& path) {
  std::string text = "frequency_hz";
  for (int c = 0; c < response.channels; ++c)
    text += Format(",%s_db", ChannelName(c, response.channels).c_str());
  text += "\n";
  for (size_t k = 0; k < response.frequencies.size(); ++k) {
    text += Format("%.6g", response.frequencies[k]);
    for (const auto& ch : response.decibels) text += Format(",%.4f", ch[k]);
    text += "\n";
  }
  WriteFileAtomically(path, text);
}

void DrawResponse(const Response& response, const std::string& title, const std::string& path,
                  int width, int height) {
  const double fMin = 20.0;
  const double fMax = std::min(20000.0, response.rate / 2.0);
  // Level range: from the loudest point down, in steps of 6 dB, 24 to 96 dB.
  double top = -200.0, bottom = 200.0;
  for (const auto& ch : response.decibels)
    for (size_t k = 0; k < ch.size(); ++k)
      if (response.frequencies[k] >= fMin && response.frequencies[k] <= fMax) {
        top = std::max(top, ch[k]);
        bottom = std::min(bottom, ch[k]);
      }
  if (top < bottom) top = bottom = 0.0;
  double yMax = std::ceil((top + 1.0) / 6.0) * 6.0;
  if (yMax < 6.0 && top > -6.0) yMax = 6.0;
  double span = std::min(96.0, std::max(24.0, std::ceil((yMax - bottom + 3.0) / 6.0) * 6.0));
  double yMin = yMax - span;
  double yStep = span <= 48.0 ? 6.0 : 12.0;

  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cairo_t* cr = cairo_create(surface);
  const double left = 72, right = 24, topMargin = 56, bottomMargin = 60;
  const double pw = width - left - right, ph = height - topMargin - bottomMargin;
  auto X = [&](double f) {
    return left + (std::log10(f) - std::log10(fMin)) / (std::log10(fMax) - std::log10(fMin)) * pw;
  };
  auto Y = [&](double db) { return topMargin + (yMax - db) / (yMax - yMin) * ph; };

  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, 12);
  cairo_text_extents_t ext;

  // Grid and tick labels.
  cairo_set_line_width(cr, 1.0);
  const double decades[] = {1, 2, 5};
  for (double base = 10; base <= fMax; base *= 10) {
    for (double d : decades) {
      double f = base * d;
      if (f < fMin || f > fMax) continue;
      cairo_set_source_rgb(cr, 0.85, 0.85, 0.85);
      cairo_move_to(cr, std::round(X(f)) + 0.5, topMargin);
      cairo_line_to(cr, std::round(X(f)) + 0.5, topMargin + ph);
      cairo_stroke(cr);
      std::string label = FrequencyLabel(f);
      cairo_text_extents(cr, label.c_str(), &ext);
      cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
      cairo_move_to(cr, X(f) - ext.width / 2, topMargin + ph + 16);
      cairo_show_text(cr, label.c_str());
    }
  }
  for (double db = yMin; db <= yMax + 1e-9; db += yStep) {
    cairo_set_source_rgb(cr, db == 0.0 ? 0.6 : 0.85, db == 0.0 ? 0.6 : 0.85,
                         db == 0.0 ? 0.6 : 0.85);
    cairo_move_to(cr, left, std::round(Y(db)) + 0.5);
    cairo_line_to(cr, left + pw, std::round(Y(db)) + 0.5);
    cairo_stroke(cr);
    std::string label = Format("%+g", db);
    if (db == 0.0) label = "0";
    cairo_text_extents(cr, label.c_str(), &ext);
    cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
    cairo_move_to(cr, left - 8 - ext.width, Y(db) + ext.height / 2);
    cairo_show_text(cr, label.c_str());
  }
  cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
  cairo_rectangle(cr, left + 0.5, topMargin + 0.5, pw, ph);
  cairo_stroke(cr);

  // Axis titles.
  cairo_set_font_size(cr, 13);
  const char* xTitle = "Frequency (Hz)";
  cairo_text_extents(cr, xTitle, &ext);
  cairo_move_to(cr, left + pw / 2 - ext.width / 2, height - 18);
  cairo_show_text(cr, xTitle);
  const char* yTitle = "Magnitude (dB)";
  cairo_text_extents(cr, yTitle, &ext);
  cairo_save(cr);
  cairo_move_to(cr, 22, topMargin + ph / 2 + ext.width / 2);
  cairo_rotate(cr, -M_PI / 2);
  cairo_show_text(cr, yTitle);
  cairo_restore(cr);

  // Title: the preset's name, the chain and the rate.
  cairo_set_font_size(cr, 16);
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_move_to(cr, left, 24);
  cairo_show_text(cr, title.c_str());
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, 12);
  std::string sub = Format("%s, %g Hz, impulse response", response.chain.c_str(),
                           static_cast<double>(response.rate));
  cairo_move_to(cr, left, 42);
  cairo_show_text(cr, sub.c_str());

  // Curves, clipped to the plot area.
  cairo_save(cr);
  cairo_rectangle(cr, left, topMargin, pw, ph);
  cairo_clip(cr);
  cairo_set_line_width(cr, 1.6);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  for (int c = 0; c < response.channels; ++c) {
    const Rgb& col = kColours[c % 8];
    cairo_set_source_rgb(cr, col.r, col.g, col.b);
    // Later channels dashed, so that equal curves stay visible.
    const double dash[] = {9.0, 5.0};
    cairo_set_dash(cr, dash, c == 0 ? 0 : 2, 0.0);
    bool started = false;
    const auto& db = response.decibels[static_cast<size_t>(c)];
    for (size_t k = 1; k < db.size(); ++k) {
      double f = response.frequencies[k];
      if (f < fMin * 0.9 || f > fMax * 1.01) continue;
      double y = std::max(-1000.0, std::min(1000.0 + height, Y(db[k])));
      if (!started) {
        cairo_move_to(cr, X(f), y);
        started = true;
      } else {
        cairo_line_to(cr, X(f), y);
      }
    }
    cairo_stroke(cr);
  }
  cairo_set_dash(cr, nullptr, 0, 0.0);
  cairo_restore(cr);

  // Legend, top right inside the plot.
  double ly = topMargin + 16;
  for (int c = 0; c < response.channels; ++c) {
    const Rgb& col = kColours[c % 8];
    std::string name = ChannelName(c, response.channels);
    cairo_text_extents(cr, name.c_str(), &ext);
    double lx = left + pw - 12 - ext.width;
    cairo_set_source_rgb(cr, col.r, col.g, col.b);
    cairo_set_line_width(cr, 2.5);
    const double dash[] = {9.0, 5.0};
    cairo_set_dash(cr, dash, c == 0 ? 0 : 2, 0.0);
    cairo_move_to(cr, lx - 30, ly - 4);
    cairo_line_to(cr, lx - 8, ly - 4);
    cairo_stroke(cr);
    cairo_set_dash(cr, nullptr, 0, 0.0);
    cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
    cairo_move_to(cr, lx, ly);
    cairo_show_text(cr, name.c_str());
    ly += 18;
  }

  cairo_destroy(cr);
  cairo_surface_flush(surface);
  const std::string temp = TemporaryPathFor(path);
  cairo_status_t status = cairo_surface_write_to_png(surface, temp.c_str());
  cairo_surface_destroy(surface);
  // Drop the font caches of cairo and fontconfig, so that a leak checker
  // sees only what the tool itself holds.
  cairo_debug_reset_static_data();
  FcFini();
  if (status != CAIRO_STATUS_SUCCESS) {
    std::remove(temp.c_str());
    UsageError("cannot write '" + path + "': " + cairo_status_to_string(status));
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    std::remove(temp.c_str());
    Failure("cannot move the finished picture into place as '" + path + "'");
  }
}

int RunResponse(const CommonOptions& common, const ResponseOptions& options) {
  RequireOutputPath(options.png);
  if (!options.csv.empty()) RequireOutputPath(options.csv);
  LibrarySession session(common);
  LoadedPreset preset = LoadPresetFile(options.preset);
  std::string title = preset.text;
  if (title.empty()) {
    size_t slash = options.preset.find_last_of('/');
    title = slash == std::string::npos ? options.preset : options.preset.substr(slash + 1);
  }
  Response response = MeasureResponse(preset.effects, options.channels,
                                      static_cast<float>(options.rate), options.level);
  if (response.channels < 1) Failure("the chain has no output channels");
  DrawResponse(response, title, options.png, options.width, options.height);
  if (!options.csv.empty()) WriteResponseCsv(response, options.csv);
  std::printf("%s: %s at %g Hz, %d channel%s -> %s%s%s\n", title.c_str(), response.chain.c_str(),
              static_cast<double>(response.rate), response.channels,
              response.channels == 1 ? "" : "s", options.png.c_str(),
              options.csv.empty() ? "" : ", ", options.csv.c_str());
  return kExitOk;
}

}  // namespace ondrel_tool
