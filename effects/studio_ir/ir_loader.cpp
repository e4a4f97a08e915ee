#include "effects/studio_ir/ir_loader.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "dsp/resampler.h"
#include "files/resource.h"
#include "frame/log.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace STUDIO_IR {
namespace {

// Convolver path fed by each file channel: left to left, right to right,
// right to left, left to right.
constexpr int kPathOfChannel[4] = {0, 3, 1, 2};

// Below this many frames a response is never shortened past 1023 frames.
constexpr int kTrimFloor = 1024;

// Four channels of one response, one block of `frames` floats each.
struct Response {
  int channels = 0;
  int frames = 0;
  std::vector<float> data;

  bool Allocate(int length) {
    if (!TryAllocating([&] { data.assign(4 * static_cast<size_t>(length), 0.0f); })) {
      return false;
    }
    frames = length;
    return true;
  }
  float* Channel(int k) { return data.data() + static_cast<size_t>(k) * frames; }
};

// Reads the whole open file into `r`. Files of one to four channels only:
// each channel has a path of its own and there are four paths.
bool ReadWave(ResourceWave& wave, Response& r) {
  const int c = wave.GetChannels();
  const uint32_t f = wave.FramesOnDisk();
  if (c < 1 || c > 4 || f == 0 || f > static_cast<uint32_t>(std::numeric_limits<int>::max() / 4))
    return false;
  if (!r.Allocate(static_cast<int>(f))) return false;
  float* channels[4] = {r.Channel(0), r.Channel(1), r.Channel(2), r.Channel(3)};
  // A file that ends early leaves the rest of the arrays at zero.
  wave.ReadFrames(channels, c, static_cast<int32_t>(f));
  r.channels = c;
  return true;
}

// Shortens the response to the last frame whose loudest channel reaches
// `trimDb`, and fades the kept end out over `fadeMs` at the stream's rate.
// Returns the new length.
int TrimAndFade(Response& r, float trimDb, float fadeMs, int streamRate) {
  const int f = r.frames;
  if (f <= kTrimFloor) return f - 1;
  const float threshold = static_cast<float>(std::pow(10.0, trimDb / 20.0));
  int length = f;
  bool tailFound = false;
  for (int i = f - 1; i > kTrimFloor; --i) {
    float peak = 0.0f;
    for (int k = 0; k < 4; ++k) peak = std::max(peak, std::fabs(r.Channel(k)[i]));
    if (peak < threshold) {
      length = i;
    } else if (i < length) {
      tailFound = true;
      break;
    }
  }
  if (!tailFound) return kTrimFloor - 1;

  // The ramp counts in frames of the stream although the samples are still
  // at the file's rate; it reaches 0 on frame `length`, just behind the
  // kept ones.
  const float samples = (fadeMs / 1000.0f) * static_cast<float>(streamRate);
  int n = 0;
  if (samples >= static_cast<float>(length))
    n = length;
  else if (samples > 0.0f)
    n = static_cast<int>(samples);
  for (int j = 1; j <= n; ++j) {
    const int at = length - n + j;
    if (at >= f) break;
    const float factor = static_cast<float>(n - j) / samples;
    for (int k = 0; k < 4; ++k) r.Channel(k)[at] *= factor;
  }
  return length;
}

// Straight-line interpolation of `length` samples onto `outLength`.
void LinearResample(const float* in, int length, float* out, int outLength) {
  const double step = static_cast<double>(length) / outLength;
  for (int i = 0; i < outLength; ++i) {
    const double position = i * step;
    const int k = static_cast<int>(position);
    const float a = in[k];
    const float b = k + 1 < length ? in[k + 1] : in[length - 1];
    out[i] = static_cast<float>(a + (b - a) * (position - k));
  }
}

// Brings the first `length` frames of `r` from `fileRate` to `streamRate`.
// False, with `r` as it was, when the new length is out of reach.
bool Resample(Response& r, int length, int fileRate, int streamRate) {
  const float target = std::ceil(static_cast<float>(streamRate) * static_cast<float>(length) /
                                 static_cast<float>(fileRate));
  if (!(target >= 1.0f && target < static_cast<float>(std::numeric_limits<int>::max() / 4)))
    return false;
  const int newLength = static_cast<int>(target);
  Response out;
  if (!out.Allocate(newLength)) return false;
  for (int k = 0; k < 4; ++k) {
    int32_t written = 0;
    {
      CResampler_SRC resampler;
      if (resampler.Init(fileRate, streamRate, 1, true))
        written = resampler.Process(r.Channel(k), length, out.Channel(k), newLength);
    }
    if (written == 0) {
      Log(kLogNotable, "[ON2L]:Using linear resampler");
      LinearResample(r.Channel(k), length, out.Channel(k), newLength);
    }
  }
  out.channels = r.channels;
  r = std::move(out);
  return true;
}

}  // namespace

bool IrLoader::SetFormat(int rate, int channelCount) {
  sampleRate = rate;
  channels = channelCount;
  convolver.reset(NewObject<OndrelStereoConvolution>());
  return convolver != nullptr && convolver->SetChannels(channelCount);
}

void IrLoader::LoadWave(const char* name, float trimDb, float fadeMs) {
  Response r;
  int fileRate = 0;
  std::string clearCopy;
  bool loaded = false;
  {
    ResourceWave wave;
    // A missing response is silent here: a loader that had none keeps none.
    if (OpenResourceWave(name, &wave, &clearCopy, false)) {
      loaded = ReadWave(wave, r);
      fileRate = wave.GetSampleRate();
    } else if (irFrames > 0) {
      Log(kLogError, "[ON2L]:SetFilePathUTF8 Failed!");
    }
  }
  // The clear copy of a scrambled file lives only while it is read.
  if (!clearCopy.empty()) remove_utf8(clearCopy.c_str());
  if (!loaded) return;

  if (r.channels == 1) {
    std::memcpy(r.Channel(1), r.Channel(0), sizeof(float) * static_cast<size_t>(r.frames));
    r.channels = 2;
  }
  int length = r.frames;
  if (trimDb > -96.0f && trimDb < -30.0f) {
    length = TrimAndFade(r, trimDb, fadeMs, sampleRate);
    Log(kLogInfo, "[ON2L]:IR Trimmed %d --> %d", r.frames, length);
  }
  if (fileRate != sampleRate && length > 0 && fileRate > 0 && sampleRate > 0 &&
      Resample(r, length, fileRate, sampleRate))
    length = r.frames;
  irFrames = length;
  if (irFrames <= 0 || !convolver) return;
  for (int i = 0; i < r.channels; ++i) {
    const int path = kPathOfChannel[i];
    if (convolver->InitPath(kIrBlockSize, kIrPadSize, path) == 0)
      convolver->SetImpulseResponse(r.Channel(i), irFrames, path);
  }
}

void IrLoader::LoadRaw(const char* const rawPaths[4]) {
  for (int path = 0; path < 4; ++path) {
    std::strncpy(paths[path], rawPaths[path], kIrPathBytes);
    paths[path][kIrPathBytes] = '\0';
    if (paths[path][0] != '\0') LoadRawPath(paths[path], path);
  }
}

void IrLoader::LoadRawPath(const char* path, int pathIndex) {
  const ONDREL_STREAM_READER* reader = ondrel_get_onr();
  if (reader == nullptr || reader->open == nullptr || !convolver) return;
  std::vector<float> buffer;
  void* h = reader->open(path);
  if (!TryAllocating([&] {
        if (h != nullptr) {
          reader->seek(h, 0, 2);
          const long bytes = reader->tell(h, nullptr);
          reader->seek(h, 0, 0);
          const int size = bytes > 0 && bytes < std::numeric_limits<int>::max() - 3
                               ? static_cast<int>(bytes)
                               : 0;
          buffer.assign(static_cast<size_t>(size + 3) / 4, 0.0f);
          if (size > 0) reader->read(h, buffer.data(), size);
          reader->close(h);
          irFrames = size;
        } else if (irFrames > 0) {
          buffer.assign(static_cast<size_t>(irFrames), 0.0f);
        }
      })) {
    return;
  }
  // irFrames counts the bytes of a raw file: four to a sample.
  const int samples = irFrames / 4;
  if (samples > 0 && convolver->InitAll(kIrBlockSize, kIrPadSize) == 0)
    convolver->SetImpulseResponse(buffer.data(), samples, pathIndex);
}

int32_t IrLoader::Process(float* samples, int32_t* count) {
  if (!enabled || channels > 2 || irFrames <= 0 || !convolver) return 0;
  return convolver->Process(samples, count);
}

int32_t IrLoader::GetLatency() { return convolver ? convolver->GetLatency() : 0; }

void IrLoader::Reset() {
  if (convolver) convolver->Reset();
}

}  // namespace STUDIO_IR
}  // namespace ONDREL2
