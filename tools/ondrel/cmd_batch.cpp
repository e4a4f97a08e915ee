// `ondrel process --out-dir`: many files through one chain.
//
// The library keeps its script state (modulators, script memory) per
// process, so files run in parallel in worker processes, never in threads.
// The parent never loads the library's chain itself: it forks one worker to
// check the chain (so a wrong preset stops the batch before any work), then
// one worker per file, at most `jobs` at a time. A worker is the plain
// single-file `process` with its progress and its messages sent back
// through two pipes; the parent draws one progress bar for the whole batch
// and turns each failure into one line.
#include <fcntl.h>
#include <poll.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio.h"
#include "commands.h"
#include "preset.h"

namespace ondrel_tool {

namespace fs = std::filesystem;

namespace {

struct Job {
  std::string input;
  std::string output;
  double seconds = 0.0;  // length of the input; 0 when libsndfile cannot tell
  int rate = 0;
};

// Extensions that the directory walk takes for sound files; files given by
// name are tried whatever they are called.
bool LooksLikeSound(const fs::path& file) {
  static const std::set<std::string> kExtensions = {
      "wav", "wave", "flac", "ogg",  "oga", "opus", "mp3",   "aif", "aiff", "aifc", "au",
      "snd", "caf",  "w64",  "rf64", "wv",  "voc",  "ircam", "sf",  "mat",  "pvf",  "xi",
      "htk", "sds",  "avr",  "wve",  "mpc", "sd2",  "paf",   "svx", "nist"};
  std::string ext = file.extension().string();
  if (ext.empty()) return false;
  ext = ext.substr(1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return kExtensions.count(ext) != 0;
}

bool IsHidden(const fs::path& relative) {
  for (const fs::path& part : relative)
    if (!part.empty() && part.string()[0] == '.') return true;
  return false;
}

fs::path Canonical(const fs::path& p) {
  std::error_code ec;
  fs::path c = fs::weakly_canonical(fs::absolute(p, ec), ec);
  return ec ? p : c;
}

bool IsInside(const fs::path& inner, const fs::path& outer) {
  auto i = inner.begin();
  for (auto o = outer.begin(); o != outer.end(); ++o, ++i) {
    if (o->empty()) continue;  // the trailing "" of "dir/"
    if (i == inner.end() || *i != *o) return false;
  }
  return true;
}

std::string OutputName(const fs::path& relative, const ProcessOptions& options) {
  fs::path out = fs::path(options.outDir) / relative;
  if (!options.extension.empty()) {
    std::string ext = options.extension;
    if (ext[0] != '.') ext = "." + ext;
    out.replace_extension(ext);
  }
  return out.lexically_normal().string();
}

// The inputs as files with the names of their results. Usage errors for
// inputs that do not exist and for two inputs that would write one result.
std::vector<Job> CollectJobs(const ProcessOptions& options) {
  const fs::path outDir = Canonical(options.outDir);
  std::vector<Job> jobs;
  for (const std::string& given : options.files) {
    std::error_code ec;
    if (fs::is_directory(given, ec)) {
      std::vector<fs::path> found;
      fs::recursive_directory_iterator it(given, fs::directory_options::skip_permission_denied, ec);
      if (ec) UsageError("cannot read the directory '" + given + "': " + ec.message());
      for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) UsageError("cannot read the directory '" + given + "': " + ec.message());
        const fs::path relative = it->path().lexically_relative(given);
        // The results may live below an input directory: never take them
        // (or their temporary files) as inputs.
        if (it->is_directory(ec) && IsInside(Canonical(it->path()), outDir)) {
          it.disable_recursion_pending();
          continue;
        }
        if (!it->is_regular_file(ec) || IsHidden(relative) || !LooksLikeSound(it->path())) continue;
        found.push_back(relative);
      }
      std::sort(found.begin(), found.end());
      for (const fs::path& relative : found)
        jobs.push_back({(fs::path(given) / relative).string(), OutputName(relative, options)});
    } else {
      RequireInputFile(given);
      jobs.push_back({given, OutputName(fs::path(given).filename(), options)});
    }
  }
  std::map<std::string, std::string> byOutput;
  for (const Job& job : jobs) {
    const std::string key = Canonical(job.output).string();
    auto [at, fresh] = byOutput.emplace(key, job.input);
    if (!fresh)
      UsageError("'" + at->second + "' and '" + job.input + "' would both be written to '" +
                 job.output + "'");
    if (Canonical(job.input).string() == key)
      UsageError("'" + job.output + "' is the input file: choose another --out-dir or --ext");
  }
  return jobs;
}

[[noreturn]] void ExitWorker(int code) {
  std::fflush(stdout);
  std::fflush(stderr);
  ::_exit(code);
}

// Builds the chain once in a throw-away process: a wrong preset, effect or
// modulator is reported before any file is touched.
int CheckChain(const CommonOptions& common, const ProcessOptions& options) {
  std::fflush(stdout);
  std::fflush(stderr);
  pid_t pid = ::fork();
  if (pid < 0) Failure(std::string("cannot start a worker process: ") + std::strerror(errno));
  if (pid == 0) {
    ExitWorker(Guarded([&] {
      LibrarySession session(common);
      EffectList effects;
      if (!options.preset.empty()) effects = std::move(LoadPresetFile(options.preset).effects);
      for (const std::string& text : options.effects) effects.Add(BuildInlineEffect(text));
      ApplyModulators(options.modulators);
      return kExitOk;
    }));
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return kExitFailure;
}

volatile std::sig_atomic_t g_stop = 0;
void OnStop(int) { g_stop = 1; }

struct Worker {
  pid_t pid = -1;
  size_t job = 0;
  int progressFd = -1;
  int messageFd = -1;
  int64_t frames = 0;  // read so far
  std::string messages;
};

bool ReadInto(int fd, std::string* text) {
  char buffer[4096];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      text->append(buffer, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    return n < 0 && errno == EAGAIN;  // false: end of file
  }
}

void SetNonBlocking(int fd) { ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK); }

std::string Duration(double seconds) {
  if (seconds >= 3600.0) return Format("%.2f h", seconds / 3600.0);
  if (seconds >= 60.0) return Format("%.1f min", seconds / 60.0);
  return Format("%.1f s", seconds);
}

std::string Speed(double wall, double audio) {
  if (wall <= 0.0 || audio <= 0.0) return "n/a";
  return Format("%.4f (%.0fx real time)", wall / audio, audio / wall);
}

class Batch {
 public:
  Batch(const CommonOptions& common, const ProcessOptions& options, std::vector<Job> jobs)
      : common_(common), options_(options), jobs_(std::move(jobs)) {
    for (const Job& job : jobs_) totalSeconds_ += job.seconds;
    bar_ = !options.quiet && StderrIsTerminal();
  }

  int Run(int parallel) {
    start_ = std::chrono::steady_clock::now();
    size_t next = 0;
    while ((next < jobs_.size() || !workers_.empty()) && !g_stop) {
      while (next < jobs_.size() && static_cast<int>(workers_.size()) < parallel && !g_stop) {
        const Job& job = jobs_[next];
        if (options_.skipExisting && ::access(job.output.c_str(), F_OK) == 0) {
          ++skipped_;
          ++next;
          continue;
        }
        Start(next++);
      }
      if (workers_.empty()) break;
      Wait();
      Draw(false);
    }
    if (g_stop) {
      for (Worker& w : workers_) ::kill(w.pid, SIGTERM);
      while (!workers_.empty()) Wait();
      ClearBar();
      std::fprintf(stderr, "ondrel: interrupted; %zu of %zu files were finished\n", done_,
                   jobs_.size());
      return 128 + SIGINT;
    }
    ClearBar();
    const double wall = Elapsed();
    if (!options_.quiet) {
      std::string skipped = skipped_ ? Format(", %zu kept as they were", skipped_) : "";
      std::printf(
          "%zu of %zu files processed%s%s | %s of audio in %s | real-time factor %s | %d "
          "worker%s\n",
          done_, jobs_.size(), failed_ ? Format(", %zu failed", failed_).c_str() : "",
          skipped.c_str(), Duration(doneSeconds_).c_str(), Duration(wall).c_str(),
          Speed(wall, doneSeconds_).c_str(), parallel, parallel == 1 ? "" : "s");
    }
    return failed_ ? kExitFailure : kExitOk;
  }

 private:
  void Start(size_t index) {
    int progress[2], messages[2];
    if (::pipe(progress) != 0) Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    if (::pipe(messages) != 0) {
      ::close(progress[0]);
      ::close(progress[1]);
      Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t pid = ::fork();
    if (pid < 0) Failure(std::string("cannot start a worker process: ") + std::strerror(errno));
    if (pid == 0) {
      for (int s : {SIGINT, SIGTERM, SIGHUP}) std::signal(s, SIG_DFL);
      // Should the parent go away, a progress write fails instead of
      // killing the worker before it removes its temporary file.
      std::signal(SIGPIPE, SIG_IGN);
      ::close(progress[0]);
      ::close(messages[0]);
      for (const Worker& w : workers_) {
        ::close(w.progressFd);
        ::close(w.messageFd);
      }
      ::dup2(messages[1], STDERR_FILENO);
      ::close(messages[1]);
      const int progressFd = progress[1];
      ProcessOptions one = options_;
      one.input = jobs_[index].input;
      one.output = jobs_[index].output;
      one.quiet = true;
      one.onFrames = [progressFd](int64_t frames) {
        // One whole record per write: a pipe never splits writes this small.
        ssize_t written = ::write(progressFd, &frames, sizeof frames);
        (void)written;
      };
      ExitWorker(Guarded([&] { return RunProcess(common_, one); }));
    }
    ::close(progress[1]);
    ::close(messages[1]);
    SetNonBlocking(progress[0]);
    SetNonBlocking(messages[0]);
    Worker w;
    w.pid = pid;
    w.job = index;
    w.progressFd = progress[0];
    w.messageFd = messages[0];
    workers_.push_back(w);
  }

  // Waits until some worker reports or ends (at most a fifth of a second),
  // then collects what all of them said.
  void Wait() {
    std::vector<pollfd> fds;
    for (const Worker& w : workers_) {
      if (w.progressFd >= 0) fds.push_back({w.progressFd, POLLIN, 0});
      if (w.messageFd >= 0) fds.push_back({w.messageFd, POLLIN, 0});
    }
    if (!fds.empty()) ::poll(fds.data(), fds.size(), 200);
    for (size_t i = 0; i < workers_.size();) {
      Worker& w = workers_[i];
      if (w.progressFd >= 0) {
        std::string records;
        bool open = ReadInto(w.progressFd, &records);
        for (size_t at = 0; at + sizeof(int64_t) <= records.size(); at += sizeof(int64_t))
          std::memcpy(&w.frames, records.data() + at, sizeof(int64_t));
        if (!open) {
          ::close(w.progressFd);
          w.progressFd = -1;
        }
      }
      if (w.messageFd >= 0 && !ReadInto(w.messageFd, &w.messages)) {
        ::close(w.messageFd);
        w.messageFd = -1;
      }
      if (w.progressFd < 0 && w.messageFd < 0) {
        Finish(w);
        workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        ++i;
      }
    }
  }

  void Finish(const Worker& w) {
    int status = 0;
    while (::waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (g_stop) return;
    const Job& job = jobs_[w.job];
    // What the worker said: warnings go on with the file's name, the error
    // line of a failed file becomes its one line.
    std::string error;
    size_t start = 0;
    ClearBar();
    while (start < w.messages.size()) {
      size_t end = w.messages.find('\n', start);
      if (end == std::string::npos) end = w.messages.size();
      std::string line = w.messages.substr(start, end - start);
      start = end + 1;
      if (line.empty()) continue;
      if (line.compare(0, 8, "ondrel: ") == 0) {
        error = line.substr(8);
      } else {
        std::fprintf(stderr, "%s: %s\n", job.input.c_str(), line.c_str());
      }
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kExitOk) {
      ++done_;
      doneSeconds_ += job.seconds;
      return;
    }
    ++failed_;
    if (WIFSIGNALED(status)) {
      // A worker that died cannot clean up: its temporary file carries its
      // process id.
      std::string temp = TemporaryPathFor(job.output);
      temp =
          temp.substr(0, temp.size() - std::to_string(::getpid()).size()) + std::to_string(w.pid);
      std::remove(temp.c_str());
      error = Format("the worker stopped on signal %d (%s)", WTERMSIG(status),
                     strsignal(WTERMSIG(status)));
    }
    if (error.empty()) error = Format("failed with exit code %d", WEXITSTATUS(status));
    std::fprintf(stderr, "ondrel: skipped '%s': %s\n", job.input.c_str(), error.c_str());
  }

  double Elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

  void Draw(bool force) {
    if (!bar_) return;
    auto now = std::chrono::steady_clock::now();
    if (!force && drawn_ && now - lastDraw_ < std::chrono::milliseconds(200)) return;
    lastDraw_ = now;
    double audio = doneSeconds_;
    for (const Worker& w : workers_)
      if (jobs_[w.job].rate > 0) audio += static_cast<double>(w.frames) / jobs_[w.job].rate;
    const double part = totalSeconds_ > 0.0 ? std::min(1.0, audio / totalSeconds_)
                                            : static_cast<double>(done_ + failed_) /
                                                  static_cast<double>(jobs_.size());
    const int width = 24;
    const int filled = static_cast<int>(part * width);
    std::string line =
        Format("\r[%s%s] %zu/%zu files | %.2f/%.2f h | ",
               std::string(static_cast<size_t>(filled), '#').c_str(),
               std::string(static_cast<size_t>(width - filled), '.').c_str(), done_ + failed_,
               jobs_.size() - skipped_, audio / 3600.0, totalSeconds_ / 3600.0);
    const double wall = Elapsed();
    line += audio > 0.0 && wall > 0.0 ? Format("RTF %.4f (%.0fx)", wall / audio, audio / wall)
                                      : std::string("RTF n/a");
    if (failed_) line += Format(" | %zu failed", failed_);
    std::fprintf(stderr, "%s\033[K", line.c_str());
    std::fflush(stderr);
    drawn_ = true;
  }

  void ClearBar() {
    if (bar_ && drawn_) std::fprintf(stderr, "\r\033[K");
    drawn_ = false;
  }

  const CommonOptions& common_;
  const ProcessOptions& options_;
  std::vector<Job> jobs_;
  std::vector<Worker> workers_;
  double totalSeconds_ = 0.0;
  double doneSeconds_ = 0.0;
  size_t done_ = 0, failed_ = 0, skipped_ = 0;
  bool bar_ = false;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_, lastDraw_;
};

}  // namespace

int RunBatch(const CommonOptions& common, const ProcessOptions& options) {
  if (options.files.empty()) UsageError("no input files");
  std::error_code ec;
  if (fs::exists(options.outDir, ec) && !fs::is_directory(options.outDir, ec))
    UsageError("--out-dir '" + options.outDir + "' is not a directory");
  std::vector<Job> jobs = CollectJobs(options);
  if (jobs.empty()) UsageError("no sound files found in the inputs");
  // Usage errors in the container or the chain stop the batch before work.
  if (!options.extension.empty()) ContainerForPath(jobs.front().output);
  const int checked = CheckChain(common, options);
  if (checked != kExitOk) return checked;

  for (Job& job : jobs) {
    MakeDirectories(fs::path(job.output).parent_path().string());
    SF_INFO info;
    std::memset(&info, 0, sizeof info);
    if (SNDFILE* file = sf_open(job.input.c_str(), SFM_READ, &info)) {
      if (info.samplerate > 0 && info.frames > 0) {
        job.rate = info.samplerate;
        job.seconds = static_cast<double>(info.frames) / info.samplerate;
      }
      sf_close(file);
    }
  }
  int parallel = options.jobs;
  if (parallel <= 0) parallel = static_cast<int>(std::max(1L, ::sysconf(_SC_NPROCESSORS_ONLN)));
  parallel = std::min<int>(parallel, static_cast<int>(jobs.size()));

  for (int s : {SIGINT, SIGTERM, SIGHUP}) std::signal(s, &OnStop);
  Batch batch(common, options, std::move(jobs));
  return batch.Run(parallel);
}

}  // namespace ondrel_tool
