// Placeholder until the script interpreter lands: scripts leave the value
// unchanged.
#include "framework/script.h"

#include "ondrel.h"

namespace ONDREL2 {

float RunScript(const char* /*text*/, float in) { return in; }

void DestroyScriptEngine() {}

int ondrel_set_script_error_handler(void (*)(const char*)) { return 0; }

}  // namespace ONDREL2
