# SPDX-License-Identifier: Apache-2.0
"""A few operators as plain functions: an array (or ipg.Image) in, an array out.

Outputs are numpy views of the operator's output image, in the input's units:
the output mode is 302 (re-measure only), so nothing is re-scaled to the bit
depth. Messages raise OperatorError unless a handler is set.
"""

import numpy as np

from . import _ipg
from ._operator import ROI_VALUE, CLASSES, _deliver, _text, as_image, roi_image

# Output mode that only re-measures the output's extremes.
_KEEP_VALUES = 302


def _apply(class_name, image, code, roi=None, **parameters):
    op = CLASSES[class_name](**parameters)
    op.code = code
    op.mode = _KEEP_VALUES
    out = op.apply(image, roi=roi)
    return op, out


def lee(a, iterations=1):
    """Lee's speckle filter (IPG_FILTER_PROCESSING code 513), `iterations` passes."""
    return np.asarray(_apply("IPG_FILTER_PROCESSING", a, 513, NbIter=iterations)[1])


def median(a, size=3):
    """Median of the size x size window at every pixel at least size // 2 from
    the edge; the frame it cannot reach is 0."""
    outcome = _ipg.median(as_image(a), size)
    _deliver("IPG_FILTER_PROCESSING", outcome)
    return np.asarray(outcome["images"]["out"])


def otsu(a):
    """Otsu's binarisation (IPG_GENERIC_PROCESSING code 404) as a boolean mask.

    The library's Otsu indexes pixels as a square image would, so only square
    images give the usual threshold; an ipg.Image given here is copied first,
    as the operator re-scales its input in place.
    """
    image = a.copy() if isinstance(a, _ipg.Image) else as_image(a)
    return np.asarray(_apply("IPG_GENERIC_PROCESSING", image, 404)[1]) != 0


def label(a, max_labels=2000):
    """8-connected components of the non-zero pixels (IPG_CONNEXITY_PROCESSING
    code 800): 0 for the background, k for the pixels of the k-th component in
    the library's order. max_labels bounds the provisional labels (NbCompMax)."""
    mask = np.where(np.asarray(a) != 0, ROI_VALUE, 0).astype(np.int32)
    values = [("Value", _text(ROI_VALUE)), ("NbCompMax", _text(max_labels))]
    _ipg.check_settings("IPG_CONNEXITY_PROCESSING", values)
    # The residents come as arrays: as lists, millions of pixels would take
    # seconds to build and to read back.
    outcome = _ipg.run("IPG_CONNEXITY_PROCESSING", as_image(mask), tools=800, mode=_KEEP_VALUES, values=values,
                       arrays=True)
    _deliver("IPG_CONNEXITY_PROCESSING", outcome)
    labels = np.zeros(mask.shape, dtype=np.int32)
    for number, component in enumerate(outcome["results"].get("Components", []), start=1):
        residents = np.asarray(component["residents"], dtype=np.intp).reshape(-1, 2)
        labels[residents[:, 1], residents[:, 0]] = number
    return labels


def stats(a, roi=None):
    """Mean, Min, Max, Variance (population), StdDev, NbPixels and SNR of the
    pixels up to 2**24, within roi when given (IPG_STATISTIC1 code 6)."""
    op, _ = _apply("IPG_STATISTIC1", a, 6, roi=roi_image(roi))
    return {k: v for k, v in op.results.items() if k not in ("class", "tools", "applied", "Result")}
