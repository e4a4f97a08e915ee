// HeadphoneEffect: loudspeakers in a room, rendered for headphones.
//
// Any input of 1 to 8 or 16 channels is remixed to 5.1 and rendered by the
// HeadphoneRoomEngine into two channels; the output is stereo whatever
// comes in (the output mask stays the input's). One parameter, `RoomType`:
// 1 "ReferenceRoom", 2 "LiveRoom", 3 "MovieTheater", each a folder of
// response files read through the host's stream reader.
//
// The engine is built with room 2 and rebuilt only when the rate or channel
// count changes. A RoomType other than the build room loads that room on
// every parameter update; going back to 2 finds nothing to change, so the
// last room stays in force until the next rebuild. Presets rely on this,
// so it is kept deliberately.
//
// Block size 1024. GetLatency stays 0 although the limiter delays by its
// look-ahead (5 ms). A flush clears nothing: neither the queues nor the
// engine.
#pragma once

#include <memory>
#include <vector>

#include "effects/headphone/headphone_room_engine.h"
#include "framework/ondrel2.h"

namespace ONDREL2 {
namespace HEADPHONE {

class HeadphoneEffect : public IOndrel2 {
 public:
  HeadphoneEffect();
  ~HeadphoneEffect() override;
  AudioEffect* CreateInstance() override;
  void SetChannels(int32_t chns, uint64_t mask) override;
  int32_t GetBlockSize() override;
  void ClearBuffers() override;
  int32_t UpdateParams() override;
  int32_t ProcessBlock(const ChannelVector& bufs, int32_t* frames) override;

  std::unique_ptr<HeadphoneRoomEngine> engine;
  int32_t engineRate = 0;      // the rate the engine was built for
  int32_t engineChannels = 0;  // input channels it was built for
  int32_t engineOutChannels = 0;
  int32_t reservedA = 1;  // handed to the engine, which doesn't use them
  int32_t reservedB = 1;
  int32_t builtRoomType = 2;
  int32_t channelEnabled[HeadphoneRoomEngine::kSpeakers] = {1, 1, 1, 1, 1};
  int32_t lfeToMains = 1;
  float lfeGain = 0.1f;

 private:
  std::vector<float> interleaved;  // block scratch, grown once
};

}  // namespace HEADPHONE
}  // namespace ONDREL2
