// Resource files that cannot serve, through the two effects that load wave
// resources (studio IR convolution and the sampler): the dry signal or, for
// a header that overstates a readable file, what the file holds; never a
// read outside the file (the sanitizer build sees to that), never a clear
// "-dec" copy left behind.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "effects/effect_test_util.h"
#include "effects/resource_effect_util.h"
#include "files/file_test_util.h"
#include "support/log_capture.h"

using namespace ONDREL2;
using namespace ondrel_test;

namespace {

constexpr int kIrLatency = 255;
const ONDREL_EFFECT_TYPE kLoaders[] = {EFFECT_STUDIO_IR, EFFECT_SAMPLER};

// Runs a stereo stream through a new loader of `name` and checks its status
// and finite output; true when the output is the input, as it stands or
// (convolver) after its latency.
bool RunsDry(ONDREL_EFFECT_TYPE loader, const std::string& name, int logLevel = 7) {
  AEffect* fx = NewEffect(loader);
  SetText(fx, 0, name);
  set_xlog_level(logLevel);
  const std::vector<float> in = TestSignal(3000, 2, 44100.0f);
  const StreamResult r = RunStream(fx, 44100.0f, 2, in);
  set_xlog_level(7);
  EXPECT_EQ(r.status, ONDREL_OK) << name;
  EXPECT_GE(r.output.size(), in.size()) << name;
  for (float v : r.output)
    if (!std::isfinite(v)) ADD_FAILURE() << name << ": output not finite";
  if (FirstDifference(r.output, in) == in.size()) return true;
  for (size_t i = 0; i + kIrLatency * 2 < in.size() && i < r.output.size(); ++i)
    if (std::fabs(r.output[i] - in[i + kIrLatency * 2]) > 1e-5f) return false;
  return true;
}

struct HostileResource : EffectTest {
  ResourceRoot root;
};

// Files that are missing, empty, truncated, not wave data, scrambled
// garbage, a directory; and channel counts beyond what a loader uses (the
// sampler mixes stereo files only; the convolver takes one, two or four and
// must at least stay finite). Each gives the dry signal, and no clear copy
// stays behind.
TEST_F(HostileResource, BrokenFilesAndUnusableChannelCountsGiveTheDrySignal) {
  std::vector<float> stereo(2 * 400, 0.0f);
  stereo[0] = stereo[1] = 0.5f;
  root.WriteWave("good.wav", 44100, 2, stereo);
  const std::vector<uint8_t> good = ReadBytes(root.File("good.wav"));
  ASSERT_TRUE(WriteBytes(root.File("empty.wav"), {}));
  ASSERT_TRUE(WriteBytes(root.File("half-header.wav"), {good.begin(), good.begin() + 30}));
  ASSERT_TRUE(WriteBytes(root.File("header-only.wav"), {good.begin(), good.begin() + 44}));
  ASSERT_TRUE(WriteBytes(root.File("text.wav"), std::vector<uint8_t>(3000, 'a')));
  std::vector<uint8_t> riffNoWave = good;
  std::memcpy(&riffNoWave[8], "AVI ", 4);
  ASSERT_TRUE(WriteBytes(root.File("riff.wav"), riffNoWave));
  ASSERT_TRUE(WriteBytes(root.File("garbage.wav"), std::vector<uint8_t>(777, 0xC3)));
  root.Scramble("garbage.wav");  // its clear copy is garbage too
  ASSERT_EQ(mkdir(root.File("folder.wav").c_str(), 0755), 0);
  for (int channels : {1, 3, 6, 8}) {
    std::vector<float> samples(static_cast<size_t>(channels) * 500, 0.0f);
    for (int c = 0; c < channels; ++c) samples[static_cast<size_t>(c)] = 0.5f;
    root.WriteWave("ch" + std::to_string(channels) + ".wav", 44100, channels, samples);
  }
  for (ONDREL_EFFECT_TYPE loader : kLoaders) {
    for (const char* name :
         {"missing.wav", "empty.wav", "half-header.wav", "header-only.wav", "text.wav", "riff.wav",
          "garbage.wav", "folder.wav", "", "../../../../../../nonexistent.wav", "ch1.wav",
          "ch3.wav", "ch6.wav", "ch8.wav"}) {
      const bool dry = RunsDry(loader, name);
      if (loader == EFFECT_SAMPLER || std::string(name).rfind("ch", 0) != 0) {
        EXPECT_TRUE(dry) << name << " loader " << loader;
      }
      EXPECT_TRUE(root.ClearCopies().empty()) << name;
    }
  }
}

// Headers that claim far more than the file holds: gigabytes of data, and
// frame counts that overflow 32 bits. The loaders take what is there
// without reserving what is claimed.
TEST_F(HostileResource, HeadersClaimingGigabytesReserveNothing) {
  std::vector<float> stereo(2 * 300, 0.0f);
  stereo[0] = stereo[1] = 0.25f;
  root.WriteWave("claims.wav", 44100, 2, stereo);
  std::vector<uint8_t> bytes = ReadBytes(root.File("claims.wav"));
  const size_t dataSizeAt = bytes.size() - 2400 - 4;
  ASSERT_EQ(std::memcmp(&bytes[dataSizeAt - 4], "data", 4), 0);
  rusage before{}, after{};
  getrusage(RUSAGE_SELF, &before);
  for (uint32_t claim : {0x7FFFFFF8u, 0xFFFFFFF8u, 0x80000000u}) {
    std::memcpy(&bytes[dataSizeAt], &claim, 4);
    ASSERT_TRUE(WriteBytes(root.File("claims.wav"), bytes));
    for (ONDREL_EFFECT_TYPE loader : kLoaders) RunsDry(loader, "claims.wav");
  }
  getrusage(RUSAGE_SELF, &after);
  // Peak resident memory (kB) grew by far less than one claimed gigabyte.
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 512 * 1024);
  EXPECT_TRUE(root.ClearCopies().empty());
}

// Root lists with entries that cannot serve: missing directories, a plain
// file, an over-long root, an unwritable one for a scrambled file. The
// first root that opens wins; the clear copy of a scrambled file is never
// left behind, also where it cannot be written.
TEST_F(HostileResource, RootListsWithUnreadableEntries) {
  ScratchDir other;
  ASSERT_TRUE(other.ok());
  const std::string good = other.path() + "/";
  ResourceRoot ir;  // writes through the library: left identity, right half
  std::vector<float> taps(2 * 64, 0.0f);
  taps[0] = 1.0f;
  taps[1] = 0.5f;
  ir.WriteWave("id.wav", 44100, 2, taps);
  ASSERT_TRUE(WriteBytes(good + "id.wav", ReadBytes(ir.File("id.wav"))));
  ASSERT_TRUE(decrypt_file((good + "id.wav").c_str(), (good + "s.wav").c_str()));
  ASSERT_TRUE(WriteBytes(root.File("plain-file"), {1, 2, 3}));
  const std::string longRoot = "/" + std::string(5000, 'r') + "/";
  const std::string plainFile = root.File("plain-file") + "/", blocked = good + "s.wav/";
  struct {
    std::vector<const char*> roots;
    std::string name;
    bool dry;
  } cases[] = {
      {{"/nonexistent-root/", plainFile.c_str(), longRoot.c_str(), "", good.c_str()},
       "id.wav",
       false},
      {{"/nonexistent-root/", good.c_str()}, "none.wav", true},
      // A root that names a file: the clear copy cannot be written below it.
      {{blocked.c_str()}, "x.wav", true},
      // Through a good root the scrambled file loads through its clear copy.
      {{good.c_str()}, "s.wav", false},
      {{longRoot.c_str()}, std::string(250, 'n'), true},
  };
  for (auto& c : cases) {
    ASSERT_EQ(ondrel_set_resource_root(c.roots.data(), static_cast<int>(c.roots.size())),
              ONDREL_OK);
    for (ONDREL_EFFECT_TYPE loader : kLoaders) {
      LogCapture log(4);
      EXPECT_EQ(RunsDry(loader, c.name, 4), c.dry) << c.name.substr(0, 20) << " loader " << loader;
      if (!c.dry) {
        EXPECT_TRUE(log.Has("[ON2L]:SetFilePathUTF8(1): " + good + c.name +
                            (c.name == "s.wav" ? "-dec" : "")));
      }
      EXPECT_FALSE(FileExists(good + "s.wav-dec"));
    }
  }
}

}  // namespace
