// The stream reader that the plugins install in the library: resources that
// effects ask for by relative name (the headphone rooms, "LiveRoom/0L.data")
// are files below the room set that belongs to the bundle.
#ifndef ONDREL_LV2_RESOURCE_READER_H
#define ONDREL_LV2_RESOURCE_READER_H

#include "ondrel.h"

namespace ondrel_lv2 {

// The room set beside an installed bundle (<prefix>/share/ondrel/rooms for
// <prefix>/lib/lv2/ondrel.lv2), else the one of the build tree. The table
// lives as long as the process.
const ONDREL2::ONDREL_STREAM_READER* RoomReader(const char* bundlePath);

}  // namespace ondrel_lv2

#endif  // ONDREL_LV2_RESOURCE_READER_H
