#!/usr/bin/env python3
"""The ondrel LV2 bundle in real hosts: lilv's tools, FFmpeg and GStreamer.

Each case runs the hosts on a generated float WAV and compares with the
output of `ondrel process` for the same effect and values. The library hands
whole blocks to its effects, so a plugin's output is the tool's output
delayed by the block size less one frame; apart from that delay the samples
must be identical. A case whose host program is missing is skipped (exit
code 77) with a message saying which program.
"""
import argparse
import math
import os
import random
import re
import shutil
import struct
import subprocess
import sys

SKIP = 77


def write_wav(path, channels, rate, frames):
    data = b"".join(struct.pack("<%df" % channels, *f) for f in frames)
    fmt = struct.pack("<HHIIHH", 3, channels, rate, rate * channels * 4, channels * 4, 32)
    with open(path, "wb") as f:
        f.write(b"RIFF" + struct.pack("<I", 4 + 24 + 8 + len(data)) + b"WAVE")
        f.write(b"fmt " + struct.pack("<I", 16) + fmt + b"data" + struct.pack("<I", len(data)) + data)


def read_wav(path):
    b = open(path, "rb").read()
    pos, channels, data, fmt = 12, 0, b"", 0
    while pos + 8 <= len(b):
        cid, size = b[pos:pos + 4], struct.unpack("<I", b[pos + 4:pos + 8])[0]
        body = b[pos + 8:pos + 8 + size]
        if cid == b"fmt ":
            fmt, channels = struct.unpack("<HH", body[:4])
        elif cid == b"data":
            data = body
        pos += 8 + size + (size & 1)
    assert fmt in (3, 0xFFFE), "%s: not float samples (format %d)" % (path, fmt)
    n = len(data) // (4 * channels)
    v = struct.unpack("<%df" % (n * channels), data[:n * channels * 4])
    return [v[i * channels:(i + 1) * channels] for i in range(n)]


def test_signal(path, channels=2, frames=12000):
    rng = random.Random(7)
    rows = []
    for i in range(frames):
        t = i / 44100.0
        row = [0.9 * math.sin(2 * math.pi * 440 * t) + 0.1 * (rng.random() - 0.5),
               0.7 * math.sin(2 * math.pi * 1234 * t) * (1 + 0.5 * math.sin(2 * math.pi * 3 * t))]
        rows.append(tuple(row[c % 2] * (1 - 0.1 * c) for c in range(channels)))
    write_wav(path, channels, 44100, rows)


def run(cmd, env):
    res = subprocess.run(cmd, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if res.returncode != 0:
        sys.exit("FAIL: %s\n%s%s" % (" ".join(cmd), res.stdout, res.stderr))
    return res.stdout


def need(*programs):
    for p in programs:
        if shutil.which(p) is None:
            print("SKIP: '%s' is not installed (scripts/setup.sh installs it)" % p)
            sys.exit(SKIP)


def expect_delayed(host_out, tool_out, delay, what):
    """host_out[i + delay] == tool_out[i] for every frame both have."""
    a, b = read_wav(host_out), read_wav(tool_out)
    n = min(len(a) - delay, len(b))
    assert n > 1000, "%s: only %d frames to compare" % (what, n)
    assert all(x == 0.0 for f in a[:delay] for x in f), "%s: output before the latency" % what
    for i in range(n):
        if a[i + delay] != b[i]:
            sys.exit("FAIL: %s: frame %d differs: %r != %r" % (what, i, a[i + delay], b[i]))
    assert any(abs(x) > 1e-3 for f in b[:n] for x in f), "%s: compared only silence" % what


def case_list(args, env):
    need("lv2ls", "lv2info")
    uris = set(run(["lv2ls"], env).split())
    ours = {u for u in uris if u.startswith("urn:ondrel:")}
    # One plugin per built type (the resampler changes the rate: none), the
    # 5.1 headphone variant and the chain.
    rows = re.findall(r'^ONDREL_EFFECT\((\w+), "([^"]+)"',
                      open(os.path.join(args.source, "effects/effect_list.inc")).read(), re.M)
    expected = {"urn:ondrel:" + name for t, name in rows if t != "EFFECT_RESAMPLER"}
    expected |= {"urn:ondrel:headphone-51", "urn:ondrel:chain"}
    assert ours == expected, "plugins: missing %s, extra %s" % (expected - ours, ours - expected)

    # Audio ports per plugin and a latency port; then the ranges and the
    # switch of the limiter, the last one listed.
    audio = {"urn:ondrel:mono2dual": (1, 2), "urn:ondrel:two2six": (2, 6),
             "urn:ondrel:headphone-51": (6, 2), "urn:ondrel:limiter": (2, 2)}
    for uri, (nin, nout) in audio.items():
        info = run(["lv2info", uri], env)
        ports = {}
        for block in re.split(r"\n\tPort \d+:\n", info)[1:]:
            ports[re.search(r"Symbol:\s+(\S+)", block).group(1)] = (
                set(re.findall(r"#(\w+)", block.split("Symbol:")[0])), block)
        counts = [sum(1 for k, _ in ports.values() if {"AudioPort", d} <= k) for d in ("InputPort", "OutputPort")]
        assert counts == [nin, nout], "%s: audio %s" % (uri, counts)
        assert "reported by port" in info, "%s: no latency port" % uri
    assert re.search(r"Minimum:\s+-96\.0+\n\s+Maximum:\s+0\.0+\n\s+Default:\s+-0\.2", ports["limit"][1])
    assert "toggled" in ports["auto_release"][1], ports["auto_release"][1]
    ttl = open(os.path.join(args.bundle, "ondrel.ttl"), encoding="utf-8").read()
    # Units from the formatters, choice words, localised names, file paths.
    assert re.search(r'lv2:symbol "limit" ;[^]]*units:unit units:db', ttl)
    assert re.search(r'lv2:symbol "attack_time" ;[^]]*units:unit units:ms', ttl)
    assert 'rdfs:label "4 X" ; rdf:value 3' in ttl
    assert '"限制器"@zh' in ttl and '"リミッター"@ja' in ttl
    assert re.search(r"<urn:ondrel:studio-ir#\w+>\n  a lv2:Parameter ;\n  rdfs:label \"IR File\" ;"
                     r"\n  rdfs:range atom:Path", ttl)
    assert "patch:writable <urn:ondrel:chain#preset>" in ttl


def compare_with_tool(args, env, src, host_out, tool_text, block, what):
    ref = host_out + ".tool.wav"
    run([args.tool, "process", src, ref, "-e", tool_text, "-q"], env)
    expect_delayed(host_out, ref, block - 1, what)


def case_lv2apply(args, env):
    need("lv2apply")
    src = os.path.join(args.work, "in.wav")
    test_signal(src)
    # Plugin, its tool text, its controls, the block size it runs at: a
    # 1024-frame block with "p_" symbols, and two to six channels.
    for name, tool_text, controls, block in (
            ("eq10", "eq10 250 Hz=6 4000 Hz=-4", ["-c", "p_250_hz", "6", "-c", "p_4000_hz", "-4"], 1024),
            ("two2six", "two2six", [], 1024)):
        out = os.path.join(args.work, name + "_lv2.wav")
        run(["lv2apply", "-i", src, "-o", out] + controls + ["urn:ondrel:" + name], env)
        compare_with_tool(args, env, src, out, tool_text, block, "lv2apply " + name)
    assert len(read_wav(out)[0]) == 6


def case_ffmpeg(args, env):
    need("ffmpeg")
    src = os.path.join(args.work, "in.wav")
    test_signal(src)
    out = os.path.join(args.work, "limiter_ffmpeg.wav")
    run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-y", "-i", src, "-af",
         r"lv2=p=urn\\:ondrel\\:limiter:c=limit=-6|release_time=20", "-c:a", "pcm_f32le", out], env)
    compare_with_tool(args, env, src, out, "limiter Limit=-6 Release Time=20", 512, "ffmpeg limiter")


def case_gstreamer(args, env):
    need("gst-launch-1.0", "gst-inspect-1.0")
    env = dict(env, GST_REGISTRY=os.path.join(args.work, "registry.bin"))
    if "urn-ondrel-limiter" not in run(["gst-inspect-1.0", "lv2"], env):
        print("SKIP: GStreamer has no LV2 element (gstreamer1.0-plugins-bad)")
        sys.exit(SKIP)
    src = os.path.join(args.work, "in.wav")
    test_signal(src)
    out = os.path.join(args.work, "limiter_gst.wav")
    # GStreamer starts switches at off whatever the plugin's default says:
    # Auto Level is set to its default (on) by hand.
    run(["gst-launch-1.0", "-q", "filesrc", "location=" + src, "!", "wavparse", "!",
         "audioconvert", "!", "urn-ondrel-limiter", "limit=-6", "auto-level=true", "!",
         "audioconvert", "!", "audio/x-raw,format=F32LE", "!", "wavenc", "!",
         "filesink", "location=" + out], env)
    compare_with_tool(args, env, src, out, "limiter Limit=-6", 512, "gstreamer limiter")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--tool", required=True)
    ap.add_argument("--bundle", required=True)
    ap.add_argument("--source", required=True)
    ap.add_argument("--work", required=True)
    ap.add_argument("case", choices=["list", "lv2apply", "ffmpeg", "gstreamer"])
    args = ap.parse_args()
    os.makedirs(args.work, exist_ok=True)
    env = dict(os.environ, LV2_PATH=os.path.dirname(os.path.abspath(args.bundle)), LANG="C",
               LC_ALL="C")
    globals()["case_" + args.case](args, env)
    print("ok")


if __name__ == "__main__":
    main()
