# SPDX-License-Identifier: Apache-2.0
"""The functional layer against values computed here from their definitions."""

import numpy as np
import pytest
from numpy.lib.stride_tricks import sliding_window_view

import ipg


def test_median_is_the_window_median_inside_and_zero_on_the_frame(phantom):
    pixels = np.asarray(phantom[0])[:40, :50]
    out = ipg.median(pixels, 5)
    expected = np.zeros_like(out)
    expected[2:-2, 2:-2] = np.median(sliding_window_view(pixels, (5, 5)), axis=(2, 3))
    np.testing.assert_array_equal(out, expected)
    with pytest.raises(ValueError):
        ipg.median(pixels, 4)


def test_lee_keeps_the_frame_and_flat_patches_and_zero_passes_copy():
    rng = np.random.default_rng(7)
    a = rng.integers(0, 200, (20, 30))
    a[:10, :10] = 80  # the filter works in place, rows then columns
    out = ipg.lee(a, iterations=1)
    frame = np.ones(a.shape, bool)
    frame[1:-1, 1:-1] = False
    np.testing.assert_array_equal(out[frame], a[frame])
    assert (out[1:5, 1:5] == 80).all()  # local variance 0: the mean, which is the centre
    assert not np.array_equal(out, a)
    np.testing.assert_array_equal(ipg.lee(a, iterations=0), a)


def test_otsu_splits_two_populations_and_leaves_an_image_argument_alone():
    a = np.zeros((32, 32), int)  # the cut is a bin index, taken as a grey level
    a[8:20, 4:30] = 200
    np.testing.assert_array_equal(ipg.otsu(a), a == 200)
    image = ipg.Image.from_array(a * 20)  # above 256: the operator divides its input
    np.testing.assert_array_equal(ipg.otsu(image), a == 200)
    np.testing.assert_array_equal(np.asarray(image), a * 20)


def test_label_joins_diagonal_neighbours():
    mask = np.zeros((6, 8), bool)
    mask[0, 0] = mask[1, 1] = mask[2, 2] = True  # one component through corners
    mask[4:6, 5:8] = True
    labels = ipg.label(mask)
    assert sorted(np.unique(labels)) == [0, 1, 2]
    assert len(np.unique(labels[[0, 1, 2], [0, 1, 2]])) == 1
    assert (labels[4:6, 5:8] == labels[4, 5]).all() and labels[4, 5] != labels[0, 0]
    assert (labels[~mask] == 0).all()
    with pytest.raises(ipg.OperatorError, match="Nombre d'étiquettes max dépassés"):
        ipg.label(np.indices((20, 20)).sum(axis=0) % 4 == 0, max_labels=10)


def test_stats_within_a_roi(phantom):
    image, mask = phantom
    pixels = np.asarray(image)
    inside = pixels[mask == 1].astype(float)
    s = ipg.stats(image, roi=mask == 1)
    assert (s["NbPixels"], s["Min"], s["Max"]) == (inside.size, inside.min(), inside.max())
    assert s["Mean"] == pytest.approx(inside.mean()) and s["Variance"] == pytest.approx(inside.var())
    assert s["StdDev"] == pytest.approx(inside.std())
    with pytest.raises(ipg.OperatorError, match="problème : variance négative"):
        ipg.stats(np.full((4, 4), 3))
