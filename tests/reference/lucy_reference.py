#!/usr/bin/python3
"""References for the Richardson-Lucy core.

lucy_reference.py core DIR N ADU NOISE
    Reads DIR/data.f32 and DIR/psf.f32 (64 x 64, float32, row-major) and
    writes DIR/reference.f64: the preparation and N iterations of the core in
    double precision (canvas = frame, background 0, clip factor 5, turbo from
    iteration 2, Newton line search), as float64.
lucy_reference.py skimage DIR N
    Reads DIR/psf.f32 (64 x 64); writes DIR/data.f32, a 128 x 128 star field
    blurred with that PSF plus Poisson noise (seeded), and DIR/skimage.f64,
    skimage's richardson_lucy of it after N iterations with the same PSF.
"""
import sys

import numpy as np


def core(data, psf, iterations, adu, noise):
    n2 = noise * noise / adu
    b = 0.0
    e_clip = 5.0 * np.sqrt(max((n2 + b) / adu, 0.0))
    D = data.astype(np.float64)
    mask = np.where(D < -e_clip, 0.0, 1.0)
    mean = (mask * D).sum() / mask.sum()
    if mean < 0:
        mean = 1.0
    x = np.full(D.shape, mean)
    p = np.maximum(psf.astype(np.float64), 0.0)
    py, px = np.unravel_index(np.argmax(p), p.shape)
    p = np.roll(p, (-py, -px), axis=(0, 1))
    otf = np.fft.fft2(p)
    otf = otf / otf[0, 0]
    blur = lambda f: np.fft.ifft2(np.fft.fft2(f) * otf).real
    corr = lambda f: np.fft.ifft2(np.fft.fft2(f) * np.conj(otf)).real
    norm = corr(mask)
    low = norm < 0.001 * norm.max()
    norm[low] = 1.0
    x[low] = 0.0
    model = blur(x)
    dp = ep = None
    valid = mask > 0
    for it in range(1, iterations + 1):
        den = model + n2 + b
        den = np.where(den == 0, 1.0, den)
        r = (D + n2 + b) / den * mask
        c = corr(r) / norm
        d = x * c - x
        e = blur(d)
        turbo = it >= 2
        if turbo:
            xn = x + n2
            sel = valid & (xn != 0)
            w = np.zeros_like(x)
            w[sel] = mask[sel] * adu * (D[sel] + n2) / xn[sel] ** 2
            a = (ep * w * ep).sum()
            b2 = (e * w * ep).sum()
            beta = -b2 / a if a != 0 else 0.0
            d, dp = d + beta * dp, d
            e, ep = e + beta * ep, e
        neg = x < 0
        x[neg] = 0
        d[neg] = 0

        def bound(upper):
            sel = d < 0 if upper else d > 0
            if not sel.any():
                return 100.0 if upper else -100.0
            v = -x[sel] / d[sel]
            return v.min() if upper else v.max()

        cmax, cmin = bound(True), 1.0
        if turbo and cmax < 1:
            turbo = False
            d = np.where((x == 0) & (dp < 0), 0.0, dp)
            e = ep
            cmax = bound(True)
        elif turbo:
            cmin = bound(False)
        cc, step = 1.0, 1.0
        for _ in range(21):
            if abs(step) <= 0.01:
                break
            m = mask[valid]
            s = (model[valid] + b + cc * e[valid]) * m + n2
            pv = (D[valid] + b) * m + n2
            q = e[valid] * m
            g = ((pv / s - 1) * q).sum()
            h = ((q / s) ** 2 * pv).sum()
            if not h > 0:
                break
            step = g / h
            if cc + step >= cmax:
                step = (cmax - cc) * 0.5
            elif cc + step <= cmin:
                step = (cmin - cc) * 0.5
            cc += step
        x = x + cc * d
        model = model + cc * e
        if not turbo:
            dp, ep = d, e
        t = (mask * adu * (D - model)) ** 2
        den = (D + b) * mask * adu + noise * noise
        ok = valid & (den != 0)
        chi2 = (t[ok] / den[ok]).sum() / (valid.sum() - 1)
        if 1.0 >= chi2:
            break
    return x


mode, out_dir = sys.argv[1], sys.argv[2]
psf = np.fromfile(out_dir + "/psf.f32", dtype=np.float32).reshape(64, 64)
if mode == "core":
    data = np.fromfile(out_dir + "/data.f32", dtype=np.float32).reshape(64, 64)
    result = core(data, psf, int(sys.argv[3]), float(sys.argv[4]), float(sys.argv[5]))
    result.astype(np.float64).tofile(out_dir + "/reference.f64")
else:
    import scipy.signal
    import skimage.restoration

    rng = np.random.default_rng(16)
    size = 128
    field = np.full((size, size), 20.0)
    for (x, y, flux) in [(40, 40, 30000), (85, 50, 20000), (60, 90, 40000), (100, 100, 15000)]:
        field[y, x] += flux
    # The PSF's centre is at (32, 32): the same shift as 'same' convolution.
    blurred = scipy.signal.fftconvolve(field, psf.astype(np.float64), mode="same")
    data = rng.poisson(np.maximum(blurred, 0)).astype(np.float32)
    restored = skimage.restoration.richardson_lucy(data.astype(np.float64), psf.astype(np.float64),
                                                   num_iter=int(sys.argv[3]), clip=False)
    data.tofile(out_dir + "/data.f32")
    restored.astype(np.float64).tofile(out_dir + "/skimage.f64")
