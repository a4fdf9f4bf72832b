# SPDX-License-Identifier: Apache-2.0
"""IPG: image-processing operators for 2-D medical images.

    import ipg, numpy as np
    image = ipg.read("us.dcm")                 # ipg.Image; np.asarray(image) is a view
    smooth = ipg.lee(image, iterations=2)      # functions: arrays in, arrays out
    op = ipg.IPG_GENERIC_PROCESSING(SeuilMin=120)
    mask = op.apply(smooth)                    # every class of the library, by its table
    print(ipg.stats(image, roi=np.asarray(mask)))

Operator messages raise OperatorError, or go to set_message_handler(fn);
progress goes to set_progress(fn); set_num_threads(n) sets the operators'
threads, and release_cached_memory() frees the working memory they keep for
their next call. Calls release the GIL while the library works. ipg.batch.run runs a
saved pipeline over many files, as `ipg batch` does, here or on a dask cluster.
"""

from ._ipg import (Image, get_num_threads, phantom, read, release_cached_memory, set_num_threads,
                   set_progress)
from ._functional import label, lee, median, otsu, stats
from ._operator import (ROI_VALUE, CLASSES, Operator, OperatorError, classes, roi_image,
                        set_message_handler)
from ._pydicom import from_pydicom
from . import batch

globals().update(CLASSES)  # ipg.IPG_FILTER_PROCESSING and every other class

__version__ = "0.1.0"
__all__ = ["Image", "read", "phantom", "from_pydicom", "Operator", "OperatorError", "classes",
           "set_message_handler", "set_progress", "set_num_threads", "get_num_threads",
           "release_cached_memory", "ROI_VALUE",
           "roi_image", "batch", "lee", "median", "otsu", "label", "stats"] + sorted(CLASSES)
