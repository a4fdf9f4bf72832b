// SPDX-License-Identifier: Apache-2.0
#pragma once

// How many threads the operators use. Operators whose result does not depend
// on the order pixels are visited split their rows into bands run side by side;
// every thread count gives the same pixels and results.
//
// Default: the IPG_NUM_THREADS environment variable when it holds a positive
// number, else the hardware's cores. The setting is shared by every thread of
// the process; operators running at the same time on different host threads
// each get their own workers.

// n >= 1 uses n threads; n <= 0 returns to the default.
void Ipg_SetNumThreads(int n);
int Ipg_GetNumThreads();
