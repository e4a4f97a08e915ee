// Headphone room simulation with rooms served by a test stream reader:
// direct convolution in double, remix matrices and the room rules.
#include "effects/headphone/headphone.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace HEADPHONE {
namespace {

// Rooms served from memory.
struct Served {
  std::map<std::string, std::vector<unsigned char>> files;
  std::vector<std::string> opened;
};
Served g_served;

struct Open {
  const std::vector<unsigned char>* bytes;
  size_t pos;
};

void* OpenFile(const char* path) {
  g_served.opened.push_back(path);
  const auto it = g_served.files.find(path);
  return it == g_served.files.end() ? nullptr : new Open{&it->second, 0};
}
void CloseFile(void* h) { delete static_cast<Open*>(h); }
int ReadFile(void* h, void* buffer, int size) {
  Open* f = static_cast<Open*>(h);
  const size_t n = std::min(static_cast<size_t>(size), f->bytes->size() - f->pos);
  std::memcpy(buffer, f->bytes->data() + f->pos, n);
  f->pos += n;
  return static_cast<int>(n);
}
int SeekFile(void*, long, int) { return 0; }
long TellFile(void*, uint32_t*) { return 0; }
const ONDREL_STREAM_READER kReader = {&OpenFile, &CloseFile, &ReadFile, &SeekFile, &TellFile};

// Stores `taps` (at most 1024, zero after them) as a little-endian float file.
void Serve(const std::string& path, const std::vector<float>& taps) {
  std::vector<unsigned char> bytes(4096, 0);
  for (size_t i = 0; i < taps.size() && i < 1024; ++i) {
    uint32_t word;
    std::memcpy(&word, &taps[i], 4);
    for (int b = 0; b < 4; ++b) bytes[4 * i + b] = static_cast<unsigned char>(word >> (8 * b));
  }
  g_served.files[path] = bytes;
}

struct HeadphoneTest : ondrel_test::EffectTest {
  void SetUp() override {
    ondrel_test::InitQuiet();
    g_served = Served();
    ondrel_init(&kReader);
  }
  void TearDown() override { ondrel_init(nullptr); }
};

// A new effect; the helper's library init drops the reader, so it goes
// back in.
AEffect* NewHeadphone() {
  AEffect* fx = ondrel_test::NewEffect(EFFECT_HEADPHONE);
  ondrel_init(&kReader);
  return fx;
}

// Gain of the whole chain on a unit response: the engine's 32767/32768 and
// the output limiter's fixed level; the limiter also delays by its 5 ms
// look-ahead: a ring of 220 frames at 44.1 kHz, which a frame leaves 219
// frames after it went in.
constexpr double kPathGain = 32767.0 / 32768.0 * 0.9765625;
constexpr int kLimiterDelay = 219;

// All 22 files random: the rendered 5.1 stream equals the linear
// convolution of each speaker with its direct response plus the speaker
// sum with the tail one block behind, with the LFE mixed into the front
// pair at 0.1.
TEST_F(HeadphoneTest, MatchesDirectConvolution) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  auto randomTaps = [&](float level) {
    std::vector<float> t(1024);
    for (float& v : t) v = level * u(rng);
    return t;
  };
  std::vector<double> tail[2];  // per ear, 7168 taps from the direct sound on
  for (int ear = 0; ear < 2; ++ear) {
    tail[ear].assign(7 * 1024, 0.0);
    for (int p = 0; p < 6; ++p) {
      const std::vector<float> t = randomTaps(0.004f);
      Serve("LiveRoom/" + std::to_string(p) + (ear ? "R" : "L") + ".data", t);
      for (int j = 0; j < 1024; ++j) tail[ear][static_cast<size_t>((p + 1) * 1024 + j)] = t[j];
    }
  }
  const char* speakers[5] = {"FL", "FC", "FR", "BL", "BR"};
  std::vector<float> direct[5][2];
  for (int s = 0; s < 5; ++s)
    for (int ear = 0; ear < 2; ++ear) {
      direct[s][ear] = randomTaps(0.02f);
      Serve(std::string("LiveRoom/") + speakers[s] + (ear ? "_R" : "_L") + ".data", direct[s][ear]);
    }

  const int frames = 7000;
  std::vector<float> in = ondrel_test::TestSignal(frames, 6, 44100.0f);
  for (float& v : in) v *= 0.15f;  // quiet enough that the output limiter stays idle
  const ondrel_test::StreamResult r = ondrel_test::RunStream(NewHeadphone(), 44100.0f, 6, in);
  ASSERT_EQ(r.status, 0);
  const std::vector<float>& out = r.output;
  ASSERT_GE(out.size(), static_cast<size_t>(2 * frames));

  // Speaker signals in plane order FL FC FR BL BR from the 5.1 frame FL FR
  // FC LFE BL BR; the front pair carries the LFE at 0.1.
  auto speaker = [&](int s, int n) {
    const float* x = &in[static_cast<size_t>(n) * 6];
    const int channel[5] = {0, 2, 1, 4, 5};
    return x[channel[s]] + (s == 0 || s == 2 ? 0.1 * x[3] : 0.0);
  };
  double worst = 0.0;
  for (int n = 0; n + kLimiterDelay < frames; ++n) {
    for (int ear = 0; ear < 2; ++ear) {
      double y = 0.0;
      for (int j = 0; j <= n && j < 7 * 1024; ++j) {
        double sum = 0.0;
        for (int s = 0; s < 5; ++s) {
          const double x = speaker(s, n - j);
          sum += x;
          if (j < 1024) y += direct[s][ear][static_cast<size_t>(j)] * x;
        }
        y += tail[ear][static_cast<size_t>(j)] * sum;
      }
      const double got = out[static_cast<size_t>(2 * (n + kLimiterDelay) + ear)];
      worst = std::max(worst, std::fabs(got - kPathGain * y));
    }
  }
  EXPECT_LT(worst, 2e-5);
  for (int n = 0; n < kLimiterDelay; ++n) EXPECT_EQ(out[static_cast<size_t>(2 * n)], 0.0f);
}

// The remix matrices, as users of each layout expect them: rows FL FR FC
// LFE BL BR, one letter per input channel: 0, 1, h = sqrt(1/2) (q one float
// step below it), s = 1 / (1 + h), t = h * s, 9 = 0.9, 4 = 0.4.
TEST_F(HeadphoneTest, RemixMatrices) {
  const std::map<int, std::string> want = {
      {1, "0 0 1 0 0 0"},
      {2, "10 01 qq 00 94 49"},
      {3, "100 010 000 001 000 000"},
      {4, "1000 0100 0010 0000 000h 000h"},
      {5, "10000 01000 00100 00000 00010 00001"},
      {7, "s000000 0s00000 00s0000 000s000 0000ts0 0000t0s"},
      {8, "s0000000 0s000000 00s00000 000s0000 0000s0t0 00000s0t"},
  };
  const float h = 0.70710678f, s = 1.0f / 1.70710678f;
  const std::map<char, float> weight = {{'0', 0.0f}, {'1', 1.0f},  {'h', h},    {'q', 0.70710677f},
                                        {'s', s},    {'t', h * s}, {'9', 0.9f}, {'4', 0.4f}};
  for (const auto& [channels, rows] : want) {
    HeadphoneRoomEngine engine;
    ASSERT_TRUE(engine.Init(44100, channels)) << channels;
    ASSERT_NE(engine.remixer, nullptr);
    for (int o = 0; o < 6; ++o)
      for (int i = 0; i < channels; ++i)
        EXPECT_NEAR(engine.remixer->At(o, i), weight.at(rows[o * (channels + 1) + i]), 1e-7)
            << channels << ": " << o << "," << i;
  }
  // 16 channels: a usable layout, the extra speakers dropped, no row above
  // unity; no remixer for 5.1 itself; a count without a layout is refused.
  HeadphoneRoomEngine sixteen, six;
  ASSERT_TRUE(sixteen.Init(44100, 16));
  for (int o = 0; o < 6; ++o) {
    double sum = 0.0;
    for (int i = 0; i < 16; ++i) sum += std::fabs(sixteen.remixer->At(o, i));
    EXPECT_LE(sum, 1.0 + 1e-6);
  }
  EXPECT_EQ(sixteen.remixer->At(2, 2), sixteen.remixer->At(0, 0));  // FC like FL
  EXPECT_TRUE(six.Init(44100, 6));
  EXPECT_EQ(six.remixer, nullptr);
  HeadphoneEffect nine;
  nine.SetChannels(9, 0);
  nine.SetSampleRate(44100.0f);
  EXPECT_EQ(nine.UpdateParams(), ONDREL_E_INVALID);
}

// Rooms differ in their centre gain. A room other than the build room 2 is
// loaded (all 22 files) at every update; going back to 2 keeps the last room
// until the format changes.
TEST_F(HeadphoneTest, RoomChangesAndTheBuildRoom) {
  const char* folders[3] = {"ReferenceRoom/", "LiveRoom/", "MovieTheater/"};
  for (int r = 0; r < 3; ++r) Serve(std::string(folders[r]) + "FC_L.data", {0.5f / (1 << r)});
  HeadphoneEffect fx;
  fx.SetChannels(1, 0);
  fx.SetSampleRate(44100.0f);
  ASSERT_EQ(fx.Resume(), 0);
  std::vector<float> ones(4096, 0.25f), out(2 * 4096);
  // Steady left-ear level of a constant centre signal.
  auto level = [&]() {
    int available = 0, got = 0;
    float* in = ones.data();
    EXPECT_EQ(fx.ProcessInput({in}, 4096, &available), 0);
    EXPECT_EQ(fx.ProcessOutput({out.data(), out.data() + 4096}, available, &got), 0);
    return static_cast<double>(out[static_cast<size_t>(got - 1)]) / (0.25 * kPathGain);
  };
  // Settings in turn (a room, or -1 for a new update of the same one, or
  // -2 for a new rate) and the level each gives.
  const std::pair<float, double> steps[] = {{2, 0.25}, {3, 0.125}, {-1, 0.125}, {2, 0.125},
                                            {1, 0.5},  {2, 0.5},   {-2, 0.25}};
  for (const auto& [room, want] : steps) {
    const size_t opens = g_served.opened.size();
    if (room == -1) fx.paramsDirty = true;
    if (room == -2) fx.SetSampleRate(48000.0f);  // rebuild: the build room again
    if (room >= 0) fx.SetParam(0, room);
    EXPECT_NEAR(level(), want, 1e-6) << room;
    if (room == -1) {
      EXPECT_EQ(g_served.opened.size(), opens + 22);
      EXPECT_EQ(g_served.opened.back(), "MovieTheater/BR_R.data");
    }
  }
}

}  // namespace
}  // namespace HEADPHONE
}  // namespace ONDREL2
