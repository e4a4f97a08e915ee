#!/usr/bin/env python3
"""End-to-end tests of the ondrel command-line tool.

Each case runs the built tool on files made here and checks what it wrote
against references computed in plain Python: float32 arithmetic is emulated
exactly (a product or quotient of two floats computed in double and rounded
once to float is the correctly rounded float result) and the int16 queue
conversions are modelled from their definition.

Usage: tool_tests.py --tool PATH --work DIR --source REPO CASE
"""
import argparse
import array
import json
import math
import os
import random
import re
import shutil
import struct
import subprocess
import sys

ARGS = None


# ---- helpers ---------------------------------------------------------------

def f32(x):
    """Rounds a Python float to the nearest float32."""
    return struct.unpack("<f", struct.pack("<f", x))[0]


def run(*args, expect=0):
    """Runs the tool; checks the exit code; returns (stdout, stderr)."""
    cmd = [ARGS.tool] + [str(a) for a in args]
    env = dict(os.environ, LANG="C", LC_ALL="C")
    proc = subprocess.run(cmd, capture_output=True, cwd=ARGS.work, env=env, timeout=60)
    out, err = proc.stdout.decode("utf-8"), proc.stderr.decode("utf-8")
    check(proc.returncode == expect, "%s: exit %d, expected %d\nstdout: %s\nstderr: %s"
          % (" ".join(cmd), proc.returncode, expect, out, err))
    check(not any(bad in err for bad in ("terminate called", "Traceback", "Aborted", "Segmentation")),
          "%s: crashed: %s" % (" ".join(cmd), err))
    return out, err


def fail(message):
    raise AssertionError(message)


def check(condition, message):
    if not condition:
        fail(message)


def path(name):
    return os.path.join(ARGS.work, name)


def write_file(name, content):
    """Writes bytes as they are, text as UTF-8, anything else as JSON."""
    if not isinstance(content, (bytes, str)):
        content = json.dumps(content, ensure_ascii=False)
    with open(path(name), "wb") as f:
        f.write(content.encode("utf-8") if isinstance(content, str) else content)


def read_bytes(name):
    with open(path(name), "rb") as f:
        return f.read()


def write_wav(name, rate, channels, samples, kind, mask=None):
    """Writes interleaved samples; kind is 'f32', 's16' or 's24' (ints for
    the integer kinds). A `mask` makes a WAVE_FORMAT_EXTENSIBLE file with
    that speaker mask."""
    if kind == "f32":
        data, tag, bits = array.array("f", samples).tobytes(), 3, 32
    elif kind == "s16":
        data, tag, bits = array.array("h", samples).tobytes(), 1, 16
    else:
        data, tag, bits = b"".join(struct.pack("<i", s)[:3] for s in samples), 1, 24
    block = channels * bits // 8
    fmt = struct.pack("<HHIIHH", tag if mask is None else 0xFFFE, channels, rate, rate * block, block, bits)
    if mask is not None:
        fmt += struct.pack("<HHIIHH", 22, bits, mask, tag, 0, 0x10) + bytes([0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71])
    body = b"WAVE" + b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data
    with open(path(name), "wb") as f:
        f.write(b"RIFF" + struct.pack("<I", len(body)) + body)


def read_wav(name, with_mask=False):
    """Returns (rate, channels, kind, samples) of a PCM or float WAV, and
    with `with_mask` its dwChannelMask (None for a plain WAV) too."""
    with open(path(name), "rb") as f:
        raw = f.read()
    check(raw[:4] == b"RIFF" and raw[8:12] == b"WAVE", name + " is not a WAV file")
    pos, chunks = 12, {}
    while pos + 8 <= len(raw):
        size = struct.unpack("<I", raw[pos + 4:pos + 8])[0]
        chunks[raw[pos:pos + 4]] = raw[pos + 8:pos + 8 + size]
        pos += 8 + size + (size & 1)
    fmt, data = chunks[b"fmt "], chunks[b"data"]
    tag, channels, rate, _, _, bits = struct.unpack("<HHIIHH", fmt[:16])
    mask = struct.unpack("<I", fmt[20:24])[0] if tag == 0xFFFE else None
    tag = struct.unpack("<H", fmt[24:26])[0] if tag == 0xFFFE else tag
    if tag == 3 and bits == 32:
        result = rate, channels, "f32", list(array.array("f", data))
    elif tag == 1 and bits == 16:
        result = rate, channels, "s16", list(array.array("h", data))
    elif tag == 1 and bits == 24:
        result = rate, channels, "s24", [struct.unpack("<i", data[i:i + 3] + (b"\xff" if data[i + 2] & 0x80 else b"\0"))[0]
                                          for i in range(0, len(data), 3)]
    else:
        fail("%s: unexpected WAV format tag %d, %d bits" % (name, tag, bits))
    return result + (mask,) if with_mask else result


def process(inp, out, *args, fmt=None):
    """Runs `process` from `inp` to `out`; returns (stdout, samples), checking
    the written (rate, channels, kind) against `fmt` when given."""
    text, _ = run("process", inp, out, *args)
    rate, channels, kind, samples = read_wav(out)
    check(fmt is None or (rate, channels, kind) == fmt, "%s: format %s" % (out, (rate, channels, kind)))
    return text, samples


def amplifier_gain(db):
    """The amplifier's factor: dB / 20 in float, the power in double, stored
    as float."""
    return f32(10.0 ** f32(f32(db) / f32(20.0)))


def noise(count, amplitude, seed):
    rng = random.Random(seed)
    return [f32(rng.uniform(-amplitude, amplitude)) for _ in range(count)]


def first_difference(got, want, what):
    check(len(got) == len(want), "%s: %d samples, expected %d" % (what, len(got), len(want)))
    for i, (a, b) in enumerate(zip(got, want)):
        if a != b:
            fail("%s: first difference at sample %d: %r, expected %r" % (what, i, a, b))


def check_no_leftovers():
    left = [os.path.join(r, n) for r, _, names in os.walk(ARGS.work) for n in names if ".part" in n]
    check(not left, "temporary files left: %s" % left)


# ---- cases ---------------------------------------------------------------

def case_effects_and_params():
    out, _ = run("effects", "--locale", "en-US")
    rows = [line.split() for line in out.splitlines()[1:41]]
    expected = ("through studio-ir chaos amplifier rotator limiter sampler eq30 exciter resampler "
                "stereo-enhancer delay eq10 fidelity dfx-hyperbass dfx-3dsurround dfx-headphone ambience "
                "dynamicboost reverb vocal hyperbass mbc supereq headphone panner mono2dual pitch lowpass "
                "highpass bandpass notch lowshelf highshelf peak allpass deesser vbass growl two2six").split()
    check([r[1] for r in rows] == expected, "short names differ: %s" % rows)
    check([int(r[0]) for r in rows] == list(range(1, 41)), "type values are not 1..40")
    check(rows[3][2:] == ["Amplifier", "1", "yes"] and rows[0][2:] == ["-", "0", "yes"], rows[:4])
    check(out.splitlines()[-1].endswith("40 of 40 effect types are built into this libondrel."), out)

    table = json.loads(run("params", "amplifier", "--json", "--locale", "en")[0])
    check((table["type"], table["name"], table["display_name"], len(table["params"])) ==
          (4, "amplifier", "Amplifier", 1), table)
    gain = table["params"][0]
    check((gain["name"], gain["min"], gain["default"], gain["max"], gain["display"], gain["binary"],
           gain["rebuild"]) == ("Gain", -96.0, 0.0, 18.0, "+0.0 dB", False, False), gain)
    check(json.loads(run("params", "4", "--json", "--locale", "en")[0]) == table, "params 4 differs")


def case_process_float():
    """A preset of two amplifiers plus one inline, checked sample for sample
    in float32; 20000 frames are not a multiple of the block size and more
    than one read chunk of the tool, so the tail comes out through the flush."""
    write_file("preset.json", {"text": "two amps", "effects": [{"type": "amplifier", "params": {"Gain": -6.0}},
                                                                {"type": 4, "params": {"Gain": 2.5}}]})
    g1, g2, g3 = amplifier_gain(-6.0), amplifier_gain(2.5), amplifier_gain(-1.25)
    for channels, frames in ((2, 20000), (1, 777), (3, 1500)):
        x = noise(frames * channels, 0.9, 100 + channels)
        write_wav("in.wav", 44100, channels, x, "f32")
        out, got = process("in.wav", "out.wav", "--preset", "preset.json", "--effect", "amplifier Gain=-1.25",
                           "--format", "f32", fmt=(44100, channels, "f32"))
        first_difference(got, [f32(f32(f32(v * g1) * g2) * g3) for v in x], "%d-channel chain" % channels)
        for text in ("amplifier > amplifier > amplifier", "frames %d -> %d" % (frames, frames),
                     "peak %.1f dBFS" % (20 * math.log10(max(abs(v) for v in x)))):
            check(text in out, out)
    check_no_leftovers()


def case_process_s16():
    rate, channels, frames = 48000, 2, 9000
    rng = random.Random(7)
    x = [-32768, 32767, 0, 1] + [rng.randint(-32768, 32767) for _ in range(frames * channels - 4)]
    write_wav("in16.wav", rate, channels, x, "s16")
    # +6 dB drives full-scale samples past 1.0: the queue wraps them rather
    # than clipping.
    g = amplifier_gain(6.0)

    def model(v):
        z = f32(f32(f32(v * f32(2.0 ** -15)) * g) * 32767.0)
        r = (math.trunc(z + 0.5) if z > 0 else math.trunc(z - 0.5)) & 0xFFFF
        return r - 0x10000 if r >= 0x8000 else r

    args = ("--effect", "amplifier Gain=6", "--format", "s16", "--quiet")
    got = process("in16.wav", "out16.wav", *args, fmt=(rate, channels, "s16"))[1]
    first_difference(got, [model(v) for v in x], "int16 path")
    # A float file on the int16 path: full scale is 1.0 (x 32768, rounded,
    # clipped), not libsndfile's unscaled or peak-normalised reading.
    xf = [1.5, -1.5, f32(0.5), f32(-0.25)] + noise(frames * channels - 4, 0.9, 8)
    write_wav("inf.wav", rate, channels, xf, "f32")
    got = process("inf.wav", "outf16.wav", *args, fmt=(rate, channels, "s16"))[1]
    first_difference(got, [model(max(-32768, min(32767, round(v * 32768.0)))) for v in xf], "float on int16")


def case_process_layout():
    # No effect: the host's own buffer is the output.
    x = noise(4000, 0.5, 3)
    write_wav("f.wav", 22050, 2, x, "f32")
    out, got = process("f.wav", "same.wav", "--format", "same", fmt=(22050, 2, "f32"))
    first_difference(got, x, "empty chain")
    check("(empty chain)" in out, out)
    # "same" keeps a 24-bit input 24-bit, through the float path.
    rng = random.Random(5)
    x24 = [rng.randint(-(1 << 22), 1 << 22) for _ in range(2000)]
    write_wav("i24.wav", 44100, 1, x24, "s24")
    got = process("i24.wav", "o24.wav", "-e", "amplifier Gain=0", "--quiet", fmt=(44100, 1, "s24"))[1]
    check(len(got) == len(x24) and max(abs(a - b) for a, b in zip(got, x24)) <= 1, "24-bit round trip")
    # A 5.1(side) file keeps its speaker map through the chain; a plain
    # 6-channel WAV comes out with the 5.1 map the library assumes for it;
    # stereo stays a plain WAV.
    x = noise(6 * 700, 0.5, 11)
    g = amplifier_gain(-3.0)
    write_wav("side.wav", 48000, 6, x, "f32", 0x60F)
    write_wav("plain.wav", 48000, 6, x, "f32")
    write_wav("st.wav", 48000, 2, x[:400], "f32")
    for name, mask, shown in (("side", 0x60F, "6 ch (5.1(side)) | out WAVEX FLOAT 48000 Hz 6 ch (5.1(side))"),
                              ("plain", 0x3F, "6 ch | out WAVEX FLOAT 48000 Hz 6 ch |"), ("st", None, "")):
        out, _ = run("process", name + ".wav", name + "_out.wav", "-e", "amplifier Gain=-3")
        _, _, _, got, got_mask = read_wav(name + "_out.wav", True)
        check(got_mask == mask and shown in out, "%s: mask %r\n%s" % (name, got_mask, out))
        first_difference(got, [f32(v * g) for v in x[:len(got)]], name + " samples")
    # A mask one speaker short leaves channel 7 without a position: the map
    # is dropped with a note, and the count's default takes its place.
    write_wav("odd.wav", 48000, 7, noise(7 * 100, 0.5, 12), "f32", 0x3F)
    _, err = run("process", "odd.wav", "odd_out.wav", "-e", "amplifier", "--verbose")
    check("channel map of 'odd.wav' is not used" in err, err)
    check(read_wav("odd_out.wav", True)[4] == 0x70F, "7 ch default mask")
    # Stereo in, 5.1 out: the 5.1 map whether the input is a plain WAV or
    # carries the stereo map.
    write_wav("stx.wav", 48000, 2, x[:400], "f32", 0x3)
    for name in ("st", "stx"):
        run("process", name + ".wav", name + "_51.wav", "-e", "two2six", "--quiet")
        rate, channels, _, got, mask = read_wav(name + "_51.wav", True)
        check((channels, mask, len(got)) == (6, 0x3F, 6 * 200), "%s: %d ch, mask %r" % (name, channels, mask))


def case_process_speed():
    """--speed 1.25: a quarter shorter, the end's source byte from the speed
    map (factor 1.25 + 0.0025); the stretch itself is checked against
    SoundTouch in the play-speed tests."""
    rate, frames = 44100, 88200
    x = [s * 0.4 * math.sin(2 * math.pi * 440.0 * n / rate) for n in range(frames) for s in (1, -1)]
    write_wav("tone.wav", rate, 2, x, "f32")
    out, got = process("tone.wav", "fast.wav", "--speed", "1.25", "--format", "f32", fmt=(rate, 2, "f32"))
    check(len(got) == 2 * 70560, "stretched length %d frames" % (len(got) // 2))
    out_bytes = 70560 * 2 * 4
    source = int(f32(f32(out_bytes) * f32((1.25 - 0.5) / 1.5 * 0.005 + 1.25)))
    check("speed 1.25: 88200 -> 70560 frames; output byte %d plays source byte %d (32-bit)"
          % (out_bytes, source) in out, out)


def case_preset_round_trip():
    preset = {"text": "Hall — 大厅",
              "effects": [{"type": "amplifier", "params": {"Gain": -7.5}, "scripts": {"Gain": "in*0.5"}},
                          {"type": "through"}, {"type": 4, "params": {"Gain": 0.1}}]}
    write_file("p.json", preset)
    run("preset", "encode", "p.json", "p.bin")
    decoded = json.loads(run("preset", "decode", "p.bin")[0])
    effects = decoded["effects"]
    check(decoded["text"] == preset["text"] and [e["type"] for e in effects] == ["amplifier", "through", "amplifier"]
          and effects[0]["params"] == {"Gain": -7.5} and effects[0]["scripts"] == {"Gain": "in*0.5"}
          and f32(effects[2]["params"]["Gain"]) == f32(0.1), decoded)
    check("scripts" not in effects[2], "an empty script must not be written")
    # decode -> encode -> decode is stable.
    run("preset", "decode", "p.bin", "p2.json")
    run("preset", "encode", "p2.json", "p2.bin")
    check(json.loads(run("preset", "decode", "p2.bin")[0]) == decoded, "second round trip differs")
    # The binary preset drives process exactly as the JSON one does.
    x = noise(3000, 0.5, 11)
    write_wav("in.wav", 44100, 2, x, "f32")
    run("process", "in.wav", "a.wav", "-p", "p.json", "--quiet")
    run("process", "in.wav", "b.wav", "-p", "p.bin", "--quiet")
    check(read_wav("a.wav") == read_wav("b.wav"), "JSON and binary presets process differently")
    g1, g2 = amplifier_gain(-3.75), amplifier_gain(f32(0.1))  # the script halves the first Gain
    first_difference(read_wav("a.wav")[3], [f32(f32(v * g1) * g2) for v in x], "scripted preset")


def case_error_exits():
    write_wav("in.wav", 44100, 2, noise(200, 0.5, 1), "f32")
    files = {"garbage.wav": "this is not sound at all" * 10,
             "badparam.json": '{"effects": [{"type": "amplifier", "params": {"Gian": 1}}]}',
             "badtype.json": '{"effects": [{"type": "amplifire"}]}',
             "badkey.json": '{"effects": [{"type": "amplifier", "parameters": {}}]}',
             "broken.json": '{"effects": [',
             "strval.json": '{"effects": [{"type": "amplifier", "params": {"Gain": "loud"}}]}',
             "huge.json": '{"effects": [{"type": "amplifier", "params": {"Gain": 1e300}}]}',
             "overflow.json": '{"effects": [{"type": "amplifier", "params": {"Gain": 1e400}}]}',
             "memory.json": '{"effects": [{"type": "amplifier", "scripts": {"Gain": "put(1e12, 1)\\nget(-1e11)"}}]}',
             "bom.json": '\ufeff{"effects": [{"type": "amplifier"}]}'}
    for name, text in files.items():
        write_file(name, text)
    os.makedirs(path("adir.wav"))
    original = read_bytes("in.wav")
    p = ["process", "in.wav", "o.wav"]
    cases = [
        (["process", "missing.wav", "o.wav"], "cannot open 'missing.wav'"),
        (["process", "garbage.wav", "o.wav"], "cannot read 'garbage.wav' as sound"),
        (p + ["-e", "amplifire Gain=1"], "unknown effect 'amplifire' (did you mean 'amplifier'?)"),
        (p + ["-e", "amplifier Gian=1"], "has no parameter 'Gian' (did you mean 'Gain'?); its parameters are 'Gain'"),
        (p + ["-e", "amplifier Gain=nan"], "Gain=nan is not a number that a parameter can hold"),
        (p + ["-p", "huge.json"], "Gain=1e+300 is not a number that a parameter can hold"),
        (p + ["-p", "overflow.json"], "overflow.json: a number is out of range"),
        (["process", "in.wav", "in.wav", "-e", "amplifier Gain=1"], "'in.wav' is the input file"),
        (["process", "in.wav", "adir.wav"], "cannot write 'adir.wav': it is a directory"),
        (["process", "in.wav", "nodir/o.wav"], "the directory 'nodir' does not exist"),
        (["process", "adir.wav", "o.wav"], "'adir.wav' is a directory"),
        (["process", "in.wav", "o.opus"], "Opus only supports sample rates"),
        (p + ["-e", "amplifier Gain=loud"], "must be a number"),
        (p + ["-e", "amplifier Gain"], "is not of the form NAME=VALUE"),
        (p + ["-e", "amplifier Gain='-6"], "unterminated quote"),
        (p + ["-e", "limiter Limit=-1 Release Tim=80"], "no parameter 'Release Tim'"),
        (p + ["-p", "badparam.json"], "effects[0] (amplifier): effect 'amplifier' has no parameter 'Gian'"),
        (p + ["-p", "badtype.json"], "unknown effect 'amplifire' (did you mean 'amplifier'?); valid effects are 'through'"),
        (p + ["-p", "badkey.json"], "unknown key 'parameters'"),
        (p + ["-p", "broken.json"], "not valid JSON"),
        (p + ["-p", "strval.json"], "must be a number in real units"),
        (["process", "in.wav", "o.mp9"], "cannot tell the output format"),
        (p + ["-r", "no/such/dir"], "resource root 'no/such/dir' is not a directory"),
        (p + ["--locale", "english"], "locale 'english'"),
        (p + ["-m", "GENRE"], "not of the form NAME=VALUE"),
        (p + ["--format", "s24"], "s24"),
        (["process", "in.wav"], "OUT is required"),
        (["params", "limitless"], "unknown effect 'limitless'"),
        (["preset", "encode", "badparam.json", "o.bin"], "no parameter 'Gian'"),
        (["preset", "decode", "garbage.wav", "o.json"], "not a valid parameter stream"),
        (["script", "in*2"], "--in is required"),
        (["preset", "decode", "badparam.json", "adir.wav"], "it is a directory"),
        (["frobnicate"], ""),
    ]
    for args, text in cases:
        _, err = run(*args, expect=2)
        check(text in err, "%s: message %r lacks %r" % (args, err, text))
        for name in ("o.wav", "o.bin", "o.json", "o.opus"):
            check(not os.path.exists(path(name)), "%s left %s behind" % (args, name))
    check_no_leftovers()
    check(not os.listdir(path("adir.wav")) and read_bytes("in.wav") == original, "a refused run wrote")
    # Script memory indexes far outside the memory read 0 and write nothing.
    run("process", "in.wav", "mem.wav", "-p", "memory.json")
    out, _ = run("script", "get(-100000000000)", "--in", "0")
    check(out.startswith("result: 0 "), "get out of range: %r" % out)
    # A preset saved with a UTF-8 byte order mark is still JSON.
    check("amplifier |" in run("process", "in.wav", "bom.wav", "-p", "bom.json")[0], "BOM preset")
    # Names with spaces run up to their '='; quoted values; case-insensitive
    # names as a fallback.
    run("process", "in.wav", "ok.wav", "-e", "limiter Limit=-1 Release Time=80  auto level=0", "-e",
        "amplifier Gain='-6'", "--quiet")
    # A value outside the range is stored, with a warning.
    _, err = run("process", "in.wav", "o.wav", "-e", "amplifier Gain=30", "--quiet")
    check("warning:" in err and "outside its range -96 to 18" in err, err)
    for cmd in ("effects", "params", "process", "demo", "script", "response", "scramble", "preset encode"):
        check("Usage:" in run(*(cmd.split() + ["--help"]))[0], cmd + " --help")


def case_response():
    # Bins 0 .. N/2 of a power-of-two transform of at least half a second,
    # drawn at the default or a given size, never at a refused one. The
    # curve's axis and levels are checked in eq_import.
    write_file("amp.json", {"text": "Quieter", "effects": [{"type": "amplifier", "params": {"Gain": -6}}]})
    for extra, size in (((), (960, 540)), (("--width", "640", "--height", "400"), (640, 400))):
        out, _ = run("response", "amp.json", "--out", "r.png", "--csv", "r.csv", *extra)
        head = read_bytes("r.png")[:24]
        check(head[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", head[16:24]) == size, "png %r" % head)
        check("Quieter" in out, out)
    with open(path("r.csv")) as f:
        lines = f.read().splitlines()
    check(lines[0] == "frequency_hz,left_db,right_db" and len(lines) - 1 >= 12001 and
          ((len(lines) - 2) & (len(lines) - 3)) == 0, "%d rows: %s" % (len(lines) - 1, lines[0]))
    run("response", "amp.json", "--out", "x.png", "--width", "10", expect=2)
    check(not os.path.exists(path("x.png")), "a refused size wrote a picture")


def case_script():
    write_file("bypass.txt", "#GV_FXBYPASSED=gt(in,0)\nin\n")
    # (script, input, extra arguments, exit code, texts shown, texts not shown);
    # GENRE_ZKV 9 maps to genre class 1.
    for text, value, extra, code, shown, hidden in (
            ("#x=in*2\nout+1", "3", (), 0, ("result: 7 ", " x=6", "errors: none"), ()),
            (">0-1\nin", "3", (), 0, ("runs: 2 (two-pass)",), ("ondrel_tool",)),
            ("in*(", "3", (), 1, ("result: 3 ", "errors: 1", "LINE 1"), ()),
            ("GENRE*10", "0", ("-m", "GENRE_ZKV=9"), 0, ("result: 10 ",), ()),
            ("@bypass.txt", "5", (), 0, ("left the chain",), ()),
            ("@bypass.txt", "-5", (), 0, ("result: -5 ",), ("left the chain",))):
        out, _ = run("script", text, "--in", value, *extra, expect=code)
        check(all(t in out for t in shown) and not any(t in out for t in hidden), "%r: %s" % (text, out))


def case_headphone():
    # A room set of our own through --rooms: the chosen room passes the
    # centre at 0.5 to the left ear and 0.25 to the right (the render itself
    # is checked against a direct convolution in the headphone tests).
    for room, name, gain in (("MovieTheater", "FC_L.data", 0.5), ("MovieTheater", "FC_R.data", 0.25),
                             ("LiveRoom", "FC_L.data", 1.0)):  # the build room, replaced by RoomType=3
        os.makedirs(path(os.path.join("rooms", room)), exist_ok=True)
        write_file(os.path.join("rooms", room, name), struct.pack("<f", gain) + bytes(4092))
    write_wav("mono.wav", 44100, 1, noise(6000, 0.5, 25), "f32")
    y = process("mono.wav", "room.wav", "-e", "headphone RoomType=3", "--rooms", "rooms", fmt=(44100, 2, "f32"))[1]
    check(max(abs(y[2 * n] - 2 * y[2 * n + 1]) for n in range(6000)) < 1e-6 and max(y) > 0.1, "not the room set")
    # The room set built with the project is found by default and is audible.
    run("process", "mono.wav", "shipped.wav", "-e", "headphone RoomType=1")
    _, channels, _, z = read_wav("shipped.wav")
    check(channels == 2 and max(abs(v) for v in z) > 0.01, "the shipped rooms are silent")
    run("--rooms", "missing-dir", "process", "mono.wav", "bad.wav", "-e", "headphone", expect=2)


def case_reverb_preset():
    """The reverb preset on the demo music: the dry path comes through at
    the preset's gains (-3 dB, then the limiter's -1 dB output, behind its
    220 frames of look-ahead), and the room adds an audible wet signal
    without clipping."""
    out, _ = run("demo", "--out", "demo-out")
    for name in ("input.wav", "output.wav", "headphone.wav", "response.png"):
        check(os.path.exists(path(os.path.join("demo-out", name))), name + " missing")
    check("frames 441000 ->" in out and "wrote demo-out/input.wav" in out, out)
    check(max(abs(v) for v in read_wav("demo-out/headphone.wav")[3]) > 3000, "the headphone render is silent")
    run("process", "demo-out/input.wav", "hall.wav", "--preset", os.path.join(ARGS.source, "presets", "reverb.json"))
    x = read_wav("demo-out/input.wav")[3]
    rate, channels, kind, y = read_wav("hall.wav")
    check((rate, channels, len(y)) == (44100, 2, len(x) + 2 * 220), "output %s" % ((rate, channels, len(y)),))
    check(max(abs(v) for v in y) < 32000, "output clips")
    g, n = 10 ** (-4 / 20.0), 2 * 200000
    dry = sum((g * v) ** 2 for v in x[:n])
    wet = sum((y[i + 440] - g * x[i]) ** 2 for i in range(n))
    check(-12 < 10 * math.log10(wet / dry) < 0, "wet to dry %.1f dB" % (10 * math.log10(wet / dry)))


def case_resources():
    # An impulse response found through --resources, clear and scrambled by
    # the scramble command: the scrambled one loads through a clear copy
    # that does not outlive the run, and both give the response's gains
    # (255 frames of latency given back). The convolution and the scramble
    # rule are checked in the studio IR and resource tests; here also the
    # command's own rules: it undoes itself, keeps an empty file empty and
    # does not write onto its input.
    irs = lambda name: os.path.join("irs", name)
    os.makedirs(path("irs"))
    x = noise(3000 * 2, 0.5, 11)
    write_wav("in.wav", 44100, 2, x, "f32")
    write_wav(irs("plain.wav"), 44100, 2, [0.5, -0.25] + [0.0] * (699 * 2), "f32")
    run("scramble", irs("plain.wav"), irs("room.wav"))
    run("scramble", irs("room.wav"), "back.wav")
    check(read_bytes(irs("room.wav")) != read_bytes("back.wav") == read_bytes(irs("plain.wav")), "not undone")
    for name in ("plain.wav", "room.wav"):
        y = process("in.wav", "ir.wav", "--resources", "irs", "--effect", "studio-ir IR File=" + name,
                    "--format", "f32", "--quiet", fmt=(44100, 2, "f32"))[1]
        worst = max(abs(y[2 * n + ch] - (0.5, -0.25)[ch] * x[2 * (n + 255) + ch])
                    for n in range(3000 - 255) for ch in (0, 1))
        check(worst < 1e-6, "%s: off by %g" % (name, worst))
    check(not [n for n in os.listdir(path("irs")) if n.endswith("-dec")], "clear copy left behind")
    write_file("empty.bin", b"")
    run("scramble", "empty.bin", "empty.out")
    check(read_bytes("empty.out") == b"", "empty input gave a non-empty output")
    original = read_bytes("in.wav")
    run("scramble", "in.wav", "in.wav", expect=2)
    check(read_bytes("in.wav") == original, "scrambling onto the input damaged it")


# ---- batch processing ------------------------------------------------------

def case_batch():
    # A library of mixed containers, a sub-folder, a file that is no sound,
    # and things the walk must leave alone.
    lib = lambda *names: os.path.join("lib", *names)
    os.makedirs(path(lib("disc 2")))
    write_wav(lib("one.wav"), 44100, 2, noise(5000, 0.5, 1), "f32")
    write_wav(lib("disc 2", "two.wav"), 48000, 1, noise(3001, 0.5, 2), "f32")
    write_file(lib("broken.wav"), b"RIFF nothing here" * 4)
    write_file(lib("cover.jpg"), b"\xff\xd8 not audio")
    write_wav("single.wav", 44100, 2, noise(777, 0.5, 3), "f32")
    want = {"one.wav", os.path.join("disc 2", "two.wav"), "single.wav"}
    sox = shutil.which("sox")
    if sox:
        for target in ("three.flac", os.path.join("disc 2", "four.ogg")):
            subprocess.run([sox, path(lib("one.wav")), path(lib(target))], check=True)
            want.add(target)

    out, err = run("process", "lib", "single.wav", "--out-dir", "out", "-e", "amplifier Gain=-6", "-j", "3",
                   expect=1)
    check(err.count("ondrel: skipped") == 1 and "skipped 'lib/broken.wav'" in err, err)
    got = {os.path.relpath(os.path.join(root, n), path("out")) for root, _, files in os.walk(path("out"))
           for n in files}
    check(got == want, "outputs %s, want %s" % (sorted(got), sorted(want)))
    check("%d of %d files processed, 1 failed" % (len(want), len(want) + 1) in out, out)
    # Each result is its input through the chain, in its own format.
    gain = amplifier_gain(-6.0)
    for name in ("one.wav", os.path.join("disc 2", "two.wav")):
        _, _, kind, y = read_wav(os.path.join("out", name))
        check(kind == "f32", name + ": " + kind)
        first_difference(y, [f32(v * gain) for v in read_wav(lib(name))[3]], name)
    if sox:
        info = subprocess.run([sox, "--i", "-t", path(os.path.join("out", "disc 2", "four.ogg"))],
                              capture_output=True, text=True).stdout.strip()
        check(info == "vorbis", "four.ogg written as %r" % info)
    check_no_leftovers()

    # Kept results are not touched again; a container change; a wrong chain
    # stops everything before work.
    before = os.path.getmtime(path(os.path.join("out", "one.wav")))
    out, _ = run("process", "lib/one.wav", "--out-dir", "out", "--skip-existing", "-e", "amplifier")
    check("1 kept as they were" in out and os.path.getmtime(path(os.path.join("out", "one.wav"))) == before, out)
    run("process", "lib/one.wav", "single.wav", "--out-dir", "flac", "--ext", "flac", "-q")
    check(sorted(os.listdir(path("flac"))) == ["one.flac", "single.flac"], os.listdir(path("flac")))
    for args, text in ((("lib", "--out-dir", "none", "-e", "amplifier Gian=1"), "no parameter 'Gian'"),
                       (("lib/one.wav", "single.wav", "lib/one.wav", "--out-dir", "twice"), "would both be written"),
                       (("lib", "--out-dir", "lib"), "is the input file")):
        _, err = run("process", *args, expect=2)
        check(text in err, err)
    check(not os.path.exists(path("none")), "a refused batch made its folder")
    # The results may live inside the library: they are not taken as inputs.
    run("process", "single.wav", "lib/one.wav", "--out-dir", "lib/eq", "-e", "amplifier")
    run("process", "lib", "--out-dir", "lib/eq", "--ext", "w64", "-e", "amplifier", expect=1)
    check(not os.path.exists(path(os.path.join("lib", "eq", "eq"))), "the output folder was taken as input")
    check_no_leftovers()


# ---- headphone equaliser import --------------------------------------------

def cookbook(kind, fc, q, gain, rate):
    """(b, a) of the cookbook biquad `kind` in double."""
    w0 = 2 * math.pi * fc / rate
    c, alpha, A = math.cos(w0), math.sin(w0) / (2 * q), 10 ** (gain / 40)
    if kind == "PK":
        return [1 + alpha * A, -2 * c, 1 - alpha * A], [1 + alpha / A, -2 * c, 1 - alpha / A]
    if kind in ("LS", "HS"):
        k, sg = 2 * math.sqrt(A) * alpha, 1 if kind == "LS" else -1
        return ([A * ((A + 1) - sg * (A - 1) * c + k), sg * 2 * A * ((A - 1) - sg * (A + 1) * c),
                 A * ((A + 1) - sg * (A - 1) * c - k)],
                [(A + 1) + sg * (A - 1) * c + k, -sg * 2 * ((A - 1) + sg * (A + 1) * c), (A + 1) + sg * (A - 1) * c - k])
    b = {"LP": [(1 - c) / 2, 1 - c, (1 - c) / 2], "HP": [(1 + c) / 2, -(1 + c), (1 + c) / 2], "NO": [1, -2 * c, 1],
         "AP": [1 - alpha, -2 * c, 1 + alpha]}[kind]
    return b, [1 + alpha, -2 * c, 1 - alpha]


def chain_db(filters, preamp, freq, rate):
    z = complex(math.cos(2 * math.pi * freq / rate), -math.sin(2 * math.pi * freq / rate))
    total = preamp
    for kind, fc, q, gain in filters:
        b, a = cookbook(kind, fc, q, gain, rate)
        h = (b[0] + b[1] * z + b[2] * z * z) / (a[0] + a[1] * z + a[2] * z * z)
        total += 20 * math.log10(abs(h))
    return total


def response_rows(preset, rate, *extra):
    run("response", preset, "--out", "r.png", "--csv", "r.csv", "--channels", "1", "--rate", rate, *extra)
    with open(path("r.csv")) as f:
        return [[float(v) for v in line.split(",")] for line in f.read().splitlines()[1:]]


def worst_deviation(rows, want, floor=-40.0):
    """Largest |dB difference| from 20 Hz to 20 kHz where the reference is
    above `floor`: deeper in a notch the float coefficients set the depth."""
    worst, at = 0.0, 0.0
    for freq, db in rows:
        ref = want(freq) if 20.0 <= freq <= 20000.0 else floor
        if ref > floor and abs(db - ref) > worst:
            worst, at = abs(db - ref), freq
    return worst, at


def case_eq_import():
    filters = [("LS", 105, 0.7, 5.5), ("PK", 180, 0.7, -2.1), ("PK", 2800, 2.5, 4.0), ("HS", 10000, 0.7, -3.5),
               ("PK", 6100, 4.0, -5.2), ("PK", 12000, 1.5, 6.0), ("NO", 4000, 8.0, 0.0), ("HP", 25, 0.6, 0.0),
               ("LP", 18000, 0.9, 0.0), ("AP", 1000, 0.5, 0.0)]
    tokens = {"LS": "LSC", "HS": "HSC"}
    lines = ["# measured and fitted", "Preamp: -6.2 dB"]
    for n, (kind, fc, q, gain) in enumerate(filters):
        lines.append("Filter %d: ON %s Fc %g Hz%s Q %g" % (n + 1, tokens.get(kind, kind), fc,
                                                            " Gain %g dB" % gain if gain else "", q))
    lines.insert(4, "Filter 99: OFF PK Fc 500 Hz Gain 9.0 dB Q 1.00")
    write_file("ParametricEQ.txt", "\r\n".join(lines) + "\r\n")
    out, _ = run("preset", "import", "ParametricEQ.txt", "eq.json")
    check("10 filters, preamp -6.2 dB" in out, out)
    types = [fx["type"] for fx in json.loads(read_bytes("eq.json"))["effects"]]
    check(types == ["amplifier", "lowshelf", "peak", "peak", "highshelf", "peak", "peak", "notch", "highpass",
                    "lowpass", "allpass"], types)
    preamp = 20 * math.log10(amplifier_gain(-6.2))
    # The chain follows the cookbook filters at the rate the edges were
    # stored for, and (through their scripts) at another rate.
    for rate in (48000, 44100):
        worst, at = worst_deviation(response_rows("eq.json", rate), lambda f: chain_db(filters, preamp, f, rate))
        check(worst < 0.1, "%d Hz: imported chain off by %.4f dB at %g Hz" % (rate, worst, at))
    run("preset", "import", "ParametricEQ.txt", "fixed.json", "--no-scripts")
    worst, _ = worst_deviation(response_rows("fixed.json", 44100), lambda f: chain_db(filters, preamp, f, 44100))
    check(worst > 0.1, "edges stored for 48 kHz match at 44.1 kHz too (%.4f dB): the scripts test nothing" % worst)

    # A graphic curve is fitted with bells: the chain follows the curve.
    points = [(20 * 2 ** (k / 6.0), 6.0 / (1 + (20 * 2 ** (k / 6.0) / 120.0) ** 2) - 4.0 *
               math.exp(-math.log2(20 * 2 ** (k / 6.0) / 3000.0) ** 2)) for k in range(60)]
    write_file("GraphicEQ.txt", "GraphicEQ: " + "; ".join("%.1f %.2f" % p for p in points) + "\n")
    out, _ = run("preset", "import", "GraphicEQ.txt", "g.json")
    check("curve points fitted by" in out, out)

    def curve(freq):
        if freq <= points[0][0]:
            return round(points[0][1], 2)
        for (f0, g0), (f1, g1) in zip(points, points[1:]):
            if f0 <= freq <= f1:
                f0, f1 = float("%.1f" % f0), float("%.1f" % f1)
                t = math.log(freq / f0) / math.log(f1 / f0)
                return round(g0, 2) + t * (round(g1, 2) - round(g0, 2))
        return round(points[-1][1], 2)

    worst, at = worst_deviation(response_rows("g.json", 48000), curve)
    check(worst < 0.5, "graphic curve off by %.3f dB at %g Hz" % (worst, at))

    # Faults are usage errors naming the line.
    for text, message in (("Filter 1: ON XX Fc 100 Hz Gain 1 dB Q 1", ":1: unknown filter type 'XX'"),
                          ("Preamp: -3 dB\nFilter 1: ON PK Gain 1 dB Q 1", ":2: the filter has no positive 'Fc'"),
                          ("Filter 1: ON PK Fc 100 Hz Q 1", ":1: the filter has no 'Gain'"),
                          ("Filter 1: ON PK Fc 30000 Hz Gain 3 dB Q 1", "is not below half of 48000 Hz"),
                          ("Preamp: -3 dB", "no 'Filter' lines")):
        write_file("bad.txt", text + "\n")
        _, err = run("preset", "import", "bad.txt", "bad.json", expect=2)
        check(message in err and not os.path.exists(path("bad.json")), "%r: %s" % (text, err))


# ---- PipeWire filter chains ------------------------------------------------

def control_symbol(name):
    """The LV2 symbol of a parameter: lower case, each run of other
    characters one '_', none at either end, "p_" before a leading digit."""
    out = re.sub(r"[^0-9a-z]+", "_", name.lower()).strip("_")
    return "p_" + out if not out or out[0].isdigit() else out


def case_pipewire():
    """The shipped filter chains name only plugins, controls, ports and
    values that exist (in the tool's catalogue and, when built, the LV2
    bundle), and link every node to the next on both channels."""
    catalogue, bundle = {}, None
    ttl = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(ARGS.tool))), "lib", "lv2", "ondrel.lv2",
                       "ondrel.ttl")
    if os.path.exists(ttl):
        with open(ttl, encoding="utf-8") as f:
            bundle = {block[:block.index(">")]: set(re.findall(r'lv2:symbol "([^"]+)"', block))
                      for block in f.read().split("\n<urn:ondrel:")[1:]}
    node_re = re.compile(r'\{\s*type\s*=\s*lv2\s+name\s*=\s*(\w+)\s+plugin\s*=\s*"urn:ondrel:([\w-]+)"'
                         r'(?:\s+control\s*=\s*\{([^}]*)\})?')
    for conf in ("ondrel-eq.conf", "ondrel-eq-headphone.conf"):
        with open(os.path.join(ARGS.source, "docs", "pipewire", conf)) as f:
            text = re.sub(r"#[^\n]*", "", f.read())
        check(text.count("libpipewire-module-filter-chain") == 1 and "media.class = Audio/Sink" in text,
              conf + ": not one filter chain on an output device")
        nodes = node_re.findall(text)
        check(nodes and len(nodes) == len(re.findall(r"type\s*=\s*lv2", text)), "%s: nodes %r" % (conf, nodes))
        for name, short, controls in nodes:
            if short not in catalogue:
                catalogue[short] = {control_symbol(p["name"]): p
                                    for p in json.loads(run("params", short, "--json")[0])["params"]}
            ports = {"in_1", "in_2", "out_1", "out_2"}
            for symbol, v in re.findall(r'"([^"]+)"\s*=\s*(-?[\d.]+)', controls):
                p = catalogue[short].get(symbol)
                check(p is not None and p["min"] <= float(v) <= p["max"], "%s: %s %s=%s" % (conf, short, symbol, v))
                ports.add(symbol)
            check(bundle is None or ports <= bundle.get(short, set()), "%s: LV2 ports %s of %s" % (conf, ports, short))
        names = [n[0] for n in nodes]
        links = re.findall(r'output\s*=\s*"(\w+):out_([12])"\s+input\s*=\s*"(\w+):in_([12])"', text)
        want = [(a, ch, b, ch) for a, b in zip(names, names[1:]) for ch in "12"]
        check(sorted(links) == sorted(want), "%s: links %r, want %r" % (conf, links, want))
        check(re.search(r'inputs\s*=\s*\[\s*"%s:in_1"\s+"%s:in_2"\s*\]' % (names[0], names[0]), text) and
              re.search(r'outputs\s*=\s*\[\s*"%s:out_1"\s+"%s:out_2"\s*\]' % (names[-1], names[-1]), text),
              conf + ": the chain does not run from the first node to the last")
    check({"eq10", "limiter", "headphone"} <= set(catalogue), sorted(catalogue))


CASES = {name[5:]: fn for name, fn in globals().items() if name.startswith("case_")}


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("case", choices=sorted(CASES))
    ARGS = parser.parse_args()
    ARGS.tool = os.path.abspath(ARGS.tool)
    shutil.rmtree(ARGS.work, ignore_errors=True)
    os.makedirs(ARGS.work)
    try:
        CASES[ARGS.case]()
    except AssertionError as e:
        print("FAILED %s: %s" % (ARGS.case, e))
        return 1
    print("passed %s" % ARGS.case)
    return 0


if __name__ == "__main__":
    sys.exit(main())
