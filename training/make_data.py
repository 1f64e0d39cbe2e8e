"""Makes the training data in training/work: a bank of voices, then scenes as the network hears them.

features.npy (scenes, blocks, features) and targets.npy (scenes, blocks, 3, bands), both float16. Targets:
log2 of the mixture's energy, the amplitude of the clean voice against the mixture, and the part of the
mixture that is common with the clean voice (the best gain in the sense of least squares).

With --renew and another seed, new scenes of new voices replace those that are there, one by one; a training that
runs meanwhile sees them as they come. Without it the network begins to know its 2300 scenes by heart.
"""
import argparse
import os
import pickle
import time

import numpy as np

import capture_blocks
import scenes
from capture_blocks import BANDS, BLOCK, FEATURES, WORK

SPEAKERS, UTTERANCES = 300, 6
SECONDS = 10


def voice_bank(seed):
    """SPEAKERS lists of utterances, made once."""
    path = os.path.join(WORK, f"voices-{seed}.pickle")
    if not os.path.exists(path):
        rng = np.random.default_rng([seed, 1])
        bank = [[scenes.training_voice(rng) for _ in range(UTTERANCES)] for _ in range(SPEAKERS)]
        with open(path, "wb") as file:
            pickle.dump(bank, file)
    with open(path, "rb") as file:
        return pickle.load(file)


def compact_targets(clean, mix):
    s, x, common = np.moveaxis(capture_blocks.targets(clean, mix), 1, 0)
    x = x + 1e-12
    return np.stack([np.log2(x), np.sqrt(s / x).clip(0, 4), (common / x).clip(-4, 4)], 1)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--scenes", type=int, default=2400)
    parser.add_argument("--renew", action="store_true")
    options = parser.parse_args()
    started = time.time()
    bank = voice_bank(options.seed)
    print(f"voices: {time.time() - started:.0f} s", flush=True)
    blocks = SECONDS * scenes.FS // BLOCK
    make = lambda name, *shape: np.lib.format.open_memmap(
        os.path.join(WORK, name), *(["r+"] if options.renew else ["w+", np.float16, shape]))
    features = make("features.npy", options.scenes, blocks, FEATURES)
    targets = make("targets.npy", options.scenes, blocks, 3, BANDS)
    for k in range(options.scenes):
        clean, noise = scenes.scene(np.random.default_rng([options.seed, 2, k]), SECONDS, bank)
        mix = clean + noise
        features[k] = capture_blocks.features(mix)
        targets[k] = compact_targets(clean, mix)
        if k % 100 == 99:
            print(f"{k + 1} scenes: {time.time() - started:.0f} s", flush=True)


if __name__ == "__main__":
    main()
