// `ondrel demo`: synthesised test music through the demo preset, with no
// files needed.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "audio.h"
#include "commands.h"
#include "effects.h"
#include "preset.h"

namespace ondrel_tool {

namespace {

const char kDemoPreset[] =
#include "demo_preset.inc"
    ;

// A small linear congruential generator: the same noise on every machine.
class Noise {
 public:
  explicit Noise(uint32_t seed) : state_(seed) {}
  // Uniform in -1..1.
  double Next() {
    state_ = state_ * 1664525u + 1013904223u;
    return static_cast<double>(state_ >> 8) / 8388608.0 - 1.0;
  }

 private:
  uint32_t state_;
};

double MidiHz(int note) { return 440.0 * std::pow(2.0, (note - 69) / 12.0); }

// Adds `source(t)` (stereo) to `mix` from `start` seconds for `length`.
template <typename Voice>
void Add(std::vector<double>* mix, int rate, double start, double length, Voice voice) {
  const size_t frames = mix->size() / 2;
  size_t first = static_cast<size_t>(start * rate);
  size_t count = static_cast<size_t>(length * rate);
  for (size_t i = 0; i < count && first + i < frames; ++i) {
    double t = static_cast<double>(i) / rate;
    double l = 0.0, r = 0.0;
    voice(t, &l, &r);
    (*mix)[2 * (first + i)] += l;
    (*mix)[2 * (first + i) + 1] += r;
  }
}

}  // namespace

std::vector<float> SynthesizeDemoMusic(int rate, double seconds) {
  const double beat = 0.5;  // 120 beats per minute
  const size_t frames = static_cast<size_t>(seconds * rate);
  std::vector<double> mix(frames * 2, 0.0);
  const double kTwoPi = 2.0 * M_PI;
  Noise noise(0x0D5E1u);

  // A minor, F, C, G: one chord per bar of four beats.
  const int chords[4][3] = {{57, 60, 64}, {53, 57, 60}, {55, 60, 64}, {55, 59, 62}};
  const int roots[4] = {33, 29, 36, 31};
  const int beats = static_cast<int>(seconds / beat);

  for (int b = 0; b < beats; ++b) {
    const double t0 = b * beat;
    const int bar = (b / 4) % 4;
    // Kick on beats 1 and 3: a falling sine with a click.
    if (b % 2 == 0) {
      Add(&mix, rate, t0, 0.35, [&](double t, double* l, double* r) {
        // The frequency falls from 155 Hz to 45 Hz; the phase is its integral.
        double phase = kTwoPi * (45.0 * t + 110.0 * (1.0 - std::exp(-t * 30.0)) / 30.0);
        double v = 0.8 * std::sin(phase) * std::exp(-t * 9.0);
        *l += v;
        *r += v;
      });
    }
    // Snare on beats 2 and 4: a noise burst over a short tone.
    if (b % 2 == 1) {
      Add(&mix, rate, t0, 0.2, [&](double t, double* l, double* r) {
        double v = 0.35 * noise.Next() * std::exp(-t * 22.0) +
                   0.3 * std::sin(kTwoPi * 185.0 * t) * std::exp(-t * 35.0);
        *l += v;
        *r += v;
      });
    }
    // Hi-hat on every eighth: differenced noise, a little to the right.
    for (int half = 0; half < 2; ++half) {
      double prev = 0.0;
      Add(&mix, rate, t0 + half * beat / 2, 0.06, [&](double t, double* l, double* r) {
        double n = noise.Next();
        double v = 0.18 * (n - prev) * std::exp(-t * 70.0);
        prev = n;
        *l += 0.7 * v;
        *r += v;
      });
    }
    // Bass: the chord's root in eighths, a saw through a one-pole low-pass.
    for (int half = 0; half < 2; ++half) {
      const double f = MidiHz(roots[bar] + (half == 1 && b % 4 == 3 ? 12 : 0));
      double state = 0.0;
      Add(&mix, rate, t0 + half * beat / 2, beat / 2, [&](double t, double* l, double* r) {
        double saw = 2.0 * std::fmod(f * t, 1.0) - 1.0;
        state += 0.08 * (saw - state);
        double env = std::min(1.0, t * 200.0) * std::exp(-t * 3.0);
        double v = 0.45 * state * env;
        *l += v;
        *r += v;
      });
    }
    // Chords: once per bar, a soft pad spread over the stereo field.
    if (b % 4 == 0) {
      const int* notes = chords[bar];
      Add(&mix, rate, t0, 4 * beat, [&](double t, double* l, double* r) {
        double env = std::min(1.0, t * 8.0) * std::min(1.0, (4 * beat - t) * 10.0);
        for (int k = 0; k < 3; ++k) {
          double f = MidiHz(notes[k]);
          double vl = std::sin(kTwoPi * f * 0.998 * t) + 0.3 * std::sin(kTwoPi * 2.0 * f * t);
          double vr = std::sin(kTwoPi * f * 1.002 * t) + 0.3 * std::sin(kTwoPi * 3.0 * f * t);
          *l += 0.06 * env * vl * (1.0 - 0.25 * k);
          *r += 0.06 * env * vr * (0.5 + 0.25 * k);
        }
      });
    }
  }
  // Noise bursts: a rising swoosh before every second bar line.
  for (double start = 2 * 4 * beat - 1.0; start + 1.0 <= seconds; start += 2 * 4 * beat) {
    double lp = 0.0;
    Add(&mix, rate, start, 1.0, [&](double t, double* l, double* r) {
      double coeff = 0.01 + 0.5 * t * t;
      lp += coeff * (noise.Next() - lp);
      double v = 0.25 * lp * t;
      *l += v * (1.0 - t);
      *r += v * t;
    });
  }

  // Fade the last quarter second and scale to a peak of -3 dBFS.
  const size_t fade = static_cast<size_t>(0.25 * rate);
  for (size_t i = 0; i < fade && i < frames; ++i) {
    double g = static_cast<double>(i) / fade;
    mix[2 * (frames - 1 - i)] *= g;
    mix[2 * (frames - 1 - i) + 1] *= g;
  }
  double peak = 0.0;
  for (double v : mix) peak = std::max(peak, std::fabs(v));
  const double scale = peak > 0.0 ? 0.7079457843841379 / peak : 1.0;
  std::vector<float> out(mix.size());
  for (size_t i = 0; i < mix.size(); ++i) out[i] = static_cast<float>(mix[i] * scale);
  return out;
}

int RunDemo(const CommonOptions& common, const DemoOptions& options) {
  const int rate = 44100;
  const int channels = 2;
  std::string dir = options.outDir.empty() ? "." : options.outDir;
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  MakeDirectories(dir);
  LibrarySession session(common);

  std::vector<float> music = SynthesizeDemoMusic(rate, 10.0);
  const json presetJson = ParseJsonText(kDemoPreset, "presets/demo.json");

  LoadedPreset preset = PresetFromJson(presetJson, "presets/demo.json", Unavailable::kSkipWithNote);
  auto start = std::chrono::steady_clock::now();
  ProcessResult result = ProcessBuffer(preset.effects, music, channels, static_cast<float>(rate));
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  const int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  WriteWholeFile(dir + "/input.wav", rate, channels, wav16, music);
  WriteWholeFile(dir + "/output.wav", static_cast<int>(std::lround(result.rate)), result.channels,
                 wav16, result.samples);

  LoadedPreset again = PresetFromJson(presetJson, "presets/demo.json", Unavailable::kSkipSilently);
  Response response = MeasureResponse(again.effects, channels, static_cast<float>(rate), -20.0);
  DrawResponse(response, preset.text.empty() ? "demo" : preset.text, dir + "/response.png", 960,
               540);

  float peakIn = 0.0f, peakOut = 0.0f;
  for (float v : music) peakIn = std::max(peakIn, std::fabs(v));
  for (float v : result.samples) peakOut = std::max(peakOut, std::fabs(v));
  const double audioSeconds = static_cast<double>(music.size() / channels) / rate;
  std::printf(
      "\"%s\": %s | in %d Hz %d ch | out %g Hz %d ch | frames %zu -> %zu | peak %s -> %s | "
      "real-time factor %.4f (%.0fx real time)\n",
      preset.text.c_str(), result.chain.c_str(), rate, channels, static_cast<double>(result.rate),
      result.channels, music.size() / channels,
      result.samples.size() / static_cast<size_t>(std::max(1, result.channels)),
      PeakText(peakIn).c_str(), PeakText(peakOut).c_str(), seconds / audioSeconds,
      audioSeconds / std::max(seconds, 1e-9));
  // The same music over headphones in the live room (the room set built
  // with the project); silent if no rooms were found.
  EffectList headphone;
  headphone.Add(BuildInlineEffect("headphone RoomType=2"));
  ProcessResult room = ProcessBuffer(headphone, music, channels, static_cast<float>(rate));
  WriteWholeFile(dir + "/headphone.wav", static_cast<int>(std::lround(room.rate)), room.channels,
                 wav16, room.samples);

  std::printf("wrote %s/input.wav, %s/output.wav, %s/headphone.wav, %s/response.png\n", dir.c_str(),
              dir.c_str(), dir.c_str(), dir.c_str());
  if (peakOut > 1.0f) Warn("the output peaks above full scale and was clipped in output.wav");
  return kExitOk;
}

}  // namespace ondrel_tool
