// Modulators: the global named values that parameter scripts compute with.
//
// Two ordered maps from name to double: user modulators, set by the host and
// by scripts and never cleared, and system modulators, written by the
// instance while it configures a chain (GV_SAMPLERATE, GV_CHANNELS,
// GV_FXBYPASSED) and by scripts, cleared at every configuration. Map nodes
// keep their address, so a compiled expression can hold a pointer to a
// value. Beside them: 1024 doubles of script memory, the modulator-changed
// flag ("modchg") and the two-pass flag. Nothing here is locked.
#pragma once

#include <map>
#include <string>

#include "ondrel.h"

namespace ONDREL2 {

constexpr int kScriptMemorySize = 1024;
constexpr int kModulatorFunctionCount = 13;

using ModulatorMap = std::map<std::string, double>;

ModulatorMap& UserModulators();
ModulatorMap& SystemModulators();
double* ScriptMemory();

// Raised when a user modulator changed with no instance named; consumed by
// the next process call or SetParams of any instance.
bool& ModulatorChangedFlag();
// Raised by a script that wants the chain configured in two passes.
bool& TwoPassFlag();

void SetSystemModulator(const char* name, double value);
// Creates `name` with `value` only if it is absent.
void InitSystemModulator(const char* name, double value);
// The value; an absent name is created at 0.0.
double GetSystemModulator(const char* name);
// Clears the two-pass flag, zeroes the script memory, empties the system map.
void ClearSystemModulators();

// The 13 functions offered to scripts (get, put, fill, cpy, if, not, eq,
// neq, gt, ge, lt, le, rnd), all pure, all on doubles.
const xvariable* ModulatorFunctions();

// GENRE_ZKV index to genre class, 63 entries.
int GenreOfZkv(int index);

}  // namespace ONDREL2
