"""Reference data for the calibration cross-checks, written as raw float32
planes (row after row) into the directory given as the only argument:

  dark_light, dark_frame, dark_expected   two raw SCI extensions of a STIS test
      frame; expected = numpy.maximum(ccdproc.subtract_dark(...), 0), which
      must equal numpy.maximum(light - dark, 0) in float32
  flat_light, flat_frame, flat_expected   NGC 1316 times a synthetic
      vignetting flat; expected = ccdproc.flat_correct(light, flat)

and `shapes.txt` with one line "name width height" per data set."""
import os
import sys

import astropy.units as u
import numpy as np
from astropy.io import fits
from astropy.nddata import CCDData
import ccdproc

DATA = os.path.join(os.path.dirname(fits.__file__), "tests", "data")


def write(out, name, array):
    np.ascontiguousarray(array, dtype=np.float32).tofile(os.path.join(out, name + ".f32"))


def main(out):
    os.makedirs(out, exist_ok=True)
    with fits.open(os.path.join(DATA, "o4sp040b0_raw.fits")) as raw:
        light = raw[1].data.astype(np.float32)
        dark = raw[4].data.astype(np.float32)
        exposure = raw[1].header["EXPTIME"]
        dark_exposure = raw[4].header["EXPTIME"]
    subtracted = ccdproc.subtract_dark(CCDData(light, unit="adu"), CCDData(dark, unit="adu"),
                                       dark_exposure=dark_exposure * u.s, data_exposure=exposure * u.s,
                                       scale=True)
    expected = np.maximum(np.asarray(subtracted.data, dtype=np.float32), np.float32(0))
    assert np.array_equal(expected, np.maximum(light - dark, np.float32(0))), "ccdproc differs from numpy"
    assert (light < dark).any(), "the frame must test the clip"
    write(out, "dark_light", light)
    write(out, "dark_frame", dark)
    write(out, "dark_expected", expected)

    with fits.open(os.path.join(DATA, "comp.fits")) as comp:
        sky = comp[1].data.astype(np.float32)
    h, w = sky.shape
    yy, xx = np.mgrid[0:h, 0:w]
    r2 = ((xx - w / 2) / w) ** 2 + ((yy - h / 2) / h) ** 2
    flat = (30000.0 * (1.0 - 0.8 * r2)).astype(np.float32)
    flat_light = (sky * flat / np.float32(30000)).astype(np.float32)
    corrected = ccdproc.flat_correct(CCDData(flat_light, unit="adu"), CCDData(flat, unit="adu"))
    write(out, "flat_light", flat_light)
    write(out, "flat_frame", flat)
    write(out, "flat_expected", np.asarray(corrected.data, dtype=np.float32))

    with open(os.path.join(out, "shapes.txt"), "w") as f:
        f.write("dark %d %d\n" % (light.shape[1], light.shape[0]))
        f.write("flat %d %d\n" % (w, h))


if __name__ == "__main__":
    main(sys.argv[1])
