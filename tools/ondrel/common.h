// Shared pieces of the ondrel tool: exit codes, the error type every command
// throws, the library session, and small text helpers.
#ifndef ONDREL_TOOL_COMMON_H
#define ONDREL_TOOL_COMMON_H

#include <cstdarg>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace ondrel_tool {

// Exit codes of every command.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // processing failed; the library's status is printed
constexpr int kExitUsage = 2;    // the command line, a preset or an input is wrong

// Everything a command reports to the person at the terminal. The message is
// complete ("cannot open 'x.wav': No such file or directory"); main prints it
// after "ondrel: " and exits with `code`.
class ToolError : public std::runtime_error {
 public:
  ToolError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

[[noreturn]] void UsageError(const std::string& message);
[[noreturn]] void Failure(const std::string& message);

// "2000 (invalid argument)" and so on.
std::string StatusText(int status);
// Throws a processing failure naming `what` unless `status` is 0.
void CheckStatus(int status, const std::string& what);

// Prints "warning: ..." on standard error.
void Warn(const std::string& message);

// Options that every command shares.
struct CommonOptions {
  bool verbose = false;
  std::string locale;                  // "ll-CC", "ll" or empty for the environment's
  std::vector<std::string> resources;  // resource roots
  std::string rooms;                   // headphone rooms; empty for the default set
};

// One use of the library: ondrel_init on construction with the log routed to
// standard error (silent unless verbose), the locale and resource roots set;
// ondrel_uninit on destruction.
class LibrarySession {
 public:
  explicit LibrarySession(const CommonOptions& options);
  ~LibrarySession();
  LibrarySession(const LibrarySession&) = delete;
  LibrarySession& operator=(const LibrarySession&) = delete;

  // The threshold that the session chose (7 silent, 4 verbose).
  static int QuietLevel();
};

// Splits "ll-CC" (or "ll_CC", "ll") and applies it with ondrel_set_locale.
// An empty text takes the environment's (LC_ALL, LC_MESSAGES, LANG), falling
// back to "en-US".
void ApplyLocale(const std::string& locale);

// printf into a std::string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The shortest decimal text that reads back as the same float.
std::string FloatText(float value);
// `value` as a double whose shortest text is FloatText(value): what a preset
// file should show for a stored float.
double FloatForJson(float value);

// Terminal columns that a UTF-8 text takes (East Asian wide characters count
// two).
int DisplayWidth(const std::string& text);
// `text` padded with spaces to `width` columns.
std::string PadRight(const std::string& text, int width);

// Peak of |samples| in dBFS ("-inf" for silence).
std::string PeakText(float peak);

// True when standard error is a terminal.
bool StderrIsTerminal();

// The whole file; a usage error naming the path if it cannot be read.
std::string ReadFileBytes(const std::string& path);

// Usage error unless `path` names a readable file (not a directory).
void RequireInputFile(const std::string& path);
// Usage error, before any work is done, unless `path` can be written: not a
// directory, in a directory that exists and may be written to.
void RequireOutputPath(const std::string& path);
// Usage error when `output` is `input` (or another name of it): the result
// would replace the file it is made from.
void RequireDistinctFiles(const std::string& input, const std::string& output);

// A name beside `path`, in the same directory, for a file that is renamed
// into place once complete.
std::string TemporaryPathFor(const std::string& path);
// Removes the file at `path` (a temporary one) if the tool is interrupted by
// SIGINT, SIGTERM or SIGHUP before ForgetOnInterrupt; one file at a time.
void RemoveOnInterrupt(const std::string& path);
void ForgetOnInterrupt();
// Writes `bytes` to a temporary file beside `path` and renames it into place:
// `path` is either complete or untouched.
void WriteFileAtomically(const std::string& path, const std::string& bytes);
// Creates `dir` (and its parents) if needed; usage error if that fails.
void MakeDirectories(const std::string& dir);

// Parses "NAME=VALUE" with a numeric value; `what` names the option.
void ParseNameNumber(const std::string& text, const std::string& what, std::string* name,
                     double* value);

// Applies each "NAME=VALUE" with ondrel_set_modulator (no instance named).
void ApplyModulators(const std::vector<std::string>& modulators);

// Runs a command body: every error becomes one
// "ondrel: ..." line on standard error and an exit code.
template <typename Body>
int Guarded(Body body) {
  try {
    return body();
  } catch (const ToolError& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "ondrel: %s\n", e.what());
    return e.code();
  } catch (const std::out_of_range& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "ondrel: the library was asked for a name it does not know (%s)\n",
                 e.what());
    return kExitUsage;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "ondrel: out of memory\n");
    return kExitFailure;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ondrel: %s\n", e.what());
    return kExitFailure;
  }
}

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_COMMON_H
