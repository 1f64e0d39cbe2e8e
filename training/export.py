"""Writes the trained network as bcap/src/noise_network_weights.cpp: 8-bit rows with one scale each; and its state in
full precision as training/network_state.pt, for train.py --start.

Of several states the mean is written. Those of legs of training that went on from each other lie in one valley of the
loss, and their mean is better than each: P. Izmailov et al., "Averaging weights leads to wider optima and better
generalization", UAI 2018.
"""
import argparse
import os
import sys

import numpy as np
import torch

from capture_blocks import ACTIVATION_STEPS, CONTEXT, FEATURE_STEPS, FEATURES, LOCAL, SHARED, SHARED_STEPS, WEIGHT_OFFSET
from native import HERE, WORK
from train import PLACE, trained


def floats(values):
    return "{{" + ",".join(f"{v:.6e}f" for v in values) + "}}"


def rows(weights, steps):
    """-> C++ initializer of QuantizedRows."""
    w = weights.detach().numpy().astype(np.float64)
    scale = np.maximum(np.abs(w).max(1), 1e-6) / 127
    quantized = np.rint(w / scale[:, None]).astype(int)
    quantized = np.pad(quantized, ((0, 0), (0, -w.shape[1] % 16))) + WEIGHT_OFFSET
    return "{{{" + ",\n".join("{" + ",".join(map(str, row)) + "}" for row in quantized) + "}},\n" + floats(scale / steps) + "}"


def layer(weights, bias, steps):
    """-> C++ initializer of a QuantizedLayer."""
    return "{" + rows(weights, steps) + ",\n" + floats(bias.detach().numpy()) + "}"


def gru(module, steps):
    return "{" + layer(module.weight_ih_l0, module.bias_ih_l0, steps) + ",\n" + \
        layer(module.weight_hh_l0, module.bias_hh_l0, ACTIVATION_STEPS) + "}"


def shared_rows(local, last):
    """-> C++ initializers of a SharedLayer's weights and scale; inputs reach +-8, units +-1."""
    w = torch.cat([local, last], 1).detach().numpy().astype(np.float64)
    unit = np.maximum(np.abs(w).max(1), 1e-6) / 127
    quantized = np.rint(w / unit[:, None]).astype(int)
    reach = np.repeat([32768.0, SHARED_STEPS], [local.shape[1], last.shape[1]])
    # The largest sum there is, each product cut off by up to a step; and no weight over 16 bits itself.
    factor = np.floor(np.minimum((32767 - w.shape[1]) / (np.abs(quantized) @ reach / 65536 + 1e-9), 32767 / 127)).astype(int)
    table = "{{" + ",\n".join("{" + ",".join(map(str, row)) + "}" for row in quantized * factor[:, None]) + "}}"
    return table + ",\n" + floats(65536 * unit / (factor * SHARED_STEPS))


def shared_layer(network):
    local, context, place = network.shared.seen.weight.split((LOCAL, CONTEXT, PLACE), 1)
    table = lambda values: "{{" + ",\n".join(floats(row)[1:-1] for row in values.detach().numpy()) + "}}"
    return "{" + ",\n".join([
        shared_rows(local, network.shared.last.weight), rows(context, ACTIVATION_STEPS),
        table(place @ network.place.T + network.shared.seen.bias[:, None]),
        table(network.correction.weight.reshape(3, SHARED)), f"{network.correction.bias.item():.6e}f"]) + "}"


def expected_gains(network):
    """What the inference must come to after 20 blocks of made-up features, for tests/bcap/noise_network_test.cpp."""
    block, feature = np.mgrid[:20, :FEATURES]
    features = torch.from_numpy((0.6 + 0.5 * np.sin(0.7 * feature + 0.3 * block)).astype(np.float32))
    with torch.no_grad():
        gains, _ = network(features[None])
    return [round(float(g), 3) for g in gains[0, -1, ::8]]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("states", nargs="*", type=trained, metavar="STATE",
                        help="that train.py has written (default: training/work/network.pt)")
    networks = parser.parse_args(sys.argv[1:] or [os.path.join(WORK, "network.pt")]).states
    states = [network.state_dict() for network in networks]
    network = networks[0]
    network.load_state_dict({name: sum(state[name] for state in states) / len(states) for name in states[0]})
    torch.save(network.state_dict(), os.path.join(HERE, "network_state.pt"))
    text = "// Written by training/export.py from a trained network; docs/noise-network.md tells of the training.\n" \
        '#include "noise_network_weights.h"\n\nnamespace bcap {\n\n// clang-format off\n' \
        "const NoiseNetworkWeights kNoiseNetworkWeights = {\n" + ",\n".join([
            layer(network.dense.weight, network.dense.bias, FEATURE_STEPS), gru(network.gru1, ACTIVATION_STEPS),
            gru(network.gru2, ACTIVATION_STEPS), layer(network.out.weight, network.out.bias, ACTIVATION_STEPS),
            layer(network.context.weight, network.context.bias, ACTIVATION_STEPS), shared_layer(network)]) + \
        "};\n// clang-format on\n\n}  // namespace bcap\n"
    with open(os.path.join(HERE, "..", "bcap", "src", "noise_network_weights.cpp"), "w") as file:
        file.write(text)
    print("gains of every eighth band for the test:", expected_gains(network))


if __name__ == "__main__":
    main()
