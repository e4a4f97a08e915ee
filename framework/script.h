// Parameter scripts: small line programs that turn a parameter's stored
// value into the value the DSP reads, from global modulators.
#pragma once

namespace ONDREL2 {

// Runs `text` with `in` as its input and returns the value of `out` at the
// end. Creates the process-wide script engine on first use.
float RunScript(const char* text, float in);

// Deletes the script engine, if any (library shutdown).
void DestroyScriptEngine();

}  // namespace ONDREL2
