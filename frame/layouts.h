// Channel layouts: 64-bit speaker masks and their grouping.
//
// Bit n of a mask is speaker position n; the channels of a stream come in
// ascending bit order. LayoutUtils splits a count and mask into groups: a
// stereo pair is one group of two, a single speaker one group of one, so
// that an effect keeps one DSP state per group (a limiter links left and
// right of a pair, never a pair with the centre).
#pragma once

#include <cstdint>
#include <vector>

namespace ONDREL2 {

struct StandardLayout {
  const char* name;
  int channels;
  uint64_t mask;
};

constexpr int kStandardLayoutCount = 28;
extern const StandardLayout kStandardLayouts[kStandardLayoutCount];

// The mask of the first standard layout with `channels`, or 0 if none.
uint64_t DefaultLayoutMask(int channels);

struct ChannelGroup {
  void* context;
  int count;   // 1 or 2
  int first;   // channel slot
  int second;  // second slot; equal to first for a single
  void (*release)(void*);
};

class LayoutUtils {
 public:
  using ReleaseFn = void (*)(void*);

  LayoutUtils(int channels, uint64_t layout, ReleaseFn release);
  virtual ~LayoutUtils();
  LayoutUtils(const LayoutUtils&) = delete;
  LayoutUtils& operator=(const LayoutUtils&) = delete;

  // Appends the groups of the stored channels and layout (does not clear).
  void BuildGroups(ReleaseFn release);
  // Releases each group's context, then empties the list.
  void ClearGroups();

  std::vector<ChannelGroup> groups;
  int channelMap[64] = {};
  int channels;
  uint64_t layout;
};

}  // namespace ONDREL2
