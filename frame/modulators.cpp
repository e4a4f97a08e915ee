#include "frame/modulators.h"
#include "framework/alloc.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace ONDREL2 {

ModulatorMap& UserModulators() {
  static ModulatorMap map;
  return map;
}

ModulatorMap& SystemModulators() {
  static ModulatorMap map;
  return map;
}

double* ScriptMemory() {
  static double memory[kScriptMemorySize];
  return memory;
}

bool& ModulatorChangedFlag() {
  static bool flag = false;
  return flag;
}

bool& TwoPassFlag() {
  static bool flag = false;
  return flag;
}

void SetSystemModulator(const char* name, double value) { SystemModulators()[name] = value; }

void InitSystemModulator(const char* name, double value) {
  SystemModulators().emplace(name, value);
}

double GetSystemModulator(const char* name) { return SystemModulators()[name]; }

void ClearSystemModulators() {
  TwoPassFlag() = false;
  std::memset(ScriptMemory(), 0, sizeof(double) * kScriptMemorySize);
  SystemModulators().clear();
}

namespace {

// A cell index is the argument truncated toward zero. Presets are shared
// files, so every access is bounded to the memory's cells: an index outside
// them (or not a number) reads 0 and writes nothing.
inline bool CellIndex(double index, long* cell) {
  if (!(index > -1.0 && index < kScriptMemorySize)) return false;
  *cell = static_cast<long>(index);
  return true;
}

double FnGet(double i) {
  long cell = 0;
  return CellIndex(i, &cell) ? ScriptMemory()[cell] : 0.0;
}

double FnPut(double i, double v) {
  long cell = 0;
  if (CellIndex(i, &cell)) ScriptMemory()[cell] = v;
  return v;
}

// Stores `v` at m[start + k] for every whole k from 0 while k < n; only the
// cells that exist are written.
double FnFill(double v, double start, double n) {
  if (n < 0) n = kScriptMemorySize - start;
  if (n > 0) {
    const double first = std::trunc(start);
    for (long cell = 0; cell < kScriptMemorySize; ++cell) {
      const double k = static_cast<double>(cell) - first;
      if (k >= 0 && k < n) ScriptMemory()[cell] = v;
    }
  }
  return v;
}

// Moves trunc(n * 8) bytes from m[src] to m[dst] as one overlapping move.
// Bytes whose destination lies outside the memory are dropped; bytes whose
// source lies outside it arrive as zeros.
double FnCpy(double dst, double src, double n) {
  if (n < 0) n = kScriptMemorySize - src;
  constexpr double kLimit = 1e12;  // far outside the memory, still exact
  const double bytesD = std::trunc(n * 8);
  if (!(bytesD > 0) || !(std::fabs(src) < kLimit) || !(std::fabs(dst) < kLimit)) return FnGet(dst);
  const long long size = static_cast<long long>(kScriptMemorySize) * 8;
  const long long bytes =
      bytesD < static_cast<double>(4 * size) ? static_cast<long long>(bytesD) : 4 * size;
  const long long from = static_cast<long long>(std::trunc(src)) * 8;
  const long long to = static_cast<long long>(std::trunc(dst)) * 8;
  unsigned char* m = reinterpret_cast<unsigned char*>(ScriptMemory());
  // The part whose both ends exist moves as one block.
  const long long lo = std::max({0LL, -from, -to});
  const long long hi = std::min({bytes, size - from, size - to});
  if (hi > lo) std::memmove(m + to + lo, m + from + lo, static_cast<size_t>(hi - lo));
  // Destination bytes whose source does not exist.
  const long long zlo = std::max(0LL, -to), zhi = std::min(bytes, size - to);
  for (long long j = zlo; j < zhi; ++j)
    if (from + j < 0 || from + j >= size) m[to + j] = 0;
  return FnGet(dst);
}

double FnIf(double c, double a, double b) { return c != 0 ? a : b; }
double FnNot(double x) { return x == 0 ? 1 : 0; }
double FnEq(double a, double b) { return a == b ? 1 : 0; }
double FnNeq(double a, double b) { return a != b ? 1 : 0; }
double FnGt(double a, double b) { return a > b ? 1 : 0; }
double FnGe(double a, double b) { return a >= b ? 1 : 0; }
double FnLt(double a, double b) { return b > a ? 1 : 0; }
double FnLe(double a, double b) { return b >= a ? 1 : 0; }

// A number from 0 up to x. Two draws on purpose; no seed is set.
double FnRnd(double x) {
  int a = std::rand();
  if (a == 0) return 0.0;
  int b = std::rand();
  int r = b % a;
  if (r == 0) return 0.0;
  return static_cast<double>(r) * x / static_cast<double>(a);
}

constexpr int kPure = 32;
constexpr int kFunction = 8;

const xvariable kFunctions[kModulatorFunctionCount] = {
    {"get", reinterpret_cast<void*>(&FnGet), kFunction + 1 + kPure, nullptr},
    {"put", reinterpret_cast<void*>(&FnPut), kFunction + 2 + kPure, nullptr},
    {"fill", reinterpret_cast<void*>(&FnFill), kFunction + 3 + kPure, nullptr},
    {"cpy", reinterpret_cast<void*>(&FnCpy), kFunction + 3 + kPure, nullptr},
    {"if", reinterpret_cast<void*>(&FnIf), kFunction + 3 + kPure, nullptr},
    {"not", reinterpret_cast<void*>(&FnNot), kFunction + 1 + kPure, nullptr},
    {"eq", reinterpret_cast<void*>(&FnEq), kFunction + 2 + kPure, nullptr},
    {"neq", reinterpret_cast<void*>(&FnNeq), kFunction + 2 + kPure, nullptr},
    {"gt", reinterpret_cast<void*>(&FnGt), kFunction + 2 + kPure, nullptr},
    {"ge", reinterpret_cast<void*>(&FnGe), kFunction + 2 + kPure, nullptr},
    {"lt", reinterpret_cast<void*>(&FnLt), kFunction + 2 + kPure, nullptr},
    {"le", reinterpret_cast<void*>(&FnLe), kFunction + 2 + kPure, nullptr},
    {"rnd", reinterpret_cast<void*>(&FnRnd), kFunction + 1 + kPure, nullptr},
};

const int kGenreTable[63] = {3, 3, 4, 3, 3, 3, 3, 3, 3, 1, 3, 3, 3, 3, 1, 3, 3, 3, 3, 3, 1,
                             3, 2, 3, 4, 3, 3, 3, 1, 3, 3, 3, 4, 3, 3, 3, 1, 3, 3, 3, 3, 3,
                             3, 2, 3, 2, 3, 3, 4, 3, 3, 1, 3, 3, 3, 3, 2, 3, 3, 3, 3, 3, 3};

}  // namespace

const xvariable* ModulatorFunctions() { return kFunctions; }

int GenreOfZkv(int index) {
  if (index < 0 || index > 62) index = 0;
  return kGenreTable[index];
}

bool get_modulator_user(const char* name, double* value) {
  if (name == nullptr) return false;
  ModulatorMap& map = UserModulators();
  auto it = map.find(name);
  if (it == map.end()) return false;
  if (value != nullptr) *value = it->second;
  return true;
}

double get_modulator_user(const char* name) {
  double value = 0.0;
  get_modulator_user(name, &value);
  return value;
}

void set_modulator_user(const char* name, double value) {
  if (name == nullptr) return;
  UserModulators()[name] = value;
}

int lock_modulators(xvariable** list) {
  ModulatorMap& user = UserModulators();
  ModulatorMap& system = SystemModulators();
  int count = static_cast<int>(user.size() + system.size()) + kModulatorFunctionCount;
  auto* records = AllocBlock<xvariable>(static_cast<size_t>(count));
  if (records != nullptr) {
    int i = 0;
    for (auto& kv : user) {
      records[i].name = kv.first.c_str();
      records[i].address = &kv.second;
      ++i;
    }
    for (auto& kv : system) {
      records[i].name = kv.first.c_str();
      records[i].address = &kv.second;
      ++i;
    }
    for (int f = 0; f < kModulatorFunctionCount; ++f) records[i++] = kFunctions[f];
  }
  if (list != nullptr)
    *list = records;
  else
    std::free(records);  // nowhere to hand the list to
  return count;
}

void unlock_modulators(xvariable* list, int /*count*/) { std::free(list); }

}  // namespace ONDREL2
