#include "engine.h"

#include <algorithm>
#include <cmath>
#include <exception>

#ifdef ONDREL_LV2_PRESETS
#include "preset.h"
#endif

namespace ondrel_lv2 {

using ONDREL2::AEffect;

namespace {

// Frames pushed one at a time while the delay is measured: enough for the
// block rhythm of any chain to repeat.
constexpr int kProbeFrames = 8192;
constexpr int kPullFrames = 4096;

}  // namespace

Engine::Engine(const Variant& variant, const Layout& layout, float rate, const Settings& settings)
    : layout_(layout), settings_(settings) {
  settings_.values.resize(layout.controls.size(), 0.0f);
  settings_.paths.resize(layout.paths.size());
  inst_ = MakeInstance(variant, rate, &error_);
  int running = 0;
  ONDREL2::ondrel_get_params(inst_, &effect_, 1, &running);
  if (running == 0) {
    effect_ = nullptr;
    passThrough_ = true;
  }
  if (running > 1 || variant.type == 0) effect_ = nullptr;  // a chain: no control ports
  uint64_t mask = 0;
  ONDREL2::ondrel_get_out_chns(inst_, &outChannels_, &mask);
  if (passThrough_ || outChannels_ < 1) outChannels_ = layout.inChannels;
  if (!passThrough_) {
    // The probe runs a second instance with the same settings, so that this
    // one starts from the state a fresh chain has.
    std::string ignored;
    void* probe = MakeInstance(variant, rate, &ignored);
    void* mine = inst_;
    inst_ = probe;
    Measure();
    inst_ = mine;
    ONDREL2::ondrel_destroy_inst(probe);
  }
  in_.assign(static_cast<size_t>(kChunk * layout.inChannels), 0.0f);
  pull_.assign(static_cast<size_t>(kPullFrames * outChannels_), 0.0f);
  ringFrames_ = static_cast<size_t>(delay_ + 4 * kChunk + 4 * kProbeFrames);
  ring_.assign(ringFrames_ * static_cast<size_t>(outChannels_), 0.0f);
  Reset();
}

Engine::~Engine() { ONDREL2::ondrel_destroy_inst(inst_); }

void* Engine::MakeInstance(const Variant& variant, float rate, std::string* error) {
  std::vector<AEffect*> effects;
  if (variant.type != 0) {
    AEffect* fx = nullptr;
    if (ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(variant.type),
                                      &fx) == 0 &&
        fx != nullptr) {
      for (size_t i = 0; i < layout_.controls.size(); ++i)
        if (!std::isnan(settings_.values[i]))
          fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, layout_.controls[i].index, 0, nullptr,
                         settings_.values[i]);
      for (size_t i = 0; i < layout_.paths.size(); ++i) {
        // Effects read paths as C texts: the terminating zero goes along.
        std::string path = settings_.paths[i];
        if (path.empty()) continue;
        fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_DATA, layout_.paths[i].index,
                       static_cast<int32_t>(path.size() + 1), &path[0], 0.0f);
      }
      effects.push_back(fx);
    } else {
      *error = "effect type " + std::to_string(variant.type) + " is not in this library";
    }
  } else if (!settings_.paths.empty() && !settings_.paths[0].empty()) {
#ifdef ONDREL_LV2_PRESETS
    try {
      ondrel_tool::LoadedPreset preset = ondrel_tool::LoadPresetFile(settings_.paths[0]);
      for (int i = 0; i < preset.effects.size(); ++i) effects.push_back(preset.effects[i]);
      preset.effects.Release();
    } catch (const std::exception& e) {
      *error = e.what();
    }
#else
    *error = "presets are not supported by this build";
#endif
  }
  void* inst = ONDREL2::ondrel_create_inst();
  ONDREL2::ondrel_setup_input(inst, layout_.inChannels, 0);
  ONDREL2::ondrel_set_samplerate(inst, rate);
  if (!effects.empty())
    ONDREL2::ondrel_set_params(inst, effects.data(), static_cast<int>(effects.size()));
  return inst;
}

void Engine::Measure() {
  // The library hands out whole blocks: push single frames and record the
  // largest count of frames still held back. What the effects hold beyond
  // that (look-ahead, convolution) shows as the tail of a flush.
  const int inCh = layout_.inChannels;
  std::vector<float> zeros(static_cast<size_t>(inCh), 0.0f);
  std::vector<float> out(static_cast<size_t>(kPullFrames * outChannels_));
  long pushed = 0, produced = 0, held = 0;
  for (int t = 0; t < kProbeFrames; ++t) {
    int avail = 0;
    if (ONDREL2::ondrel_processf_input(inst_, zeros.data(), inCh, &avail) != 0) break;
    ++pushed;
    while (avail > 0) {
      int written = 0;
      ONDREL2::ondrel_processf_output(inst_, out.data(), std::min<int>(avail, kPullFrames),
                                      &written);
      if (written <= 0) break;
      produced += written / outChannels_;
      avail -= written;
    }
    held = std::max(held, pushed - produced);
  }
  int tail = 0;
  ONDREL2::ondrel_flush_to_buf(inst_, &tail);
  long own = tail / outChannels_ - (pushed - produced);
  delay_ = static_cast<int>(held);
  latency_ = delay_ + static_cast<int>(std::max(0L, own));
}

void Engine::Reset() {
  if (!passThrough_) ONDREL2::ondrel_flush_out(inst_);
  std::fill(ring_.begin(), ring_.end(), 0.0f);
  head_ = 0;
  count_ = static_cast<size_t>(delay_);
}

void Engine::ApplyControls(const float* const* ports, size_t count) {
  count = std::min(count, settings_.values.size());
  for (size_t i = 0; i < count; ++i) {
    if (ports[i] == nullptr) continue;
    const float v = *ports[i];
    if (std::isnan(v) || v == settings_.values[i]) continue;
    settings_.values[i] = v;
    if (effect_ != nullptr)
      effect_->dispatcher(effect_, ONDREL2::ONDREL_OP_SET_PARAM, layout_.controls[i].index, 0,
                          nullptr, v);
  }
}

void Engine::Push(const float* frames, int count) {
  // Whole runs between the queue's end and the ring's end; what does not fit
  // is dropped (the ring is sized so that it never is).
  const size_t ch = static_cast<size_t>(outChannels_);
  size_t n = std::min(static_cast<size_t>(std::max(count, 0)), ringFrames_ - count_);
  while (n > 0) {
    const size_t tail = (head_ + count_) % ringFrames_;
    const size_t run = std::min(n, ringFrames_ - tail);
    std::copy(frames, frames + run * ch, ring_.begin() + static_cast<std::ptrdiff_t>(tail * ch));
    frames += run * ch;
    count_ += run;
    n -= run;
  }
}

void Engine::Pull(int available) {
  // The library writes straight into the queue's free run; only a full ring
  // goes through the scratch buffer, and is dropped.
  const size_t ch = static_cast<size_t>(outChannels_);
  while (available > 0) {
    const size_t tail = (head_ + count_) % ringFrames_;
    const size_t room = std::min(ringFrames_ - count_, ringFrames_ - tail);
    float* to = room > 0 ? &ring_[tail * ch] : pull_.data();
    const int most = static_cast<int>(room > 0 ? room * ch : pull_.size());
    int written = 0;
    ONDREL2::ondrel_processf_output(inst_, to, std::min(available, most), &written);
    if (written <= 0) break;
    if (room > 0) count_ += static_cast<size_t>(written) / ch;
    available -= written;
  }
}

void Engine::Run(const float* const* in, float* const* out, int outCount, uint32_t frames) {
  const size_t inCh = static_cast<size_t>(layout_.inChannels);
  const size_t ch = static_cast<size_t>(outChannels_);
  for (uint32_t off = 0; off < frames;) {
    const size_t m = std::min<uint32_t>(kChunk, frames - off);
    if (inCh == 2 && in[0] != nullptr && in[1] != nullptr) {
      // The common stereo bus, in a loop the compiler turns into shuffles.
      const float* l = in[0] + off;
      const float* r = in[1] + off;
      float* to = in_.data();
      for (size_t f = 0; f < m; ++f) {
        to[2 * f] = l[f];
        to[2 * f + 1] = r[f];
      }
    } else {
      for (size_t c = 0; c < inCh; ++c) {
        const float* from = in[c] != nullptr ? in[c] + off : nullptr;
        float* to = in_.data() + c;
        for (size_t f = 0; f < m; ++f) to[f * inCh] = from != nullptr ? from[f] : 0.0f;
      }
    }
    if (passThrough_) {
      Push(in_.data(), static_cast<int>(m));
    } else {
      int avail = 0;
      ONDREL2::ondrel_processf_input(inst_, in_.data(), static_cast<int>(m * inCh), &avail);
      Pull(avail);
    }
    // Out of the queue in whole runs up to the ring's end; frames the queue
    // does not hold yet are silence.
    for (size_t done = 0; done < m;) {
      const size_t run = count_ > 0 ? std::min({m - done, count_, ringFrames_ - head_}) : m - done;
      const float* from = count_ > 0 ? &ring_[head_ * ch] : nullptr;
      for (int c = 0; c < outCount; ++c) {
        if (out[c] == nullptr) continue;
        float* to = out[c] + off + done;
        if (from == nullptr || static_cast<size_t>(c) >= ch)
          std::fill(to, to + run, 0.0f);
        else if (ch == 2)
          for (size_t f = 0; f < run; ++f) to[f] = from[2 * f + static_cast<size_t>(c)];
        else
          for (size_t f = 0; f < run; ++f) to[f] = from[f * ch + static_cast<size_t>(c)];
      }
      if (from != nullptr) {
        head_ = (head_ + run) % ringFrames_;
        count_ -= run;
      }
      done += run;
    }
    off += static_cast<uint32_t>(m);
  }
}

}  // namespace ondrel_lv2
