// The ondrel LV2 plugins: one per effect type and one that runs a preset.
// Each plugin drives a processing instance of the library through ondrel.h.
//
// Threads: run() only feeds the instance and sets changed parameters on the
// running effect. Everything that allocates or reads files (building an
// instance, loading an impulse response or a preset) happens in
// instantiate/activate, in the worker when the host offers one, or in
// state restore; a finished instance is swapped in by work_response.
#include <lv2/atom/atom.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine.h"
#include "ondrel.h"
#include "plugin_catalogue.h"
#include "resource_reader.h"

namespace ondrel_lv2 {
namespace {

using ONDREL2::AEffect;

// Worker messages. A load carries the control values of the moment and the
// new path; a release hands a replaced engine back for destruction.
enum MessageKind : uint32_t { kLoad = 1, kRelease = 2 };
struct MessageHeader {
  uint32_t kind;
  uint32_t pathIndex;
  uint32_t valueCount;
  uint32_t pathBytes;
};
struct ReleaseMessage {
  uint32_t kind;
  Engine* engine;
};
constexpr uint32_t kMaxPathBytes = 2048;

void QuietLog(int, const char*, ...) {}

// The library's process-wide state is set up once: resources are read below
// the headphone room set, and the log is off (nothing is written from the
// audio thread).
void InitLibraryOnce(const char* bundlePath) {
  static std::once_flag once;
  std::call_once(once, [bundlePath] {
    set_xlog_handler(QuietLog);
    set_xlog_level(7);
    ONDREL2::ondrel_init(RoomReader(bundlePath));
  });
}

struct Plugin {
  const Variant* variant = nullptr;
  Layout layout;
  float rate = 44100.0f;
  LV2_URID_Map* map = nullptr;
  LV2_Worker_Schedule* worker = nullptr;
  LV2_URID atomPath = 0, atomSequence = 0, atomObject = 0, atomUrid = 0, patchSet = 0,
           patchProperty = 0, patchValue = 0;
  std::vector<LV2_URID> pathUrids;

  std::vector<const float*> in;
  std::vector<float*> out;
  std::vector<const float*> controls;
  float* latency = nullptr;
  const LV2_Atom_Sequence* control = nullptr;
  LV2_Atom_Sequence* notify = nullptr;

  Engine* engine = nullptr;
  bool starting = true;  // no cycle has run since activation
  // The paths asked for last, for state save (which may run beside run()).
  std::mutex pathsLock;
  std::vector<std::string> paths;

  ~Plugin() { delete engine; }

  Settings CurrentSettings() {
    Settings s = engine != nullptr ? engine->settings() : Settings();
    std::lock_guard<std::mutex> lock(pathsLock);
    s.paths = paths;
    return s;
  }
  Engine* Build(const Settings& s) {
    Engine* e = new Engine(*variant, layout, rate, s);
    if (!e->error().empty())
      std::fprintf(stderr, "ondrel.lv2: %s: %s\n", variant->shortName.c_str(), e->error().c_str());
    return e;
  }
  void SetPath(size_t index, const std::string& path) {
    std::lock_guard<std::mutex> lock(pathsLock);
    if (index < paths.size()) paths[index] = path;
  }
};

LV2_Handle Instantiate(const LV2_Descriptor* descriptor, double rate, const char* bundlePath,
                       const LV2_Feature* const* features) {
  const Variant* variant = FindVariant(descriptor->URI);
  if (variant == nullptr) return nullptr;
  InitLibraryOnce(bundlePath);
  auto plugin = std::make_unique<Plugin>();
  plugin->variant = variant;
  plugin->rate = static_cast<float>(rate);
  for (int i = 0; features != nullptr && features[i] != nullptr; ++i) {
    if (std::strcmp(features[i]->URI, LV2_URID__map) == 0)
      plugin->map = static_cast<LV2_URID_Map*>(features[i]->data);
    if (std::strcmp(features[i]->URI, LV2_WORKER__schedule) == 0)
      plugin->worker = static_cast<LV2_Worker_Schedule*>(features[i]->data);
  }
  try {
    plugin->layout = DescribeVariant(*variant, plugin->rate);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ondrel.lv2: %s\n", e.what());
    return nullptr;
  }
  const Layout& l = plugin->layout;
  if (l.HasAtomPorts()) {
    if (plugin->map == nullptr) {
      std::fprintf(stderr, "ondrel.lv2: %s needs the host's urid:map\n", descriptor->URI);
      return nullptr;
    }
    LV2_URID_Map* m = plugin->map;
    plugin->atomPath = m->map(m->handle, LV2_ATOM__Path);
    plugin->atomSequence = m->map(m->handle, LV2_ATOM__Sequence);
    plugin->atomObject = m->map(m->handle, LV2_ATOM__Object);
    plugin->atomUrid = m->map(m->handle, LV2_ATOM__URID);
    plugin->patchSet = m->map(m->handle, LV2_PATCH__Set);
    plugin->patchProperty = m->map(m->handle, LV2_PATCH__property);
    plugin->patchValue = m->map(m->handle, LV2_PATCH__value);
    for (const PathParam& p : l.paths)
      plugin->pathUrids.push_back(m->map(m->handle, p.uri.c_str()));
  }
  plugin->in.assign(static_cast<size_t>(l.inChannels), nullptr);
  plugin->out.assign(static_cast<size_t>(l.outChannels), nullptr);
  plugin->controls.assign(l.controls.size(), nullptr);
  plugin->paths.assign(l.paths.size(), std::string());
  // The library's defaults until the host's port values arrive.
  Settings defaults;
  AEffect* probe = nullptr;
  if (variant->type != 0 &&
      ONDREL2::ondrel_create_effect(static_cast<ONDREL2::ONDREL_EFFECT_TYPE>(variant->type),
                                    &probe) == 0) {
    for (const ControlParam& c : l.controls) {
      float v = 0.0f;
      probe->dispatcher(probe, ONDREL2::ONDREL_OP_GET_PARAM, c.index, 0, &v, 0.0f);
      defaults.values.push_back(v);
    }
    ONDREL2::ondrel_destroy_effect(probe);
  }
  defaults.paths = plugin->paths;
  plugin->engine = plugin->Build(defaults);
  return plugin.release();
}

void ConnectPort(LV2_Handle handle, uint32_t port, void* data) {
  Plugin* p = static_cast<Plugin*>(handle);
  const Layout& l = p->layout;
  const uint32_t in = static_cast<uint32_t>(l.inChannels);
  if (port < in) {
    p->in[port] = static_cast<const float*>(data);
  } else if (port < l.FirstControl()) {
    p->out[port - in] = static_cast<float*>(data);
  } else if (port < l.LatencyPort()) {
    p->controls[port - l.FirstControl()] = static_cast<const float*>(data);
  } else if (port == l.LatencyPort()) {
    p->latency = static_cast<float*>(data);
  } else if (l.HasAtomPorts() && port == l.AtomIn()) {
    p->control = static_cast<const LV2_Atom_Sequence*>(data);
  } else if (l.HasAtomPorts() && port == l.AtomOut()) {
    p->notify = static_cast<LV2_Atom_Sequence*>(data);
  }
}

// Rebuilds the engine when the control ports hold other values than it was
// built with; true if it did.
bool RebuildForPorts(Plugin* p) {
  Settings s = p->CurrentSettings();
  bool changed = false;
  for (size_t i = 0; i < p->controls.size() && i < s.values.size(); ++i) {
    if (p->controls[i] == nullptr) continue;
    float v = *p->controls[i];
    if (v == v && v != s.values[i]) {
      s.values[i] = v;
      changed = true;
    }
  }
  if (!changed) return false;
  delete p->engine;
  p->engine = p->Build(s);
  return true;
}

void Activate(LV2_Handle handle) {
  Plugin* p = static_cast<Plugin*>(handle);
  // An engine built with the host's values reports the latency that goes
  // with them.
  if (!RebuildForPorts(p)) p->engine->Reset();
  p->starting = true;
}

// A patch:Set of one of our path parameters: its index and the path.
bool ReadPathSet(Plugin* p, const LV2_Atom* atom, size_t* index, const char** path,
                 uint32_t* bytes) {
  if (atom->type != p->atomObject) return false;
  const LV2_Atom_Object* obj = reinterpret_cast<const LV2_Atom_Object*>(atom);
  if (obj->body.otype != p->patchSet) return false;
  const LV2_Atom* property = nullptr;
  const LV2_Atom* value = nullptr;
  lv2_atom_object_get(obj, p->patchProperty, &property, p->patchValue, &value, 0);
  if (property == nullptr || value == nullptr || property->type != p->atomUrid) return false;
  const LV2_URID key = reinterpret_cast<const LV2_Atom_URID*>(property)->body;
  if (value->type != p->atomPath || value->size == 0 || value->size > kMaxPathBytes) return false;
  for (size_t i = 0; i < p->pathUrids.size(); ++i) {
    if (p->pathUrids[i] != key) continue;
    *index = i;
    *path = static_cast<const char*>(LV2_ATOM_BODY_CONST(value));
    *bytes = value->size;
    return true;
  }
  return false;
}

void Swap(Plugin* p, Engine* fresh) {
  Engine* old = p->engine;
  p->engine = fresh;
  if (p->worker != nullptr) {
    ReleaseMessage msg{kRelease, old};
    if (p->worker->schedule_work(p->worker->handle, sizeof msg, &msg) == LV2_WORKER_SUCCESS) return;
  }
  delete old;
}

void HandleControlEvents(Plugin* p) {
  if (p->control == nullptr) return;
  LV2_ATOM_SEQUENCE_FOREACH(p->control, ev) {
    size_t index = 0;
    const char* path = nullptr;
    uint32_t bytes = 0;
    if (!ReadPathSet(p, &ev->body, &index, &path, &bytes)) continue;
    const size_t values = p->engine->settings().values.size();
    if (p->worker != nullptr) {
      // One message: header, the control values of the moment, the path.
      alignas(8) unsigned char msg[sizeof(MessageHeader) + 256 * sizeof(float) + kMaxPathBytes];
      if (values > 256) continue;
      MessageHeader h{kLoad, static_cast<uint32_t>(index), static_cast<uint32_t>(values), bytes};
      std::memcpy(msg, &h, sizeof h);
      std::memcpy(msg + sizeof h, p->engine->settings().values.data(), values * sizeof(float));
      std::memcpy(msg + sizeof h + values * sizeof(float), path, bytes);
      p->worker->schedule_work(
          p->worker->handle, static_cast<uint32_t>(sizeof h + values * sizeof(float) + bytes), msg);
    } else {
      // No worker: the host accepts that the load happens here.
      Settings s = p->CurrentSettings();
      std::string text(path, strnlen(path, bytes));
      s.paths[index] = text;
      p->SetPath(index, text);
      Swap(p, p->Build(s));
    }
  }
}

void Run(LV2_Handle handle, uint32_t frames) {
  Plugin* p = static_cast<Plugin*>(handle);
  if (p->layout.HasAtomPorts()) {
    HandleControlEvents(p);
    if (p->notify != nullptr) {
      // Nothing to tell: an empty sequence.
      p->notify->atom.type = p->atomSequence;
      p->notify->atom.size = sizeof(LV2_Atom_Sequence_Body);
      p->notify->body.unit = 0;
      p->notify->body.pad = 0;
    }
  }
  if (p->starting) {
    // Some hosts (GStreamer) write their control values only for the first
    // cycle. Before any audio has passed, the engine is built again for them
    // (deliberately, once per activation): a change on the fly would let
    // effects such as the limiter start from the defaults' state, and the
    // stream would differ from one processed with these values offline.
    p->starting = false;
    RebuildForPorts(p);
  }
  p->engine->ApplyControls(p->controls.data(), p->controls.size());
  p->engine->Run(p->in.data(), p->out.data(), static_cast<int>(p->out.size()), frames);
  if (p->latency != nullptr) *p->latency = static_cast<float>(p->engine->latency());
}

void Deactivate(LV2_Handle) {}

void Cleanup(LV2_Handle handle) { delete static_cast<Plugin*>(handle); }

LV2_Worker_Status Work(LV2_Handle handle, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle respondHandle, uint32_t size, const void* data) {
  Plugin* p = static_cast<Plugin*>(handle);
  uint32_t kind = 0;
  if (size < sizeof kind) return LV2_WORKER_ERR_UNKNOWN;
  std::memcpy(&kind, data, sizeof kind);
  if (kind == kRelease && size == sizeof(ReleaseMessage)) {
    ReleaseMessage msg;
    std::memcpy(&msg, data, sizeof msg);
    delete msg.engine;
    return LV2_WORKER_SUCCESS;
  }
  if (kind != kLoad || size < sizeof(MessageHeader)) return LV2_WORKER_ERR_UNKNOWN;
  MessageHeader h;
  std::memcpy(&h, data, sizeof h);
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  if (size != sizeof h + h.valueCount * sizeof(float) + h.pathBytes ||
      h.pathIndex >= p->layout.paths.size())
    return LV2_WORKER_ERR_UNKNOWN;
  Settings s;
  s.values.resize(h.valueCount);
  std::memcpy(s.values.data(), bytes + sizeof h, h.valueCount * sizeof(float));
  const char* path = reinterpret_cast<const char*>(bytes + sizeof h + h.valueCount * sizeof(float));
  p->SetPath(h.pathIndex, std::string(path, strnlen(path, h.pathBytes)));
  {
    std::lock_guard<std::mutex> lock(p->pathsLock);
    s.paths = p->paths;
  }
  Engine* fresh = p->Build(s);
  respond(respondHandle, sizeof fresh, &fresh);
  return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status WorkResponse(LV2_Handle handle, uint32_t size, const void* data) {
  Plugin* p = static_cast<Plugin*>(handle);
  if (size != sizeof(Engine*)) return LV2_WORKER_ERR_UNKNOWN;
  Engine* fresh = nullptr;
  std::memcpy(&fresh, data, sizeof fresh);
  Swap(p, fresh);
  return LV2_WORKER_SUCCESS;
}

const LV2_Feature* FindFeature(const LV2_Feature* const* features, const char* uri) {
  for (int i = 0; features != nullptr && features[i] != nullptr; ++i)
    if (std::strcmp(features[i]->URI, uri) == 0) return features[i];
  return nullptr;
}

LV2_State_Status Save(LV2_Handle handle, LV2_State_Store_Function store,
                      LV2_State_Handle stateHandle, uint32_t, const LV2_Feature* const* features) {
  Plugin* p = static_cast<Plugin*>(handle);
  const LV2_Feature* f = FindFeature(features, LV2_STATE__mapPath);
  LV2_State_Map_Path* mapPath = f != nullptr ? static_cast<LV2_State_Map_Path*>(f->data) : nullptr;
  const LV2_Feature* ff = FindFeature(features, LV2_STATE__freePath);
  LV2_State_Free_Path* freePath =
      ff != nullptr ? static_cast<LV2_State_Free_Path*>(ff->data) : nullptr;
  std::vector<std::string> paths;
  {
    std::lock_guard<std::mutex> lock(p->pathsLock);
    paths = p->paths;
  }
  for (size_t i = 0; i < paths.size(); ++i) {
    if (paths[i].empty()) continue;
    char* abstract =
        mapPath != nullptr ? mapPath->abstract_path(mapPath->handle, paths[i].c_str()) : nullptr;
    const char* value = abstract != nullptr ? abstract : paths[i].c_str();
    store(stateHandle, p->pathUrids[i], value, std::strlen(value) + 1, p->atomPath,
          LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
    if (abstract != nullptr) {
      if (freePath != nullptr) {
        freePath->free_path(freePath->handle, abstract);
      } else {
        std::free(abstract);
      }
    }
  }
  return LV2_STATE_SUCCESS;
}

LV2_State_Status Restore(LV2_Handle handle, LV2_State_Retrieve_Function retrieve,
                         LV2_State_Handle stateHandle, uint32_t,
                         const LV2_Feature* const* features) {
  Plugin* p = static_cast<Plugin*>(handle);
  const LV2_Feature* f = FindFeature(features, LV2_STATE__mapPath);
  LV2_State_Map_Path* mapPath = f != nullptr ? static_cast<LV2_State_Map_Path*>(f->data) : nullptr;
  bool changed = false;
  for (size_t i = 0; i < p->pathUrids.size(); ++i) {
    size_t size = 0;
    uint32_t type = 0, flags = 0;
    const void* value = retrieve(stateHandle, p->pathUrids[i], &size, &type, &flags);
    if (value == nullptr || type != p->atomPath || size == 0) continue;
    std::string stored(static_cast<const char*>(value),
                       strnlen(static_cast<const char*>(value), size));
    char* absolute =
        mapPath != nullptr ? mapPath->absolute_path(mapPath->handle, stored.c_str()) : nullptr;
    p->SetPath(i, absolute != nullptr ? absolute : stored);
    std::free(absolute);
    changed = true;
  }
  // Restore is never called beside run(): the new engine goes in at once.
  if (changed) {
    Engine* fresh = p->Build(p->CurrentSettings());
    delete p->engine;
    p->engine = fresh;
  }
  return LV2_STATE_SUCCESS;
}

const void* ExtensionData(const char* uri) {
  static const LV2_Worker_Interface worker = {Work, WorkResponse, nullptr};
  static const LV2_State_Interface state = {Save, Restore};
  if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &worker;
  if (std::strcmp(uri, LV2_STATE__interface) == 0) return &state;
  return nullptr;
}

}  // namespace
}  // namespace ondrel_lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
  using namespace ondrel_lv2;
  // One descriptor per plugin, built at the first call and kept for the
  // life of the library.
  static const std::vector<LV2_Descriptor> descriptors = [] {
    std::vector<LV2_Descriptor> list;
    static std::vector<std::string> uris;
    for (const Variant& v : Variants()) uris.push_back(v.Uri());
    for (const std::string& uri : uris)
      list.push_back({uri.c_str(), Instantiate, ConnectPort, Activate, Run, Deactivate, Cleanup,
                      ExtensionData});
    return list;
  }();
  return index < descriptors.size() ? &descriptors[index] : nullptr;
}
