// Channel grouping of speaker masks.
#include "frame/layouts.h"

#include <gtest/gtest.h>

#include <string>

namespace ONDREL2 {
namespace {

// "P0,1 S2 ..." for pairs and singles, in group order.
std::string Describe(int channels, uint64_t mask) {
  LayoutUtils layout(channels, mask, nullptr);
  std::string out;
  for (const ChannelGroup& g : layout.groups) {
    if (!out.empty()) out += ' ';
    if (g.count == 2)
      out += "P" + std::to_string(g.first) + "," + std::to_string(g.second);
    else
      out += "S" + std::to_string(g.first) +
             (g.second != g.first ? "+" + std::to_string(g.second) : "");
  }
  return out;
}

TEST(Layouts, MasksGroupIntoPairsAndSingles) {
  const struct {
    int channels;
    uint64_t mask;
    const char* groups;
  } cases[] = {
      {1, 0, "S0"},
      {2, 0, "P0,1"},
      {3, 0, "P0,1 S2"},
      {6, 0, "P0,1 S2 S3 P4,5"},
      {8, 0, "P0,1 S2 S3 P4,5 P6,7"},
      {2, 0x60000000, "P0,1"},
      {9, 0, ""},
      {0, 0, ""},
      {1, 0x3, "P0,1"},                           // the mask alone decides when given
      {2, (uint64_t{1} << 35) | 0x3, "P0,1 S2"},  // bit 35 is a low-frequency channel
      {1, 0x2, ""},                               // FR alone takes no slot
      {1, 0x1, ""},                               // FL alone takes a slot but forms no group
      {2, 0x6, "S0"},  // a right speaker without its left moves later channels down
      // Hexadecagonal: TFR and TBR hang on the single centre groups, TFL and
      // TBL hold slots without a group.
      {16, 0, "P0,1 S2 P3,4 S5 P6,7 S9+10 S12+13 P14,15"},
  };
  for (const auto& c : cases) EXPECT_EQ(Describe(c.channels, c.mask), c.groups) << c.channels;
  EXPECT_EQ(LayoutUtils(1, 0x1, nullptr).channelMap[0], 0);
  LayoutUtils hex(16, 0, nullptr);
  EXPECT_EQ(hex.channelMap[8], 12);   // TFL
  EXPECT_EQ(hex.channelMap[11], 15);  // TBL
  EXPECT_EQ(hex.channelMap[14], 31);  // WL
}

int g_releases = 0;
void CountRelease(void* context) {
  ++g_releases;
  delete static_cast<int*>(context);
}

TEST(Layouts, ReleaseRunsForTemporariesAndContexts) {
  g_releases = 0;
  {
    LayoutUtils layout(6, 0, &CountRelease);
    // One temporary per appended group; right members append none.
    EXPECT_EQ(g_releases, 4);
    for (ChannelGroup& g : layout.groups) g.context = new int(g.count);
    // A second build appends without clearing. Its right members find the
    // first build's left groups, so its own pairs stay open and are erased:
    // only the two singles are added.
    layout.BuildGroups(&CountRelease);
    EXPECT_EQ(layout.groups.size(), 6u);
    EXPECT_EQ(g_releases, 8);
  }
  // The destructor released the 4 contexts and the 2 null ones.
  EXPECT_EQ(g_releases, 14);
}

}  // namespace
}  // namespace ONDREL2
