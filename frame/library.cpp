// Library-level exported functions: init and shutdown, locale, stream
// reader, resource roots.
#include "frame/library.h"

#include <cstdlib>
#include <cstring>

#include "frame/log.h"
#include "framework/alloc.h"
#include "framework/catalogue.h"
#include "framework/script.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

void* DefaultOpen(const char*) { return nullptr; }
void DefaultClose(void*) {}
int DefaultRead(void*, void*, int) { return 0; }
int DefaultSeek(void*, long, int) { return 0; }
long DefaultTell(void*, uint32_t* high) {
  if (high != nullptr) *high = 0;
  return 0;
}

// Every resource reads as missing.
const ONDREL_STREAM_READER kDefaultReader = {&DefaultOpen, &DefaultClose, &DefaultRead,
                                             &DefaultSeek, &DefaultTell};

struct LibraryState {
  const ONDREL_STREAM_READER* reader = &kDefaultReader;
  char language[3] = {0, 0, 0};
  char country[3] = {0, 0, 0};
  char** roots = nullptr;
  int rootCount = 0;
};

LibraryState& State() {
  static LibraryState state;
  return state;
}

// Frees the list from last to first; the count is left at -1 on purpose so
// that a caller can tell "dropped" from "never set".
void DropResourceRoots() {
  LibraryState& s = State();
  if (s.roots != nullptr) {
    for (int i = s.rootCount - 1; i >= 0; --i) std::free(s.roots[i]);
    std::free(s.roots);
    s.roots = nullptr;
  }
  s.rootCount = -1;
}

char* CopyText(const char* text) {
  if (text == nullptr) text = "";
  size_t n = std::strlen(text) + 1;
  char* copy = AllocBlock<char>(n);
  if (copy != nullptr) std::memcpy(copy, text, n);
  return copy;
}

void SetCode(char* code, const char* text) {
  // The first two characters; a shorter text pads with zero bytes.
  code[0] = text[0];
  code[1] = text[0] != 0 ? text[1] : 0;
  code[2] = 0;
}

}  // namespace

const char* LocaleLanguage() { return State().language; }
const char* LocaleCountry() { return State().country; }

int ondrel_init(const ONDREL_STREAM_READER* reader) {
  if (!EnsureRegistry()) return ONDREL_E_NOMEM;
  LibraryState& s = State();
  s.reader = reader != nullptr ? reader : &kDefaultReader;
  ondrel_set_locale("zh", "CN");
  Log(kLogInfo, "[ON2L]:ondrel v%d init", 4);
  ondrel_set_modulator(nullptr, "GEAR_PRICE", 0.0);
  ondrel_set_modulator(nullptr, "PLATFORM", 50.0);
  ondrel_set_modulator(nullptr, "RAM", 50.0);
  ondrel_set_modulator(nullptr, "CPU", 50.0);
  return ONDREL_OK;
}

void ondrel_uninit() {
  DropResourceRoots();
  DestroyScriptEngine();
  DestroyRegistry();
}

const ONDREL_STREAM_READER* ondrel_get_onr() { return State().reader; }

int ondrel_set_locale(const char* language, const char* country) {
  LibraryState& s = State();
  if (language != nullptr) SetCode(s.language, language);
  if (country != nullptr) SetCode(s.country, country);
  return ONDREL_OK;
}

void ondrel_get_locale(char* language, char* country) {
  LibraryState& s = State();
  if (language != nullptr) std::memcpy(language, s.language, 3);
  if (country != nullptr) std::memcpy(country, s.country, 3);
}

int ondrel_set_resource_root(const char** roots, int count) {
  DropResourceRoots();
  if (count < 0) count = 0;
  if (roots == nullptr) count = 0;
  LibraryState& s = State();
  s.rootCount = count + 1;
  s.roots = AllocBlock<char*>(static_cast<size_t>(count + 1));
  if (s.roots == nullptr) {
    s.rootCount = -1;
    return ONDREL_E_NOMEM;
  }
  // The empty last root makes the bare name the final attempt.
  s.roots[count] = CopyText("");
  for (int i = count - 1; i >= 0; --i) {
    s.roots[i] = CopyText(roots[i]);
    Log(kLogInfo, "[ON2L]:set_resource_root[%d]: %s", i, s.roots[i] ? s.roots[i] : "");
  }
  return ONDREL_OK;
}

const char** ondrel_get_res_paths(int* count) {
  LibraryState& s = State();
  if (count != nullptr) *count = s.rootCount;
  return const_cast<const char**>(s.roots);
}

}  // namespace ONDREL2
