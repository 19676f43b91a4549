import gc
import sys
import tracemalloc

import numpy as np
import pytest

import qorimg
from conftest import image, pattern

LAYOUTS = {
    "hw": lambda a: a[..., 0],
    "hwc": lambda a: a,
    "chw": lambda a: np.moveaxis(a, -1, 0),
}


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.uint16, np.int32, np.int64, np.float16, np.float64, bool])
@pytest.mark.parametrize("layout", sorted(LAYOUTS))
def test_from_array_converts_every_numeric_dtype_and_layout(dtype, layout, store):
    rng = np.random.default_rng(1)
    raw = rng.integers(0, 200, size=(5, 7, 3)).astype(dtype)
    a = LAYOUTS[layout](raw)
    img = qorimg.Image.from_array(a, store=store)
    planes = 1 if layout == "hw" else 3
    assert (img.width, img.height, img.planes, img.store) == (7, 5, planes, store)
    want = raw[..., 0] if planes == 1 else raw
    assert np.array_equal(img.to_array(), want.astype(np.float32))
    if planes == 3:
        assert np.array_equal(img.to_array("chw"), np.moveaxis(want, -1, 0).astype(np.float32))
    # Levels default to the data's range, per plane.
    lo, hi = img.levels[0]
    assert (lo, hi) == (float(want[..., 0].min() if planes == 3 else want.min()),
                        float(want[..., 0].max() if planes == 3 else want.max()))


def test_non_contiguous_input_and_levels():
    a = pattern(20, 30)[::-2, ::3]  # strided, reversed view
    img = qorimg.Image.from_array(a, levels=[(1.0, 2.0)])
    assert np.array_equal(img.to_array(), a)
    packed = np.zeros(12, dtype=[("tag", "u1"), ("v", "<f4")])  # samples 5 bytes apart
    packed["v"] = np.arange(12)
    assert np.array_equal(qorimg.Image.from_array(packed["v"].reshape(3, 4)).to_array(),
                          np.arange(12, dtype=np.float32).reshape(3, 4))
    assert img.levels == [(1.0, 2.0)]
    img.levels = (5.0, 6.0)
    assert img.levels == [(5.0, 6.0)]


@pytest.mark.parametrize("make, error", [
    (lambda: qorimg.Image.from_array(np.zeros((4, 4), np.complex64)), TypeError),
    (lambda: qorimg.Image.from_array(np.zeros((4, 4, 4))), ValueError),
    (lambda: qorimg.Image.from_array(np.zeros((0, 4))), ValueError),
    (lambda: qorimg.Image.from_array(np.zeros(4)), ValueError),
    (lambda: qorimg.Image.from_array(np.zeros((4, 4)), store="disk"), ValueError),
    (lambda: qorimg.Image.from_array(np.zeros((4, 4)), levels=[(0, 1), (0, 1)]), ValueError),
    (lambda: qorimg.Image.from_array(np.zeros((64, 64)), memory=1024), MemoryError),
    (lambda: qorimg.Image.from_array(np.zeros((4, 4))).to_array("whc"), ValueError),
])
def test_from_array_refusals(make, error):
    with pytest.raises(error):
        make()


def test_plane_view_is_zero_copy_and_keeps_the_image_alive():
    a = pattern(6, 9, 3)
    img = qorimg.Image.from_array(a)
    view = img.plane(1)
    assert view.dtype == np.float32 and view.shape == (6, 9) and not view.flags.owndata
    view[2, 3] = -7.5
    assert img.to_array()[2, 3, 1] == -7.5
    # The engine sees the write too.
    assert img.min_max(1)[0] == -7.5
    del img
    gc.collect()
    assert view[2, 3] == -7.5 and view.base is not None
    assert view.base.planes == 3  # the view holds the image
    with pytest.raises(ValueError):
        view.base.plane(3)


def test_plane_view_refused_on_a_block_store():
    img = qorimg.Image.from_array(pattern(8, 8), store="block")
    with pytest.raises(ValueError, match="block"):
        img.plane(0)


def test_statistics_against_numpy(store):
    a = pattern(33, 47, 3)
    img = image(a, store)
    lo, hi = img.min_max(2)
    assert (lo, hi) == (a[..., 2].min(), a[..., 2].max())
    # Two bins per unit: no dither, so both routes count as numpy does.
    counts, _ = img.histogram(2000, 0.0, 1000.0, plane=0)
    assert np.array_equal(counts, np.histogram(a[..., 0], 2000, (0.0, 1000.0))[0])
    value, x, y = img.max_pixel(1)
    assert value == a[..., 1].max()
    cx, cy = img.centroid()
    assert 0 < cx < 47 and 0 < cy < 33


def test_thousand_calls_leak_nothing():
    a = pattern(32, 32)
    img = qorimg.Image.from_array(a)
    start_refs = sys.getrefcount(a), sys.getrefcount(img)

    def rss_kib():
        with open("/proc/self/status") as f:
            return next(int(line.split()[1]) for line in f if line.startswith("VmRSS"))

    def round_of_calls():
        for _ in range(1000):
            out = qorimg.calculate(img, 2.0, qorimg.CalcMode.MULTIPLY)
            out.to_array()
            out.plane(0)
            qorimg.Image.from_array(a)
            qorimg.gaussian(img, 1.0)

    round_of_calls()  # warm-up: pools, caches
    gc.collect()
    rss_before = rss_kib()
    tracemalloc.start()
    snapshot = tracemalloc.take_snapshot()
    round_of_calls()
    gc.collect()
    grown = sum(s.size_diff for s in tracemalloc.take_snapshot().compare_to(snapshot, "filename"))
    tracemalloc.stop()
    assert (sys.getrefcount(a), sys.getrefcount(img)) == start_refs
    assert grown < 64 * 1024, grown
    # 1,000 rounds of four 4 KiB images each: a leak of one would be > 15 MiB.
    assert rss_kib() - rss_before < 8 * 1024
