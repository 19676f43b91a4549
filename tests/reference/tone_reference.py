#!/usr/bin/python3
"""Reference values of the level and tone operators, from numpy, scipy and
skimage on real frames: NGC 1316 (astropy's comp.fits, HDU 1) and the planes of
skimage's hubble_deep_field.jpg.

Writes the frames as raw float32 planes and the expected values as text lines
"key v1 v2 ..." into a temporary directory, then runs the tone test program's
ToneReference cases on them (QORIMG_TONE_REFERENCE names the directory).
Usage: tone_reference.py <tone_tests executable>
"""
import os
import subprocess
import sys
import tempfile

import numpy as np
import scipy.interpolate
import scipy.stats
import skimage.io
import skimage.measure
from astropy.io import fits

COMP = "/usr/lib/python3/dist-packages/astropy/io/fits/tests/data/comp.fits"
HUBBLE = "/usr/lib/python3/dist-packages/skimage/data/hubble_deep_field.jpg"
f32 = np.float32


def write_image(directory, name, planes):
    """planes: list of 2-D float32 arrays; the header line gives w h planes."""
    h, w = planes[0].shape
    with open(os.path.join(directory, name + ".f32"), "wb") as f:
        for p in planes:
            f.write(np.ascontiguousarray(p, dtype="<f4").tobytes())
    return "image_%s %d %d %d" % (name, w, h, len(planes))


def level_brightness(planes, lmin, lrange):
    """Brightness 256 (each plane mapped and rounded to float, mixed in double,
    rounded) brought back to plane 0's scale and rounded to float."""
    mapped = [((p - f32(lmin[c])) * f32(255.0 / lrange[c])).astype(f32) for c, p in enumerate(planes)]
    r, g, b = (m.astype(np.float64) for m in mapped)
    b256 = (g * 0.587 + r * 0.299 + b * 0.114).astype(f32)
    return (b256.astype(np.float64) / 255.0 * lrange[0] + lmin[0]).astype(f32)


def sampled_median(a, sampling=True):
    h, w = a.shape
    pixels = w * h
    n = int(np.sqrt(pixels // 50000) + 0.5) if sampling and pixels > 50000 else 1
    nx, ny = w // n, h // n
    cells = skimage.measure.block_reduce(a[: ny * n, : nx * n].astype(np.float64), (n, n), np.sum)
    return np.sort(cells.ravel())[cells.size // 2] / (n * n)


def mode_reference(a, bins):
    lo, hi = float(a.min()), float(a.max())
    index = np.clip(((a.astype(np.float64) - lo) * (bins / (hi - lo))).astype(np.int64), 0, bins - 1)
    hist = np.bincount(index.ravel(), minlength=bins)
    peak = int(np.argmax(hist))
    width = (hi - lo) / bins
    mode = f32(peak * width + lo)
    inside = a[(a >= 0) & (a <= mode)].astype(np.float64)
    sky = np.sqrt(np.mean((inside - np.float64(mode)) ** 2)) if inside.size else 0.0
    t = a.size // 100000 if a.size >= 1000000 else 10
    run, stop = 0, bins
    for i in range(peak, bins):
        run = run + 1 if hist[i] < t else 0
        if run > 10:
            stop = i
            break
    return mode, f32(mode - 6 * sky), f32((stop - peak) * width + mode), hist, lo, hi


def normal_levels(hist, lo, hi, total, f_low, f_high):
    r = hi - lo
    limit = int(total * f_low)
    running = np.cumsum(hist + 1)
    i = int(np.argmax(running > limit)) if running[-1] > limit else len(hist)
    limit = int((1 - f_high) * total)
    down = np.cumsum((hist + 1)[::-1])
    k = len(hist) - 1 - int(np.argmax(down > limit)) if down[-1] > limit else -1
    return lo + i * r / 5000, lo + (k + 1) * r / 5000


def normal_readback(hist, lo, hi, total, lmin, lmax):
    r = hi - lo
    f_low = (lmin - lo) / r
    if lo < lmin < hi:
        s = 0
        for i in range(5000):
            before, s = s, s + hist[i] + 1
            if i / 5000 * r + lo > lmin:
                f_low = (before + s) * 0.5 / total
                break
    f_high = (lmax - lo) / r
    if lo < lmax < hi:
        s = 0
        for i in range(4999, 0, -1):
            before, s = s, s + hist[i] + 1
            if lmax > i / 5000 * r + lo:
                f_high = 1 - (before + s) * 0.5 / total
                break
    return f_low, f_high


def auto_level(directory, lines):
    comp = fits.open(COMP)[1].data.astype(f32)
    lines.append(write_image(directory, "comp", [comp]))
    hubble = skimage.io.imread(HUBBLE).astype(f32)
    rgb = [hubble[:, :, c] for c in range(3)]
    lines.append(write_image(directory, "hubble", rgb))

    # DoByMean (fLow 1.5, fHigh 3): levels from numpy.mean and numpy.std (ddof 0)
    # in float64; colour tied on level brightness with levels 0..255.
    def mean_levels(a):
        m, s = np.mean(a, dtype=np.float64), np.std(a.astype(np.float64), ddof=0)
        return m - s * 1.5, s * 3.0 + m

    lines.append("mean_comp %r %r" % mean_levels(comp))
    lines.append("mean_hubble_tied %r %r" % mean_levels(level_brightness(rgb, [0, 0, 0], [255, 255, 255])))
    for c in range(3):
        lines.append("mean_hubble_plane%d %r %r" % ((c,) + mean_levels(rgb[c])))

    # GetMedian (sampling on): block sums, upper middle, over n^2.
    lines.append("median_comp %r" % sampled_median(comp))
    lines.append("median_hubble_plane1 %r" % sampled_median(rgb[1]))
    r, g, b = (p.astype(np.float64) for p in rgb)
    raw_bright = (r * 0.299 + g * 0.587 + b * 0.114).astype(f32)
    lines.append("median_hubble_bright %r" % sampled_median(raw_bright))

    # GetMode on comp (1037 units in 5000 bins: no dither) and on raw brightness
    # of hubble (255 units).
    mode, low, high, hist, lo, hi = mode_reference(comp, 5000)
    lines.append("mode_comp %r %r %r" % (float(mode), float(low), float(high)))
    mode, low, high, _, _, _ = mode_reference(raw_bright, 5000)
    lines.append("mode_hubble_bright %r %r %r" % (float(mode), float(low), float(high)))

    # DoByNormal (0.02, 0.99) on comp, by the walks, and GetByNormal of levels 50..600.
    total = comp.size + 5000
    lines.append("normal_comp %r %r" % normal_levels(hist, lo, hi, total, 0.02, 0.99))
    lines.append("normal_readback_comp %r %r" % normal_readback(hist, lo, hi, total, 50.0, 600.0))

    # GetLevelRange*: counts, deviation and RMS about the top of [200, 300].
    inside = comp[(comp >= 200) & (comp <= 300)].astype(np.float64)
    lines.append("range_comp %d %r %r" % (inside.size, np.std(inside), np.sqrt(np.mean((inside - 300.0) ** 2))))


def spline(lines):
    """CSpline: the natural cubic spline of scipy, and the member GetValue's
    evaluation of the next piece with a negative offset."""
    x = np.array([0.0, 1.5, 3.0, 4.2, 7.0, 9.0])
    y = np.array([0.0, 2.0, 1.0, 3.5, 0.5, 2.0])
    cs = scipy.interpolate.CubicSpline(x, y, bc_type="natural")
    lines.append("spline_points " + " ".join("%r %r" % p for p in zip(x, y)))
    at = np.array([0.2, 1.0, 2.9, 3.1, 5.5, 8.99])
    lines.append("spline_static " + " ".join("%r %r" % (a, cs(a)) for a in at))
    member = []
    for a in at:
        k = int(np.searchsorted(x, a, side="right"))  # the piece after the one holding a
        if k < len(x) - 1:
            member.append("%r %r" % (a, np.polyval(cs.c[:, k], a - x[k])))
    lines.append("spline_member " + " ".join(member))


def main():
    program = sys.argv[1]
    with tempfile.TemporaryDirectory() as directory:
        lines = []
        auto_level(directory, lines)
        spline(lines)
        with open(os.path.join(directory, "expected.txt"), "w") as f:
            f.write("\n".join(lines) + "\n")
        env = dict(os.environ, QORIMG_TONE_REFERENCE=directory)
        run = subprocess.run([program, "--gtest_filter=*ToneReference*"], env=env, capture_output=True, text=True)
        sys.stdout.write(run.stdout + run.stderr)
        # A filter that matched nothing must not pass.
        if run.returncode == 0 and "[  PASSED  ] 0 tests" in run.stdout:
            return 1
        return run.returncode


if __name__ == "__main__":
    sys.exit(main())
