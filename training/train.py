"""Trains the noise-reduction network on the data of make_data.py; writes training/work/network.pt.

Loss, per scene: how far the gains are from the best signal-to-distortion ratio (log of the remaining error
energy), compressed magnitudes that weigh lost voice more than left noise, the gain itself, the level of the voice,
how intelligible it is, how much noise is left in its pauses and how much it comes in bursts there, and what is left of
the error of the ears' delay.

Training on the intelligibility that is measured: M. Kolbaek, Z.-H. Tan and J. Jensen, "Monaural speech enhancement
using deep neural networks by maximizing a short-time objective intelligibility measure", ICASSP 2018.
"""
import argparse
import ctypes
import json
import os
import time

import numpy as np
import torch
from torch import nn

import recurrent
from capture_blocks import (AGAINST_PEAK, BANDS, CONTEXT, DENSE, FEATURES, FIRST_GROUPED, HIDDEN, LOCAL, NEAR, NO_VOICE, OWN,
                            PER_GROUP, PER_PAIR, PRESENT, SCENE, SHARED, SHARED_BANDS, VOICE_FROM, VOICE_TO)
from intelligibility import unintelligibility
from make_data import DELAY_BANDS, DELAY_RADIANS, HELD_BACK
from native import WORK

PLACE = 4  # numbers that tell the bands of the shared layer apart
BURSTS_AFTER, BURSTS_FROM = 94, 8  # blocks of a stretch; band, from 375 Hz
CHUNK = 312  # blocks, 3.3 s: how far back the gradient reaches; the state goes on


def gated(layer, seen, state):
    """What the torch.nn.GRU gives: seen (blocks, sequences, columns), state of before or None -> units, state after."""
    if state is None:
        state = seen.new_zeros(seen.shape[1], HIDDEN)
    inputs = nn.functional.linear(seen, layer.weight_ih_l0, layer.bias_ih_l0)
    units = recurrent.Gated.apply(inputs, layer.weight_hh_l0, layer.bias_hh_l0, state)
    return units, units[-1].detach()


class SharedLayer(nn.Module):
    """Recurrent, with one gate (M. Ravanelli et al., "Light gated recurrent units for speech recognition", IEEE TETCI
    2(2), 2018, with the hyperbolic tangent): local (blocks, sequences, SHARED_BANDS, LOCAL), context (blocks, sequences,
    CONTEXT), place (SHARED_BANDS, PLACE) -> units (blocks, sequences, SHARED_BANDS, SHARED), state after the last block."""

    def __init__(self):
        super().__init__()
        self.seen = nn.Linear(LOCAL + CONTEXT + PLACE, 2 * SHARED)  # rows: gates, candidates
        self.last = nn.Linear(SHARED, 2 * SHARED, bias=False)

    def forward(self, local, context, place, state):
        if state is None:
            state = local.new_zeros(local.shape[1] * SHARED_BANDS, SHARED)
        of_local, of_context, of_place = self.seen.weight.split((LOCAL, CONTEXT, PLACE), 1)
        units = recurrent.Shared.apply(local, nn.functional.linear(context, of_context, self.seen.bias),
                                       nn.functional.linear(place, of_place), of_local, self.last.weight, state)
        return units.unflatten(1, (-1, SHARED_BANDS)), units[-1].detach()


class Network(nn.Module):
    """features (batch, blocks, FEATURES) -> gains (batch, blocks, BANDS) in 0..1.

    The layers of the whole spectrum give every band a first opinion. In the lower bands a small layer, the same for
    all of them, corrects it from what is near: what one harmonic taught holds for all.
    """

    def __init__(self):
        super().__init__()
        self.dense = nn.Linear(FEATURES, DENSE)
        self.gru1 = nn.GRU(DENSE, HIDDEN)
        self.gru2 = nn.GRU(HIDDEN, HIDDEN)
        self.out = nn.Linear(2 * HIDDEN + DENSE, BANDS)
        self.context = nn.Linear(2 * HIDDEN + DENSE, CONTEXT)
        self.place = nn.Parameter(0.3 * torch.randn(SHARED_BANDS, PLACE))
        self.shared = SharedLayer()
        self.correction = nn.Linear(3 * SHARED, 1)  # of the band below, the band, the band above
        nn.init.zeros_(self.correction.weight)
        nn.init.zeros_(self.correction.bias)

    def whole(self, features, state):
        """(blocks, batch, FEATURES) -> all units, opinion, state after the last block"""
        now = torch.tanh(self.dense(features))
        h1, first = gated(self.gru1, now, state[0])
        h2, second = gated(self.gru2, h1, state[1])
        units = torch.cat([h1, h2, now], -1)
        return units, self.out(units), (first, second)

    def local(self, features, opinion):
        """(blocks, batch, SHARED_BANDS, LOCAL): what each band sees of itself and around it."""
        bands = torch.arange(SHARED_BANDS)
        own = nn.functional.pad(features[:, :, OWN:OWN + SHARED_BANDS + NEAR], (NEAR, 0)).unfold(2, 2 * NEAR + 1, 1)
        single = [SCENE + bands, *(start + bands // 2 for start in PER_PAIR),
                  AGAINST_PEAK + (bands - FIRST_GROUPED).clamp_min(0) // PER_GROUP]
        near = nn.functional.pad(0.25 * opinion[:, :, :SHARED_BANDS + 1], (1, 0)).unfold(2, 3, 1)
        return torch.cat([own, features[:, :, torch.stack(single, 1)], near], -1)

    def forward(self, features, state=(None, None, None), held=False):
        """-> gains, state after the last block. held: the layers of the whole spectrum stay as they are."""
        features = features.transpose(0, 1).contiguous()
        with torch.set_grad_enabled(torch.is_grad_enabled() and not held):
            units, opinion, state_of_whole = self.whole(features, state)
        shared, last = self.shared(self.local(features, opinion), torch.tanh(self.context(units)), self.place, state[2])
        below, own, above = (shared @ self.correction.weight.view(3, SHARED).t()).unbind(-1)
        more = nn.functional.pad(below[:, :, :-1], (1, 0)) + own + nn.functional.pad(above[:, :, 1:], (0, 1))
        gains = torch.sigmoid(opinion + nn.functional.pad(more + self.correction.bias, (0, BANDS - SHARED_BANDS)))
        return gains.transpose(0, 1), (*state_of_whole, last)


def fallen(gains, voice=None):
    """gains (batch, blocks, BANDS) of the network -> as they are once those without a voice have fallen, and the voice's
    presence after the last block; what NoiseReduction::Shape() does, less the floor."""
    heard = (gains[:, :, VOICE_FROM:VOICE_TO].mean(2) / PRESENT).clamp_max(1) ** 3
    voice = recurrent.Followed.apply(heard.t(), heard.new_ones(len(gains)) if voice is None else voice)
    return gains * (NO_VOICE + (1 - NO_VOICE) * voice.t()[:, :, None]), voice[-1].detach()


def trained(path):
    """The Network that was written to a file; layers that it did not know yet begin without a say. As the type of an
    argument it refuses what is no such file."""
    network = Network()
    try:
        known = torch.load(path)
        network.load_state_dict({**{name: value for name, value in network.state_dict().items()
                                    if name.startswith(("context", "place", "shared", "correction"))}, **known})
    except Exception as error:  # whatever a wrong file makes of unpickling
        raise argparse.ArgumentTypeError(f'"{path}" is no state that train.py has written: {error}')
    return network


def delay_error(target, gain):
    """How far the delay between the ears moves from the clean voice's, in samples: one step of Newton's method from there
    to the peak of what gain (batch, blocks, BANDS) leaves of the ears' correlation. Over stretches of three blocks where
    metrics.py looks too; large errors count for less, up to 16, for one step says little of them."""
    count = len(DELAY_RADIANS)
    radians = torch.from_numpy(DELAY_RADIANS).float()
    low = target[:, :, :3, DELAY_BANDS]
    re, im = target[:, :, 3, :count], target[:, :, 3, count:2 * count]
    stretches = lambda v: nn.functional.avg_pool1d(v.transpose(1, 2), 3, 2).transpose(1, 2)
    energy = torch.exp2(low[:, :, 0])
    voice = energy * low[:, :, 1] ** 2
    noise = (energy * (1 - 2 * low[:, :, 2]) + voice).clamp_min(0)
    voice, noise = (stretches(v).sum(2) for v in (voice, noise))
    delay, coherent = target[:, 1:-1:2, 3, 2 * count:2 * count + 2].unbind(-1)
    heard = (voice > noise) & (voice > 10 ** -2.5 * voice.amax(1, keepdim=True)) & (voice > 1e-9) & (coherent > 0.5)
    left = gain[:, :, DELAY_BANDS] ** 2 * energy
    re, im, left = (stretches(v) for v in (left * re, left * im, left))
    cos, sin = ((delay[:, :, None] * radians).cos(), (delay[:, :, None] * radians).sin())
    slope = ((re * sin + im * cos) * radians).sum(2)
    curvature = ((re * cos - im * sin) * radians ** 2).sum(2)
    flattest = 0.05 * (left * radians ** 2).sum(2) + 1e-12
    error = slope.abs() / torch.maximum(curvature, flattest)
    return (error / (1 + error / 16) * heard).sum() / heard.sum().clamp_min(1)


def normals(target):
    """What a scene's losses are measured against: mean energy of the clean voice per block, and a mean amplitude per
    band, half way between the band's own and that of all bands, so that the treble counts more than it weighs."""
    root = torch.exp2(0.5 * target[:, :, 0])
    clean, mix = (root * target[:, :, 1]).mean(1, keepdim=True), root.mean(1, keepdim=True)
    bands = (clean * clean.mean(2, keepdim=True)).sqrt() + 0.1 * mix
    return (root * target[:, :, 1]).pow(2).sum(2).mean(1) + 1e-9, bands


def bursts(energy, gain, pause):
    """(batch,) logarithm of how much larger the kurtosis of what is left in the pauses (batch, blocks) is than that of the
    noise, as metrics.py has it of their powers; of each stretch less its first second, for the network still settles in the
    first second of a scene."""
    energy, gain, pause = (part[:, BURSTS_AFTER:] for part in (energy, gain, pause))

    def kurtosis(powers):
        powers = (powers * pause[:, :, None])[:, :, BURSTS_FROM:]
        powers = powers / (powers.sum(1, keepdim=True) / pause.sum(1)[:, None, None].clamp_min(1) + 1e-12)
        return (powers ** 4).sum((1, 2)) * pause.sum(1) / ((powers ** 2).sum((1, 2)) ** 2 + 1e-12) + 1e-12

    return (kurtosis(gain ** 2 * energy) / kurtosis(energy)).log().clamp_min(-0.3)


def losses(gain, target, heard, scene):
    """-> LOSSES of a chunk of a batch; target and heard as make_data.py writes them, scene: normals() of the whole scenes."""
    scene_clean, bands = scene[0] * gain.shape[1], scene[1]
    x = torch.exp2(target[:, :, 0])  # energy of the mixture
    amplitude, common = target[:, :, 1], target[:, :, 2]
    clean = x * amplitude ** 2
    whole = clean.sum((1, 2))
    # log(error energy / clean energy): the negative of the ratio that is measured, in units of 10 dB
    error = (x * (gain ** 2 - 2 * gain * common) + clean).sum((1, 2)).clamp_min(0) / scene_clean
    distortion = torch.log10(error + 1e-3)
    hardly = 0.05 * scene_clean
    level = 20 * torch.log10(((gain * common * x).sum((1, 2)).clamp_min(0) + hardly) / (whole + hardly))
    # Compressed magnitudes, against the scene's own mean.
    amplitude_root, gain_root, x_root = (amplitude + 1e-4).sqrt(), (gain + 1e-4).sqrt(), x.sqrt().sqrt()
    miss = (amplitude_root - gain_root) * x_root
    magnitude = (miss ** 2 * (1 + 1.0 * (miss > 0)) / bands).mean((1, 2))
    ideal = (0.5 * (common.clamp(0, 1) + amplitude.clamp(0, 1))).sqrt()
    # What is left in the pauses, from 0.2 s after a voice to 50 ms before the next.
    busy = (clean.sum(2) > 3e-5 * scene[0][:, None]).float()[:, None]
    pause = 1 - nn.functional.max_pool1d(nn.functional.pad(busy, (19, 5)), 25, 1)[:, 0]
    before, after = ((e.sum(2) * pause).sum(1) for e in (x, gain ** 2 * x))
    left = torch.log10(after / (before + 1e-12) + 3e-3)[pause.sum(1) > 10]
    burst = bursts(x, gain, pause)[pause[:, BURSTS_AFTER:].sum(1) > 30]
    return (distortion.mean(), magnitude.mean(), (gain_root - ideal).pow(2).mean(), (level.clamp_max(0) ** 2).mean(),
            *unintelligibility(heard, gain), *(part.mean() if len(part) else gain.sum() * 0 for part in (left, burst)),
            delay_error(target, gain))


LOSSES = ("distortion", "magnitude", "gain", "level", "1 - STOI", "1 - ESTOI", "pauses", "bursts", "delay")
WEIGHTS = (0.2, 0.4, 0.2, 0.25, 10.0, 42.0, 3.0, 0.4, 4.0)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seed", type=int, default=1, help="of the first weights and the order of the scenes (default 1)")
    parser.add_argument("--minutes", type=float, default=90, help="by the clock, over which the rate falls to nothing (90)")
    parser.add_argument("--batch", type=int, default=32, help="scenes per step (32)")
    parser.add_argument("--rate", type=float, default=3e-3, help="highest step of a weight (0.003)")
    parser.add_argument("--start", type=trained, metavar="STATE", help="to begin with, instead of random weights")
    parser.add_argument("--shared-only", action="store_true", help="train what bands share and hold the other layers")
    parser.add_argument("--name", default="network", help="of the state and the curve in training/work (network)")
    options = parser.parse_args()
    if options.shared_only and not options.start:
        parser.error("--shared-only: needs --start, with layers that are worth holding")
    if not os.path.exists(os.path.join(WORK, "heard.npy")):
        parser.error(f"nothing to train on in {WORK}: run make_data.py first")
    torch.manual_seed(options.seed)
    torch.set_num_threads(1)
    # Keep freed memory: giving it back after each step costs as much time as the arithmetic.
    libc = ctypes.CDLL("libc.so.6")
    libc.mallopt(-3, 1 << 30)  # M_MMAP_THRESHOLD
    libc.mallopt(-1, 2**31 - 1)  # M_TRIM_THRESHOLD
    rng = np.random.default_rng(options.seed)
    data = [np.load(os.path.join(WORK, name + ".npy"), mmap_mode="r") for name in ("features", "targets", "heard")]
    count = len(data[0]) - HELD_BACK
    batch_of = lambda at: [torch.from_numpy(part[at]).float() for part in data]
    network = options.start or Network()
    optimizer = torch.optim.Adam(network.parameters(), lr=options.rate)
    started, curve = time.time(), []
    spent = lambda: (time.time() - started) / (60 * options.minutes)  # of the time given
    while spent() < 1:
        network.train()
        order, total = rng.permutation(count), []
        for at in range(0, count - options.batch + 1, options.batch):
            x, y, z = batch_of(np.sort(order[at:at + options.batch]))
            scene, state, voice = normals(y), (None, None, None), None
            for chunk in range(0, x.shape[1] - CHUNK + 1, CHUNK):
                # Rises over the first twentieth of the time, then falls along a cosine.
                rate = min(spent() / 0.05, 0.5 + 0.5 * np.cos(np.pi * min(spent(), 1)))
                for group in optimizer.param_groups:
                    group["lr"] = options.rate * max(rate, 1e-3)
                optimizer.zero_grad()
                now = slice(chunk, chunk + CHUNK)
                gain, state = network(x[:, now], state, options.shared_only)
                gain, voice = fallen(gain, voice)
                loss = sum(w * part for w, part in zip(WEIGHTS, losses(gain, y[:, now], z[:, now], scene)))
                loss.backward()
                nn.utils.clip_grad_norm_(network.parameters(), 1.0)
                optimizer.step()
                total.append(loss.item())
        network.eval()
        with torch.no_grad():
            parts = []
            for at in range(count, count + HELD_BACK, 32):
                x, y, z = batch_of(np.arange(at, at + 32))
                parts.append([p.item() for p in losses(fallen(network(x)[0])[0], y, z, normals(y))])
        curve.append([round(float(v), 4) for v in (np.mean(total), *np.mean(parts, 0))])
        print(f"epoch {len(curve)}: {time.time() - started:.0f} s, training {curve[-1][0]}, held back {curve[-1][1:]}", flush=True)
        torch.save(network.state_dict(), os.path.join(WORK, options.name + ".pt"))
        with open(os.path.join(WORK, options.name + "-curve.json"), "w") as file:
            json.dump({"seed": options.seed, "minutes": options.minutes, "batch": options.batch, "rate": options.rate,
                       "scenes": count, "loss": ["training", *LOSSES], "curve": curve}, file)


if __name__ == "__main__":
    main()
