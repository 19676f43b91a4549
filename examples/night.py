"""A generated night of FITS frames: star fields moved a little from frame to
frame, with a dark current pattern and a vignetted flat, for the examples and
the tests of qorimg.distributed."""
import os

import numpy as np

import qorimg


def _stars(rng, width, height, count):
    return rng.uniform([0, 0, 200], [width, height, 5000], size=(count, 3))


def _render(stars, width, height, dx, dy, sigma=1.6):
    y, x = np.mgrid[0:height, 0:width].astype(np.float64)
    image = np.zeros((height, width))
    r = int(4 * sigma) + 1
    for sx, sy, flux in stars:
        cx, cy = sx + dx, sy + dy
        x0, x1 = max(int(cx) - r, 0), min(int(cx) + r + 1, width)
        y0, y1 = max(int(cy) - r, 0), min(int(cy) + r + 1, height)
        if x0 >= x1 or y0 >= y1:
            continue
        image[y0:y1, x0:x1] += flux / (2 * np.pi * sigma ** 2) * np.exp(
            -((x[y0:y1, x0:x1] - cx) ** 2 + (y[y0:y1, x0:x1] - cy) ** 2) / (2 * sigma ** 2))
    return image


def make_night(directory, frames=16, width=1024, height=768, seed=7):
    """Writes lights, a master dark and a master flat (mean 1); returns
    (light paths, calibration dict, true shifts)."""
    os.makedirs(directory, exist_ok=True)
    rng = np.random.default_rng(seed)
    stars = _stars(rng, width, height, max(50, width * height // 4000))
    y, x = np.mgrid[0:height, 0:width]
    dark = (20 + 5 * np.sin(x / 37.0) + rng.normal(0, 1, (height, width))).astype(np.float32)
    flat = 1 - 0.3 * (((x - width / 2) / width) ** 2 + ((y - height / 2) / height) ** 2)
    flat = (flat / flat.mean()).astype(np.float32)
    paths, shifts = [], []
    for i in range(frames):
        dx, dy = rng.uniform(-6, 6, 2) if i else (0.0, 0.0)
        sky = 300 + _render(stars, width, height, dx, dy)
        light = sky * flat + dark + rng.normal(0, 8, (height, width))
        path = os.path.join(directory, f"light{i:03d}.fits")
        qorimg.write_fits(path, qorimg.Image.from_array(light.astype(np.float32)), {"EXPTIME": 60.0}, overwrite=True)
        paths.append(path)
        shifts.append((dx, dy))
    calibration = {}
    for name, data in (("dark", dark), ("flat", flat)):
        path = os.path.join(directory, f"master_{name}.fits")
        qorimg.write_fits(path, qorimg.Image.from_array(data), {"EXPTIME": 60.0}, overwrite=True)
        calibration[name] = path
    return paths, calibration, shifts
