# SPDX-License-Identifier: Apache-2.0
"""ipg.Image: copies in, zero-copy views out, files, pydicom datasets."""

import gc
import types

import numpy as np
import pytest

import ipg


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.uint16, np.int32, np.int64, np.bool_])
def test_integer_arrays_are_raw_pixels(dtype):
    a = (np.arange(12).reshape(3, 4) * (-1 if np.dtype(dtype).kind == "i" else 1)).astype(dtype)
    image = ipg.Image.from_array(a)
    view = np.asarray(image)
    assert view.dtype == np.int32 and view.shape == (3, 4) == image.shape
    np.testing.assert_array_equal(view, a.astype(np.int64))
    assert (image.min, image.max) == (int(a.min()), int(a.max()))


def test_reals_are_scaled_by_the_precision_and_truncated():
    image = ipg.Image.from_array(np.array([[1.26, -1.26, 0.09, np.nan]]), precision=10)
    assert image.precision == 10
    np.testing.assert_array_equal(np.asarray(image), [[12, -12, 0, 0]])


@pytest.mark.parametrize("array, error", [
    (np.array([[2**31]]), ValueError),            # beyond a 32-bit pixel
    (np.zeros((2, 2, 2)), ValueError),            # not 2-D
    (np.zeros((0, 3)), ValueError),               # no pixel
    (np.zeros((1, 65536), np.int8), ValueError),  # wider than the library allows
    (np.zeros((2, 2), complex), TypeError),
])
def test_bad_arrays_are_refused(array, error):
    with pytest.raises(error):
        ipg.Image.from_array(array)


def test_the_view_shares_the_pixels_and_keeps_the_image_alive():
    image = ipg.Image.from_array(np.zeros((5, 7), np.int32))
    view = np.asarray(image)
    view[4, 6] = 9
    assert np.asarray(image)[4, 6] == 9 and np.shares_memory(view, np.asarray(image))
    assert image.max == 0  # stored extremes stay until measured again
    image.update_extremes()
    assert image.max == 9
    del image
    gc.collect()
    assert view.sum() == 9


def test_files_round_trip(tmp_path, phantom):
    image = ipg.Image.from_array(np.array([[-5, 0], [70000, 3]]), precision=10)
    image.spacing = (0.5, 0.25)
    image.write(tmp_path / "a.dcm")
    back = ipg.read(str(tmp_path / "a.dcm"))
    np.testing.assert_array_equal(np.asarray(back), np.asarray(image))
    assert (back.precision, back.spacing, back.rgb) == (10, (0.5, 0.25), False)
    us = phantom[0]
    assert (us.spacing, us.modality, us.bits_stored) == ((0.2, 0.2), "US", 8)
    us.to_png(str(tmp_path / "p.png"))
    assert (tmp_path / "p.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"


def test_unreadable_files_raise_os_error(tmp_path):
    (tmp_path / "text.dcm").write_text("not a DICOM file")
    for path in (tmp_path / "missing.dcm", tmp_path / "text.dcm"):
        with pytest.raises(OSError, match="cannot read"):
            ipg.read(str(path))
    with pytest.raises(OSError, match="cannot write"):
        ipg.Image.from_array(np.zeros((2, 2))).write(str(tmp_path / "no" / "such" / "dir.dcm"))


def dataset(pixels, **attributes):
    """A stand-in for pydicom's Dataset: the attributes from_pydicom reads."""
    pixels = np.asarray(pixels)
    rows, cols = pixels.shape[-3:-1] if attributes.get("PhotometricInterpretation") == "RGB" else pixels.shape[-2:]
    return types.SimpleNamespace(pixel_array=pixels, Rows=rows, Columns=cols, **attributes)


def test_from_pydicom():
    mono = ipg.from_pydicom(dataset([[1, 2], [3, 4]], PhotometricInterpretation="MONOCHROME1", BitsStored=12,
                                    PixelSpacing=[0.3, 0.4], RescaleSlope=0.01, Modality="CT"))
    np.testing.assert_array_equal(np.asarray(mono), [[1, 2], [3, 4]])
    assert (mono.photometric, mono.bits_stored, mono.spacing, mono.precision, mono.modality) == (
        0, 12, (0.3, 0.4), 100, "CT")
    rgb = ipg.from_pydicom(dataset(np.array([[[255, 0, 0], [10, 20, 30]]], np.uint8), PhotometricInterpretation="RGB"))
    np.testing.assert_array_equal(np.asarray(rgb), [[76, 18]])  # 0.299 R + 0.587 G + 0.114 B, rounded
    assert rgb.rgb and rgb.photometric == 1
    frames = ipg.from_pydicom(dataset(np.arange(8).reshape(2, 2, 2), NumberOfFrames=2), frame=1)
    np.testing.assert_array_equal(np.asarray(frames), [[4, 5], [6, 7]])
    with pytest.raises(ValueError):
        ipg.from_pydicom(dataset(np.arange(8).reshape(2, 2, 2), NumberOfFrames=2), frame=2)
    with pytest.raises(ValueError):
        ipg.from_pydicom(types.SimpleNamespace(pixel_array=np.zeros((2, 3)), Rows=3, Columns=2))
