#include "effects/headphone/headphone.h"
#include "framework/alloc.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace ONDREL2 {
namespace HEADPHONE {
namespace {

constexpr int32_t kBlock = HeadphoneRoomEngine::kBins;

// Floor to an integer; NaN and values beyond int range give 0.
int32_t Whole(float value) {
  const double f = std::floor(static_cast<double>(value));
  if (!(f > -2147483648.0 && f < 2147483648.0)) return 0;
  return static_cast<int32_t>(f);
}

int32_t FormatRoom(char* buf, const char* name, AudioEffect* effect) {
  static const char* const kWords[3] = {"ReferenceRoom", "LiveRoom", "MovieTheater"};
  const int32_t room = Whole(effect->GetParamByName(name));
  TextMap texts;
  if (room >= 1 && room <= 3) {
    texts["zh"] = kWords[room - 1];
    texts["en"] = kWords[room - 1];
  }
  effect->LookupLocalized(buf, &texts);
  return 0;
}

const ParamDesc kParams[] = {
    {"RoomType", false, 1.0f, 3.99999905f, 3.99999905f, 1.0f, 2.0f, &FormatRoom, 8, 8, nullptr,
     nullptr, false},
    {""},
};

}  // namespace

HeadphoneEffect::HeadphoneEffect() {
  SetEffectName("zh", "Super Head Phone");
  SetEffectName("en", "Super Head Phone");
  SetParamTable(kParams);
  SetParamLabels("RoomType", "zh", "RoomType", "en", "", nullptr);
  effectType = EFFECT_HEADPHONE;
  engineRate = Whole(sampleRate);
  engineChannels = handle.numInputs;
  engineOutChannels = handle.numOutputs;
}

HeadphoneEffect::~HeadphoneEffect() = default;

AudioEffect* HeadphoneEffect::CreateInstance() { return NewObject<HeadphoneEffect>(); }

void HeadphoneEffect::SetChannels(int32_t chns, uint64_t mask) {
  AudioEffect::SetChannels(chns, mask);
  SetOutChannels(2);
}

int32_t HeadphoneEffect::GetBlockSize() { return kBlock; }

void HeadphoneEffect::ClearBuffers() { ResetDsp(); }

int32_t HeadphoneEffect::UpdateParams() {
  const bool sameFormat = engine != nullptr && engineChannels == GetChannels() &&
                          engineOutChannels == GetOutChannels() &&
                          static_cast<float>(engineRate) == GetSampleRate();
  if (!sameFormat) {
    engineChannels = GetChannels();
    engineOutChannels = GetOutChannels();
    engineRate = Whole(GetSampleRate());
    engine.reset();
    engine.reset(NewObject<HeadphoneRoomEngine>());
    if (engine == nullptr) return ONDREL_E_NOMEM;
    if (!engine->Init(engineRate, engineChannels)) return ONDREL_E_INVALID;
    engine->lfeGain = lfeGain;
    engine->reservedA = reservedA != 0;
    engine->reservedB = reservedB != 0;
    engine->SelectRoom(builtRoomType);
    for (int32_t s = 0; s < HeadphoneRoomEngine::kSpeakers; ++s)
      engine->channelEnabled[s] = channelEnabled[s] != 0;
    engine->lfeToMains = lfeToMains != 0;
  }
  // Compared with the build room, not the room in use: see the header.
  const int32_t room = Whole(GetScriptedParamByName("RoomType"));
  if (room != builtRoomType) engine->SelectRoom(room);
  return ONDREL_OK;
}

int32_t HeadphoneEffect::ProcessBlock(const ChannelVector& bufs, int32_t* frames) {
  const int32_t n = *frames;
  const int32_t inChannels = GetChannels();
  const int32_t outChannels = GetOutChannels();
  if (n < kBlock || engine == nullptr) return ONDREL_OK;
  // An engine that failed to set up passes the block on untouched.
  if (inChannels != 6 && engine->remixer == nullptr) return ONDREL_OK;
  if (inChannels <= 0 || outChannels <= 0 ||
      static_cast<int32_t>(bufs.size()) < std::max(inChannels, outChannels))
    return ONDREL_OK;

  // Room for the input and for two output floats per frame.
  const size_t need = static_cast<size_t>(n) * static_cast<size_t>(std::max(inChannels, 2));
  if (interleaved.size() < need) interleaved.resize(need);
  float* buffer = interleaved.data();
  for (int32_t c = 0; c < inChannels; ++c) {
    const float* src = bufs[static_cast<size_t>(c)];
    for (int32_t i = 0; i < n; ++i) buffer[static_cast<size_t>(i) * inChannels + c] = src[i];
  }
  const int32_t result = engine->Process(buffer, n * inChannels);
  const int32_t got = std::min(result / outChannels, n);
  *frames = got;
  if (got < 1) return ONDREL_OK;
  for (int32_t c = 0; c < outChannels; ++c) {
    float* dst = bufs[static_cast<size_t>(c)];
    for (int32_t i = 0; i < got; ++i) dst[i] = buffer[static_cast<size_t>(i) * outChannels + c];
  }
  return ONDREL_OK;
}

}  // namespace HEADPHONE
}  // namespace ONDREL2
