// Replays every checked-in fuzz corpus through its entry point, so that each
// build, the sanitizer build in particular, runs the inputs the campaigns
// found interesting: hostile expressions and scripts, damaged parameter
// streams and wave files, resource files through the loaders, room data
// through a failing stream reader, chains of every type with raw parameter
// bits, and broken presets. The entry points trap or return false on a
// broken invariant; memory errors are left to the sanitizers.
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/script_fuzz_targets.h"
#define ONDREL_FUZZ_PARAM_STREAM_NO_ENTRY
#include "fuzz/fuzz_param_stream.cpp"
#define FUZZ_WAVE_DIR ONDREL_TEST_BINARY_DIR
#include "fuzz/fuzz_wave.cpp"
#define FUZZ_RESOURCE_DIR ONDREL_TEST_BINARY_DIR
#define ONDREL_FUZZ_RESOURCE_NO_ENTRY
#include "fuzz/fuzz_resource.cpp"
#define ONDREL_FUZZ_ROOM_NO_ENTRY
#include "fuzz/fuzz_room.cpp"
#define ONDREL_FUZZ_PARAMS_NO_ENTRY
#include "fuzz/fuzz_params.cpp"
#define ONDREL_FUZZ_PRESET_NO_ENTRY
#include "fuzz/fuzz_preset.cpp"

namespace {

using Body = bool (*)(const uint8_t*, size_t);

// Every file of tests/fuzz/<kind>/<target>, each as an exact-size heap copy
// so that a read past its end is caught. The corpora are rewritten by every
// campaign; inputs that once found a fault stay in regressions/.
int Replay(const std::string& kind, const std::string& target, Body body) {
  const std::string dir = std::string(ONDREL_TEST_SOURCE_DIR) + "/fuzz/" + kind + "/" + target;
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return -1;
  int count = 0;
  while (const dirent* e = readdir(d)) {
    if (e->d_name[0] == '.') continue;
    std::ifstream f(dir + "/" + e->d_name, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(f)),
                                  std::istreambuf_iterator<char>());
    std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    exact.shrink_to_fit();
    EXPECT_TRUE(body(exact.data(), exact.size())) << target << "/" << e->d_name;
    ++count;
  }
  closedir(d);
  return count;
}

TEST(FuzzCorpus, EveryTargetSurvivesItsCorpus) {
  set_xlog_level(7);
  ONDREL2::ondrel_init(nullptr);
  const struct {
    const char* target;
    Body body;
  } targets[] = {
      {"fuzz_expression", ondrel_fuzz::FuzzExpression},
      {"fuzz_script", ondrel_fuzz::FuzzScript},
      // These two trap inside; their results are statuses, not verdicts.
      {"fuzz_param_stream",
       [](const uint8_t* d, size_t n) { return fuzz_param_stream::RunOnce(d, n), true; }},
      {"fuzz_wave", [](const uint8_t* d, size_t n) { return fuzz_wave::RunOnce(d, n), true; }},
      {"fuzz_resource", fuzz_resource::RunOnce},
      {"fuzz_room", fuzz_room::RunOnce},
      {"fuzz_params", fuzz_params::RunOnce},
      {"fuzz_preset", fuzz_preset::RunOnce},
  };
  for (const auto& t : targets) {
    EXPECT_GT(Replay("corpus", t.target, t.body), 0) << t.target;
    Replay("regressions", t.target, t.body);
  }

  // Nesting and length beyond anything the corpus holds.
  for (const char c : {'(', '-'}) {
    const std::string deep = std::string(20000, c) + "1";
    EXPECT_TRUE(
        ondrel_fuzz::FuzzExpression(reinterpret_cast<const uint8_t*>(deep.data()), deep.size()));
  }
}

}  // namespace
