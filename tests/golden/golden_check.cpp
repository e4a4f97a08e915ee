// Golden output hashes: every built effect type on fixed signals, hashed bit
// for bit, against tests/golden/golden.txt. A change of any output bit of a
// type listed there fails with the case named; types not listed are skipped,
// so a new type joins by regenerating the file:
//   build/tests/ondrel_golden --write tests/golden/golden.txt
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "framework/effect_types.h"
#include "ondrel.h"

using namespace ONDREL2;

namespace {

struct Hash {
  uint64_t h = 14695981039346656037ull;  // FNV-1a, 64 bits
  void Add(const void* data, size_t n) {
    const auto* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  }
  void Add(int32_t v) { Add(&v, sizeof v); }
};

// Interleaved chirp plus noise from a fixed generator, different per channel.
std::vector<float> Signal(int frames, int channels) {
  std::vector<float> x(static_cast<size_t>(frames) * static_cast<size_t>(channels));
  uint32_t seed = 987654321u;
  for (int n = 0; n < frames; ++n) {
    const double t = n / 44100.0;
    for (int c = 0; c < channels; ++c) {
      seed = seed * 1664525u + 1013904223u;
      const double noise = (static_cast<double>(seed >> 8) / 16777216.0 - 0.5) * 0.3;
      const double f = 9000.0 / (1.0 + 30.0 * t) + 40.0 * (c + 1);
      const double burst = (n / 1500) % 4 == 2 ? 1.6 : 1.0;
      x[static_cast<size_t>(n) * channels + c] =
          static_cast<float>((0.5 * std::sin(2.0 * 3.141592653589793 * f * t + c) + noise) * burst);
    }
  }
  return x;
}

uint64_t MaskOf(int channels) {
  switch (channels) {
    case 1: return 0x4;
    case 2: return 0x3;
    case 6: return 0x3F;
    default: return 0;
  }
}

// One case: the type at its defaults or busy (every non-binary parameter at
// 0.9 of its slider), `channels` wide, through the float or int16 calls in
// host chunks of varying size, then its flushed tail. The hash covers every
// status, the output layout and every output bit.
uint64_t RunCase(const EffectTypeRow& row, bool busy, int channels, bool int16) {
  Hash hash;
  AEffect* fx = nullptr;
  hash.Add(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(row.type), &fx));
  if (fx == nullptr) return hash.h;
  if (busy)
    for (int p = 0; p < fx->numParams; ++p)
      if (!fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f))
        fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.9f);
  void* inst = ondrel_create_inst();
  hash.Add(ondrel_setup_input(inst, channels, MaskOf(channels)));
  hash.Add(ondrel_set_samplerate(inst, 44100.0f));
  hash.Add(ondrel_set_params(inst, &fx, 1));
  int outChannels = 0;
  uint64_t outMask = 0;
  hash.Add(ondrel_get_out_chns(inst, &outChannels, &outMask));
  hash.Add(outChannels);
  hash.Add(&outMask, sizeof outMask);

  const int frames = 12000;
  const std::vector<float> in = Signal(frames, channels);
  std::vector<int16_t> in16(in.size());
  for (size_t i = 0; i < in.size(); ++i)
    in16[i] = static_cast<int16_t>(
        std::lrint(std::fmax(-32768.0f, std::fmin(32767.0f, in[i] * 32767.0f))));
  std::vector<float> out;
  std::vector<int16_t> out16;
  auto drain = [&](int available) {
    if (available <= 0) return;
    int written = 0;
    if (int16) {
      out16.assign(static_cast<size_t>(available), 0);
      hash.Add(ondrel_process_output(inst, out16.data(), available, &written));
      hash.Add(written);
      hash.Add(out16.data(), static_cast<size_t>(written) * sizeof(int16_t));
    } else {
      out.assign(static_cast<size_t>(available), 0.0f);
      hash.Add(ondrel_processf_output(inst, out.data(), available, &written));
      hash.Add(written);
      hash.Add(out.data(), static_cast<size_t>(written) * sizeof(float));
    }
  };
  static const int kChunks[] = {1, 700, 513, 4096, 31, 1024, 2, 2047};
  int frame = 0;
  for (size_t i = 0; frame < frames; ++i) {
    const int n = std::min(kChunks[i % 8], frames - frame);
    int available = 0;
    if (int16)
      hash.Add(ondrel_process_input(inst, in16.data() + static_cast<size_t>(frame) * channels,
                                    n * channels, &available));
    else
      hash.Add(ondrel_processf_input(
          inst, const_cast<float*>(in.data()) + static_cast<size_t>(frame) * channels, n * channels,
          &available));
    hash.Add(available);
    drain(available);
    frame += n;
  }
  int available = 0;
  hash.Add(ondrel_flush_to_buf(inst, &available));
  hash.Add(available);
  drain(available);
  ondrel_destroy_inst(inst);
  return hash.h;
}

// The parameter table as a host sees it: names, bounds, defaults, hints,
// flags, the display and normalised position of the default and of 0.3.
uint64_t TableCase(const EffectTypeRow& row) {
  Hash hash;
  AEffect* fx = nullptr;
  hash.Add(ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(row.type), &fx));
  if (fx == nullptr) return hash.h;
  hash.Add(fx->numParams);
  for (int p = 0; p < fx->numParams; ++p) {
    char text[256] = {0};
    fx->dispatcher(fx, ONDREL_OP_GET_PARAM_NAME, p, 0, text, 0.0f);
    hash.Add(text, std::strlen(text));
    int32_t second = 0;
    hash.Add(fx->dispatcher(fx, ONDREL_OP_GET_PARAM_HINTS, p, 0, &second, 0.0f));
    hash.Add(second);
    hash.Add(fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f));
    hash.Add(fx->dispatcher(fx, ONDREL_OP_PARAM_NEEDS_REBUILD, p, 0, nullptr, 0.0f));
    float v[4] = {0, 0, 0, 0};
    fx->dispatcher(fx, ONDREL_OP_GET_PARAM_DEFAULT, p, 0, &v[0], 0.0f);
    fx->dispatcher(fx, ONDREL_OP_GET_PARAM_NORMALIZED, p, 0, &v[1], 0.0f);
    std::memset(text, 0, sizeof text);
    fx->dispatcher(fx, ONDREL_OP_GET_PARAM_DISPLAY, p, 0, text, 0.0f);
    hash.Add(text, std::strlen(text));
    std::memset(text, 0, sizeof text);
    fx->dispatcher(fx, ONDREL_OP_GET_PARAM_LABEL, p, 0, text, 0.0f);
    hash.Add(text, std::strlen(text));
    for (float norm : {0.0f, 0.3f, 1.0f}) {
      fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, norm);
      fx->dispatcher(fx, ONDREL_OP_GET_PARAM, p, 0, &v[2], 0.0f);
      hash.Add(&v[2], sizeof(float));
      std::memset(text, 0, sizeof text);
      fx->dispatcher(fx, ONDREL_OP_GET_PARAM_DISPLAY, p, 0, text, 0.0f);
      hash.Add(text, std::strlen(text));
    }
    hash.Add(v, 2 * sizeof(float));
  }
  ondrel_destroy_effect(fx);
  return hash.h;
}

}  // namespace

int main(int argc, char** argv) {
  std::string writePath, readPath;
  if (argc == 3 && std::strcmp(argv[1], "--write") == 0) {
    writePath = argv[2];
  } else if (argc == 2) {
    readPath = argv[1];
  } else {
    std::cerr << "usage: ondrel_golden GOLDEN_FILE | --write GOLDEN_FILE\n";
    return 2;
  }
  set_xlog_level(7);
  ondrel_init(nullptr);

  // Expected hashes, keyed by "short-name case".
  std::map<std::string, std::string> expected;
  std::set<std::string> knownTypes;
  if (!readPath.empty()) {
    std::ifstream file(readPath);
    if (!file) {
      std::cerr << "cannot read " << readPath << "\n";
      return 2;
    }
    std::string line;
    while (std::getline(file, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream fields(line);
      std::string name, label, hash;
      fields >> name >> label >> hash;
      expected[name + " " + label] = hash;
      knownTypes.insert(name);
    }
  }

  std::ostringstream table;
  table << "# Output hashes of every built effect type; regenerate with\n"
           "#   build/tests/ondrel_golden --write tests/golden/golden.txt\n"
           "# short-name case fnv1a64\n";
  int failures = 0, checked = 0;
  size_t count = 0;
  const EffectTypeRow* rows = EffectTypeRows(&count);
  for (size_t r = 0; r < count; ++r) {
    const EffectTypeRow& row = rows[r];
    const bool listed = knownTypes.count(row.shortName) != 0;
    if (!readPath.empty() && !listed) {
      std::cout << "skipped " << row.shortName << " (not in the golden file)\n";
      continue;
    }
    auto record = [&](const std::string& label, uint64_t value) {
      char hex[17];
      std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(value));
      table << row.shortName << " " << label << " " << hex << "\n";
      if (readPath.empty()) return;
      ++checked;
      const auto it = expected.find(std::string(row.shortName) + " " + label);
      if (it == expected.end() || it->second != hex) {
        ++failures;
        std::cout << "CHANGED " << row.shortName << " (type " << row.type << ") " << label << ": "
                  << (it == expected.end() ? "missing" : it->second) << " -> " << hex << "\n";
      }
    };
    record("table", TableCase(row));
    for (int busy = 0; busy < 2; ++busy)
      for (int channels : {1, 2, 6})
        for (int int16 = 0; int16 < 2; ++int16) {
          const std::string label = std::string(busy ? "busy" : "defaults") + "-" +
                                    std::to_string(channels) + "ch-" + (int16 ? "s16" : "f32");
          record(label, RunCase(row, busy != 0, channels, int16 != 0));
        }
  }
  ondrel_uninit();
  if (!writePath.empty()) {
    std::ofstream file(writePath);
    file << table.str();
    return file ? 0 : 2;
  }
  std::cout << checked << " cases checked, " << failures << " changed\n";
  return failures == 0 ? 0 : 1;
}
