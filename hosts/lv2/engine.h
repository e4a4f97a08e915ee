// One configured processing instance of the plugin with the queues that
// turn the library's block rhythm into the host's frame-for-frame run().
// Built and destroyed outside the audio thread; Run() allocates nothing.
#ifndef ONDREL_LV2_ENGINE_H
#define ONDREL_LV2_ENGINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "ondrel.h"
#include "plugin_catalogue.h"

namespace ondrel_lv2 {

// What an engine is built from: the control values in port order and the
// paths of the path parameters (the preset file for the chain plugin).
struct Settings {
  std::vector<float> values;
  std::vector<std::string> paths;
};

class Engine {
 public:
  // Frames handed to the library per call inside Run().
  static constexpr int kChunk = 256;

  // Builds the instance and measures its delay. On failure `error` says why
  // and the engine passes audio through (a chain without effects).
  Engine(const Variant& variant, const Layout& layout, float rate, const Settings& settings);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  const std::string& error() const { return error_; }
  const Settings& settings() const { return settings_; }
  // Frames between an input frame and its output: the block wait plus the
  // effects' own delay.
  int latency() const { return latency_; }
  int outChannels() const { return outChannels_; }

  // Applies control port values that changed since the last call (the
  // library's on-the-fly path: the effect updates before its next block).
  void ApplyControls(const float* const* ports, size_t count);
  // Processes `frames` frames from `in` (null entries read as silence) into
  // `out` (`outCount` ports; null entries are skipped).
  void Run(const float* const* in, float* const* out, int outCount, uint32_t frames);
  // Forgets queued audio (at activation): the output restarts after the
  // reported latency.
  void Reset();

 private:
  void* MakeInstance(const Variant& variant, float rate, std::string* error);
  void Measure();
  void Push(const float* frames, int count);
  // Moves `available` output samples of the instance into the queue.
  void Pull(int available);

  const Layout& layout_;
  Settings settings_;
  std::string error_;
  void* inst_ = nullptr;
  ONDREL2::AEffect* effect_ = nullptr;  // the running effect, owned by inst_
  bool passThrough_ = false;            // nothing runs: copy input to output
  int outChannels_ = 2;
  int delay_ = 0;            // frames of block wait that the output queue starts with
  int latency_ = 0;          // delay_ plus the effects' own delay
  std::vector<float> in_;    // one interleaved chunk
  std::vector<float> pull_;  // interleaved output of one library call
  std::vector<float> ring_;  // interleaved output queue
  size_t ringFrames_ = 0, head_ = 0, count_ = 0;
};

}  // namespace ondrel_lv2

#endif  // ONDREL_LV2_ENGINE_H
