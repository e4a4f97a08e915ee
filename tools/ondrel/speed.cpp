#include "speed.h"

#include <algorithm>
#include <cmath>

#include "common.h"
#include "ondrel.h"

namespace ondrel_tool {

namespace {

constexpr int kChunk = 4096;

void Check(int status, const char* what) {
  if (status != 0)
    Failure(Format("the play-speed controller failed in %s (status %d)", what, status));
}

int16_t ToInt16(float v) {
  const float scaled = std::round(v * 32768.0f);
  return static_cast<int16_t>(std::max(-32768.0f, std::min(32767.0f, scaled)));
}

}  // namespace

SpeedStage::SpeedStage(float speed, int rate, int channels, int bitsPerSample)
    : speed_(speed), channels_(channels), bits_(bitsPerSample) {
  if (!(speed > 0.0f) || !std::isfinite(speed))
    UsageError(Format("--speed must be a positive number, not %g", static_cast<double>(speed)));
  inst_ = ONDREL2::ondrel_create_inst();
  if (inst_ == nullptr) Failure("cannot create a processing instance for the speed change");
  Check(ONDREL2::ondrel_psctrl_init(inst_, static_cast<unsigned>(rate),
                                    static_cast<unsigned>(bitsPerSample),
                                    static_cast<unsigned>(channels), speed, 0),
        "set-up");
  planar_.assign(static_cast<size_t>(channels), std::vector<float>(kChunk * 4));
  for (auto& ch : planar_) pointers_.push_back(ch.data());
}

SpeedStage::~SpeedStage() { ONDREL2::ondrel_destroy_inst(inst_); }

void SpeedStage::Run(const float* in, int64_t frames, std::vector<float>* out) {
  for (int64_t done = 0; done < frames;) {
    const int n = static_cast<int>(std::min<int64_t>(kChunk, frames - done));
    for (int c = 0; c < channels_; ++c)
      for (int i = 0; i < n; ++i) planar_[c][i] = in[(done + i) * channels_ + c];
    int available = 0;
    Check(ONDREL2::ondrel_psctrl_input(inst_, pointers_, n, &available), "input");
    while (available > 0) {
      int got = 0;
      Check(ONDREL2::ondrel_psctrl_output(inst_, pointers_, kChunk * 4, &got), "output");
      if (got <= 0) break;
      for (int i = 0; i < got; ++i)
        for (int c = 0; c < channels_; ++c) out->push_back(planar_[c][i]);
      framesOut_ += got;
      available -= got;
    }
    done += n;
  }
}

void SpeedStage::Process(const float* in, int64_t frames, std::vector<float>* out) {
  framesIn_ += frames;
  Run(in, frames, out);
}

void SpeedStage::Process(const int16_t* in, int64_t frames, std::vector<int16_t>* out) {
  scratch_.resize(static_cast<size_t>(frames * channels_));
  for (size_t i = 0; i < scratch_.size(); ++i) scratch_[i] = in[i] * (1.0f / 32768.0f);
  std::vector<float> stretched;
  Process(scratch_.data(), frames, &stretched);
  for (float v : stretched) out->push_back(ToInt16(v));
}

void SpeedStage::Flush(std::vector<float>* out) {
  const int64_t want = static_cast<int64_t>(std::llround(static_cast<double>(framesIn_) / speed_));
  const std::vector<float> silence(static_cast<size_t>(kChunk) * channels_, 0.0f);
  // The stretcher holds well under a second; a few seconds of silence
  // always bring it out.
  for (int i = 0; i < 64 && framesOut_ < want; ++i) Run(silence.data(), kChunk, out);
  if (framesOut_ > want) {
    out->resize(out->size() - static_cast<size_t>((framesOut_ - want) * channels_));
    framesOut_ = want;
  }
}

void SpeedStage::Flush(std::vector<int16_t>* out) {
  std::vector<float> tail;
  Flush(&tail);
  for (float v : tail) out->push_back(ToInt16(v));
}

std::string SpeedStage::Report() const {
  const uint64_t outBytes =
      static_cast<uint64_t>(framesOut_) * static_cast<uint64_t>(channels_) * (bits_ / 8);
  uint64_t source = 0;
  const int status = ONDREL2::ondrel_psctrl_getActualBytes(inst_, outBytes, source);
  return Format("speed %g: %lld -> %lld frames; output byte %llu plays source byte %s (%d-bit)",
                static_cast<double>(speed_), static_cast<long long>(framesIn_),
                static_cast<long long>(framesOut_), static_cast<unsigned long long>(outBytes),
                status == 0 ? std::to_string(source).c_str() : "unknown", bits_);
}

}  // namespace ondrel_tool
