// An outside host: includes only the public header, links the installed
// library, and runs one block through an amplifier.
#include <ondrel.h>

#include <cmath>
#include <cstdio>
#include <vector>

int main() {
  using namespace ONDREL2;
  set_xlog_level(7);
  if (ondrel_init(nullptr) != 0) return 1;
  void* inst = ondrel_create_inst();
  AEffect* fx = nullptr;
  if (inst == nullptr || ondrel_create_effect(EFFECT_AMPLIFIER, &fx) != 0) return 1;
  fx->dispatcher(fx, ONDREL_OP_SET_PARAM, 0, 0, nullptr, -20.0f);
  if (ondrel_set_params(inst, &fx, 1) != 0) return 1;
  std::vector<float> in(2 * 512, 0.5f), out(2 * 512);
  int available = 0, written = 0;
  ondrel_processf_input(inst, in.data(), static_cast<int>(in.size()), &available);
  ondrel_processf_output(inst, out.data(), static_cast<int>(out.size()), &written);
  ondrel_destroy_inst(inst);
  ondrel_uninit();
  if (written != 1024 || std::fabs(out[0] - 0.05f) > 1e-6f) {
    std::printf("unexpected output: %d samples, first %g\n", written, out[0]);
    return 1;
  }
  return 0;
}
