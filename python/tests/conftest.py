import os
import subprocess

import numpy as np
import pytest

import qorimg


def pattern(h, w, planes=1, seed=0):
    """A deterministic frame with structure and noise, values within 0..1000."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:h, 0:w].astype(np.float32)
    base = 400 + 250 * np.sin(x / 7.0) * np.cos(y / 5.0) + rng.normal(0, 20, (h, w))
    if planes == 1:
        return base.astype(np.float32)
    return np.stack([base + 30 * p for p in range(planes)], axis=-1).astype(np.float32)


@pytest.fixture(params=["whole-plane", "block"])
def store(request):
    return request.param


@pytest.fixture
def reference(tmp_path):
    """Runs the C++ reference helper on arrays: returns its output array (or stdout)."""
    helper = os.environ.get("QORIMG_PY_HELPER")
    if not helper:
        pytest.skip("QORIMG_PY_HELPER is not set (run the tests through CTest)")

    def run(op, store, arrays, param):
        h, w = arrays[0].shape[:2]
        planes = 1 if arrays[0].ndim == 2 else arrays[0].shape[2]
        paths = []
        for i, a in enumerate(arrays):
            path = tmp_path / f"in{i}.f32"
            chw = a if a.ndim == 2 else np.moveaxis(a, -1, 0)
            np.ascontiguousarray(chw, dtype=np.float32).tofile(path)
            paths.append(str(path))
        out = tmp_path / "out.f32"
        done = subprocess.run([helper, op, store, str(w), str(h), str(planes), repr(param), str(out), *paths],
                              check=True, capture_output=True, text=True)
        if op == "poc":
            return [float(v) for v in done.stdout.split()]
        ow, oh, op_planes = (int(v) for v in done.stdout.split())
        data = np.fromfile(out, dtype=np.float32).reshape(op_planes, oh, ow)
        return data[0] if op_planes == 1 else np.moveaxis(data, 0, -1)

    return run


def image(a, store="whole-plane"):
    return qorimg.Image.from_array(a, store=store, levels=(0.0, 1000.0))


def bits(a):
    """The array's bit patterns, so that NaN compares equal to NaN."""
    return np.ascontiguousarray(a, dtype=np.float32).view(np.uint32)
