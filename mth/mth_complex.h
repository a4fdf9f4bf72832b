// SPDX-License-Identifier: Apache-2.0
#pragma once

// A complex number as the Fourier buffers hold it: real and imaginary parts.
struct MTH_COMPLEX {
  double re = 0.0;
  double im = 0.0;
};
