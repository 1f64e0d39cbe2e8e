"""Quality of a processed binaural recording, measured against the parts of its mixture.

Signals are (2, samples) arrays at 48 kHz: `clean` and `noise` add up to the mixture `mix`, `out` is the
processed mixture with its latency removed. score() gives every figure; the first second is left out.

Sources: filtered SDR after E. Vincent, R. Gribonval and C. Fevotte, "Performance measurement in blind audio
source separation", IEEE TASLP 14(4), 2006, with one 512-tap filter per ear allowed; STOI: C. Taal,
R. Hendriks, R. Heusdens and J. Jensen, "An algorithm for intelligibility prediction of time-frequency
weighted noisy speech", IEEE TASLP 19(7), 2011; ESTOI: J. Jensen and C. Taal, "An algorithm for predicting
the intelligibility of speech masked by modulated noise maskers", IEEE/ACM TASLP 24(11), 2016; log kurtosis
ratio: Y. Uemura et al., "Automatic optimization scheme of spectral subtraction based on musical noise
assessment via higher-order statistics", IWAENC 2008.
"""
import numpy as np
from scipy import fft
from scipy.linalg import solve_toeplitz
from scipy.signal import oaconvolve, resample_poly

FS = 48000


def decibel(energy):
    return 10 * np.log10(np.maximum(energy, 1e-20))


def framed(x, size, hop):
    """(..., samples) -> (..., frames, size)."""
    return np.lib.stride_tricks.sliding_window_view(x, size, -1)[..., ::hop, :]


def powers(x, size=1024, hop=512):
    """Power spectra through a periodic Hann window."""
    window = np.hanning(size + 1)[:-1]
    return np.abs(fft.rfft(framed(x, size, hop) * window, axis=-1)) ** 2


def voice_part(clean, x, taps=512, lead=128):
    """What of x a fixed filter of `taps` taps, `lead` of them acausal, can make of the clean voice (one ear)."""
    padded, wanted = np.pad(clean, taps), np.pad(np.roll(x, lead), taps)
    size = fft.next_fast_len(len(padded) + taps)
    c, w = fft.rfft(padded, size), fft.rfft(wanted, size)
    own, cross = (fft.irfft(s, size)[:taps] for s in (np.abs(c) ** 2, c.conj() * w))
    own[0] *= 1 + 1e-6
    return np.roll(oaconvolve(clean, solve_toeplitz(own, cross))[:len(clean)], -lead)


def voice_against_rest(clean, x):
    """-> (filtered SDR in dB, mean of the ears; level of the voice in x against the clean voice in dB)."""
    parts = np.stack([voice_part(c, y) for c, y in zip(clean, x)])
    ratio = np.sum(parts ** 2, 1) / np.sum((x - parts) ** 2, 1)
    return float(np.mean(decibel(ratio))), float(decibel(np.sum(parts ** 2) / np.sum(clean ** 2)))


def _third_octave_bands():
    hz = np.arange(257) * 10000 / 512
    centres = 150 * 2 ** (np.arange(15) / 3)
    edge = lambda f: np.argmin(np.abs(hz - f))
    bands = np.zeros((15, 257))
    for row, f in zip(bands, centres):
        row[edge(f * 2 ** (-1 / 6)):edge(f * 2 ** (1 / 6))] = 1
    return bands


_THIRD_OCTAVES = _third_octave_bands()


def intelligibility(clean, x):
    """(STOI, ESTOI) of one ear."""
    window = np.hanning(258)[1:-1]
    a, b = (framed(resample_poly(v, 5, 24), 256, 128) * window for v in (clean, x))
    energy = np.linalg.norm(a, axis=1)
    loud = energy > energy.max() * 10 ** (-40 / 20)

    def envelopes(frames):  # silent frames taken out, the rest overlapped to a signal again
        frames = frames[loud]
        joined = np.zeros(128 * (len(frames) + 1))
        for k, frame in enumerate(frames):
            joined[128 * k:128 * k + 256] += frame
        return np.sqrt(np.abs(fft.rfft(framed(joined, 256, 128) * window, 512, axis=1)) ** 2 @ _THIRD_OCTAVES.T)

    a, b = (framed(envelopes(v).T, 30, 1).transpose(1, 0, 2) for v in (a, b))  # (segments, bands, 30 frames)
    norm = lambda v, axis: np.linalg.norm(v, axis=axis, keepdims=True) + 1e-15
    centred = lambda v, axis: v - v.mean(axis, keepdims=True)
    unit = lambda v, axis: centred(v, axis) / norm(centred(v, axis), axis)
    clipped = np.minimum(b * norm(a, 2) / norm(b, 2), a * (1 + 10 ** (15 / 20)))
    stoi = np.mean(np.sum(unit(a, 2) * unit(clipped, 2), 2))
    estoi = np.mean(np.sum(unit(unit(a, 2), 1) * unit(unit(b, 2), 1), (1, 2)) / 30)
    return np.array([stoi, estoi])


def pauses(clean, hop=480):
    """Per 10 ms: over 50 dB below the loud frames, 200 ms after and 50 ms before anything louder."""
    energy = decibel(np.mean(clean[:, :clean.shape[1] // hop * hop].reshape(2, -1, hop) ** 2, (0, 2)))
    busy = energy > np.percentile(energy, 95) - 50
    return ~(np.convolve(busy, np.ones(26))[5:5 + len(busy)] > 0.5)


def warble(before, after):
    """Log kurtosis ratio of the power spectra: 0 none, larger is more musical noise."""
    if np.mean(after ** 2) < 1e-10:
        return 0.0

    def kurtosis(x):
        window = np.hanning(1024)
        p = np.abs(fft.rfft(framed(x, 1024, 512) * window, axis=-1)).reshape(-1, 513)[:, 8:400] ** 2
        p = p / np.maximum(p.mean(0), 1e-20)
        return np.mean(p ** 4) / np.mean(p ** 2) ** 2

    return float(np.log(kurtosis(after) / kurtosis(before)))


def level_difference_errors(clean, noise, mix, out):
    """RMS differences in dB of the ears' level difference, in third octaves from 200 Hz to 10 kHz where the voice
    dominates: clean against out, clean against mix, and mix against out (how far the ears' gains differ)."""
    edges, hz = 200 * 2 ** (np.arange(18) / 3), np.arange(513) * FS / 1024
    bands = ((hz >= edges[:-1, None]) & (hz < edges[1:, None])).astype(float).T
    c, v, m, o = (powers(x) @ bands + 1e-14 for x in (clean, noise, mix, out))
    both = c.sum(0)
    use = (both > v.sum(0)) & (both > both.max(0) * 10 ** -3.5) & (both > both.max() * 1e-6)
    ratio = lambda e: 10 * np.log10(e[0] / e[1])[use]
    rms = lambda a, b: float(np.sqrt(np.mean(np.clip(ratio(a) - ratio(b), -30, 30) ** 2)))
    return rms(c, o), rms(c, m), rms(m, o)


def delay_errors(clean, noise, mix, out, size=2048, hop=1024, reach=44):
    """Mean difference in samples of the ears' delay, from the correlation between 150 and 2000 Hz of frames where the
    voice is at least as strong as the noise, within 25 dB of the loudest and coherent: clean against out and mix."""
    hz = fft.rfftfreq(clean.shape[1], 1 / FS)
    narrow = lambda x: fft.irfft(fft.rfft(x) * ((hz > 150) & (hz < 2000)), x.shape[1])
    c, v, m, o = (framed(narrow(x), size, hop) * np.hanning(size) for x in (clean, noise, mix, out))
    energy, disturbance = (np.sum(x ** 2, (0, 2)) for x in (c, v))

    def correlation(x):
        spectra = fft.rfft(x, 2 * size, axis=-1)
        r = fft.irfft(spectra[0] * spectra[1].conj(), axis=-1)
        return np.concatenate([r[:, -reach - 1:], r[:, :reach + 2]], 1)

    coherent = correlation(c).max(1) / (np.sqrt(np.prod(np.sum(c ** 2, 2), 0)) + 1e-12) > 0.8
    use = (energy > disturbance) & (energy > energy.max() * 10 ** -2.5) & coherent

    def delay(x):
        r = correlation(x[:, use])
        peak = np.clip(np.argmax(r, 1), 1, r.shape[1] - 2)
        a, b, d = (np.take_along_axis(r, peak[:, None] + k, 1)[:, 0] for k in (-1, 0, 1))
        curve = a - 2 * b + d
        return peak + np.where(np.abs(curve) > 1e-20, 0.5 * (a - d) / np.where(curve == 0, 1, curve), 0)

    dc, dm, do = (delay(x) for x in (c, m, o))
    return float(np.mean(np.abs(dc - do))), float(np.mean(np.abs(dc - dm)))


def score(clean, noise, out):
    """Every figure; those of the pauses are NaN where the voice hardly pauses."""
    clean, noise, out = (np.asarray(x, np.float64) for x in (clean, noise, out))
    clean, noise, out = (x[:, FS:x.shape[1] - 9600] for x in (clean, noise, out))
    mix = clean + noise
    sdr_in, _ = voice_against_rest(clean, mix)
    sdr_out, level = voice_against_rest(clean, out)
    both = lambda x: np.mean([intelligibility(c, y) for c, y in zip(clean, x)], 0)
    before = both(mix)
    stoi, estoi = both(out) - before
    quiet = np.repeat(pauses(clean), 480)
    pause_in, pause_out = (x[:, :len(quiet)][:, quiet] for x in (mix, out))
    if quiet.sum() < FS // 4:  # too little to tell
        pause_in = pause_out = np.full((2, FS), np.nan)
    ild, ild_in, gains = level_difference_errors(clean, noise, mix, out)
    itd, itd_in = delay_errors(clean, noise, mix, out)
    return dict(sdr_in=sdr_in, sdr_gain=sdr_out - sdr_in, stoi_in=float(before[0]), stoi_gain=stoi, estoi_gain=estoi,
                pause_reduction=float(decibel(np.mean(pause_in ** 2) / np.maximum(np.mean(pause_out ** 2), 1e-12))),
                voice_level=level, warble=warble(pause_in, pause_out), ears_gain_mismatch=gains,
                ild_error=ild, ild_error_in=ild_in, itd_error=itd, itd_error_in=itd_in)
