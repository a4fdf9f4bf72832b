// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

// Valleys of a smoothed histogram, the classic mode-method split of grey
// levels (Prewitt & Mendelsohn, "The analysis of cell images", Ann. N.Y. Acad.
// Sci. 128, 1966), with the mode merging made explicit:
//
// 1. The counts are smoothed by a centred moving average of `width` bins
//    (odd; bins beyond the ends count as empty).
// 2. Modes are the maximal runs of equal smoothed values that stand above both
//    neighbouring runs (a run at an end needs only its one neighbour). Between
//    two consecutive modes the valley is the lowest run; its middle bin is the
//    valley's position.
// 3. A valley's depth is the lower of its two modes' heights minus its own
//    height. The shallowest valley is removed, merging its two modes into one
//    whose height is the higher of theirs, while it is shallower than
//    minDepth times the highest smoothed bin or while more than maxClasses
//    modes remain. Equal depths: the leftmost valley goes first.
//
// Returns the bins of the valleys kept, increasing (one fewer than the modes).
std::vector<int> Ipg_HistogramValleys(const std::vector<std::int64_t>& counts, int width, double minDepth,
                                      int maxClasses);
