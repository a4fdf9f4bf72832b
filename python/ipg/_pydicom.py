# SPDX-License-Identifier: Apache-2.0
"""ipg.Image from a pydicom Dataset; pydicom itself is only needed for palettes."""

import numpy as np

from . import _ipg

# Photometric codes of the library.
_MONOCHROME1, _MONOCHROME2 = 0, 1


def _luminance(pixels, photometric, ds):
    """Colour pixels (rows x columns x samples) as the file reader sees them."""
    if photometric.startswith("YBR"):
        return pixels[..., 0].astype(np.int64)
    if photometric == "PALETTE COLOR":
        from pydicom.pixel_data_handlers.util import apply_color_lut  # pydicom only here
        pixels = apply_color_lut(pixels, ds)
    rgb = pixels.astype(np.float64)
    # ITU-R BT.601 luminance, rounded half away from zero.
    return np.floor(0.299 * rgb[..., 0] + 0.587 * rgb[..., 1] + 0.114 * rgb[..., 2] + 0.5).astype(np.int64)


def _precision(ds):
    """A Rescale Slope of exactly 1/p (p from 2 to 32767) is precision p."""
    slope = float(getattr(ds, "RescaleSlope", 1.0) or 1.0)
    if slope <= 0 or slope == 1.0:
        return 1
    p = round(1.0 / slope)
    return p if 2 <= p <= 32767 and 1.0 / p == slope else 1


def from_pydicom(ds, frame=0):
    """One frame of a pydicom Dataset as an ipg.Image.

    Reads pixel_array, Rows, Columns, NumberOfFrames, PhotometricInterpretation,
    BitsStored, PixelSpacing, RescaleSlope and Modality. Colour frames become
    their luminance with rgb set, as ipg.read does.
    """
    pixels = np.asarray(ds.pixel_array)
    frames = int(getattr(ds, "NumberOfFrames", 1) or 1)
    photometric = str(getattr(ds, "PhotometricInterpretation", "MONOCHROME2")).strip().upper()
    colour = not photometric.startswith("MONOCHROME")
    if frames > 1:
        if not 0 <= frame < frames:
            raise ValueError(f"frame {frame} of a file of {frames} frames")
        pixels = pixels[frame]
    elif frame != 0:
        raise ValueError(f"frame {frame} of a single-frame file")
    if colour:
        pixels = _luminance(pixels, photometric, ds)
    if pixels.shape != (int(ds.Rows), int(ds.Columns)):
        raise ValueError(f"pixel_array of shape {pixels.shape} for {ds.Rows} rows and {ds.Columns} columns")
    image = _ipg.Image.from_array(pixels, precision=_precision(ds))
    image.photometric = _MONOCHROME1 if photometric == "MONOCHROME1" else _MONOCHROME2
    image.rgb = colour
    image.bits_stored = int(getattr(ds, "BitsStored", image.bits_stored))
    spacing = getattr(ds, "PixelSpacing", None)
    if spacing is not None and len(spacing) == 2:
        image.spacing = (float(spacing[0]), float(spacing[1]))
    image.modality = str(getattr(ds, "Modality", image.modality))
    return image
