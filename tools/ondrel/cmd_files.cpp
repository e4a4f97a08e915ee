// `ondrel scramble` and `ondrel preset encode|decode`: file conversions.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "preset.h"

namespace ondrel_tool {

namespace {

// The output of `preset encode` and `decode`; empty or "-" for decode is
// standard output.
void RequirePresetOutput(const PresetOptions& options) {
  if (options.output.empty() || options.output == "-") return;
  RequireOutputPath(options.output);
  RequireDistinctFiles(options.input, options.output);
}

}  // namespace

int RunScramble(const CommonOptions& common, const ScrambleOptions& options) {
  RequireInputFile(options.input);
  RequireOutputPath(options.output);
  RequireDistinctFiles(options.input, options.output);
  LibrarySession session(common);
  const std::string temp = TemporaryPathFor(options.output);
  RemoveOnInterrupt(temp);
  const bool written = ONDREL2::decrypt_file(options.input.c_str(), temp.c_str());
  ForgetOnInterrupt();
  if (!written) {
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
  std::string text = ReadFileBytes(options.input);
  RequirePresetOutput(options);
  if (!StartsWithJsonObject(text))
    UsageError(options.input +
               " is not a JSON preset (it does not start with '{'); if it is a binary stream, "
               "'ondrel preset decode' turns it into JSON");
  LibrarySession session(common);
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
  std::string bytes = ReadFileBytes(options.input);
  RequirePresetOutput(options);
  LibrarySession session(common);
  if (StartsWithJsonObject(bytes))
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
