"""The capture library's own blocks, called from Python; builds the shared library on first use."""
import ctypes
import os

import numpy as np

import native

SOURCES = [os.path.join(native.HERE, "capture_blocks.cpp")] + [
    os.path.join(native.CAPTURE, name + ".cpp") for name in ("transform", "band_layout", "noise_features")]
BLOCK = 512
BINS = BLOCK + 1

_lib = native.library("capture_blocks", SOURCES, ["-fno-math-errno", "-fno-trapping-math"])
BANDS = _lib.capture_band_count()
FEATURES = _lib.capture_feature_count()
TARGETS = _lib.capture_target_count()
HEARD_BINS = _lib.capture_heard_bin_count()
OVERLAP = _lib.capture_overlap()  # of frames
LATENCY = BLOCK + OVERLAP  # of apply_gains


def _numbers(function, count):
    numbers = (ctypes.c_int * count)()
    function(numbers)
    return list(numbers)


# Where some kinds of features begin, and how bands are grouped.
OWN, SCENE, *PER_PAIR, AGAINST_PEAK, FIRST_GROUPED, PER_GROUP = _numbers(_lib.capture_feature_layout, 9)
# Units of each kind; the lowest bands, which share a layer; the neighbours on either side whose levels one of them sees, and
# how many numbers it sees in all. Then the scales of 16-bit inputs, and what is added to the weights.
(DENSE, HIDDEN, CONTEXT, SHARED, SHARED_BANDS, NEAR, LOCAL,
 FEATURE_STEPS, ACTIVATION_STEPS, SHARED_STEPS, WEIGHT_OFFSET) = _numbers(_lib.capture_network_layout, 11)
# The voice's presence: from mean gains in bands VOICE_FROM to VOICE_TO, as shares of PRESENT, to a gain of at least NO_VOICE.
_presence = (ctypes.c_float * 6)()
_lib.capture_voice_presence(_presence)
VOICE_FROM, VOICE_TO = map(int, _presence[:2])
PRESENT, RISE, FALL, NO_VOICE = _presence[2:]


def band_edges_hz():
    edges = (ctypes.c_float * (BANDS + 1))()
    _lib.capture_band_edges_hz(edges)
    return list(edges)


def _pointer(x):
    assert x.dtype == np.float32 and x.flags.c_contiguous
    return x.ctypes.data_as(ctypes.POINTER(ctypes.c_float))


def spread():
    """(BANDS, HEARD_BINS): what the gain of each band makes of the gain of each bin."""
    bins = np.empty((BANDS, BINS), np.float32)
    for band, gains in enumerate(np.eye(BANDS, dtype=np.float32)):
        _lib.capture_spread_gains(_pointer(gains), _pointer(bins[band]))
    return bins[:, :HEARD_BINS]


def mixture(voice, noise, own, responses):
    """(2, samples) each, and their responses (3, 2, BINS) -> features (blocks, FEATURES) of the mixture and the targets
    (blocks, TARGETS, BANDS) of the frame one block before each, which the gains are for: energy of the voice, energy of
    the mixture, and what is common to both; what is common to the ears, real and imaginary part, of the voice and of the
    mixture. Then the spectra (blocks, 2, 2, 2, HEARD_BINS) of the voice and of the mixture at each ear, real and imaginary
    part."""
    parts = [np.ascontiguousarray(x, np.float32) for x in (voice, noise, own)]
    responses = np.ascontiguousarray(responses, np.float32)
    samples = parts[0].shape[1]
    blocks = samples // BLOCK
    features, targets, spectra = (np.empty((blocks, *shape), np.float32)
                                  for shape in ((FEATURES,), (TARGETS, BANDS), (2, 2, 2, HEARD_BINS)))
    _lib.capture_mixture(*(_pointer(x) for pair in zip(parts, responses) for x in pair), ctypes.c_size_t(samples),
                         ctypes.c_size_t(blocks), _pointer(features), _pointer(targets), _pointer(spectra))
    return features, targets, spectra


def band_energies(x):
    """(2, samples) -> (blocks, BANDS), over both ears, of the frames that apply_gains() takes."""
    nothing = np.zeros_like(x)
    return mixture(x, nothing, nothing, np.ones((3, 2, BINS)))[1][:, 0]


def apply_gains(mix, gains):
    """(2, samples) times gains (blocks, BANDS), each of the frame one block before, between transform and inverse, the
    latency removed."""
    padded = np.ascontiguousarray(np.pad(mix, ((0, 0), (0, 3 * BLOCK - mix.shape[1] % BLOCK))).astype(np.float32))
    blocks = padded.shape[1] // BLOCK
    gains = np.ascontiguousarray(np.pad(gains, ((0, blocks - len(gains)), (0, 0)), mode="edge").astype(np.float32))
    _lib.capture_apply_gains(_pointer(padded[0]), _pointer(padded[1]), ctypes.c_size_t(blocks), _pointer(gains))
    return padded[:, LATENCY:LATENCY + mix.shape[1]]
