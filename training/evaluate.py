"""Runs the capture library over held-out mixtures and prints how well it reduces noise; takes some two minutes."""
import argparse
import itertools
import json
import os
from collections import defaultdict

import numpy as np

import held_out
import metrics
import peers
import statistical
from capture_library import CaptureLibrary

BUILT = os.path.join(os.path.dirname(__file__), "..", "build-evaluate", "lib", "libcapture_library.so")
COMPARED = {"statistical": statistical.reduce, "speex": peers.speex, "webrtc": peers.webrtc}

ROWS = (("filtered SDR improvement, dB", "sdr_gain", 2), ("STOI unprocessed", "stoi_in", 3),
        ("STOI change", "stoi_gain", 3), ("ESTOI change", "estoi_gain", 3),
        ("noise reduction in pauses, dB", "pause_reduction", 1), ("voice level change, dB", "voice_level", 2),
        ("musical noise (log kurtosis ratio)", "warble", 3), ("mismatch of the ears' gains, dB", "ears_gain_mismatch", 2),
        ("ILD error, dB", "ild_error", 2), ("ILD error unprocessed, dB", "ild_error_in", 2),
        ("ITD error, samples", "itd_error", 2), ("ITD error unprocessed, samples", "itd_error_in", 2))

# Noise that leaves more than this of a voice's intelligibility leaves no room to show a gain: at 0 dB of wind,
# passing cars or clatter the STOI is already 0.90 to 0.98. The column "masking" is of the other mixtures.
MASKED_STOI = 0.9


def level_stages(library):
    """Further figures of the chain beside the noise reduction: (title, value)."""
    over = 0
    for boost in (0, 144, 320):
        for peak in (64, 200, 256):
            out = library.record(held_out.clicks(), pregain_enable=1, pregain_boost=boost, pregain_limiter_peak=peak)
            over += int(np.sum(np.abs(out) > peak / 256))
            out = library.record(held_out.clicks(), postgain_enable=1, postgain_boost=boost, postgain_limiter_peak=peak)
            over += int(np.sum(np.abs(out) > peak / 256))
    mix, turns = held_out.own_and_far_voice()
    level = lambda x, part: np.mean([metrics.decibel(np.mean(x[:, turn] ** 2)) for turn in part])
    ratio = lambda x: float(level(x, turns[2::2]) - level(x, turns[3::2]))
    managed = library.record(mix, nfm_amount=16, tables={"nfm_band_energy": library.table("A_NFM_TUNING_DATA_SR48K")})
    persistent, scratch = library.memory_bytes()
    return (("samples over the limiters' peaks, clicks and bursts", over),
            ("own voice over far voice, in, dB", ratio(mix)), ("own voice over far voice, nfm full, dB", ratio(managed)),
            ("persistent memory, bytes", persistent), ("scratch memory, bytes", scratch))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library", default=BUILT, help='shared library with the bcap_* interface (default: the one that '
                        'scripts/evaluate.sh builds), or what it is compared with: ' + ", ".join(COMPARED))
    parser.add_argument("--amount", type=int, default=8, choices=range(9), help="of the noise reduction (default 8, full)")
    parser.add_argument("--every", type=int, default=1, metavar="N", help="only every N-th mixture")
    parser.add_argument("--json", type=argparse.FileType("a"), metavar="FILE", help="write all means there, too")
    options = parser.parse_args()
    if options.every < 1:
        parser.error(f"--every {options.every}: expected 1 or more")
    reduce = COMPARED.get(options.library)
    if reduce is None:
        try:
            library = CaptureLibrary(options.library)
        except OSError as error:
            parser.error(f"--library: {error}")
        reduce = lambda mix: library.record(mix, rnn_enable=1, rnn_amount=options.amount, rmx_amount=0)
    groups = defaultdict(list)
    for kind, snr_db, clean, noise in itertools.islice(held_out.mixtures(), 0, None, options.every):
        scores = metrics.score(clean, noise, reduce(clean + noise))
        stationary = "stationary" if kind in held_out.STATIONARY else "not stationary"
        masking = "masking" if scores["stoi_in"] < MASKED_STOI else "hardly masking"
        for group in ("all", f"{snr_db} dB", kind, stationary, masking):
            groups[group].append(scores)
    columns = ["all"] + [f"{snr} dB" for snr in held_out.SNRS_DB] + ["masking", "stationary"] + [k.__name__ for k, _ in held_out.KINDS]
    columns = [group for group in columns if group in groups]
    means = {group: {key: float(np.nanmean([s[key] for s in groups[group]])) for key in groups[group][0]} for group in columns}
    print("| quantity | " + " | ".join(columns) + " |\n|" + "---|" * (len(columns) + 1))
    for title, key, digits in ROWS:
        print(f"| {title} | " + " | ".join(f"{means[group][key]:.{digits}f}" for group in columns) + " |")
    extras = () if options.library in COMPARED else level_stages(library)
    print()
    for title, value in extras:
        print(f"{title}: {value:.1f}" if isinstance(value, float) else f"{title}: {value}")
    if options.json:
        means["further"] = dict(extras)
        options.json.truncate(0)
        json.dump(means, options.json, indent=1)


if __name__ == "__main__":
    main()
