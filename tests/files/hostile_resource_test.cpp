// Resource files that cannot serve, through the two effects that load wave
// resources (studio IR convolution and the sampler), over the public
// interface: missing, empty, truncated, claiming gigabytes, of channel
// counts the effect cannot use, not wave data at all, scrambled into
// garbage, and resource root lists full of entries that cannot be read.
// Each gives the dry signal (the convolver's dry signal comes after its
// latency) or, for a header that overstates a readable file, what the file
// holds; never a crash or a read outside the file's samples, and never a
// clear "-dec" copy left behind.
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

enum class Loader { kStudioIr, kSampler };

// Runs a stream through a new loader of `name`, with the log threshold at
// `logLevel` while the stream runs.
ondrel_test::StreamResult RunLoader(Loader loader, const std::string& name, int logLevel = 7,
                                    int channels = 2) {
  AEffect* fx = NewEffect(loader == Loader::kStudioIr ? EFFECT_STUDIO_IR : EFFECT_SAMPLER);
  SetText(fx, 0, name);
  set_xlog_level(logLevel);
  ondrel_test::StreamResult r =
      RunStream(fx, 44100.0f, channels, TestSignal(3000, channels, 44100.0f));
  set_xlog_level(7);
  return r;
}

// The output is the input, as it stands or (convolver) after its latency.
bool IsDry(const std::vector<float>& out, const std::vector<float>& in, int channels) {
  if (FirstDifference(out, in) == in.size()) return true;
  const size_t shift = static_cast<size_t>(kIrLatency * channels);
  if (out.size() < in.size()) return false;
  for (size_t i = 0; i + shift < in.size(); ++i)
    if (std::fabs(out[i] - in[i + shift]) > 1e-5f) return false;
  return true;
}

bool AllFinite(const std::vector<float>& v) {
  for (float x : v)
    if (!std::isfinite(x)) return false;
  return true;
}

struct HostileResource : EffectTest {
  ResourceRoot root;
};

TEST_F(HostileResource, BrokenFilesGiveTheDrySignalAndLeaveNoClearCopy) {
  std::vector<float> stereo(2 * 400);
  for (size_t i = 0; i < stereo.size(); ++i) stereo[i] = i < 2 ? 0.5f : 0.0f;
  root.WriteWave("good.wav", 44100, 2, stereo);
  const std::vector<uint8_t> good = ReadBytes(root.File("good.wav"));
  ASSERT_GT(good.size(), 100u);

  ASSERT_TRUE(WriteBytes(root.File("empty.wav"), {}));
  ASSERT_TRUE(WriteBytes(root.File("half-header.wav"), {good.begin(), good.begin() + 30}));
  ASSERT_TRUE(WriteBytes(root.File("header-only.wav"), {good.begin(), good.begin() + 44}));
  ASSERT_TRUE(WriteBytes(root.File("text.wav"), std::vector<uint8_t>(3000, 'a')));
  std::vector<uint8_t> riffNoWave = good;
  std::memcpy(&riffNoWave[8], "AVI ", 4);
  ASSERT_TRUE(WriteBytes(root.File("riff.wav"), riffNoWave));
  // Garbage that was "scrambled": its clear copy is garbage too.
  ASSERT_TRUE(WriteBytes(root.File("garbage.wav"), std::vector<uint8_t>(777, 0xC3)));
  root.Scramble("garbage.wav");
  // A directory where a file is expected.
  ASSERT_EQ(mkdir(root.File("folder.wav").c_str(), 0755), 0);

  const std::vector<float> x = TestSignal(3000, 2, 44100.0f);
  for (Loader loader : {Loader::kStudioIr, Loader::kSampler}) {
    for (const char* name :
         {"missing.wav", "empty.wav", "half-header.wav", "header-only.wav", "text.wav", "riff.wav",
          "garbage.wav", "folder.wav", "", "../../../../../../nonexistent.wav"}) {
      LogCapture log(4);
      const StreamResult r = RunLoader(loader, name, 4);
      EXPECT_EQ(r.status, ONDREL_OK) << name;
      EXPECT_TRUE(IsDry(r.output, x, 2)) << name << " loader " << static_cast<int>(loader);
      // A bare header opens (and holds no frames); the others do not open
      // clear or descrambled.
      if (std::string(name) != "header-only.wav") {
        EXPECT_TRUE(log.Has("[ON2L]:SetFilePathUTF8(0): " + root.File(name))) << name;
        EXPECT_TRUE(log.Has("[ON2L]:SetFilePathUTF8(0): " + root.File(name) + "-dec")) << name;
        if (loader == Loader::kSampler) {
          EXPECT_TRUE(log.Has("[ON2L]:SetFilePathUTF8 Failed!"));
        }
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
  ASSERT_EQ(U32At(bytes, dataSizeAt - 4), 0x61746164u);  // "data"
  const std::vector<float> x = TestSignal(3000, 2, 44100.0f);
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  for (uint32_t claim : {0x7FFFFFF8u, 0xFFFFFFF8u, 0x80000000u}) {
    std::memcpy(&bytes[dataSizeAt], &claim, 4);
    ASSERT_TRUE(WriteBytes(root.File("claims.wav"), bytes));
    for (Loader loader : {Loader::kStudioIr, Loader::kSampler}) {
      const StreamResult r = RunLoader(loader, "claims.wav");
      EXPECT_EQ(r.status, ONDREL_OK) << claim;
      EXPECT_GE(r.output.size(), x.size());
      EXPECT_TRUE(AllFinite(r.output)) << claim;
    }
  }
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  // Peak resident memory (kB) grew by far less than one claimed gigabyte.
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 512 * 1024);
  EXPECT_TRUE(root.ClearCopies().empty());
}

// Channel counts beyond what a loader uses: the convolver takes one, two or
// four; the sampler mixes stereo files only, and a mono file would be read
// at a stride of two. Other files give the dry signal; nothing is read
// outside the loaded samples (the sanitizer build sees to that).
TEST_F(HostileResource, ChannelCountsTheLoadersCannotUse) {
  const std::vector<float> x = TestSignal(3000, 2, 44100.0f);
  for (int channels : {1, 3, 6, 8}) {
    std::vector<float> samples(static_cast<size_t>(channels) * 500, 0.0f);
    for (int c = 0; c < channels; ++c) samples[static_cast<size_t>(c)] = 0.5f;
    const std::string name = "ch" + std::to_string(channels) + ".wav";
    root.WriteWave(name, 44100, channels, samples);
    const StreamResult sampler = RunLoader(Loader::kSampler, name);
    EXPECT_EQ(sampler.status, ONDREL_OK) << channels;
    EXPECT_TRUE(IsDry(sampler.output, x, 2)) << channels << " channels";
    const StreamResult ir = RunLoader(Loader::kStudioIr, name);
    EXPECT_EQ(ir.status, ONDREL_OK) << channels;
    EXPECT_TRUE(AllFinite(ir.output)) << channels;
    EXPECT_GE(ir.output.size(), x.size()) << channels;
  }
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
  std::vector<float> ir(2 * 64, 0.0f);
  ir[0] = 1.0f;  // left: identity
  ir[1] = 0.5f;  // right: half
  {
    WaveFile w;
    ASSERT_TRUE(w.SetFilePathUTF8((good + "id.wav").c_str(), true, false));
    w.SetChannels(2);
    w.SetSampleRate(44100);
    w.SetSampleFormat(SF_FLOAT32);
    w.SetupDone();
    w.WriteFrames(ir.data(), 64);
  }
  ASSERT_TRUE(WriteBytes(root.File("plain-file"), {1, 2, 3}));
  const std::string longRoot = "/" + std::string(5000, 'r') + "/";
  const std::string plainFile = root.File("plain-file") + "/";
  const char* roots[] = {"/nonexistent-root/", plainFile.c_str(), longRoot.c_str(), "",
                         good.c_str()};
  ASSERT_EQ(ondrel_set_resource_root(roots, 5), ONDREL_OK);

  const std::vector<float> x = TestSignal(3000, 2, 44100.0f);
  for (Loader loader : {Loader::kStudioIr, Loader::kSampler}) {
    LogCapture log(4);
    const StreamResult r = RunLoader(loader, "id.wav", 4);
    EXPECT_EQ(r.status, ONDREL_OK);
    EXPECT_TRUE(log.Has("[ON2L]:SetFilePathUTF8(1): " + good + "id.wav"));
    EXPECT_FALSE(IsDry(r.output, x, 2)) << "the last root serves the file";
    const StreamResult missing = RunLoader(loader, "none.wav");
    EXPECT_TRUE(IsDry(missing.output, x, 2));
  }

  // A scrambled file in a root where the clear copy cannot be written
  // (a root that names a file, so that nothing can be created below it).
  const std::string scrambled = good + "s.wav";
  ASSERT_TRUE(decrypt_file((good + "id.wav").c_str(), scrambled.c_str()));
  const std::string blocked = good + "s.wav/";
  const char* blockedRoots[] = {blocked.c_str()};
  ondrel_set_resource_root(blockedRoots, 1);
  for (Loader loader : {Loader::kStudioIr, Loader::kSampler}) {
    const StreamResult r = RunLoader(loader, "x.wav");
    EXPECT_EQ(r.status, ONDREL_OK);
    EXPECT_TRUE(IsDry(r.output, x, 2));
  }
  // The same file through a good root loads through its clear copy, which
  // goes again.
  const char* goodRoots[] = {good.c_str()};
  ondrel_set_resource_root(goodRoots, 1);
  for (Loader loader : {Loader::kStudioIr, Loader::kSampler}) {
    const StreamResult r = RunLoader(loader, "s.wav");
    EXPECT_FALSE(IsDry(r.output, x, 2));
    EXPECT_FALSE(FileExists(good + "s.wav-dec"));
  }
  // An over-long name through an over-long root.
  const char* longRoots[] = {longRoot.c_str()};
  ondrel_set_resource_root(longRoots, 1);
  for (Loader loader : {Loader::kStudioIr, Loader::kSampler}) {
    const StreamResult r = RunLoader(loader, std::string(250, 'n'));
    EXPECT_EQ(r.status, ONDREL_OK);
    EXPECT_TRUE(IsDry(r.output, x, 2));
  }
}

}  // namespace
