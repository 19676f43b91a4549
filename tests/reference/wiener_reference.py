#!/usr/bin/python3
"""Double-precision reference of the Wiener filter's arithmetic.

Writes to OUT_DIR: input.f32 (the blurred 200 x 150 grey crop, row-major
float32) and reference.f64 (the filtered frame, float64), for levels (0, 255),
radius R and noise NOISE given on the command line.

The library's forward transform has kernel e^(+2 pi i jk/n), numpy's fft2 has
e^(-...): the forward is n * ifft2 here and the inverse fft2 / n.
"""
import os
import sys

import numpy as np
import scipy.ndimage
import skimage.data
import skimage.color

out_dir, radius, noise = sys.argv[1], float(sys.argv[2]), float(sys.argv[3])
grey = skimage.color.rgb2gray(skimage.data.hubble_deep_field()) * 255.0
crop = grey[100:250, 300:500]
blurred = scipy.ndimage.gaussian_filter(crop, radius / np.sqrt(2.0)).astype(np.float32)
h, w = blurred.shape

def ceil_pow2(n):
    return 1 << (n - 1).bit_length()

fw, fh = ceil_pow2(w), ceil_pow2(h)
level_min, level_range = 0.0, 255.0
frame = np.zeros((fh, fw))
frame[:h, :w] = ((blurred.astype(np.float64) - level_min) / level_range * 255.0).astype(np.float32)
for i in range(fw - w):
    frame[:h, w + i] = frame[:h, w - 1 - i]
for j in range(fh - h):
    frame[h + j, :] = frame[h - 1 - j, :]

sigma = radius / 1.414213562
xs = np.arange(fw)
ys = np.arange(fh)
i = np.where(xs > fw // 2, xs - fw, xs).astype(np.float64)
j = np.where(ys > fh // 2, ys - fh, ys).astype(np.float64)
r2 = i[None, :] ** 2 + j[:, None] ** 2
kernel = np.exp(-r2 * 0.5 / (sigma * sigma)) * 1000.0 * 0.5 / 3.14159

n = fw * fh
forward = lambda a: np.fft.ifft2(a) * n
inverse = lambda a: np.fft.fft2(a) / n
G = forward(kernel)
F = forward(frame)
g2 = np.abs(G) ** 2
out = inverse(np.conj(G) * F / (g2 + g2.max() * noise)).real
result = out[:h, :w] / 255.0 * level_range + level_min

os.makedirs(out_dir, exist_ok=True)
blurred.tofile(os.path.join(out_dir, "input.f32"))
result.astype(np.float64).tofile(os.path.join(out_dir, "reference.f64"))
print(w, h, float(np.abs(result).max()))
