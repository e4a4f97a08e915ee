#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace ONDREL2 {

class ssrc_resampler;

// Sample-rate converter behind one interface.
//
// Samples are interleaved 32-bit floats; counts are samples over all
// channels. Init may be called again to start over with new rates; a failed
// Init leaves the object unable to produce anything. None of the
// implementations logs or keeps state outside the object.
class CResampler {
 public:
  virtual ~CResampler() = default;

  // Prepares a conversion from inRate to outRate (Hz) for `channels`
  // interleaved channels. `fast` picks the cheaper design where there is a
  // choice. False when the pair or the channel count cannot be served.
  virtual bool Init(int32_t inRate, int32_t outRate, int32_t channels, bool fast) = 0;

  // Converts `inputCount` samples and writes at most `outputCapacity`
  // samples; returns the number written.
  virtual int32_t Process(const float* input, int32_t inputCount, float* output,
                          int32_t outputCapacity) = 0;

  // Marks the end of the stream.
  virtual void Finish() = 0;
};

// Option keys of PolyphaseFilter::Setup; a list of options ends with key 0.
enum PolyphaseOptionKey {
  POLYPHASE_END = 0,
  POLYPHASE_GAIN = 1,    // linear gain, default 1.0
  POLYPHASE_CUTOFF = 2,  // corner as a fraction of the input Nyquist, default 1.0
  POLYPHASE_TAPS = 3,    // taps per phase before widening for rate reduction, default 45
  POLYPHASE_BETA = 4,    // Kaiser window beta, default 16.0
};

struct PolyphaseOption {
  int key;
  double value;  // integer options are truncated
};

// Polyphase FIR rate converter by the rational factor L/M (output/input
// rate after division by their common divisor), Kaiser-windowed sinc.
//
// The prototype low pass has T * L taps (T taps per phase) and is stored
// phase after phase, so that each output sample is a dot product of one
// contiguous row of T coefficients with the last T input samples. When the
// rate goes down, the corner moves to the output Nyquist and T grows by M/L.
//
// Delay: the history starts half full of zeros, which compensates the delay
// of the filter; the first output lands within a sample of the first input.
// Nothing is drained: the last T/2 or so input samples of a stream give no
// output, and a first call with fewer than T - T/2 - 1 frames gives no output
// and loses its samples.
//
// Streaming: a run continues exactly where the previous one stopped, as long
// as each call brings at least the few frames (M/L rounded up) that the last
// output step overshot; otherwise those frames are lost likewise.
//
// All channels share one phase and one history fill level; each has its own
// history. Run allocates nothing and is real-time safe. Setup allocates.
class PolyphaseFilter {
 public:
  // 0 on success; -1 on an unknown option key, a rate or channel count
  // below 1, a filter too large to hold, or allocation failure. A failed
  // setup leaves the filter empty.
  int Setup(int channels, int outRate, int inRate, const PolyphaseOption* options);

  // Converts `frames` interleaved frames of `input` to `output`, writing at
  // most `maxOutFrames` frames. Returns the frames written. Output frames
  // beyond maxOutFrames are computed away and lost.
  int Run(const float* input, int frames, float* output, int maxOutFrames);

  bool Ready() const { return taps > 0; }
  int Up() const { return up; }
  int Down() const { return down; }
  int Taps() const { return taps; }
  int Channels() const { return channels; }
  const std::vector<float>& Coefficients() const { return coefficients; }

 private:
  // Runs one channel from the given fill level and phase; returns the
  // frames computed (written or not), or -1 when the input could not fill
  // the history.
  int RunChannel(int channel, const float* input, int frames, float* output, int maxOutFrames,
                 int& fill, int& ph);

  int channels = 0;
  int down = 0;                     // M
  int up = 0;                       // L
  int taps = 0;                     // T
  std::vector<float> coefficients;  // L * T, phase after phase
  std::vector<float> history;       // T per channel
  int historyFill = 0;
  int phase = 0;
};

// Polyphase windowed-sinc converter for any pair of rates; used for impulse
// responses and as the default stream converter.
//
// Taps per phase: 35 for a rate ratio from 1/2 to 2, 40 from 1/4 to 4,
// 45 beyond. Latency and draining as for PolyphaseFilter. `fast` makes no
// difference. Finish does nothing. Process is real-time safe.
class CResampler_SRC : public CResampler {
 public:
  bool Init(int32_t inRate, int32_t outRate, int32_t channels, bool fast) override;

  // Returns 0 with no input or before a successful Init. Output that does
  // not fit `outputCapacity` is dropped, so the caller should provide
  // (frames * outRate / inRate + 1) * channels samples.
  int32_t Process(const float* input, int32_t inputCount, float* output,
                  int32_t outputCapacity) override;
  void Finish() override {}

  const PolyphaseFilter& Filter() const { return filter; }

 private:
  PolyphaseFilter filter;
  int channelCount = 2;
};

// High-quality two-stage converter (polyphase stage plus a long FFT-domain
// low pass) for rate pairs whose reduced ratio number is 1, even or a
// multiple of 3; see CreateSsrcResampler. Equal rates are refused.
//
// Latency: output is delay-compensated, but the converter holds back about
// one FFT block of input (1024 samples at the intermediate rate with the fast
// settings, 16384 otherwise) before it produces anything. Output that does not
// fit the caller's buffer waits for the next Process call. Finish drains the
// converter and throws the drained tail away. Process allocates while its
// buffers grow to their working size; afterwards it is real-time safe.
class CResampler_SSRC : public CResampler {
 public:
  CResampler_SSRC();
  ~CResampler_SSRC() override;

  bool Init(int32_t inRate, int32_t outRate, int32_t channels, bool fast) override;
  int32_t Process(const float* input, int32_t inputCount, float* output,
                  int32_t outputCapacity) override;
  void Finish() override;

  ssrc_resampler* Converter() const { return converter.get(); }

 private:
  std::unique_ptr<ssrc_resampler> converter;
};

}  // namespace ONDREL2
