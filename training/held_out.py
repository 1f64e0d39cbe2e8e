"""Mixtures of voices and scenes that training never saw, to evaluate on. Made from one seed."""
import glob
import os

import numpy as np
from scipy.io import wavfile

import scenes
from scenes import FS, HELD_OUT_FLITE, HELD_OUT_VARIANTS

RECORDINGS = "/usr/share/sounds/alsa"  # of Debian's package alsa-utils
SECONDS = 14
SNRS_DB = (0, 5, 10, 15)

# Of each kind as many items as given here, at every signal-to-noise ratio.
KINDS = ((scenes.room_noise, 4), (scenes.babble, 4), (scenes.traffic, 2), (scenes.fan, 2), (scenes.wind, 1),
         (scenes.clatter, 1), (scenes.music, 1))
STATIONARY = ("room_noise", "fan")


def voices():
    """Speakers with their utterances, at unit power."""
    rng = np.random.default_rng(2024)
    sentences = lambda: [scenes.sentence(rng) for _ in range(6)]
    bank = [scenes.spoken("flite:" + name, sentences()) for name in HELD_OUT_FLITE]
    for k, variant in enumerate(HELD_OUT_VARIANTS):
        language = ("en-gb", "en-us", "de", "fr-fr", "es")[k]
        bank.append(scenes.spoken(f"{language}+{variant}", sentences(), 150 + 10 * k))
    recorded = []
    for path in sorted(glob.glob(os.path.join(RECORDINGS, "*_*.wav"))):  # spoken words; Noise.wav has no underscore
        rate, x = wavfile.read(path)
        assert rate == FS and x.ndim == 1
        recorded.append(x.astype(np.float32) / 32768)
    if recorded:
        bank += [recorded, recorded]
    return [[u / np.sqrt(np.mean(u ** 2)) for u in speaker] for speaker in bank]


def mixtures():
    """Yields (kind, snr_db, clean, noise), each (2, samples)."""
    bank = voices()
    item = 0
    for kind, count in KINDS:
        for _ in range(count):
            for snr_db in SNRS_DB:
                rng = np.random.default_rng([2024, item])  # the same scene at each ratio
                mine = item % len(bank)
                others = bank[:mine] + bank[mine + 1:]
                yield (kind.__name__, snr_db) + scenes.scene(rng, SECONDS, [bank[mine]], kind, snr_db, others, 1.5)
            item += 1


def own_and_far_voice(ratio_db=18.9, turns=8, seconds=3):
    """The wearer and somebody in front take turns, the wearer `ratio_db` louder. -> (2, samples), and for each turn
    its slice; the even turns are the wearer's."""
    bank = voices()
    rng = np.random.default_rng(77)
    room = scenes.Room(rng)
    room.open_air = False
    own = room.impulse(rng, np.array([0.85, 0, -0.53]), 0.15, True)
    far = room.impulse(rng, np.array([0.94, 0.34, 0]), 2.0)
    parts = []
    for turn in range(turns):
        speaker = [bank[0], bank[1]][turn % 2]
        x = scenes.at_ears(scenes.talk(rng, seconds * FS, [speaker], 0.2), [own, far][turn % 2])
        level_db = -22 - (ratio_db if turn % 2 else 0)
        parts.append(x / np.sqrt(np.mean(x ** 2)) * 10 ** (level_db / 20))
    return np.concatenate(parts, 1), [slice(k * seconds * FS, (k + 1) * seconds * FS) for k in range(turns)]


def clicks(seconds=10):
    """What breaks limiters: lone clicks, bursts, steps and full-scale noise over a quiet hum."""
    rng = np.random.default_rng(78)
    n = seconds * FS
    x = 0.05 * np.sin(2 * np.pi * 440 * np.arange(n) / FS) * np.ones((2, 1))
    at = rng.integers(0, n - 4096, 400)
    for k, start in enumerate(at):
        length = (1, 3, 40, 2000)[k % 4]
        x[k % 2 if k % 3 else slice(None), start:start + length] = rng.choice([-1, 1], length) * rng.uniform(0.3, 1)
    return np.clip(x, -1, 32767 / 32768).astype(np.float32)
