"""Makes the training data in training/work: a bank of voices, then voices and noises at the ears, then mixtures of
them as the network hears them.

features.npy (scenes, blocks, features), targets.npy (scenes, blocks, 4, bands) and heard.npy (scenes, blocks, ears,
HEARD), all float16. Targets:
log2 of the mixture's energy, the amplitude of the clean voice against the mixture, the part of the mixture
that is common with the clean voice (the best gain in the sense of least squares), and a row for the delay
between the ears: what they have in common in DELAY_BANDS, as a share of the mixture's energy, real then
imaginary parts; the clean voice's delay in samples, 0.25 to a step; 1 where there is one, else 0. Heard: the
mixture's spectrum in the lowest bins, real then imaginary parts, then the clean voice's amplitudes in THIRD_OCTAVES.

With --renew, new mixtures replace those that are there, again and again until it is stopped, and now and then a noise
or a speaker whom nobody has heard yet; a training that runs meanwhile sees them as they come. Without it the network
begins to know its scenes by heart, and where only mixtures are new, its speakers.
"""
import argparse
import math
import multiprocessing
import os
import pickle
import shutil
import time

import numpy as np

import capture_blocks
import scenes
from capture_blocks import BANDS, BINS, BLOCK, FEATURES, HEARD_BINS
from native import WORK

PARTS = 1600  # voices, each of another speaker, and as many noises
UTTERANCES = 4  # of a speaker
BANK_BYTES = 2e9  # of all speakers
SECONDS, NOISE_SECONDS = 10, 12  # a mixture takes any ten of the twelve
MIXTURES_PER_NEW_PART = 10
ANSWERS = 0.05
LATE = 0.35  # of the voices start seconds later: ambience alone, with nobody yet to tell it from, is the hardest
# Mixtures at the end that only tell how training goes, never renewed; their voices and noises are the others', so that
# how it does on new ones is for evaluate.py to say.
HELD_BACK = 96
BANK = os.path.join(WORK, "speakers.pickle")
DELAY_BANDS = slice(3, 38)  # about 150 to 2000 Hz, where the ears' delay is heard and measured
LONGEST_DELAY = 44  # samples, as in metrics.py
_EDGES_HZ = np.array(capture_blocks.band_edges_hz())
DELAY_RADIANS = np.pi * (_EDGES_HZ[:-1] + _EDGES_HZ[1:])[DELAY_BANDS] / scenes.FS  # per sample of delay, at each centre


def third_octaves():
    """(HEARD_BINS, 15) share of each bin in the third octaves from 150 Hz that STOI hears in."""
    lows = 150 * 2 ** ((np.arange(15) - 0.5) / 3)
    below, above = ((np.arange(HEARD_BINS)[:, None] + side) * scenes.FS / (2 * BLOCK) for side in (-0.5, 0.5))
    shared = np.minimum(above, lows * 2 ** (1 / 3)) - np.maximum(below, lows)
    return (shared.clip(0) / (above - below)).astype(np.float32)


THIRD_OCTAVES = third_octaves()
HEARD = 2 * HEARD_BINS + THIRD_OCTAVES.shape[1]


def speaker(seed, k):
    """Speaker k of the seed: utterances, in half precision, for there are many."""
    rng = np.random.default_rng([seed, 1, k])
    return [utterance.astype(np.float16) for utterance in scenes.training_speaker(rng, UTTERANCES)]


def voice_bank(seed, jobs):
    """The speakers of all voice parts; left in a file, for the renewal to begin with."""
    with multiprocessing.Pool(jobs) as pool:
        bank = pool.starmap(speaker, [(seed, k) for k in range(PARTS)], 4)
    with open(BANK + ".part", "wb") as file:
        pickle.dump(bank, file)
    os.replace(BANK + ".part", BANK)
    return bank


def delays(voice, re, im):
    """Of the clean voice in DELAY_BANDS, (blocks, bands): energy and what the ears have in common -> (blocks, 2): where
    their correlation over three blocks is largest, in samples, and whether they are as coherent there as metrics.py asks."""
    lags = np.arange(-LONGEST_DELAY, LONGEST_DELAY + 0.25, 0.25)
    turns = np.outer(DELAY_RADIANS, lags)
    over_three = lambda x: x + np.roll(x, 1, 0) + np.roll(x, -1, 0)
    correlation = over_three(re @ np.cos(turns) - im @ np.sin(turns))
    coherent = correlation.max(1) > 0.8 * over_three(voice.sum(1) / 2)
    return np.stack([lags[correlation.argmax(1)], coherent], 1)


def compact_targets(targets):
    s, x, common, *ears = np.moveaxis(targets, 1, 0)
    x = x + 1e-12
    voice_re, voice_im, re, im = (part[:, DELAY_BANDS] for part in ears)
    low = x[:, DELAY_BANDS]
    between_ears = np.concatenate([re / low, im / low, delays(s[:, DELAY_BANDS], voice_re, voice_im)], 1)
    return np.stack([np.log2(x), np.sqrt(s / x).clip(0, 4), (common / x).clip(-4, 4),
                     np.pad(between_ears, ((0, 0), (0, BANDS - between_ears.shape[1])))], 1)


def compact_heard(spectra):
    """As capture_blocks.mixture() gives them -> (blocks, 2, HEARD), the mixture's mean energy 1."""
    spectra = spectra / np.sqrt(np.mean(spectra[:, 1] ** 2) + 1e-12)
    amplitudes = np.sqrt((spectra[:, 0] ** 2).sum(2) @ THIRD_OCTAVES)
    return np.concatenate([spectra[:, 1].reshape(*amplitudes.shape[:2], -1), amplitudes], 2)


def store(name, *shape):
    """An array in a file; without a shape the one that is there."""
    return np.lib.format.open_memmap(os.path.join(WORK, name), *(["w+", np.float16, shape] if shape else ["r+"]))


def make_part(seed, k, at, bank):
    """Part k of the seed: even ones are voices, odd ones noises; it goes to place `at` of its kind. A voice is that of the
    bank's speaker `at`; who babbles is any of them."""
    rng = np.random.default_rng([seed, 2, k])
    room = scenes.Room(rng)
    if k % 2 == 0:
        store("voices.npy")[at] = scenes.voice_part(rng, SECONDS * scenes.FS, room, [bank[at]], answers=ANSWERS)
    else:
        store("noises.npy")[at] = scenes.noise_part(rng, NOISE_SECONDS * scenes.FS, room, bank)


def make_mixture(seed, k, at):
    """Any voice and any noise, each with a colour of its own, the noise with its ears exchanged in every other mixture,
    as microphones at the ears give them: scenes.recorded() in short-time spectra, which takes a fifth of its time."""
    rng = np.random.default_rng([seed, 3, k])
    n = SECONDS * scenes.FS
    lead = rng.integers(BLOCK)  # the first samples come anywhere in the first block, as out of the stages before
    late = lead + (rng.integers(5 * scenes.FS) if rng.random() < LATE else 0)
    start = rng.integers((NOISE_SECONDS - SECONDS) * scenes.FS)
    voice, noise, own = np.zeros((3, 2, n), np.float32)
    voices, noises = store("voices.npy"), store("noises.npy")
    voice[:, late:] = voices[rng.integers(len(voices)), :, :n - late]
    noise[:, lead:] = noises[rng.integers(len(noises)), ::rng.choice([-1, 1]), start:start + n - lead]
    own[:, lead:] = (rng.random((2, n - lead), np.float32) - 0.5) * 12 ** 0.5

    frequency = np.arange(BINS) * scenes.FS / (2 * BLOCK)
    own_colour = lambda: scenes.response(frequency, rng, 2.0, rng.uniform(-0.5, 0.5))
    colour, factors = scenes.microphones(rng, frequency)
    responses = np.stack([factors * colour * own_colour(),
                          factors * colour * own_colour() * 10 ** (-scenes.any_snr_db(rng) / 20),
                          np.tile(scenes.response(frequency, rng, 1.0) * scenes.own_noise(rng), (2, 1))])
    features, targets, spectra = capture_blocks.mixture(voice, noise, own, responses)
    store("features.npy")[at], store("targets.npy")[at] = features, compact_targets(targets)
    store("heard.npy")[at] = compact_heard(spectra)


def in_parallel(jobs, function, count):
    """Calls function(k) for every k below count, spread over that many processes."""
    def share(first):
        for k in range(count * first // jobs, count * (first + 1) // jobs):
            function(k)

    workers = [multiprocessing.Process(target=share, args=(first,)) for first in range(jobs)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
        if worker.exitcode:
            raise SystemExit("a worker failed")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1, help="the same one gives the same data (default 1)")
    parser.add_argument("--scenes", type=int, default=2400, help=f"mixtures, the last {HELD_BACK} never renewed (2400)")
    parser.add_argument("--jobs", type=int, default=2, help="processes (2)")
    parser.add_argument("--renew", action="store_true", help="mix anew what is there, in one process, until stopped")
    options = parser.parse_args()
    if options.scenes <= HELD_BACK:
        parser.error(f"--scenes {options.scenes}: needs more than the {HELD_BACK} that are held back")
    if options.renew and not all(map(os.path.exists, (os.path.join(WORK, "heard.npy"), BANK))):
        parser.error(f"--renew: no data in {WORK} yet; run without it first")
    blocks = SECONDS * scenes.FS // BLOCK
    shapes = {"voices.npy": (PARTS, 2, SECONDS * scenes.FS), "noises.npy": (PARTS, 2, NOISE_SECONDS * scenes.FS),
              "features.npy": (options.scenes, blocks, FEATURES), "targets.npy": (options.scenes, blocks, 4, BANDS),
              "heard.npy": (options.scenes, blocks, 2, HEARD)}
    if not options.renew:
        there = filter(os.path.exists, (os.path.join(WORK, name) for name in shapes))
        room = shutil.disk_usage(WORK).free + sum(map(os.path.getsize, there))
        needed = BANK_BYTES + sum(2 * math.prod(shape) for shape in shapes.values())
        if room < needed:
            parser.error(f"{WORK}: {needed / 1e9:.0f} GB are needed there, {room / 1e9:.0f} GB are free")
    seed, started = options.seed, time.time()
    told = lambda what: print(f"{what}: {time.time() - started:.0f} s", flush=True)
    if options.renew:
        with open(BANK, "rb") as file:
            bank = pickle.load(file)
        count, k = len(store("features.npy")), 0
        while True:
            make_mixture(seed, k, k % (count - HELD_BACK))
            if k % MIXTURES_PER_NEW_PART == 0:
                part = k // MIXTURES_PER_NEW_PART
                at = part // 2 % PARTS
                if part % 2 == 0:
                    bank[at] = speaker(seed, part // 2)
                make_part(seed, part, at, bank)
            k += 1
            if k % count == 0:
                told(f"{k} mixtures renewed")
    bank = voice_bank(seed, options.jobs)
    told("speakers")
    for name, shape in shapes.items():
        store(name, *shape)
    in_parallel(options.jobs, lambda k: make_part(seed, k, k // 2, bank), 2 * PARTS)
    told("parts")
    in_parallel(options.jobs, lambda k: make_mixture(seed, k, k), options.scenes)
    told("mixtures")


if __name__ == "__main__":
    main()
