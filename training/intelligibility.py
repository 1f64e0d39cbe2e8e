"""How unintelligible a voice is that the network's gains have passed, for the training: STOI and ESTOI of each ear, of the
spectra of the sound that comes out. metrics.py names their sources.

Gains times spectra are not yet the spectra of that sound: neighbouring blocks overlap in it, and the window spreads each
bin over those around it. Part of what a network gains on their plain product is lost there; docs/noise-network.md has the
figures. Run by itself this module compares its spectra with those of the library's own transform.
"""
import numpy as np
import torch

import capture_blocks
from capture_blocks import BANDS, BINS, BLOCK, HEARD_BINS, OVERLAP
from make_data import THIRD_OCTAVES

SEGMENT, SEGMENT_HOP = 36, 9  # blocks; 0.38 s, as STOI has it


def _resynthesis():
    """(2 HEARD_BINS, 3 * 2 HEARD_BINS): what the spectra of the block before, of the block and of the block after, real then
    imaginary parts, add to the block's spectrum once they have been put together to sound."""
    n, bins = np.arange(2 * BLOCK), np.arange(HEARD_BINS)
    from_slope = lambda at: (np.minimum(at - (BLOCK - OVERLAP), len(n) - 1 - at) + 0.5) / OVERLAP  # 0 to 1 on either
    window = lambda at: np.sin(0.5 * np.pi * from_slope(at).clip(0, 1))
    waves = lambda at: np.exp(2j * np.pi * np.outer(bins, at) / len(n))
    matrices = []
    for start in (-BLOCK, 0, BLOCK):
        to = (waves(n - start) * window(n - start) * window(n) @ waves(-n).T / len(n)).astype(np.complex64)
        matrices.append(torch.from_numpy(np.block([[to.real, to.imag], [-to.imag, to.real]])))
    return torch.cat(matrices, 1)


_RESYNTHESIS = _resynthesis()
_SPREAD = torch.from_numpy(capture_blocks.spread())
_OF_BOTH_PARTS = torch.from_numpy(np.tile(THIRD_OCTAVES, (2, 1)))


def spectra_out(spectra, gain):
    """spectra (batch, blocks, ears, 2 HEARD_BINS) of a mixture, real then imaginary parts, and gain (batch, blocks, BANDS)
    -> those of the sound that comes out, of all blocks but the first and the last. Negative frequencies are left out, which
    the two lowest bins would notice."""
    before, now, after = ((gain @ _SPREAD).repeat(1, 1, 2)[:, :, None] * spectra @ _RESYNTHESIS).chunk(3, 3)
    return before[:, :-2] + now[:, 1:-1] + after[:, 2:]


def unintelligibility(heard, gain):
    """1 - STOI and 1 - ESTOI, the ears' mean, of what gain (batch, blocks, BANDS) leaves of heard, as make_data.py writes it;
    the blocks with a voice put together as there."""
    spectra, clean = heard.split((2 * HEARD_BINS, len(_OF_BOTH_PARTS[0])), 3)
    by_ear = lambda amplitudes: amplitudes.transpose(1, 2).flatten(0, 1)
    clean = by_ear(clean[:, 1:-1]).clamp_min(1e-5)
    enhanced = by_ear(spectra_out(spectra, gain).pow(2) @ _OF_BOTH_PARTS).clamp_min(1e-10).sqrt()
    level = clean.pow(2).sum(2)
    silent = (level < 1e-4 * level.amax(1, keepdim=True)).int()
    order = torch.argsort(silent, dim=1, stable=True)[:, :, None].expand(-1, -1, clean.shape[2])
    a, b = (torch.gather(e, 1, order).unfold(1, SEGMENT, SEGMENT_HOP) for e in (clean, enhanced))  # (.., segments, 15, SEGMENT)
    last = torch.arange(a.shape[1]) * SEGMENT_HOP + SEGMENT
    counts = (last[None] <= (1 - silent).sum(1, keepdim=True)).float()
    norm = lambda v, axis: (v.pow(2).sum(axis, keepdim=True) + 1e-9 * a.pow(2).mean() + 1e-20).sqrt()
    unit = lambda v, axis: (v - v.mean(axis, keepdim=True)) / norm(v - v.mean(axis, keepdim=True), axis)
    clipped = torch.minimum(b * norm(a, 3) / norm(b, 3), a * (1 + 10 ** 0.75))
    stoi = (unit(a, 3) * unit(clipped, 3)).sum(3).mean(2)
    columns = lambda v: (v - v.mean(2, keepdim=True)) / (v - v.mean(2, keepdim=True)).pow(2).sum(2, keepdim=True).add(1e-6).sqrt()
    estoi = (columns(unit(a, 3)) * columns(unit(b, 3))).sum((2, 3)) / SEGMENT
    mean = lambda v: ((1 - v) * counts).sum() / counts.sum().clamp_min(1)
    return mean(stoi), mean(estoi)


def check():
    """Raises AssertionError where the spectra differ from those of a sound that the library has put together."""
    rng = np.random.default_rng(1)
    mix = rng.normal(size=(2, 40 * BLOCK)).astype(np.float32)
    spectra = lambda x: torch.from_numpy(capture_blocks.mixture(x, 0 * x, 0 * x, np.ones((3, 2, BINS)))[2][None, :, 0]).flatten(3)
    gains = rng.random((40, BANDS)).astype(np.float32)
    ours, librarys = spectra_out(spectra(mix), torch.from_numpy(gains)[None]), spectra(capture_blocks.apply_gains(mix, gains))[:, 1:-1]
    # The two lowest bins see negative frequencies, the highest ones what lies above them.
    kept = lambda x: x.unflatten(3, (2, HEARD_BINS))[..., 2:-3]
    off = (kept(ours - librarys).norm() / kept(librarys).norm()).item()
    assert off < 0.02, f"spectra off by a share of {off:.1e} beside the library's"


if __name__ == "__main__":
    check()
