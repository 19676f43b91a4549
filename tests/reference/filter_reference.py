#!/usr/bin/python3
"""Writes the real-data inputs and scipy references of the filter tests as raw
little-endian float32 files (rows of the crop's width) into tests/filter/data:
a crop of NGC 1316 (HDU 1 of astropy's comp.fits) and of the green channel of
skimage's hubble_deep_field.jpg, with
  *_gauss2:   scipy.ndimage.gaussian_filter(sigma 2, mode 'mirror', truncate
              nR / sigma with nR = trunc(2 * 2.8 + 1) = 6): the rule of the
              whole-plane route (reflection about the edge pixel);
  *_median25: the upper median of the samples of the disc dx^2 + dy^2 <= 2.5^2
              that lie inside the crop (generic_filter, mode 'constant', NaN
              outside, NaN left out): the median filter on every route.
Run once by hand; the outputs are committed."""
import os

import numpy as np
from astropy.io import fits
from scipy import ndimage
from skimage import io

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "..", "filter", "data")
WIDTH, HEIGHT = 48, 40


def crops():
    astropy_data = os.path.join(os.path.dirname(fits.__file__), "tests", "data", "comp.fits")
    with fits.open(astropy_data) as hdus:
        galaxy = hdus[1].data.astype(np.float32)
    yield "ngc1316", galaxy[130:130 + HEIGHT, 200:200 + WIDTH]
    import skimage
    hubble = io.imread(os.path.join(os.path.dirname(skimage.__file__), "data", "hubble_deep_field.jpg"))
    yield "hubble", hubble[400:400 + HEIGHT, 500:500 + WIDTH, 1].astype(np.float32)


def upper_median(values):
    kept = np.sort(values[~np.isnan(values)])
    return kept[len(kept) // 2]


def main():
    os.makedirs(OUT, exist_ok=True)
    radius = 2.5
    r = int(radius)
    yy, xx = np.mgrid[-r:r + 1, -r:r + 1]
    disc = (xx * xx + yy * yy) <= radius * radius
    for name, plane in crops():
        plane = np.ascontiguousarray(plane, dtype=np.float32)
        gauss = ndimage.gaussian_filter(plane.astype(np.float64), 2.0, mode="mirror", truncate=6 / 2.0)
        median = ndimage.generic_filter(plane.astype(np.float64), upper_median, footprint=disc, mode="constant",
                                        cval=np.nan)
        for suffix, data in (("", plane), ("_gauss2", gauss), ("_median25", median)):
            data.astype("<f4").tofile(os.path.join(OUT, f"{name}{suffix}.f32"))


if __name__ == "__main__":
    main()
