// Limiter: parameter table, grouping, latency and the sample-exact kernel,
// checked against a scalar model written from the limiter's formulas.
#include "effects/limiter/limiter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "dsp/lookahead_limiter.h"
#include "effects/effect_test_util.h"

namespace ONDREL2 {
namespace {

using ondrel_test::Db;
using ondrel_test::Settings;
using LimiterTest = ondrel_test::EffectTest;

// ---- Reference model --------------------------------------------------------
//
// One group of `ch` interleaved channels, single-precision arithmetic in the
// order of the limiter's definition. The settings record holds linear gains
// and times in ms.
using RefSettings = LookaheadLimiterParams;

// The model's settings for the effect's parameters by name: the effect's
// defaults, levels in dB, switches on from 1 upward.
RefSettings FromParams(const Settings& params) {
  RefSettings s;
  s.levelOut = Db(-0.1f);
  s.limit = Db(-0.2f);
  for (const auto& kv : params) {
    const std::string name = kv.first;
    const float v = kv.second;
    if (name == "In") s.levelIn = Db(v);
    if (name == "Out") s.levelOut = Db(v);
    if (name == "Limit") s.limit = Db(v);
    if (name == "Attack Time") s.attack = v;
    if (name == "Release Time") s.release = v;
    if (name == "Auto Release") s.autoRelease = static_cast<int>(std::floor(v));
    if (name == "Auto Release Level") s.autoReleaseLevel = v;
    if (name == "Auto Level") s.autoLevel = static_cast<int>(std::floor(v));
  }
  return s;
}

class RefLimiter {
 public:
  RefLimiter(const RefSettings& s, int rate, int ch) : s_(s), rate_(rate), ch_(ch) {
    const size_t needed = static_cast<size_t>(rate * ch * 100 / 1000.0 + ch);
    ring_.assign(needed, 0.0f);
    npos_.assign(needed, -1);
    ndelta_.assign(needed, 0.0f);
    release_ = s.release / 1000.0f;
    const int raw =
        static_cast<int>(static_cast<float>(rate) * (s.attack / 1000.0f) * static_cast<float>(ch));
    size_ = raw - raw % ch;
    coeff_ = static_cast<float>(std::pow(0.5, static_cast<double>(s.autoReleaseLevel) - 0.5)) *
             2.0f * -1.0f;
  }

  int size() const { return size_; }

  // Interleaved frames in, interleaved frames out.
  void Process(const float* in, float* out, int frames) {
    const float lim = s_.limit, rate = static_cast<float>(rate_);
    const float level = s_.autoLevel ? 1.0f / lim : 1.0f;
    const int bs = size_;
    for (int f = 0; f < frames; ++f) {
      float pk = 0.0f;
      for (int c = 0; c < ch_; ++c) {
        Ring(pos_ + c) = in[f * ch_ + c] * s_.levelIn;
        pk = std::max(pk, std::fabs(Ring(pos_ + c)));
      }
      if (s_.autoRelease && pk > lim) {
        sum_ += pk;
        count_ += 1;
      }
      if (pk > lim) {
        const float ratio = lim / pk;
        const float rdelta = (1.0f - std::min(ratio, 1.0f)) / (rate * release_);
        const float nd = (ratio - att_) / static_cast<float>(bs) * static_cast<float>(ch_);
        if (delta_ > nd) {
          delta_ = nd;
          Pos(0) = pos_;
          Pos(1) = -1;
          Delta(0) = rdelta;
          len_ = 1;
          iter_ = 0;
        } else {
          for (int i = iter_; i < iter_ + len_; ++i) {
            const int j = i % bs, p = Pos(j);
            if (p < 0) break;
            const float pp = std::max(std::fabs(Ring(p)), std::fabs(Ring(p + 1)));
            const float pd = (ratio - lim / pp) / static_cast<float>(((pos_ - p + bs) % bs) / ch_);
            if (Delta(j) > pd) {
              Delta(j) = pd;
              len_ = i - iter_ + 1;
              Pos((iter_ + len_) % bs) = pos_;
              Delta((iter_ + len_) % bs) = rdelta;
              Pos((iter_ + len_ + 1) % bs) = -1;
              len_ += 1;
              break;
            }
          }
        }
      }
      const int o = (pos_ + ch_) % bs;
      pk = 0.0f;
      for (int c = 0; c < ch_; ++c) pk = std::max(pk, std::fabs(Ring(o + c)));
      if (s_.autoRelease && pk > lim) {
        sum_ -= pk;
        count_ -= 1;
      }
      att_ += delta_;
      float y[8];
      for (int c = 0; c < ch_; ++c) y[c] = Ring(o + c) * att_;
      if (o == Pos(iter_)) {
        if (s_.autoRelease) {
          float rd = (1.0f - att_) / (rate * release_);
          if (count_ > 0) {
            const float a = lim / (sum_ * coeff_) * static_cast<float>(count_);
            if (a > att_) rd = std::min(std::max((a - att_) / (rate * release_), rd / 10.0f), rd);
          }
          delta_ = rd;
          const int q = len_ > 1 ? Pos((iter_ + 1) % bs) : -1;
          if (q >= 0) {
            const float pp = std::max(std::fabs(Ring(q)), std::fabs(Ring(q + 1)));
            const float pd = (lim / pp - att_) / static_cast<float>(((q - o + bs) % bs) / ch_);
            if (rd > pd) delta_ = pd;
          }
        } else {
          delta_ = Delta(iter_);
          att_ = lim / pk;
        }
        len_ -= 1;
        Pos(iter_) = -1;
        iter_ = (iter_ + 1) % bs;
      }
      if (att_ > 1.0f) {
        att_ = 1.0f;
        delta_ = 0.0f;
        iter_ = len_ = 0;
        Pos(0) = -1;
      }
      if (att_ <= 0.0f) {
        att_ = 0.000001f;
        delta_ = 0.999999f / (rate * release_);
      }
      if (att_ != 1.0f && 1.0f - att_ < 0.000001f) att_ = 1.0f;
      if (delta_ != 0.0f && std::fabs(delta_) < 0.000001f) delta_ = 0.0f;
      for (int c = 0; c < ch_; ++c)
        out[f * ch_ + c] = std::min(std::max(y[c], -lim), lim) * level * s_.levelOut;
      pos_ = (pos_ + ch_) % bs;
    }
  }

 private:
  float& Ring(int i) { return ring_[static_cast<size_t>(i)]; }
  int& Pos(int i) { return npos_[static_cast<size_t>(i)]; }
  float& Delta(int i) { return ndelta_[static_cast<size_t>(i)]; }

  RefSettings s_;
  int rate_, ch_;
  float release_, coeff_;
  std::vector<float> ring_, ndelta_;
  std::vector<int> npos_;
  int size_ = 0, pos_ = 0, iter_ = 0, len_ = 0, count_ = 0;
  float att_ = 1.0f, delta_ = 0.0f, sum_ = 0.0f;
};

TEST_F(LimiterTest, ParameterTableDisplaysAndLocales) {
  LIMITER::LimiterEffect fx;
  ondrel_test::ExpectParams(fx, {{"In", -96, 0, 0, "+0.0 dB"},
                                 {"Out", -96, -0.1f, 0, "-0.1 dB"},
                                 {"Limit", -96, -0.2f, 0, "-0.2 dB"},
                                 {"Attack Time", 0.1f, 5, 80, "5.0 ms"},
                                 {"Release Time", 1, 50, 8000, "50 ms"},
                                 {"Auto Release", 0, 0, 1.99999905f, "否"},
                                 {"Auto Release Level", 0, 0.5f, 1, "0.5"},
                                 {"Auto Level", 0, 1.99999905f, 1.99999905f, "是"}});
  // Release Time truncates; the three levels move in linear gain.
  char buf[256];
  fx.SetParam(4, 1234.9f);
  fx.GetParamDisplay(4, buf);
  EXPECT_STREQ(buf, "1234 ms");
  fx.SetParam(0, -6.0f);
  const double g = std::pow(10.0, -6.0 / 20.0), gmin = std::pow(10.0, -96.0 / 20.0);
  EXPECT_NEAR(fx.GetParamNormalized(0), (g - gmin) / (1.0 - gmin), 1e-5);
  fx.SetParamNormalized(2, 0.5f);
  EXPECT_NEAR(fx.GetParam(2), 20.0 * std::log10(0.5 + 0.5 * gmin), 1e-3);

  // Label of "Attack Time"; zh-TW has its own texts, en falls back to the name.
  const char* locales[][4] = {{"zh", "CN", "限制器", "上升时间"},
                              {"zh", "TW", "限制器", "上升時間"},
                              {"ja", "JP", "リミッター", "アタック"},
                              {"en", "US", "Limiter", "Attack Time"}};
  for (const auto& l : locales) {
    ondrel_set_locale(l[0], l[1]);
    EXPECT_STREQ(fx.GetEffectName(buf), l[2]) << l[0] << "-" << l[1];
    fx.GetParamLabel(3, buf);
    EXPECT_STREQ(buf, l[3]) << l[0] << "-" << l[1];
  }
  fx.GetParamDisplay(7, buf);
  EXPECT_STREQ(buf, "On");
  ondrel_set_locale("zh", "CN");
}

// Each speaker group (a stereo pair, a centre, an LFE) limits alone; every
// group's output matches the model sample for sample and stays under the
// ceiling. The flush appends the reported latency (the whole ring): the
// look-ahead's last frames, then one frame of silence.
TEST_F(LimiterTest, StreamMatchesReferencePerGroupUnderTheCeiling) {
  const Settings hard = {{"In", -3}, {"Limit", -12}, {"Attack Time", 1.5f}, {"Release Time", 20}};
  Settings autoRel = hard;
  // Switches floor their value: 1.5 is on, 0.2 is off.
  autoRel.insert(autoRel.end(),
                 {{"Auto Release", 1.5f}, {"Auto Release Level", 0.8f}, {"Auto Level", 0.2f}});
  const std::pair<int, Settings> cases[] = {
      {2, {}},
      {2, hard},
      {2, autoRel},
      {2, {{"Attack Time", 0.1f}, {"Release Time", 1}}},
      {2, {{"Limit", -20}, {"Attack Time", 0.1f}, {"Release Time", 1}, {"Auto Level", 0}}},
      {2, {{"Limit", -6}, {"Out", -3}, {"Auto Release", 1}, {"Attack Time", 80}}},
      {1, {{"Limit", -1}, {"Attack Time", 0.3f}, {"Auto Release", 1}}},
      {6, {{"In", -2}, {"Limit", -9}, {"Release Time", 8000}}},
  };
  const int frames = 4096;
  for (const auto& k : cases) {
    const int ch = k.first;
    SCOPED_TRACE(testing::Message() << ch << " channels, " << k.second.size() << " settings");
    const std::vector<float> in = ondrel_test::TestSignal(frames, ch, 44100.0f, 8.0f);
    const auto r =
        ondrel_test::RunStream(ondrel_test::NewEffect(EFFECT_LIMITER, k.second), 44100.0f, ch, in,
                               ondrel_test::OddChunks(), nullptr, true, ch == 6 ? 0x3F : 0);
    ASSERT_EQ(r.status, 0);
    const RefSettings s = FromParams(k.second);
    using Groups = std::vector<std::vector<int>>;
    const Groups groups =
        ch == 6 ? Groups{{0, 1}, {2}, {3}, {4, 5}} : (ch == 2 ? Groups{{0, 1}} : Groups{{0}});
    const int first = static_cast<int>(groups[0].size());
    const int padded = frames + RefLimiter(s, 44100, first).size() / first;
    std::vector<float> expected(static_cast<size_t>(padded * ch), 0.0f);
    for (const std::vector<int>& g : groups) {
      const int n = static_cast<int>(g.size());
      std::vector<float> x(static_cast<size_t>(padded * n), 0.0f), y(x.size());
      for (int f = 0; f < frames; ++f)
        for (int c = 0; c < n; ++c)
          x[static_cast<size_t>(f * n + c)] = in[static_cast<size_t>(f * ch + g[c])];
      RefLimiter(s, 44100, n).Process(x.data(), y.data(), padded);
      for (int f = 0; f < padded; ++f)
        for (int c = 0; c < n; ++c)
          expected[static_cast<size_t>(f * ch + g[c])] = y[static_cast<size_t>(f * n + c)];
    }
    ASSERT_EQ(r.output.size(), expected.size());
    EXPECT_EQ(ondrel_test::FirstDifference(r.output, expected), expected.size());
    const float bound = s.limit * (s.autoLevel ? 1.0f / s.limit : 1.0f) * s.levelOut;
    float worst = 0.0f;
    for (float v : r.output) worst = std::max(worst, std::fabs(v));
    EXPECT_LE(worst, bound);
    EXPECT_GT(worst, 0.5f * bound);
  }
}

TEST_F(LimiterTest, KernelRoutesAgreeAndMonoReadsStayInside) {
  // Mono rings read one sample past their frame; with dense peaks that
  // happens at the ring's last frame too. The sanitizer build checks that
  // every read stays inside the allocation; the model checks every sample.
  for (int autoRelease = 0; autoRelease < 2; ++autoRelease) {
    for (float attackMs : {0.1f, 0.25f, 3.0f, 80.0f}) {
      for (int rate : {8000, 44100, 192000}) {
        SCOPED_TRACE(testing::Message() << "rate " << rate << " attack " << attackMs
                                        << " autoRelease " << autoRelease);
        LookaheadLimiterParams p;  // output level 0.9765625, auto level on
        p.limit = 0.5f;
        p.attack = attackMs;
        p.release = 3.0f;
        p.autoRelease = autoRelease;
        LookaheadLimiter planar(&p), interleaved(&p);
        const int32_t rc = planar.SetFormat(rate, 1);
        RefLimiter ref(p, rate, 1);
        if (ref.size() < 1) {
          EXPECT_EQ(rc, 2000);  // less than one frame of ring
          continue;
        }
        ASSERT_EQ(rc, 0);
        ASSERT_EQ(planar.bufferSize, ref.size());
        ASSERT_EQ(interleaved.SetFormat(rate, 1), 0);

        const int block = LookaheadLimiter::kInterleavedBlock, frames = 3 * block;
        std::mt19937 rng(static_cast<unsigned>(rate) + static_cast<unsigned>(attackMs * 10));
        std::uniform_real_distribution<float> u(-1.0f, 1.0f);
        std::vector<float> in(static_cast<size_t>(frames));
        // Rising and falling peaks, all above the ceiling.
        for (int i = 0; i < frames; ++i)
          in[static_cast<size_t>(i)] = u(rng) * (1.0f + 3.0f * static_cast<float>(i % 5));
        std::vector<float> expected(in.size());
        ref.Process(in.data(), expected.data(), frames);

        std::vector<float> a = in, b(in.size());
        const int32_t idx[1] = {0};
        float* head[1] = {a.data()};
        float* rest[1] = {a.data() + 1000};
        planar.ProcessPlanar(head, 1000, idx);
        planar.ProcessPlanar(head, 0, idx);
        planar.ProcessPlanar(rest, frames - 1000, idx);
        for (int blk = 0; blk < 3; ++blk)
          interleaved.ProcessInterleaved(in.data() + blk * block, b.data() + blk * block);
        EXPECT_EQ(ondrel_test::FirstDifference(a, expected), a.size()) << "planar";
        EXPECT_EQ(ondrel_test::FirstDifference(b, expected), b.size()) << "interleaved";
      }
    }
  }

  // Stereo, in place through the interleaved entry, at the kernel's defaults.
  LookaheadLimiter k;
  ASSERT_EQ(k.SetFormat(48000, 2), 0);
  std::vector<float> x =
      ondrel_test::TestSignal(LookaheadLimiter::kInterleavedBlock / 2, 2, 48000.0f, 6.0f);
  std::vector<float> expected(x.size());
  RefLimiter(RefSettings(), 48000, 2)
      .Process(x.data(), expected.data(), LookaheadLimiter::kInterleavedBlock / 2);
  k.ProcessInterleaved(x.data(), x.data());
  EXPECT_EQ(ondrel_test::FirstDifference(x, expected), x.size());
}

TEST_F(LimiterTest, FirstLoudFrameClearAndRefusedFormats) {
  // A first frame above the ceiling turns the slope negative at once, and
  // the gain lands on limit / peak exactly when that frame leaves.
  LookaheadLimiterParams p;
  p.limit = 0.5f;
  p.attack = 0.1f;
  LookaheadLimiter k(&p);
  ASSERT_EQ(k.SetFormat(44100, 2), 0);
  ASSERT_EQ(k.bufferSize, 8);
  std::vector<float> l(4, 0.0f), r(4, 0.0f);
  l[0] = 2.0f;
  r[0] = -1.5f;
  float* bufs[2] = {l.data(), r.data()};
  float* next[2] = {l.data() + 1, r.data() + 1};
  const int32_t idx[2] = {0, 1};
  k.ProcessPlanar(bufs, 1, idx);
  EXPECT_EQ(k.delta, (0.25f - 1.0f) / 8.0f * 2.0f);
  k.ProcessPlanar(next, 3, idx);  // frame 3: frame 0 leaves the ring
  EXPECT_EQ(k.att, 0.25f);
  EXPECT_EQ(l[3], 0.5f * (1.0f / 0.5f) * 0.9765625f);  // clipped to the ceiling, then levelled

  // Refused with 2000: less than one frame of ring, no rate, no channels,
  // too many channels, a ring beyond its allocation.
  LookaheadLimiter tiny(&p);
  EXPECT_EQ(tiny.SetFormat(4000, 2), 2000);
  EXPECT_EQ(tiny.SetFormat(0, 1), 2000);
  EXPECT_EQ(tiny.SetFormat(44100, LookaheadLimiter::kMaxChannels + 1), 2000);
  EXPECT_EQ(tiny.SetFormat(44100, 0), 2000);
  LookaheadLimiterParams longer;
  longer.attack = 150.0f;
  LookaheadLimiter tooLong(&longer);
  EXPECT_EQ(tooLong.SetFormat(44100, 2), 2000);
  // Nothing is processed by a kernel without a ring.
  std::vector<float> keep = {0.3f, 9.0f};
  float* kb[1] = {keep.data()};
  tiny.ProcessPlanar(kb, 2, idx);
  EXPECT_EQ(keep[1], 9.0f);

  // The effect returns the status, and its groups without a kernel pass
  // the audio through unchanged.
  LIMITER::LimiterEffect fx;
  fx.SetSampleRate(4000.0f);
  fx.SetParam(fx.GetParamIndex("Attack Time"), 0.1f);
  EXPECT_EQ(fx.UpdateParams(), 2000);
  EXPECT_EQ(fx.GetLatency(), 0);
  std::vector<std::vector<float>> data(6, std::vector<float>(64, 4.0f));
  std::vector<float*> planes;
  for (auto& d : data) planes.push_back(d.data());
  int32_t frames = 2;
  EXPECT_EQ(fx.ProcessBlock({planes[0], planes[1]}, &frames), 0);
  EXPECT_EQ(data[0][0], 4.0f);

  // A clear brings every kernel back to unity gain with an empty ring; a
  // block without frames changes nothing.
  fx.SetSampleRate(44100.0f);
  fx.SetChannels(6, 0x3F);
  ASSERT_EQ(fx.UpdateParams(), 0);
  frames = 64;
  ASSERT_EQ(fx.ProcessBlock(planes, &frames), 0);
  EXPECT_LT(fx.units.First()->att, 1.0f);
  fx.ClearBuffers();
  frames = 0;
  ASSERT_EQ(fx.ProcessBlock(planes, &frames), 0);
  int kernels = 0;
  fx.units.ForEach([&](LookaheadLimiter& k, const ChannelGroup&) {
    ++kernels;
    EXPECT_TRUE(k.att == 1.0f && k.pos == 0 && k.nextLen == 0);
    EXPECT_TRUE(
        std::all_of(k.buffer, k.buffer + k.bufferCapacity, [](float v) { return v == 0.0f; }));
  });
  EXPECT_EQ(kernels, 4);
}

}  // namespace
}  // namespace ONDREL2
