#include "layouts.h"

#include <sndfile.h>

#include <cstdio>

namespace ondrel_tool {

namespace {

struct NamedLayout {
  const char* name;
  int channels;
  uint64_t mask;
};

// The library's standard layouts. The first row of a channel count is the
// layout it assumes for a mask of 0.
const NamedLayout kLayouts[] = {
    {"mono", 1, 0x4},
    {"stereo", 2, 0x3},
    {"2.1", 3, 0xB},
    {"3.0", 3, 0x7},
    {"3.0(back)", 3, 0x103},
    {"4.0", 4, 0x107},
    {"quad", 4, 0x33},
    {"quad(side)", 4, 0x603},
    {"3.1", 4, 0xF},
    {"5.0", 5, 0x37},
    {"5.0(side)", 5, 0x607},
    {"4.1", 5, 0x10F},
    {"5.1", 6, 0x3F},
    {"5.1(side)", 6, 0x60F},
    {"6.0", 6, 0x707},
    {"6.0(front)", 6, 0x6C3},
    {"hexagonal", 6, 0x137},
    {"6.1", 7, 0x70F},
    {"6.1(back)", 7, 0x13F},
    {"6.1(front)", 7, 0x6CB},
    {"7.0", 7, 0x637},
    {"7.0(front)", 7, 0x6C7},
    {"7.1", 8, 0x63F},
    {"7.1(wide)", 8, 0xFF},
    {"7.1(wide-side)", 8, 0x6CF},
    {"octagonal", 8, 0x737},
    {"hexadecagonal", 16, 0x18003F737ULL},
    {"downmix", 2, 0x60000000},
};

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

uint64_t DefaultMask(int channels) {
  for (const NamedLayout& layout : kLayouts)
    if (layout.channels == channels) return layout.mask;
  return 0;
}

uint64_t EffectiveMask(int channels, uint64_t mask) {
  return mask != 0 ? mask : DefaultMask(channels);
}

bool IsDefaultMask(int channels, uint64_t mask) {
  return mask == 0 || mask == DefaultMask(channels);
}

std::string MaskText(uint64_t mask) {
  for (const NamedLayout& layout : kLayouts)
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
