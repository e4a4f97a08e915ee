// libFuzzer target for WaveFile: the input bytes are stored as a file, which
// is opened and read through every reader; a file that opens is also copied
// through the writers into a second file with the same profile.
//
// Build with clang: -fsanitize=fuzzer,address,undefined, together with the
// library sources. The two scratch files live in memory where possible;
// else FUZZ_WAVE_DIR names their directory (default: $TMPDIR or /tmp).
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ondrel.h"

namespace fuzz_wave {

// A scratch file for the target. Where the system offers anonymous memory
// files it is one of those, reached through /proc/self/fd, so that runs do
// not touch the disk; otherwise a temporary file, removed at exit.
class ScratchFile {
 public:
  explicit ScratchFile(const char* stem) {
#ifdef __linux__
    fd_ = memfd_create(stem, 0);
    if (fd_ >= 0) {
      path_ = "/proc/self/fd/" + std::to_string(fd_);
      return;
    }
#endif
#ifdef FUZZ_WAVE_DIR
    std::string dir = FUZZ_WAVE_DIR;
#else
    const char* tmp = getenv("TMPDIR");
    std::string dir = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
#endif
    std::string pattern = dir + "/" + stem + "-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = mkstemp(name.data());
    if (fd >= 0) {
      close(fd);
      path_ = name.data();
      unlinkAtExit_ = true;
    }
  }
  ~ScratchFile() {
    if (unlinkAtExit_) unlink(path_.c_str());
    if (fd_ >= 0) close(fd_);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int fd_ = -1;
  bool unlinkAtExit_ = false;
};

const std::string& InputPath() {
  static ScratchFile file("fuzz-wave-in");
  return file.path();
}

const std::string& OutputPath() {
  static ScratchFile file("fuzz-wave-out");
  return file.path();
}

constexpr int kFrames = 64;
constexpr int kMaxChannels = 32;

// Reads the whole file with `read` in pieces of kFrames; the reads stop at
// the first 0, which comes at the end or at the first short read.
template <typename Read>
void Drain(ONDREL2::WaveFile& w, Read read) {
  w.Seek(0, SEEK_SET);
  while (read() > 0) {
  }
}

// Opens `data` as a wave file and exercises it. Returns whether it opened.
bool RunOnce(const uint8_t* data, size_t size) {
  const std::string& in = InputPath();
  if (in.empty()) return false;
  FILE* f = std::fopen(in.c_str(), "wb");
  if (f == nullptr) return false;
  if (size > 0) std::fwrite(data, 1, size, f);
  std::fclose(f);

  ONDREL2::WaveFile w;
  if (!w.SetFilePathUTF8(in.c_str(), false, false)) return false;
  const int channels = w.GetChannels();
  if (channels < 1 || channels > kMaxChannels) __builtin_trap();  // the header check failed

  // One spare element behind the samples: the 24-bit writer reads it.
  std::vector<int16_t> s16(kFrames * kMaxChannels);
  std::vector<float> f32(kFrames * kMaxChannels + 1);
  std::vector<double> f64(kFrames * kMaxChannels + 1);
  std::vector<uint8_t> raw(kFrames * kMaxChannels * 8);
  std::vector<std::vector<float>> planes(channels, std::vector<float>(kFrames));
  std::vector<float*> planePtrs;
  for (auto& p : planes) planePtrs.push_back(p.data());

  Drain(w, [&] { return w.ReadFrames(s16.data(), kFrames); });
  Drain(w, [&] { return w.ReadFrames(f32.data(), kFrames); });
  Drain(w, [&] { return w.ReadFrames(f64.data(), kFrames); });
  Drain(w, [&] { return w.ReadFrames(planePtrs.data(), channels, kFrames); });
  Drain(w, [&] { return w.ReadFrames(static_cast<void*>(raw.data()), kFrames); });
  w.Seek(static_cast<int32_t>(w.GetTotalFrames() / 2), SEEK_SET);
  (void)w.ReadFrames(f32.data(), kFrames);
  (void)w.TimeToFrames(w.GetDuration());

  // Through the writers: floats and doubles as read (NaN and infinities
  // included), the raw frames, and int16.
  const std::string& out = OutputPath();
  if (!out.empty()) {
    ONDREL2::WaveFile copy;
    if (copy.SetFilePathUTF8(out.c_str(), true, false)) {
      copy.SetProfile(&w);
      w.Seek(0, SEEK_SET);
      int got = w.ReadFrames(static_cast<void*>(raw.data()), kFrames);
      if (got > 0) {
        copy.WriteFrames(static_cast<const void*>(raw.data()), got);
        const size_t samples = static_cast<size_t>(got) * channels;
        for (size_t i = 0; i < samples + 1; ++i) {
          uint32_t bits = static_cast<uint32_t>(raw[(4 * i) % raw.size()]) |
                          static_cast<uint32_t>(raw[(4 * i + 1) % raw.size()]) << 8 |
                          static_cast<uint32_t>(raw[(4 * i + 2) % raw.size()]) << 16 |
                          static_cast<uint32_t>(raw[(4 * i + 3) % raw.size()]) << 24;
          float v;
          static_assert(sizeof v == sizeof bits, "float is 32 bits");
          __builtin_memcpy(&v, &bits, sizeof v);
          f32[i] = v;
          f64[i] = static_cast<double>(v) * 1e300;
        }
        copy.WriteFrames(f32.data(), got);
        copy.WriteFrames(f64.data(), got);
        copy.WriteFrames(s16.data(), got);
        copy.WriteFrames(reinterpret_cast<const uint8_t(*)[3]>(raw.data()), got);
      }
    }
  }
  return true;
}

}  // namespace fuzz_wave

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_wave::RunOnce(data, size);
  return 0;
}
