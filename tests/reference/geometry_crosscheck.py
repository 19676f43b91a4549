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

if failures:
    print("FAILED:", ", ".join(failures))
    sys.exit(1)
