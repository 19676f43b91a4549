"""FITS files written by astropy for the reader, and the check of what the
writer made of them.

  fits_reference.py DIR          writes one file per case into DIR, its pixels
      in engine order (top row first, planes one after another) as
      expected_<case>.f32, and cases.txt: "case file planes bitpix"
  fits_reference.py DIR --check  reads back the files the C++ test wrote
      (ours_*.fits): checksums, structure, pixels and header cards
"""
import os
import sys
import warnings

import numpy as np
from astropy.io import fits

W, H = 37, 23


def ramp(lo, hi, shape=(H, W)):
    """Values from lo to hi over the pixels, in a scrambled order."""
    n = int(np.prod(shape))
    order = (np.arange(n) * 7919) % n
    return (lo + (hi - lo) * order / (n - 1)).reshape(shape)


def engine(data):
    """Rows flipped: FITS stores the bottom line first."""
    return np.flip(data, axis=-2)


def cases():
    """(case, file, HDUs, BITPIX, expected pixels in engine order)"""
    rng = np.random.default_rng(17)
    u8 = np.round(ramp(0, 255)).astype(np.uint8)
    yield "b8", "b8.fits", [fits.PrimaryHDU(u8)], 8, engine(u8)
    u16 = np.round(ramp(0, 65535)).astype(np.uint16)
    u16[0, :3] = [0, 1, 65535]
    hdu = fits.PrimaryHDU(u16)  # unsigned: BITPIX 16, BZERO 32768
    hdu.header["OBJECT"] = "M 42"
    hdu.header["EXPTIME"] = (30.0, "seconds")
    hdu.header["BAYERPAT"] = "RGGB"
    hdu.header.add_history("taken by the test")
    yield "b16u", "b16u.fits", [hdu], 16, engine(u16)
    halves = np.round(ramp(-2000, 2000)) * 0.5
    scaled = fits.PrimaryHDU(halves.copy())
    scaled.scale("int16", bzero=100, bscale=0.5)
    yield "b16s", "b16s.fits", [scaled], 16, engine(halves)
    i32 = np.round(ramp(-2 ** 24, 2 ** 24)).astype(np.int32)
    i32[0, :2] = [2 ** 31 - 1, -2 ** 31]
    yield "b32", "b32.fits", [fits.PrimaryHDU(i32)], 32, engine(i32)
    f32 = rng.normal(1000, 300, (H, W)).astype(np.float32)
    f32[5, 7] = np.nan
    yield "bm32", "bm32.fits", [fits.PrimaryHDU(f32)], -32, engine(f32)
    f64 = rng.normal(0, 1e6, (H, W))
    yield "bm64", "bm64.fits", [fits.PrimaryHDU(f64)], -64, engine(f64)
    rgb = rng.normal(500, 100, (3, H, W)).astype(np.float32)
    yield "rgb", "rgb.fits", [fits.PrimaryHDU(rgb)], -32, engine(rgb)
    top = fits.PrimaryHDU(f32)
    top.header["ROWORDER"] = "TOP-DOWN"
    yield "topdown", "topdown.fits", [top], -32, f32
    i16 = np.round(ramp(-3000, 3000)).astype(np.int16)
    i16[2, 3] = -32768
    ext = fits.ImageHDU(i16)  # after an empty primary
    ext.header["BLANK"] = -32768
    yield "ext", "ext.fits", [fits.PrimaryHDU(), ext], 16, engine(np.where(i16 == -32768, np.nan, i16))
    packed = fits.CompImageHDU(i16, compression_type="RICE_1")
    yield "fz", "fz.fits.fz", [fits.PrimaryHDU(), packed], 16, engine(i16)


def write(out):
    os.makedirs(out, exist_ok=True)
    lines = []
    for name, filename, hdus, bitpix, expected in cases():
        fits.HDUList(hdus).writeto(os.path.join(out, filename), overwrite=True)
        np.ascontiguousarray(expected, dtype=np.float32).tofile(os.path.join(out, "expected_" + name + ".f32"))
        planes = 1 if expected.ndim == 2 else expected.shape[0]
        lines.append(f"{name} {filename} {planes} {bitpix}")
    with open(os.path.join(out, "cases.txt"), "w") as f:
        f.write("\n".join(lines) + "\n")


# What the C++ test wrote: file, the case whose pixels it holds, BITPIX, BZERO.
OURS = [("ours_mono.fits", "b16u", -32, 0), ("ours_rgb.fits", "rgb", -32, 0), ("ours_u16.fits", "b16u", 16, 32768)]


def check(out):
    failures = []
    warnings.simplefilter("error")  # a bad checksum is a warning in astropy
    for filename, case, bitpix, bzero in OURS:
        path = os.path.join(out, filename)
        with fits.open(path, checksum=True, uint=True) as hdus:
            hdus.verify("exception")
            hdu = hdus[0]
            header = hdu.header
            expected = np.fromfile(os.path.join(out, "expected_" + case + ".f32"), dtype=np.float32)
            data = engine(hdu.data).astype(np.float32).ravel()
            if len(hdus) != 1 or not np.array_equal(data, expected, equal_nan=True):
                failures.append(f"{filename}: pixels differ from {case}")
            wanted = {"BITPIX": bitpix, "OBJECT": "M 42", "EXPTIME": 30.0, "NCOMBINE": 7, "IMAGETYP": "Master Bias"}
            for key, value in wanted.items():
                if header.get(key) != value:
                    failures.append(f"{filename}: {key} = {header.get(key)!r}, not {value!r}")
            if header.get("BZERO", 0) != bzero:
                failures.append(f"{filename}: BZERO {header.get('BZERO')}")
            for key in ("DATE", "CHECKSUM", "DATASUM"):
                if key not in header:
                    failures.append(f"{filename}: no {key}")
            history = [str(h) for h in header.get("HISTORY", [])]
            if history != ["taken by the test", "qorimg test: written back"]:
                failures.append(f"{filename}: HISTORY {history}")
            if "ROWORDER" in header or "COMMENT" in header:
                failures.append(f"{filename}: unexpected ROWORDER or COMMENT cards")
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[2] == "--check":
        sys.exit(check(sys.argv[1]))
    write(sys.argv[1])
