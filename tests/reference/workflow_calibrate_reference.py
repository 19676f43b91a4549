"""Reference data for the light-frame calibration cross-check, written as raw
float32 planes (row after row) into the directory given as the only argument:

  light, bias, dark, flat   a 40 x 24 light (120 s), master bias, master dark
      (bias removed, 60 s, negative noise kept) and a master flat of mean 1
  same_exposure    ccdproc.ccd_process with the dark unscaled
  scaled_pedestal  ccdproc.ccd_process with the dark scaled by 120 / 60,
      plus a pedestal of 100
"""
import os
import sys

import astropy.units as u
import numpy as np
from astropy.nddata import CCDData
import ccdproc

W, H = 40, 24


def write(out, name, array):
    assert array.shape == (H, W)
    np.ascontiguousarray(array, dtype=np.float32).tofile(os.path.join(out, name + ".f32"))


def adu(a):
    return CCDData(a.astype(np.float64), unit="adu")


def main(out):
    os.makedirs(out, exist_ok=True)
    rng = np.random.default_rng(17)
    bias = np.round(1000 + rng.normal(0, 4, (H, W))).astype(np.float32)
    dark = rng.normal(3, 5, (H, W)).astype(np.float32)
    dark[5, 7] = 900
    yy, xx = np.mgrid[0:H, 0:W]
    flat = 1 - 0.3 * (((xx - W / 2) / W) ** 2 + ((yy - H / 2) / H) ** 2) + rng.normal(0, 0.01, (H, W))
    flat = (flat / flat.mean()).astype(np.float32)
    light = np.round(bias + 2 * dark + 500 * flat + rng.normal(0, 10, (H, W))).astype(np.float32)
    assert (dark < 0).any(), "the dark must keep negative noise"

    def process(dark_exposure):
        return ccdproc.ccd_process(adu(light), master_bias=adu(bias), dark_frame=adu(dark), master_flat=adu(flat),
                                   dark_exposure=dark_exposure * u.s, data_exposure=120 * u.s, dark_scale=True).data

    for name, array in (("light", light), ("bias", bias), ("dark", dark), ("flat", flat)):
        write(out, name, array)
    write(out, "same_exposure", process(120))
    write(out, "scaled_pedestal", process(60) + 100)


if __name__ == "__main__":
    main(sys.argv[1])
