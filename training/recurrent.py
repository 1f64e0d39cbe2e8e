"""The recurrent layers of the network for training: torch's results and gradients in a fraction of its time (recurrent.cpp).

Sequences are (blocks, rows, columns), float32. Run by itself it compares both layers with torch's own arithmetic and
gradients.
"""
import ctypes
import os

import numpy as np
import torch
from torch.autograd.function import once_differentiable

import native
from capture_blocks import FALL, HIDDEN, LOCAL, RISE, SHARED, SHARED_BANDS

_lib = native.library("recurrent", [os.path.join(native.HERE, "recurrent.cpp")], ["-ffast-math"])


def _call(function, *arguments):
    given = []
    for argument in arguments:
        if isinstance(argument, torch.Tensor):
            assert argument.dtype == torch.float32 and argument.is_contiguous()
            given.append(ctypes.c_void_p(argument.data_ptr()))
        else:
            given.append(ctypes.c_size_t(argument))
    function(*given)


def _sequence(blocks, rows, first):
    """Room for a state before the first block and one after each."""
    units = torch.empty(blocks + 1, rows, first.shape[-1])
    units[0] = first
    return units


class Gated(torch.autograd.Function):
    """apply(inputs (blocks, rows, 3 HIDDEN), weight (3 HIDDEN, HIDDEN), bias, first (rows, HIDDEN)) -> units (blocks, rows,
    HIDDEN) as torch.nn.GRU gives them, inputs being its products of the inputs and their bias. No gradient of first."""

    @staticmethod
    def forward(ctx, inputs, weight, bias, first):
        blocks, rows, columns = inputs.shape
        assert columns == 3 * HIDDEN and weight.shape == (columns, HIDDEN)
        gates, units = inputs.clone(memory_format=torch.contiguous_format), _sequence(blocks, rows, first)
        from_state = torch.empty(blocks, rows, HIDDEN)
        _call(_lib.gated_forward, gates, weight.t().contiguous(), bias, from_state, units, blocks, rows)
        ctx.save_for_backward(gates, weight, from_state, units)
        return units[1:]

    @staticmethod
    @once_differentiable
    def backward(ctx, given):
        gates, weight, from_state, units = ctx.saved_tensors
        blocks, rows, _ = gates.shape
        _call(_lib.gated_backward, gates, weight, from_state, units, given.contiguous(), blocks, rows)
        of_state = torch.cat([gates[:, :, :2 * HIDDEN], from_state], 2).flatten(0, 1)
        return gates, of_state.t() @ units[:-1].flatten(0, 1), of_state.sum(0), None


class Shared(torch.autograd.Function):
    """apply(local (blocks, rows, SHARED_BANDS, LOCAL), context (blocks, rows, 2 SHARED), place (SHARED_BANDS, 2 SHARED),
    local_weight (2 SHARED, LOCAL), weight (2 SHARED, SHARED), first (rows * SHARED_BANDS, SHARED)) -> units (blocks, rows *
    SHARED_BANDS, SHARED). Light gated recurrence, gate before candidate. No gradient of first."""

    @staticmethod
    def forward(ctx, local, context, place, local_weight, weight, first):
        blocks, rows, *seen = local.shape
        assert seen == [SHARED_BANDS, LOCAL] and context.shape == (blocks, rows, 2 * SHARED)
        local, units = local.contiguous(), _sequence(blocks, rows * SHARED_BANDS, first)
        gates = torch.empty(blocks, rows * SHARED_BANDS, 2 * SHARED)
        _call(_lib.shared_forward, local, context.contiguous(), place.contiguous(), local_weight.t().contiguous(),
              weight.t().contiguous(), gates, units, blocks, rows)
        ctx.save_for_backward(local, local_weight, weight, gates, units)
        return units[1:]

    @staticmethod
    @once_differentiable
    def backward(ctx, given):
        local, local_weight, weight, gates, units = ctx.saved_tensors
        blocks, rows = local.shape[:2]
        of_local, of_context = torch.empty_like(local), torch.empty(blocks, rows, 2 * SHARED)
        of_place = torch.empty(SHARED_BANDS, 2 * SHARED)
        of_local_weight, of_weight = torch.empty(LOCAL, 2 * SHARED), torch.empty(SHARED, 2 * SHARED)
        _call(_lib.shared_backward, gates, local, local_weight.contiguous(), weight.contiguous(), units, given.contiguous(),
              of_local, of_context, of_place, of_local_weight, of_weight, blocks, rows)
        return of_local, of_context, of_place, of_local_weight.t(), of_weight.t(), None


class Followed(torch.autograd.Function):
    """apply(heard (blocks, rows), first (rows)) -> what follows it from first on, by the share RISE of the way up and FALL of
    the way down in each block: the voice's presence in the noise reduction. No gradient of first."""

    @staticmethod
    def forward(ctx, heard, first):
        now, follows, shares = first.numpy(), np.empty(heard.shape, np.float32), np.empty(heard.shape, np.float32)
        for k, goal in enumerate(heard.numpy()):
            shares[k] = np.where(goal > now, RISE, FALL)
            follows[k] = now = now + shares[k] * (goal - now)
        ctx.shares = shares
        return torch.from_numpy(follows)

    @staticmethod
    @once_differentiable
    def backward(ctx, given):
        of_heard, later = np.empty(given.shape, np.float32), 0
        for k, now in reversed(list(enumerate(given.numpy()))):
            of_heard[k] = ctx.shares[k] * (now + later)
            later = now + later - of_heard[k]
        return torch.from_numpy(of_heard), None


def check():
    """Raises AssertionError where results or gradients differ from torch's."""
    torch.manual_seed(1)
    blocks, rows = 9, 7
    some = lambda *shape: (0.3 * torch.randn(*shape)).requires_grad_()

    def compared(ours, theirs, arguments, first):
        gradients = []
        for units in (ours(*arguments, first), theirs(*arguments, first)):
            given = torch.linspace(-1, 2, units.numel()).view(units.shape)
            gradients.append((units.detach(), *torch.autograd.grad(units, arguments, given)))
        for a, b in zip(*gradients):
            assert a.shape == b.shape, f"{theirs.__name__}: {a.shape} beside torch's {b.shape}"
            assert (a - b).norm() < 1e-4 * b.norm(), f"{theirs.__name__}: off by a share of {(a - b).norm() / b.norm():.1e} beside torch's"

    def gated(inputs, weight, bias, first):
        units = [first]
        for now in inputs:
            a, b, c = now.chunk(3, 1)
            d, e, f = torch.addmm(bias, units[-1], weight.t()).chunk(3, 1)
            update, candidate = torch.sigmoid(b + e), torch.tanh(c + torch.sigmoid(a + d) * f)
            units.append((1 - update) * candidate + update * units[-1])
        return torch.stack(units[1:])

    def shared(local, context, place, local_weight, weight, first):
        units = [first]
        for now in (local @ local_weight.t() + context[:, :, None] + place).flatten(1, 2):
            gate, candidate = (now + units[-1] @ weight.t()).chunk(2, 1)
            units.append(torch.lerp(torch.tanh(candidate), units[-1], torch.sigmoid(gate)))
        return torch.stack(units[1:])

    def followed(heard, first):
        follows = [first]
        for goal in heard:
            follows.append(torch.lerp(follows[-1], goal, torch.where(goal > follows[-1], RISE, FALL)))
        return torch.stack(follows[1:])

    compared(Followed.apply, followed, (torch.rand(blocks, rows, requires_grad=True),), torch.rand(rows))
    compared(Gated.apply, gated, (some(blocks, rows, 3 * HIDDEN), some(3 * HIDDEN, HIDDEN), some(3 * HIDDEN)),
             torch.randn(rows, HIDDEN))
    compared(Shared.apply, shared, (some(blocks, rows, SHARED_BANDS, LOCAL), some(blocks, rows, 2 * SHARED),
                                    some(SHARED_BANDS, 2 * SHARED), some(2 * SHARED, LOCAL), some(2 * SHARED, SHARED)),
             torch.randn(rows * SHARED_BANDS, SHARED))


if __name__ == "__main__":
    check()
