#!/usr/bin/env python3
"""Trains the digit classifier of samples/digits: 64-64-32-10, rectifiers and softmax, on 8 x 8 handwritten digits.

The data are the 1797 digits that the distribution's package python3-sklearn ships (digits.csv.gz: 64 values of 0 to 16
and the class). They are ordered by writer: the first 1437 are trained on; the last 360, most of them by other writers,
are the test set. Inputs are divided by 16. Training shifts some pictures by up to one pixel; Adam (Kingma and Ba, 2015),
cross-entropy, in double, from a fixed seed, so that the same numpy gives the same files.

Needs numpy; the data file is --data, or that of the installed package.
"""
import argparse
import gzip
import os

import numpy as np

DATA = "/usr/lib/python3/dist-packages/sklearn/datasets/data/digits.csv.gz"
WIDTHS = (64, 64, 32, 10)
TRAINED = 1437


def load(path):
    with gzip.open(path, "rt") as file:
        table = np.loadtxt(file, delimiter=",")
    return table[:, :64] / 16, table[:, 64].astype(int)


def shifted(x, rng):
    """Two pictures of five moved by -1, 0 or 1 pixels in both directions, the border filled with 0."""
    padded = np.pad(x.reshape(-1, 8, 8), ((0, 0), (1, 1), (1, 1)))
    dy, dx = rng.integers(0, 3, (2, len(x)))
    moved = np.stack([padded[i, dy[i]:dy[i] + 8, dx[i]:dx[i] + 8] for i in range(len(x))]).reshape(-1, 64)
    return np.where(rng.random((len(x), 1)) < 0.4, moved, x)


def forward(x, layers):
    """The values behind each layer, the input first."""
    values = [x]
    for i, (w, b) in enumerate(layers):
        y = values[-1] @ w.T + b
        if i + 1 < len(layers):
            y = np.maximum(y, 0)
        else:
            y = np.exp(y - y.max(axis=1, keepdims=True))
            y /= y.sum(axis=1, keepdims=True)
        values.append(y)
    return values


def gradients(x, classes, layers):
    values = forward(x, layers)
    delta = values[-1].copy()
    delta[np.arange(len(x)), classes] -= 1
    delta /= len(x)
    result = []
    for i in range(len(layers) - 1, -1, -1):
        result.append((delta.T @ values[i] + 1e-4 * layers[i][0], delta.sum(axis=0)))
        delta = (delta @ layers[i][0]) * (values[i] > 0)
    return result[::-1]


def train(x, classes, rng, epochs=150, batch=32):
    layers = [(rng.normal(0, np.sqrt(2 / n), (m, n)), np.zeros(m)) for n, m in zip(WIDTHS, WIDTHS[1:])]
    flat = [p for layer in layers for p in layer]
    first, second = [np.zeros_like(p) for p in flat], [np.zeros_like(p) for p in flat]
    step = 0
    for epoch in range(epochs):
        rate = 2e-3 * (1 - epoch / epochs)
        order = rng.permutation(len(x))
        for begin in range(0, len(x), batch):
            part = order[begin:begin + batch]
            step += 1
            found = [g for layer in gradients(shifted(x[part], rng), classes[part], layers) for g in layer]
            for p, g, m, v in zip(flat, found, first, second):
                m += 0.1 * (g - m)
                v += 0.001 * (g * g - v)
                p -= rate * (m / (1 - 0.9**step)) / (np.sqrt(v / (1 - 0.999**step)) + 1e-8)
    return layers


def main():
    parser = argparse.ArgumentParser(description="Trains the digit classifier of samples/digits.")
    parser.add_argument("--data", default=DATA, help="digits.csv.gz of the package python3-sklearn")
    parser.add_argument("--out", default="samples/digits", help="folder for the .npy files")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    x, classes = load(options.data)
    layers = train(x[:TRAINED], classes[:TRAINED], np.random.default_rng(options.seed))
    layers = [(w.astype("<f4"), b.astype("<f4")) for w, b in layers]
    os.makedirs(options.out, exist_ok=True)
    save = lambda name, a: np.save(os.path.join(options.out, name), np.ascontiguousarray(a, "<f4"))
    for i, (w, b) in enumerate(layers, 1):
        save(f"weights{i}.npy", w)
        save(f"bias{i}.npy", b)
    save("test.npy", x[TRAINED:])
    save("labels.npy", classes[TRAINED:])
    for name, part in ("trained on", slice(0, TRAINED)), ("test", slice(TRAINED, None)):
        right = forward(x[part], layers)[-1].argmax(axis=1) == classes[part]
        print(f"{name}: {right.sum()} of {len(right)} right ({100 * right.mean():.2f} %)")


main()
