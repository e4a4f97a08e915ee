#include "common.h"
#include "rooms.h"

#include <unistd.h>

#include <sys/stat.h>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "ondrel.h"

namespace ondrel_tool {

void UsageError(const std::string& message) { throw ToolError(kExitUsage, message); }
void Failure(const std::string& message) { throw ToolError(kExitFailure, message); }

std::string StatusText(int status) {
  const char* meaning = "unknown status";
  switch (status) {
    case ONDREL2::ONDREL_OK: meaning = "success"; break;
    case ONDREL2::ONDREL_E_STREAM:
      meaning =
          "parameter stream not loadable: too new, unknown effect type or too many parameters";
      break;
    case ONDREL2::ONDREL_E_INVALID: meaning = "invalid argument"; break;
    case ONDREL2::ONDREL_E_NOMEM: meaning = "out of memory"; break;
    case ONDREL2::ONDREL_E_SPEED: meaning = "invalid play-speed change"; break;
    case ONDREL2::ONDREL_E_UNAVAILABLE: meaning = "not available"; break;
    case ONDREL2::ONDREL_CHANNELS_CHANGED: meaning = "an effect changed its channel count"; break;
    case ONDREL2::ONDREL_NOTHING_TO_DO: meaning = "nothing to do"; break;
    default: break;
  }
  return Format("%d (%s)", status, meaning);
}

void CheckStatus(int status, const std::string& what) {
  if (status != 0) Failure(what + " failed with status " + StatusText(status));
}

void Warn(const std::string& message) { std::fprintf(stderr, "warning: %s\n", message.c_str()); }

namespace {

struct LogState {
  int threshold = 7;
  bool verbose = false;
};

LogState& Log() {
  static LogState state;
  return state;
}

// The library's messages carry no line end; the tool adds one and sends them
// to standard error so that standard output stays for results.
void LogHandler(int /*level*/, const char* format, ...) {
  LogState& s = Log();
  if (s.verbose) {
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
  }
}

bool IsDirectory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

LibrarySession::LibrarySession(const CommonOptions& options) {
  LogState& s = Log();
  s.verbose = options.verbose;
  s.threshold = options.verbose ? 4 : 7;
  set_xlog_handler(&LogHandler);
  set_xlog_level(s.threshold);
  if (!options.rooms.empty() && !IsDirectory(options.rooms))
    UsageError("rooms directory '" + options.rooms + "' is not a directory");
  CheckStatus(ONDREL2::ondrel_init(FileReader(RoomsDirectory(options.rooms))), "ondrel_init");
  ApplyLocale(options.locale);
  if (!options.resources.empty()) {
    std::vector<std::string> roots;
    for (const std::string& dir : options.resources) {
      if (!IsDirectory(dir)) {
        ONDREL2::ondrel_uninit();
        UsageError("resource root '" + dir + "' is not a directory");
      }
      // The library joins root and name without a separator of its own.
      roots.push_back(dir.back() == '/' ? dir : dir + "/");
    }
    std::vector<const char*> pointers;
    for (const std::string& r : roots) pointers.push_back(r.c_str());
    ONDREL2::ondrel_set_resource_root(pointers.data(), static_cast<int>(pointers.size()));
  }
}

LibrarySession::~LibrarySession() { ONDREL2::ondrel_uninit(); }

int LibrarySession::QuietLevel() { return Log().threshold; }

namespace {

// The display names of all effect types in the current locale.
std::vector<std::string> DisplayNames() {
  std::vector<std::string> names;
  for (int type = 1; type <= 40; ++type) {
    ONDREL2::AEffect* effect = nullptr;
    ONDREL2::ondrel_get_existing_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(type), &effect);
    char buffer[1024] = {0};
    if (effect != nullptr)
      effect->dispatcher(effect, ONDREL2::ONDREL_OP_GET_EFFECT_NAME, 0, 0, buffer, 0.0f);
    buffer[sizeof buffer - 1] = 0;
    names.push_back(buffer);
  }
  return names;
}

// True when some effect is named differently in the locale just set than in
// English: the library has texts of its own for it.
bool LocaleHasTexts(const std::string& language, const std::string& country) {
  if (language == "en") return true;
  const std::vector<std::string> local = DisplayNames();
  ONDREL2::ondrel_set_locale("en", "US");
  const std::vector<std::string> english = DisplayNames();
  ONDREL2::ondrel_set_locale(language.c_str(), country.c_str());
  return local != english;
}

}  // namespace

void ApplyLocale(const std::string& requested) {
  std::string text = requested;
  bool fromEnvironment = text.empty();
  if (fromEnvironment) {
    for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
      const char* v = std::getenv(var);
      if (v != nullptr && *v != 0) {
        text = v;
        break;
      }
    }
    // "zh_TW.UTF-8" -> "zh_TW"
    text = text.substr(0, text.find_first_of(".@"));
  }
  auto isLetter = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
  bool valid = (text.size() == 2 && isLetter(text[0]) && isLetter(text[1])) ||
               (text.size() == 5 && isLetter(text[0]) && isLetter(text[1]) &&
                (text[2] == '-' || text[2] == '_') && isLetter(text[3]) && isLetter(text[4]));
  if (!valid) {
    if (!fromEnvironment)
      UsageError("locale '" + requested +
                 "' is not of the form ll or ll-CC (e.g. en-US, zh-TW, ja)");
    text = "en-US";
  }
  std::string language = text.substr(0, 2);
  std::string country = text.size() == 5 ? text.substr(3, 2) : std::string();
  for (char& c : language) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (char& c : country) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ONDREL2::ondrel_set_locale(language.c_str(), country.c_str());
  if (!fromEnvironment && !LocaleHasTexts(language, country))
    Warn("libondrel has no texts for the locale '" + requested +
         "'; names and labels are shown in English");
}

std::string Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string out(n > 0 ? static_cast<size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(&out[0], static_cast<size_t>(n) + 1, format, args);
  va_end(args);
  return out;
}

std::string FloatText(float value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  for (int digits = 6; digits <= 9; ++digits) {
    std::string text = Format("%.*g", digits, static_cast<double>(value));
    if (std::strtof(text.c_str(), nullptr) == value) return text;
  }
  return Format("%.9g", static_cast<double>(value));
}

double FloatForJson(float value) {
  if (!std::isfinite(value)) return static_cast<double>(value);
  return std::strtod(FloatText(value).c_str(), nullptr);
}

namespace {

// Decodes one UTF-8 sequence at `p`; returns its length (1 for a stray byte).
int DecodeUtf8(const unsigned char* p, size_t left, uint32_t* cp) {
  if (p[0] < 0x80) {
    *cp = p[0];
    return 1;
  }
  int len = (p[0] & 0xE0) == 0xC0 ? 2 : (p[0] & 0xF0) == 0xE0 ? 3 : (p[0] & 0xF8) == 0xF0 ? 4 : 1;
  if (len == 1 || static_cast<size_t>(len) > left) {
    *cp = p[0];
    return 1;
  }
  uint32_t v = p[0] & (0x7F >> len);
  for (int i = 1; i < len; ++i) v = (v << 6) | (p[i] & 0x3F);
  *cp = v;
  return len;
}

bool IsWide(uint32_t cp) {
  return (cp >= 0x1100 && cp <= 0x115F) || (cp >= 0x2E80 && cp <= 0xA4CF) ||
         (cp >= 0xAC00 && cp <= 0xD7A3) || (cp >= 0xF900 && cp <= 0xFAFF) ||
         (cp >= 0xFE30 && cp <= 0xFE4F) || (cp >= 0xFF00 && cp <= 0xFF60) ||
         (cp >= 0xFFE0 && cp <= 0xFFE6) || (cp >= 0x20000 && cp <= 0x3FFFD);
}

}  // namespace

int DisplayWidth(const std::string& text) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  size_t left = text.size();
  int width = 0;
  while (left > 0) {
    uint32_t cp = 0;
    int n = DecodeUtf8(p, left, &cp);
    width += IsWide(cp) ? 2 : 1;
    p += n;
    left -= static_cast<size_t>(n);
  }
  return width;
}

std::string PadRight(const std::string& text, int width) {
  int w = DisplayWidth(text);
  return w >= width ? text : text + std::string(static_cast<size_t>(width - w), ' ');
}

std::string PeakText(float peak) {
  if (!(peak > 0.0f)) return "-inf dBFS";
  return Format("%.1f dBFS", 20.0 * std::log10(static_cast<double>(peak)));
}

bool StderrIsTerminal() { return ::isatty(STDERR_FILENO) != 0; }

std::string ReadFileBytes(const std::string& path) {
  RequireInputFile(path);
  std::ifstream in(path, std::ios::binary);
  if (!in) UsageError("cannot open '" + path + "': " + std::strerror(errno));
  std::ostringstream data;
  data << in.rdbuf();
  if (in.bad()) UsageError("cannot read '" + path + "'");
  return data.str();
}

void RequireInputFile(const std::string& path) {
  if (::access(path.c_str(), R_OK) != 0)
    UsageError("cannot open '" + path + "': " + std::strerror(errno));
  if (IsDirectory(path)) UsageError("'" + path + "' is a directory, not a file");
}

void RequireOutputPath(const std::string& path) {
  if (path.empty()) UsageError("the output file name is empty");
  if (path.back() == '/' || IsDirectory(path))
    UsageError("cannot write '" + path + "': it is a directory; name a file in it");
  size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  if (!IsDirectory(dir))
    UsageError("cannot write '" + path + "': the directory '" + dir + "' does not exist");
  if (::access(dir.c_str(), W_OK) != 0)
    UsageError("cannot write '" + path + "': the directory '" + dir +
               "' is not writable: " + std::strerror(errno));
}

void RequireDistinctFiles(const std::string& input, const std::string& output) {
  struct stat a, b;
  if (::stat(input.c_str(), &a) == 0 && ::stat(output.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
      a.st_ino == b.st_ino)
    UsageError("'" + output + "' is the input file: write the result to another name");
}

std::string TemporaryPathFor(const std::string& path) {
  size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  return dir + "." + base + ".part" + std::to_string(::getpid());
}

namespace {

char g_interruptPath[4096];
volatile std::sig_atomic_t g_interruptArmed = 0;

void OnInterrupt(int signal) {
  if (g_interruptArmed) ::unlink(g_interruptPath);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

void RemoveOnInterrupt(const std::string& path) {
  static bool installed = false;
  if (!installed) {
    for (int s : {SIGINT, SIGTERM, SIGHUP}) std::signal(s, &OnInterrupt);
    installed = true;
  }
  g_interruptArmed = 0;
  if (path.size() >= sizeof g_interruptPath) return;
  std::memcpy(g_interruptPath, path.c_str(), path.size() + 1);
  g_interruptArmed = 1;
}

void ForgetOnInterrupt() { g_interruptArmed = 0; }

void WriteFileAtomically(const std::string& path, const std::string& bytes) {
  const std::string temp = TemporaryPathFor(path);
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (f == nullptr) UsageError("cannot write '" + path + "': " + std::strerror(errno));
  bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  ok = std::fclose(f) == 0 && ok;
  if (!ok) {
    std::remove(temp.c_str());
    Failure("writing '" + path + "' failed: " + std::strerror(errno));
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    int err = errno;
    std::remove(temp.c_str());
    Failure("cannot move the finished file into place as '" + path + "': " + std::strerror(err));
  }
}

void MakeDirectories(const std::string& dir) {
  std::string partial;
  size_t pos = 0;
  while (pos != std::string::npos) {
    pos = dir.find('/', pos + 1);
    partial = dir.substr(0, pos);
    if (partial.empty() || IsDirectory(partial)) continue;
    if (::mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST)
      UsageError("cannot create the directory '" + partial + "': " + std::strerror(errno));
  }
  if (!IsDirectory(dir)) UsageError("'" + dir + "' is not a directory");
}

void ParseNameNumber(const std::string& text, const std::string& what, std::string* name,
                     double* value) {
  size_t eq = text.find('=');
  if (eq == std::string::npos || eq == 0)
    UsageError(what + " '" + text + "' is not of the form NAME=VALUE");
  *name = text.substr(0, eq);
  std::string number = text.substr(eq + 1);
  char* end = nullptr;
  errno = 0;
  *value = std::strtod(number.c_str(), &end);
  if (number.empty() || end == nullptr || *end != 0 || errno == ERANGE)
    UsageError(what + " '" + text + "': '" + number + "' is not a number");
}

void ApplyModulators(const std::vector<std::string>& modulators) {
  for (const std::string& m : modulators) {
    std::string name;
    double value = 0.0;
    ParseNameNumber(m, "modulator", &name, &value);
    ONDREL2::ondrel_set_modulator(nullptr, name.c_str(), value);
  }
}

}  // namespace ondrel_tool
