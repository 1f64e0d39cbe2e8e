#!/usr/bin/python3
"""Draws docs/pictures/*.svg from the real code: signals go through the built library, block by block, as the module
sends them, and gnuplot draws what comes out.

Builds the library first; needs cmake, a compiler, numpy and gnuplot.
"""
import argparse
import os
import subprocess
import sys

import numpy as np

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "training"))
from capture_library import CaptureLibrary  # noqa: E402

FS = 48000
FOLDER = os.path.join(ROOT, "docs", "pictures")


def build():
    folder = os.path.join(ROOT, "build", "pictures")
    options = ["-DBINAURAL_TESTS=OFF", "-DBINAURAL_TOOLS=ON", "-DCMAKE_BUILD_TYPE=RelWithDebInfo"]
    subprocess.run(["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja"] + options, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["ninja", "-C", folder, "capture_library"], check=True, stdout=subprocess.DEVNULL)
    return CaptureLibrary(os.path.join(folder, "lib", "libcapture_library.so"))


def draw(name, title, x, y, curves, settings=""):
    """curves: (legend, xs, ys, gnuplot style)."""
    lines = ['set terminal svg size 640,340 dynamic background "white" font "sans,11"',
             f'set output "{os.path.join(FOLDER, name + ".svg")}"', f'set title "{title}"', f'set xlabel "{x}"',
             f'set ylabel "{y}"', "set grid lc rgb '#dddddd'", "set key outside bottom center horizontal", settings]
    plots = ", ".join(f"'-' with {style} title '{legend}'" if legend else f"'-' with {style} notitle"
                      for legend, _, _, style in curves)
    lines.append("plot " + plots)
    for _, xs, ys, _ in curves:
        lines += [f"{a:.5g} {b:.4g}" for a, b in zip(xs, ys)] + ["e"]
    subprocess.run(["gnuplot"], input="\n".join(lines) + "\n", text=True, check=True)


def decibel(x):
    return 10 * np.log10(np.maximum(x, 1e-12))


def levels(x, seconds=0.1):
    """Level of one ear per step, (times, dB)."""
    n = int(seconds * FS)
    k = len(x) // n
    return (np.arange(k) + 0.5) * seconds, decibel(np.mean(x[:k * n].reshape(k, n) ** 2, 1))


def noise(seconds, rms_db, seed=1, central=False):
    x = np.random.default_rng(seed).standard_normal((2, int(seconds * FS)))
    if central:
        x[1] = x[0]
    return x * 10 ** (rms_db / 20)


def voice_like(seconds, rms_db, seed, central):
    """Noise that falls with 6 dB per octave above 400 Hz."""
    x = noise(seconds, 0, seed, central)
    f = np.fft.rfftfreq(x.shape[1], 1 / FS)
    x = np.fft.irfft(np.fft.rfft(x) / (1 + f / 400), x.shape[1])
    return x / np.sqrt(np.mean(x ** 2)) * 10 ** (rms_db / 20)


def response(library, seconds=0.7, **how):
    """(Hz, dB) from an impulse."""
    n = int(seconds * FS)
    x = np.zeros((2, n))
    x[:, n // 4] = 0.25
    y = library.record(x, **how)[0]
    f = np.fft.rfftfreq(n, 1 / FS)
    return f[1:], decibel(np.abs(np.fft.rfft(y)[1:]) ** 2 / 0.25 ** 2)


def thinned(f, y, lowest, highest, points=140):
    at = np.unique(np.searchsorted(f, np.geomspace(lowest, highest, points)))
    at = at[at < len(f)]
    return f[at], y[at]


def hpf(library):
    f, y = response(library, 3.0, mode=1, hpf_enable=1)
    draw("hpf", "hpf: response", "Hz", "dB", [("", *thinned(f, y, 10, 1000), "lines lw 2")],
         "set logscale x\nset xrange [10:1000]\nset yrange [-48:3]\nset ytics 6")


def limiter(library):
    n = 2 * FS // 10
    t = np.arange(n) / FS
    x = np.tile(0.25 * np.sin(2 * np.pi * 440 * t), (2, 1))
    x[:, 4400:5000] *= 3.6
    y = library.record(x, pregain_enable=1, pregain_boost=0, pregain_limiter_peak=128)
    part = slice(3600, 7200, 6)
    peak = [0.5, 0.5]
    ends = [t[3600] * 1000, t[7200] * 1000]
    draw("limiter", "limiter with its peak at 128/256: a tone with a burst", "ms", "sample", [
        ("in", t[part] * 1000, x[0, part], "lines lc rgb '#bbbbbb'"), ("out", t[part] * 1000, y[0, part], "lines lw 2"),
        ("peak", ends, peak, "lines dt 2 lc rgb 'red'"), ("", ends, [-0.5, -0.5], "lines dt 2 lc rgb 'red'")],
        "set yrange [-1:1]")


def harmonics(seconds, rms_db, on=0.4, off=0.4):
    """Something like a voice: harmonics of 140 Hz with a wandering pitch, in syllables of `on` seconds; central."""
    t = np.arange(int(seconds * FS)) / FS
    phase = 2 * np.pi * np.cumsum(140 + 15 * np.sin(2 * np.pi * 2.3 * t)) / FS
    x = sum(np.cos(k * phase + k * k) / k for k in range(1, 40))
    ramp = np.clip(np.minimum(t % (on + off), on - t % (on + off)) / 0.03, 0, 1)
    x = x / np.sqrt(np.mean(x ** 2)) * 10 ** (rms_db / 20) * ramp
    return np.stack([x, x])


def rnn(library):
    x = noise(10, -46, 3)
    x[:, 4 * FS:] += harmonics(6, -26)
    curves = []
    for amount in (0, 2, 4, 6, 8):
        t, y = levels(library.record(x, rnn_enable=1, rnn_amount=amount, rmx_amount=0)[0])
        curves.append((f"amount {amount}", t, y, "lines lw 2"))
    draw("rnn", "rnn: steady diffuse noise, from 4 s on with voiced syllables", "s", "dB", curves,
         "set yrange [-90:-20]")


def rmx(library):
    x = noise(6, -46, 3)
    amounts = np.arange(17)
    out = [levels(library.record(x, rnn_enable=1, rnn_amount=8, rmx_amount=int(a))[0, 4 * FS:], 1.9)[1][0] for a in amounts]
    law = decibel((amounts[1:] / 16) ** 4 / 16)
    draw("rmx", "rmx: ambience in a pause, with rnn full", "amount", "dB against the input", [
        ("measured", amounts, np.array(out) + 46, "linespoints lw 2 pt 7 ps 0.5"),
        ("share that is mixed back", amounts[1:], law, "lines dt 2")], "set yrange [-50:0]")


def nfm(library):
    table = {"nfm_band_energy": library.table("A_NFM_TUNING_DATA_SR48K")}
    scene = voice_like(6, -50, 1, False)
    ins = np.arange(-60, -11, 4)
    curves = []
    for title, central, amount in (("own voice, amount 16", True, 16), ("own voice, amount 8", True, 8),
                                   ("from all around, amount 16", False, 16)):
        outs = []
        for level in ins:
            x = np.concatenate([scene, voice_like(3, level, 2, central)], 1)
            outs.append(decibel(np.mean(library.record(x, nfm_amount=amount, tables=table)[0, -FS:] ** 2)))
        curves.append((title, ins, outs, "linespoints lw 2 pt 7 ps 0.4"))
    draw("nfm", "nfm: a steady voice-like sound after six seconds of a scene at -50 dB", "in, dB", "out, dB", curves,
         "set xrange [-60:-12]\nset yrange [-60:-12]")


def peq(library):
    curves = []
    hz = None
    for preset, colour in ((1, "#1f77b4"), (2, "#d62728")):
        table = library.table(f"A_PEQ_TUNING_DATA_PRESET{preset}_SR48K")
        f, y = response(library, 0.7, peq_amount=16, tables={"peq_band_gain": table})
        if hz is None:
            hz = band_centres()
        curves += [(f"preset {preset}, measured", *thinned(f, y, 30, 23900), f"lines lw 2 lc rgb '{colour}'"),
                   (f"preset {preset}, set", hz[1:], [g / 16 for g in table[1:]], f"points pt 6 ps 0.5 lc rgb '{colour}'")]
    draw("peq", "peq: the two presets at 48 kHz", "Hz", "dB", curves,
         "set logscale x\nset xrange [30:24000]\nset yrange [-18:15]\nset ytics 3")


def band_centres():
    sys.path.insert(0, os.path.join(ROOT, "scripts"))
    from make_tuning_tables import centres
    return centres()


def lrc(library):
    curves = []
    for mismatch in (2, 5, 9):
        x = noise(70, -40, 5)
        x[1] *= 10 ** (-mismatch / 20)
        y = library.record(x, lrc_enable=1)
        t, left = levels(y[0], 1.0)
        _, right = levels(y[1], 1.0)
        curves.append((f"{mismatch} dB to begin with", t, left - right, "lines lw 2"))
    draw("lrc", "lrc: level of the left ear against the right", "s", "dB", curves, "set yrange [0:10]")


def postgain(library):
    parts = [(8, -45), (3, -75), (6, -45), (8, -28), (10, -45)]
    x = np.concatenate([voice_like(s, level, 9 + k, False) for k, (s, level) in enumerate(parts)], 1)
    y = library.record(x, postgain_enable=1, postgain_boost=320, postgain_out_target=-288)
    t, before = levels(x[0], 0.25)
    _, after = levels(y[0], 0.25)
    draw("postgain", "postgain: boost +20 dB at most, target -18 dB, with a pause", "s", "dB", [
        ("in", t, before, "lines lw 2 lc rgb '#999999'"), ("out", t, after, "lines lw 2"),
        ("target", [0, t[-1]], [-18, -18], "lines dt 2 lc rgb 'red'")], "set yrange [-80:-10]")


def main():
    pictures = {picture.__name__: picture for picture in (hpf, limiter, rnn, rmx, nfm, peq, lrc, postgain)}
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("pictures", nargs="*", metavar="PICTURE", help="of: " + " ".join(pictures) + "; all by default")
    wanted = parser.parse_args().pictures
    for name in wanted:
        if name not in pictures:
            parser.error(f"no picture \"{name}\"; there are: {' '.join(pictures)}")
    os.makedirs(FOLDER, exist_ok=True)
    library = build()
    for name in wanted or pictures:
        pictures[name](library)


if __name__ == "__main__":
    main()
