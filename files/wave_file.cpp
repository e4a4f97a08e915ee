// WaveFile: RIFF/WAVE reading and writing through a stdio handle.
//
// All file numbers are little-endian and are decoded byte by byte, so the
// code does not depend on the host's byte order. Sample data moves through
// fixed stack blocks of kBlockBytes: a request of any size is served in
// pieces, never through a temporary that the request could overrun.
//
// Integer results of conversions truncate toward zero and keep the low bits
// of the integer (no clipping): a full-scale +1.0 written as 16 bits wraps to
// -32768. Values beyond the 64-bit range (and NaN) become the x86 "integer
// indefinite" 0x8000000000000000 before the low bits are taken, so the
// result is defined for every input.
#include <locale.h>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <string>

#include "ondrel.h"

namespace ONDREL2 {
namespace {

// Divisible by every sample size (1, 2, 3, 4, 8).
constexpr size_t kBlockBytes = 24576;

constexpr uint16_t kTagPcm = 1;
constexpr uint16_t kTagFloat = 3;
constexpr uint16_t kTagExtensible = 65534;

// Place-holder sizes that stand in the header until the file is closed.
constexpr uint32_t kPlainRiffPlaceholder = 0xFFFFFFFCu;
constexpr uint32_t kPlainDataPlaceholder = 0xFFFFFFD8u;
constexpr uint32_t kExtRiffPlaceholder = 0xFFFFFFF0u;
constexpr uint32_t kExtDataPlaceholder = 0xFFFFFFB4u;

// The float sub-format GUID of the extensible header; PCM formats change its
// first two bytes to 1, 0.
constexpr uint8_t kFloatSubFormat[16] = {0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                         0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

inline uint16_t GetU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t GetU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline uint64_t GetU64(const uint8_t* p) {
  return static_cast<uint64_t>(GetU32(p)) | (static_cast<uint64_t>(GetU32(p + 4)) << 32);
}

inline void PutU16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

inline void PutU32(uint8_t* p, uint32_t v) {
  PutU16(p, v);
  PutU16(p + 2, v >> 16);
}

inline void PutU64(uint8_t* p, uint64_t v) {
  PutU32(p, static_cast<uint32_t>(v));
  PutU32(p + 4, static_cast<uint32_t>(v >> 32));
}

// Truncation toward zero, defined for every double (see the file comment).
inline int64_t TruncToInt64(double v) {
  if (!(v > -9223372036854775808.0 && v < 9223372036854775808.0)) return INT64_MIN;
  return static_cast<int64_t>(v);
}

inline uint64_t TruncBits(double v) { return static_cast<uint64_t>(TruncToInt64(v)); }

inline int16_t Low16(uint64_t bits) { return static_cast<int16_t>(static_cast<uint16_t>(bits)); }

// The signed value of a 3-byte sample moved to the top of 32 bits.
inline int32_t Pcm24Top(const uint8_t* p) {
  return static_cast<int32_t>((static_cast<uint32_t>(p[0]) << 8) |
                              (static_cast<uint32_t>(p[1]) << 16) |
                              (static_cast<uint32_t>(p[2]) << 24));
}

inline float GetF32(const uint8_t* p) {
  uint32_t bits = GetU32(p);
  float v;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

inline double GetF64(const uint8_t* p) {
  uint64_t bits = GetU64(p);
  double v;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

// Decoders: one per file format and destination type.
struct ToInt16 {
  using Out = int16_t;
  static Out Pcm8(const uint8_t* p) { return static_cast<int16_t>((p[0] - 128) * 256); }
  static Out Pcm16(const uint8_t* p) { return static_cast<int16_t>(GetU16(p)); }
  static Out Pcm24(const uint8_t* p) { return static_cast<int16_t>(GetU16(p + 1)); }
  static Out Pcm32(const uint8_t* p) { return static_cast<int16_t>(GetU16(p + 2)); }
  static Out Float32(const uint8_t* p) { return Low16(TruncBits(GetF32(p) * 32768.0f)); }
  static Out Float64(const uint8_t* p) { return Low16(TruncBits(GetF64(p) * 32768.0)); }
};

struct ToFloat {
  using Out = float;
  static Out Pcm8(const uint8_t* p) { return static_cast<float>(p[0] - 128) * 0.0078125f; }
  static Out Pcm16(const uint8_t* p) {
    return static_cast<float>(static_cast<int16_t>(GetU16(p))) * 3.0517578125e-05f;
  }
  static Out Pcm24(const uint8_t* p) {
    return static_cast<float>(Pcm24Top(p)) * 4.656612873077393e-10f;
  }
  static Out Pcm32(const uint8_t* p) {
    return static_cast<float>(static_cast<int32_t>(GetU32(p))) * 4.656612873077393e-10f;
  }
  static Out Float32(const uint8_t* p) { return GetF32(p); }
  static Out Float64(const uint8_t* p) { return static_cast<float>(GetF64(p)); }
};

struct ToDouble {
  using Out = double;
  static Out Pcm8(const uint8_t* p) { return static_cast<double>(p[0] - 128) * 0.0078125; }
  static Out Pcm16(const uint8_t* p) {
    return static_cast<double>(static_cast<int16_t>(GetU16(p))) * 3.0517578125e-05;
  }
  static Out Pcm24(const uint8_t* p) {
    return static_cast<double>(Pcm24Top(p)) * 4.656612873077393e-10;
  }
  static Out Pcm32(const uint8_t* p) {
    return static_cast<double>(static_cast<int32_t>(GetU32(p))) * 4.656612873077393e-10;
  }
  static Out Float32(const uint8_t* p) { return static_cast<double>(GetF32(p)); }
  static Out Float64(const uint8_t* p) { return GetF64(p); }
};

// Encoders from float or double; the arithmetic runs in the input's type.
template <typename In>
void EncodeSample(SAMPLE_FORMAT format, In x, uint8_t* p) {
  switch (format) {
    case SF_PCM8: p[0] = static_cast<uint8_t>(TruncBits(x * In(128) + In(128))); break;
    case SF_PCM16: PutU16(p, static_cast<uint32_t>(TruncBits(x * In(32768)))); break;
    case SF_PCM24: {
      uint32_t v = static_cast<uint32_t>(TruncBits(x * In(8388608)));
      p[0] = static_cast<uint8_t>(v);
      p[1] = static_cast<uint8_t>(v >> 8);
      p[2] = static_cast<uint8_t>(v >> 16);
      break;
    }
    case SF_PCM32:
      // Deliberate: the scale is -2^31, so 32-bit PCM comes out with its
      // polarity inverted. Files written this way are expected as they are.
      PutU32(p, static_cast<uint32_t>(TruncBits(x * In(-2147483648.0))));
      break;
    case SF_FLOAT32: {
      float f = static_cast<float>(x);
      uint32_t bits;
      std::memcpy(&bits, &f, sizeof bits);
      PutU32(p, bits);
      break;
    }
    case SF_FLOAT64: {
      double d = static_cast<double>(x);
      uint64_t bits;
      std::memcpy(&bits, &d, sizeof bits);
      PutU64(p, bits);
      break;
    }
  }
}

// Bytes of one sample of a known format, 0 for anything else.
size_t FormatBytes(SAMPLE_FORMAT format) {
  switch (format) {
    case SF_PCM8:
    case SF_PCM16:
    case SF_PCM24:
    case SF_PCM32:
    case SF_FLOAT32:
    case SF_FLOAT64: return (static_cast<uint32_t>(format) & 0xFFu) / 8;
  }
  return 0;
}

size_t SampleCount(int32_t frames, int32_t channels) {
  if (frames <= 0 || channels <= 0) return 0;
  return static_cast<size_t>(frames) * static_cast<size_t>(channels);
}

// Reads 8 bytes at a time looking for `tag`; skips the stated size of every
// other chunk exactly, with no pad byte behind an odd size. Returns the
// chunk's size with the file at its first byte, or 0 when fewer than 8 bytes
// come.
uint32_t FindChunk(FILE* file, const char* tag) {
  uint8_t head[8];
  for (;;) {
    if (std::fread(head, 1, sizeof head, file) != sizeof head) return 0;
    uint32_t size = GetU32(head + 4);
    if (std::memcmp(head, tag, 4) == 0) return size;
    if (std::fseek(file, static_cast<long>(size), SEEK_CUR) != 0) return 0;
  }
}

bool WideToNarrow(const wchar_t* path, std::string* out) {
  if (path == nullptr) return false;
  // Paths are converted as UTF-8 whatever the process locale is.
  locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (utf8 == static_cast<locale_t>(0)) return false;
  locale_t previous = uselocale(utf8);
  std::mbstate_t state{};
  const wchar_t* src = path;
  size_t length = std::wcsrtombs(nullptr, &src, 0, &state);
  bool ok = length != static_cast<size_t>(-1);
  if (ok) {
    out->assign(length + 1, '\0');
    state = std::mbstate_t{};
    src = path;
    std::wcsrtombs(&(*out)[0], &src, length + 1, &state);
    out->resize(length);
  }
  uselocale(previous);
  freelocale(utf8);
  return ok;
}

}  // namespace

struct WaveFileCodec {
  // Limits a read to the frames left and moves the read position past it
  // before any data is read.
  static int32_t BeginRead(WaveFile& w, int32_t frames) {
    if (frames <= 0 || w.currentFrame >= w.totalFrames) return 0;
    uint32_t left = w.totalFrames - w.currentFrame;
    uint32_t count = static_cast<uint32_t>(frames) < left ? static_cast<uint32_t>(frames) : left;
    w.currentFrame += count;
    return static_cast<int32_t>(count);
  }

  // Reads `samples` samples block by block, decoding each with `decode` and
  // handing it to put(index, value). False when the file ends early; the
  // whole samples read before that are already delivered.
  template <typename Decode, typename Put>
  static bool ReadWith(WaveFile& w, size_t samples, size_t sampleBytes, Decode decode, Put put) {
    uint8_t raw[kBlockBytes];
    const size_t perBlock = kBlockBytes / sampleBytes;
    size_t done = 0;
    while (done < samples) {
      size_t want = samples - done < perBlock ? samples - done : perBlock;
      size_t got = std::fread(raw, 1, want * sampleBytes, w.file) / sampleBytes;
      for (size_t i = 0; i < got; ++i) put(done + i, decode(raw + i * sampleBytes));
      if (got < want) return false;
      done += want;
    }
    return true;
  }

  template <typename Conv, typename Put>
  static bool ReadConverted(WaveFile& w, size_t samples, Put put) {
    switch (w.sampleFormat) {
      case SF_PCM8: return ReadWith(w, samples, 1, Conv::Pcm8, put);
      case SF_PCM16: return ReadWith(w, samples, 2, Conv::Pcm16, put);
      case SF_PCM24: return ReadWith(w, samples, 3, Conv::Pcm24, put);
      case SF_PCM32: return ReadWith(w, samples, 4, Conv::Pcm32, put);
      case SF_FLOAT32: return ReadWith(w, samples, 4, Conv::Float32, put);
      case SF_FLOAT64: return ReadWith(w, samples, 8, Conv::Float64, put);
    }
    return false;
  }

  template <typename Conv>
  static int32_t ReadInterleaved(WaveFile& w, typename Conv::Out* buffer, int32_t frames) {
    if (w.file == nullptr || buffer == nullptr) return 0;
    int32_t count = BeginRead(w, frames);
    if (count == 0) return 0;
    size_t samples = SampleCount(count, w.channels);
    bool complete = ReadConverted<Conv>(
        w, samples, [buffer](size_t i, typename Conv::Out v) { buffer[i] = v; });
    return complete ? count : 0;
  }

  // Writes `count` copies of one encoded sample.
  static void WriteRepeated(WaveFile& w, const uint8_t* sample, size_t sampleBytes, size_t count) {
    uint8_t out[kBlockBytes];
    const size_t perBlock = kBlockBytes / sampleBytes;
    size_t fill = count < perBlock ? count : perBlock;
    for (size_t i = 0; i < fill; ++i) std::memcpy(out + i * sampleBytes, sample, sampleBytes);
    while (count > 0) {
      size_t n = count < perBlock ? count : perBlock;
      std::fwrite(out, sampleBytes, n, w.file);
      count -= n;
    }
  }

  // Converts and writes; get(i) yields sample i as In. For 24-bit files see
  // WriteFloating: the caller decides which value stands behind the input.
  template <typename In, typename Get>
  static void EncodeAndWrite(WaveFile& w, size_t samples, Get get) {
    const size_t sampleBytes = FormatBytes(w.sampleFormat);
    if (sampleBytes == 0) return;
    uint8_t out[kBlockBytes];
    const size_t perBlock = kBlockBytes / sampleBytes;
    size_t done = 0;
    while (done < samples) {
      size_t n = samples - done < perBlock ? samples - done : perBlock;
      for (size_t i = 0; i < n; ++i)
        EncodeSample<In>(w.sampleFormat, get(done + i), out + i * sampleBytes);
      std::fwrite(out, sampleBytes, n, w.file);
      done += n;
    }
  }

  // The float and double writers. On a 24-bit file the loop stays on one
  // element: buffer[samples], the one just behind the input, is converted
  // and written once for every sample. This is the established output of
  // this path (callers rely on its length and content), so the input frames
  // themselves do not reach a 24-bit file here.
  template <typename In>
  static void WriteFloating(WaveFile& w, const In* buffer, size_t samples) {
    if (w.file == nullptr || buffer == nullptr || samples == 0) return;
    if (w.sampleFormat == SF_PCM24) {
      uint8_t encoded[3];
      EncodeSample<In>(SF_PCM24, buffer[samples], encoded);
      WriteRepeated(w, encoded, 3, samples);
      return;
    }
    EncodeAndWrite<In>(w, samples, [buffer](size_t i) { return buffer[i]; });
  }

  // The integer overloads that convert first and then take the float or
  // double path. Their converted samples are produced one by one and the
  // element behind the last one counts as 0, so on a 24-bit file they write
  // silence of the right length.
  template <typename In, typename Convert>
  static void WriteThroughFloating(WaveFile& w, size_t samples, Convert convert) {
    if (w.file == nullptr || samples == 0) return;
    if (w.sampleFormat == SF_PCM24) {
      uint8_t encoded[3];
      EncodeSample<In>(SF_PCM24, In(0), encoded);
      WriteRepeated(w, encoded, 3, samples);
      return;
    }
    EncodeAndWrite<In>(w, samples, convert);
  }

  static void WriteRaw(WaveFile& w, const void* buffer, size_t samples) {
    if (w.file == nullptr || buffer == nullptr || samples == 0) return;
    size_t sampleBytes = FormatBytes(w.sampleFormat);
    if (sampleBytes == 0) return;
    std::fwrite(buffer, sampleBytes, samples, w.file);
  }

  static bool ParseHeader(WaveFile& w) {
    FILE* f = w.file;
    uint8_t riff[12];
    if (std::fread(riff, 1, 8, f) != 8 || std::memcmp(riff, "RIFF", 4) != 0) return false;
    if (std::fread(riff + 8, 1, 4, f) != 4 || std::memcmp(riff + 8, "WAVE", 4) != 0) return false;

    uint32_t fmtSize = FindChunk(f, "fmt ");
    if (fmtSize != 16 && fmtSize != 18 && fmtSize != 40) return false;
    uint8_t fmt[40];
    if (std::fread(fmt, 1, fmtSize, f) != fmtSize) return false;
    const uint16_t chunkTag = GetU16(fmt);
    if (chunkTag != kTagPcm && chunkTag != kTagFloat && chunkTag != kTagExtensible) return false;
    uint16_t tag = chunkTag;
    if (chunkTag == kTagExtensible && fmtSize == 40) tag = GetU16(fmt + 24);

    const uint16_t channels = GetU16(fmt + 2);
    const uint32_t rate = GetU32(fmt + 4);
    const uint32_t bytesPerSecond = GetU32(fmt + 8);
    const uint16_t blockAlign = GetU16(fmt + 12);
    const uint16_t bits = GetU16(fmt + 14);
    if (channels < 1 || channels > 32) return false;

    SAMPLE_FORMAT format;
    switch (bits) {
      case 8: format = SF_PCM8; break;
      case 16: format = SF_PCM16; break;
      case 24: format = SF_PCM24; break;
      case 32: format = tag == kTagFloat ? SF_FLOAT32 : SF_PCM32; break;
      case 64:
        if (tag != kTagFloat) return false;
        format = SF_FLOAT64;
        break;
      default: return false;
    }

    const uint32_t expectedAlign = static_cast<uint32_t>(bits / 8) * channels;
    if (blockAlign != expectedAlign) return false;
    if (bytesPerSecond != rate * blockAlign) return false;
    // A rate of 0 satisfies the check above but leaves no duration to
    // compute; such a file is not playable and is refused.
    if (rate == 0) return false;

    uint32_t dataSize = FindChunk(f, "data");
    if (dataSize == 0 || dataSize % blockAlign != 0) return false;
    long position = std::ftell(f);
    if (position < 0) return false;

    w.channels = channels;
    w.sampleRate = static_cast<int32_t>(rate);
    w.bitsPerSample = bits;
    w.sampleFormat = format;
    w.totalFrames = dataSize / blockAlign;
    w.currentFrame = 0;
    w.channelMask = (chunkTag == kTagExtensible && fmtSize == 40) ? GetU32(fmt + 20) : 0;
    w.dataStart = static_cast<uint32_t>(position);
    w.duration = static_cast<double>(w.totalFrames / rate);
    return true;
  }
};

WaveFile::WaveFile()
    : file(nullptr),
      sampleFormat(SF_PCM16),
      channels(0),
      sampleRate(0),
      bitsPerSample(16),
      dataStart(0),
      totalFrames(0),
      currentFrame(0),
      duration(0.0),
      readOnly(true),
      updateExisting(false),
      channelMask(0) {}

WaveFile::~WaveFile() {
  if (file == nullptr) return;
  // A new file gets its final sizes. Without a header (SetupDone never ran)
  // there is no size field to write.
  if (!readOnly && !updateExisting && dataStart >= 8) {
    long end = std::ftell(file);
    if (end >= 0) {
      uint32_t dataSize = static_cast<uint32_t>(end) - dataStart;
      uint8_t field[4];
      PutU32(field, dataSize);
      if (std::fseek(file, static_cast<long>(dataStart) - 4, SEEK_SET) == 0)
        std::fwrite(field, 1, 4, file);
      PutU32(field, dataSize - 8 + dataStart);
      if (std::fseek(file, 4, SEEK_SET) == 0) std::fwrite(field, 1, 4, file);
    }
  }
  std::fclose(file);
  file = nullptr;
}

bool WaveFile::SetFilePathUTF8(const char* path, bool write, bool update) {
  // The file layer takes UTF-8 paths as they stand.
  if (file != nullptr) {
    std::fclose(file);
    file = nullptr;
  }
  if (path == nullptr) return false;
  const char* mode = write ? (update ? "rb+" : "wb") : "rb";
  file = std::fopen(path, mode);
  if (file == nullptr) return false;
  return OnSetFilePath(write, update);
}

bool WaveFile::SetFilePathW(const wchar_t* path, bool write, bool update) {
  std::string narrow;
  if (!WideToNarrow(path, &narrow)) {
    if (file != nullptr) {
      std::fclose(file);
      file = nullptr;
    }
    return false;
  }
  return SetFilePathUTF8(narrow.c_str(), write, update);
}

bool WaveFile::OnSetFilePath(bool write, bool update) {
  updateExisting = update;
  readOnly = !write;
  if (write && !update) {
    sampleRate = 44100;
    channels = 2;
    sampleFormat = SF_PCM16;
    bitsPerSample = 16;
    channelMask = 0;
    // Nothing of a file read earlier through this object may reach the new
    // one: without SetupDone there is no header and no size to write.
    dataStart = 0;
    totalFrames = 0;
    currentFrame = 0;
    duration = 0.0;
    return true;
  }
  if (WaveFileCodec::ParseHeader(*this)) return true;
  std::fclose(file);
  file = nullptr;
  return false;
}

void WaveFile::SetSampleRate(int32_t rate) { sampleRate = rate; }
void WaveFile::SetChannels(int32_t count) { channels = count; }
void WaveFile::SetSampleFormat(SAMPLE_FORMAT format) { sampleFormat = format; }
void WaveFile::SetChannelMask(uint32_t mask) { channelMask = mask; }

void WaveFile::SetupDone() {
  if (file == nullptr) return;
  std::fseek(file, 0, SEEK_SET);
  const uint32_t lowByte = static_cast<uint32_t>(sampleFormat) & 0xFFu;
  bitsPerSample = static_cast<int32_t>(lowByte);
  const uint32_t sampleBytes = lowByte / 8;
  const uint32_t headerBits = lowByte & ~7u;
  const uint32_t chans = static_cast<uint32_t>(channels);
  const uint32_t rate = static_cast<uint32_t>(sampleRate);
  const uint32_t blockAlign = sampleBytes * chans;
  const uint32_t bytesPerSecond = sampleBytes * rate * chans;
  const bool isFloat = static_cast<uint32_t>(sampleFormat) >= SF_FLOAT32;

  uint8_t h[68];
  size_t size;
  std::memcpy(h, "RIFF", 4);
  std::memcpy(h + 8, "WAVE", 4);
  std::memcpy(h + 12, "fmt ", 4);
  if (channelMask != 0) {
    PutU32(h + 4, kExtRiffPlaceholder);
    PutU32(h + 16, 40);
    PutU16(h + 20, kTagExtensible);
    PutU16(h + 22, chans);
    PutU32(h + 24, rate);
    PutU32(h + 28, bytesPerSecond);
    PutU16(h + 32, blockAlign);
    PutU16(h + 34, headerBits);
    PutU16(h + 36, 22);
    PutU16(h + 38, headerBits);
    PutU32(h + 40, channelMask);
    std::memcpy(h + 44, kFloatSubFormat, sizeof kFloatSubFormat);
    if (!isFloat) {
      h[44] = 1;
      h[45] = 0;
    }
    std::memcpy(h + 60, "data", 4);
    PutU32(h + 64, kExtDataPlaceholder);
    size = 68;
  } else {
    PutU32(h + 4, kPlainRiffPlaceholder);
    PutU32(h + 16, 16);
    PutU16(h + 20, isFloat ? kTagFloat : kTagPcm);
    PutU16(h + 22, chans);
    PutU32(h + 24, rate);
    PutU32(h + 28, bytesPerSecond);
    PutU16(h + 32, blockAlign);
    PutU16(h + 34, headerBits);
    std::memcpy(h + 36, "data", 4);
    PutU32(h + 40, kPlainDataPlaceholder);
    size = 44;
  }
  std::fwrite(h, 1, size, file);
  long position = std::ftell(file);
  dataStart = position < 0 ? 0 : static_cast<uint32_t>(position);
}

void WaveFile::SetProfile(const WaveFile* other) {
  if (other == nullptr) return;
  channels = other->channels;
  sampleRate = other->sampleRate;
  sampleFormat = other->sampleFormat;
  channelMask = other->channelMask;
  SetupDone();
}

void WaveFile::Seek(int32_t frame, int32_t whence) {
  if (file == nullptr) return;
  const long frameBytes = static_cast<long>(bitsPerSample / 8) * channels;
  std::fseek(file, static_cast<long>(dataStart) + static_cast<long>(frame) * frameBytes, whence);
  currentFrame = static_cast<uint32_t>(frame);
}

int32_t WaveFile::GetChannels() const { return channels; }
int32_t WaveFile::GetSampleRate() const { return sampleRate; }
uint32_t WaveFile::GetChannelMask() const { return channelMask; }
SAMPLE_FORMAT WaveFile::GetSampleFormat() const { return sampleFormat; }
uint32_t WaveFile::GetTotalFrames() const { return totalFrames; }
double WaveFile::GetDuration() const { return duration; }
int32_t WaveFile::GetSampleSize() const { return bitsPerSample; }

uint32_t WaveFile::TimeToFrames(double seconds) const {
  double frames = static_cast<double>(sampleRate) * seconds;
  // Out-of-range and NaN requests saturate instead of overflowing.
  if (!(frames > 0.0)) return 0;
  if (frames >= 4294967295.0) return 0xFFFFFFFFu;
  return static_cast<uint32_t>(frames);
}

int32_t WaveFile::ReadFrames(void* buffer, int32_t frames) {
  if (file == nullptr || buffer == nullptr) return 0;
  int32_t count = WaveFileCodec::BeginRead(*this, frames);
  if (count == 0) return 0;
  const size_t frameBytes = static_cast<size_t>(bitsPerSample / 8) * SampleCount(1, channels);
  if (frameBytes == 0) return 0;
  return static_cast<int32_t>(std::fread(buffer, frameBytes, static_cast<size_t>(count), file));
}

int32_t WaveFile::ReadFrames(int16_t* buffer, int32_t frames) {
  return WaveFileCodec::ReadInterleaved<ToInt16>(*this, buffer, frames);
}

int32_t WaveFile::ReadFrames(float* buffer, int32_t frames) {
  return WaveFileCodec::ReadInterleaved<ToFloat>(*this, buffer, frames);
}

int32_t WaveFile::ReadFrames(double* buffer, int32_t frames) {
  return WaveFileCodec::ReadInterleaved<ToDouble>(*this, buffer, frames);
}

int32_t WaveFile::ReadFrames(float** buffers, int32_t channelCount, int32_t frames) {
  if (file == nullptr || buffers == nullptr || channelCount != channels) return 0;
  int32_t count = WaveFileCodec::BeginRead(*this, frames);
  if (count == 0) return 0;
  const size_t chans = static_cast<size_t>(channels);
  bool complete = WaveFileCodec::ReadConverted<ToFloat>(
      *this, SampleCount(count, channels),
      [buffers, chans](size_t i, float v) { buffers[i % chans][i / chans] = v; });
  return complete ? count : 0;
}

void WaveFile::WriteFrames(const void* buffer, int32_t frames) {
  WaveFileCodec::WriteRaw(*this, buffer, SampleCount(frames, channels));
}

void WaveFile::WriteFrames(const uint8_t* buffer, int32_t frames) {
  const size_t samples = SampleCount(frames, channels);
  if (buffer == nullptr) return;
  if (sampleFormat == SF_PCM8) return WaveFileCodec::WriteRaw(*this, buffer, samples);
  // 2^-23, not 2^-7: 8-bit input ends up far quieter than its source.
  WaveFileCodec::WriteThroughFloating<float>(*this, samples, [buffer](size_t i) {
    return static_cast<float>(buffer[i] - 128) * 1.1920928955078125e-07f;
  });
}

void WaveFile::WriteFrames(const int16_t* buffer, int32_t frames) {
  const size_t samples = SampleCount(frames, channels);
  if (buffer == nullptr) return;
  if (sampleFormat == SF_PCM16) return WaveFileCodec::WriteRaw(*this, buffer, samples);
  WaveFileCodec::WriteThroughFloating<float>(*this, samples, [buffer](size_t i) {
    return static_cast<float>(buffer[i]) * 3.0517578125e-05f;
  });
}

void WaveFile::WriteFrames(const int32_t* buffer, int32_t frames) {
  const size_t samples = SampleCount(frames, channels);
  if (buffer == nullptr) return;
  if (sampleFormat == SF_PCM32) return WaveFileCodec::WriteRaw(*this, buffer, samples);
  // Negative scale: the 32-bit float path inverts again, every other format
  // receives int32 input with its sign inverted.
  WaveFileCodec::WriteThroughFloating<double>(*this, samples, [buffer](size_t i) {
    return static_cast<double>(buffer[i]) * -4.656612873077393e-10;
  });
}

void WaveFile::WriteFrames(const uint32_t* buffer, int32_t frames) {
  const size_t samples = SampleCount(frames, channels);
  if (buffer == nullptr) return;
  WaveFileCodec::WriteThroughFloating<float>(*this, samples, [buffer](size_t i) {
    return static_cast<float>(buffer[i]) * 1.1920928955078125e-07f;
  });
}

void WaveFile::WriteFrames(const uint8_t (*buffer)[3], int32_t frames) {
  const size_t samples = SampleCount(frames, channels);
  if (buffer == nullptr) return;
  if (sampleFormat == SF_PCM24) return WaveFileCodec::WriteRaw(*this, buffer, samples);
  WaveFileCodec::WriteThroughFloating<float>(*this, samples, [buffer](size_t i) {
    return static_cast<float>(Pcm24Top(buffer[i])) * -4.656613e-10f;
  });
}

void WaveFile::WriteFrames(const float* buffer, int32_t frames) {
  WaveFileCodec::WriteFloating(*this, buffer, SampleCount(frames, channels));
}

void WaveFile::WriteFrames(const double* buffer, int32_t frames) {
  WaveFileCodec::WriteFloating(*this, buffer, SampleCount(frames, channels));
}

}  // namespace ONDREL2
