// Real-time factor of the headphone room simulation at 44.1 kHz, stereo and
// 5.1 input, at its defaults (the live room) and in the reference room, fed
// through the public float interface in buffers of 1024 frames.
// The rooms are read from $ONDREL_ROOMS_DIR, else from the build tree's set
// (../share/ondrel/rooms from the binary); missing rooms cost the same, as
// the engine convolves with zeros then.
// Counter "rtf": seconds of audio processed per second of CPU time.
// scripts/bench-peers-headphone.sh times FFmpeg's sofalizer for comparison.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "ondrel.h"

namespace {

using namespace ONDREL2;

constexpr float kRate = 44100.0f;
constexpr int kFrames = 1024;

std::string RoomsDir() {
  static const std::string dir = [] {
    if (const char* env = std::getenv("ONDREL_ROOMS_DIR")) return std::string(env);
    char exe[4096];
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    std::string path = n > 0 ? std::string(exe, static_cast<size_t>(n)) : std::string();
    path = path.substr(0, path.rfind('/') + 1);
    return path + "../share/ondrel/rooms";
  }();
  return dir;
}

void* OpenRoom(const char* name) { return std::fopen((RoomsDir() + "/" + name).c_str(), "rb"); }
void CloseRoom(void* h) { std::fclose(static_cast<std::FILE*>(h)); }
int ReadRoom(void* h, void* buffer, int size) {
  return static_cast<int>(
      std::fread(buffer, 1, static_cast<size_t>(size), static_cast<std::FILE*>(h)));
}
int SeekRoom(void*, long, int) { return 0; }
long TellRoom(void*, uint32_t*) { return 0; }
const ONDREL_STREAM_READER kRooms = {&OpenRoom, &CloseRoom, &ReadRoom, &SeekRoom, &TellRoom};

void Headphone(benchmark::State& state, int channels, float room) {
  set_xlog_level(7);
  ondrel_init(&kRooms);
  AEffect* fx = nullptr;
  if (ondrel_create_effect(EFFECT_HEADPHONE, &fx) != 0) {
    state.SkipWithError("effect not available");
    return;
  }
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, room);
  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, channels, 0);
  ondrel_set_samplerate(inst, kRate);
  if (ondrel_set_params(inst, &fx, 1) != 0) {
    state.SkipWithError("chain not configured");
    ondrel_destroy_inst(inst);
    return;
  }
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> u(-0.3f, 0.3f);
  std::vector<float> in(static_cast<size_t>(kFrames * channels)), out(2 * kFrames * 2);
  for (float& v : in) v = u(rng);
  for (auto _ : state) {
    int available = 0, written = 0;
    ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available);
    ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.counters["rtf"] = benchmark::Counter(kFrames / static_cast<double>(kRate),
                                             benchmark::Counter::kIsIterationInvariantRate);
  ondrel_destroy_inst(inst);
  ondrel_init(nullptr);
}

BENCHMARK_CAPTURE(Headphone, stereo_defaults, 2, 2.0f);
BENCHMARK_CAPTURE(Headphone, stereo_reference_room, 2, 1.0f);
BENCHMARK_CAPTURE(Headphone, surround51_defaults, 6, 2.0f);
BENCHMARK_CAPTURE(Headphone, surround51_movie_theater, 6, 3.0f);

}  // namespace

BENCHMARK_MAIN();
