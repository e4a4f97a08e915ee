#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/resampler_fft.h"

namespace ONDREL2 {

// Streaming interface of the two-stage converters: interleaved floats go in
// through Write, converted samples collect in an output buffer that the
// caller reads from the head. Counts are samples over all channels.
class ssrc_resampler {
 public:
  virtual ~ssrc_resampler() = default;

  // Appends input and converts what can be converted. False when the input
  // buffer could not grow; the samples are then not taken.
  virtual bool Write(const float* samples, int count) = 0;
  // Marks the end of input and drains the converter into the output.
  virtual void Finish() = 0;
  virtual int GetDataInBuffer() const = 0;
  // Address of the waiting output; `count` samples may be read from it.
  virtual const float* GetBuffer(int count) const = 0;
  // Drops `count` samples from the head of the output.
  virtual void Read(int count) = 0;
  // Drops all waiting output.
  virtual void Flush() = 0;
  // Seconds of signal waiting in the input and output buffers.
  virtual double GetLatency() const = 0;
  // Consumes input from `samples` (`count` samples held); returns the
  // number of samples consumed. With `final` the input is the last and is
  // padded with zeros as far as the output needs.
  virtual int Run(const float* samples, int count, bool final) = 0;
};

// Makes the converter for a pair of rates, or null. The pair is refused
// unless the ratio number r is 1, even or a multiple of 3, where g is the
// gcd of the rates and r = outRate / g when the rate goes down, inRate / g
// when it goes up. Equal rates, non-positive rates or channel counts, and
// designs too large to hold also give null.
ssrc_resampler* CreateSsrcResampler(int inRate, int outRate, int channels, bool fast);

// Float array that grows by doubling its capacity, starting from 1.
struct ResamplerGrowingBuffer {
  std::unique_ptr<float[]> data;
  int64_t capacity = 0;
  int64_t used = 0;

  bool Reserve(int64_t needed);
  // Removes `count` samples from the head.
  void Drop(int64_t count);
};

// Buffers and quality settings shared by Upsampler and Downsampler.
//
// Quality: fast gives 96 dB stop-band attenuation, a 8000 Hz transition
// target and FFT blocks from 1024 taps; otherwise 120 dB, 100 Hz and 16384.
// Write runs the converter over all complete blocks; Finish pads with zeros
// and limits the total output to frames * outRate / inRate + 2 frames.
class Resampler_base : public ssrc_resampler {
 public:
  bool Write(const float* samples, int count) override;
  void Finish() override;
  int GetDataInBuffer() const override;
  const float* GetBuffer(int count) const override;
  void Read(int count) override;
  void Flush() override;
  double GetLatency() const override;

  int Channels() const { return channels; }
  double Attenuation() const { return attenuation; }
  double Transition() const { return transition; }
  int FftLength() const { return fftLength; }

 protected:
  Resampler_base(int channels, int inRate, int outRate, bool fast);

  // Room for `frames` more output frames; false when memory runs out.
  bool ReserveOutputFrames(int64_t frames);
  // Output frame limit at the end of the stream.
  int64_t FinalFrameLimit() const;

  ResamplerGrowingBuffer input;
  ResamplerGrowingBuffer output;
  int channels;
  int inRate;
  int outRate;
  double attenuation;  // dB
  double transition;   // Hz
  int fftLength;
  int64_t samplesWritten = 0;
};

// One polyphase FIR stage from a low rate to a high one, as a table of
// `rows` phases of `cols` taps: output j takes row order[j] against `cols`
// input frames from the read position, then the position moves on by
// advance[j] frames; j cycles over the table.
struct SsrcPolyphaseStage {
  int length = 0;  // odd number of taps of the prototype
  int rows = 0;
  int cols = 0;
  std::vector<float> table;  // rows * cols
  std::vector<int> order;
  std::vector<int> advance;  // frames
  int next = 0;              // position in the order cycle

  // Prototype window(i, length) * lowpass(i, corner, fsHigh) * rows over
  // the upsampled rate fsHigh = rows * input rate; `step` is fsHigh over
  // the output rate. False when too large or out of memory.
  bool Build(int64_t fsHigh, int64_t rowCount, int64_t step, int64_t cycle, int64_t taps,
             double corner, double alpha);
  // Dot product of row `row` with cols samples from x, in order.
  float Sum(int row, const float* x) const;
};

// Long FFT-domain low pass applied by overlap-add, one overlap per channel:
// each call takes nb/2 samples and gives nb/2 filtered ones.
struct SsrcLongFilter {
  int length = 0;  // odd number of taps
  int nb = 0;      // transform length, twice the power of two not below length
  ResamplerRealFft fft;
  std::vector<float> spectrum;  // nb, packed layout, taps scaled by 2/nb
  std::vector<float> overlap;   // nb/2 per channel
  std::vector<float> work;      // nb

  bool Build(int channels, int taps, double corner, double fs, double gain, double alpha);
  // block: nb/2 new samples of channel `channel`; out: nb/2 results.
  void Apply(int channel, const float* block, float* out);
};

// Raises the rate: polyphase stage from inRate to fs2 = osf * outRate, long
// low pass at fs2 with its corner at inRate / 2, then every osf-th sample.
//
// The polyphase stage reads from a few zero frames first so that it adds
// no more than a fraction of an input sample of delay; the delay of the long
// filter is removed by dropping its first output frames.
class Upsampler : public Resampler_base {
 public:
  Upsampler(int inRate, int outRate, int channels, bool fast);
  bool Ready() const { return ready; }
  int Run(const float* samples, int count, bool final) override;

  int Osf() const { return osf; }
  const SsrcPolyphaseStage& StageOne() const { return stageOne; }
  const SsrcLongFilter& StageTwo() const { return stageTwo; }

 private:
  bool ready = false;
  int64_t fs1 = 0;  // common multiple of the rates
  int64_t fs2 = 0;  // osf * outRate
  int osf = 1;
  SsrcPolyphaseStage stageOne;
  SsrcLongFilter stageTwo;
  int needFrames = 0;           // input frames one block may read
  int primeFrames = 0;          // zero frames still to be read before the input
  std::vector<float> stageIn;   // needFrames per channel
  std::vector<float> stageOut;  // nb/2 per channel
  std::vector<float> block;     // nb/2
  int64_t fs2Index = 0;         // index at fs2 of the next block's first sample
  int64_t dropFrames = 0;
  int64_t emitted = 0;
  bool finished = false;
};

// Lowers the rate: zero-stuffing by osf to fs1 = osf * inRate, long low pass
// at fs1 with its corner below outRate / 2, then a polyphase stage from fs1
// to outRate (or plain decimation when osf is 1).
//
// The polyphase stage starts on zero samples so that its delay is that of a
// causal filter; the delays of both stages are removed by dropping the first
// output frames.
class Downsampler : public Resampler_base {
 public:
  Downsampler(int inRate, int outRate, int channels, bool fast);
  bool Ready() const { return ready; }
  int Run(const float* samples, int count, bool final) override;

  int Osf() const { return osf; }
  const SsrcPolyphaseStage& StageTwo() const { return stageTwo; }
  const SsrcLongFilter& StageOne() const { return stageOne; }

 private:
  bool ready = false;
  int64_t fs1 = 0;  // osf * inRate
  int64_t fs2 = 0;  // common multiple of the rates
  int osf = 1;
  SsrcLongFilter stageOne;
  SsrcPolyphaseStage stageTwo;
  int stuffPhase = 0;         // index at fs1 of the next block, modulo osf
  std::vector<float> block;   // nb/2
  std::vector<float> middle;  // stage two input per channel, middleCapacity each
  int middleCapacity = 0;
  int middleUsed = 0;        // frames per channel
  int64_t readPos = 0;       // stage two read position in `middle`, may run ahead
  std::vector<float> frame;  // one output frame
  int64_t dropFrames = 0;
  int64_t produced = 0;  // stage two outputs including dropped ones
  int64_t emitted = 0;
  bool finished = false;
};

}  // namespace ONDREL2
