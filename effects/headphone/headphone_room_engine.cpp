#include "effects/headphone/headphone_room_engine.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace HEADPHONE {
namespace {

constexpr int32_t N = HeadphoneRoomEngine::kBins;
constexpr float kResponseScale = 2.7755575615628914e-17f;  // 2^-55
constexpr float kOutputScale = 3.0517578e-5f;              // 2^-15
constexpr int32_t kFileBytes = 4 * N;

const char* const kRoomFolders[3] = {"ReferenceRoom/", "LiveRoom/", "MovieTheater/"};
const char* const kTailFiles[2][HeadphoneRoomEngine::kTailBlocks] = {
    {"0L.data", "1L.data", "2L.data", "3L.data", "4L.data", "5L.data"},
    {"0R.data", "1R.data", "2R.data", "3R.data", "4R.data", "5R.data"}};
const char* const kDirectFiles[HeadphoneRoomEngine::kSpeakers][2] = {{"FL_L.data", "FL_R.data"},
                                                                     {"FC_L.data", "FC_R.data"},
                                                                     {"FR_L.data", "FR_R.data"},
                                                                     {"BL_L.data", "BL_R.data"},
                                                                     {"BR_L.data", "BR_R.data"}};

// Mask of the layout remixed from, by channel count; 0 for none.
uint64_t InputMaskFor(int32_t chns) {
  switch (chns) {
    case 1: return 0x4;
    case 2: return 0x3;
    case 3: return 0xB;
    case 4: return 0x107;
    case 5: return 0x37;
    case 6: return 0x3F;
    case 7: return 0x70F;
    case 8: return 0x63F;
    case 16: return 0x18003F737ull;
    default: return 0;
  }
}

// Plane of each 5.1 input channel (FL, FR, FC, LFE, BL, BR).
constexpr int32_t kPlaneOfInput[6] = {HeadphoneRoomEngine::kFL, HeadphoneRoomEngine::kFR,
                                      HeadphoneRoomEngine::kFC, HeadphoneRoomEngine::kLFE,
                                      HeadphoneRoomEngine::kBL, HeadphoneRoomEngine::kBR};

// One response file as 1024 samples; zeros where the file is missing or
// short.
void ReadResponse(const char* folder, const char* name, float* samples) {
  std::memset(samples, 0, sizeof(float) * N);
  char path[64];
  std::snprintf(path, sizeof(path), "%s%s", folder, name);
  const ONDREL_STREAM_READER* reader = ondrel_get_onr();
  if (reader == nullptr || reader->open == nullptr) return;
  void* handle = reader->open(path);
  if (handle == nullptr) return;
  unsigned char bytes[kFileBytes] = {};
  if (reader->read != nullptr) reader->read(handle, bytes, kFileBytes);
  if (reader->close != nullptr) reader->close(handle);
  for (int32_t i = 0; i < N; ++i) {
    const unsigned char* b = bytes + 4 * i;
    const uint32_t word = static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
                          static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
    std::memcpy(&samples[i], &word, 4);
  }
}

inline Bin Mul(const Bin& a, const float* b) {
  return {a.re * b[0] - a.im * b[1], a.re * b[1] + a.im * b[0]};
}

inline Bin Mul(const Bin& a, const Bin& b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

}  // namespace

HeadphoneRoomEngine::HeadphoneRoomEngine() = default;

HeadphoneRoomEngine::~HeadphoneRoomEngine() {
  ReleaseTransforms();
  std::free(remixBuffer);
}

bool HeadphoneRoomEngine::Init(int32_t rate, int32_t chns) {
  sampleRate = rate;
  channels = chns;
  LookaheadLimiterParams params;  // levelOut 0.9765625, limit 1, 5 ms, 50 ms, auto level
  limiter.reset(NewObject<LookaheadLimiter>(&params));
  limiterReady = limiter != nullptr && limiter->SetFormat(rate, 2) == ONDREL_OK;
  remixer.reset();
  if (chns == 6) return true;

  const uint64_t mask = InputMaskFor(chns);
  remixer.reset(NewObject<ChannelRemixer>(mask, 0x3F));
  if (remixer == nullptr || mask == 0 || !remixer->BuildMatrix()) {
    remixer.reset();
    return false;
  }
  if (chns == 2) {
    // Stereo gets a fixed spread: a phantom centre and a wide, crossed
    // back pair; this matrix is not normalised.
    const float m[6][2] = {{1.0f, 0.0f}, {0.0f, 1.0f}, {0.70710677f, 0.70710677f},
                           {0.0f, 0.0f}, {0.9f, 0.4f}, {0.4f, 0.9f}};
    for (int32_t o = 0; o < 6; ++o)
      for (int32_t i = 0; i < 2; ++i) remixer->At(o, i) = m[o][i];
  }
  return true;
}

void HeadphoneRoomEngine::SelectRoom(int32_t room) {
  roomType = room;
  if (room >= 1 && room <= 3) LoadRoom(kRoomFolders[room - 1], 1.0f);
}

void HeadphoneRoomEngine::ReleaseTransforms() {
  if (forwardPlan != nullptr) fftwf_destroy_plan(forwardPlan);
  if (inversePlan != nullptr) fftwf_destroy_plan(inversePlan);
  forwardPlan = nullptr;
  inversePlan = nullptr;
  std::free(fftIn);
  std::free(fftOut);
  fftIn = nullptr;
  fftOut = nullptr;
}

bool HeadphoneRoomEngine::MakeTransforms() {
  // Every load plans afresh; what an earlier load made is released first.
  ReleaseTransforms();
  fftIn = AllocBlock<fftwf_complex>(N);
  fftOut = AllocBlock<fftwf_complex>(N);
  if (fftIn == nullptr || fftOut == nullptr) {
    ReleaseTransforms();
    return false;
  }
  forwardPlan = fftwf_plan_dft_1d(N, fftIn, fftOut, FFTW_FORWARD, FFTW_ESTIMATE);
  inversePlan = fftwf_plan_dft_1d(N, fftIn, fftOut, FFTW_BACKWARD, FFTW_ESTIMATE);
  if (!HasTransforms()) {
    ReleaseTransforms();
    return false;
  }
  return true;
}

void HeadphoneRoomEngine::LoadRoom(const char* folder, float gain) {
  if (!MakeTransforms()) return;
  for (int32_t i = 0; i < N; ++i) {
    const double a = i * 3.141592653589793 * 0.5 * 0.0009765625;
    cosTable[i] = static_cast<float>(std::cos(a) * 32768.0);
    sinTable[i] = static_cast<float>(std::sin(a) * 32768.0);
  }
  sinTable[N] = 32768.0f;

  float samples[N];
  auto transform = [&](const char* name) {
    ReadResponse(folder, name, samples);
    for (int32_t i = 0; i < N; ++i) {
      fftIn[i][0] = cosTable[i] * samples[i] * kResponseScale * gain;
      fftIn[i][1] = sinTable[i] * samples[i] * kResponseScale * gain;
    }
    fftwf_execute(forwardPlan);
  };
  for (int32_t ear = 0; ear < 2; ++ear) {
    for (int32_t p = 0; p < kTailBlocks; ++p) {
      transform(kTailFiles[ear][p]);
      for (int32_t k = 0; k < N; ++k) tail[k][p][ear] = {fftOut[k][0], fftOut[k][1]};
    }
  }
  for (int32_t s = 0; s < kSpeakers; ++s) {
    for (int32_t ear = 0; ear < 2; ++ear) {
      transform(kDirectFiles[s][ear]);
      for (int32_t k = 0; k < N; ++k) direct[s][k][ear] = {fftOut[k][0], fftOut[k][1]};
    }
  }
}

void HeadphoneRoomEngine::ClearState() {
  writePos = 0;
  phase = 0;
  std::memset(outBlock, 0, sizeof(outBlock));
  std::memset(tailInput, 0, sizeof(tailInput));
  std::memset(tailHistory, 0, sizeof(tailHistory));
  std::memset(planes, 0, sizeof(planes));
}

int32_t HeadphoneRoomEngine::Process(float* samples, int32_t count) {
  if (!enabled || samples == nullptr || count < 0) return count;
  const float* source = samples;
  if (channels != 6) {
    if (remixer == nullptr) return count;
    const int32_t frames = count / channels;
    const int32_t need = frames * 6;
    if (remixCapacity < need) {
      std::free(remixBuffer);
      remixBuffer = AllocBlock<float>(static_cast<size_t>(need));
      remixCapacity = remixBuffer != nullptr ? need : 0;
      if (remixBuffer == nullptr) return 0;
    }
    remixer->Remix(samples, remixBuffer, frames);
    count = need;
    source = remixBuffer;
  }
  if (needsClear) {
    ClearState();
    needsClear = false;
  }
  if (!HasTransforms()) SelectRoom(roomType);
  // Whole frames only: a partial one would read past the caller's data.
  const int32_t frames = count / 6;
  int32_t written = 0;
  for (int32_t f = 0; f < frames; ++f) {
    const float* x = source + static_cast<size_t>(f) * 6;
    for (int32_t c = 0; c < 6; ++c) planes[phase][kPlaneOfInput[c]][writePos] = x[c] * 32767.0f;
    if (++writePos == N) {
      writePos = 0;
      RunBlock();
      std::memcpy(samples + written, outBlock, sizeof(outBlock));
      written += 2 * N;
    }
  }
  return written;
}

void HeadphoneRoomEngine::TurnPlanes(int32_t p) {
  const float* prev = planes[1 - phase][p];
  const float* cur = planes[phase][p];
  fftIn[0][0] = 32768.0f * prev[0];
  fftIn[0][1] = 32768.0f * cur[0];
  for (int32_t n = 1; n < N; ++n) {
    const float cosine = sinTable[N - n];
    const float sine = sinTable[n];
    fftIn[n][0] = prev[n] * cosine - cur[n] * sine;
    fftIn[n][1] = cur[n] * cosine + prev[n] * sine;
  }
}

void HeadphoneRoomEngine::RunBlock() {
  // Room tail: the channel sums of the last six blocks, newest first.
  for (int32_t k = 0; k < N; ++k) {
    Bin* history = tailHistory[k];
    std::memmove(history, history + 1, sizeof(Bin) * (kTailBlocks - 1));
    history[kTailBlocks - 1] = tailInput[k];
    tailInput[k] = {0.0f, 0.0f};
    Bin left = Mul(tail[k][0][0], history[kTailBlocks - 1]);
    Bin right = Mul(tail[k][0][1], history[kTailBlocks - 1]);
    for (int32_t p = 1; p < kTailBlocks; ++p) {
      const Bin& h = history[kTailBlocks - 1 - p];
      const Bin l = Mul(tail[k][p][0], h);
      const Bin r = Mul(tail[k][p][1], h);
      left = {left.re + l.re, left.im + l.im};
      right = {right.re + r.re, right.im + r.im};
    }
    spectrumLeft[k] = left;
    spectrumRight[k] = right;
  }

  if (lfeToMains) {
    const float* lfe = planes[phase][kLFE];
    auto addTo = [&](int32_t p) {
      float* dst = planes[phase][p];
      for (int32_t n = 0; n < N; ++n) dst[n] = dst[n] + lfeGain * lfe[n];
    };
    if (channelEnabled[kFL] && channelEnabled[kFR]) {
      addTo(kFL);
      addTo(kFR);
    } else if (channelEnabled[kFC]) {
      addTo(kFC);
    }
  }

  if (!HasTransforms()) {
    // No transforms could be made: the block is silence.
    phase = 1 - phase;
    std::memset(outBlock, 0, sizeof(outBlock));
  } else {
    for (int32_t s = 0; s < kSpeakers; ++s) {
      if (!channelEnabled[s]) continue;
      TurnPlanes(s);
      fftwf_execute(forwardPlan);
      for (int32_t k = 0; k < N; ++k) {
        const float* f = fftOut[k];
        const Bin l = Mul(direct[s][k][0], f);
        const Bin r = Mul(direct[s][k][1], f);
        spectrumLeft[k] = {spectrumLeft[k].re + l.re, spectrumLeft[k].im + l.im};
        spectrumRight[k] = {spectrumRight[k].re + r.re, spectrumRight[k].im + r.im};
        tailInput[k] = {tailInput[k].re + f[0], tailInput[k].im + f[1]};
      }
    }
    phase = 1 - phase;

    for (Bin* spectrum : {spectrumLeft, spectrumRight}) {
      std::memcpy(fftIn, spectrum, sizeof(Bin) * N);
      fftwf_execute(inversePlan);
      std::memcpy(spectrum, fftOut, sizeof(Bin) * N);
    }
    // Unturn; only the imaginary half is the current block free of wrap.
    for (int32_t n = 0; n < N; ++n) {
      const float cosine = sinTable[N - n];
      const float sine = sinTable[n];
      outBlock[2 * n] = (spectrumLeft[n].im * cosine - spectrumLeft[n].re * sine) * kOutputScale;
      outBlock[2 * n + 1] =
          (spectrumRight[n].im * cosine - spectrumRight[n].re * sine) * kOutputScale;
    }
  }
  if (limiterReady) limiter->ProcessInterleaved(outBlock, outBlock);
}

}  // namespace HEADPHONE
}  // namespace ONDREL2
