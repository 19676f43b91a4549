"""A night's reduction on a Dask cluster (dask.distributed).

    from dask.distributed import Client
    from qorimg.distributed import reduce
    result = reduce(Client("tcp://scheduler:8786"), lights, calibration={"dark": "dark.fits", "flat": "flat.fits"},
                    output="stack.fits")

The steps, each a set of Dask tasks:

1. the reference: the first light, calibrated (one task);
2. measure: the lights calibrated in parallel on the workers, each frame's
   placement measured against the reference and its normalisation against the
   reference's level (one task per group of frames);
3. stack: one task per band of rows; a band task reads only the rows of every
   frame it needs (FITS section reads), calibrates them with the same rows of
   the masters and returns the band;
4. the client assembles the bands and writes the result.

Workers read the frames and masters by their paths: every worker must see them
under the same names (a shared or replicated directory); nothing else is
shared, and no result is written by a worker. A task lost with its worker is
run again by Dask; every task is a pure function of its arguments, so a rerun
gives the same bits.
"""
import os
import time

import numpy as np

from . import _qorimg
from ._qorimg import workflow

__all__ = ["reduce", "reduce_local", "StackSettings"]


class StackSettings:
    """The stacking choices, passed to every band task."""

    def __init__(self, combine=workflow.Combine.SIGMA, kappa=3.0, discard=False,
                 norm=workflow.Normalization.ADD_SCALE, interp=workflow.Interpolation.BICUBIC,
                 method=workflow.RegisterMethod.POC_ROTATION, band_rows=256):
        self.combine, self.kappa, self.discard = combine, kappa, discard
        self.norm, self.interp, self.method, self.band_rows = norm, interp, method, band_rows

    def stack_kwargs(self):
        return dict(combine=self.combine, kappa=self.kappa, discard=self.discard, norm=self.norm, interp=self.interp)

    def __reduce__(self):
        return (_settings, (int(self.combine), self.kappa, self.discard, int(self.norm), int(self.interp),
                            int(self.method), self.band_rows))


def _settings(combine, kappa, discard, norm, interp, method, band_rows):
    return StackSettings(workflow.Combine(combine), kappa, discard, workflow.Normalization(norm),
                         workflow.Interpolation(interp), workflow.RegisterMethod(method), band_rows)


def _paths(lights):
    return [os.fspath(p) for p in lights]


def _calibration(spec):
    """Masters by path (workers read them), plus the arithmetic's numbers."""
    if not spec:
        return None
    return {k: (os.fspath(v) if k in ("bias", "dark", "flat") and v is not None else v) for k, v in spec.items()}


def _exposure(path):
    return _qorimg.read_fits_info(path)["exposure"]


# ---- The tasks (module-level functions: the workers import them) -----------

def reference_task(path, calibration):
    """The calibrated reference frame, as an array (planes, height, width)."""
    image = _qorimg.read_fits(path)
    if calibration:
        image = workflow.calibrate(image, _exposure(path), calibration)
    return image.to_array("chw") if image.planes > 1 else image.to_array()[None]


def _image(planes_hw):
    return _qorimg.Image.from_array(planes_hw[0] if planes_hw.shape[0] == 1 else planes_hw)


def measure_task(reference, paths, calibration, settings):
    """Placements and normalisations of `paths` against the reference array."""
    ref = _image(reference)
    placements = workflow.register(ref, paths, method=settings.method, calibration=calibration)
    norms = workflow.measure_normalization([ref, *paths], settings.norm, calibration=calibration)[1:]
    return [((p.dx, p.dy, p.rotation), p.ok, p.reason, n) for p, n in zip(placements, norms)]


def band_task(paths, placements, norms, top, rows, calibration, settings):
    """Rows top..top+rows-1 of the stack (planes, rows, width)."""
    return workflow.stack_band(paths, placements, norms, top, rows, calibration=calibration,
                               **settings.stack_kwargs())


# ---- The reduction ----------------------------------------------------------

def _groups(items, count):
    size = max(1, -(-len(items) // count))
    return [items[i:i + size] for i in range(0, len(items), size)]


def reduce(client, lights, calibration=None, settings=None, output=None, overwrite=False, log=None,
           progress=None):
    """Calibrate, register and stack `lights` (FITS paths) on the cluster of `client`.

    `log` is given a line per step, `progress` (done, total) per band that
    arrives. Returns a dict with the stacked Image, the placements and normalisations,
    and the seconds each step took; writes the stack to `output` when given.
    """
    from distributed import as_completed

    settings = settings or StackSettings()
    paths, cal = _paths(lights), _calibration(calibration)
    info = _qorimg.read_fits_info(paths[0])
    width, height, planes = info["width"], info["height"], info["planes"]
    times = {}
    say = log or (lambda *a: None)

    start = time.perf_counter()
    reference = client.submit(reference_task, paths[0], cal, pure=False)
    workers = max(1, len(client.scheduler_info().get("workers", {})))
    groups = _groups(paths, 2 * workers)
    measured = client.map(measure_task, [reference] * len(groups), groups, calibration=cal, settings=settings, pure=False)
    placements, norms, failed = _measured(paths, [r for group in client.gather(measured) for r in group],
                                          start, times, say)

    start = time.perf_counter()
    rows = max(1, min(settings.band_rows, height))
    tops = list(range(0, height, rows))
    bands = client.map(band_task, [paths] * len(tops), [placements] * len(tops), [norms] * len(tops), tops,
                       [min(rows, height - t) for t in tops], calibration=cal, settings=settings, pure=False)
    stacked = np.empty((planes, height, width), np.float32)
    top_of = {band.key: top for band, top in zip(bands, tops)}
    for done, (future, band) in enumerate(as_completed(bands, with_results=True), 1):
        top = top_of[future.key]
        stacked[:, top:top + band.shape[1]] = band
        if progress:
            progress(done, len(tops))
    times["stack"] = time.perf_counter() - start
    say(f"stack: {times['stack']:.2f} s ({len(tops)} bands)")

    return _finish(stacked, placements, norms, failed, times, output, overwrite, say)


def reduce_local(lights, calibration=None, settings=None, output=None, overwrite=False, log=None):
    """The same reduction in this process with the single-machine workflow.stack."""
    settings = settings or StackSettings()
    paths, cal = _paths(lights), _calibration(calibration)
    times, say = {}, log or (lambda *a: None)
    start = time.perf_counter()
    placements, norms, failed = _measured(paths, measure_task(reference_task(paths[0], cal), paths, cal, settings),
                                          start, times, say)
    start = time.perf_counter()
    result = workflow.stack(paths, placements, calibration=cal, band_rows=settings.band_rows,
                            **settings.stack_kwargs())
    image = result["image"]
    stacked = image.to_array("chw") if image.planes > 1 else image.to_array()[None]
    times["stack"] = time.perf_counter() - start
    say(f"stack: {times['stack']:.2f} s")
    return _finish(stacked, placements, norms, failed, times, output, overwrite, say)


def _measured(paths, results, start, times, say):
    """Placements, normalisations and the frames registration failed on."""
    times["calibrate+register"] = time.perf_counter() - start
    say(f"calibrate+register: {times['calibrate+register']:.2f} s ({len(paths)} frames)")
    return ([r[0] for r in results], [r[3] for r in results],
            [(p, r[2]) for p, r in zip(paths, results) if not r[1]])


def _finish(stacked, placements, norms, failed, times, output, overwrite, say):
    image = _image(stacked)
    if output is not None:
        start = time.perf_counter()
        _qorimg.write_fits(output, image, overwrite=overwrite)
        times["write"] = time.perf_counter() - start
        say(f"write: {times['write']:.2f} s")
    return {"image": image, "placements": placements, "norms": norms, "failed": failed, "times": times}
