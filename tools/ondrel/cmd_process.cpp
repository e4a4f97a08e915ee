// `ondrel process`: a sound file through a chain, the way a player runs it.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <utility>

#include "audio.h"
#include "commands.h"
#include "layouts.h"
#include "preset.h"
#include "speed.h"

namespace ondrel_tool {

namespace {

// A progress bar on standard error, redrawn at most a few times a second;
// or, for a batch worker, the same updates handed to `report`.
class Progress {
 public:
  Progress(bool enabled, int64_t total, std::function<void(int64_t)> report = nullptr)
      : enabled_(enabled), total_(total), report_(std::move(report)) {}
  ~Progress() { Done(); }
  void Update(int64_t done) {
    if (!enabled_ && !report_) return;
    auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    drawn_ = true;
    if (report_) {
      report_(done);
      return;
    }
    if (total_ > 0) {
      const int width = 40;
      double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
      int filled = static_cast<int>(part * width);
      std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(static_cast<size_t>(filled), '#').c_str(),
                   std::string(static_cast<size_t>(width - filled), '.').c_str(),
                   static_cast<int>(part * 100));
    } else {
      std::fprintf(stderr, "\r%lld frames", static_cast<long long>(done));
    }
    std::fflush(stderr);
  }
  void Done() {
    if (enabled_ && drawn_) std::fprintf(stderr, "\r%*s\r", 60, "");
    drawn_ = false;
    enabled_ = false;
  }

 private:
  bool enabled_;
  int64_t total_;
  std::function<void(int64_t)> report_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_;
};

template <typename Sample>
float Peak(const Sample* samples, size_t count, float scale) {
  float peak = 0.0f;
  for (size_t i = 0; i < count; ++i)
    peak = std::max(peak, std::fabs(static_cast<float>(samples[i]) * scale));
  return peak;
}

// " (5.1(side))" after a channel count whose layout is not the default one.
std::string LayoutSuffix(int channels, uint64_t mask) {
  return IsDefaultMask(channels, mask) ? "" : " (" + MaskText(mask) + ")";
}

void Note(const CommonOptions& common, const std::string& message) {
  if (common.verbose) std::fprintf(stderr, "note: %s\n", message.c_str());
}

// The libsndfile channel map to write for an output of `channels` channels
// with the chain's mask `mask`; empty when the file needs none (mono or
// stereo in their usual layout) or cannot have one, with a note saying why.
std::vector<int> OutputChannelMap(const CommonOptions& common, int channels, uint64_t mask) {
  if (channels <= 2 && IsDefaultMask(channels, mask)) return {};
  uint64_t speakers = EffectiveMask(channels, mask);
  // An effect that changes the channel count may pass its input's mask on
  // (the upmixer keeps "stereo" on six channels): the count's default
  // layout is what the channels then are.
  if (speakers != 0 && __builtin_popcountll(speakers) != channels && DefaultMask(channels) != 0) {
    Note(common,
         Format("the chain reports %s for %d channels; the default layout %s is written",
                MaskText(speakers).c_str(), channels, MaskText(DefaultMask(channels)).c_str()));
    speakers = DefaultMask(channels);
  }
  if (speakers == 0) {
    Note(common,
         Format("%d channels have no standard speaker layout; the output has no speaker map",
                channels));
    return {};
  }
  if (__builtin_popcountll(speakers) != channels) {
    Note(common, Format("the chain reports %s for %d channels; the output has no speaker map",
                        MaskText(speakers).c_str(), channels));
    return {};
  }
  std::string problem;
  std::vector<int> map = ChannelMapFromMask(speakers, &problem);
  if (map.empty())
    Note(common, "the output layout " + MaskText(speakers) + " cannot be written: " + problem +
                     "; the output has no speaker map");
  return map;
}

struct Totals {
  int64_t framesIn = 0;
  int64_t framesOut = 0;
  float peakIn = 0.0f;
  float peakOut = 0.0f;
};

// Reads, processes and writes in chunks of the sample type `Sample`.
template <typename Sample>
void Stream(AudioReader& reader, Chain& chain, SpeedStage* speed, AudioWriter& writer,
            Progress& progress, float scale, Totals* totals) {
  const int64_t chunk = 8192;
  const int inChannels = reader.channels();
  const int outChannels = chain.OutChannels();
  std::vector<Sample> in(static_cast<size_t>(chunk * inChannels));
  std::vector<Sample> out, stretched;
  for (;;) {
    int64_t got = reader.Read(in.data(), chunk);
    if (got <= 0) break;
    totals->framesIn += got;
    totals->peakIn =
        std::max(totals->peakIn, Peak(in.data(), static_cast<size_t>(got * inChannels), scale));
    out.clear();
    chain.Process(in.data(), got, &out);
    if (speed != nullptr) {
      stretched.clear();
      speed->Process(out.data(), static_cast<int64_t>(out.size()) / outChannels, &stretched);
      out.swap(stretched);
    }
    int64_t frames = static_cast<int64_t>(out.size()) / outChannels;
    totals->peakOut = std::max(totals->peakOut, Peak(out.data(), out.size(), scale));
    writer.Write(out.data(), frames);
    totals->framesOut += frames;
    progress.Update(totals->framesIn);
  }
  out.clear();
  chain.Flush(&out);
  if (speed != nullptr) {
    stretched.clear();
    speed->Process(out.data(), static_cast<int64_t>(out.size()) / outChannels, &stretched);
    speed->Flush(&stretched);
    out.swap(stretched);
  }
  int64_t frames = static_cast<int64_t>(out.size()) / outChannels;
  totals->peakOut = std::max(totals->peakOut, Peak(out.data(), out.size(), scale));
  writer.Write(out.data(), frames);
  totals->framesOut += frames;
}

}  // namespace

int RunProcess(const CommonOptions& common, const ProcessOptions& options) {
  LibrarySession session(common);
  AudioReader reader(options.input);
  RequireOutputPath(options.output);
  RequireDistinctFiles(options.input, options.output);
  int codec = 0;
  const int container = ContainerForPath(options.output, &codec);

  // Build the whole chain before any output exists.
  EffectList effects;
  std::string presetName;
  if (!options.preset.empty()) {
    LoadedPreset preset = LoadPresetFile(options.preset);
    presetName = preset.text;
    effects = std::move(preset.effects);
  }
  for (const std::string& text : options.effects) effects.Add(BuildInlineEffect(text));
  ApplyModulators(options.modulators);

  // The file's speaker map, if the library can take it; else the library's
  // default layout for the channel count.
  std::string mapProblem;
  const uint64_t inLayout = reader.SpeakerMask(&mapProblem);
  if (!mapProblem.empty())
    Note(common, "the channel map of '" + options.input + "' is not used (" + mapProblem +
                     "); the default layout for " + std::to_string(reader.channels()) +
                     " channels applies");

  Chain chain(reader.channels(), static_cast<float>(reader.rate()), inLayout);
  chain.Install(effects);
  const int outChannels = chain.OutChannels();
  const uint64_t outLayout = chain.OutLayout();
  const float outRateF = chain.OutRate();
  const int outRate = static_cast<int>(std::lround(outRateF));
  if (outChannels < 1 || outRate < 1)
    Failure(Format("the chain reports an output of %d channels at %g Hz", outChannels,
                   static_cast<double>(outRateF)));
  if (std::fabs(outRateF - static_cast<float>(outRate)) > 1e-3f)
    Warn(Format("the chain's output rate %g Hz is written as %d Hz", static_cast<double>(outRateF),
                outRate));

  int subtype = codec != 0 ? codec : reader.format() & SF_FORMAT_SUBMASK;
  if (options.format == "s16") subtype = SF_FORMAT_PCM_16;
  if (options.format == "f32") subtype = SF_FORMAT_FLOAT;
  int outFormat = FormatFor(container, subtype);
  if (options.format != "same" && (outFormat & SF_FORMAT_SUBMASK) != subtype)
    UsageError("the container of '" + options.output + "' cannot hold " +
               (options.format == "s16" ? "16-bit" : "float") + " samples");

  // Plain WAV has no speaker map; WAVEX is the same file with one.
  const std::vector<int> channelMap = OutputChannelMap(common, outChannels, outLayout);
  if (!channelMap.empty() && (outFormat & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV)
    outFormat = (outFormat & ~SF_FORMAT_TYPEMASK) | SF_FORMAT_WAVEX;

  AudioWriter writer(options.output, outRate, outChannels, outFormat);
  if (!channelMap.empty() && !writer.SetChannelMap(channelMap))
    Note(common,
         "'" + options.output + "' (" + FormatText(outFormat) + ") cannot carry the speaker map " +
             MaskText(EffectiveMask(outChannels, outLayout)) + "; it is written without one");
  std::unique_ptr<SpeedStage> speed;
  if (options.speed != 1.0)
    speed = std::make_unique<SpeedStage>(static_cast<float>(options.speed), outRate, outChannels,
                                         options.format == "s16" ? 16 : 32);
  Progress progress(!options.quiet && StderrIsTerminal(), reader.frames(), options.onFrames);
  Totals totals;
  auto start = std::chrono::steady_clock::now();
  if (options.format == "s16") {
    Stream<int16_t>(reader, chain, speed.get(), writer, progress, 1.0f / 32768.0f, &totals);
  } else {
    Stream<float>(reader, chain, speed.get(), writer, progress, 1.0f, &totals);
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  writer.Commit();
  progress.Done();

  const int outSubtype = outFormat & SF_FORMAT_SUBMASK;
  if (options.format != "s16" && totals.peakOut > 1.0f && outSubtype != SF_FORMAT_FLOAT &&
      outSubtype != SF_FORMAT_DOUBLE)
    Warn("the output peaks at " + PeakText(totals.peakOut) +
         ": samples above full scale were clipped in '" + options.output +
         "' (write a float file with --format f32 to keep them)");
  if (!options.quiet) {
    double audioSeconds = static_cast<double>(totals.framesIn) / reader.rate();
    std::string rtf = "n/a";
    if (audioSeconds > 0.0 && seconds > 0.0)
      rtf = Format("%.4f (%.0fx real time)", seconds / audioSeconds, audioSeconds / seconds);
    std::printf(
        "%s%s%s | in %s %d Hz %d ch%s | out %s %d Hz %d ch%s | frames %lld -> %lld | peak %s -> %s "
        "| real-time factor %s\n",
        presetName.empty() ? "" : ("\"" + presetName + "\": ").c_str(), chain.Describe().c_str(),
        options.format == "s16" ? " [int16]" : "", FormatText(reader.format()).c_str(),
        reader.rate(), reader.channels(), LayoutSuffix(reader.channels(), inLayout).c_str(),
        FormatText(outFormat).c_str(), outRate, outChannels,
        LayoutSuffix(outChannels, outLayout).c_str(), static_cast<long long>(totals.framesIn),
        static_cast<long long>(totals.framesOut), PeakText(totals.peakIn).c_str(),
        PeakText(totals.peakOut).c_str(), rtf.c_str());
    if (speed) std::printf("%s\n", speed->Report().c_str());
  }
  return kExitOk;
}

}  // namespace ondrel_tool
