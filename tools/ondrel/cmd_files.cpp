// `ondrel scramble` and `ondrel preset encode|decode`: file conversions.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "preset.h"

namespace ondrel_tool {

namespace {

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

void RequireReadable(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) UsageError("cannot open '" + path + "': " + std::strerror(errno));
  std::fclose(f);
}

}  // namespace

int RunScramble(const CommonOptions& common, const ScrambleOptions& options) {
  RequireReadable(options.input);
  if (SameFile(options.input, options.output))
    UsageError("input and output are the same file: write the result to another name");
  LibrarySession session(common);
  const std::string temp = TemporaryPathFor(options.output);
  if (!ONDREL2::decrypt_file(options.input.c_str(), temp.c_str())) {
    std::remove(temp.c_str());
    UsageError("cannot write '" + options.output + "' (decrypt_file failed)");
  }
  if (std::rename(temp.c_str(), options.output.c_str()) != 0) {
    int err = errno;
    std::remove(temp.c_str());
    Failure("cannot move the finished file into place as '" + options.output +
            "': " + std::strerror(err));
  }
  return kExitOk;
}

int RunPresetEncode(const CommonOptions& common, const PresetOptions& options) {
  LibrarySession session(common);
  std::string text = ReadFileBytes(options.input);
  LoadedPreset preset = PresetFromJson(ParseJsonText(text, options.input), options.input);
  void* stream = nullptr;
  int size = 0;
  CheckStatus(ONDREL2::ondrel_params2stream(&stream, &size, preset.effects.data(),
                                            preset.effects.size(), preset.text.c_str()),
              "ondrel_params2stream");
  std::string bytes(static_cast<const char*>(stream), static_cast<size_t>(size));
  ONDREL2::ondrel_destroy_paramstream(stream);
  WriteFileAtomically(options.output, bytes);
  return kExitOk;
}

int RunPresetDecode(const CommonOptions& common, const PresetOptions& options) {
  LibrarySession session(common);
  std::string bytes = ReadFileBytes(options.input);
  size_t first = bytes.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && bytes[first] == '{')
    UsageError(options.input +
               " is a JSON preset already; 'ondrel preset encode' turns it into a stream");
  LoadedPreset preset = PresetFromStream(bytes, options.input);
  std::string text =
      PresetToJson(preset.text, preset.effects.data(), preset.effects.size()).dump(2) + "\n";
  if (options.output.empty() || options.output == "-") {
    std::fputs(text.c_str(), stdout);
  } else {
    WriteFileAtomically(options.output, text);
  }
  return kExitOk;
}

}  // namespace ondrel_tool
