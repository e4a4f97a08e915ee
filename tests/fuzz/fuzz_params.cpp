// libFuzzer target for parameter streams that hold real effects: the input
// chooses a chain of any built effect types with parameter values (ends of
// the range, random points, raw float bits including NaN and infinity) and
// scripts; the chain is written with ondrel_params2stream, the stream is
// damaged by the rest of the input, read back with ondrel_stream2params and
// run for a few blocks. What input is left then changes parameters of the
// running chain, its sample rate or input width, or seeks, between further
// blocks, as a player does. Only the library's statuses may come back;
// memory errors are left to the sanitizers.
//
// The corpus replay test includes this file with
// ONDREL_FUZZ_PARAMS_NO_ENTRY defined and calls RunOnce.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/modulators.h"
#include "framework/audio_effect.h"
#include "framework/effect_types.h"
#include "ondrel.h"

namespace fuzz_params {

// Reads the input front to back; zeros once it runs out.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint32_t Word() {
    uint32_t w = 0;
    for (int i = 0; i < 4; ++i) w |= static_cast<uint32_t>(Byte()) << (8 * i);
    return w;
  }
  bool empty() const { return pos_ >= size_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

inline bool LibraryStatus(int rc) {
  // 1..999: a block's frame count, which the resampler effect gives as its
  // status on every block with frames.
  return rc == 0 || rc == 1000 || rc == 2000 || rc == 2001 || rc == 2003 || rc == 11000 ||
         rc == 12000 || (rc > 0 && rc < 1000);
}

const char* const kScripts[] = {
    "0/0",
    "1/0",
    "-1/0",
    "in*2",
    "#GV_FXBYPASSED=1\nin",
    "#x=in\n:a\nx*0.5",
    "1e300",
    "fac(13)",
    "in+GV_SAMPLERATE",
};
const char* const kTexts[] = {"", "nosuch.wav", "dir/../r.wav", "\\\\share\\a.wav"};

// Sets parameter `p` of `fx` as the next input bytes say.
inline void SetValue(ONDREL2::AEffect* fx, int p, Bytes& in) {
  const uint8_t how = in.Byte();
  if (fx->dispatcher(fx, ONDREL2::ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f)) {
    std::string text = how < 200 ? kTexts[how % 4] : std::string(how, 'n');
    fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_DATA, p, static_cast<int32_t>(text.size() + 1),
                   &text[0], 0.0f);
    return;
  }
  switch (how % 5) {
    case 0: fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.0f); break;
    case 1: fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 1.0f); break;
    case 2:
      fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr,
                     static_cast<float>(in.Byte()) / 255.0f);
      break;
    case 3: {
      // Raw bits, past the dispatcher's check for numbers: what a stream
      // from elsewhere may hold.
      uint32_t bits = in.Word();
      fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_DATA, p, 4, &bits, 0.0f);
      break;
    }
    default: break;  // the default
  }
  if (how >= 250)
    fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_SCRIPT, p, 0,
                   const_cast<char*>(kScripts[in.Byte() % (sizeof kScripts / sizeof *kScripts)]),
                   0.0f);
}

// Delay lines follow their times as given, up to 2^29 samples: a finite
// value far outside the range asks for gigabytes, which is bounded but makes
// a fuzzer crawl. Such values are drawn back to four spans around the range;
// NaN and infinity stay as they are.
inline void DrawBack(ONDREL2::AEffect* fx, int p) {
  if (fx->dispatcher(fx, ONDREL2::ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f)) return;
  const ONDREL2::ParamDesc& d = fx->object->params[p];
  const float span = 4.0f * (d.maxValue - d.minValue);
  float v = fx->object->GetParam(p);
  if (std::isfinite(v) && (v < d.minValue - span || v > d.maxValue + span)) {
    v = v < d.minValue ? d.minValue - span : d.maxValue + span;
    fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM_DATA, p, 4, &v, 0.0f);
  }
}

// Runs one input; false when a status outside the library's set came back.
inline bool RunOnce(const uint8_t* data, size_t size) {
  Bytes in(data, size);
  size_t rowCount = 0;
  const ONDREL2::EffectTypeRow* rows = ONDREL2::EffectTypeRows(&rowCount);
  if (rowCount == 0) return true;
  std::vector<ONDREL2::AEffect*> chain;
  const int length = 1 + in.Byte() % 3;
  for (int i = 0; i < length; ++i) {
    ONDREL2::AEffect* fx = nullptr;
    ONDREL2::ondrel_create_effect(
        static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(rows[in.Byte() % rowCount].type), &fx);
    if (fx == nullptr) continue;
    for (int p = 0; p < fx->numParams; ++p) SetValue(fx, p, in);
    chain.push_back(fx);
  }
  void* stream = nullptr;
  int streamSize = 0;
  int rc = ONDREL2::ondrel_params2stream(&stream, &streamSize, chain.data(),
                                         static_cast<int>(chain.size()), "fuzz");
  for (ONDREL2::AEffect* fx : chain) ONDREL2::ondrel_destroy_effect(fx);
  if (rc != 0) return LibraryStatus(rc);
  // The rest of the input damages the stream: offset and xor pairs.
  std::vector<uint8_t> bytes(static_cast<const uint8_t*>(stream),
                             static_cast<const uint8_t*>(stream) + streamSize);
  ONDREL2::ondrel_destroy_paramstream(stream);
  for (int edits = 0; !in.empty() && edits < 8; ++edits) {
    const size_t at = (static_cast<size_t>(in.Byte()) << 8 | in.Byte()) % bytes.size();
    bytes[at] ^= in.Byte();
  }

  ONDREL2::AEffect** list = nullptr;
  int count = 0;
  std::vector<char> text(bytes.size() + 1, 0);
  try {
    rc = ONDREL2::ondrel_stream2params(&list, &count, bytes.data(), static_cast<int>(bytes.size()),
                                       text.data());
  } catch (const std::out_of_range&) {
    return true;  // an unknown parameter name, the one exception by design
  }
  if (rc != 0 || list == nullptr) return LibraryStatus(rc);
  // Scripts that jump can loop for ever by design: chains whose scripts
  // hold a goto marker are not run.
  for (int i = 0; i < count; ++i)
    for (int p = 0; p < list[i]->numParams; ++p) {
      const char* script = nullptr;
      list[i]->dispatcher(list[i], ONDREL2::ONDREL_OP_GET_PARAM_SCRIPT, p, 0, &script, 0.0f);
      if (script != nullptr && std::strchr(script, '>') != nullptr) {
        ONDREL2::ondrel_destroy_params(list, count, true);
        return true;
      }
      DrawBack(list[i], p);
    }

  // Scripts write the process-wide stores; each input starts from the same.
  const ONDREL2::ModulatorMap savedUser = ONDREL2::UserModulators();
  const ONDREL2::ModulatorMap savedSystem = ONDREL2::SystemModulators();
  void* inst = ONDREL2::ondrel_create_inst();
  int channels = (size > 0 && (data[0] & 0x80)) ? 6 : 2;
  ONDREL2::ondrel_setup_input(inst, channels, 0);
  ONDREL2::ondrel_set_samplerate(inst, 44100.0f);
  bool ok = LibraryStatus(ONDREL2::ondrel_set_params(inst, list, count));
  ONDREL2::ondrel_destroy_params(list, count, false);
  // Room for the widest input a change below can ask for.
  std::vector<float> pcm(static_cast<size_t>(8) * 1200), out(pcm.size() * 16);
  for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<float>(i % 97) / 97.0f - 0.5f;
  for (int call = 0; call < 3; ++call) {
    int available = 0, written = 0;
    ok &= LibraryStatus(
        ONDREL2::ondrel_processf_input(inst, pcm.data(), channels * 1200, &available));
    ok &= LibraryStatus(
        ONDREL2::ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written));
  }
  // Changes to the running chain, each followed by one more call.
  for (int change = 0; change < 4 && !in.empty(); ++change) {
    // The chain is asked afresh each time: a new rate or width sets the
    // chain up again, which drops effects whose scripts bypass them.
    ONDREL2::AEffect* running[16] = {};
    int runningCount = 0;
    if (ONDREL2::ondrel_get_params(inst, running, 16, &runningCount) != 0 || runningCount == 0)
      break;
    const uint8_t what = in.Byte();
    if (what >= 240) {
      const float rates[] = {8000.0f, 22050.0f, 44100.0f, 48000.0f, 96000.0f, 44101.0f};
      ONDREL2::ondrel_set_samplerate(inst, rates[in.Byte() % 6]);
    } else if (what >= 232) {
      // A new track of another width.
      const int widths[] = {1, 2, 6, 8};
      channels = widths[in.Byte() % 4];
      ok &= LibraryStatus(ONDREL2::ondrel_setup_input(inst, channels, 0));
    } else if (what >= 228) {
      ONDREL2::ondrel_flush_out(inst);  // a seek
    } else {
      ONDREL2::AEffect* fx = running[what % runningCount];
      if (fx->numParams > 0) {
        const int p = in.Byte() % fx->numParams;
        SetValue(fx, p, in);
        DrawBack(fx, p);
      }
    }
    int available = 0, written = 0;
    ok &= LibraryStatus(
        ONDREL2::ondrel_processf_input(inst, pcm.data(), channels * 1200, &available));
    ok &= LibraryStatus(
        ONDREL2::ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written));
  }
  int available = 0;
  ok &= LibraryStatus(ONDREL2::ondrel_flush_to_buf(inst, &available));
  ONDREL2::ondrel_destroy_inst(inst);
  ONDREL2::UserModulators() = savedUser;
  ONDREL2::SystemModulators() = savedSystem;
  return ok;
}

}  // namespace fuzz_params

#ifndef ONDREL_FUZZ_PARAMS_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  set_xlog_level(7);
  ONDREL2::ondrel_init(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz_params::RunOnce(data, size)) __builtin_trap();
  return 0;
}
#endif
