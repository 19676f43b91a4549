import numpy as np
import pytest

import qorimg as Q
from conftest import bits, pattern

W = getattr(Q, "workflow", None)
if W is None:
    pytest.skip("built without the workflow library", allow_module_level=True)
SHIFTS = [(0, 0), (1.25, -0.5), (-2.0, 1.0), (0.5, 2.75), (3.0, 0.0)]


@pytest.fixture(scope="module")
def frames():
    return [Q.Image.from_array(pattern(48, 64, seed=s)) for s in range(len(SHIFTS))]


@pytest.mark.parametrize("combine", [W.Combine.SIGMA, W.Combine.MEDIAN, W.Combine.MEAN])
def test_bands_are_the_stack_bit_for_bit(frames, combine):
    whole = W.stack(frames, SHIFTS, combine=combine, band_rows=10)
    assert whole["frames"] == 5 and whole["band_rows"] == 10
    norms = W.measure_normalization(frames)
    got = whole["image"].to_array()
    for top in range(0, 48, 10):
        band = W.stack_band(frames, SHIFTS, norms, top, min(10, 48 - top), combine=combine)
        assert np.array_equal(bits(band[0]), bits(got[top:top + 10]))


def test_fits_paths_stack_as_the_images_do(frames, tmp_path):
    if not hasattr(Q, "write_fits"):
        pytest.skip("built without qorimg_io")
    paths = []
    for i, f in enumerate(frames):
        paths.append(tmp_path / f"f{i}.fits")
        Q.write_fits(paths[-1], f)
    from_files = W.stack(paths, SHIFTS, band_rows=7)["image"].to_array()
    assert np.array_equal(bits(from_files), bits(W.stack(frames, SHIFTS, band_rows=7)["image"].to_array()))


def test_stretch_and_refusals(frames):
    image, black, white = W.stretch(W.stack(frames, SHIFTS)["image"])
    assert black < white and image.width == 64
    with pytest.raises(ValueError):
        W.stack(frames, SHIFTS[:2])
    with pytest.raises(ValueError):
        W.stack_band(frames, SHIFTS, [(0, 1)], 0, 8)
    with pytest.raises(RuntimeError, match="no more"):
        W.stack(frames, SHIFTS, progress=lambda p: (_ for _ in ()).throw(RuntimeError("no more")))


def test_master_and_calibration_follow_their_formulas():
    arrays = [pattern(20, 30, seed=s) for s in range(3)]
    frames = [Q.Image.from_array(a) for a in arrays]
    master = W.build_master(W.MasterKind.DARK, frames, combine=W.Combine.MEDIAN)
    assert master["combine"] == W.Combine.MEDIAN
    assert np.array_equal(master["image"].to_array(), np.median(np.stack(arrays), axis=0))
    flat = Q.Image.from_array(np.full((20, 30), 2.0, np.float32))
    light = W.calibrate(frames[0], 10.0, {"dark": frames[1], "flat": flat, "pedestal": 5.0})
    want = ((arrays[0].astype(np.float64) - arrays[1]) / 2.0 + 5.0).astype(np.float32)
    assert np.array_equal(light.to_array(), want)
    assert np.array_equal(frames[0].to_array(), arrays[0])  # the light itself is left alone
