#!/usr/bin/python3
"""Compares what the geometry tests wrote (.npy in the directory given) with
numpy, scipy and skimage. Each check runs when its files are there and prints
its largest difference; any check beyond its tolerance fails the run."""
import os
import sys

import numpy as np
from scipy import ndimage

directory = sys.argv[1]
failures = []


def load(name):
    path = os.path.join(directory, name + ".npy")
    return np.load(path) if os.path.exists(path) else None


def check(what, got, expected, tolerance):
    worst = float(np.max(np.abs(got.astype(np.float64) - expected))) if got.size else 0.0
    print(f"{what}: max |difference| {worst:.3g} (tolerance {tolerance})")
    if not worst <= tolerance:
        failures.append(what)


# Bilinear and nearest sampling at arbitrary positions: map_coordinates with the
# edge pixel repeated. Bilinear results are rounded to float once (samples
# 0..255, so 1e-3 is far above that rounding and far below any wrong tap).
plane = load("interp_plane")
if plane is not None:
    positions = load("interp_positions").astype(np.float64).T
    bilinear = load("interp_bilinear")
    inside = bilinear != -1.0
    order1 = ndimage.map_coordinates(plane.astype(np.float64), positions, order=1, mode="nearest")
    check("CInterp bilinear vs map_coordinates(order=1)", bilinear[inside], order1[inside], 1e-3)
    order0 = ndimage.map_coordinates(plane.astype(np.float64), positions, order=0, mode="nearest")
    check("CInterp nearest vs map_coordinates(order=0)", load("interp_nearest"), order0, 0.0)

# Operators that move pixels without arithmetic: exact. The quarter turn
# through Do on the line path of an odd square is np.rot90(a, -1) up to the
# bilinear rounding, except where cos 90 degrees (6e-17, not 0) puts a position
# on the first row or column a hair outside the source: those take the fill.
source = load("op_source")
if source is not None:
    exact = {
        "op_rot90_ccw": np.rot90(source, 1),
        "op_rot90_cw": np.rot90(source, -1),
        "op_rot180": np.rot90(source, 2),
        "op_flipud": np.flipud(source),
        "op_fliplr": np.fliplr(source),
        "op_roll_x70": np.roll(source, 70, axis=1),
        "op_roll_x-5": np.roll(source, -5, axis=1),
        "op_roll_y-13": np.roll(source, -13, axis=0),
        "op_pad_centre": np.pad(source, ((1, 1), (3, 3)), mode="constant", constant_values=7.0),
        "op_crop": source[7:30, 5:40],
    }
    for name, expected in exact.items():
        got = load(name)
        check(f"{name} vs numpy", got, expected, 0.0) if got.shape == expected.shape else failures.append(name)
    from skimage.measure import block_reduce
    check("soft binning vs block_reduce(np.sum)", load("op_bin_3x5_ceil"),
          block_reduce(source.astype(np.float64), (5, 3), np.sum), 1e-3)
    turned = load("op_turn90_line")
    expected = np.rot90(load("op_square"), -1)
    inner = (slice(1, None), slice(None, -1))
    check("Do(+90) line path (odd square, inside) vs np.rot90(a, -1)", turned[inner], expected[inner], 1e-3)

if failures:
    print("FAILED:", ", ".join(failures))
    sys.exit(1)
