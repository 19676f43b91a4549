"""Reference stacks of one aligned cube, written as raw float32 into the
directory given as the only argument:

  cube          F frames of H x W, frame after frame (sky, noise, stars and
                outliers: cosmic rays, a trail, hot pixels in single frames)
  median        numpy.median over the frames
  sigma_discard astropy sigma_clip (sigma 3, one iteration, median centre,
                standard deviation) then the mean of what is kept
  sigma_replace the same clip with rejected values replaced by the median,
                then the mean over all frames
  mean, min, max
  rejected      one value: the per cent of samples the clip rejects

and shape.txt with "F W H"."""
import os
import sys

import numpy as np
from astropy.stats import sigma_clip

F, H, W = 11, 30, 40


def write(out, name, array):
    np.ascontiguousarray(array, dtype=np.float32).tofile(os.path.join(out, name + ".f32"))


def main(out):
    os.makedirs(out, exist_ok=True)
    rng = np.random.default_rng(17)
    yy, xx = np.mgrid[0:H, 0:W]
    scene = 800.0 + 2.0 * xx + np.zeros((H, W))
    for sx, sy, peak in rng.uniform([0, 0, 300], [W, H, 8000], size=(8, 3)):
        scene += peak * np.exp(-((xx - sx) ** 2 + (yy - sy) ** 2) / 5.0)
    cube = scene[None] + rng.normal(0.0, 12.0, size=(F, H, W))
    cube[3, 10, 5:8] += 6000.0                       # a cosmic ray
    cube[6, np.arange(H), (np.arange(H) * 4) // 3] += 900.0   # a trail
    cube[rng.integers(0, F, 40), rng.integers(0, H, 40), rng.integers(0, W, 40)] += 3000.0
    cube = cube.astype(np.float32)

    c = cube.astype(np.float64)
    median = np.median(c, axis=0)
    clipped = sigma_clip(c, sigma=3, maxiters=1, cenfunc="median", stdfunc="std", axis=0)
    write(out, "cube", cube)
    write(out, "median", median)
    write(out, "sigma_discard", clipped.mean(axis=0))
    write(out, "sigma_replace", np.where(clipped.mask, median[None], c).mean(axis=0))
    write(out, "mean", c.mean(axis=0))
    write(out, "min", c.min(axis=0))
    write(out, "max", c.max(axis=0))
    write(out, "rejected", [100.0 * clipped.mask.sum() / clipped.size])
    with open(os.path.join(out, "shape.txt"), "w") as f:
        f.write("%d %d %d\n" % (F, W, H))


if __name__ == "__main__":
    main(sys.argv[1])
