// make_rooms: builds the room set of the headphone effect from a measured
// HRTF in a SOFA file.
//
//   make_rooms <hrtf.sofa> <output-dir>
//
// Writes three folders, ReferenceRoom/, LiveRoom/ and MovieTheater/, each
// with the 22 response files the effect reads: 1024 little-endian 32-bit
// floats per file, at 44100 Hz.
//
// Direct paths (FL_L.data ... BR_R.data): the measured head-related impulse
// responses of the nearest measured direction at ear height for the usual
// 5.1 speaker angles: front left/right at +-30 degrees, centre at 0, backs at
// +-110 (SOFA azimuths turn counter-clockwise, so left speakers are
// positive). All ten share one gain that gives the centre speaker an
// impulse-response energy of kDirectEnergy per ear, which keeps interaural
// level differences as measured.
//
// Room tails (0L.data ... 5R.data, 6144 taps per ear starting 1024 samples
// after the direct sound): late reverberation modelled as white noise from
// a fixed-seed generator (a different stream per room and ear, so the ears
// are decorrelated), smoothed by a one-pole low-pass whose coefficient sets
// how dark the room is, under an exponential envelope that falls 60 dB in
// the room's reverberation time. The first 128 taps fade in, the last 1024
// fade out (half cosine) so the truncated tail ends without a step. Each
// tail is scaled to an energy of kDirectEnergy times the room's
// reverberant-to-direct ratio.
//
// The output depends only on the SOFA file: rerunning gives identical files.
#include <mysofa.h>

#include <sys/stat.h>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int kTaps = 1024;
constexpr int kTailBlocks = 6;
constexpr float kRate = 44100.0f;
constexpr double kDirectEnergy = 0.04;
constexpr double kPi = 3.141592653589793;

struct Speaker {
  const char* name;
  float azimuth;  // degrees, counter-clockwise from the front
};
const Speaker kSpeakers[] = {
    {"FL", 30.0f}, {"FC", 0.0f}, {"FR", -30.0f}, {"BL", 110.0f}, {"BR", -110.0f}};

struct Room {
  const char* folder;
  double reverbTime;      // seconds to fall by 60 dB
  double reverbToDirect;  // tail energy over centre direct energy, dB
  double smoothing;       // one-pole low-pass coefficient, 1 = no smoothing
  uint32_t seed;
};
const Room kRooms[] = {{"ReferenceRoom", 0.25, -14.0, 0.60, 0x5eed0001u},
                       {"LiveRoom", 0.60, -8.0, 0.45, 0x5eed0002u},
                       {"MovieTheater", 1.20, -4.0, 0.30, 0x5eed0003u}};

bool WriteResponse(const std::string& path, const std::vector<float>& taps) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  unsigned char bytes[4 * kTaps] = {};
  for (int i = 0; i < kTaps && i < static_cast<int>(taps.size()); ++i) {
    uint32_t word;
    static_assert(sizeof(word) == sizeof(float), "32-bit float");
    __builtin_memcpy(&word, &taps[static_cast<size_t>(i)], 4);
    for (int b = 0; b < 4; ++b) bytes[4 * i + b] = static_cast<unsigned char>(word >> (8 * b));
  }
  const bool ok = std::fwrite(bytes, 1, sizeof(bytes), f) == sizeof(bytes);
  return std::fclose(f) == 0 && ok;
}

// xorshift32 mapped to -1..1: fixed and portable, unlike the library
// distributions.
struct Noise {
  uint32_t state;
  double Next() {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return static_cast<double>(state) / 2147483648.0 - 1.0;
  }
};

std::vector<float> Tail(const Room& room, int ear, double energy) {
  const int length = kTaps * kTailBlocks;
  std::vector<double> t(static_cast<size_t>(length));
  Noise noise{room.seed * 2u + static_cast<uint32_t>(ear) + 1u};
  double smooth = 0.0;
  const double decayPerSample = std::log(1000.0) / (room.reverbTime * kRate);
  for (int n = 0; n < length; ++n) {
    smooth += room.smoothing * (noise.Next() - smooth);
    double env = std::exp(-decayPerSample * (n + kTaps));
    if (n < 128) env *= n / 128.0;
    if (n >= length - kTaps) env *= 0.5 * (1.0 + std::cos(kPi * (n - (length - kTaps)) / kTaps));
    t[static_cast<size_t>(n)] = smooth * env;
  }
  double sum = 0.0;
  for (double v : t) sum += v * v;
  const double gain = sum > 0.0 ? std::sqrt(energy / sum) : 0.0;
  std::vector<float> out(t.size());
  for (size_t i = 0; i < t.size(); ++i) out[i] = static_cast<float>(t[i] * gain);
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s <hrtf.sofa> <output-dir>\n", argv[0]);
    return 2;
  }
  int filterLength = 0, err = 0;
  MYSOFA_EASY* hrtf = mysofa_open_no_norm(argv[1], kRate, &filterLength, &err);
  if (hrtf == nullptr || err != MYSOFA_OK) {
    std::fprintf(stderr, "make_rooms: cannot read %s (error %d)\n", argv[1], err);
    return 1;
  }

  // Direct paths, measured, delays applied as whole samples.
  std::vector<std::vector<float>> direct;  // speaker-major, left then right
  std::vector<float> left(static_cast<size_t>(filterLength)), right(left.size());
  for (const Speaker& s : kSpeakers) {
    float where[3] = {s.azimuth, 0.0f, 1.4f};
    mysofa_s2c(where);
    float delayLeft = 0.0f, delayRight = 0.0f;
    mysofa_getfilter_float_nointerp(hrtf, where[0], where[1], where[2], left.data(), right.data(),
                                    &delayLeft, &delayRight);
    for (int ear = 0; ear < 2; ++ear) {
      const std::vector<float>& ir = ear == 0 ? left : right;
      const int shift = static_cast<int>(std::lround((ear == 0 ? delayLeft : delayRight) * kRate));
      std::vector<float> taps(kTaps, 0.0f);
      for (int i = 0; i < filterLength; ++i)
        if (i + shift >= 0 && i + shift < kTaps)
          taps[static_cast<size_t>(i + shift)] = ir[static_cast<size_t>(i)];
      direct.push_back(taps);
    }
  }
  mysofa_close(hrtf);

  double centre = 0.0;
  for (int ear = 0; ear < 2; ++ear)
    for (float v : direct[static_cast<size_t>(2 + ear)]) centre += 0.5 * v * v;
  if (!(centre > 0.0)) {
    std::fprintf(stderr, "make_rooms: the centre response is silent\n");
    return 1;
  }
  const double gain = std::sqrt(kDirectEnergy / centre);
  for (auto& taps : direct)
    for (float& v : taps) v = static_cast<float>(v * gain);

  const std::string root = argv[2];
  ::mkdir(root.c_str(), 0755);
  for (const Room& room : kRooms) {
    const std::string dir = root + "/" + room.folder + "/";
    ::mkdir(dir.c_str(), 0755);
    bool ok = true;
    const double tailEnergy = kDirectEnergy * std::pow(10.0, room.reverbToDirect / 10.0);
    for (int ear = 0; ear < 2; ++ear) {
      const std::vector<float> tail = Tail(room, ear, tailEnergy);
      for (int p = 0; p < kTailBlocks; ++p) {
        std::vector<float> block(tail.begin() + p * kTaps, tail.begin() + (p + 1) * kTaps);
        ok = ok && WriteResponse(dir + std::to_string(p) + (ear == 0 ? "L" : "R") + ".data", block);
      }
    }
    for (size_t s = 0; s < 5; ++s)
      for (int ear = 0; ear < 2; ++ear)
        ok = ok && WriteResponse(dir + kSpeakers[s].name + (ear == 0 ? "_L" : "_R") + ".data",
                                 direct[2 * s + static_cast<size_t>(ear)]);
    if (!ok) {
      std::fprintf(stderr, "make_rooms: cannot write %s\n", dir.c_str());
      return 1;
    }
  }
  return 0;
}
