// SPDX-License-Identifier: Apache-2.0
#pragma once

// The phase of a Fourier coefficient from its parts as the spectra store them
// (tenths): the one-argument arctangent of imaginary / real, 0 where the real
// part is 0, in tenths of a degree (degrees) or of a radian, truncated toward
// zero, as computed in extended precision. Double precision agrees with that
// to within about 1e-12 of a tenth, so it gives the result wherever that lies
// farther than 1e-6 from an integer; nearer, where truncation could go either
// way, the extended computation gives it. The extended arctangent alone is
// several times slower than the whole transform of a large image.
int Ipg_PhaseTenths(int realTenths, int imaginaryTenths, bool degrees);
