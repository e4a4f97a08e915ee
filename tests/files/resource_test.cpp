// Resource scrambling, clear copies and path helpers. The reference scramble
// below is written from the index rule alone; the checked-in key table is
// compared with the output of its generator script.
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files/file_test_util.h"
#include "files/resource.h"
#include "ondrel.h"
#include "support/log_capture.h"

namespace {

using namespace ONDREL2;
using ondrel_test::FileExists;
using ondrel_test::LogCapture;
using ondrel_test::ReadBytes;
using ondrel_test::ScratchDir;
using ondrel_test::WriteBytes;

// Byte p of every 0x80000-byte block is XORed with key[(m*m + 61357) % 256],
// m = p for p <= 32767, else p % 32767.
std::vector<uint8_t> ReferenceScramble(std::vector<uint8_t> bytes) {
  const uint8_t* key = ScrambleKeyTable();
  for (size_t i = 0; i < bytes.size(); ++i) {
    const uint64_t p = i % 524288;
    const uint64_t m = p > 32767 ? p - 32767 * (p / 32767) : p;
    bytes[i] ^= key[(m * m + 61357) & 255];
  }
  return bytes;
}

// The captured log as (level, text) pairs.
std::vector<std::pair<int, std::string>> Logged() {
  std::vector<std::pair<int, std::string>> out;
  for (const ondrel_test::LogLine& l : ondrel_test::CapturedLog())
    out.emplace_back(l.level, l.text);
  return out;
}

// Buffers and file copies against the reference, across the index wrap at
// 32767 and the block restart; scrambling twice gives the source back.
TEST(Scramble, BuffersAndFileCopiesMatchTheReferenceAndAreInvolutions) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  std::mt19937 rng(7);
  const std::string source = dir.File("res.bin"), scrambled = source + ".scr";
  const std::string back = scrambled + "-dec";
  LogCapture log;
  for (size_t n : {size_t{0}, size_t{1}, size_t{32767}, size_t{32768}, size_t{100003},
                   size_t{0x80000}, size_t{0x80001}, size_t{2 * 0x80000 + 7}}) {
    SCOPED_TRACE("length " + std::to_string(n));
    std::vector<uint8_t> clear(n);
    for (auto& b : clear) b = static_cast<uint8_t>(rng());
    const std::vector<uint8_t> want = ReferenceScramble(clear);
    std::vector<uint8_t> data = clear;
    ScrambleBuffer(data.data(), data.size());
    EXPECT_EQ(data, want);
    EXPECT_TRUE(n < 64 || data != clear);
    ScrambleBuffer(data.data(), data.size());
    EXPECT_EQ(data, clear);

    ASSERT_TRUE(WriteBytes(source, clear));
    ASSERT_TRUE(decrypt_file(source.c_str(), scrambled.c_str()));
    EXPECT_TRUE(FileExists(scrambled));  // also for an empty source
    EXPECT_EQ(ReadBytes(scrambled), want);
    ASSERT_TRUE(decrypt_file(scrambled.c_str(), back.c_str()));
    EXPECT_EQ(ReadBytes(back), clear);
    EXPECT_EQ(ScrambleFile(back.c_str(), scrambled.c_str()), ScrambleStatus::kOk);
    EXPECT_EQ(ReadBytes(scrambled), want);
  }
  EXPECT_TRUE(log.lines().empty());

  // Failures: null paths say nothing; a missing source or an unwritable
  // target is logged with the target's name.
  const std::string target = dir.File("out-dec"), noDir = dir.File("no/such/dir-dec");
  EXPECT_FALSE(decrypt_file(nullptr, target.c_str()));
  EXPECT_FALSE(decrypt_file(source.c_str(), nullptr));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(decrypt_file(dir.File("missing").c_str(), target.c_str()));
  EXPECT_FALSE(FileExists(target));
  EXPECT_FALSE(decrypt_file(source.c_str(), noDir.c_str()));
  const std::vector<std::pair<int, std::string>> failures = {
      {6, "[ON2L]:Decrypt_file " + target + ", read failed!"},
      {6, "[ON2L]:Decrypt_file " + noDir + ", write failed!"}};
  EXPECT_EQ(Logged(), failures);
  remove_utf8(source.c_str());
  EXPECT_FALSE(FileExists(source));
  remove_utf8(nullptr);
}

TEST(PathHelpers, BackslashesBecomeSlashesInPlaceOrInACopy) {
  char text[] = "a\\b\\\\c\\";
  EXPECT_EQ(xplatform_pathname(text, true), text);
  EXPECT_STREQ(text, "a/b//c/");
  EXPECT_EQ(xplatform_pathname(nullptr, true), nullptr);
  char original[] = "C:\\music\\room.wav";
  for (char* source : {original, static_cast<char*>(nullptr)}) {
    char* copy = xplatform_pathname(source, false);  // a null source copies as ""
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, original);
    EXPECT_STREQ(copy, source != nullptr ? "C:/music/room.wav" : "");
    std::free(copy);
  }
  EXPECT_STREQ(original, "C:\\music\\room.wav");
}

// The clear-copy route: roots in order, the plain file first, then the
// "-dec" copy of a scrambled one, which the caller removes after loading.
TEST(ResourceWave, RootsAreTriedInOrderAndScrambledFilesLoadThroughAClearCopy) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  const std::string rootA = dir.File("a/"), rootB = dir.File("b/");
  ASSERT_EQ(std::system(("mkdir -p '" + rootA + "' '" + rootB + "'").c_str()), 0);

  ondrel_test::WaveShape shape;
  shape.frames = 12;
  const std::vector<uint8_t> wave = ondrel_test::MakeWave(shape);
  // In root a: a file of that name that is no wave, and scrambled no wave.
  ASSERT_TRUE(WriteBytes(rootA + "room.wav", std::vector<uint8_t>(100, 0x33)));
  // In root b: the wave, scrambled.
  ASSERT_TRUE(WriteBytes(rootB + "room.wav", ReferenceScramble(wave)));
  LogCapture log;
  const char* roots[] = {rootA.c_str(), rootB.c_str()};
  ASSERT_EQ(ondrel_set_resource_root(roots, 2), 0);
  log.clear();
  {
    WaveFile w;
    std::string clearCopy;
    ASSERT_TRUE(OpenResourceWave("room.wav", &w, &clearCopy));
    EXPECT_EQ(clearCopy, rootB + "room.wav-dec");
    EXPECT_EQ(w.GetTotalFrames(), 12u);
    std::vector<uint8_t> frames(48);
    EXPECT_EQ(w.ReadFrames(static_cast<void*>(frames.data()), 12), 12);
    EXPECT_TRUE(std::equal(frames.begin(), frames.end(), wave.end() - 48));
    // The useless clear copy in root a is gone already.
    EXPECT_FALSE(FileExists(rootA + "room.wav-dec"));
    EXPECT_TRUE(FileExists(clearCopy));
    w.SetFilePathUTF8(nullptr, false, false);  // closes
    remove_utf8(clearCopy.c_str());
    EXPECT_FALSE(FileExists(clearCopy));
  }
  const std::vector<std::pair<int, std::string>> expected = {
      {4, "[ON2L]:SetFilePathUTF8(0): " + rootA + "room.wav"},
      {4, "[ON2L]:SetFilePathUTF8(0): " + rootA + "room.wav-dec"},
      {4, "[ON2L]:SetFilePathUTF8(0): " + rootB + "room.wav"},
      {4, "[ON2L]:SetFilePathUTF8(1): " + rootB + "room.wav-dec"},
  };
  EXPECT_EQ(Logged(), expected);

  // A clear wave in the first root wins without a copy.
  ASSERT_TRUE(WriteBytes(rootA + "room.wav", wave));
  {
    WaveFile w;
    std::string clearCopy = "stale";
    ASSERT_TRUE(OpenResourceWave("room.wav", &w, &clearCopy));
    EXPECT_EQ(clearCopy, "");
  }

  // Nothing anywhere: every root and the bare name are tried, then the
  // failure is logged.
  log.clear();
  {
    WaveFile w;
    std::string clearCopy;
    EXPECT_FALSE(OpenResourceWave("absent.wav", &w, &clearCopy));
    EXPECT_EQ(log.lines().size(), 10u);  // 3 per root, then the failure
    EXPECT_EQ(Logged().back(), std::make_pair(6, std::string("[ON2L]:SetFilePathUTF8 Failed!")));
  }
  ondrel_set_resource_root(nullptr, 0);
}

}  // namespace
