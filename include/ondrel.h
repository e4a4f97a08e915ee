/*
 * ondrel: audio effects for music players.
 *
 * The one public header of libondrel. A host includes only this file and
 * links the library (`find_package(ondrel)` / target `ondrel::ondrel`, or
 * `pkg-config --cflags --libs ondrel`).
 *
 * Typical use:
 *
 *   ONDREL2::ondrel_init(nullptr);
 *   void* inst = ONDREL2::ondrel_create_inst();
 *   ONDREL2::ondrel_setup_input(inst, 2, 0);
 *   ONDREL2::ondrel_set_samplerate(inst, 44100.0f);
 *   ONDREL2::AEffect* fx = nullptr;
 *   ONDREL2::ondrel_create_effect(ONDREL2::EFFECT_AMPLIFIER, &fx);
 *   fx->dispatcher(fx, ONDREL2::ONDREL_OP_SET_PARAM, 0, 0, nullptr, -6.0f);
 *   ONDREL2::ondrel_set_params(inst, &fx, 1);   // the instance owns fx now
 *   ONDREL2::ondrel_processf_input(inst, in, count, &available);
 *   ONDREL2::ondrel_processf_output(inst, out, capacity, &written);
 *   ...
 *   ONDREL2::ondrel_destroy_inst(inst);
 *   ONDREL2::ondrel_uninit();
 *
 * Every integer result is a status code:
 *     0  success
 *  1000  parameter stream not loadable (too new, unknown type, too many params)
 *  2000  invalid argument (null instance, bad count, unknown effect type, ...)
 *  2001  out of memory, or a caller's array too small
 *  2002  invalid play-speed multiple or speed change
 *  2003  not available
 * 11000  a changed channel count reported by an effect's update
 * 12000  ondrel_set_params found nothing to do (the handed-in effects are
 *        destroyed, the running chain is untouched)
 *
 * Threads: the library starts none and takes no locks. All calls on one
 * instance must be serialised by the host.
 */
#ifndef ONDREL_H
#define ONDREL_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vector>

#if defined(_WIN32)
#define ONDREL_API __declspec(dllexport)
#else
#define ONDREL_API __attribute__((visibility("default")))
#endif

namespace ONDREL2 {

class AudioEffect;

/* Status codes. */
enum ONDREL_STATUS {
  ONDREL_OK = 0,
  ONDREL_E_STREAM = 1000,
  ONDREL_E_INVALID = 2000,
  ONDREL_E_NOMEM = 2001,
  ONDREL_E_SPEED = 2002,
  ONDREL_E_UNAVAILABLE = 2003,
  ONDREL_CHANNELS_CHANGED = 11000,
  ONDREL_NOTHING_TO_DO = 12000,
};

/* Public face of an effect. Embedded in the effect object: valid exactly as
 * long as the object. Hosts read the fields and change the effect only
 * through `dispatcher`. */
struct AEffect {
  int32_t (*dispatcher)(AEffect* effect, int32_t opcode, int32_t index, int32_t value, void* ptr,
                        float opt);
  int32_t numParams;
  int32_t numInputs;
  int32_t numOutputs;
  uint64_t inputMask;
  uint64_t outputMask;
  AudioEffect* object;
};

/* Opcodes of AEffect::dispatcher. */
enum ONDREL_OPCODE {
  ONDREL_OP_OPEN = 0,                  /* Open */
  ONDREL_OP_CLOSE = 1,                 /* Close and delete the object; returns 1 */
  ONDREL_OP_GET_PARAM_LABEL = 2,       /* index; ptr: char buffer */
  ONDREL_OP_GET_PARAM_DISPLAY = 3,     /* index; ptr: char buffer */
  ONDREL_OP_GET_PARAM_NAME = 4,        /* index; ptr: char buffer */
  ONDREL_OP_GET_PARAM_DATA = 5,        /* index; ptr: void**; returns size in bytes */
  ONDREL_OP_SET_PARAM_DATA = 6,        /* index; ptr: data; value: size; returns stored size */
  ONDREL_OP_GET_PARAM = 7,             /* index; ptr: float* */
  ONDREL_OP_SET_PARAM = 8,             /* index; opt: value (not finite: 2000, kept) */
  ONDREL_OP_GET_PARAM_DEFAULT = 9,     /* index; ptr: float* */
  ONDREL_OP_IS_PARAM_BINARY = 10,      /* index; returns 0 or 1 */
  ONDREL_OP_GET_PARAM_INDEX = 11,      /* ptr: name; returns the index */
  ONDREL_OP_GET_PARAM_HINTS = 12,      /* index; ptr: int32_t* second hint; returns the first */
  ONDREL_OP_SET_CHANNELS = 13,         /* opt: channels (beyond int32 or NaN: 2000);
                                          value: mask low 32 bits; index: high */
  ONDREL_OP_SET_OUT_CHANNELS = 14,     /* opt: channels (beyond int32 or NaN: 2000) */
  ONDREL_OP_GET_EFFECT_TYPE = 15,      /* ptr: int32_t* */
  ONDREL_OP_GET_EFFECT_NAME = 16,      /* ptr: char buffer */
  ONDREL_OP_SET_SAMPLE_RATE = 17,      /* opt: rate */
  ONDREL_OP_NONE = 18,                 /* returns 0 */
  ONDREL_OP_SUSPEND_RESUME = 19,       /* value 0: Suspend, else Resume; returns 0 */
  ONDREL_OP_SET_PARAM_NORMALIZED = 20, /* index; opt: normalised value (not finite: 2000) */
  ONDREL_OP_GET_PARAM_NORMALIZED = 21, /* index; ptr: float* */
  ONDREL_OP_SET_PARAM_SCRIPT = 22,     /* index; ptr: text */
  ONDREL_OP_GET_PARAM_SCRIPT = 23,     /* index; ptr: const char** */
  ONDREL_OP_PARAM_NEEDS_REBUILD = 24,  /* index; returns 0 or 1 */
  ONDREL_OP_GET_SCRIPT_VERSION = 25,   /* returns the version */
};

/* Host callbacks through which the library reads resources. The library
 * keeps the pointer, not a copy: the table must outlive its use. */
struct ONDREL_STREAM_READER {
  void* (*open)(const char* path);
  void (*close)(void* h);
  int (*read)(void* h, void* buffer, int size);
  int (*seek)(void* h, long offset, int whence);
  long (*tell)(void* h, uint32_t* high);
};

/* The effect types. Values are part of the parameter stream format. */
enum ONDREL_EFFECT_TYPE {
  EFFECT_THROUGH = 1,
  EFFECT_STUDIO_IR = 2,
  EFFECT_CHAOS = 3,
  EFFECT_AMPLIFIER = 4,
  EFFECT_ROTATOR = 5,
  EFFECT_LIMITER = 6,
  EFFECT_SAMPLER = 7,
  EFFECT_IIR_EQ30 = 8,
  EFFECT_EXCITER = 9,
  EFFECT_RESAMPLER = 10,
  EFFECT_STEREO_ENHANCER = 11,
  EFFECT_DELAY = 12,
  EFFECT_IIR_EQ10 = 13,
  EFFECT_FIDELITY = 14,
  EFFECT_DFX_HYPERBASS = 15,
  EFFECT_DFX_3DSURROUND = 16,
  EFFECT_DFX_HEADPHONE = 17,
  EFFECT_AMBIENCE = 18,
  EFFECT_DYNAMICBOOST = 19,
  EFFECT_ALREVERB = 20,
  EFFECT_VOCAL = 21,
  EFFECT_HYPERBASS = 22,
  EFFECT_MULTIBAND_COMPRESSOR = 23,
  EFFECT_SUPEREQ = 24,
  EFFECT_HEADPHONE = 25,
  EFFECT_PANNER = 26,
  EFFECT_MONO2DUAL = 27,
  EFFECT_PITCH_SHIFTER = 28,
  EFFECT_LP_FILTER = 29,
  EFFECT_HP_FILTER = 30,
  EFFECT_BP_FILTER = 31,
  EFFECT_NT_FILTER = 32,
  EFFECT_LS_FILTER = 33,
  EFFECT_HS_FILTER = 34,
  EFFECT_PK_FILTER = 35,
  EFFECT_AP_FILTER = 36,
  EFFECT_DEESSER = 37,
  EFFECT_VBASS = 38,
  EFFECT_GROWL = 39,
  EFFECT_TWO_TO_SIX = 40,
};

/* What a parameter script can see: a named double (type 0) or a function
 * (type 8 + argument count, plus 32 when pure). Records from
 * lock_modulators alias the live values. */
struct xvariable {
  const char* name;
  void* address;
  int type;
  void* context;
};

/* ---- Library state -------------------------------------------------- */

/* Sets up library state; `reader` may be null (every resource missing).
 * Resets the locale to zh-CN and sets the modulators GEAR_PRICE, PLATFORM,
 * RAM and CPU. May be called more than once. */
ONDREL_API int ondrel_init(const ONDREL_STREAM_READER* reader);
/* Drops resource roots, the script interpreter and all registry effects.
 * Destroy instances first. */
ONDREL_API void ondrel_uninit();
ONDREL_API const ONDREL_STREAM_READER* ondrel_get_onr();
/* Each non-null argument replaces its two-character code. */
ONDREL_API int ondrel_set_locale(const char* language, const char* country);
/* Buffers of 3 bytes each. */
ONDREL_API void ondrel_get_locale(char* language, char* country);
/* Roots are tried in order, each followed by the bare name; every root must
 * end with its own separator. */
ONDREL_API int ondrel_set_resource_root(const char** roots, int count);
ONDREL_API const char** ondrel_get_res_paths(int* count);
/* Receives parameter script error messages. Must not be null. A script that
 * jumps back for ever never returns: scripts are trusted preset content. */
ONDREL_API int ondrel_set_script_error_handler(void (*handler)(const char* message));

/* ---- Effects --------------------------------------------------------- */

/* A new effect of `type`, owned by the caller until ondrel_set_params takes
 * it. Unknown type: *effect = null and 2000. */
ONDREL_API int ondrel_create_effect(ONDREL_EFFECT_TYPE type, AEffect** effect);
/* The library's shared object of `type`, for reading parameter tables. Do
 * not destroy it or put it in a chain. */
ONDREL_API int ondrel_get_existing_effect(ONDREL_EFFECT_TYPE type, AEffect** effect);
/* Deletes an effect the caller owns; registry objects stay. Always 0. */
ONDREL_API int ondrel_destroy_effect(AEffect* effect);

/* ---- Parameter stream ---- */

/* Writes the effects (types, parameter values, scripts) and `text` (may be
 * null) into a new buffer of *size bytes in *out; free it with
 * ondrel_destroy_paramstream. 0; 2000 for a null `out` or `size`. */
ONDREL_API int ondrel_params2stream(void** out, int* size, AEffect** effects, int count,
                                    const char* text);
/* Builds fresh effects from a stream into a new array of *count handles in
 * *out, owned by the caller. `text`, unless null, receives the stream's text
 * and must have room for it. 2000: null, empty or corrupt data; 1000: version
 * too new (*count still tells the stream's effect count), unknown effect type
 * or more parameters than the effect has. An unknown parameter name raises
 * std::out_of_range after everything built so far is destroyed. */
ONDREL_API int ondrel_stream2params(AEffect*** out, int* count, const void* data, int size,
                                    char* text);
/* Frees a buffer from ondrel_params2stream; null is harmless. */
ONDREL_API int ondrel_destroy_paramstream(void* stream);
/* Frees an array from ondrel_stream2params, and with `destroyEffects` also
 * its effects (false once ondrel_set_params has taken them). */
ONDREL_API int ondrel_destroy_params(AEffect** effects, int count, bool destroyEffects);

/* ---- Processing instance ------------------------------------------- */

ONDREL_API void* ondrel_create_inst();
ONDREL_API void ondrel_destroy_inst(void* instance);
/* Input channels (at least 1; above 64 the queues keep their old width)
 * and mask (0: the default for the count). Fewer than 1 gives 2000. */
ONDREL_API int ondrel_setup_input(void* instance, int channels, uint64_t layout);
/* Input rate; not a positive number or above 16777216 Hz (2^24) gives 2000,
 * the same rate again changes nothing. */
ONDREL_API int ondrel_set_samplerate(void* instance, float rate);
/* The output rate of the chain. */
ONDREL_API int ondrel_get_samplerate(void* instance, float* rate);
ONDREL_API int ondrel_get_in_chns(void* instance, int* channels, uint64_t* layout);
ONDREL_API int ondrel_get_out_chns(void* instance, int* channels, uint64_t* layout);
/* Takes ownership of the handles in every outcome; returns 12000 when the
 * new list equals the running one. A list with a null handle, a handle of
 * the running chain, a repeated handle or a registry object gives 2000: the
 * chain is untouched and the other handed-in effects are destroyed. */
ONDREL_API int ondrel_set_params(void* instance, AEffect** effects, int count);
/* *count receives the chain length; a null or short array gives 2001. The
 * handles are the running chain's: a host may change their parameters, and
 * must ask again after the chain is set up anew (ondrel_set_params,
 * ondrel_setup_input, a new rate), which drops effects whose scripts bypass
 * them. */
ONDREL_API int ondrel_get_params(void* instance, AEffect** out, int capacity, int* count);
/* Counts are interleaved samples. With an empty chain the host's buffer is
 * the output: nothing is queued and *available = count. */
ONDREL_API int ondrel_process_input(void* instance, int16_t* samples, int count, int* available);
/* Float samples that are not finite (NaN, infinity) enter the chain as 0, so
 * that one bad decoded frame cannot leave the effects' filters producing NaN
 * until they are rebuilt. */
ONDREL_API int ondrel_processf_input(void* instance, float* samples, int count, int* available);
/* With an empty chain the int16 variant sets *written = count and the float
 * variant leaves *written untouched. */
ONDREL_API int ondrel_process_output(void* instance, int16_t* samples, int count, int* written);
ONDREL_API int ondrel_processf_output(void* instance, float* samples, int count, int* written);
/* Discards the audio queued in the instance and in every effect (at a seek).
 * What an effect keeps of its own DSP state (filter memories, the
 * convolvers' overlap, a reverb's tail) is the effect's choice: most keep it,
 * the limiter returns to unity gain. */
ONDREL_API void ondrel_flush_out(void* instance);
/* Pushes the effects' tails out at the end of a stream. */
ONDREL_API int ondrel_flush_to_buf(void* instance, int* available);

/* ---- Play-speed control: tempo without a change of pitch ------------- */

/* A controller of the instance, beside its chain; replaces any earlier one.
 * `position` is the output byte position the accounting starts from.
 * 2001 if it cannot be built. All psctrl calls give 2000 for a null
 * instance and 2003 (except init) when it has no controller. */
ONDREL_API int ondrel_psctrl_init(void* instance, unsigned sampleRate, unsigned bitsPerSample,
                                  unsigned channels, float multiple, uint64_t position);
/* Setters record the change; the next ondrel_psctrl_input applies it, takes
 * no audio and returns 2000 (call it again). Only the last setter before
 * that call is applied. The same value again changes nothing. */
ONDREL_API int ondrel_psctrl_set_multiple(void* instance, float multiple);
ONDREL_API int ondrel_psctrl_set_samplerate(void* instance, unsigned sampleRate);
ONDREL_API int ondrel_psctrl_set_channels(void* instance, int channels);
/* Planar frames in, one pointer per channel; channels beyond the
 * controller's pass through untouched. *available receives the frames ready.
 * frames 0 only polls. A speed of 0 or below refuses audio with 2002. */
ONDREL_API int ondrel_psctrl_input(void* instance, const std::vector<float*>& channels, int frames,
                                   int* available);
/* Up to `frames` stretched frames out; *got counts the frames delivered (of
 * the pass-through channels, when the vector has any). */
ONDREL_API int ondrel_psctrl_output(void* instance, const std::vector<float*>& channels, int frames,
                                    int* got);
/* Source byte position of an output byte position; 2003 outside the map. */
ONDREL_API int ondrel_psctrl_getActualBytes(void* instance, uint64_t position, uint64_t& actual);
/* Restarts the byte accounting at 0 at the present speed; audio queued and
 * inside the stretcher stays. 2002 for a speed of 0 or below. */
ONDREL_API int ondrel_psctrl_seek(void* instance);

/* ---- Modulators: global named values that scripts read -------------- */

ONDREL_API bool get_modulator_user(const char* name, double* value);
ONDREL_API double get_modulator_user(const char* name);
ONDREL_API void set_modulator_user(const char* name, double value);
/* All user and system values and the 13 script functions; free the list
 * with unlock_modulators. */
ONDREL_API int lock_modulators(xvariable** list);
ONDREL_API void unlock_modulators(xvariable* list, int count);
/* Sets a user modulator (GEAR_PRICE is mapped, GENRE_ZKV also sets GENRE).
 * With an instance the chain's scripts run again at once; without one the
 * next process call of any instance picks the change up. Always 0. */
ONDREL_API int ondrel_set_modulator(void* instance, const char* key, double value);

/* ---- Value helpers --------------------------------------------------- */

ONDREL_API float dB2scale(float dB);
ONDREL_API float scale2dB(float scale);
ONDREL_API float norm_center(float value, float high, float low, float center, float centerNorm);
ONDREL_API float denorm_center(float norm, float high, float low, float center, float centerNorm);
ONDREL_API int df2i(float value);
ONDREL_API float i2df(int value);

/* ---- Wave files ---- */

/* Sample formats of WaveFile: the low byte is the bit depth, 256 marks
 * IEEE float. */
enum SAMPLE_FORMAT {
  SF_PCM8 = 8, /* unsigned, offset 128 */
  SF_PCM16 = 16,
  SF_PCM24 = 24, /* 3 bytes a sample */
  SF_PCM32 = 32,
  SF_FLOAT32 = 288,
  SF_FLOAT64 = 320,
};

/* Reads and writes RIFF/WAVE files: PCM of 8, 16, 24 and 32 bits and IEEE
 * float of 32 and 64 bits, with plain (44-byte) and extensible (68-byte)
 * headers. Paths are UTF-8 or wide.
 *
 * Reading: open with SetFilePathUTF8(path, false, false), then ReadFrames.
 * Every read is limited to the frames left and advances the read position
 * by that count before reading; a read that comes up short returns 0.
 * Writing: open with write true, set the format (or SetProfile), call
 * SetupDone to write the header, then WriteFrames; the destructor writes the
 * final sizes. A file opened with write and update true is patched in place
 * and keeps its header as it was.
 *
 * Conversions that callers depend on, kept on purpose:
 *  - float or double written to a 24-bit file: every sample of the call
 *    receives the converted element just behind the last one,
 *    buffer[frames * channels], which the caller's buffer must hold;
 *    the integer overloads that take this path write silence;
 *  - float or double written to a 32-bit PCM file is scaled by -2^31, so
 *    its polarity is inverted; int32 input is negated on the way to every
 *    other format;
 *  - uint8 and uint32 input is scaled by 2^-23;
 *  - conversions to integers truncate and keep the low bits: no clipping.
 *
 * Copies share the file handle and each one closes it: copy closed objects
 * only. One thread at a time. */
class ONDREL_API WaveFile {
 public:
  WaveFile();
  virtual ~WaveFile();

  /* Mode "rb"; "wb" with write; "rb+" with write and update. An open file
   * is closed first, without writing its sizes. False for a path that does
   * not open or a file that is not a readable wave. */
  bool SetFilePathUTF8(const char* path, bool write, bool update);
  bool SetFilePathW(const wchar_t* path, bool write, bool update);

  void SetSampleRate(int32_t rate);
  void SetChannels(int32_t count);
  void SetSampleFormat(SAMPLE_FORMAT format);
  /* Not 0: the header is written in the extensible form with this mask. */
  void SetChannelMask(uint32_t mask);
  /* Writes the header for the format set so far. */
  void SetupDone();
  /* Takes channels, rate, format and mask of `other`, then SetupDone. */
  void SetProfile(const WaveFile* other);
  /* Positions the file at `frame` (relative to `whence`, SEEK_SET etc.)
   * and sets the read position to `frame`. */
  void Seek(int32_t frame, int32_t whence);

  int32_t GetChannels() const;
  int32_t GetSampleRate() const;
  uint32_t GetChannelMask() const;
  SAMPLE_FORMAT GetSampleFormat() const;
  uint32_t GetTotalFrames() const;
  /* Whole seconds: frames / rate in integers. */
  double GetDuration() const;
  /* Bits per sample. */
  int32_t GetSampleSize() const;
  uint32_t TimeToFrames(double seconds) const;

  /* Interleaved unless planar; all return the frames delivered. */
  int32_t ReadFrames(void* buffer, int32_t frames); /* raw file bytes */
  int32_t ReadFrames(int16_t* buffer, int32_t frames);
  int32_t ReadFrames(float* buffer, int32_t frames);
  int32_t ReadFrames(double* buffer, int32_t frames);
  /* One pointer per channel; 0 unless channelCount equals the file's. */
  int32_t ReadFrames(float** buffers, int32_t channelCount, int32_t frames);

  /* Interleaved frames; nothing happens without an open file. */
  void WriteFrames(const void* buffer, int32_t frames); /* raw bytes */
  void WriteFrames(const uint8_t* buffer, int32_t frames);
  void WriteFrames(const int16_t* buffer, int32_t frames);
  void WriteFrames(const int32_t* buffer, int32_t frames);
  void WriteFrames(const uint32_t* buffer, int32_t frames);
  void WriteFrames(const uint8_t (*buffer)[3], int32_t frames);
  void WriteFrames(const float* buffer, int32_t frames);
  void WriteFrames(const double* buffer, int32_t frames);

 protected:
  /* Records the mode and, unless a new file is being written, parses the
   * header. Closes the file on failure. */
  bool OnSetFilePath(bool write, bool update);

  FILE* file;
  SAMPLE_FORMAT sampleFormat;
  int32_t channels;
  int32_t sampleRate;
  int32_t bitsPerSample;
  uint32_t dataStart;    /* file offset of the first sample */
  uint32_t totalFrames;  /* frames in the data chunk */
  uint32_t currentFrame; /* read position */
  double duration;       /* whole seconds */
  bool readOnly;
  bool updateExisting;
  uint32_t channelMask;

 private:
  friend struct WaveFileCodec; /* the conversion routines */
};

/* ---- Resource files ---- */

/* Writes a descrambled copy of `source` to `target` (both UTF-8). True on
 * success, also for an empty source; write errors inside the copy go
 * unnoticed. */
ONDREL_API bool decrypt_file(const char* source, const char* target);
/* Deletes the file. */
ONDREL_API void remove_utf8(const char* path);
/* Replaces every backslash by a slash, in place or in a new copy that the
 * caller releases with free(). A null path gives null in place and a new
 * empty string otherwise. */
ONDREL_API char* xplatform_pathname(char* path, bool inPlace);

}  // namespace ONDREL2

/* Logging: handler(level, format, ...) with levels 3 trace, 4 information,
 * 5 notable event, 6 error. The default writes to standard output. */
ONDREL_API void set_xlog_handler(void (*handler)(int level, const char* format, ...));
/* Messages below the threshold are dropped; the threshold is at least 2. */
ONDREL_API void set_xlog_level(int level);

#endif  // ONDREL_H
