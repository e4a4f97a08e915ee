// libFuzzer target for the resource loaders: the input holds a few setting
// bytes and then a file, which is stored in a scratch resource root, clear
// or scrambled, and loaded by the studio IR convolver or the sampler inside
// a running chain. Whatever the file holds, the chain must run, and no
// clear "-dec" copy may stay behind; memory errors are left to the
// sanitizers.
//
// Input: byte 0 bit 0 picks the sampler, bit 1 scrambles the file; byte 1
// sets trim and fade (or the sampler's gain); byte 2 picks the stream's
// channels and rate; the rest is the file.
//
// The corpus replay test includes this file with
// ONDREL_FUZZ_RESOURCE_NO_ENTRY defined and calls RunOnce.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ondrel.h"

namespace fuzz_resource {

// A scratch directory, made once per process, in $TMPDIR (or /tmp) unless
// the includer names one with FUZZ_RESOURCE_DIR.
inline const std::string& RootDir() {
  static const std::string dir = [] {
#ifdef FUZZ_RESOURCE_DIR
    std::string base = FUZZ_RESOURCE_DIR;
#else
    const char* tmp = getenv("TMPDIR");
    std::string base = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
#endif
    std::string pattern = base + "/fuzz-resource-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) return std::string();
    return pattern + "/";
  }();
  return dir;
}

inline bool WriteFile(const std::string& path, const uint8_t* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}

// Runs one input; false when a clear copy was left behind.
inline bool RunOnce(const uint8_t* data, size_t size) {
  if (size < 3 || RootDir().empty()) return true;
  const bool sampler = (data[0] & 1) != 0, scrambled = (data[0] & 2) != 0;
  const std::string name = "r.wav", path = RootDir() + name, clear = path + "-dec";
  if (!WriteFile(path, data + 3, size - 3)) return true;
  if (scrambled) {
    // The scramble is its own inverse: descrambling a clear file scrambles it.
    const std::string tmp = path + ".s";
    if (!ONDREL2::decrypt_file(path.c_str(), tmp.c_str()) || std::rename(tmp.c_str(), path.c_str()))
      return true;
  }
  const char* roots[] = {RootDir().c_str()};
  ONDREL2::ondrel_set_resource_root(roots, 1);

  ONDREL2::AEffect* fx = nullptr;
  ONDREL2::ondrel_create_effect(sampler ? ONDREL2::EFFECT_SAMPLER : ONDREL2::EFFECT_STUDIO_IR, &fx);
  if (fx == nullptr) return true;
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_DATA, 0, static_cast<int32_t>(name.size() + 1),
                 const_cast<char*>(name.c_str()), 0.0f);
  const float a = static_cast<float>(data[1] & 15) / 15.0f,
              b = static_cast<float>(data[1] >> 4) / 15.0f;
  fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, 1, 0, nullptr, a);
  if (!sampler) fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, 2, 0, nullptr, b);

  static const int kChannels[4] = {2, 1, 4, 6};
  static const float kRates[4] = {44100.0f, 48000.0f, 22050.0f, 96000.0f};
  const int channels = kChannels[data[2] & 3];
  void* inst = ONDREL2::ondrel_create_inst();
  ONDREL2::ondrel_setup_input(inst, channels, 0);
  ONDREL2::ondrel_set_samplerate(inst, kRates[(data[2] >> 2) & 3]);
  ONDREL2::ondrel_set_params(inst, &fx, 1);
  std::vector<float> in(static_cast<size_t>(channels) * 1100), out(in.size() * 8);
  for (size_t i = 0; i < in.size(); ++i)
    in[i] = static_cast<float>(static_cast<int>(i % 61) - 30) / 40.0f;
  for (int call = 0; call < 3; ++call) {
    int available = 0, written = 0;
    ONDREL2::ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available);
    ONDREL2::ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
  }
  int available = 0;
  ONDREL2::ondrel_flush_to_buf(inst, &available);
  ONDREL2::ondrel_destroy_inst(inst);

  const bool leftBehind = access(clear.c_str(), F_OK) == 0;
  std::remove(clear.c_str());
  std::remove(path.c_str());
  return !leftBehind;
}

}  // namespace fuzz_resource

#ifndef ONDREL_FUZZ_RESOURCE_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  set_xlog_level(7);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz_resource::RunOnce(data, size)) __builtin_trap();
  return 0;
}
#endif
