#include "resource_reader.h"

#include <sys/stat.h>

#include <cstdio>
#include <string>

namespace ondrel_lv2 {
namespace {

std::string& Root() {
  static std::string root;
  return root;
}

bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void* Open(const char* name) {
  if (name == nullptr || Root().empty()) return nullptr;
  const std::string n = name;
  // Names stay below the room set.
  if (n.empty() || n[0] == '/' || n.find("..") != std::string::npos) return nullptr;
  return std::fopen((Root() + n).c_str(), "rb");
}
void Close(void* h) {
  if (h != nullptr) std::fclose(static_cast<FILE*>(h));
}
int Read(void* h, void* buffer, int size) {
  if (h == nullptr || buffer == nullptr || size <= 0) return 0;
  return static_cast<int>(std::fread(buffer, 1, static_cast<size_t>(size), static_cast<FILE*>(h)));
}
int Seek(void* h, long offset, int whence) {
  return h != nullptr ? std::fseek(static_cast<FILE*>(h), offset, whence) : -1;
}
long Tell(void* h, uint32_t* high) {
  if (high != nullptr) *high = 0;
  return h != nullptr ? std::ftell(static_cast<FILE*>(h)) : 0;
}

const ONDREL2::ONDREL_STREAM_READER kReader = {Open, Close, Read, Seek, Tell};

}  // namespace

const ONDREL2::ONDREL_STREAM_READER* RoomReader(const char* bundlePath) {
  std::string bundle = bundlePath != nullptr ? bundlePath : "";
  if (!bundle.empty() && bundle.back() != '/') bundle += '/';
  const std::string installed = bundle + "../../../share/ondrel/rooms/";
  if (!bundle.empty() && IsDirectory(installed)) {
    Root() = installed;
  }
#ifdef ONDREL_LV2_BUILD_ROOMS_DIR
  else if (IsDirectory(ONDREL_LV2_BUILD_ROOMS_DIR)) {
    Root() = std::string(ONDREL_LV2_BUILD_ROOMS_DIR) + "/";
  }
#endif
  return &kReader;
}

}  // namespace ondrel_lv2
