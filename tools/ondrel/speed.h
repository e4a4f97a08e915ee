// Tempo change without a change of pitch for `ondrel process --speed`,
// through the library's play-speed controller on an instance of its own.
#ifndef ONDREL_TOOL_SPEED_H
#define ONDREL_TOOL_SPEED_H

#include <cstdint>
#include <string>
#include <vector>

namespace ondrel_tool {

class SpeedStage {
 public:
  // `bitsPerSample` sizes the byte positions that the report gives.
  SpeedStage(float speed, int rate, int channels, int bitsPerSample);
  ~SpeedStage();
  SpeedStage(const SpeedStage&) = delete;
  SpeedStage& operator=(const SpeedStage&) = delete;

  // Appends the stretched output of `frames` interleaved frames to `out`.
  void Process(const float* in, int64_t frames, std::vector<float>* out);
  void Process(const int16_t* in, int64_t frames, std::vector<int16_t>* out);
  // Pushes silence until the stretcher has given out everything it held,
  // then cuts the stream to the input's length divided by the speed.
  void Flush(std::vector<float>* out);
  void Flush(std::vector<int16_t>* out);

  // "speed 1.25: 44100 -> 35280 frames; output byte 141120 plays source
  // byte 176400 (16-bit)".
  std::string Report() const;

 private:
  void Run(const float* in, int64_t frames, std::vector<float>* out);

  void* inst_ = nullptr;
  float speed_;
  int channels_;
  int bits_;
  int64_t framesIn_ = 0;
  int64_t framesOut_ = 0;
  std::vector<std::vector<float>> planar_;
  std::vector<float*> pointers_;
  std::vector<float> scratch_;
};

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_SPEED_H
