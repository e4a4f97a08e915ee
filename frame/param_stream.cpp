// Parameter stream: effects with their parameter values and scripts to one
// FlatBuffers buffer and back.
//
// Writing goes through each effect's dispatcher only, in a fixed builder
// order, so that two writes of the same list give the same bytes apart from
// the `time` field. Reading verifies the whole buffer first and then builds
// fresh effects from the catalogue; on any failure the effects built so far
// are destroyed before the call returns or an exception leaves it.
#include "frame/param_stream.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>
#include <vector>

#include "frame/log.h"
#include "framework/alloc.h"
#include "framework/audio_effect.h"
#include "framework/catalogue.h"
#include "ondrel.h"
#include "param_stream_generated.h"

namespace ONDREL2 {
namespace {

// Room for a parameter's table name (ParamDesc::name holds 64 bytes).
constexpr size_t kNameBufferSize = 256;

int32_t Dispatch(AEffect* fx, int32_t opcode, int32_t index = 0, int32_t value = 0,
                 void* ptr = nullptr, float opt = 0.0f) {
  return fx->dispatcher(fx, opcode, index, value, ptr, opt);
}

// One ParamRecord per parameter, in index order: name, value bytes and
// script are created first, then the table; each table is followed by a
// finish step whose root word nothing refers to (part of the byte layout).
flatbuffers::Offset<Stream::EffectRecord> WriteEffect(flatbuffers::FlatBufferBuilder& fbb,
                                                      AEffect* fx) {
  std::vector<flatbuffers::Offset<Stream::ParamRecord>> records;
  records.reserve(static_cast<size_t>(std::max(fx->numParams, 0)));
  for (int32_t index = 0; index < fx->numParams; ++index) {
    char name[kNameBufferSize] = {};
    Dispatch(fx, ONDREL_OP_GET_PARAM_NAME, index, 0, name);
    void* data = nullptr;
    int32_t size = Dispatch(fx, ONDREL_OP_GET_PARAM_DATA, index, 0, &data);
    if (data == nullptr || size < 0) size = 0;
    const char* script = nullptr;
    Dispatch(fx, ONDREL_OP_GET_PARAM_SCRIPT, index, 0, &script);

    const auto nameOffset = fbb.CreateString(name, std::strlen(name));
    const auto valueOffset =
        fbb.CreateVector(static_cast<const uint8_t*>(data), static_cast<size_t>(size));
    const auto scriptOffset = fbb.CreateString(script != nullptr ? script : "");
    Stream::ParamRecordBuilder record(fbb);
    record.add_name(nameOffset);
    record.add_value(valueOffset);
    record.add_script(scriptOffset);
    const auto offset = record.Finish();
    fbb.Finish(offset);
    records.push_back(offset);
  }
  const auto params = fbb.CreateVector(records);
  int32_t type = 0;
  Dispatch(fx, ONDREL_OP_GET_EFFECT_TYPE, 0, 0, &type);
  Stream::EffectRecordBuilder record(fbb);
  record.add_params(params);
  record.add_type(type);
  const auto offset = record.Finish();
  fbb.Finish(offset);
  return offset;
}

// Deletes the effects of `list` from last to first, skipping empty slots.
void DestroyEffects(AEffect** list, int count) {
  for (int i = count - 1; i >= 0; --i) {
    if (list[i] != nullptr && list[i]->object != nullptr) delete list[i]->object;
    list[i] = nullptr;
  }
}

// Applies one ParamRecord to `fx`. False when the record is unusable (no
// name). An unknown name raises out_of_range from the effect's lookup.
bool LoadParam(AEffect* fx, const Stream::ParamRecord* record, int32_t version) {
  const flatbuffers::String* name = record->name();
  if (name == nullptr) return false;
  const int32_t index =
      Dispatch(fx, ONDREL_OP_GET_PARAM_INDEX, 0, 0, const_cast<char*>(name->c_str()));

  // A record without a script clears whatever script the table preset.
  const char* script = record->script() != nullptr ? record->script()->c_str() : "";
  Dispatch(fx, ONDREL_OP_SET_PARAM_SCRIPT, index, 0, const_cast<char*>(script));

  const flatbuffers::Vector<uint8_t>* value = record->value();
  const uint8_t* bytes = value != nullptr ? value->data() : nullptr;
  const uint32_t length = value != nullptr ? value->size() : 0;

  // Older streams hold a normalised float, unless the effect's first
  // parameter is binary (those streams asked the first parameter only).
  if (version < kParamStreamRawValueVersion && Dispatch(fx, ONDREL_OP_IS_PARAM_BINARY, 0) == 0) {
    if (length < sizeof(float)) return true;  // no value: the default stays
    float norm;
    std::memcpy(&norm, bytes, sizeof(float));
    Dispatch(fx, ONDREL_OP_SET_PARAM_NORMALIZED, index, 0, nullptr, norm);
    return true;
  }
  // A float parameter always takes 4 bytes; a shorter value would be read
  // past its end, so it leaves the default in place.
  if (length < sizeof(float) && Dispatch(fx, ONDREL_OP_IS_PARAM_BINARY, index) == 0) return true;
  Dispatch(fx, ONDREL_OP_SET_PARAM_DATA, index, static_cast<int32_t>(length),
           const_cast<uint8_t*>(bytes));
  return true;
}

// Builds the effect of one EffectRecord into `*slot`. False for an unknown
// type, more records than parameters or an unusable record.
bool LoadEffect(const Stream::EffectRecord* record, int32_t version, AEffect** slot) {
  AudioEffect* object = CreateEffectObject(record->type());
  AEffect* fx = object != nullptr ? object->GetAEffect() : nullptr;
  *slot = fx;
  if (fx == nullptr) return false;
  const auto* params = record->params();
  if (params == nullptr) return true;
  if (params->size() > static_cast<flatbuffers::uoffset_t>(std::max(fx->numParams, 0)))
    return false;
  for (const Stream::ParamRecord* param : *params) {
    if (!LoadParam(fx, param, version)) return false;
  }
  return true;
}

}  // namespace

int ondrel_params2stream(void** out, int* size, AEffect** effects, int count, const char* text) {
  if (out == nullptr || size == nullptr) return ONDREL_E_INVALID;
  *out = nullptr;
  *size = 0;
  if (effects == nullptr) count = 0;

  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  flatbuffers::FlatBufferBuilder fbb(1024);
  // version, type and time are stored even at their defaults.
  fbb.ForceDefaults(true);

  int32_t version = kParamStreamBaseVersion;
  std::vector<flatbuffers::Offset<Stream::EffectRecord>> records;
  records.reserve(static_cast<size_t>(std::max(count, 0)));
  for (int i = 0; i < count; ++i) {
    AEffect* fx = effects[i];
    if (fx == nullptr) continue;
    version = std::max(version, Dispatch(fx, ONDREL_OP_GET_SCRIPT_VERSION));
    records.push_back(WriteEffect(fbb, fx));
  }

  // The empty string is always created, also when a text follows.
  const auto emptyText = fbb.CreateString("");
  const auto textOffset = text != nullptr ? fbb.CreateString(text) : emptyText;
  const auto list = fbb.CreateVector(records);
  Stream::ParamStreamBuilder root(fbb);
  root.add_effects(list);
  root.add_version(version);
  root.add_time(now);
  root.add_text(textOffset);
  fbb.Finish(root.Finish());

  const size_t bytes = fbb.GetSize();
  void* buffer = AllocBlock<uint8_t>(bytes);
  if (buffer == nullptr) return ONDREL_E_NOMEM;
  std::memcpy(buffer, fbb.GetBufferPointer(), bytes);
  *out = buffer;
  *size = static_cast<int>(bytes);
  return ONDREL_OK;
}

int ondrel_stream2params(AEffect*** out, int* count, const void* data, int size, char* text) {
  if (out != nullptr) *out = nullptr;
  if (count != nullptr) *count = 0;
  if (out == nullptr || count == nullptr) return ONDREL_E_INVALID;
  if (data == nullptr || size <= 0) return ONDREL_E_INVALID;
  if (static_cast<uint64_t>(size) >= FLATBUFFERS_MAX_BUFFER_SIZE) return ONDREL_E_INVALID;

  // Scalars are read in place: a buffer at an odd address is read from an
  // aligned copy.
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  std::vector<uint64_t> aligned;
  if (reinterpret_cast<uintptr_t>(bytes) % alignof(uint64_t) != 0) {
    aligned.resize((static_cast<size_t>(size) + sizeof(uint64_t) - 1) / sizeof(uint64_t));
    std::memcpy(aligned.data(), data, static_cast<size_t>(size));
    bytes = reinterpret_cast<const uint8_t*>(aligned.data());
  }

  flatbuffers::Verifier verifier(bytes, static_cast<size_t>(size), 64, 1000000);
  if (!Stream::VerifyParamStreamBuffer(verifier)) return ONDREL_E_INVALID;
  const Stream::ParamStream* stream = Stream::GetParamStream(bytes);
  const auto* records = stream->effects();
  if (records == nullptr) return ONDREL_E_INVALID;

  const int n = static_cast<int>(records->size());
  *count = n;
  const int32_t version = stream->version();
  const int64_t time = stream->time();
  if (text != nullptr && stream->text() != nullptr)
    std::memcpy(text, stream->text()->c_str(), stream->text()->size() + 1);
  Log(kLogInfo, "[ON2L]:stream2params: version=%d, num=%d, time=%lld", version, n,
      static_cast<long long>(time));
  // Too new: the host still learns how many effects the stream holds.
  if (version > kParamStreamMaxVersion) return ONDREL_E_STREAM;

  AEffect** list = NewArray<AEffect*>(static_cast<size_t>(n));
  if (list == nullptr) {
    *count = 0;
    return ONDREL_E_NOMEM;
  }
  *out = list;

  auto discard = [&]() {
    DestroyEffects(list, n);
    delete[] list;
    *out = nullptr;
    *count = 0;
  };
  try {
    for (int i = 0; i < n; ++i) {
      if (!LoadEffect(records->Get(static_cast<flatbuffers::uoffset_t>(i)), version, &list[i])) {
        discard();
        return ONDREL_E_STREAM;
      }
    }
  } catch (const std::out_of_range&) {
    // A parameter name that the effect doesn't know.
    discard();
    throw std::out_of_range("invalid map<K, T> key");
  } catch (...) {
    discard();
    throw;
  }
  return ONDREL_OK;
}

int ondrel_destroy_paramstream(void* stream) {
  std::free(stream);
  return ONDREL_OK;
}

int ondrel_destroy_params(AEffect** effects, int count, bool destroyEffects) {
  if (effects == nullptr) return ONDREL_OK;
  if (destroyEffects && count != 0) DestroyEffects(effects, count);
  delete[] effects;
  return ONDREL_OK;
}

}  // namespace ONDREL2
