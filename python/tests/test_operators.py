import time

import numpy as np
import pytest

import qorimg
from conftest import bits, image, pattern

Q = qorimg


# ---- The module's results are the library's, bit for bit -------------------

CPP_CASES = [
    ("calculate", 1.75, lambda imgs, p: Q.calculate(imgs[0], p, Q.CalcMode.MULTIPLY), 3, 1),
    ("gaussian", 1.6, lambda imgs, p: Q.gaussian(imgs[0], p), 3, 1),
    ("rotate", 17.0, lambda imgs, p: Q.rotate(imgs[0], p, method=Q.Interp.BICUBIC), 1, 1),
    ("stack", 7, lambda imgs, p: Q.stack(imgs, method=Q.Combine.MEDIAN, band_rows=p), 1, 4),
]


@pytest.mark.parametrize("op, param, call, planes, frames", CPP_CASES, ids=[c[0] for c in CPP_CASES])
def test_results_equal_the_cpp_calls(reference, store, op, param, call, planes, frames):
    arrays = [pattern(41, 53, planes, seed=i) for i in range(frames)]
    got = call([image(a, store) for a in arrays], param).to_array()
    want = reference(op, store, arrays, param)
    assert got.shape == want.shape
    assert np.array_equal(bits(got), bits(want))


def test_phase_correlation_equals_the_cpp_call(reference):
    a = pattern(64, 64)
    b = np.roll(a, (3, -5), axis=(0, 1))
    got = Q.phase_correlation(image(a), image(b), sigma=1.0)
    assert [got["dx"], got["dy"], got["peak"]] == reference("poc", "whole-plane", [a, b], 1.0)
    assert abs(got["dx"] + 5) < 0.25 and abs(got["dy"] - 3) < 0.25


@pytest.mark.parametrize("mode, clip, numpy_op", [
    (Q.CalcMode.ADD, False, lambda a, v: a + v),
    (Q.CalcMode.SUBTRACT, False, lambda a, v: a - v),
    (Q.CalcMode.SUBTRACT, True, lambda a, v: np.maximum(a - v, np.float32(0))),
    (Q.CalcMode.MULTIPLY, False, lambda a, v: a * v),
])
def test_calculate_is_the_float_loop(store, mode, clip, numpy_op):
    a = pattern(19, 23, 3)
    v = np.float32(437.3)
    got = Q.calculate(image(a, store), float(v), mode, clip=clip).to_array()
    assert np.array_equal(got, numpy_op(a, v))


def test_calculate_rectangle_leaves_the_rest(store):
    a = pattern(10, 12)
    got = Q.calculate(image(a, store), 100.0, rect=(2, 3, 8, 7)).to_array()
    want = a.copy()
    want[3:7, 2:8] += np.float32(100)
    assert np.array_equal(got, want)


# ---- Each family once, against what numpy says it must give ---------------

def roundtrip_fft(img):
    re, im = Q.fft(img)
    back, _ = Q.fft(re, im, inverse=True)
    return back.to_array()[:img.height, :img.width]


def test_operator_families(store):
    a = pattern(32, 48)
    rgb = pattern(32, 48, 3)
    img, col = image(a, store), image(rgb, store)
    frames = [image(pattern(32, 48, seed=s), store) for s in range(3)]
    stacked = np.median(np.stack([f.to_array() for f in frames]), axis=0)
    checks = {
        "flip": (Q.flip(img, Q.Direction.VERTICAL).to_array(), a[::-1]),
        "flip_h": (Q.flip(img, Q.Direction.HORIZONTAL).to_array(), a[:, ::-1]),
        "scroll": (Q.scroll(img, 5).to_array(), np.roll(a, 5, axis=1)),
        "crop": (Q.crop(img, (3, 4, 20, 30)).to_array(), a[4:30, 3:20]),
        "rotate180": (Q.rotate180(img).to_array(), a[::-1, ::-1]),
        "rotate90": (Q.rotate90(img).to_array(), np.rot90(a)),
        "binning": (Q.soft_binning(img, 2, 2).to_array(), a.reshape(16, 2, 24, 2).sum(axis=(1, 3))),
        "dark": (Q.subtract_dark(col, img).to_array(), np.maximum(rgb - a[..., None], 0)),
        "stack": (Q.stack(frames, band_rows=5).to_array(), stacked),
        "composite_add": (Q.composite(img, img, Q.CompositeMode.ADD).to_array(), a + a),
        "threshold": (Q.threshold(img, Q.Threshold.GREATER, 0, 500.0, 0.0).to_array(), np.where(a > 500, 0, a)),
    }
    for name, (got, want) in checks.items():
        assert got.shape == want.shape, name
        assert np.allclose(got, want, rtol=1e-6, atol=1e-3), name
    assert np.allclose(roundtrip_fft(img), a, atol=0.05)
    # Stacker band by band equals the one call.
    s = Q.Stacker(frames[0], frames=3, band_rows=9)
    for top in range(0, 32, 9):
        for i, f in enumerate(frames):
            s.store(i, f, top, min(32, top + 9))
        s.combine(top, min(32, top + 9))
    assert np.array_equal(s.result.to_array(), Q.stack(frames, band_rows=9).to_array())


def test_operators_keep_their_inputs_and_shapes(store):
    rgb = pattern(24, 32, 3)
    col = image(rgb, store)
    mosaic = image(pattern(24, 32), store)
    shapes = {
        "invert": Q.invert(col), "bright": Q.bright(col, 10.0, [0, 20, 40]), "cut_off": Q.cut_off(col, 0.0, 1.0),
        "curve": Q.correct_curve(col, 2.0, 0.0, 255.0), "reduce": Q.reduce_tone(col, 8), "equalize": Q.equalize(col),
        "tone_curve": Q.tone_curve(col, np.linspace(0, 1, 256) ** 0.5), "normalize": Q.normalize(col, mean=500.0),
        "auto_level": Q.auto_level(col), "median_window": Q.median_window(col), "laplacian": Q.laplacian(col),
        "unsharp": Q.unsharp_mask(col, 1.0), "mean": Q.mean_filter(col, 2.0), "median": Q.median_filter(col, 2.0),
        "gated": Q.gaussian(col, [1.0, 2.0, 3.0], dark=(20.0, 10.0)), "wiener": Q.wiener(col, 1.5, 0.01),
        "lucy": Q.lucy(col, 1.2, iterations=3), "wavelet": Q.wavelet(col, 4, 2, hl=[1.5, 1], lh=[1.5, 1], hh=[1.5, 1]),
        "develop": Q.digital_development(col, 2.0, a=10.0, mul=200.0),
        "composite": Q.composite(col, col, Q.CompositeMode.WEIGHT, dx=1.5, dy=-0.5, rotation=3.0),
        "resample": Q.resample(col, 16, 12), "canvas": Q.resize_canvas(col, 40, 30, anchor=4),
        "bayer": Q.develop_bayer(mosaic, Q.BayerPattern.RGGB), "false_color": Q.false_color(mosaic, 0.0, 1000.0),
    }
    sizes = {"resample": (16, 12, 3), "canvas": (40, 30, 3), "false_color": (32, 24, 3)}
    for name, out in shapes.items():
        assert (out.width, out.height, out.planes) == sizes.get(name, (32, 24, 3)), name
        assert np.isfinite(out.to_array()).any(), name
    assert np.array_equal(col.to_array(), rgb)  # no operator wrote its input
    assert Q.auto_level(col, Q.LevelMethod.MEAN).levels != col.levels


@pytest.mark.parametrize("call", [
    lambda i: Q.calculate(None, 1.0),
    lambda i: Q.crop(i, (5, 5, 100, 100)),
    lambda i: Q.threshold(i, Q.Threshold.EQUAL, 3, 1.0, 0.0),
    lambda i: i.mean(3),
    lambda i: Q.unsharp_mask(i, 1.0, plane=5),
    lambda i: Q.stack([]),
    lambda i: Q.stack([i, i], [(0, 0)]),
    lambda i: Q.Stacker(i, 2, 4).store(0, i, 0, 9),
    lambda i: Q.Stacker(i, 2, 4).store(2, i, 0, 4),
    lambda i: Q.wavelet(i, 4, 3, hl=[1], lh=[1], hh=[1]),
    lambda i: Q.bright(i, [1, 2, 3, 4]),
    lambda i: i.histogram(-1, 0, 1),
    lambda i: Q.subtract_dark(i, Q.Image.from_array(np.zeros((4, 4)))),
    lambda i: Q.fft(i, rect=(100, 100, 200, 200)),
])
def test_bad_arguments_raise_value_error(call):
    with pytest.raises(ValueError):
        call(image(pattern(16, 16)))


def test_progress_is_throttled_and_reaches_the_callback():
    img = image(pattern(256, 256), "block")
    seen = []
    Q.lucy(img, 1.5, iterations=40, progress=lambda p: seen.append((time.monotonic(), p)))
    assert seen and all(0 <= p <= 100 for _, p in seen)
    gaps = np.diff([t for t, _ in seen])
    assert (gaps >= 0.099).all()
    with pytest.raises(TypeError):
        Q.invert(img, progress=42)
