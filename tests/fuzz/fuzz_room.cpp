// libFuzzer target for the headphone room simulation reading its impulse
// data through the host's stream reader. The reader serves the input as
// every file of the room set, with short reads, failing reads, missing
// files and seeks that fail, as the first bytes of the input choose. The
// chain must run and its output stay finite for finite data; memory errors
// are left to the sanitizers.
//
// Input: byte 0 picks the room and the stream's channels; byte 1 the
// reader's behaviour (bits 0-1: full, short, failing or huge-claim reads;
// bit 2: every other file missing); the rest is the file's content.
//
// The corpus replay test includes this file with
// ONDREL_FUZZ_ROOM_NO_ENTRY defined and calls RunOnce.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ondrel.h"

namespace fuzz_room {

struct Served {
  const uint8_t* data = nullptr;
  size_t size = 0;
  int mode = 0;
  bool holes = false;
  int opens = 0;
};

inline Served& Current() {
  static Served served;
  return served;
}

struct Handle {
  size_t pos = 0;
};

inline void* Open(const char*) {
  Served& s = Current();
  if (s.holes && (s.opens % 2) == 1) {
    ++s.opens;
    return nullptr;
  }
  ++s.opens;
  return new Handle;
}

inline void Close(void* h) { delete static_cast<Handle*>(h); }

inline int Read(void* h, void* buffer, int size) {
  Served& s = Current();
  Handle* handle = static_cast<Handle*>(h);
  if (size <= 0) return 0;
  size_t want = static_cast<size_t>(size);
  switch (s.mode) {
    case 1: want = want / 3; break;  // short reads
    case 2: return -1;               // a failing read writes nothing
    case 3: return size * 4;         // claims more than asked, writes nothing
    default: break;
  }
  const size_t left = handle->pos < s.size ? s.size - handle->pos : 0;
  const size_t n = want < left ? want : left;
  std::memcpy(buffer, s.data + handle->pos, n);
  handle->pos += n;
  return static_cast<int>(n);
}

inline int Seek(void* h, long offset, int whence) {
  Served& s = Current();
  Handle* handle = static_cast<Handle*>(h);
  const long base = whence == 2 ? static_cast<long>(s.size) : 0;
  if (base + offset < 0) return -1;
  handle->pos = static_cast<size_t>(base + offset);
  return 0;
}

inline long Tell(void* h, uint32_t* high) {
  if (high != nullptr) *high = 0;
  return static_cast<long>(static_cast<Handle*>(h)->pos);
}

inline const ONDREL2::ONDREL_STREAM_READER* Reader() {
  static const ONDREL2::ONDREL_STREAM_READER reader = {&Open, &Close, &Read, &Seek, &Tell};
  return &reader;
}

// Runs one input; false when finite data gave a non-finite output.
inline bool RunOnce(const uint8_t* data, size_t size) {
  if (size < 2) return true;
  Served& s = Current();
  s = Served();
  s.data = data + 2;
  s.size = size - 2;
  s.mode = data[1] & 3;
  s.holes = (data[1] & 4) != 0;
  bool finiteData = true;
  for (size_t i = 0; i + 4 <= s.size; i += 4) {
    float v;
    std::memcpy(&v, s.data + i, 4);
    // Responses near the float limit overflow the convolution sums.
    if (!std::isfinite(v) || std::fabs(v) > 1e6f) finiteData = false;
  }
  const ONDREL2::ONDREL_STREAM_READER* saved = ONDREL2::ondrel_get_onr();
  ONDREL2::ondrel_init(Reader());

  static const int kChannels[4] = {2, 6, 1, 8};
  const int channels = kChannels[(data[0] >> 2) & 3];
  ONDREL2::AEffect* fx = nullptr;
  ONDREL2::ondrel_create_effect(ONDREL2::EFFECT_HEADPHONE, &fx);
  bool ok = true;
  if (fx != nullptr) {
    fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, 0, 0, nullptr, 1.0f + (data[0] & 3) % 3);
    void* inst = ONDREL2::ondrel_create_inst();
    ONDREL2::ondrel_setup_input(inst, channels, 0);
    ONDREL2::ondrel_set_samplerate(inst, (data[0] & 16) ? 48000.0f : 44100.0f);
    ONDREL2::ondrel_set_params(inst, &fx, 1);
    std::vector<float> in(static_cast<size_t>(channels) * 1500), out(8 * 1500 * 2);
    for (size_t i = 0; i < in.size(); ++i) in[i] = std::sin(static_cast<float>(i) * 0.01f) * 0.5f;
    for (int call = 0; call < 2; ++call) {
      int available = 0, written = 0;
      ONDREL2::ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available);
      ONDREL2::ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
      for (int i = 0; i < written && finiteData; ++i)
        if (!std::isfinite(out[static_cast<size_t>(i)])) ok = false;
    }
    ONDREL2::ondrel_destroy_inst(inst);
  }
  ONDREL2::ondrel_init(saved);
  return ok;
}

}  // namespace fuzz_room

#ifndef ONDREL_FUZZ_ROOM_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  set_xlog_level(7);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz_room::RunOnce(data, size)) __builtin_trap();
  return 0;
}
#endif
