#include "rooms.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>

namespace ondrel_tool {
namespace {

std::string& Root() {
  static std::string root;
  return root;
}

bool IsDir(const std::string& path) {
  struct stat st;
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void* OpenFile(const char* name) {
  if (name == nullptr || Root().empty()) return nullptr;
  const std::string relative = name;
  if (relative.empty() || relative[0] == '/' || relative.find("..") != std::string::npos)
    return nullptr;
  return std::fopen((Root() + "/" + relative).c_str(), "rb");
}

void CloseFile(void* h) {
  if (h != nullptr) std::fclose(static_cast<std::FILE*>(h));
}

int ReadFile(void* h, void* buffer, int size) {
  if (h == nullptr || buffer == nullptr || size <= 0) return 0;
  return static_cast<int>(
      std::fread(buffer, 1, static_cast<size_t>(size), static_cast<std::FILE*>(h)));
}

int SeekFile(void* h, long offset, int whence) {
  if (h == nullptr) return -1;
  return std::fseek(static_cast<std::FILE*>(h), offset, whence == 2 ? SEEK_END : SEEK_SET);
}

long TellFile(void* h, uint32_t* high) {
  if (high != nullptr) *high = 0;
  return h != nullptr ? std::ftell(static_cast<std::FILE*>(h)) : 0;
}

const ONDREL2::ONDREL_STREAM_READER kFileReader = {&OpenFile, &CloseFile, &ReadFile, &SeekFile,
                                                   &TellFile};

std::string ExecutableDir() {
  char path[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", path, sizeof(path) - 1);
  if (n <= 0) return std::string();
  const std::string exe(path, static_cast<size_t>(n));
  const size_t slash = exe.rfind('/');
  return slash == std::string::npos ? std::string() : exe.substr(0, slash);
}

}  // namespace

std::string RoomsDirectory(const std::string& chosen) {
  if (!chosen.empty()) return chosen;
  const std::string installed = ExecutableDir() + "/../share/ondrel/rooms";
  if (IsDir(installed)) return installed;
#ifdef ONDREL_BUILD_ROOMS_DIR
  if (IsDir(ONDREL_BUILD_ROOMS_DIR)) return ONDREL_BUILD_ROOMS_DIR;
#endif
  return std::string();
}

const ONDREL2::ONDREL_STREAM_READER* FileReader(const std::string& dir) {
  Root() = dir;
  return &kFileReader;
}

}  // namespace ondrel_tool
