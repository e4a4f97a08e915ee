// WaveFile against independent references: libsndfile writes the files
// that WaveFile reads and reads the files that WaveFile writes, and expected
// sample values come from closed-form scalings in double.
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files/file_test_util.h"
#include "ondrel.h"

namespace {

using namespace ONDREL2;
using ondrel_test::MakeWave;
using ondrel_test::ReadBytes;
using ondrel_test::ScratchDir;
using ondrel_test::WaveShape;
using ondrel_test::WriteBytes;

// Exposes the header end and whether a file is open.
class WaveProbe : public WaveFile {
 public:
  using WaveFile::dataStart;
  bool IsOpen() const { return file != nullptr; }
};

int64_t FloorDiv(int64_t v, int64_t d) {
  int64_t q = v / d;
  return (v % d != 0 && v < 0) ? q - 1 : q;
}

// The low `bits` bits of trunc(x), as a signed value.
int64_t WrapTrunc(double x, int bits) {
  int64_t t = static_cast<int64_t>(std::trunc(x));
  uint64_t mask = bits == 64 ? ~0ull : (1ull << bits) - 1;
  uint64_t low = static_cast<uint64_t>(t) & mask;
  if (bits < 64 && (low >> (bits - 1)) != 0) low |= ~mask;
  return static_cast<int64_t>(low);
}

// Index of the first sample that differs (NaN never occurs in these data),
// 0 for a length mismatch, -1 if none.
template <typename T>
long FirstDifference(const std::vector<T>& want, const std::vector<T>& got) {
  if (want.size() != got.size()) return 0;
  const auto at = std::mismatch(want.begin(), want.end(), got.begin()).first;
  return at == want.end() ? -1 : static_cast<long>(at - want.begin());
}

TEST(WaveFileRead, EveryFormatFromLibsndfileMatchesClosedFormScaling) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  const struct ReadCase {
    const char* name;
    int sfFormat;
    int channels;
    SAMPLE_FORMAT format;
    int bits;
    uint32_t mask;
  } cases[] = {
      {"u8", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 2, SF_PCM8, 8, 0},
      {"s16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, SF_PCM16, 16, 0},
      {"s24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, SF_PCM24, 24, 0},
      {"s32", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 2, SF_PCM32, 32, 0},
      {"f32", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, SF_FLOAT32, 32, 0},
      {"f64", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 2, SF_FLOAT64, 64, 0},
      {"x24", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 3, SF_PCM24, 24, 0xB},
      {"xf32", SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 3, SF_FLOAT32, 32, 0xB},
  };
  // Enough frames to cross the reader's internal blocks several times.
  const int frames = 9001;
  std::mt19937 rng(1234);
  std::uniform_real_distribution<double> real(-1.25, 1.25);
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(c.name);
    const size_t n = static_cast<size_t>(frames) * c.channels;
    const bool isFloat = c.format >= SF_FLOAT32;
    // Samples in the file's own units (integers for PCM), edges first, and
    // what the int16, float and double readers must give for them.
    std::vector<double> values(n), wantD(n);
    std::vector<int16_t> want16(n);
    std::vector<float> wantF(n);
    for (size_t i = 0; i < n; ++i) {
      if (!isFloat) {
        const int64_t lo = -(int64_t{1} << (c.bits - 1)), hi = -lo - 1;
        const int64_t edges[] = {lo, hi, 0, -1, 1, lo + 1, hi - 1};
        const int64_t v = i < 7 ? edges[i] : std::uniform_int_distribution<int64_t>(lo, hi)(rng);
        values[i] = static_cast<double>(v);
        want16[i] =
            static_cast<int16_t>(c.bits == 8 ? v * 256 : FloorDiv(v, int64_t{1} << (c.bits - 16)));
        wantD[i] = std::ldexp(static_cast<double>(v), -(c.bits - 1));
      } else {
        const double edges[] = {1.0, -1.0, 0.5, -0.99999, 0.0, 1.5, -1.5};
        const double v = i < 7 ? edges[i] : real(rng);
        values[i] = wantD[i] =
            c.format == SF_FLOAT32 ? static_cast<double>(static_cast<float>(v)) : v;
        want16[i] = static_cast<int16_t>(WrapTrunc(values[i] * 32768.0, 16));
      }
      wantF[i] = static_cast<float>(wantD[i]);
    }

    const std::string path = dir.File(std::string(c.name) + ".wav");
    SF_INFO info{};
    info.samplerate = 4000;
    info.channels = c.channels;
    info.format = c.sfFormat;
    SNDFILE* sf = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(sf, nullptr) << sf_strerror(nullptr);
    int map[3] = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_LFE};
    ASSERT_TRUE(c.mask == 0 || sf_command(sf, SFC_SET_CHANNEL_MAP_INFO, map, sizeof map));
    if (!isFloat) {
      std::vector<int> left(n);  // libsndfile's int samples are left-justified
      for (size_t i = 0; i < n; ++i)
        left[i] = static_cast<int>(static_cast<uint32_t>(static_cast<int64_t>(values[i]))
                                   << (32 - c.bits));
      ASSERT_EQ(sf_writef_int(sf, left.data(), frames), frames);
    } else if (c.format == SF_FLOAT32) {
      ASSERT_EQ(sf_writef_float(sf, wantF.data(), frames), frames);
    } else {
      ASSERT_EQ(sf_writef_double(sf, values.data(), frames), frames);
    }
    sf_close(sf);

    WaveFile w;
    ASSERT_TRUE(w.SetFilePathUTF8(path.c_str(), false, false));
    EXPECT_EQ(w.GetChannels(), c.channels);
    EXPECT_EQ(w.GetSampleRate(), 4000);
    EXPECT_EQ(w.GetSampleFormat(), c.format);
    EXPECT_EQ(w.GetSampleSize(), c.bits);
    EXPECT_EQ(w.GetTotalFrames(), static_cast<uint32_t>(frames));
    EXPECT_EQ(w.GetChannelMask(), c.mask);
    EXPECT_EQ(w.GetDuration(), 2.0);  // 9001 frames at 4000 Hz: whole seconds only
    EXPECT_EQ(w.TimeToFrames(1.5), 6000u);
    EXPECT_EQ(w.TimeToFrames(-1.0), 0u);
    EXPECT_EQ(w.TimeToFrames(1e12), 0xFFFFFFFFu);

    // int16 in chunks of random size, until the reader reports the end.
    std::vector<int16_t> got16;
    std::uniform_int_distribution<int> chunk(1, 3000);
    for (;;) {
      int want = chunk(rng);
      std::vector<int16_t> part(static_cast<size_t>(want) * c.channels);
      int got = w.ReadFrames(part.data(), want);
      if (got == 0) break;
      ASSERT_LE(got, want);
      got16.insert(got16.end(), part.begin(), part.begin() + static_cast<size_t>(got) * c.channels);
    }
    EXPECT_EQ(FirstDifference(want16, got16), -1) << "int16";

    std::vector<float> gotF(n);
    w.Seek(0, SEEK_SET);
    EXPECT_EQ(w.ReadFrames(gotF.data(), frames + 50), frames);
    EXPECT_EQ(FirstDifference(wantF, gotF), -1) << "float";

    std::vector<double> gotD(n);
    w.Seek(0, SEEK_SET);
    EXPECT_EQ(w.ReadFrames(gotD.data(), frames), frames);
    EXPECT_EQ(FirstDifference(wantD, gotD), -1) << "double";
  }
}

// The samples of a file as libsndfile decodes them: native integers for PCM
// (unsigned for 8 bits), values for float formats.
std::vector<double> ReadWithLibsndfile(const std::string& path, SF_INFO* info) {
  *info = SF_INFO{};
  SNDFILE* sf = sf_open(path.c_str(), SFM_READ, info);
  if (sf == nullptr) return {};
  std::vector<double> out(static_cast<size_t>(info->frames) * info->channels);
  const int sub = info->format & SF_FORMAT_SUBMASK;
  if (sub == SF_FORMAT_FLOAT || sub == SF_FORMAT_DOUBLE) {
    sf_readf_double(sf, out.data(), info->frames);
  } else {
    std::vector<int> ints(out.size());
    sf_readf_int(sf, ints.data(), info->frames);
    const int shift = sub == SF_FORMAT_PCM_U8   ? 24
                      : sub == SF_FORMAT_PCM_16 ? 16
                      : sub == SF_FORMAT_PCM_24 ? 8
                                                : 0;
    for (size_t i = 0; i < ints.size(); ++i) {
      double v = static_cast<double>(FloorDiv(ints[i], int64_t{1} << shift));
      out[i] = sub == SF_FORMAT_PCM_U8 ? v + 128 : v;
    }
  }
  sf_close(sf);
  return out;
}

// What the float and double writers put into the file for sample x, in the
// same units as ReadWithLibsndfile. Inputs are chosen so that every product
// and sum is exact in both precisions.
double EncodedValue(SAMPLE_FORMAT format, double x) {
  switch (format) {
    case SF_PCM8: return static_cast<double>(static_cast<uint8_t>(WrapTrunc(x * 128 + 128, 8)));
    case SF_PCM16: return static_cast<double>(WrapTrunc(x * 32768, 16));
    case SF_PCM24: return static_cast<double>(WrapTrunc(x * 8388608, 24));
    case SF_PCM32:  // +1.0 lands on the most negative value: the polarity is inverted
      return static_cast<double>(WrapTrunc(x * -2147483648.0, 32));
    case SF_FLOAT32: return static_cast<double>(static_cast<float>(x));
    case SF_FLOAT64: return x;
  }
  return 0;
}

TEST(WaveFileWrite, FloatAndDoubleInputReadBackByLibsndfile) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  const SAMPLE_FORMAT formats[] = {SF_PCM8, SF_PCM16, SF_PCM24, SF_PCM32, SF_FLOAT32, SF_FLOAT64};
  std::mt19937 rng(99);
  for (SAMPLE_FORMAT format : formats) {
    for (uint32_t mask : {0u, 0x33u}) {
      for (bool doubles : {false, true}) {
        SCOPED_TRACE("format " + std::to_string(format) + " mask " + std::to_string(mask) +
                     (doubles ? " double" : " float"));
        const int channels = mask ? 4 : 2;
        const int frames = 5000;
        const size_t n = static_cast<size_t>(frames) * channels;
        // Multiples of 2^-20 (float) or 2^-40 (double) in [-1.25, 1.25].
        const int step = doubles ? 40 : 20;
        std::uniform_int_distribution<int64_t> k(-(int64_t{5} << (step - 2)),
                                                 int64_t{5} << (step - 2));
        std::vector<double> x(n + 1);
        const double edges[] = {1.0, -1.0, 0.5, -0.5, 0.0, 1 - 0x1p-20, -1 + 0x1p-20};
        for (size_t i = 0; i < n; ++i)
          x[i] = i < 7 ? edges[i] : std::ldexp(static_cast<double>(k(rng)), -step);
        x[n] = 0.375;  // the element behind the input: what a 24-bit file receives

        const std::string path = dir.File("w.wav");
        {
          WaveFile w;
          ASSERT_TRUE(w.SetFilePathUTF8(path.c_str(), true, false));
          w.SetChannels(channels);
          w.SetSampleRate(48000);
          w.SetSampleFormat(format);
          w.SetChannelMask(mask);
          w.SetupDone();
          std::vector<float> xf(x.begin(), x.end());
          // 24-bit data in one call: each call repeats the element just
          // behind its input.
          std::uniform_int_distribution<int> chunk(1, format == SF_PCM24 ? frames : 1500);
          for (int at = 0, count = 0; at < frames; at += count) {
            count = format == SF_PCM24 ? frames : std::min(chunk(rng), frames - at);
            const size_t offset = static_cast<size_t>(at) * channels;
            if (doubles)
              w.WriteFrames(x.data() + offset, count);
            else
              w.WriteFrames(xf.data() + offset, count);
          }
          EXPECT_EQ(w.GetTotalFrames(), 0u);  // writing leaves the counters alone
        }
        SF_INFO info;
        std::vector<double> got = ReadWithLibsndfile(path, &info);
        ASSERT_EQ(info.channels, channels);
        EXPECT_EQ(info.samplerate, 48000);
        ASSERT_EQ(info.frames, frames);
        EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, mask ? SF_FORMAT_WAVEX : SF_FORMAT_WAV);
        std::vector<double> want(n);
        for (size_t i = 0; i < n; ++i)
          want[i] = EncodedValue(format, format == SF_PCM24 ? x[n] : x[i]);
        EXPECT_EQ(FirstDifference(want, got), -1) << "libsndfile read-back";
        if (mask != 0) {
          SNDFILE* sf = sf_open(path.c_str(), SFM_READ, &info);
          ASSERT_NE(sf, nullptr);
          std::vector<int> map(4);
          EXPECT_TRUE(sf_command(sf, SFC_GET_CHANNEL_MAP_INFO, map.data(), 4 * sizeof(int)));
          EXPECT_EQ(map, (std::vector<int>{SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT,
                                           SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT}));
          sf_close(sf);
        }
      }
    }
  }
}

TEST(WaveFileOpen, HeaderChecksAcceptAndRefuseAsDocumented) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  ondrel_test::Bytes oddList, fact;
  oddList.Tag("LIST").U32(3).Raw({'a', 'b', 'c'});
  fact.Tag("fact").U32(4).U32(4);
  const std::vector<uint8_t> oddPadded = ondrel_test::Bytes(oddList).Raw({0}).data;
  auto extensible = [](WaveShape& s) { s.fmtSize = 40, s.tag = 65534, s.bits = 32; };

  struct OpenCase {
    const char* name;
    bool opens;
    SAMPLE_FORMAT format;
    uint32_t mask;
    std::function<void(WaveShape&)> edit;
  } cases[] = {
      {"baseline 16-bit", true, SF_PCM16, 0, [](WaveShape&) {}},
      {"fmt 18", true, SF_PCM16, 0, [](WaveShape& s) { s.fmtSize = 18; }},
      {"fmt 20", false, SF_PCM16, 0, [](WaveShape& s) { s.fmtSize = 20; }},
      {"fmt 14", false, SF_PCM16, 0, [](WaveShape& s) { s.fmtSize = 14; }},
      {"extensible float", true, SF_FLOAT32, 0x60F,
       [&](WaveShape& s) { extensible(s), s.subFormat = 3, s.mask = 0x60F; }},
      {"extensible PCM", true, SF_PCM32, 3,
       [&](WaveShape& s) { extensible(s), s.subFormat = 1, s.mask = 3; }},
      {"extensible tag, fmt 18: no mask", true, SF_PCM32, 0,
       [&](WaveShape& s) { extensible(s), s.fmtSize = 18; }},
      {"tag 2", false, SF_PCM16, 0, [](WaveShape& s) { s.tag = 2; }},
      {"0 channels", false, SF_PCM16, 0, [](WaveShape& s) { s.channels = 0; }},
      {"32 channels", true, SF_PCM16, 0, [](WaveShape& s) { s.channels = 32; }},
      {"33 channels", false, SF_PCM16, 0, [](WaveShape& s) { s.channels = 33; }},
      {"12 bits", false, SF_PCM16, 0, [](WaveShape& s) { s.bits = 12, s.blockAlign = 4; }},
      {"8 bits", true, SF_PCM8, 0, [](WaveShape& s) { s.bits = 8; }},
      {"24 bits with float tag stays 24", true, SF_PCM24, 0,
       [](WaveShape& s) { s.bits = 24, s.tag = 3; }},
      {"64-bit PCM", false, SF_PCM16, 0, [](WaveShape& s) { s.bits = 64; }},
      {"64-bit float", true, SF_FLOAT64, 0, [](WaveShape& s) { s.bits = 64, s.tag = 3; }},
      {"block align off", false, SF_PCM16, 0, [](WaveShape& s) { s.blockAlign = 6; }},
      {"bytes per second off", false, SF_PCM16, 0, [](WaveShape& s) { s.bytesPerSecond = 176399; }},
      {"rate 0", false, SF_PCM16, 0, [](WaveShape& s) { s.rate = 0; }},
      {"even chunk before data", true, SF_PCM16, 0, [&](WaveShape& s) { s.between = fact.data; }},
      {"odd chunk without pad", true, SF_PCM16, 0, [&](WaveShape& s) { s.between = oddList.data; }},
      {"odd chunk with pad byte", false, SF_PCM16, 0, [&](WaveShape& s) { s.between = oddPadded; }},
      {"empty data", false, SF_PCM16, 0, [](WaveShape& s) { s.dataSize = 0; }},
      {"data not whole frames", false, SF_PCM16, 0, [](WaveShape& s) { s.dataSize = 18; }},
  };
  for (const OpenCase& c : cases) {
    SCOPED_TRACE(c.name);
    WaveShape shape;
    c.edit(shape);
    const std::string path = dir.File("r.wav");
    ASSERT_TRUE(WriteBytes(path, MakeWave(shape)));
    WaveProbe w;
    EXPECT_EQ(w.SetFilePathUTF8(path.c_str(), false, false), c.opens);
    EXPECT_EQ(w.IsOpen(), c.opens);
    if (c.opens) {
      EXPECT_EQ(w.GetSampleFormat(), c.format);
      EXPECT_EQ(w.GetChannelMask(), c.mask);
      EXPECT_EQ(w.GetTotalFrames(), shape.frames);
      EXPECT_EQ(w.dataStart,
                MakeWave(shape).size() - shape.frames * (shape.bits / 8) * shape.channels);
    } else {
      std::vector<float> buffer(64);
      EXPECT_EQ(w.ReadFrames(buffer.data(), 1), 0);
    }
  }

  // Broken containers: wrong magic, cut inside fmt, no data chunk, cut
  // inside the RIFF header, empty.
  const std::vector<uint8_t> good = MakeWave(WaveShape{});
  std::vector<uint8_t> rifx = good, wavf = good;
  std::copy_n("RIFX", 4, rifx.begin());
  std::copy_n("WAVF", 4, wavf.begin() + 8);
  const auto cut = [&](int n) { return std::vector<uint8_t>(good.begin(), good.begin() + n); };
  for (const std::vector<uint8_t>& bytes : {rifx, wavf, cut(30), cut(36), cut(6), cut(0)}) {
    ASSERT_TRUE(WriteBytes(dir.File("b.wav"), bytes));
    WaveFile w;
    EXPECT_FALSE(w.SetFilePathUTF8(dir.File("b.wav").c_str(), false, false)) << bytes.size();
  }
  WaveFile missing;
  EXPECT_FALSE(missing.SetFilePathUTF8(dir.File("none.wav").c_str(), false, false));
  EXPECT_FALSE(missing.SetFilePathUTF8(nullptr, false, false));
  EXPECT_FALSE(missing.SetFilePathW(nullptr, false, false));
}

}  // namespace
