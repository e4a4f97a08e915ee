// The standard speaker layouts. This file is the one home of the table: the
// library compiles it, and tools link it through the ondrel_introspect
// archive instead of keeping a copy.
#include "frame/layouts.h"

namespace ONDREL2 {

const StandardLayout kStandardLayouts[kStandardLayoutCount] = {
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

uint64_t DefaultLayoutMask(int channels) {
  for (const StandardLayout& row : kStandardLayouts)
    if (row.channels == channels) return row.mask;
  return 0;
}

}  // namespace ONDREL2
