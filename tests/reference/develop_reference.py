"""Reference data for the Bayer development cross-checks, computed with numpy
on the phase slices a[oy::2, ox::2] of a mosaic, written as raw float32 planes
into the directory given as the only argument:

  mosaic                 40 x 30 samples of 0..4095, seeded
  tone_<m><c><p>         gains (maker curve m, level cut c, power curve p) over 100..4000
  bits12, bits_range     12 to 16 bits over 0..4095 and over the data's own range
  gamma                  gamma 2.2 over the levels 0..4095
  roundup_<pattern>_<g>  the half-size planes R, G, B for green mode g
  gain_<pattern>         the four white-balance gains from the phase medians
"""
import os
import sys

import numpy as np

W, H = 40, 30
GAINS = [1.9, 1.0, 0.7, 2.4]
LO, HI, POWER = 100.0, 4000.0, 1.7


def write(out, name, array):
    np.ascontiguousarray(array, dtype=np.float32).tofile(os.path.join(out, name + ".f32"))


def tone(a, maker, cut, power):
    out = a.astype(np.float64).copy()
    d = HI - LO
    for k, g in enumerate(GAINS):
        oy, ox = divmod(k, 2)
        v = out[oy::2, ox::2]
        if maker:
            x, y = d / (g + 1), g * d / (g + 1)
            r = (d - y) / (d - x)
            inside = (LO < v) & (v < HI)
            knee = np.where(v < x, (v - LO) * g + LO, (v - LO - x) * r + y + LO)
            v = np.where(inside, knee, v)
        else:
            v = v * g
        if cut:
            v = np.clip(v, LO, HI)
        if power:
            inside = (LO < v) & (v < HI)
            with np.errstate(invalid="ignore"):  # where() evaluates the unused branch too
                v = np.where(inside, (HI ** POWER - np.abs(HI - v) ** POWER) ** (1 / POWER), v)
        out[oy::2, ox::2] = v
    return out


def roundup(a, pattern, green):
    rx = 1 if pattern in (2, 3) else 0
    ry = 1 if pattern in (3, 4) else 0
    h, w = (a.shape[0] // 2) * 2, (a.shape[1] // 2) * 2
    a = a[:h, :w]
    red = a[ry::2, rx::2]
    blue = a[1 - ry::2, 1 - rx::2]
    g0 = a[0::2, (1 - rx if ry == 0 else rx)::2]
    g1 = a[1::2, (1 - rx if ry == 1 else rx)::2]
    g = {0: g0, 1: g1, 3: np.minimum(g0, g1), 4: np.maximum(g0, g1)}.get(green, (g0 + g1) * np.float32(0.5))
    return np.stack([red, g, blue])


def gains(a, pattern):
    # The upper middle of each phase's sorted samples, as float32.
    m = [np.float32(np.sort(a[oy::2, ox::2].ravel())[a[oy::2, ox::2].size // 2]) for oy, ox in
         ((0, 0), (0, 1), (1, 0), (1, 1))]
    g = np.zeros(4, dtype=np.float64)
    pair = (1, 2) if pattern in (1, 3) else (0, 3)
    green = (m[2] + m[1]) * np.float32(0.5) if pattern in (1, 3) else (m[3] + m[0]) * np.float32(0.5)
    for k in range(4):
        g[k] = 1.0 if k in pair or m[k] < 1 else np.float32(green / m[k])
    return g


def main(out):
    os.makedirs(out, exist_ok=True)
    rng = np.random.default_rng(11)
    mosaic = rng.integers(0, 4096, size=(H, W)).astype(np.float32)
    mosaic[3, 5] = 4095.0
    write(out, "mosaic", mosaic)
    for m in (0, 1):
        for c in (0, 1):
            for p in (0, 1):
                write(out, "tone_%d%d%d" % (m, c, p), tone(mosaic, m, c, p))
    a = mosaic.astype(np.float64)
    write(out, "bits12", np.clip((a - 0) * 65535 / 4095, 0, 65535))
    lo, hi = a.min(), a.max()
    write(out, "bits_range", np.clip((a - lo) * 65535 / (hi - lo), 0, 65535))
    write(out, "gamma", np.where(a > 0, (a / 4095.0) ** (1 / 2.2) * 4095.0, a))
    for pattern in range(1, 5):
        write(out, "gain_%d" % pattern, gains(mosaic, pattern))
        for green in (0, 1, 2, 3, 4, -1):
            write(out, "roundup_%d_%d" % (pattern, green), roundup(mosaic, pattern, green))


if __name__ == "__main__":
    main(sys.argv[1])
