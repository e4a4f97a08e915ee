// The subcommands of the ondrel tool. Each Run function returns the exit code
// or throws ToolError.
#ifndef ONDREL_TOOL_COMMANDS_H
#define ONDREL_TOOL_COMMANDS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common.h"
#include "effects.h"

namespace ondrel_tool {

int RunEffects(const CommonOptions& common);

struct ParamsOptions {
  std::string effect;
  bool json = false;
};
int RunParams(const CommonOptions& common, const ParamsOptions& options);

struct ProcessOptions {
  std::vector<std::string> files;  // as given: IN OUT, or inputs with --out-dir
  std::string input;
  std::string output;
  std::string preset;
  std::vector<std::string> effects;
  std::vector<std::string> modulators;
  std::string format = "same";  // same | s16 | f32
  double speed = 1.0;           // tempo factor through the play-speed controller
  bool quiet = false;
  // Batch use: a directory for the results, worker processes (0: one per
  // core), the output container's extension (empty: the input's), and
  // whether results that exist already are kept.
  std::string outDir;
  int jobs = 0;
  std::string extension;
  bool skipExisting = false;
  // Frames read so far, a few times a second, instead of the progress bar.
  std::function<void(int64_t)> onFrames;
};
int RunProcess(const CommonOptions& common, const ProcessOptions& options);
// Several inputs (files or directories) into `outDir`, each in a worker
// process of its own.
int RunBatch(const CommonOptions& common, const ProcessOptions& options);

struct DemoOptions {
  std::string outDir = "demo";
};
int RunDemo(const CommonOptions& common, const DemoOptions& options);

struct ScriptOptions {
  std::string script;  // the text, or @FILE
  double input = 0.0;
  std::vector<std::string> modulators;
};
int RunScript(const CommonOptions& common, const ScriptOptions& options);

struct ResponseOptions {
  std::string preset;
  std::string png;
  std::string csv;
  int rate = 48000;
  int channels = 2;
  double level = -20.0;  // impulse height in dBFS
  int width = 960;
  int height = 540;
};
int RunResponse(const CommonOptions& common, const ResponseOptions& options);

struct ScrambleOptions {
  std::string input;
  std::string output;
};
int RunScramble(const CommonOptions& common, const ScrambleOptions& options);

struct PresetOptions {
  std::string input;
  std::string output;
};
int RunPresetEncode(const CommonOptions& common, const PresetOptions& options);
int RunPresetDecode(const CommonOptions& common, const PresetOptions& options);

struct ImportOptions {
  std::string input;
  std::string output;
  int rate = 48000;
  bool noScripts = false;
};
int RunPresetImport(const CommonOptions& common, const ImportOptions& options);

// Pieces that demo shares with process and response.
struct Response {
  float rate = 0.0f;
  int channels = 0;
  std::vector<double> frequencies;            // Hz, bins 0..N/2
  std::vector<std::vector<double>> decibels;  // per output channel
  std::string chain;
};
// Runs an impulse of `levelDb` dBFS on every input channel through the
// effects (consumed) and measures the magnitude response of each output.
Response MeasureResponse(EffectList& effects, int channels, float rate, double levelDb);
void DrawResponse(const Response& response, const std::string& title, const std::string& path,
                  int width, int height);
void WriteResponseCsv(const Response& response, const std::string& path);

// Deterministic test music: about ten seconds, stereo, 44.1 kHz.
std::vector<float> SynthesizeDemoMusic(int rate, double seconds);

}  // namespace ondrel_tool

#endif  // ONDREL_TOOL_COMMANDS_H
