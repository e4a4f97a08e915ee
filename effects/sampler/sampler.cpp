#include "effects/sampler/sampler.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "files/resource.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace STEREO_SAMPLER {

StereoSampler::StereoSampler(const std::string& path, int channelCount, int rate, float gainDb)
    : channels(channelCount), sampleRate(rate) {
  const float gain = static_cast<float>(std::pow(10.0, static_cast<double>(gainDb / 20.0f)));
  std::string clearCopy;
  {
    ResourceWave wave;
    if (OpenResourceWave(path.c_str(), &wave, &clearCopy)) {
      const uint32_t total = wave.FramesOnDisk();
      // The loop is read two samples a frame: a file of any other width
      // would be read out of step or past its end, so it is refused.
      if (wave.GetChannels() == 2 && total > 0 &&
          total <= static_cast<uint32_t>(std::numeric_limits<int>::max() / 2)) {
        if (!TryAllocating([&] {
              samples.assign(2 * static_cast<size_t>(total), 0.0f);
              frames = static_cast<int>(total);
            })) {
          samples.clear();
        }
        if (frames > 0) {
          // A file that ends early keeps zeros behind what it held.
          wave.ReadFrames(samples.data(), frames);
          for (float& s : samples) s *= gain;
        }
      }
    }
  }
  // The clear copy of a scrambled file lives only while it is read.
  if (!clearCopy.empty()) remove_utf8(clearCopy.c_str());
}

StereoSampler::~StereoSampler() = default;

void StereoSampler::Rewind() { position = 0; }

int32_t StereoSampler::Process(float* const* bufs, int32_t count, const int32_t indices[2]) {
  if (channels != 2 || frames <= 0) return ONDREL_OK;
  float* left = bufs[indices[0]];
  float* right = bufs[indices[1]];
  const float* loop = samples.data();
  for (int32_t i = 0; i < count; ++i) {
    left[i] += loop[position * 2];
    right[i] += loop[position * 2 + 1];
    if (++position == frames) position = 0;
  }
  return ONDREL_OK;
}

}  // namespace STEREO_SAMPLER

namespace SAMPLER {
namespace {

using STEREO_SAMPLER::StereoSampler;

const ParamDesc kParams[] = {
    {"Audio File", true, 0.0f, 1.0f, 1.0f, 0.0f, 0.0f, nullptr, 9, 9, nullptr, nullptr, false},
    {"Gain", false, -96.0f, 12.0f, 0.0f, kGainShape, 0.0f, &FormatDecibels, 0, 0, nullptr, nullptr,
     false},
    {""},
};

constexpr int kAudioFileParam = 0;

// Single speakers whose position number shares a bit with this mask get no
// sampler (front centre, low frequency and others).
constexpr int kDryPositions = 0x23;

}  // namespace

SamplerEffect::SamplerEffect() {
  SetEffectName("zh", "采样器");
  SetEffectName("zh-TW", "采樣器");
  SetEffectName("zh-HK", "采樣器");
  SetEffectName("ja", "サンプラー");
  SetEffectName("en", "Sampler");
  SetParamTable(kParams);
  SetParamLabels("Audio File", "zh", "音频文件", "zh-TW", "音頻文件", "zh-HK", "音頻文件", "ja",
                 "オーディオ・ファイル", "en", "", nullptr);
  SetParamLabels("Gain", "zh", "增益", "ja", "ゲイン", "en", "", nullptr);
  effectType = EFFECT_SAMPLER;
}

SamplerEffect::~SamplerEffect() { units.Clear(); }

AudioEffect* SamplerEffect::CreateInstance() { return NewObject<SamplerEffect>(); }

void SamplerEffect::ResetDsp() {
  units.ForEach([](StereoSampler& sampler, const ChannelGroup&) { sampler.Rewind(); });
}

int32_t SamplerEffect::UpdateParams() {
  units.Clear();
  std::string path;
  int32_t size = 0;
  const char* value = static_cast<const char*>(GetParamData(kAudioFileParam, &size));
  if (value != nullptr && size > 0) {
    // The value need not carry its terminator: it ends at the first zero
    // byte or at its size.
    path.assign(value, strnlen(value, static_cast<size_t>(size)));
    for (char& ch : path)
      if (ch == '\\') ch = '/';
  }
  const float gainDb = GetScriptedParamByName("Gain");
  const float hostRate = GetSampleRate();
  const int rate = hostRate >= 0.0f && hostRate < 2147483648.0f ? static_cast<int>(hostRate) : 0;
  return units.Rebuild(
      GetChannels(), handle.inputMask,
      [&](const ChannelGroup& g, int32_t* status) -> StereoSampler* {
        if (g.count == 1 && (units.layout()->channelMap[g.first] & kDryPositions) != 0)
          return nullptr;
        StereoSampler* sampler = nullptr;
        if (!TryAllocating([&] { sampler = new StereoSampler(path, g.count, rate, gainDb); })) {
          *status = ONDREL_E_NOMEM;
        }
        return sampler;
      });
}

int32_t SamplerEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  units.Run(static_cast<int32_t>(bufs.size()),
            [&](StereoSampler& sampler, const ChannelGroup&, int32_t first, int32_t second) {
              const int32_t indices[2] = {first, second};
              sampler.Process(bufs.data(), *frames, indices);
            });
  return ONDREL_OK;
}

}  // namespace SAMPLER
}  // namespace ONDREL2
