#include "files/resource.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/log.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace {

constexpr uint8_t kScrambleKey[256] = {
#include "files/scramble_key.inc"
};

// Additive constant of the key index rule.
constexpr uint32_t kIndexOffset = 61357;

// Tries to open `path` as a wave for reading and logs the attempt.
bool TryOpen(WaveFile* wave, const std::string& path) {
  bool ok = wave->SetFilePathUTF8(path.c_str(), false, false);
  Log(kLogInfo, "[ON2L]:SetFilePathUTF8(%d): %s", ok ? 1 : 0, path.c_str());
  return ok;
}

}  // namespace

const uint8_t* ScrambleKeyTable() { return kScrambleKey; }

void ScrambleBuffer(uint8_t* data, size_t size) {
  if (data == nullptr) return;
  for (size_t offset = 0; offset < size; ++offset) {
    uint32_t p = static_cast<uint32_t>(offset % kScrambleBlockBytes);
    // Position 32767 keeps 32767; from 32768 on the position wraps, so
    // 32768 uses the same entry as 1.
    uint32_t m = p <= 32767 ? p : p % 32767;
    data[offset] ^= kScrambleKey[(m * m + kIndexOffset) % 256];
  }
}

ScrambleStatus ScrambleFile(const char* source, const char* target) {
  if (source == nullptr || target == nullptr) return ScrambleStatus::kNullPath;
  // UTF-8 paths go to the file layer as they stand.
  FILE* in = std::fopen(source, "rb");
  FILE* out = in != nullptr ? std::fopen(target, "wb") : nullptr;
  ScrambleStatus status = in == nullptr    ? ScrambleStatus::kReadFailed
                          : out == nullptr ? ScrambleStatus::kWriteFailed
                                           : ScrambleStatus::kOk;
  uint8_t* buffer = AllocBlock<uint8_t>(kScrambleBlockBytes);
  if (buffer == nullptr && status == ScrambleStatus::kOk) status = ScrambleStatus::kNoMemory;
  if (status == ScrambleStatus::kOk) {
    for (;;) {
      size_t got = std::fread(buffer, 1, kScrambleBlockBytes, in);
      if (got == 0) break;
      ScrambleBuffer(buffer, got);
      std::fwrite(buffer, 1, got, out);
    }
  }
  if (out != nullptr) std::fclose(out);
  if (in != nullptr) std::fclose(in);
  std::free(buffer);
  return status;
}

bool decrypt_file(const char* source, const char* target) {
  ScrambleStatus status = ScrambleFile(source, target);
  if (status == ScrambleStatus::kReadFailed || status == ScrambleStatus::kWriteFailed) {
    Log(kLogError, "[ON2L]:Decrypt_file %s, %s failed!", target,
        status == ScrambleStatus::kReadFailed ? "read" : "write");
  }
  return status == ScrambleStatus::kOk;
}

void remove_utf8(const char* path) {
  if (path == nullptr) return;
  std::remove(path);
}

char* xplatform_pathname(char* path, bool inPlace) {
  if (path == nullptr) {
    if (inPlace) return nullptr;
    char* empty = AllocBlock<char>(1);
    if (empty != nullptr) empty[0] = '\0';
    return empty;
  }
  char* work = path;
  size_t length = std::strlen(path);
  if (!inPlace) {
    work = AllocBlock<char>(length + 1);
    if (work == nullptr) return nullptr;
    std::memcpy(work, path, length + 1);
  }
  for (size_t i = length; i > 0; --i) {
    if (work[i - 1] == '\\') work[i - 1] = '/';
  }
  return work;
}

bool OpenResourceWave(const char* name, WaveFile* wave, std::string* clearCopy, bool logFailure) {
  if (clearCopy != nullptr) clearCopy->clear();
  if (name == nullptr || wave == nullptr) return false;
  int count = 0;
  const char** roots = ondrel_get_res_paths(&count);
  // A null list (no roots set, or dropped by ondrel_uninit) counts as empty.
  if (roots == nullptr) count = 0;
  for (int i = 0; i < count; ++i) {
    if (roots[i] == nullptr) continue;
    const std::string path = std::string(roots[i]) + name;
    if (TryOpen(wave, path)) return true;
    // Maybe scrambled: make the clear copy beside it and try that.
    const std::string temporary = path + "-dec";
    bool made = decrypt_file(path.c_str(), temporary.c_str());
    if (TryOpen(wave, temporary)) {
      if (clearCopy != nullptr) *clearCopy = temporary;
      return true;
    }
    // A copy that is no wave either is of no use: do not leave it behind.
    if (made) remove_utf8(temporary.c_str());
  }
  if (logFailure) Log(kLogError, "[ON2L]:SetFilePathUTF8 Failed!");
  return false;
}

uint32_t ResourceWave::FramesOnDisk() {
  if (file == nullptr || channels <= 0 || bitsPerSample < 8) return 0;
  const long here = std::ftell(file);
  if (here < 0 || std::fseek(file, 0, SEEK_END) != 0) return 0;
  const long end = std::ftell(file);
  std::fseek(file, here, SEEK_SET);
  if (end < 0 || static_cast<unsigned long>(end) <= dataStart) return 0;
  const uint64_t frameBytes =
      static_cast<uint64_t>(channels) * static_cast<uint64_t>(bitsPerSample / 8);
  const uint64_t onDisk = (static_cast<uint64_t>(end) - dataStart) / frameBytes;
  return onDisk < totalFrames ? static_cast<uint32_t>(onDisk) : totalFrames;
}

}  // namespace ONDREL2
