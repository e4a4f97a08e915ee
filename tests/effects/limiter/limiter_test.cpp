// Limiter: parameter table, grouping, latency and the sample-exact kernel,
// checked against a scalar model written from the limiter's formulas.
#include "effects/limiter/limiter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "effects/limiter/lookahead_limiter.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

// ---- Reference model --------------------------------------------------------
//
// One group of `ch` interleaved channels, single-precision arithmetic in the
// order of the limiter's definition. Gains are linear, times in ms.
struct RefSettings {
  float levelIn = 1.0f, levelOut = 1.0f, limit = 1.0f;
  float attackMs = 5.0f, releaseMs = 50.0f;
  int autoRelease = 0;
  float autoReleaseLevel = 0.5f;
  int autoLevel = 0;
};

class RefLimiter {
 public:
  RefLimiter(const RefSettings& s, int rate, int ch) : s_(s), rate_(rate), ch_(ch) {
    const int needed = static_cast<int>(rate * ch * 100 / 1000.0 + ch);
    ring_.assign(static_cast<size_t>(needed), 0.0f);
    npos_.assign(static_cast<size_t>(needed), -1);
    ndelta_.assign(static_cast<size_t>(needed), 0.0f);
    attack_ = s.attackMs / 1000.0f;
    release_ = s.releaseMs / 1000.0f;
    const int raw = static_cast<int>(static_cast<float>(static_cast<float>(rate) * attack_) *
                                     static_cast<float>(ch));
    size_ = raw - raw % ch;
    coeff_ = static_cast<float>(std::pow(0.5, static_cast<double>(s.autoReleaseLevel) - 0.5)) *
             2.0f * -1.0f;
  }

  int size() const { return size_; }
  float att() const { return att_; }
  float delta() const { return delta_; }

  // Interleaved frames in, interleaved frames out.
  void Process(const float* in, float* out, int frames) {
    const float lim = s_.limit;
    const float level = s_.autoLevel ? 1.0f / lim : 1.0f;
    const int bs = size_;
    auto absAt = [&](int i) { return std::fabs(ring_[static_cast<size_t>(i)]); };
    for (int f = 0; f < frames; ++f) {
      float pk = 0.0f;
      for (int c = 0; c < ch_; ++c) {
        const float v = in[f * ch_ + c] * s_.levelIn;
        ring_[static_cast<size_t>(pos_ + c)] = v;
        pk = std::max(pk, std::fabs(v));
      }
      if (s_.autoRelease && pk > lim) {
        sum_ += pk;
        count_ += 1;
      }
      if (pk > lim) {
        const float ratio = lim / pk;
        const float rdelta =
            (1.0f - std::min(ratio, 1.0f)) / (static_cast<float>(rate_) * release_);
        const float nd = (ratio - att_) / static_cast<float>(bs) * static_cast<float>(ch_);
        if (delta_ > nd) {
          delta_ = nd;
          npos_[0] = pos_;
          npos_[1] = -1;
          ndelta_[0] = rdelta;
          len_ = 1;
          iter_ = 0;
        } else {
          for (int i = iter_; i < iter_ + len_; ++i) {
            const int j = i % bs;
            const int p = npos_[static_cast<size_t>(j)];
            if (p < 0) break;
            const float pp = std::max(absAt(p), absAt(p + 1));
            const float pd = (ratio - lim / pp) / static_cast<float>(((pos_ - p + bs) % bs) / ch_);
            if (ndelta_[static_cast<size_t>(j)] > pd) {
              ndelta_[static_cast<size_t>(j)] = pd;
              len_ = i - iter_ + 1;
              npos_[static_cast<size_t>((iter_ + len_) % bs)] = pos_;
              ndelta_[static_cast<size_t>((iter_ + len_) % bs)] = rdelta;
              npos_[static_cast<size_t>((iter_ + len_ + 1) % bs)] = -1;
              len_ += 1;
              break;
            }
          }
        }
      }
      const int o = (pos_ + ch_) % bs;
      pk = 0.0f;
      for (int c = 0; c < ch_; ++c) pk = std::max(pk, absAt(o + c));
      if (s_.autoRelease && pk > lim) {
        sum_ -= pk;
        count_ -= 1;
      }
      att_ += delta_;
      float y[8];
      for (int c = 0; c < ch_; ++c) y[c] = ring_[static_cast<size_t>(o + c)] * att_;
      if (o == npos_[static_cast<size_t>(iter_)]) {
        if (s_.autoRelease) {
          const float base = static_cast<float>(rate_) * release_;
          float rd = (1.0f - att_) / base;
          if (count_ > 0) {
            const float a = lim / (sum_ * coeff_) * static_cast<float>(count_);
            if (a > att_) rd = std::min(std::max((a - att_) / base, rd / 10.0f), rd);
          }
          delta_ = rd;
          if (len_ > 1) {
            const int q = npos_[static_cast<size_t>((iter_ + 1) % bs)];
            if (q >= 0) {
              const float pp = std::max(absAt(q), absAt(q + 1));
              const float pd = (lim / pp - att_) / static_cast<float>(((q - o + bs) % bs) / ch_);
              if (rd > pd) delta_ = pd;
            }
          }
        } else {
          delta_ = ndelta_[static_cast<size_t>(iter_)];
          att_ = lim / pk;
        }
        len_ -= 1;
        npos_[static_cast<size_t>(iter_)] = -1;
        iter_ = (iter_ + 1) % bs;
      }
      if (att_ > 1.0f) {
        att_ = 1.0f;
        delta_ = 0.0f;
        iter_ = 0;
        len_ = 0;
        npos_[0] = -1;
      }
      if (att_ <= 0.0f) {
        att_ = 0.000001f;
        delta_ = 0.999999f / (static_cast<float>(rate_) * release_);
      }
      if (att_ != 1.0f && 1.0f - att_ < 0.000001f) att_ = 1.0f;
      if (delta_ != 0.0f && std::fabs(delta_) < 0.000001f) delta_ = 0.0f;
      for (int c = 0; c < ch_; ++c) {
        float v = std::max(y[c], -lim);
        if (v > lim) v = lim;
        out[f * ch_ + c] = v * level * s_.levelOut;
      }
      pos_ = (pos_ + ch_) % bs;
    }
  }

 private:
  RefSettings s_;
  int rate_, ch_;
  float attack_, release_, coeff_;
  std::vector<float> ring_, ndelta_;
  std::vector<int> npos_;
  int size_ = 0, pos_ = 0, iter_ = 0, len_ = 0, count_ = 0;
  float att_ = 1.0f, delta_ = 0.0f, sum_ = 0.0f;
};

float Db(float dB) { return static_cast<float>(std::pow(10.0, static_cast<double>(dB / 20.0f))); }

// Test signal: noise with bursts well above full scale, so that the
// limiter works hard and often changes its mind.
std::vector<float> Bursty(int frames, int ch, unsigned seed, float loud) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> v(static_cast<size_t>(frames * ch));
  for (int f = 0; f < frames; ++f) {
    const float env = ((f / 97) % 3 == 1) ? loud : 0.4f;
    for (int c = 0; c < ch; ++c) v[static_cast<size_t>(f * ch + c)] = u(rng) * env;
  }
  return v;
}

// Runs `in` through a one-effect chain in chunks of the given sizes
// (cycled); returns everything that came out.
std::vector<float> RunChain(AEffect* fx, int ch, uint64_t mask, float rate,
                            const std::vector<float>& in, const std::vector<int>& chunks) {
  void* inst = ondrel_create_inst();
  EXPECT_EQ(ondrel_setup_input(inst, ch, mask), 0);
  EXPECT_EQ(ondrel_set_samplerate(inst, rate), 0);
  EXPECT_EQ(ondrel_set_params(inst, &fx, 1), 0);
  std::vector<float> out;
  std::vector<float> buf(in.size() + 4096);
  std::vector<float> chunk;
  size_t at = 0;
  for (size_t k = 0; at < in.size(); ++k) {
    const size_t n = std::min(in.size() - at, static_cast<size_t>(chunks[k % chunks.size()] * ch));
    chunk.assign(in.begin() + static_cast<long>(at), in.begin() + static_cast<long>(at + n));
    int available = 0;
    EXPECT_EQ(ondrel_processf_input(inst, chunk.data(), static_cast<int>(n), &available), 0);
    int written = 0;
    EXPECT_EQ(ondrel_processf_output(inst, buf.data(), static_cast<int>(buf.size()), &written), 0);
    out.insert(out.end(), buf.begin(), buf.begin() + written);
    at += n;
  }
  ondrel_destroy_inst(inst);
  return out;
}

AEffect* NewLimiter(const std::vector<std::pair<const char*, float>>& settings) {
  AEffect* fx = nullptr;
  EXPECT_EQ(ondrel_create_effect(EFFECT_LIMITER, &fx), 0);
  for (const auto& kv : settings) {
    const int index =
        fx->dispatcher(fx, ONDREL_OP_GET_PARAM_INDEX, 0, 0, const_cast<char*>(kv.first), 0.0f);
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM, index, 0, nullptr, kv.second);
  }
  return fx;
}

class LimiterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    set_xlog_level(7);
    ondrel_init(nullptr);
  }
};

// ---- Tests -------------------------------------------------------------------

TEST_F(LimiterTest, ParameterTableNamesAndLabels) {
  LIMITER::LimiterEffect fx;
  EXPECT_EQ(fx.GetEffectType(), 6);
  ASSERT_EQ(fx.GetAEffect()->numParams, 8);
  struct Row {
    const char* name;
    float min, def, max, center, shape;
    int hintA, hintB;
    const char* display;
  };
  const Row rows[] = {
      {"In", -96, 0, 0, 0, 1, 0, 0, "+0.0 dB"},
      {"Out", -96, -0.1f, 0, 0, 1, 0, 0, "-0.1 dB"},
      {"Limit", -96, -0.2f, 0, 0, 1, 0, 0, "-0.2 dB"},
      {"Attack Time", 0.1f, 5, 80, 80, 1, 2, 0, "5.0 ms"},
      {"Release Time", 1, 50, 8000, 8000, 1, 2, 0, "50 ms"},
      {"Auto Release", 0, 0, 1.99999905f, 1.99999905f, 1, 3, 3, "否"},
      {"Auto Release Level", 0, 0.5f, 1, 1, 1, 2, 0, "0.5"},
      {"Auto Level", 0, 1.99999905f, 1.99999905f, 1.99999905f, 1, 4, 3, "是"},
  };
  char buf[256];
  for (int i = 0; i < 8; ++i) {
    const Row& r = rows[i];
    const ParamDesc& p = fx.params[static_cast<size_t>(i)];
    SCOPED_TRACE(r.name);
    EXPECT_STREQ(p.name, r.name);
    EXPECT_FALSE(p.binary);
    EXPECT_EQ(p.minValue, r.min);
    EXPECT_EQ(p.maxValue, r.max);
    EXPECT_EQ(p.center, r.center);
    EXPECT_EQ(p.shape, r.shape);
    EXPECT_EQ(fx.GetParamDefault(i), r.def);
    EXPECT_EQ(fx.GetParam(i), r.def);
    int32_t second = -1;
    EXPECT_EQ(fx.GetParamHints(i, &second), r.hintA);
    EXPECT_EQ(second, r.hintB);
    EXPECT_FALSE(fx.ParamNeedsRebuild(i));
    fx.GetParamDisplay(i, buf);  // locale zh-CN after init
    EXPECT_STREQ(buf, r.display);
  }
  // Release Time truncates; the three levels move in linear gain.
  fx.SetParam(4, 1234.9f);
  fx.GetParamDisplay(4, buf);
  EXPECT_STREQ(buf, "1234 ms");
  fx.SetParam(0, -6.0f);
  const double g = std::pow(10.0, -6.0 / 20.0), gmin = std::pow(10.0, -96.0 / 20.0);
  EXPECT_NEAR(fx.GetParamNormalized(0), (g - gmin) / (1.0 - gmin), 1e-5);
  fx.SetParamNormalized(2, 0.5f);
  EXPECT_NEAR(fx.GetParam(2), 20.0 * std::log10(0.5 + 0.5 * gmin), 1e-3);

  struct Locale {
    const char* lang;
    const char* country;
    const char* name;
    const char* labels[8];
  };
  const Locale locales[] = {
      {"zh",
       "CN",
       "限制器",
       {"输入", "输出", "限制", "上升时间", "释放时间", "自动释放", "自动释放等级", "自动电平"}},
      {"zh",
       "TW",
       "限制器",
       {"輸入", "輸出", "限制", "上升時間", "釋放時間", "自動釋放", "自動釋放等級", "自動電平"}},
      {"zh",
       "HK",
       "限制器",
       {"輸入", "輸出", "限制", "上升時間", "釋放時間", "自動釋放", "自動釋放等級", "自動電平"}},
      {"ja",
       "JP",
       "リミッター",
       {"入力", "出力", "リミット", "アタック", "リリース", "自動的にリリース",
        "自動的にリリースのレベル", "ゲインの自動化"}},
      {"en",
       "US",
       "Limiter",
       {"In", "Out", "Limit", "Attack Time", "Release Time", "Auto Release", "Auto Release Level",
        "Auto Level"}},
  };
  for (const Locale& l : locales) {
    SCOPED_TRACE(std::string(l.lang) + "-" + l.country);
    ondrel_set_locale(l.lang, l.country);
    EXPECT_STREQ(fx.GetEffectName(buf), l.name);
    for (int i = 0; i < 8; ++i) {
      fx.GetParamLabel(i, buf);
      EXPECT_STREQ(buf, l.labels[i]);
    }
  }
  ondrel_set_locale("en", "US");
  fx.GetParamDisplay(7, buf);
  EXPECT_STREQ(buf, "On");
  ondrel_set_locale("zh", "CN");
}

TEST_F(LimiterTest, StereoStreamMatchesReferenceSampleForSample) {
  struct Case {
    const char* what;
    std::vector<std::pair<const char*, float>> params;
    RefSettings ref;
  };
  RefSettings defaults;
  defaults.levelOut = Db(-0.1f);
  defaults.limit = Db(-0.2f);
  defaults.autoLevel = 1;
  RefSettings hard = defaults;
  hard.levelIn = Db(-3.0f);
  hard.limit = Db(-12.0f);
  hard.attackMs = 1.5f;
  hard.releaseMs = 20.0f;
  RefSettings autoRel = hard;
  autoRel.autoRelease = 1;
  autoRel.autoReleaseLevel = 0.8f;
  autoRel.autoLevel = 0;
  RefSettings shortest = defaults;
  shortest.attackMs = 0.1f;
  shortest.releaseMs = 1.0f;
  const Case cases[] = {
      {"defaults", {}, defaults},
      {"hard", {{"In", -3}, {"Limit", -12}, {"Attack Time", 1.5f}, {"Release Time", 20}}, hard},
      {"auto release",
       {{"In", -3},
        {"Limit", -12},
        {"Attack Time", 1.5f},
        {"Release Time", 20},
        {"Auto Release", 1.5f},
        {"Auto Release Level", 0.8f},
        {"Auto Level", 0.2f}},
       autoRel},
      {"shortest look-ahead", {{"Attack Time", 0.1f}, {"Release Time", 1}}, shortest},
  };
  const int frames = 4096;
  const std::vector<float> in = Bursty(frames, 2, 7, 3.0f);
  for (const Case& k : cases) {
    SCOPED_TRACE(k.what);
    RefLimiter ref(k.ref, 44100, 2);
    std::vector<float> expected(in.size());
    ref.Process(in.data(), expected.data(), frames);
    // One call, and the same stream chopped into odd chunk sizes.
    for (const std::vector<int>& chunks :
         {std::vector<int>{frames}, std::vector<int>{1, 511, 512, 513, 7, 1031}}) {
      const std::vector<float> out = RunChain(NewLimiter(k.params), 2, 0, 44100.0f, in, chunks);
      ASSERT_EQ(out.size(), expected.size());
      for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], expected[i]) << "sample " << i << ", chunk pattern " << chunks.size();
    }
  }
}

TEST_F(LimiterTest, NeverExceedsCeilingOnLoudNoise) {
  struct Case {
    int ch;
    uint64_t mask;
    std::vector<std::pair<const char*, float>> params;
  };
  const Case cases[] = {
      {2, 0, {}},
      {2, 0, {{"Limit", -20}, {"Attack Time", 0.1f}, {"Release Time", 1}, {"Auto Level", 0}}},
      {2, 0, {{"Limit", -6}, {"Out", -3}, {"Auto Release", 1}, {"Attack Time", 80}}},
      {1, 0, {{"Limit", -1}, {"Attack Time", 0.3f}, {"Auto Release", 1}}},
      {6, 0x3F, {{"Limit", -9}, {"Release Time", 8000}}},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(testing::Message() << k.ch << " channels, " << k.params.size() << " settings");
    AEffect* fx = NewLimiter(k.params);
    auto* object = static_cast<LIMITER::LimiterEffect*>(fx->object);
    const float limit = Db(object->GetParamByName("Limit"));
    const float levelOut = Db(object->GetParamByName("Out"));
    const float level = object->GetParamByName("Auto Level") >= 1.0f ? 1.0f / limit : 1.0f;
    const float bound = limit * level * levelOut;
    std::mt19937 rng(11u + static_cast<unsigned>(k.ch));
    std::uniform_real_distribution<float> u(-8.0f, 8.0f);
    std::vector<float> in(static_cast<size_t>(8192 * k.ch));
    for (float& v : in) v = u(rng);
    const std::vector<float> out = RunChain(fx, k.ch, k.mask, 44100.0f, in, {8192});
    ASSERT_EQ(out.size(), in.size());
    float worst = 0.0f;
    for (float v : out) worst = std::max(worst, std::fabs(v));
    EXPECT_LE(worst, bound);
    EXPECT_GT(worst, 0.5f * bound);
  }
}

TEST_F(LimiterTest, LatencyGroupsAndBelowThresholdGain) {
  LIMITER::LimiterEffect fx;
  fx.SetSampleRate(44100.0f);
  // Look-ahead of 0.1 ms at 44.1 kHz: a stereo ring of 8 samples.
  fx.SetParam(fx.GetParamIndex("Attack Time"), 0.1f);
  ASSERT_EQ(fx.UpdateParams(), 0);
  EXPECT_EQ(fx.GetLatency(), 4);
  // Default 5 ms: 220.5 frames, 441 samples, cut to whole frames.
  fx.SetParam(fx.GetParamIndex("Attack Time"), 5.0f);
  ASSERT_EQ(fx.UpdateParams(), 0);
  auto* kernel = static_cast<LookaheadLimiter*>(fx.layout->groups[0].context);
  EXPECT_EQ(kernel->bufferSize, 440);
  EXPECT_EQ(fx.GetLatency(), kernel->bufferSize / kernel->channels);

  // 5.1: pair, centre, LFE, pair, each with its own kernel. A loud centre
  // is limited alone; the quiet other channels come out delayed by the
  // look-ahead and scaled by the levels only.
  fx.SetChannels(6, 0x3F);
  fx.SetParam(fx.GetParamIndex("In"), -2.0f);
  ASSERT_EQ(fx.UpdateParams(), 0);
  ASSERT_EQ(fx.layout->groups.size(), 4u);
  const int counts[4] = {2, 1, 1, 2};
  for (int g = 0; g < 4; ++g) {
    EXPECT_EQ(fx.layout->groups[static_cast<size_t>(g)].count, counts[g]);
    EXPECT_NE(fx.layout->groups[static_cast<size_t>(g)].context, nullptr);
  }
  EXPECT_EQ(fx.GetLatency(), 220);
  const int n = 512;
  std::vector<std::vector<float>> data(6, std::vector<float>(n));
  std::vector<std::vector<float>> orig;
  for (int c = 0; c < 6; ++c)
    for (int i = 0; i < n; ++i)
      data[static_cast<size_t>(c)][static_cast<size_t>(i)] =
          (c == 2 ? 4.0f : 0.25f) * std::sin(0.05f * static_cast<float>(i * (c + 1)));
  orig = data;
  std::vector<float*> bufs;
  for (auto& d : data) bufs.push_back(d.data());
  int32_t frames = n;
  ASSERT_EQ(fx.ProcessBlock(bufs, &frames), 0);
  EXPECT_EQ(frames, n);
  const float levelIn = Db(-2.0f), levelOut = Db(-0.1f), limit = Db(-0.2f);
  const float level = 1.0f / limit;
  const int delay = 220 - 1;  // a frame leaves the ring bufferSize / channels - 1 frames later
  for (int c = 0; c < 6; ++c) {
    if (c == 2) continue;
    for (int i = 0; i < n; ++i) {
      const float x =
          i >= delay ? orig[static_cast<size_t>(c)][static_cast<size_t>(i - delay)] : 0.0f;
      ASSERT_EQ(data[static_cast<size_t>(c)][static_cast<size_t>(i)],
                x * levelIn * level * levelOut)
          << "channel " << c << " frame " << i;
    }
  }
  float centre = 0.0f;
  for (float v : data[2]) centre = std::max(centre, std::fabs(v));
  EXPECT_LE(centre, limit * level * levelOut);
  EXPECT_GT(centre, 0.9f * limit * level * levelOut);

  // A clear brings every kernel back to unity gain with an empty ring.
  fx.ClearBuffers();
  for (const ChannelGroup& g : fx.layout->groups) {
    auto* k = static_cast<LookaheadLimiter*>(g.context);
    EXPECT_EQ(k->att, 1.0f);
    EXPECT_EQ(k->pos, 0);
    EXPECT_EQ(k->nextLen, 0);
    EXPECT_TRUE(
        std::all_of(k->buffer, k->buffer + k->bufferCapacity, [](float v) { return v == 0.0f; }));
  }
  // A block without frames changes nothing.
  frames = 0;
  ASSERT_EQ(fx.ProcessBlock(bufs, &frames), 0);
  EXPECT_EQ(static_cast<LookaheadLimiter*>(fx.layout->groups[0].context)->pos, 0);
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
        RefSettings s;
        s.limit = 0.5f;
        s.levelOut = 0.9765625f;
        s.attackMs = attackMs;
        s.releaseMs = 3.0f;
        s.autoRelease = autoRelease;
        s.autoLevel = 1;
        LookaheadLimiterParams p;
        p.limit = s.limit;
        p.attack = attackMs;
        p.release = s.releaseMs;
        p.autoRelease = autoRelease;
        LookaheadLimiter planar(&p);
        const int32_t rc = planar.SetFormat(rate, 1);
        RefLimiter ref(s, rate, 1);
        if (ref.size() < 1) {
          EXPECT_EQ(rc, 2000);
          continue;
        }
        ASSERT_EQ(rc, 0);
        ASSERT_EQ(planar.bufferSize, ref.size());
        ASSERT_GT(planar.bufferCapacity, planar.bufferSize);
        LookaheadLimiter interleaved(&p);
        ASSERT_EQ(interleaved.SetFormat(rate, 1), 0);

        const int frames = LookaheadLimiter::kInterleavedBlock * 3;
        std::mt19937 rng(static_cast<unsigned>(rate) + static_cast<unsigned>(attackMs * 10));
        std::uniform_real_distribution<float> u(-1.0f, 1.0f);
        std::vector<float> in(static_cast<size_t>(frames));
        // Rising and falling peaks, all above the ceiling.
        for (int i = 0; i < frames; ++i)
          in[static_cast<size_t>(i)] = u(rng) * (1.0f + 3.0f * static_cast<float>(i % 5));
        std::vector<float> expected(in.size());
        ref.Process(in.data(), expected.data(), frames);

        std::vector<float> a = in;
        float* chans[1] = {a.data()};
        const int32_t idx[1] = {0};
        planar.ProcessPlanar(chans, 1000, idx);
        planar.ProcessPlanar(chans, 0, idx);
        float* rest[1] = {a.data() + 1000};
        planar.ProcessPlanar(rest, frames - 1000, idx);
        std::vector<float> b(in.size());
        for (int blk = 0; blk < 3; ++blk)
          interleaved.ProcessInterleaved(in.data() + blk * LookaheadLimiter::kInterleavedBlock,
                                         b.data() + blk * LookaheadLimiter::kInterleavedBlock);
        for (size_t i = 0; i < in.size(); ++i) {
          ASSERT_EQ(a[i], expected[i]) << "planar, sample " << i;
          ASSERT_EQ(b[i], expected[i]) << "interleaved, sample " << i;
        }
      }
    }
  }

  // In place through the interleaved entry, stereo, default block.
  LookaheadLimiter k1, k2;
  ASSERT_EQ(k1.SetFormat(48000, 2), 0);
  ASSERT_EQ(k2.SetFormat(48000, 2), 0);
  EXPECT_EQ(k1.levelOut, 0.9765625f);
  EXPECT_EQ(k1.attack, 0.005f);
  EXPECT_EQ(k1.bufferSize, 480);
  std::vector<float> x = Bursty(LookaheadLimiter::kInterleavedBlock / 2, 2, 3, 5.0f);
  std::vector<float> y(x.size());
  k1.ProcessInterleaved(x.data(), y.data());
  k2.ProcessInterleaved(x.data(), x.data());
  EXPECT_EQ(x, y);
}

TEST_F(LimiterTest, FirstLoudFrameAndRefusedFormats) {
  // A first frame above the ceiling turns the slope negative at once, and
  // the gain lands on limit / peak exactly when that frame leaves.
  LookaheadLimiterParams p;
  p.limit = 0.5f;
  p.attack = 0.1f;
  LookaheadLimiter k(&p);
  ASSERT_EQ(k.SetFormat(44100, 2), 0);
  ASSERT_EQ(k.bufferSize, 8);
  std::vector<float> l(6, 0.0f), r(6, 0.0f);
  l[0] = 2.0f;
  r[0] = -1.5f;
  float* bufs[2] = {l.data(), r.data()};
  const int32_t idx[2] = {0, 1};
  k.ProcessPlanar(bufs, 1, idx);
  EXPECT_LT(k.delta, 0.0f);
  EXPECT_EQ(k.delta, (0.25f - 1.0f) / 8.0f * 2.0f);
  float* next[2] = {l.data() + 1, r.data() + 1};
  k.ProcessPlanar(next, 2, idx);
  EXPECT_NE(k.att, 0.25f);
  float* last[2] = {l.data() + 3, r.data() + 3};
  k.ProcessPlanar(last, 1, idx);  // frame 3: frame 0 leaves the ring
  EXPECT_EQ(k.att, 0.25f);
  EXPECT_EQ(l[3], 0.5f * (1.0f / 0.5f) * 0.9765625f);  // clipped to the ceiling, then levelled

  // Formats the kernel refuses with 2000: less than one frame of ring, a
  // ring that would not fit its allocation, a channel count out of range.
  LookaheadLimiter tiny(&p);
  EXPECT_EQ(tiny.SetFormat(4000, 2), 2000);
  EXPECT_EQ(tiny.SetFormat(0, 1), 2000);
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
  std::vector<float> a = {5.0f, -5.0f}, b = {1.0f, 2.0f};
  std::vector<float*> v = {a.data(), b.data()};
  int32_t frames = 2;
  EXPECT_EQ(fx.ProcessBlock(v, &frames), 0);
  EXPECT_EQ(a[0], 5.0f);
  EXPECT_EQ(b[1], 2.0f);
}

}  // namespace
}  // namespace ONDREL2
