// The tool's stream reader: resources that the library asks for by relative
// name (the headphone rooms, "LiveRoom/0L.data" and so on) are read as files
// below one directory.
#pragma once

#include <string>

#include "ondrel.h"

namespace ondrel_tool {

// The rooms directory to use: `chosen` if not empty, else the installed set
// beside the binary (../share/ondrel/rooms), else the set of the build tree
// the binary came from; empty when none exists.
std::string RoomsDirectory(const std::string& chosen);

// A reader that opens names relative to `dir` (kept by the reader). Names
// that are absolute or climb out with ".." are reported missing.
const ONDREL2::ONDREL_STREAM_READER* FileReader(const std::string& dir);

}  // namespace ondrel_tool
