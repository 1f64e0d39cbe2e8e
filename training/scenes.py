"""Binaural scenes made from nothing but a seed: voices, a head, rooms and noises.

A scene is a pair (clean, noise) of (2, samples) float32 arrays at 48 kHz as the microphones at the ears
of a spherical head hear them, the voice with its room. Everything random comes from the generator handed
in, so that a seed names a scene.

Head: C. Brown and R. Duda, "A structural model for binaural sound synthesis", IEEE Transactions on Speech
and Audio Processing 6(5), 1998, equations 2 to 4 (head shadow) and 1 (interaural delay).
Rooms: J. Allen and D. Berkley, "Image method for efficiently simulating small-room acoustics", JASA 65(4),
1979, the first 27 images; then an exponentially decaying diffuse tail.
"""
import os
import subprocess
import tempfile

import numpy as np
from scipy import fft
from scipy.signal import oaconvolve, resample_poly

FS = 48000
SOUND_M_S = 343.0
HEAD_M = 0.0875

# Never in training: kept for evaluate.py.
HELD_OUT_FLITE = ("rms", "slt", "awb")
HELD_OUT_VARIANTS = ("f2", "f4", "f5", "m3", "m7")

FLITE = ("kal", "kal16")
# Diphones and units cut from recordings of people: closer to a real voice than espeak-ng's formants.
FESTIVAL = ("czech_dita", "czech_krb", "czech_machac", "czech_ph", "ked_diphone", "hy_fi_mv_diphone", "suo_fi_lj_diphone",
            "lp_diphone", "pc_diphone", "upc_ca_ona_hts", "msu_ru_nsh_clunits")
VARIANTS = ("f1", "f3", "m1", "m2", "m4", "m5", "m6", "m8", "klatt", "klatt2", "klatt3", "klatt4", "croak", "Andy",
            "Annie", "adam", "belinda", "linda", "steph", "steph2", "anika", "grandpa", "grandma", "edward", "john",
            "Michael", "paul", "pedro", "quincy", "rob", "robert", "sandro", "shelby", "travis", "victor", "max",
            "Denis", "Alicia", "Andrea", "aunty", "norbert", "benjamin", "david", "zac", "Lee", "Storm")
LANGUAGES = ("en-gb", "en-us", "en-gb-scotland", "en-029", "de", "fr-fr", "es", "it", "nl", "pl", "pt", "sv", "da", "fi",
             "cs", "tr", "hu", "ro", "el", "id", "sw", "vi", "cmn-latn-pinyin", "eo")

_WHO = "the baker,my neighbour,a tired pilot,our teacher,the small dog,nobody,every visitor,his aunt,the old captain," \
       "she,a child,the engineer,that singer,your brother,the night train,one of us,the gardener,a stranger".split(",")
_DOES = "opened,never noticed,carried home,was asking for,painted,has lost,found again,sold,was singing about,threw away," \
        "quietly fixed,counted,would rather have,borrowed,measured twice,laughed at,shouted for,mixed up".split(",")
_WHAT = "the yellow boat,seven glass bottles,a letter from Ghana,the broken window,fresh bread and cheese,his key," \
        "the shortest way,an orange umbrella,the radio,those heavy boxes,a joke,the question,five wet shoes," \
        "the whole house,a piece of chalk,this year's plums,the judge,a good idea".split(",")
_WHEN = "this morning,before the rain,at the station,without a word,while we waited,yesterday at six,in the kitchen," \
        "for the third time,on the way to church,as usual,under the bridge,just now,and then went away".split(",")


def sentence(rng):
    return " ".join(w[rng.integers(len(w))] for w in (_WHO, _DOES, _WHAT, _WHEN)) + "."


def _pcm(wav):
    """Samples of a 16-bit mono WAV in memory; the header of a streamed file does not tell its length."""
    rate = int.from_bytes(wav[24:28], "little")
    at = wav.index(b"data") + 8
    x = np.frombuffer(wav[at:len(wav) - (len(wav) - at) % 2], "<i2").astype(np.float32) / 32768
    return rate, x


def spoken(voice, texts, speed=160, pitch=50):
    """voice: 'flite:NAME', 'festival:NAME' or an espeak-ng voice with variant, 'en-gb+f1'. -> samples at FS of each text."""
    kind, _, name = voice.rpartition(":")
    run = lambda *command: subprocess.run(command, check=True, capture_output=True).stdout
    if kind == "festival":  # all at once, for it takes a third of a second to begin
        with tempfile.TemporaryDirectory() as folder:
            paths = [os.path.join(folder, f"{k}.wav") for k in range(len(texts))]
            run("festival", "-b", f"(voice_{name})", f"(Parameter.set 'Duration_Stretch {160 / speed:.2f})",
                *(f'(utt.save.wave (SynthText "{text}") "{path}" \'riff)' for text, path in zip(texts, paths)))
            sounds = []
            for path in paths:
                with open(path, "rb") as file:
                    sounds.append(file.read())
    elif kind == "flite":
        sounds = [run("flite", "-voice", name, "-t", text, "-o", "/dev/stdout") for text in texts]
    else:
        sounds = [run("espeak-ng", "-v", voice, "-s", str(speed), "-p", str(pitch), "--stdout", text) for text in texts]
    return [_at_our_rate(*_pcm(sound)) for sound in sounds]


def _at_our_rate(rate, x):
    divisor = np.gcd(rate, FS)
    return resample_poly(x, FS // divisor, rate // divisor).astype(np.float32)


def training_speaker(rng, utterances):
    """Utterances at unit power of one voice that training may use. Its vocal tract, timbre, bandwidth and breath are
    varied, and its pitch and loudness waver, for synthesisers keep both steadier than people do; but one in five
    stays as its synthesiser has it. One in five says a word or three at a time."""
    voice = rng.choice(["flite:" + rng.choice(FLITE), "festival:" + rng.choice(FESTIVAL),
                        rng.choice(LANGUAGES) + "+" + rng.choice(VARIANTS)], p=[0.15, 0.45, 0.4])
    plain, terse = rng.random(2) < 0.2
    speed, pitch = int(rng.integers(110, 230)), int(rng.integers(10, 95))
    tract, timbre = int(rng.integers(84, 119)), rng.integers(1 << 32)
    wavering, dynamics_db = rng.uniform(0, 0.02), rng.uniform(0, 4)
    treble_db = -rng.uniform(0, 15, 2) if rng.random() < 0.6 else None
    breath_db = -rng.uniform(12, 30) if rng.random() < 0.4 else None
    texts = [sentence(rng) for _ in range(utterances)]
    if terse:
        texts = [" ".join(text.split()[-rng.integers(1, 4):]) for text in texts]
    speaker = []
    for x in spoken(voice, texts, speed, pitch):
        if plain:
            speaker.append(_unit(x))
            continue
        x = resample_poly(x, tract, 100)
        n = len(x)
        pace = 1 + wavering * (rng.normal(size=n // 12000 + 3).repeat(12000)[:n] + 0.3 * rng.normal(size=n // 960 + 3).repeat(960)[:n])
        x = np.interp(np.cumsum(oaconvolve(pace, np.hanning(960) / 480, "same")), np.arange(n), x, right=0).astype(np.float32)
        x *= _course(rng, n, 3, dynamics_db)
        x /= np.sqrt(np.mean(x ** 2)) + 1e-9
        spectrum = fft.rfft(x) * response(fft.rfftfreq(n, 1 / FS), np.random.default_rng(timbre), 3)
        if treble_db is not None:  # the synthesisers end at 4 to 11 kHz, a real voice does not: move a copy up
            shift = int(5500 * n / FS)
            copy = np.zeros_like(spectrum)
            for octave in (1, 2):
                lo, hi = int(5000 * n / FS), int(10500 * n / FS)
                copy[lo + octave * shift:hi + octave * shift] += 10 ** (treble_db[octave - 1] / 20) * spectrum[lo:hi]
            spectrum += copy
        x = fft.irfft(spectrum, n).astype(np.float32)
        if breath_db is not None:  # noise that follows the voice
            envelope = np.sqrt(oaconvolve(x ** 2, np.hanning(960) / 480, "same").clip(0)).astype(np.float32)
            x += coloured(rng, n, -3)[0] * envelope * 10 ** (breath_db / 20)
        speaker.append(_unit(x))
    return speaker


def response(frequency, rng, spread_db=4.0, tilt_db_per_octave=0.0):
    """A random smooth magnitude response over `frequency`."""
    octaves = np.log2(np.maximum(frequency, 20.0) / 1000.0)
    knots = np.linspace(-5.7, 4.7, 14)
    level = np.interp(octaves, knots, rng.normal(0, spread_db, len(knots)))
    return (10 ** ((level + tilt_db_per_octave * octaves) / 20)).astype(np.float32)


def coloured(rng, n, tilt_db_per_octave, spread_db=4.0, channels=1):
    """Stationary noise with a random spectrum, of unit power; the channels are independent, alike in spectrum."""
    spectrum = fft.rfft(rng.standard_normal((channels, n), dtype=np.float32), axis=-1)
    spectrum *= response(fft.rfftfreq(n, 1 / FS), rng, spread_db, tilt_db_per_octave)
    spectrum[:, :int(15 * n / FS)] = 0
    x = fft.irfft(spectrum, n, axis=-1)
    return x / (np.sqrt(np.mean(x ** 2)) + 1e-9)


# --- the head ---------------------------------------------------------------------------------------------------------

EAR_AXES = np.array([[-np.sin(np.radians(10)), np.cos(np.radians(10)), 0], [-np.sin(np.radians(10)), -np.cos(np.radians(10)), 0]])


def direction(rng, elevation=40.0):
    azimuth, height = rng.uniform(-np.pi, np.pi), np.radians(rng.uniform(-elevation, elevation))
    return np.array([np.cos(height) * np.cos(azimuth), np.cos(height) * np.sin(azimuth), np.sin(height)])


def head(frequency, towards):
    """(2, bins) complex response of both ears to a plane wave from the unit vector `towards` (x front, y left)."""
    w = 2 * np.pi * frequency
    out = []
    for axis in EAR_AXES:
        angle = np.arccos(np.clip(axis @ towards, -1, 1))
        delay = HEAD_M / SOUND_M_S * (1 - np.cos(angle) if angle < np.pi / 2 else 1 + angle - np.pi / 2)
        alpha = 1.05 + 0.95 * np.cos(angle / np.radians(150) * np.pi)
        corner = 1j * w * HEAD_M / (2 * SOUND_M_S)
        out.append((1 + alpha * corner) / (1 + corner) * np.exp(-1j * w * delay))
    return np.array(out)


def diffuse_coherence(frequency):
    """Coherence of the ears in a diffuse field, from 200 directions spread evenly over the sphere."""
    k = np.arange(200) + 0.5
    z, turn = 1 - k / 100, np.pi * (1 + 5 ** 0.5) * k
    r = np.sqrt(1 - z * z)
    both = np.array([head(frequency, v) for v in np.stack([r * np.cos(turn), r * np.sin(turn), z], 1)])
    cross = np.mean(both[:, 0] * both[:, 1].conj(), 0).real
    return cross / np.sqrt(np.mean(np.abs(both[:, 0]) ** 2, 0) * np.mean(np.abs(both[:, 1]) ** 2, 0))


_GRID = np.linspace(0, FS / 2, 513)
_COHERENCE = diffuse_coherence(_GRID)


def diffuse(pair):
    """Two independent alike noises (2, n) -> what both ears hear of a diffuse field of that spectrum."""
    n = pair.shape[-1]
    coherence = np.interp(fft.rfftfreq(n, 1 / FS), _GRID, _COHERENCE).astype(np.float32)
    a, b = fft.rfft(pair, axis=-1)
    a, b = a * np.sqrt((1 + coherence) / 2), b * np.sqrt((1 - coherence) / 2)
    return fft.irfft(np.stack([a + b, a - b]), n, axis=-1).astype(np.float32)


class Room:
    """A shoebox with the head in it; size 0 is the open air."""

    def __init__(self, rng):
        self.open_air = rng.random() < 0.2
        self.size = rng.uniform([2.5, 2.5, 2.2], [9, 7, 3.5])
        self.head = self.size * rng.uniform(0.3, 0.7, 3)
        self.decay_s = rng.uniform(0.15, 0.8)
        self.reflection = -np.exp(-0.9 * self.size.mean() / (SOUND_M_S * self.decay_s / 13.8))
        self.tail_db = rng.uniform(-18, -3) * (1.2 - self.decay_s)

    def impulse(self, rng, towards, distance, own_voice=False):
        """(2, taps) from a source to both ears, the direct sound at unit level."""
        n = 1 << 14
        frequency = fft.rfftfreq(n, 1 / FS)
        total = head(frequency, towards) * np.exp(-2j * np.pi * frequency * 0.001)
        if not self.open_air:
            source = np.clip(self.head + towards * distance, 0.05, self.size - 0.05)
            for shift in np.ndindex(3, 3, 3):
                shift = np.array(shift) - 1
                if not shift.any():
                    continue
                mirrored = np.where(shift == 0, source, 2 * self.size * (shift > 0) - source) - self.head
                length = np.linalg.norm(mirrored)
                gain = abs(self.reflection) ** np.abs(shift).sum() * distance / length
                if own_voice:
                    gain *= 0.3
                lag = max(0.0, (length - distance) / SOUND_M_S)
                # Walls take the treble first.
                soft = 1 / (1 + 1j * frequency / rng.uniform(4000, 14000))
                total = total + gain * head(frequency, mirrored / length) * soft * np.exp(-2j * np.pi * frequency * (0.001 + lag))
        ir = fft.irfft(total, n, axis=-1)
        if not self.open_air:
            t = np.arange(n) / FS
            tail = diffuse(coloured(rng, n, -2, 1.5, 2)) * np.exp(-6.9 * t / self.decay_s) * (1 - np.exp(-t / 0.015))
            level = self.tail_db - (12 if own_voice else 0) + 10 * np.log10(min(distance, 4.0))
            ir += tail * np.sqrt(10 ** (level / 10) * np.sum(ir[:, :600] ** 2) / np.sum(tail ** 2))
        ir[:, -2000:] *= np.linspace(1, 0, 2000)
        return ir.astype(np.float32)


def at_ears(source, impulse):
    return np.stack([oaconvolve(source, ear)[:len(source)] for ear in impulse]).astype(np.float32)


# --- noises: each (rng, n, room, voices) -> (2, n) --------------------------------------------------------------------


def _course(rng, n, rate_hz, depth_db):
    """A slow random gain."""
    knots = rng.normal(0, depth_db, max(4, int(n / FS * rate_hz) + 3))
    return 10 ** (np.interp(np.linspace(0, len(knots) - 1, n), np.arange(len(knots)), knots) / 20).astype(np.float32)


def room_noise(rng, n, room, voices):
    return diffuse(coloured(rng, n, rng.uniform(-7, 0), 4, 2)) * _course(rng, n, 0.4, rng.uniform(0, 2))


def babble(rng, n, room, voices):
    far = np.zeros((2, n), np.float32)
    for group in range(int(rng.integers(2, 5))):
        mixed = np.zeros(n, np.float32)
        for _ in range(int(rng.integers(2, 5))):
            mixed += talk(rng, n, voices, pause_s=0.2) * rng.uniform(0.4, 1)
        far += at_ears(mixed, room.impulse(rng, direction(rng), rng.uniform(2, 5)))
    return far + diffuse(coloured(rng, n, -5, 3, 2)) * np.sqrt(np.mean(far ** 2)) * rng.uniform(0, 0.5)


def traffic(rng, n, room, voices):
    x = diffuse(coloured(rng, n, rng.uniform(-9, -5), 3, 2)) * _course(rng, n, 0.3, 3)
    for _ in range(int(rng.integers(0, 3))):  # something passes by
        at, width = rng.uniform(0, n), rng.uniform(0.5, 2) * FS
        swell = np.exp(-((np.arange(n) - at) / width) ** 2).astype(np.float32)
        near = coloured(rng, n, rng.uniform(-6, -3), 3)[0] * swell
        x += at_ears(near, room.impulse(rng, direction(rng, 5), 3.0)) * rng.uniform(0.5, 3)
    return x


def fan(rng, n, room, voices):
    t = np.arange(n) / FS
    base = rng.choice([50, 60, 100, 120, rng.uniform(40, 400)]) * (1 + rng.uniform(-0.002, 0.002))
    hum = np.zeros(n, np.float32)
    for k in range(1, int(rng.integers(3, 25))):
        hum += (rng.normal() / k ** rng.uniform(0.3, 1.2) * np.sin(2 * np.pi * base * k * t + rng.uniform(0, 6.28))).astype(np.float32)
    hum /= np.sqrt(np.mean(hum ** 2)) + 1e-9
    blow = coloured(rng, n, rng.uniform(-6, -1), 4)[0]
    near = at_ears(blow + hum * rng.uniform(0, 1.5), room.impulse(rng, direction(rng), rng.uniform(0.7, 4)))
    return near + diffuse(coloured(rng, n, -4, 3, 2)) * rng.uniform(0, 0.7)


def wind(rng, n, room, voices):
    gusts = np.stack([_course(rng, n, 3, 5), _course(rng, n, 3, 5)]) * _course(rng, n, 0.7, 5)
    return coloured(rng, n, rng.uniform(-12, -6), 2, 2).astype(np.float32) * gusts


def clatter(rng, n, room, voices):
    x = np.zeros(n, np.float32)
    for _ in range(int(rng.integers(5, 50))):
        length = int(rng.uniform(0.01, 0.35) * FS)
        t = np.arange(length) / FS
        hit = np.zeros(length)
        for _ in range(int(rng.integers(1, 8))):
            hit += rng.normal() * np.sin(2 * np.pi * np.exp(rng.uniform(6.2, 9.5)) * t) * np.exp(-t / rng.uniform(0.002, 0.08))
        hit += rng.normal(0, 0.5, length) * np.exp(-t / 0.002)
        at = int(rng.integers(0, n - length))
        x[at:at + length] += (hit * 10 ** (rng.uniform(-15, 5) / 20)).astype(np.float32)
    heard = at_ears(x, room.impulse(rng, direction(rng), rng.uniform(0.5, 3)))
    heard /= np.sqrt(np.mean(heard ** 2)) + 1e-9
    return heard + diffuse(coloured(rng, n, -4, 3, 2)) * rng.uniform(0.05, 0.5)


def music(rng, n, room, voices):
    x = np.zeros(n, np.float32)
    beat = rng.uniform(0.15, 0.6)
    root = rng.uniform(80, 250)
    for at in np.arange(0, n / FS - 0.1, beat):
        length = min(int(rng.uniform(0.5, 4) * beat * FS), n - int(at * FS))
        t = np.arange(length) / FS
        for _ in range(int(rng.integers(1, 4))):
            pitch = root * 2 ** (rng.choice([0, 2, 4, 5, 7, 9, 11, 12, 14, 16, 19, 24]) / 12)
            partials = np.arange(1, int(rng.integers(3, 14)))
            note = (np.sin(2 * np.pi * pitch * partials[:, None] * t) / partials[:, None] ** rng.uniform(0.7, 1.6)).sum(0)
            x[int(at * FS):int(at * FS) + length] += (note * np.exp(-t / rng.uniform(0.1, 1.5)) * np.minimum(1, t / 0.005)).astype(np.float32)
        if rng.random() < 0.4:
            drum = min(4800, n - int(at * FS))
            x[int(at * FS):int(at * FS) + drum] += coloured(rng, drum, -2)[0] * np.exp(-np.arange(drum) / 900).astype(np.float32) * 2
    return at_ears(x, room.impulse(rng, direction(rng), rng.uniform(1, 4)))


NOISES = (room_noise, babble, traffic, fan, wind, clatter, music)
NOISE_ODDS = (0.24, 0.38, 0.09, 0.12, 0.05, 0.05, 0.07)

# --- scenes -----------------------------------------------------------------------------------------------------------


def talk(rng, n, voices, pause_s):
    """Utterances of one voice of the bank, with pauses, over n samples."""
    x = np.zeros(n, np.float32)
    speaker = voices[rng.integers(len(voices))]
    at = int(rng.uniform(0, 1.0 + pause_s) * FS)
    while at < n:
        part = speaker[rng.integers(len(speaker))][:n - at]
        x[at:at + len(part)] = part
        at += len(part) + int(rng.exponential(pause_s) * FS) + 2400
    return x


def active_power(x):
    """Mean square over the 20 ms frames within 35 dB of the loud ones."""
    e = np.mean(x[:, :x.shape[1] // 960 * 960].reshape(2, -1, 960) ** 2, (0, 2))
    return float(np.mean(e[e > np.percentile(e, 95) * 10 ** -3.5])) + 1e-12


def _unit(sound):
    return sound / (np.sqrt(np.mean(sound ** 2)) + 1e-9)


def voice_part(rng, n, room, voices, pause_s=None, answers=0.2):
    """-> (2, n): somebody speaks, now and then the wearer, and with the odds `answers` somebody else too."""
    own_voice = rng.random() < 0.12
    towards = np.array([0.85, 0, -0.53]) if own_voice else direction(rng, 20)
    clean = at_ears(talk(rng, n, voices, rng.choice([0.3, 0.8, 2.0]) if pause_s is None else pause_s),
                    room.impulse(rng, towards, 0.15 if own_voice else rng.uniform(0.5, 3), own_voice))
    if rng.random() < answers:
        other = at_ears(talk(rng, n, voices, 2.5), room.impulse(rng, direction(rng, 20), rng.uniform(0.5, 3)))
        clean += other * 10 ** (rng.uniform(-10, 0) / 20)
    return clean / np.sqrt(active_power(clean))


def noise_part(rng, n, room, voices, kind=None):
    """-> (2, n) of unit power: noise of the kind, or of one or two kinds by their odds."""
    kinds = [kind] if kind else list(rng.choice(NOISES, int(rng.choice([1, 2], p=[0.75, 0.25])), False, NOISE_ODDS))
    sound = np.zeros((2, n), np.float32)
    for kind in kinds:
        sound += _unit(kind(rng, n, room, voices)) * 10 ** (rng.uniform(-8, 0) / 20)
    return _unit(sound)


def microphones(rng, frequency):
    """-> their colour over `frequency`, and (2, 1) factors: how sensitive each is, at a random level of the recording."""
    colour = response(frequency, rng, 1.5, rng.uniform(-1.5, 1.5))
    return colour, 10 ** (rng.normal(0, 0.5, (2, 1)) / 20) * 10 ** (rng.uniform(-42, -16) / 20)


def own_noise(rng):
    """RMS of what microphones add themselves."""
    return 10 ** (rng.uniform(-90, -62) / 20)


def recorded(rng, clean, sound, snr_db):
    """-> clean, noise as microphones at the ears give them: with their colour, mismatch, level and own noise."""
    n = clean.shape[1]
    colour, factors = microphones(rng, fft.rfftfreq(n, 1 / FS))
    sound = sound * 10 ** (-snr_db / 20)
    clean, sound = (fft.irfft(fft.rfft(x, axis=-1) * colour, n, axis=-1) * factors for x in (clean, sound))
    sound += coloured(rng, n, 0, 1, 2) * own_noise(rng)
    return clean.astype(np.float32), sound.astype(np.float32)


def any_snr_db(rng):
    return rng.uniform(-5, 20)


def scene(rng, seconds, voices, kind, snr_db, others, pause_s):
    """-> clean, noise. voices: who speaks, a list of speakers, each a list of utterances; others: who babbles."""
    n = int(seconds * FS)
    room = Room(rng)
    clean = voice_part(rng, n, room, voices, pause_s)
    return recorded(rng, clean, noise_part(rng, n, room, others, kind), snr_db)
