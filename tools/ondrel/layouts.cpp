#include "layouts.h"

#include <sndfile.h>

#include <cstdio>

#include "frame/layouts.h"

namespace ondrel_tool {

namespace {

// libsndfile's name for speaker positions 0 to 17 (front left ... top back
// right); the positions above have none.
const int kSndfilePositions[] = {
    SF_CHANNEL_MAP_LEFT,
    SF_CHANNEL_MAP_RIGHT,
    SF_CHANNEL_MAP_CENTER,
    SF_CHANNEL_MAP_LFE,
    SF_CHANNEL_MAP_REAR_LEFT,
    SF_CHANNEL_MAP_REAR_RIGHT,
    SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
    SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
    SF_CHANNEL_MAP_REAR_CENTER,
    SF_CHANNEL_MAP_SIDE_LEFT,
    SF_CHANNEL_MAP_SIDE_RIGHT,
    SF_CHANNEL_MAP_TOP_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_LEFT,
    SF_CHANNEL_MAP_TOP_FRONT_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
    SF_CHANNEL_MAP_TOP_REAR_LEFT,
    SF_CHANNEL_MAP_TOP_REAR_CENTER,
    SF_CHANNEL_MAP_TOP_REAR_RIGHT,
};
constexpr int kSndfilePositionCount =
    static_cast<int>(sizeof kSndfilePositions / sizeof kSndfilePositions[0]);

// The speaker position of a libsndfile channel name, or -1. libsndfile
// reads front left as either LEFT or FRONT_LEFT depending on the container,
// and a lone channel may be MONO, which stands where the library puts a
// single channel: front centre.
int PositionOf(int id) {
  switch (id) {
    case SF_CHANNEL_MAP_FRONT_LEFT: return 0;
    case SF_CHANNEL_MAP_FRONT_RIGHT: return 1;
    case SF_CHANNEL_MAP_FRONT_CENTER:
    case SF_CHANNEL_MAP_MONO: return 2;
    default: break;
  }
  for (int bit = 0; bit < kSndfilePositionCount; ++bit)
    if (kSndfilePositions[bit] == id) return bit;
  return -1;
}

}  // namespace

uint64_t DefaultMask(int channels) { return ONDREL2::DefaultLayoutMask(channels); }

uint64_t EffectiveMask(int channels, uint64_t mask) {
  return mask != 0 ? mask : DefaultMask(channels);
}

bool IsDefaultMask(int channels, uint64_t mask) {
  return mask == 0 || mask == DefaultMask(channels);
}

std::string MaskText(uint64_t mask) {
  for (const ONDREL2::StandardLayout& layout : ONDREL2::kStandardLayouts)
    if (layout.mask == mask) return layout.name;
  char text[32];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(mask));
  return text;
}

uint64_t MaskFromChannelMap(const int* map, int channels, std::string* problem) {
  uint64_t mask = 0;
  int last = -1;
  for (int i = 0; i < channels; ++i) {
    const int bit = PositionOf(map[i]);
    if (bit < 0) {
      *problem =
          "channel " + std::to_string(i + 1) + " has no position that a speaker mask can tell";
      return 0;
    }
    if (bit <= last) {
      *problem = (mask >> bit) & 1 ? "a speaker position appears twice"
                                   : "the channels are not in the library's speaker order";
      return 0;
    }
    mask |= uint64_t{1} << bit;
    last = bit;
  }
  return mask;
}

std::vector<int> ChannelMapFromMask(uint64_t mask, std::string* problem) {
  std::vector<int> map;
  for (int bit = 0; bit < 64; ++bit) {
    if (((mask >> bit) & 1) == 0) continue;
    if (bit >= kSndfilePositionCount) {
      *problem = "speaker position " + std::to_string(bit) + " has no name in sound files";
      return {};
    }
    map.push_back(kSndfilePositions[bit]);
  }
  return map;
}

}  // namespace ondrel_tool
