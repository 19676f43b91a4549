import numpy as np
import pytest

import qorimg as Q
from conftest import bits, pattern

pytestmark = pytest.mark.skipif(not hasattr(Q, "read_fits"), reason="built without qorimg_io")


@pytest.mark.parametrize("planes", [1, 3])
def test_fits_round_trip_and_band_reads(tmp_path, planes):
    a = pattern(23, 31, planes)
    a[0, 0] = np.nan
    path = tmp_path / "frame.fits"
    Q.write_fits(path, Q.Image.from_array(a), {"EXPTIME": 30.5, "OBJECT": "M 31", "GAIN": 2})
    back = Q.read_fits(path, store="block").to_array()
    assert np.array_equal(bits(back), bits(a))
    chw = a[None] if planes == 1 else np.moveaxis(a, -1, 0)
    assert np.array_equal(bits(Q.read_fits_rows(path, 5, 7)), bits(chw[:, 5:12]))
    info = Q.read_fits_info(path)
    assert (info["width"], info["height"], info["planes"], info["bitpix"]) == (31, 23, planes, -32)
    assert info["exposure"] == 30.5
    assert any(card.startswith("OBJECT  = 'M 31") for card in info["cards"])


def test_uint16_frames_and_png(tmp_path):
    a = np.array([[0, 1000], [65535, 32768]], np.float32)
    Q.write_fits(tmp_path / "raw.fits", Q.Image.from_array(a), format="uint16")
    assert np.array_equal(Q.read_fits(tmp_path / "raw.fits").to_array(), a)
    Q.write_png(tmp_path / "a.png", Q.Image.from_array(a), bits=8, black=0, white=65535)
    assert (tmp_path / "a.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"


@pytest.mark.parametrize("call, error", [
    (lambda d: Q.read_fits(d / "missing.fits"), FileNotFoundError),
    (lambda d: Q.read_fits(d / "text.fits"), OSError),
    (lambda d: [Q.write_fits(d / "y.fits", Q.Image.from_array(np.ones((2, 2)))) for _ in range(2)], FileExistsError),
    (lambda d: Q.write_fits(d / "z.fits", Q.Image.from_array(np.ones((2, 2))), format="int8"), ValueError),
    (lambda d: Q.read_fits_rows(d / "y.fits", 1, 5), ValueError),
    (lambda d: Q.write_png(d / "p.png", Q.Image.from_array(np.ones((2, 2))), bits=12), ValueError),
])
def test_file_errors(tmp_path, call, error):
    Q.write_fits(tmp_path / "y.fits", Q.Image.from_array(np.ones((2, 2))), overwrite=True)
    (tmp_path / "text.fits").write_text("not a FITS file " * 200)
    with pytest.raises(error):
        call(tmp_path)
