// SPDX-License-Identifier: Apache-2.0
#pragma once

// Working memory the operators keep between calls. The last large block an
// operator freed (up to 128 MB: a despeckling filter's image of doubles, a
// labelling's residents) is kept for the next one of about its size, which
// then needs no fresh pages, and the Fourier operators keep their buffer on
// the calling thread for the next transform of the same size, as the speckle
// filters keep their lists of local ratios (a few MB at most). A host that is
// done with the operators for a while, or a program that writes its result
// and ends, frees them all at once: the next call then allocates afresh.
void Ipg_ReleaseCachedMemory();
