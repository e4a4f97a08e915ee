// Speaker layouts: the library's 64-bit speaker masks (bit n = speaker
// position n, channels in ascending bit order), their names, and the channel
// maps through which libsndfile reads and writes them.
#ifndef ONDREL_TOOL_LAYOUTS_H
#define ONDREL_TOOL_LAYOUTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace ondrel_tool {

// The mask that the library assumes for `channels` when it is given 0; 0
// for a count without a standard layout.
uint64_t DefaultMask(int channels);

// `mask` itself, or the default for `channels` when `mask` is 0.
uint64_t EffectiveMask(int channels, uint64_t mask);

// True when `mask` is 0 or the default for `channels`.
bool IsDefaultMask(int channels, uint64_t mask);

// "5.1(side)" for a standard layout, else the mask in hex ("0x60f").
std::string MaskText(uint64_t mask);

// The speaker mask of a libsndfile channel map of `channels` entries. 0 with
// `problem` set when the map names a position the mask has no bit for,
// names one twice, or orders the channels other than by ascending bit.
uint64_t MaskFromChannelMap(const int* map, int channels, std::string* problem);

// The libsndfile channel map of `mask`, one entry per set bit; empty with
// `problem` set when a position has no libsndfile name.
std::vector<int> ChannelMapFromMask(uint64_t mask, std::string* problem);

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_LAYOUTS_H
