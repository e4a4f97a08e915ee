#include "audio.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "common.h"
#include "layouts.h"

namespace ondrel_tool {

namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string Extension(const std::string& path) {
  size_t slash = path.find_last_of('/');
  size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  return Lower(path.substr(dot + 1));
}

std::string MajorName(int format) {
  SF_FORMAT_INFO info;
  info.format = format & SF_FORMAT_TYPEMASK;
  if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) == 0 && info.name != nullptr) {
    std::string name = info.name;
    return name.substr(0, name.find(' '));
  }
  return "?";
}

std::string SubtypeName(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8: return "PCM_S8";
    case SF_FORMAT_PCM_U8: return "PCM_U8";
    case SF_FORMAT_PCM_16: return "PCM_16";
    case SF_FORMAT_PCM_24: return "PCM_24";
    case SF_FORMAT_PCM_32: return "PCM_32";
    case SF_FORMAT_FLOAT: return "FLOAT";
    case SF_FORMAT_DOUBLE: return "DOUBLE";
    case SF_FORMAT_VORBIS: return "VORBIS";
    case SF_FORMAT_OPUS: return "OPUS";
    case SF_FORMAT_ULAW: return "ULAW";
    case SF_FORMAT_ALAW: return "ALAW";
    default: return "other";
  }
}

// Appends the `available` samples the library holds for output, whole frames
// only.
template <typename Sample, typename Out>
void Collect(void* inst, int available, int outChannels, std::vector<Sample>* out, Out output,
             const char* outName) {
  if (available <= 0) return;
  size_t at = out->size();
  out->resize(at + static_cast<size_t>(available));
  int written = 0;
  CheckStatus(output(inst, out->data() + at, available, &written), outName);
  if (written < 0 || written > available) written = 0;
  out->resize(at + static_cast<size_t>(written - written % outChannels));
}

// Calls the library's float or int16 process pair and appends the output.
template <typename Sample, typename In, typename Out>
void RunProcess(void* inst, Sample* in, int64_t frames, int channels, int outChannels,
                std::vector<Sample>* out, In input, Out output, const char* inName,
                const char* outName) {
  const int64_t chunkFrames = 1 << 16;  // keep counts far from INT_MAX
  for (int64_t done = 0; done < frames;) {
    int64_t n = std::min(chunkFrames, frames - done);
    int available = 0;
    CheckStatus(input(inst, in + done * channels, static_cast<int>(n * channels), &available),
                inName);
    done += n;
    Collect(inst, available, outChannels, out, output, outName);
  }
}

}  // namespace

AudioReader::AudioReader(const std::string& path) : path_(path) {
  std::memset(&info_, 0, sizeof info_);
  RequireInputFile(path);
  file_ = sf_open(path.c_str(), SFM_READ, &info_);
  if (file_ == nullptr) UsageError("cannot read '" + path + "' as sound: " + sf_strerror(nullptr));
  if (info_.channels < 1 || info_.channels > 64)
    UsageError("'" + path + "' has " + std::to_string(info_.channels) +
               " channels; 1 to 64 are supported");
}

AudioReader::~AudioReader() {
  if (file_ != nullptr) sf_close(file_);
}

uint64_t AudioReader::SpeakerMask(std::string* problem) {
  problem->clear();
  std::vector<int> map(static_cast<size_t>(info_.channels));
  if (sf_command(file_, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                 static_cast<int>(map.size() * sizeof(int))) != SF_TRUE)
    return 0;
  return MaskFromChannelMap(map.data(), info_.channels, problem);
}

int64_t AudioReader::Read(float* buffer, int64_t frames) {
  return sf_readf_float(file_, buffer, frames);
}
int64_t AudioReader::Read(int16_t* buffer, int64_t frames) {
  const int subtype = info_.format & SF_FORMAT_SUBMASK;
  if (subtype != SF_FORMAT_FLOAT && subtype != SF_FORMAT_DOUBLE)
    return sf_readf_short(file_, buffer, frames);
  // libsndfile reads float files as 16-bit either unscaled (0.5 becomes 0)
  // or scaled to the file's own peak; full scale 1.0 is wanted, with clipping.
  scratch_.resize(static_cast<size_t>(frames * info_.channels));
  const int64_t got = sf_readf_float(file_, scratch_.data(), frames);
  for (size_t i = 0; i < static_cast<size_t>(std::max<int64_t>(got, 0) * info_.channels); ++i) {
    const float v = std::min(32767.0f, std::max(-32768.0f, scratch_[i] * 32768.0f));
    buffer[i] = static_cast<int16_t>(std::lrint(v));
  }
  return got;
}

int ContainerForPath(const std::string& path, int* codec) {
  const std::string ext = Extension(path);
  struct Entry {
    const char* ext;
    int container;
    int codec;  // the only subtype the extension stands for, or 0
  };
  static const Entry kTable[] = {
      {"wav", SF_FORMAT_WAV, 0},   {"wave", SF_FORMAT_WAV, 0},
      {"flac", SF_FORMAT_FLAC, 0}, {"aif", SF_FORMAT_AIFF, 0},
      {"aiff", SF_FORMAT_AIFF, 0}, {"aifc", SF_FORMAT_AIFF, 0},
      {"au", SF_FORMAT_AU, 0},     {"snd", SF_FORMAT_AU, 0},
      {"caf", SF_FORMAT_CAF, 0},   {"w64", SF_FORMAT_W64, 0},
      {"rf64", SF_FORMAT_RF64, 0}, {"ogg", SF_FORMAT_OGG, 0},
      {"oga", SF_FORMAT_OGG, 0},   {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},
      {"raw", SF_FORMAT_RAW, 0}};
  for (const Entry& e : kTable) {
    if (ext != e.ext) continue;
    if (codec != nullptr) *codec = e.codec;
    return e.container;
  }
  UsageError("cannot tell the output format from '" + path +
             "': use one of the extensions .wav .flac .aiff .au .caf .w64 .rf64 .ogg .opus .raw");
}

int FormatFor(int container, int subtype) {
  SF_INFO probe;
  std::memset(&probe, 0, sizeof probe);
  probe.channels = 2;
  probe.samplerate = 44100;
  int preferred[] = {subtype & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16, SF_FORMAT_FLOAT,
                     SF_FORMAT_VORBIS, SF_FORMAT_PCM_24};
  for (int s : preferred) {
    if (s == 0) continue;
    probe.format = container | s;
    if (sf_format_check(&probe)) return probe.format;
  }
  return container | SF_FORMAT_PCM_16;
}

std::string FormatText(int format) { return MajorName(format) + " " + SubtypeName(format); }

AudioWriter::AudioWriter(const std::string& path, int rate, int channels, int format)
    : path_(path) {
  temp_ = TemporaryPathFor(path);
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  info.samplerate = rate;
  info.channels = channels;
  info.format = format;
  if (!sf_format_check(&info))
    UsageError("libsndfile cannot write " + FormatText(format) + " with " +
               std::to_string(channels) + " channels at " + std::to_string(rate) + " Hz to '" +
               path + "'");
  file_ = sf_open(temp_.c_str(), SFM_WRITE, &info);
  if (file_ == nullptr) {
    // libsndfile may have created the file before it gave up on it.
    const std::string reason = sf_strerror(nullptr);
    std::remove(temp_.c_str());
    UsageError("cannot write '" + path + "': " + reason);
  }
  RemoveOnInterrupt(temp_);
  // Floats above full scale are clipped, not wrapped, in integer files.
  sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter() {
  if (file_ != nullptr) sf_close(file_);
  if (!committed_) std::remove(temp_.c_str());
  ForgetOnInterrupt();
}

bool AudioWriter::SetChannelMap(const std::vector<int>& map) {
  std::vector<int> copy = map;  // libsndfile takes a non-const pointer
  return sf_command(file_, SFC_SET_CHANNEL_MAP_INFO, copy.data(),
                    static_cast<int>(copy.size() * sizeof(int))) == SF_TRUE;
}

void AudioWriter::Write(const float* samples, int64_t frames) {
  if (frames > 0 && sf_writef_float(file_, samples, frames) != frames)
    Failure("writing '" + path_ + "' failed: " + sf_strerror(file_));
}

void AudioWriter::Write(const int16_t* samples, int64_t frames) {
  if (frames > 0 && sf_writef_short(file_, samples, frames) != frames)
    Failure("writing '" + path_ + "' failed: " + sf_strerror(file_));
}

void AudioWriter::Commit() {
  int status = sf_close(file_);
  file_ = nullptr;
  if (status != 0) Failure("writing '" + path_ + "' failed: " + sf_error_number(status));
  if (std::rename(temp_.c_str(), path_.c_str()) != 0)
    Failure("cannot move the finished file into place as '" + path_ + "': " + std::strerror(errno));
  committed_ = true;
}

void WriteWholeFile(const std::string& path, int rate, int channels, int format,
                    const std::vector<float>& samples) {
  AudioWriter writer(path, rate, channels, format);
  writer.Write(samples.data(),
               static_cast<int64_t>(samples.size() / static_cast<size_t>(channels)));
  writer.Commit();
}

Chain::Chain(int channels, float rate, uint64_t layout) : channels_(channels) {
  inst_ = ONDREL2::ondrel_create_inst();
  if (inst_ == nullptr) Failure("ondrel_create_inst failed: out of memory");
  CheckStatus(ONDREL2::ondrel_setup_input(inst_, channels, layout), "ondrel_setup_input");
  CheckStatus(ONDREL2::ondrel_set_samplerate(inst_, rate), "ondrel_set_samplerate");
}

Chain::~Chain() { ONDREL2::ondrel_destroy_inst(inst_); }

void Chain::Install(EffectList& effects) {
  int status = ONDREL2::ondrel_set_params(inst_, effects.data(), effects.size());
  effects.Release();  // the instance owns the handles in every outcome
  if (status != 0 && status != ONDREL2::ONDREL_NOTHING_TO_DO)
    CheckStatus(status, "ondrel_set_params");
}

std::string Chain::Describe() const {
  int count = 0;
  ONDREL2::ondrel_get_params(inst_, nullptr, 0, &count);
  std::vector<ONDREL2::AEffect*> list(static_cast<size_t>(count) + 1, nullptr);
  ONDREL2::ondrel_get_params(inst_, list.data(), count, &count);
  std::string out;
  for (int i = 0; i < count; ++i) {
    if (i > 0) out += " > ";
    out += EffectShortName(EffectType(list[static_cast<size_t>(i)]));
  }
  return count == 0 ? "(empty chain)" : out;
}

int Chain::Size() const {
  int count = 0;
  ONDREL2::ondrel_get_params(inst_, nullptr, 0, &count);
  return count;
}

bool Chain::Empty() const { return Size() == 0; }

int Chain::OutChannels() const {
  int channels = 0;
  uint64_t layout = 0;
  ONDREL2::ondrel_get_out_chns(inst_, &channels, &layout);
  return channels;
}

uint64_t Chain::OutLayout() const {
  int channels = 0;
  uint64_t layout = 0;
  ONDREL2::ondrel_get_out_chns(inst_, &channels, &layout);
  return layout;
}

float Chain::OutRate() const {
  float rate = 0.0f;
  ONDREL2::ondrel_get_samplerate(inst_, &rate);
  return rate;
}

void Chain::Process(float* in, int64_t frames, std::vector<float>* out) {
  if (Empty()) {  // an empty chain plays the host's own buffer
    out->insert(out->end(), in, in + frames * channels_);
    return;
  }
  RunProcess(inst_, in, frames, channels_, OutChannels(), out, &ONDREL2::ondrel_processf_input,
             &ONDREL2::ondrel_processf_output, "ondrel_processf_input", "ondrel_processf_output");
}

void Chain::Process(int16_t* in, int64_t frames, std::vector<int16_t>* out) {
  if (Empty()) {
    out->insert(out->end(), in, in + frames * channels_);
    return;
  }
  RunProcess(inst_, in, frames, channels_, OutChannels(), out, &ONDREL2::ondrel_process_input,
             &ONDREL2::ondrel_process_output, "ondrel_process_input", "ondrel_process_output");
}

namespace {

template <typename Sample, typename Out>
void RunFlush(void* inst, int outChannels, std::vector<Sample>* out, Out output,
              const char* outName) {
  int available = 0;
  CheckStatus(ONDREL2::ondrel_flush_to_buf(inst, &available), "ondrel_flush_to_buf");
  Collect(inst, available, outChannels, out, output, outName);
}

}  // namespace

void Chain::Flush(std::vector<float>* out) {
  if (Empty()) return;
  RunFlush(inst_, OutChannels(), out, &ONDREL2::ondrel_processf_output, "ondrel_processf_output");
}

void Chain::Flush(std::vector<int16_t>* out) {
  if (Empty()) return;
  RunFlush(inst_, OutChannels(), out, &ONDREL2::ondrel_process_output, "ondrel_process_output");
}

ProcessResult ProcessBuffer(EffectList& effects, const std::vector<float>& input, int channels,
                            float rate) {
  Chain chain(channels, rate);
  chain.Install(effects);
  ProcessResult result;
  result.chain = chain.Describe();
  result.channels = chain.OutChannels();
  result.rate = chain.OutRate();
  std::vector<float> in = input;  // the library takes a non-const buffer
  chain.Process(in.data(), static_cast<int64_t>(in.size() / static_cast<size_t>(channels)),
                &result.samples);
  chain.Flush(&result.samples);
  return result;
}

}  // namespace ondrel_tool
