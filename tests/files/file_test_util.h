// Helpers shared by the file tests: a scratch directory that removes itself,
// whole-file byte access, and a builder for hand-made wave headers.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ondrel_test {

// A fresh directory under the test build directory, removed with its files
// (one level deep) when the object goes.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = std::string(ONDREL_TEST_BINARY_DIR) + "/files-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) != nullptr) path_ = buffer.data();
  }
  ~ScratchDir() {
    if (path_.empty()) return;
    std::string command = "rm -rf '" + path_ + "'";
    if (std::system(command.c_str()) != 0) std::perror("rm");
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::vector<uint8_t> bytes;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return bytes;
  uint8_t block[65536];
  size_t got;
  while ((got = std::fread(block, 1, sizeof block, f)) > 0) bytes.insert(bytes.end(), block, block + got);
  std::fclose(f);
  return bytes;
}

inline bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  bool ok = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return std::fclose(f) == 0 && ok;
}

inline bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

inline uint32_t U32At(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint32_t>(b[at]) | static_cast<uint32_t>(b[at + 1]) << 8 |
         static_cast<uint32_t>(b[at + 2]) << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

inline uint16_t U16At(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint16_t>(b[at] | b[at + 1] << 8);
}

// Little-endian byte sink for hand-made files.
struct Bytes {
  std::vector<uint8_t> data;
  Bytes& Tag(const char* t) {
    for (int i = 0; i < 4; ++i) data.push_back(static_cast<uint8_t>(t[i]));
    return *this;
  }
  Bytes& U16(uint32_t v) {
    data.push_back(static_cast<uint8_t>(v));
    data.push_back(static_cast<uint8_t>(v >> 8));
    return *this;
  }
  Bytes& U32(uint32_t v) {
    U16(v & 0xFFFF);
    return U16(v >> 16);
  }
  Bytes& Raw(const std::vector<uint8_t>& v) {
    for (uint8_t b : v) data.push_back(b);
    return *this;
  }
};

// Fields of a hand-made wave file; the defaults describe a valid 16-bit
// stereo file of `frames` frames at 44100.
struct WaveSpec {
  uint32_t fmtSize = 16;
  uint32_t tag = 1;
  uint32_t channels = 2;
  uint32_t rate = 44100;
  uint32_t bits = 16;
  int64_t blockAlign = -1;      // -1: bits / 8 * channels
  int64_t bytesPerSecond = -1;  // -1: rate * block align
  uint32_t validBits = 0;       // fmt size 40 only; 0: bits
  uint32_t mask = 0;
  uint32_t subFormat = 1;
  std::vector<uint8_t> between;  // raw bytes between the fmt and data chunks
  int64_t dataSize = -1;         // -1: frames * block align
  uint32_t frames = 4;
  std::vector<uint8_t> payload;  // empty: a counting byte pattern of dataSize bytes
};

inline std::vector<uint8_t> MakeWave(const WaveSpec& s) {
  uint32_t align = s.blockAlign >= 0 ? static_cast<uint32_t>(s.blockAlign) : s.bits / 8 * s.channels;
  uint32_t bps = s.bytesPerSecond >= 0 ? static_cast<uint32_t>(s.bytesPerSecond) : s.rate * align;
  uint32_t dataSize = s.dataSize >= 0 ? static_cast<uint32_t>(s.dataSize) : s.frames * align;
  Bytes fmt;
  fmt.U16(s.tag).U16(s.channels).U32(s.rate).U32(bps).U16(align).U16(s.bits);
  if (s.fmtSize >= 18) fmt.U16(s.fmtSize >= 40 ? 22 : s.fmtSize - 18);
  if (s.fmtSize >= 40) {
    fmt.U16(s.validBits ? s.validBits : s.bits).U32(s.mask).U16(s.subFormat);
    const uint8_t rest[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                              0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    fmt.data.insert(fmt.data.end(), rest, rest + 14);
  }
  while (fmt.data.size() < s.fmtSize) fmt.data.push_back(0);
  fmt.data.resize(s.fmtSize);
  std::vector<uint8_t> payload = s.payload;
  if (payload.empty()) {
    for (uint32_t i = 0; i < dataSize; ++i) payload.push_back(static_cast<uint8_t>(i * 7 + 1));
  }
  Bytes body;
  body.Tag("WAVE").Tag("fmt ").U32(s.fmtSize).Raw(fmt.data).Raw(s.between);
  body.Tag("data").U32(dataSize).Raw(payload);
  Bytes file;
  file.Tag("RIFF").U32(static_cast<uint32_t>(body.data.size())).Raw(body.data);
  return file.data;
}

}  // namespace ondrel_test
