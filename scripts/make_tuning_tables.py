#!/usr/bin/python3
"""Writes bcap/src/tuning_tables.cpp: the three preset tables for 48 kHz.

Method: the first and the last rows are given; between them the curve runs through the design points
below (frequency in Hz, dB), read as a monotone cubic (F. Fritsch, R. Carlson, "Monotone piecewise cubic
interpolation", 1980) over the logarithm of frequency at the centre of each band.

Equaliser, preset 1: the inverse of what the head and the concha add to a diffuse sound at the blocked
entrance of the ear canal (broad rise from 1 kHz, resonance near 4 kHz, fading by 10 kHz; shape after
E. Shaw, "Transformation of sound pressure level from the free field to the eardrum", JASA 56, 1974,
without the part of the canal), and a rise toward 20 kHz for the roll-off of small microphones and of the
radio link's codec. Preset 2: the same for a microphone under a windscreen deep in the concha: a narrower,
stronger resonance, less roll-off.
Near-field energies: the shape of long-term average speech (D. Byrne et al., "An international comparison
of long-term average speech spectra", JASA 96, 1994), summed over each band, midway between the wearer's
own voice and a talker at two metres as they arrive at the ears; below 300 Hz it follows handling noise and
room rumble, so that those never count as a voice.
"""
import argparse
import math
import pathlib

import numpy as np
from scipy.interpolate import PchipInterpolator


def centres(sample_rate_hz=48000, points=1024):
    """Centre frequencies of the bands; the law of bcap/src/band_layout.cpp."""
    bin_hz, edge, out = sample_rate_hz / points, 0, []
    while edge < points // 2 + 1:
        hz = edge * bin_hz
        width = 1 if hz < 1600 else int(0.65 * 24.7 * (4.37e-3 * hz + 1) / bin_hz + 0.5)
        after = min(edge + width, points // 2 + 1)
        out.append((edge + after - 1) // 2 * bin_hz)
        edge = after
    return out


def table(first, points, last):
    hz = centres()
    n = len(hz)
    fixed = list(enumerate(first)) + [(n - len(last) + i, v) for i, v in enumerate(last)]
    nodes = sorted([(math.log(max(hz[b], 1.0)), v) for b, v in fixed] +
                   [(math.log(f), 16 * v) for f, v in points])
    curve = PchipInterpolator(*zip(*nodes))
    return [int(np.rint(curve(math.log(max(f, 1.0))))) for f in hz]


EQ_FIRST = (41, 37, 27, 15, 3, 2, 2, 0)
TABLES = {
    "A_PEQ_TUNING_DATA_PRESET1_SR48K": table(
        EQ_FIRST,
        [(600, -0.6), (1000, -1.9), (1600, -3.6), (2500, -7.2), (3703.125, -167 / 16), (5500, -7.6), (7500, -3.8),
         (9500, -2.0), (12000, -0.6), (15000, 1.2)],
        (66, 103, 151, 211)),
    "A_PEQ_TUNING_DATA_PRESET2_SR48K": table(
        EQ_FIRST,
        [(600, -0.5), (1000, -1.8), (1600, -4.4), (2500, -10.5), (3703.125, -259 / 16), (5000, -11.8), (7000, -5.6),
         (9500, -2.6), (12000, -1.6), (15000, -0.4)],
        (35, 80, 134, 197)),
    "A_NFM_TUNING_DATA_SR48K": table(
        (-724, -742, -792, -847, -874, -894, -914, -926),
        [(500, -58.9), (750, -61.5), (1100, -64.8), (1600, -67.9), (2500, -66.6), (4000, -66.4), (6000, -67.3),
         (9000, -68.3), (13000, -68.9), (16000, -68.7)],
        (-1094, -1092, -1097, -1162)),
}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.parse_args()
    lines = ["// Preset tables for 48 kHz, lowest band first, in 1/16 dB. Written by scripts/make_tuning_tables.py,",
             "// where the method stands.", '#include "bcap.h"', "", "// clang-format off"]
    for name, values in TABLES.items():
        assert len(values) == 73
        lines.append(f"const int32_t {name}[BCAP_BANDS_48000] = {{")
        for i in range(0, 73, 12):
            lines.append("  " + " ".join(f"{v:5d}," for v in values[i:i + 12]))
        lines.append("};")
    lines += ["// clang-format on", ""]
    (pathlib.Path(__file__).parents[1] / "bcap/src/tuning_tables.cpp").write_text("\n".join(lines))


if __name__ == "__main__":
    main()
