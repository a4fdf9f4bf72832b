// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_kernel_images.h"

#include <vector>

struct Ipg_SpeckleBuffers; // ipg_speckle_windows.h: buffers a job reuses from pass to pass

// Kernels of the speckle filters of IPG_FILTER_PROCESSING: the ultrasound
// despeckling passes, the adaptive local-statistics filters (Lee, Kuan, Frost)
// and the sigma filter.
//
// The despeckling passes:
// Every pass reads a cols x rows row-major image of reals (in) and writes the
// filtered image into out (same size): the passes are Jacobi steps, so the
// result does not depend on the visiting order. Windows are clipped to the
// image, so every pixel is filtered, the borders included. A window "side" is
// its odd width; "half" is side / 2.
//
// A row reads the rows up to a reach above and below it: the window's half
// (maxHalf), at least 1 for the sigma filter, half + 1 for DPAD, 2 for SRAD
// and maxArea for the adaptive-neighbourhood filter. out is a different
// buffer, or starts more than that reach of whole rows before in: the pass
// then runs in place (Ipg_RunPassBands) and needs one image instead of two.
//
// Speckle is modelled as multiplicative (Goodman, "Speckle Phenomena in
// Optics", 2007): in a homogeneous region the grey level's coefficient of
// variation (standard deviation / mean) is a constant Cu of the image, which
// Ipg_SpeckleCu2 estimates.
//
// Window statistics come from summed-area tables kept a few rows at a time
// (ipg_speckle_windows.h), so a pass needs little memory beyond its image.
//
// The passes whose cost grows with the window poll Ipg_CancelRequested() once
// per row and stop early when the host cancels; the frame then drops that pass.

// Squared speckle coefficient of variation Cu^2: the median, over the pixels
// whose local mean is positive, of the local variance / mean^2 in windows of
// the given half size. The median of the local statistic is the estimator of
// Aja-Fernandez and Alberola-Lopez (IEEE TIP 15(9), 2006): homogeneous areas
// dominate an ultrasound image, so edges do not move it. 0 for an image
// without a positive local mean.
double Ipg_SpeckleCu2(const double* in, int cols, int rows, int half);

// Squeeze box filter, one iteration (P. C. Tay, S. T. Acton, J. A. Hossack,
// "A stochastic approach to ultrasound despeckling", Proc. IEEE ISBI 2006,
// 221-224): a pixel that is a strict local extremum of its window (above
// every other value of the window, or below every one) is replaced by the mean
// of the other values of the window; every other pixel is kept.
// Repeated, the outliers are squeezed toward the local mean while monotone
// structures (edges) are never moved.
void Ipg_SbfPass(const double* in, double* out, int cols, int rows, int half);

// Weighted squeeze box filter, one iteration (P. C. Tay, C. D. Garson,
// S. T. Acton, J. A. Hossack, "Ultrasound despeckling for contrast
// enhancement", IEEE TIP 19(7), 2010, 1847-1860): the same extremum test, but
// the replacement is a weighted mean of the other values of the window whose
// weights fall with the distance to the window's mean m in units of its
// standard deviation s: w = exp(-(x - m)^2 / (2 s^2)). Neighbours that are
// themselves outliers (other speckle peaks, the far side of an edge) count
// less, so the squeeze converges faster and blurs edges less than the plain SBF.
void Ipg_WsbfPass(const double* in, double* out, int cols, int rows, int half);

// Squeeze box filter with a dynamically varying window, one iteration. The
// extremum test is that of the SBF on the 3x3 window; an extremum is replaced
// by the mean of the largest window, from 3x3 up to 2 maxHalf + 1, that is
// still homogeneous: a window is homogeneous while its coefficient of
// variation squared stays at most factor^2 Cu^2 (the adaptive-window rule of
// M. Park, W. Song, W. Pearlman, "Speckle filtering of SAR images based on
// adaptive windowing", IEE Proc. Vision Image Signal Process. 146(4), 1999).
// Flat speckle gets wide windows, edges and small structures 3x3 ones.
void Ipg_SbfDvwPass(const double* in, double* out, int cols, int rows, int maxHalf, double factor, double cu2);

// Speckle reducing anisotropic diffusion, one explicit step of time step dt
// (Y. Yu, S. T. Acton, "Speckle reducing anisotropic diffusion", IEEE TIP
// 11(11), 2002, 1260-1270), with the discretisation of the paper: the
// instantaneous coefficient of variation
//   q^2 = (|grad I|^2 / (2 I^2) - (lap I)^2 / (16 I^2)) / (1 + lap I / (4 I))^2
// from one-sided differences and the 4-neighbour Laplacian, the diffusion
// coefficient c = 1 / (1 + (q^2 - q0^2) / (q0^2 (1 + q0^2))) clipped to [0, 1],
// and I += dt / 4 (c_E dE + c dW + c_S dS + c dN) (d: neighbour minus centre).
// Mirror (zero-flux) boundaries. q0sq is the speckle scale q0^2.
void Ipg_SradPass(const double* in, double* out, int cols, int rows, double dt, double q0sq);

// Detail preserving anisotropic diffusion, one step (S. Aja-Fernandez,
// C. Alberola-Lopez, "On the estimation of the coefficient of variation for
// anisotropic diffusion speckle filtering", IEEE TIP 15(9), 2006,
// 2694-2701): SRAD's scheme, but the coefficient of variation C_I^2 is the
// local variance / mean^2 over a (2 half + 1)^2 window, and the diffusion
// coefficient is the Kuan filter's c = (1 + 1 / C_I^2) / (1 + 1 / Cu^2),
// clipped to [0, 1] (1 where C_I is 0). cu2 is the noise Cu^2.
void Ipg_DpadPass(const double* in, double* out, int cols, int rows, int half, double dt, double cu2);

// Adaptive weighted median filter, one iteration (T. Loupas, W. N. McDicken,
// P. L. Allan, "An adaptive weighted median filter for speckle suppression in
// medical ultrasonic images", IEEE Trans. Circuits Syst. 36(1), 1989,
// 129-135): in the (2 half + 1)^2 window, the cell at distance d from the
// centre weighs w = round(centreWeight - b d var / mean) (local variance and
// mean of the window; negative weights are 0), and the pixel becomes the
// weighted median. Homogeneous speckle (low var / mean) gives nearly equal
// weights, a plain median; edges and bright structures (high var / mean)
// concentrate the weight on the centre, which is kept.
void Ipg_AwmfPass(const double* in, double* out, int cols, int rows, int half, int centreWeight, double b);

// The scale b of the AWMF that makes the farthest cell of the window weigh
// half the centre in a typical speckle area: b = centreWeight / (2 dmax r),
// where r is the median over the image of the local variance / mean.
double Ipg_AwmfAutoScale(const double* in, int cols, int rows, int half, int centreWeight);

// Adaptive-neighbourhood speckle filter, one iteration, after R. M. Rangayyan,
// M. Ciuc, F. Faghih, "Adaptive-neighborhood filtering of images corrupted by
// signal-dependent noise", Applied Optics 37(20), 1998, 4477-4487. For every
// pixel a region is grown from it, 8-connected, breadth first, in the order
// N, NE, E, SE, S, SW, W, NW: a candidate joins when its deviation from the
// reference m0 is within k noise standard deviations, |x - m0| <= k sqrt(Cu2) m0
// (for multiplicative speckle the noise standard deviation at mean m0 is
// Cu m0), until the region holds maxArea pixels or nothing more joins. The
// reference m0 is the mean of the seed's 3x3 window rather than the seed
// itself, so a speckle peak does not grow a region of its own. The pixel then
// takes the Kuan (linear
// minimum mean square error) estimate over the region:
//   x = m + w (centre - m), w = (1 - Cu2 / C2) / (1 + Cu2) clipped to [0, 1],
// with C2 = var / m^2 of the region: homogeneous regions are replaced by their
// mean, textured ones keep their detail.
// Buffers given from pass to pass keep the band's work arrays.
void Ipg_AdaptiveNeighbourhoodPass(const double* in, double* out, int cols, int rows, int maxArea, double k,
                                   double cu2, Ipg_SpeckleBuffers* buffers = nullptr);

// Adaptive median filter, one iteration (H. Hwang, R. A. Haddad, "Adaptive
// median filters: new algorithms and results", IEEE TIP 4(4), 1995, 499-502):
// the window grows from 3x3 to 2 maxHalf + 1 until its median lies strictly
// between its minimum and maximum; then the pixel is kept when it too lies
// strictly between them and replaced by the median otherwise (an impulse);
// at the largest window the median is written (the version of R. C. Gonzalez,
// R. E. Woods, "Digital Image Processing", 3rd ed., 2008, 5.3.3). A pixel that
// passes the test is left exactly as it was.
void Ipg_AdaptiveMedianPass(const double* in, double* out, int cols, int rows, int maxHalf);

// Lee (J.-S. Lee, "Digital image enhancement and noise filtering by use of
// local statistics", IEEE PAMI 2(2), 1980), one pass in place over rows and
// columns 1 .. n-2: each value becomes (1 - w) m + w x with m, v the mean and
// variance of its 3x3 neighbourhood (as already updated by this pass),
// w = (v - noiseVariance) / v clipped to [0, 1].
void Ipg_LeePass(double* work, int cols, int rows, double noiseVariance);

// Kuan over rows and columns 1 .. n-2 of images.In into images.Out:
// (1 - w) m + w x with w = 0.5 (1 - m / v), not clipped (0 on a flat
// neighbourhood), truncated toward zero. Rows of span only.
void Ipg_KuanRows(const Ipg_KernelImages& images, Ipg_RowSpan span);

// Frost (V. S. Frost, J. A. Stiles, K. S. Shanmugan, J. C. Holtzman, "A model
// for radar images and its application to adaptive digital filtering of
// multiplicative noise", IEEE PAMI 4(2), 1982), one pass in place over the
// sheared 5x5 window of the mean filter (Ipg_ShearedRunStart), visiting rows
// and columns 2 .. n-3 and writing each value one column left of the visited
// position:
// sum(k_i x_i) / sum(k_i) truncated, k_i = exp(-damping * (variance / mean^2)
// * d_i), d_i the distance of the cell to the window's centre cell (0 for the
// squared coefficient of variation of a window of mean 0).
void Ipg_FrostPass(int* work, int cols, int rows, double damping);

// J.-S. Lee's sigma filter ("Digital image smoothing and the sigma filter",
// CVGIP 24, 1983), one pass: pixels are in's values rounded to integers; a
// grey level (not a mark) inside roi lists itself then the pixels of its (2 half + 1)^2 window
// (clipped, row by row), grey levels inside roi, whose value lies within
// round(range x Cu x |value|) of its own (Cu: the speckle coefficient of
// variation of in, estimated on 5x5 windows). With at least fewest neighbours
// listed it takes the mean of the listed values; otherwise it is an impulse
// and takes the mean of its 8 neighbours in in. Pixels outside roi keep in.
void Ipg_SigmaFilterPass(const double* in, double* out, int cols, int rows, const Ipg_RoiRows& roi, int half,
                         int fewest, double range);
