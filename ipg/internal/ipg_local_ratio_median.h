// SPDX-License-Identifier: Apache-2.0
#pragma once

// Median over the pixels whose local mean m (windows of half size, from the
// tables of ipg_speckle_windows.h) is positive of variance / m^power (power 1
// or 2): the value Ipg_MiddleElement gives for the list of them.
//
// Up to 512 x 512 pixels the ratios are listed. Above, a few rows spread over
// the image are sampled first, and one pass over the image counts the ratios
// below the sample's middle three percent and lists those within them. When
// the middle ratio lies outside them (a sample unlike the image, such as
// structure that repeats with the sampled rows' spacing), a second pass tries
// the sample's middle tenth; when that misses too, the ratios are counted by
// their bit patterns in further passes. Either way the memory used stays
// small, and the value is the same. The calling thread keeps the lists of
// its last pass (up to 2 MB each) for its next one.
double Ipg_MedianLocalRatio(const double* in, int cols, int rows, int half, int power);

// Frees the calling thread's kept lists.
void Ipg_ReleaseRatioLists();
