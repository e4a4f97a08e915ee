// Helpers shared by the file tests: a scratch directory that removes itself,
// whole-file byte access, and a builder for hand-made wave headers.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ondrel_test {

// A fresh directory under the test build directory, removed with its files
// when the object goes.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = std::string(ONDREL_TEST_BINARY_DIR) + "/files-XXXXXX";
    if (mkdtemp(&pattern[0]) != nullptr) path_ = pattern;
  }
  ~ScratchDir() {
    if (!path_.empty() && std::system(("rm -rf '" + path_ + "'").c_str()) != 0) std::perror("rm");
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
  std::ifstream f(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

inline bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream f(path, std::ios::binary);
  f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  f.close();
  return !f.fail();
}

inline bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Little-endian byte sink for hand-made files.
struct Bytes {
  std::vector<uint8_t> data;
  Bytes& Tag(const char* t) {
    return Raw({uint8_t(t[0]), uint8_t(t[1]), uint8_t(t[2]), uint8_t(t[3])});
  }
  Bytes& U16(uint32_t v) { return Raw({uint8_t(v), uint8_t(v >> 8)}); }
  Bytes& U32(uint32_t v) { return U16(v & 0xFFFF).U16(v >> 16); }
  Bytes& Raw(const std::vector<uint8_t>& v) {
    data.insert(data.end(), v.begin(), v.end());
    return *this;
  }
};

// Fields of a hand-made wave file; the defaults describe a valid 16-bit
// stereo file of `frames` frames at 44100.
struct WaveShape {
  uint32_t fmtSize = 16;
  uint32_t tag = 1;
  uint32_t channels = 2;
  uint32_t rate = 44100;
  uint32_t bits = 16;
  int64_t blockAlign = -1;      // -1: bits / 8 * channels
  int64_t bytesPerSecond = -1;  // -1: rate * block align
  uint32_t mask = 0;
  uint32_t subFormat = 1;
  std::vector<uint8_t> between;  // raw bytes between the fmt and data chunks
  int64_t dataSize = -1;         // -1: frames * block align
  uint32_t frames = 4;           // the data: a counting byte pattern of dataSize bytes
};

inline std::vector<uint8_t> MakeWave(const WaveShape& s) {
  uint32_t align =
      s.blockAlign >= 0 ? static_cast<uint32_t>(s.blockAlign) : s.bits / 8 * s.channels;
  uint32_t bps = s.bytesPerSecond >= 0 ? static_cast<uint32_t>(s.bytesPerSecond) : s.rate * align;
  uint32_t dataSize = s.dataSize >= 0 ? static_cast<uint32_t>(s.dataSize) : s.frames * align;
  Bytes fmt;
  fmt.U16(s.tag).U16(s.channels).U32(s.rate).U32(bps).U16(align).U16(s.bits);
  if (s.fmtSize >= 18) fmt.U16(s.fmtSize >= 40 ? 22 : s.fmtSize - 18);
  if (s.fmtSize >= 40) {
    // Valid bits, mask, and the sub-format GUID {subFormat}-0000-0010-8000-00AA00389B71.
    fmt.U16(s.bits).U32(s.mask).U16(s.subFormat);
    fmt.Raw({0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71});
  }
  fmt.data.resize(s.fmtSize, 0);
  std::vector<uint8_t> payload;
  for (uint32_t i = 0; i < dataSize; ++i) payload.push_back(static_cast<uint8_t>(i * 7 + 1));
  Bytes body;
  body.Tag("WAVE").Tag("fmt ").U32(s.fmtSize).Raw(fmt.data).Raw(s.between);
  body.Tag("data").U32(dataSize).Raw(payload);
  Bytes file;
  file.Tag("RIFF").U32(static_cast<uint32_t>(body.data.size())).Raw(body.data);
  return file.data;
}

}  // namespace ondrel_test
