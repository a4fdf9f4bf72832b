// SPDX-License-Identifier: Apache-2.0
#pragma once

// Two independent seeded generators, so that a run is repeatable from its seed.
// Generator 1: Park and Miller's minimal standard (16807 multiplier, modulus
// 2^31 - 1) with a Bays-Durham shuffle, "ran1" of Press et al., Numerical
// Recipes in C, 2nd ed., 1992, section 7.1.
// Generator 3: Knuth's subtractive method, "ran3" of the same section.
// Mth_InitRandom seeds a generator (a seed <= 0 is taken as 1); Mth_Random
// returns a uniform real in [0, scale) (scale <= 0 is taken as 1).
void Mth_InitRandom1(short seed);
void Mth_InitRandom3(short seed);
double Mth_Random1(short scale);
double Mth_Random3(short scale);
