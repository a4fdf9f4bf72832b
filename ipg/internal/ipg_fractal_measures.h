// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_scaling_grid.h"

#include <string>
#include <vector>

// Fractal and multifractal measures on a scaling grid (ipg_scaling_grid.h).
// Each reports progress, one step per box side, stops when the host cancels
// and, on failure, shows its message naming `where` and returns false.

// N(s) against the box side s, and the fitted line.
struct Ipg_ScalingFit {
  std::vector<double> Sizes;
  std::vector<double> Counts;
  double Dimension = 0.0;
  double R2 = 0.0;
};

// Box counting (Mandelbrot, "The Fractal Geometry of Nature", 1982; Falconer,
// "Fractal Geometry", 1990, ch. 3): N(s) = number of s x s boxes holding a
// seen non-zero pixel; the dimension is the slope of ln N(s) against ln(1/s).
// False when no seen pixel is non-zero.
bool Ipg_BoxCountingDimension(const Ipg_ScalingGrid& grid, const std::string& where, Ipg_ScalingFit& fit);

// Differential box counting (Sarkar & Chaudhuri, "An efficient differential
// box-counting approach to compute fractal dimension of image", IEEE Trans.
// SMC 24(1), 1994), with two later corrections of its underestimate:
// grey levels g of the seen pixels, G = gmax - gmin + 1 levels, M = the image's
// smaller side. A grid cell of side s is topped by boxes of height h = G s / M.
// - The cell reads s + 1 pixels a side, sharing its last row and column with
//   its neighbours, so that the surface between two cells is covered (Yan, Sun,
//   Cai & Hu, "An improved box-counting method to estimate fractal dimension
//   of images", J. Appl. Anal. Comput. 6(4), 2016).
// - It needs n = ceil((max - min + 1) / h) boxes over its seen pixels, 1 when
//   they are all equal (Li, Du & Sun, "An improved box-counting method for
//   image fractal dimension estimation", Pattern Recognition 42(11), 2009);
//   cells without one are left out.
// N(s) = the sum of n over the box sides of the grid (2 up to the largest
// side asked for), and the dimension is the slope of ln N(s) against ln(1/s).
// A flat image gives 2.
bool Ipg_DifferentialBoxCountingDimension(const Ipg_ScalingGrid& grid, const std::string& where,
                                          Ipg_ScalingFit& fit);

// Generalised dimensions and f(alpha) by the moment method (Halsey et al.,
// Phys. Rev. A 33, 1986; Chhabra & Jensen, "Direct determination of the f(alpha)
// singularity spectrum", Phys. Rev. Lett. 62(12), 1989). The measure of a box is
// its share of the total grey level of the seen pixels (negative levels count
// as 0). For each q, over the boxes of positive measure mu_i at side s:
//   tau(q): slope of ln sum mu_i^q against ln s, D(q) = tau(q) / (q - 1),
//           D(1) the slope of sum mu_i ln mu_i (information dimension);
//   with the weights w_i = mu_i^q / sum mu_j^q,
//   alpha(q): slope of sum w_i ln mu_i, f(q): slope of sum w_i ln w_i.
struct Ipg_MultifractalSpectrum {
  std::vector<double> Q;
  std::vector<double> Dq;
  std::vector<double> Alpha;
  std::vector<double> F;
};
bool Ipg_MomentSpectrum(const Ipg_ScalingGrid& grid, const std::vector<double>& qs, const std::string& where,
                        Ipg_MultifractalSpectrum& spectrum);

// Spectrum of pointwise exponents by the histogram of their values (Lévy Véhel
// & Mignot, "Multifractal segmentation of images", Fractals 2(3), 1994; the
// coarse-grained Hausdorff spectrum): the range of the valid exponents is cut
// into `bins` equal classes, and f of a class is the box-counting dimension of
// the set of pixels whose exponent falls in it, on the grid's box sides.
// Alpha holds the centres of the non-empty classes, F their dimensions.
// exponents and valid are laid on the grid (grid.Cols x grid.Rows).
struct Ipg_HolderSpectrum {
  std::vector<double> Alpha;
  std::vector<double> F;
};
bool Ipg_IsoHolderSpectrum(const Ipg_ScalingGrid& grid, const std::vector<double>& exponents,
                           const std::vector<unsigned char>& valid, int bins, const std::string& where,
                           Ipg_HolderSpectrum& spectrum);
