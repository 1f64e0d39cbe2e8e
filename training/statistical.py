"""A good estimator without a network, to measure the network against: one gain per band for both ears.

Noise energy: T. Gerkmann and R. Hendriks, "Unbiased MMSE-based noise power estimation with low complexity and
low tracking delay", IEEE TASLP 20(4), 2012. Gain: decision-directed log-spectral amplitude, Y. Ephraim and
D. Malah, IEEE TASSP 33(2), 1985.
"""
import numpy as np
from scipy.special import exp1

import capture_blocks
from capture_blocks import BANDS

FLOOR = 0.04
SPEECH_SNR = 10 ** 1.5


def gains(mix):
    energy = capture_blocks.band_energies(mix) + 1e-12
    noise = energy[:8].mean(0)
    voiced_share, last, out = np.full(BANDS, 0.5), np.zeros(BANDS), []
    for x in energy:
        present = 1 / (1 + (1 + SPEECH_SNR) * np.exp(-np.minimum(x / noise * SPEECH_SNR / (1 + SPEECH_SNR), 200)))
        voiced_share = 0.9 * voiced_share + 0.1 * present
        present = np.where(voiced_share > 0.99, np.minimum(present, 0.99), present)
        noise = 0.8 * noise + 0.2 * (present * noise + (1 - present) * x)
        posterior = np.clip(x / noise, 0, 1000)
        prior = np.maximum(0.96 * last / noise + 0.04 * np.maximum(posterior - 1, 0), 0.003)
        v = np.clip(prior / (1 + prior) * posterior, 1e-6, 200)
        gain = np.clip(prior / (1 + prior) * np.exp(0.5 * exp1(v)), FLOOR, 1)
        last = gain ** 2 * x
        out.append(gain)
    return np.array(out)


def reduce(mix):
    return capture_blocks.apply_gains(mix, gains(mix))
