// Soak run: pushes hours of audio, faster than real time, through one chain
// of every built effect type at busy settings, with the changes a player
// makes along the way: parameter moves on the running chain, new parameter
// lists (ondrel_set_params churn), seeks (ondrel_flush_out), sample-rate
// changes, and stretches of silence in which recursive filters decay.
//
// After each hour of audio it prints one line: wall time, speed, mean and
// worst processor time of a 1024-frame host call, resident memory (/proc/self/statm),
// open file handles (/proc/self/fd), clear "-dec" copies in the resource
// root, and the count of output samples that were not finite. At the end it
// compares the first and the last hour: the call time must stay flat (no
// slow denormal arithmetic creeping in), memory flat after the first hour,
// handles and "-dec" copies not growing, and every sample finite. The exit
// status is 0 when all of that holds.
//
// Usage: bench_soak [HOURS_OF_AUDIO] (default 24; fractions allowed)
#include <dirent.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "framework/effect_types.h"
#include "framework/ondrel2.h"
#include "ondrel.h"

using namespace ONDREL2;

namespace {

constexpr int kFrames = 1024;     // frames per host call
constexpr int kWidestChain = 64;  // widest output any chain can have
constexpr float kBaseRate = 44100.0f;

// Processor time of this thread: call times stay comparable while other
// processes share the machine.
double ThreadCpuMicros() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) * 1e-3;
}

long ResidentKb() {
  long pages = 0, resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int CountEntries(const std::string& dir, const char* suffix) {
  int n = 0;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (name == "." || name == "..") continue;
      const size_t s = std::strlen(suffix);
      if (s == 0 || (name.size() >= s && name.compare(name.size() - s, s, suffix) == 0)) ++n;
    }
    closedir(d);
  }
  return n;
}

// A stereo wave file of decaying noise, written through the library.
void WriteResponse(const std::string& path, int frames, float decay, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-0.4f, 0.4f);
  std::vector<float> x(2 * static_cast<size_t>(frames));
  for (int n = 0; n < frames; ++n)
    for (int c = 0; c < 2; ++c) x[2 * n + c] = u(rng) * std::exp(-n / decay);
  WaveFile w;
  if (!w.SetFilePathUTF8(path.c_str(), true, false)) return;
  w.SetChannels(2);
  w.SetSampleRate(44100);
  w.SetSampleFormat(SF_FLOAT32);
  w.SetupDone();
  w.WriteFrames(x.data(), frames);
}

// Busy but sane: every slider at 60 % of its normalised range, files named,
// the channel router left at one to one so that the chain stays stereo-ish.
AEffect* MakeBusy(int type) {
  AEffect* fx = nullptr;
  if (ondrel_create_effect(static_cast<ONDREL_EFFECT_TYPE>(type), &fx) != ONDREL_OK) return nullptr;
  if (type == EFFECT_CHAOS) return fx;
  for (int p = 0; p < fx->numParams; ++p) {
    if (fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f)) {
      const char* name = type == EFFECT_SAMPLER ? "loop.wav" : "room.wav";
      fx->dispatcher(fx, ONDREL_OP_SET_PARAM_DATA, p, static_cast<int32_t>(std::strlen(name) + 1),
                     const_cast<char*>(name), 0.0f);
    } else {
      fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, 0.6f);
    }
  }
  if (type == EFFECT_SAMPLER)  // the loop sits well below the music
    fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 1, 0, nullptr, -30.0f);
  return fx;
}

std::vector<AEffect*> MakeChain() {
  size_t count = 0;
  const EffectTypeRow* rows = EffectTypeRows(&count);
  std::vector<AEffect*> chain;
  for (size_t i = 0; i < count; ++i) {
    // The resampler effect answers every block that has frames with their
    // count as a failure status, which stops the pass: behind it a chain
    // passes no audio at all and its input waits for ever. It only sets the
    // rate between chains, so the soak leaves it out.
    if (rows[i].type == EFFECT_RESAMPLER) continue;
    if (AEffect* fx = MakeBusy(rows[i].type)) chain.push_back(fx);
  }
  // A limiter last keeps the sum of all those gains in range.
  AEffect* limiter = nullptr;
  if (ondrel_create_effect(EFFECT_LIMITER, &limiter) == ONDREL_OK) chain.push_back(limiter);
  return chain;
}

// Frames waiting in the queues of the chain's effects, and the effect that
// holds the most. A chain that runs as it should keeps about one block per
// effect; more that keeps growing is audio that never comes out.
int QueuedFrames(void* inst, std::string* worst) {
  AEffect* handles[128];
  int count = 0, total = 0, most = -1;
  ondrel_get_params(inst, handles, 128, &count);
  for (int i = 0; i < count; ++i) {
    auto* fx = dynamic_cast<IOndrel2*>(handles[i]->object);
    if (fx == nullptr) continue;
    const int queued = fx->inFifo.Count() + fx->dryFifo.Count() + fx->outFifo.Count();
    total += queued;
    if (queued > most && worst != nullptr) {
      most = queued;
      char name[64] = {};
      handles[i]->dispatcher(handles[i], ONDREL_OP_GET_EFFECT_NAME, 0, 0, name, 0.0f);
      char line[256];
      std::snprintf(
          line, sizeof line, "#%d type %d '%s': in %d, dry %d, out %d frames; %d -> %d ch", i,
          handles[i]->object->GetEffectType(), name, fx->inFifo.Count(), fx->dryFifo.Count(),
          fx->outFifo.Count(), fx->GetChannels(), fx->GetOutChannels());
      *worst = line;
    }
  }
  return total;
}

struct Hour {
  double wallSeconds = 0, callSum = 0, callWorst = 0;
  long calls = 0, rssKb = 0, nonFinite = 0;
  int queuedMax = 0;
  int fds = 0, clearCopies = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const double hours = argc > 1 ? std::atof(argv[1]) : 24.0;
  if (!(hours > 0.0)) {
    std::fprintf(stderr, "usage: %s [HOURS_OF_AUDIO]\n", argv[0]);
    return 2;
  }
  set_xlog_level(7);
  ondrel_init(nullptr);
  char pattern[] = "/tmp/ondrel-soak-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return 2;
  const std::string dir = pattern, root = dir + "/";
  WriteResponse(root + "room.wav", 6000, 900.0f, 1u);
  WriteResponse(root + "loop.wav", 44100, 1e9f, 2u);
  // The response is stored scrambled, so that every load makes and removes
  // a clear copy.
  decrypt_file((root + "room.wav").c_str(), (root + "room.tmp").c_str());
  std::rename((root + "room.tmp").c_str(), (root + "room.wav").c_str());
  const char* roots[] = {root.c_str()};
  ondrel_set_resource_root(roots, 1);

  void* inst = ondrel_create_inst();
  ondrel_setup_input(inst, 2, 0);
  ondrel_set_samplerate(inst, kBaseRate);
  std::vector<AEffect*> chain = MakeChain();
  const int chainLength = static_cast<int>(chain.size());
  int rc = ondrel_set_params(inst, chain.data(), chainLength);
  if (rc != ONDREL_OK) {
    std::fprintf(stderr, "set_params: %d\n", rc);
    return 1;
  }

  std::vector<float> in(2 * kFrames), out(static_cast<size_t>(kWidestChain) * kFrames * 8);
  std::mt19937 rng(20261124u);
  std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
  std::vector<Hour> report;
  Hour hour;
  const long long totalFrames = static_cast<long long>(hours * 3600.0 * kBaseRate);
  const long long framesPerHour = static_cast<long long>(3600.0 * kBaseRate);
  const long long framesPerMinute = static_cast<long long>(60.0 * kBaseRate);
  float rate = kBaseRate;
  double phase = 0.0;
  int statusErrors = 0;
  std::vector<std::string> lastMoves;  // the latest slider moves, for a failure report
  std::printf("%5s %9s %7s %9s %9s %9s %4s %4s %9s %7s\n", "hour", "wall s", "x rt", "mean us",
              "worst us", "rss kB", "fds", "-dec", "nonfinite", "queued");
  auto wallStart = std::chrono::steady_clock::now();
  for (long long frame = 0; frame < totalFrames; frame += kFrames) {
    const long long minute = frame / framesPerMinute;
    const bool newMinute = frame % framesPerMinute < kFrames;
    // Music: a slow chord with noise, 30 s of silence every ten minutes.
    const bool silent = minute % 10 == 9 && (frame % framesPerMinute) < framesPerMinute / 2;
    for (int n = 0; n < kFrames; ++n) {
      phase += 2.0 * 3.141592653589793 / rate;
      const float tone = static_cast<float>(0.25 * std::sin(110.0 * phase) +
                                            0.15 * std::sin(440.0 * phase + std::sin(0.3 * phase)));
      in[2 * n] = silent ? 0.0f : tone + 0.05f * noise(rng);
      in[2 * n + 1] = silent ? 0.0f : 0.8f * tone + 0.05f * noise(rng);
    }
    if (newMinute && frame > 0) {
      std::string worst;
      const int queued = QueuedFrames(inst, &worst);
      hour.queuedMax = std::max(hour.queuedMax, queued);
      if (queued > 10 * static_cast<int>(kBaseRate)) {
        std::printf("minute %lld: %d frames queued in the chain, most in %s\n", minute, queued,
                    worst.c_str());
        for (const std::string& m : lastMoves) std::printf("  after %s\n", m.c_str());
        ++statusErrors;
        break;
      }
      AEffect* handles[128];
      int count = 0;
      ondrel_get_params(inst, handles, 128, &count);
      if (count > 0) {
        // Every minute a slider of one effect moves on the running chain.
        AEffect* fx = handles[rng() % static_cast<unsigned>(count)];
        if (fx->numParams > 0) {
          const int p = static_cast<int>(rng() % static_cast<unsigned>(fx->numParams));
          if (!fx->dispatcher(fx, ONDREL_OP_IS_PARAM_BINARY, p, 0, nullptr, 0.0f)) {
            const float v = 0.3f + 0.4f * static_cast<float>(rng() % 1000) / 1000.0f;
            fx->dispatcher(fx, ONDREL_OP_SET_PARAM_NORMALIZED, p, 0, nullptr, v);
            char move[128];
            std::snprintf(move, sizeof move, "minute %lld: type %d param %d to %.3f", minute,
                          fx->object->GetEffectType(), p, v);
            lastMoves.push_back(move);
            if (lastMoves.size() > 4) lastMoves.erase(lastMoves.begin());
          }
        }
      }
      if (minute % 5 == 0) {
        // A player re-sends its preset: through a stream, as hosts store it.
        void* stream = nullptr;
        int size = 0;
        if (ondrel_params2stream(&stream, &size, handles, count, "soak") == ONDREL_OK) {
          AEffect** list = nullptr;
          int n = 0;
          if (ondrel_stream2params(&list, &n, stream, size, nullptr) == ONDREL_OK) {
            if (minute % 15 == 0 && n > 0)  // one value differs: the on-the-fly path
              list[n - 1]->dispatcher(list[n - 1], ONDREL_OP_SET_PARAM_NORMALIZED, 0, 0, nullptr,
                                      0.5f + 0.1f * static_cast<float>(minute % 3));
            rc = ondrel_set_params(inst, list, n);
            if (rc != ONDREL_OK && rc != ONDREL_NOTHING_TO_DO) ++statusErrors;
            ondrel_destroy_params(list, n, false);
          }
          ondrel_destroy_paramstream(stream);
        }
      }
      if (minute % 60 == 30) {
        // Once an hour a full rebuild from fresh effects.
        std::vector<AEffect*> fresh = MakeChain();
        rc = ondrel_set_params(inst, fresh.data(), static_cast<int>(fresh.size()));
        if (rc != ONDREL_OK) ++statusErrors;
      }
      if (minute % 7 == 3) ondrel_flush_out(inst);  // a seek
      // Sample-rate changes in the middle of each hour, back to the base
      // rate before its last quarter, so that hours compare at one rate.
      const int inHour = static_cast<int>(minute % 60);
      const float wanted = inHour == 20 ? 48000.0f : inHour == 25 ? 96000.0f : kBaseRate;
      if ((inHour == 20 || inHour == 25 || inHour == 35) && wanted != rate) {
        rate = wanted;
        if (ondrel_set_samplerate(inst, rate) != ONDREL_OK) ++statusErrors;
      }
    }

    const double t0 = ThreadCpuMicros();
    int available = 0, written = 0;
    rc = ondrel_processf_input(inst, in.data(), 2 * kFrames, &available);
    if (rc != ONDREL_OK) ++statusErrors;
    rc = ondrel_processf_output(inst, out.data(), std::min<int>(available, out.size()), &written);
    if (rc != ONDREL_OK) ++statusErrors;
    const double us = ThreadCpuMicros() - t0;
    if (rate == kBaseRate) {
      hour.callSum += us;
      hour.calls += 1;
      hour.callWorst = std::max(hour.callWorst, us);
    }
    for (int i = 0; i < written; ++i)
      if (!std::isfinite(out[static_cast<size_t>(i)])) ++hour.nonFinite;

    if ((frame + kFrames) % framesPerHour < kFrames || frame + kFrames >= totalFrames) {
      const auto now = std::chrono::steady_clock::now();
      hour.wallSeconds = std::chrono::duration<double>(now - wallStart).count();
      wallStart = now;
      hour.rssKb = ResidentKb();
      hour.fds = CountEntries("/proc/self/fd", "");
      hour.clearCopies = CountEntries(dir, "-dec");
      report.push_back(hour);
      const double audioSeconds = std::min<double>(
          3600.0,
          static_cast<double>(frame + kFrames - (report.size() - 1) * framesPerHour) / kBaseRate);
      std::printf("%5zu %9.1f %7.1f %9.1f %9.0f %9ld %4d %4d %9ld %7d\n", report.size(),
                  hour.wallSeconds, audioSeconds / hour.wallSeconds,
                  hour.calls ? hour.callSum / hour.calls : 0.0, hour.callWorst, hour.rssKb,
                  hour.fds, hour.clearCopies, hour.nonFinite, hour.queuedMax);
      std::fflush(stdout);
      hour = Hour();
    }
  }
  ondrel_destroy_inst(inst);
  ondrel_uninit();
  std::system(("rm -rf '" + dir + "'").c_str());

  // Verdict: first against last hour (the second hour for memory, after the
  // warm-up).
  bool ok = statusErrors == 0;
  long nonFinite = 0;
  for (const Hour& h : report) nonFinite += h.nonFinite;
  ok &= nonFinite == 0;
  const Hour& first = report.front();
  const Hour& last = report.back();
  const Hour& warm = report.size() > 1 ? report[1] : report.front();
  const double meanFirst = first.calls ? first.callSum / first.calls : 0.0;
  const double meanLast = last.calls ? last.callSum / last.calls : 0.0;
  const bool timeFlat = meanLast < 1.25 * meanFirst + 5.0;
  const bool memoryFlat = last.rssKb < warm.rssKb + 8 * 1024;
  const bool handlesFlat = last.fds <= first.fds && last.clearCopies == 0;
  std::printf("status errors %d, non-finite samples %ld\n", statusErrors, nonFinite);
  std::printf("call time first/last hour %.1f/%.1f us: %s\n", meanFirst, meanLast,
              timeFlat ? "flat" : "GROWING");
  std::printf("resident memory after warm-up/last %ld/%ld kB: %s\n", warm.rssKb, last.rssKb,
              memoryFlat ? "flat" : "GROWING");
  std::printf("file handles first/last %d/%d, clear copies at the end %d: %s\n", first.fds,
              last.fds, last.clearCopies, handlesFlat ? "flat" : "GROWING");
  ok &= timeFlat && memoryFlat && handlesFlat;
  std::printf("%s\n", ok ? "soak passed" : "soak FAILED");
  return ok ? 0 : 1;
}
