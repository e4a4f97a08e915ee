// Sound files through libsndfile, and a processing instance driven the way a
// player drives it.
#ifndef ONDREL_TOOL_AUDIO_H
#define ONDREL_TOOL_AUDIO_H

#include <sndfile.h>

#include <cstdint>
#include <string>
#include <vector>

#include "effects.h"

namespace ondrel_tool {

// A sound file opened for reading. Usage error naming the path if libsndfile
// cannot open it.
class AudioReader {
 public:
  explicit AudioReader(const std::string& path);
  ~AudioReader();
  AudioReader(const AudioReader&) = delete;
  AudioReader& operator=(const AudioReader&) = delete;

  int channels() const { return info_.channels; }
  int rate() const { return info_.samplerate; }
  int format() const { return info_.format; }
  int64_t frames() const { return info_.frames; }  // may be 0 when unknown
  // The speaker mask of the file's channel map; 0 with `problem` set when
  // the map cannot be told as a mask, 0 with `problem` empty when the file
  // has no map.
  uint64_t SpeakerMask(std::string* problem);
  // Reads up to `frames` frames; returns the frames read (0 at the end).
  int64_t Read(float* buffer, int64_t frames);
  int64_t Read(int16_t* buffer, int64_t frames);

 private:
  std::string path_;
  SF_INFO info_;
  SNDFILE* file_ = nullptr;
  std::vector<float> scratch_;  // float files read as 16-bit samples
};

// Writes a sound file under a temporary name in the target's directory and
// renames it into place on Commit(), so that a failure never leaves a
// half-written file behind. The container follows the target's extension.
class AudioWriter {
 public:
  // `format` is a full libsndfile format (container | subtype).
  AudioWriter(const std::string& path, int rate, int channels, int format);
  ~AudioWriter();
  AudioWriter(const AudioWriter&) = delete;
  AudioWriter& operator=(const AudioWriter&) = delete;

  // Stores a libsndfile channel map, one entry per channel; before the
  // first Write. False when the container cannot carry it.
  bool SetChannelMap(const std::vector<int>& map);
  void Write(const float* samples, int64_t frames);
  void Write(const int16_t* samples, int64_t frames);
  void Commit();

 private:
  std::string path_;
  std::string temp_;
  SNDFILE* file_ = nullptr;
  bool committed_ = false;
};

// The libsndfile container for a file name's extension; usage error for an
// extension it does not write. `codec` receives the subtype that the
// extension names (Opus for .opus), else 0.
int ContainerForPath(const std::string& path, int* codec = nullptr);
// A valid full format for `container`, preferring `subtype`, else 16-bit PCM,
// else float, else the container's first subtype.
int FormatFor(int container, int subtype);
// "WAV PCM_16", "FLAC PCM_24", ...
std::string FormatText(int format);

// Writes `path` with the same guarantees as AudioWriter.
void WriteWholeFile(const std::string& path, int rate, int channels, int format,
                    const std::vector<float>& samples);

// One processing instance with its chain. Float or int16 interleaved samples
// go in; what the chain gives comes back in the chain's output format.
class Chain {
 public:
  // `layout` is the input's speaker mask, 0 for the default of the count.
  Chain(int channels, float rate, uint64_t layout = 0);
  ~Chain();
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  // Hands the effects to the instance (which owns them from then on).
  void Install(EffectList& effects);
  // A description of the running chain ("amplifier > limiter").
  std::string Describe() const;
  bool Empty() const;
  // How many effects the instance kept after configuring.
  int Size() const;
  int OutChannels() const;
  // The output's speaker mask as the chain reports it (0: the default).
  uint64_t OutLayout() const;
  float OutRate() const;
  int InChannels() const { return channels_; }

  // Appends the output of `frames` input frames to `out`.
  void Process(float* in, int64_t frames, std::vector<float>* out);
  void Process(int16_t* in, int64_t frames, std::vector<int16_t>* out);
  // The tails of the effects, at the end of the stream.
  void Flush(std::vector<float>* out);
  void Flush(std::vector<int16_t>* out);

 private:
  void* inst_ = nullptr;
  int channels_ = 0;
};

// Library state + chain for a whole in-memory signal: used by demo and
// response. `effects` is consumed.
struct ProcessResult {
  std::vector<float> samples;  // interleaved, out channels
  int channels = 0;
  float rate = 0.0f;
  std::string chain;
};
ProcessResult ProcessBuffer(EffectList& effects, const std::vector<float>& input, int channels,
                            float rate);

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_AUDIO_H
