// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_bead_detection.h"

#include <vector>

// Beads given their place (I, J) on a square lattice of known pitch by a
// nearest-neighbour walk: the bead closest to a start point is (0, 0); its
// nearest neighbours about one pitch away give the two lattice steps (the one
// closest to the column direction, and that one turned a quarter); from each
// placed bead, breadth first, a neighbour is expected one local step away and
// the nearest unplaced bead within a third of a pitch of that guess takes the
// place. Each placed bead carries the steps measured on its way there, so the
// walk follows a lattice that bends slowly with the distortion. Beads that the
// walk never reaches (stray spots, dust, a second grid) stay unplaced.

struct IPG_LATTICE_BEAD {
  double X = 0.0; // detected column
  double Y = 0.0; // detected row
  int I = 0;      // lattice column, 0 at the start bead
  int J = 0;      // lattice row
};

// Empty when there are no beads or pitch is not positive.
std::vector<IPG_LATTICE_BEAD> Ipg_PlaceBeadsOnLattice(const std::vector<IPG_BEAD>& beads, double pitch,
                                                     double startX, double startY);
