#include "effects/dfx/dfx_dsp.h"

#include <algorithm>
#include <cmath>

#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace DFXBASE {
namespace {

// Table index of an amount: stored values may lie outside 0..127 when no
// script bounds them, and the tables must not be read outside.
int32_t TableIndex(int32_t i) { return std::min(std::max(i, 0), 127); }

// Line length in frames of `seconds` at `rate`, truncated.
int32_t Frames(double seconds, int32_t rate) {
  return static_cast<int32_t>(seconds * static_cast<double>(rate));
}

}  // namespace

// ---------------------------------------------------------------- 3D surround

int32_t Dfx3dsurround::Configure(const PARAM& param) {
  if (param.sampleRate < 1) return ONDREL_E_INVALID;
  if (param.sampleRate != rate_) {
    rate_ = param.sampleRate;
    highPass_.Design(100.0, 0.70710678, rate_);
    // On running lines these stretch the held sound to the new length.
    int32_t status = lineA_.Resize(Frames(0.003923, rate_));
    if (status == ONDREL_OK) status = lineB_.Resize(Frames(0.004944, rate_));
    if (status != ONDREL_OK) return status;
  }
  const int32_t status = lineMid_.Resize(0);
  if (status != ONDREL_OK) return status;
  depth_ = static_cast<float>(static_cast<double>(static_cast<float>(param.amount)) * 0.7 / 127.0);
  return ONDREL_OK;
}

void Dfx3dsurround::Process(float* left, float* right, int32_t frames) {
  const float spread = depth_;
  for (int32_t i = 0; i < frames; ++i) {
    const float l = left[i];
    const float r = right[i];
    const float mid = (r + l) * 0.5f;
    const float side = l - mid;
    const float y = highPass_.Run(side);
    lineA_.Write(y);
    const float p = lineA_.Read();
    lineA_.Advance();
    lineB_.Write(-y);
    const float q = lineB_.Read();
    lineB_.Advance();
    lineMid_.Write(mid);
    const float m = lineMid_.Read();
    lineMid_.Advance();
    left[i] = m + side - q * spread * 5.0f;
    right[i] = m - side - p * spread * 5.0f;
  }
}

void Dfx3dsurround::Reset() {
  highPass_.Reset();
  lineA_.Clear();
  lineB_.Clear();
  lineMid_.Clear();
}

// ------------------------------------------------------------------ Headphone

namespace {

const double kDelayA[DfxHeadphone::kLines] = {0.021769, 0.009774, 0.015465, 0.027007};
const double kDelayB[DfxHeadphone::kLines] = {0.024536, 0.016372, 0.01254, 0.020409};
// Output weights by source line and destination side.
const float kAtoLeft[DfxHeadphone::kLines] = {0.44f, 0.54f, 0.12f, 1.0f};
const float kAtoRight[DfxHeadphone::kLines] = {0.56f, 0.46f, 0.88f, 0.0f};
const float kBtoLeft[DfxHeadphone::kLines] = {0.0f, 0.87f, 0.29f, 0.7f};
const float kBtoRight[DfxHeadphone::kLines] = {1.0f, 0.13f, 0.71f, 0.3f};

}  // namespace

int32_t DfxHeadphone::Configure(const PARAM& param) {
  if (param.sampleRate < 1) return ONDREL_E_INVALID;
  amount_ = param.amount;
  for (int i = 0; i < kLines; ++i) {
    feedbackA_[i] = 0.5f;
    feedbackB_[i] = 0.5f;
    int32_t status = lineA_[i].Resize(Frames(kDelayA[i], param.sampleRate));
    if (status == ONDREL_OK) status = lineB_[i].Resize(Frames(kDelayB[i], param.sampleRate));
    if (status != ONDREL_OK) return status;
  }
  return ONDREL_OK;
}

namespace {

// Frames per batch of the headphone mix. No line is read at a position
// that a write of the same batch fills as long as every line is at least
// this long, so a batch can read each line first and write it after.
constexpr int32_t kHeadphoneBatch = 16;

// Reads the next `m` samples of `line` into `out`, writes `out[k] * feedback
// + in[k]` behind each, and moves the line on by `m`: per sample exactly
// Read, Write and Advance.
inline void RunLine(DelayLine& line, float feedback, const float* in, float* out, int32_t m) {
  const uint32_t mask = static_cast<uint32_t>(line.mask);
  const uint32_t ahead = static_cast<uint32_t>(line.length);
  uint32_t at = line.readPos;
  for (int32_t k = 0; k < m; ++k) {
    out[k] = line.samples[(at + static_cast<uint32_t>(k)) & mask];
    line.samples[(at + static_cast<uint32_t>(k) + ahead) & mask] = out[k] * feedback + in[k];
  }
  line.readPos = (at + static_cast<uint32_t>(m)) & mask;
}

}  // namespace

void DfxHeadphone::Process(float* left, float* right, int32_t frames) {
  int32_t shortest = kHeadphoneBatch;
  for (int i = 0; i < kLines; ++i)
    shortest = std::min({shortest, lineA_[i].length, lineB_[i].length});
  if (shortest >= kHeadphoneBatch) {
    // Batches of frames: the lines one after the other, then the weighted
    // sums of every frame of the batch in the same order as frame by frame.
    for (int32_t n0 = 0; n0 < frames; n0 += kHeadphoneBatch) {
      const int32_t m = std::min(kHeadphoneBatch, frames - n0);
      // The inputs are copied first: a lone channel comes as the same
      // buffer for both sides.
      float inL[kHeadphoneBatch], inR[kHeadphoneBatch];
      std::copy(left + n0, left + n0 + m, inL);
      std::copy(right + n0, right + n0 + m, inR);
      float sumL[kHeadphoneBatch] = {}, sumR[kHeadphoneBatch] = {};
      float c[kHeadphoneBatch], d[kHeadphoneBatch];
      for (int i = 0; i < kLines; ++i) {
        RunLine(lineA_[i], feedbackA_[i], inL, c, m);
        RunLine(lineB_[i], feedbackB_[i], inR, d, m);
        for (int32_t k = 0; k < m; ++k) {
          sumL[k] = sumL[k] + kAtoLeft[i] * c[k] + kBtoLeft[i] * d[k];
          sumR[k] = sumR[k] + kAtoRight[i] * c[k] + kBtoRight[i] * d[k];
        }
      }
      for (int32_t k = 0; k < m; ++k) {
        left[n0 + k] = inL[k] * 0.5f + sumL[k] * 0.5f;
        right[n0 + k] = inR[k] * 0.5f + sumR[k] * 0.5f;
      }
    }
    return;
  }
  for (int32_t n = 0; n < frames; ++n) {
    const float l = left[n];
    const float r = right[n];
    float sumL = 0.0f, sumR = 0.0f;
    for (int i = 0; i < kLines; ++i) {
      const float c = lineA_[i].Read();
      lineA_[i].Write(c * feedbackA_[i] + l);
      lineA_[i].Advance();
      const float d = lineB_[i].Read();
      lineB_[i].Write(d * feedbackB_[i] + r);
      lineB_[i].Advance();
      sumL = sumL + kAtoLeft[i] * c + kBtoLeft[i] * d;
      sumR = sumR + kAtoRight[i] * c + kBtoRight[i] * d;
    }
    left[n] = l * 0.5f + sumL * 0.5f;
    right[n] = r * 0.5f + sumR * 0.5f;
  }
}

void DfxHeadphone::Reset() {
  for (int i = 0; i < kLines; ++i) {
    lineA_[i].Clear();
    lineB_[i].Clear();
  }
}

// ------------------------------------------------------------------- Ambience

int32_t DfxAmbience::Configure(const PARAM& param) {
  if (!ring_) {
    ring_.reset(NewArray<float>(kRingSize));
    if (!ring_) return ONDREL_E_NOMEM;
    cursor_ = 0;
  }
  const int32_t amount = param.amount;
  if (amount > 40) {
    dry_ = 0.897f;
    wet_ = 0.273f;
  } else {
    dry_ = static_cast<float>(static_cast<double>(static_cast<float>(40 - amount)) * 0.103 / 28.0 +
                              0.897);
    // Negative below 12: the wet signal is then mixed in out of phase, on
    // purpose; the low settings' sound depends on it.
    wet_ = static_cast<float>(static_cast<double>(static_cast<float>(amount - 12)) * 0.00975);
  }
  if (!tablesBuilt_) {
    const double r = std::pow(10.0, 1.0 / 127.0);
    decayTable_[0] = 0.095f;
    for (int i = 1; i < 127; ++i)
      decayTable_[i] = static_cast<float>(static_cast<double>(decayTable_[i - 1]) * r);
    // Deliberately not the next step of the progression.
    decayTable_[127] = 0.95f;
    for (int i = 0; i < 127; ++i) exponentTable_[i] = static_cast<float>(i * (1.0 / 127.0) + 0.5);
    exponentTable_[127] = 1.5f;
    tablesBuilt_ = true;
  }
  decay_ = static_cast<float>(std::pow(static_cast<double>(decayTable_[TableIndex(amount)]),
                                       static_cast<double>(exponentTable_[64])));
  diffusion_ = std::min(std::max(decay_ + 0.15f, 0.25f), 0.5f);
  return ONDREL_OK;
}

void DfxAmbience::Process(float* left, float* right, int32_t frames) {
  float* const ring = ring_.get();
  if (ring == nullptr) return;
  int32_t cur = cursor_;
  auto step = [&cur](int32_t n) {
    cur += n;
    if (cur >= kRingSize) cur -= kRingSize;
  };
  auto behind = [&cur, ring](int32_t n) {
    int32_t at = cur - n;
    if (at < 0) at += kRingSize;
    return ring[at];
  };
  auto swap = [&cur, ring](float v) {
    const float old = ring[cur];
    ring[cur] = v;
    return old;
  };
  const float decay = decay_, diffusion = diffusion_, wet = wet_, dry = dry_;
  float bandLp = bandLp_, dampA = dampA_, dampB = dampB_, feedback = feedback_;

  for (int32_t i = 0; i < frames; ++i) {
    const float l = left[i];
    const float r = right[i];
    // Input band limit and four diffusers.
    step(1);
    step(4410);
    float d = swap(l + r);
    bandLp = behind(1) * 0.6498903f + 0.35010967f * bandLp;
    float z = bandLp;
    step(210);
    float w = z - d * 0.75f;
    z = w * 0.75f + d;
    d = swap(w);
    step(158);
    w = z - d * 0.75f;
    z = w * 0.75f + d;
    d = swap(w);
    step(561);
    w = z - d * 0.625f;
    const float e = swap(w);
    step(410);
    z = w * 0.625f + d;
    const float v = z - e * 0.625f;
    ring[cur] = v;
    const float a = v * 0.625f + e;

    // Left tank.
    step(1089);
    float t = behind(1000);
    float n = t * 0.7f + (a + feedback * decay);
    float u = t - n * 0.7f;
    float o = swap(n);
    dampA = 0.5917102f * o + dampA * 0.40828985f;
    step(6623);
    float p = swap(u);
    const float a1 = behind(447);
    float a2 = -behind(2961);
    float a3 = behind(5396);
    step(2678);
    w = dampA * decay - diffusion * p;
    o = swap(w);
    u = diffusion * w + p;
    a2 -= behind(278);
    a3 = (a3 + a1) - behind(1826);
    step(5534);
    ring[cur] = u;
    a2 -= behind(1584);
    float accR = behind(3975) + a3;

    // Right tank.
    step(1439);
    t = behind(1350);
    n = t * 0.7f + a + o * decay;
    u = t - n * 0.7f;
    o = swap(n);
    dampB = 0.5917102f * o + 0.40828985f * dampB;
    step(6273);
    p = swap(u);
    accR -= behind(3138);
    float accL = (behind(447) + a2) + behind(4422);
    step(3949);
    w = decay * dampB - diffusion * p;
    o = swap(w);
    u = diffusion * w + p;
    accR -= behind(498);
    accL -= behind(2846);
    step(4706);
    ring[cur] = u;
    accR -= behind(179);
    accL += behind(2970);
    feedback = o;

    right[i] = (accR * 0.3f) * wet + dry * r;
    left[i] = (accL * 0.3f) * wet + dry * l;
  }
  cursor_ = cur;
  bandLp_ = bandLp;
  dampA_ = dampA;
  dampB_ = dampB;
  feedback_ = feedback;
}

void DfxAmbience::Reset() {
  if (ring_) std::fill(ring_.get(), ring_.get() + kRingSize, 0.0f);
  cursor_ = 0;
  bandLp_ = dampA_ = dampB_ = feedback_ = 0.0f;
}

// -------------------------------------------------------------- Dynamic boost

namespace {

// Gains in steps of 0.1 dB (1..60), 0.2 dB (61..90) and 0.5 dB (91..126);
// the top entry repeats the one below.
struct BoostTable {
  float gain[128];
  BoostTable() {
    gain[0] = 1.0f;
    for (int i = 1; i < 127; ++i) {
      const double step = std::pow(10.0, i <= 60 ? 0.005 : i <= 90 ? 0.01 : 0.025);
      gain[i] = static_cast<float>(static_cast<double>(gain[i - 1]) * step);
    }
    gain[127] = gain[126];
  }
};

const BoostTable& Boosts() {
  static const BoostTable table;
  return table;
}

}  // namespace

int32_t DfxDynamicBoost::Configure(const PARAM& param) {
  const int32_t step = static_cast<int32_t>(static_cast<double>(param.amount) * 0.7);
  gain_ = Boosts().gain[TableIndex(step)];
  return ONDREL_OK;
}

float DfxDynamicBoost::Channel::Run(float x) {
  const float y = ring[pos];
  ring[pos] = x;
  if (++pos == kLookahead) pos = 0;
  const float a = std::fabs(y);
  const float b = std::fabs(x);
  if (hold != 0) {
    envelope = std::max(envelope, a);
    if (peak >= b) {
      --hold;
    } else {
      peak = b;
      hold = kLookahead;
      const float s = (b - envelope) / 34.0f;
      if (s > slope) slope = s;
    }
    envelope += slope;
  } else {
    envelope = envelope * 0.9977757f + 1e-24f;
    envelope = std::max(envelope, a);
    if (b > envelope) {
      peak = b;
      hold = kLookahead;
      slope = (b - envelope) / 34.0f;
      envelope += slope;
    }
  }
  return envelope > 0.966050982f ? y * 0.966051f / envelope : y;
}

void DfxDynamicBoost::Process(float* left, float* right, int32_t frames) {
  for (int32_t i = 0; i < frames; ++i) {
    const float l = left[i];
    const float r = right[i];
    // Only the left channel drives the level, for both channels.
    const double ld = static_cast<double>(l);
    power_ = power_ * 0.9999857525184768 + ld * ld * 1.4247481523232963e-5;
    const float level = static_cast<float>(std::sqrt(power_));
    float g = gain_;
    if (g * level > 0.32f) g = std::max(1.06f, 0.32f / level);
    g = g * 0.966051f;
    const float outL = channels_[0].Run(g * l);
    const float outR = channels_[1].Run(g * r);
    left[i] = outL;
    right[i] = outR;
  }
  // After long silence the level would settle in the slow denormal range of
  // doubles; that far down it rounds to a float level of 0 either way.
  if (power_ < 1e-300) power_ = 0.0;
}

void DfxDynamicBoost::Reset() {
  power_ = 0.0;
  for (Channel& c : channels_) c = Channel();
}

}  // namespace DFXBASE
}  // namespace ONDREL2
