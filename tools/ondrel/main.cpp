// ondrel: run audio through libondrel from the command line.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>

#include "commands.h"
#include "common.h"

using namespace ondrel_tool;

namespace {

void AddLocale(CLI::App* app, CommonOptions* common) {
  app->add_option("--locale", common->locale,
                  "Language for display names and labels: ll or ll-CC (en-US, zh-CN, zh-TW, ja); "
                  "default from LC_ALL/LC_MESSAGES/LANG, else en-US");
}

void AddModulators(CLI::App* app, std::vector<std::string>* modulators) {
  app->add_option("--modulator,-m", *modulators,
                  "Set a global value that parameter scripts read, NAME=VALUE (repeatable)")
      ->allow_extra_args(false);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"ondrel: run audio through the libondrel effects, inspect effects and presets."};
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Examples:\n"
      "  ondrel effects\n"
      "  ondrel params limiter\n"
      "  ondrel process song.flac out.wav --effect \"amplifier Gain=-6\"\n"
      "  ondrel demo --out demo\n"
      "Run 'ondrel COMMAND --help' for the options of a command.\n"
      "Exit codes: 0 success, 1 processing failure, 2 usage error.");

  CommonOptions common;
  app.add_flag("--verbose,-v", common.verbose, "Show the library's log messages on standard error");
  app.add_option("--resources,-r", common.resources,
                 "Directory in which effects look for resource files such as impulse responses "
                 "(repeatable; searched in order)")
      ->allow_extra_args(false);
  app.add_option("--rooms", common.rooms,
                 "Directory holding the headphone rooms (ReferenceRoom/, LiveRoom/, "
                 "MovieTheater/); default: the installed set, else the build tree's");

  // effects
  CLI::App* effects =
      app.add_subcommand("effects", "List the 40 effect types and which ones this build has");
  AddLocale(effects, &common);
  effects->footer("Examples:\n  ondrel effects\n  ondrel effects --locale zh-TW");

  // params
  ParamsOptions params;
  CLI::App* paramsCmd = app.add_subcommand("params", "Show the parameter table of an effect");
  paramsCmd->add_option("EFFECT", params.effect, "Short name (e.g. limiter) or type number")
      ->required();
  paramsCmd->add_flag("--json", params.json, "Print the table as JSON");
  AddLocale(paramsCmd, &common);
  paramsCmd->footer(
      "Columns: index, table name (what presets use), localised label, min / default / max in "
      "real\n"
      "units, display text of the default, binary (a text such as a file name), rebuild (a change\n"
      "rebuilds the chain), the two user-interface hints.\n"
      "Examples:\n  ondrel params amplifier\n  ondrel params 6 --locale ja\n  ondrel params eq10 "
      "--json");

  // process
  ProcessOptions process;
  CLI::App* processCmd =
      app.add_subcommand("process", "Run a sound file through a chain of effects");
  processCmd
      ->add_option("FILES", process.files,
                   "IN OUT: input sound file (anything libsndfile reads) and output file, whose "
                   "extension picks the container. With --out-dir: any number of input files and "
                   "directories (searched recursively for sound files)")
      ->required();
  processCmd->add_option("--out-dir,-o", process.outDir,
                         "Process every input into this directory, keeping names (and the "
                         "layout below an input directory) and each file's container");
  processCmd
      ->add_option("--jobs,-j", process.jobs,
                   "With --out-dir: files processed at once, each in a worker process of its own "
                   "(default: one per core)")
      ->check(CLI::Range(1, 256));
  processCmd->add_option("--ext", process.extension,
                         "With --out-dir: write this container (flac, wav, ogg, ...) instead of "
                         "each input's own");
  processCmd->add_flag("--skip-existing", process.skipExisting,
                       "With --out-dir: leave results that exist already alone");
  processCmd->add_option("--preset,-p", process.preset,
                         "Preset file: JSON or a binary parameter stream");
  processCmd
      ->add_option(
          "--effect,-e", process.effects,
          "Add an effect after the preset's: \"SHORTNAME Name=Value ...\" (repeatable). A name "
          "runs up to its '=' and may contain spaces; a value runs up to the next space unless "
          "quoted with '...'")
      ->allow_extra_args(false);
  AddModulators(processCmd, &process.modulators);
  processCmd
      ->add_option("--format,-f", process.format,
                   "Sample path and output samples: same (float processing, the input's sample "
                   "format when the container allows it), s16 (16-bit processing and output), f32 "
                   "(float processing and output)")
      ->check(CLI::IsMember({"same", "s16", "f32"}));
  processCmd
      ->add_option("--speed,-s", process.speed,
                   "Play the chain's output faster or slower without a change of pitch (1.25: "
                   "a quarter faster); reports the output length and where its end lies in the "
                   "source")
      ->check(CLI::PositiveNumber);
  processCmd->add_flag("--quiet,-q", process.quiet, "No progress bar and no summary");
  AddLocale(processCmd, &common);
  processCmd->footer(
      "Examples:\n"
      "  ondrel process in.wav out.wav --effect \"amplifier Gain=-6\"\n"
      "  ondrel process in.flac out.flac --preset presets/demo.json\n"
      "  ondrel process in.wav out.wav -e \"limiter Limit=-1 Release Time=80\" --format s16\n"
      "  ondrel process in.wav fast.wav --speed 1.25\n"
      "  ondrel process in.wav out.wav -p room.json -r /usr/share/ondrel/ -m GENRE_ZKV=9\n"
      "  ondrel process ~/Music --out-dir ~/Music-eq -p headphones.json -j 4\n"
      "  ondrel process a.flac b.ogg c.wav -o out/ --ext flac -e \"limiter Limit=-1\"\n"
      "A batch shows one progress bar on a terminal (files, hours of audio, real-time factor),\n"
      "reports each file that fails and goes on with the rest; the exit code is 1 if any failed.\n"
      "Results are written under a temporary name and renamed when complete.");

  // demo
  DemoOptions demo;
  CLI::App* demoCmd = app.add_subcommand(
      "demo", "Synthesise ten seconds of test music and run it through the demo preset");
  demoCmd
      ->add_option("--out,-o", demo.outDir, "Directory for input.wav, output.wav and response.png")
      ->capture_default_str();
  AddLocale(demoCmd, &common);
  demoCmd->footer("Examples:\n  ondrel demo\n  ondrel demo --out /tmp/ondrel-demo");

  // script
  ScriptOptions script;
  CLI::App* scriptCmd = app.add_subcommand(
      "script", "Run a parameter script the way the library runs it, and show the result");
  scriptCmd->add_option("SCRIPT", script.script, "Script text, or @FILE to read it from a file")
      ->required();
  scriptCmd->add_option("--in", script.input, "The parameter's value, the script's 'in'")
      ->required();
  AddModulators(scriptCmd, &script.modulators);
  scriptCmd->footer(
      "The script runs on the Gain parameter of an amplifier (range -96 to 18) inside a "
      "processing\n"
      "instance. Printed: the script's output, the value the effect uses (clamped to the range), "
      "the\n"
      "errors the script reported, and the global values it left.\n"
      "Examples:\n"
      "  ondrel script \"in*0.5\" --in -6\n"
      "  ondrel script $'#x=in*2\\nout+1' --in 3      (two lines in bash)\n"
      "  ondrel script @gain.script --in 0 -m GENRE_ZKV=9");

  // response
  ResponseOptions response;
  CLI::App* responseCmd =
      app.add_subcommand("response", "Draw the magnitude response of a preset's chain as a PNG");
  responseCmd
      ->add_option("PRESET", response.preset, "Preset file: JSON or a binary parameter stream")
      ->required();
  responseCmd->add_option("--out,-o", response.png, "PNG file to write")->required();
  responseCmd->add_option("--rate", response.rate, "Sample rate in Hz")
      ->capture_default_str()
      ->check(CLI::Range(8000, 384000));
  responseCmd->add_option("--channels", response.channels, "Input channels")
      ->capture_default_str()
      ->check(CLI::Range(1, 16));
  responseCmd
      ->add_option("--level", response.level,
                   "Impulse height in dBFS (keeps dynamics effects quiet)")
      ->capture_default_str()
      ->check(CLI::Range(-120.0, 0.0));
  responseCmd->add_option("--width", response.width, "Picture width in pixels")
      ->capture_default_str()
      ->check(CLI::Range(320, 8000));
  responseCmd->add_option("--height", response.height, "Picture height in pixels")
      ->capture_default_str()
      ->check(CLI::Range(240, 8000));
  responseCmd->add_option("--csv", response.csv, "Also write frequency and dB per channel as CSV");
  AddLocale(responseCmd, &common);
  responseCmd->footer(
      "Examples:\n"
      "  ondrel response presets/demo.json --out response.png\n"
      "  ondrel response eq.json --out eq.png --rate 44100 --channels 1 --csv eq.csv");

  // scramble
  ScrambleOptions scramble;
  CLI::App* scrambleCmd = app.add_subcommand(
      "scramble", "Scramble or unscramble a resource file (the operation is its own inverse)");
  scrambleCmd->add_option("IN", scramble.input, "File to read")->required();
  scrambleCmd->add_option("OUT", scramble.output, "File to write")->required();
  scrambleCmd->footer(
      "Examples:\n  ondrel scramble hall.wav hall.res\n  ondrel scramble hall.res hall-clear.wav");

  // preset encode / decode
  PresetOptions presetOpts;
  CLI::App* presetCmd =
      app.add_subcommand("preset", "Convert presets between JSON and the binary stream");
  presetCmd->require_subcommand(1);
  CLI::App* encodeCmd =
      presetCmd->add_subcommand("encode", "JSON preset to binary parameter stream");
  encodeCmd->add_option("IN", presetOpts.input, "JSON preset")->required();
  encodeCmd->add_option("OUT", presetOpts.output, "Binary stream to write")->required();
  CLI::App* decodeCmd =
      presetCmd->add_subcommand("decode", "Binary parameter stream to JSON preset");
  decodeCmd->add_option("IN", presetOpts.input, "Binary stream")->required();
  decodeCmd->add_option("OUT", presetOpts.output,
                        "JSON file to write (standard output if left out)");
  ImportOptions importOpts;
  CLI::App* importCmd = presetCmd->add_subcommand(
      "import", "Headphone equaliser text (ParametricEQ.txt, GraphicEQ.txt) to a JSON preset");
  importCmd->add_option("IN", importOpts.input, "Equaliser text file")->required();
  importCmd->add_option("OUT", importOpts.output, "JSON preset to write")->required();
  importCmd
      ->add_option("--rate", importOpts.rate,
                   "Sample rate for the stored bell and notch edges; their scripts recompute "
                   "them for the rate the chain runs at")
      ->capture_default_str()
      ->check(CLI::Range(8000, 384000));
  importCmd->add_flag("--no-scripts", importOpts.noScripts,
                      "Store the edges for --rate only, without scripts");
  importCmd->footer(
      "Reads 'Preamp: -6.2 dB' and 'Filter 1: ON PK Fc 105 Hz Gain -2.1 dB Q 0.70' lines (types\n"
      "PK, LS, HS, LSC, HSC, LP, HP, LPQ, HPQ, NO, AP; OFF filters are skipped), or a\n"
      "'GraphicEQ: 20 -1.2; 21 -1.3; ...' curve, which is fitted with 31 bells. The preset holds\n"
      "one biquad effect per filter and an amplifier for the preamp.\n"
      "Examples:\n"
      "  ondrel preset import \"HD 600 ParametricEQ.txt\" hd600.json\n"
      "  ondrel process song.flac out.flac -p hd600.json");
  presetCmd->footer(
      "JSON form: {\"text\": \"name\", \"effects\": [{\"type\": \"limiter\", \"params\": "
      "{\"Limit\": -1},\n"
      "            \"scripts\": {\"Limit\": \"in*0.5\"}}]}\n"
      "Types by short name or number, parameters by name in real units, binary parameters as "
      "texts.\n"
      "Examples:\n"
      "  ondrel preset encode warm.json warm.bin\n"
      "  ondrel preset decode warm.bin\n"
      "  ondrel preset decode warm.bin warm-again.json");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int code = app.exit(e);
    return code == 0 ? kExitOk : kExitUsage;
  }

  return Guarded([&]() -> int {
    if (effects->parsed()) return RunEffects(common);
    if (paramsCmd->parsed()) return RunParams(common, params);
    if (processCmd->parsed()) {
      if (!process.outDir.empty()) return RunBatch(common, process);
      if (process.jobs != 0 || !process.extension.empty() || process.skipExisting)
        UsageError("--jobs, --ext and --skip-existing go with --out-dir DIR");
      if (process.files.size() == 1)
        UsageError("OUT is required (or give --out-dir DIR to process one or more inputs)");
      if (process.files.size() > 2)
        UsageError("several inputs need --out-dir DIR for their results");
      process.input = process.files[0];
      process.output = process.files[1];
      return RunProcess(common, process);
    }
    if (demoCmd->parsed()) return RunDemo(common, demo);
    if (scriptCmd->parsed()) return RunScript(common, script);
    if (responseCmd->parsed()) return RunResponse(common, response);
    if (scrambleCmd->parsed()) return RunScramble(common, scramble);
    if (encodeCmd->parsed()) return RunPresetEncode(common, presetOpts);
    if (decodeCmd->parsed()) return RunPresetDecode(common, presetOpts);
    if (importCmd->parsed()) return RunPresetImport(common, importOpts);
    return kExitUsage;
  });
}
