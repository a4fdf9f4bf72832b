// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_memory.h"

#include "ipg/internal/ipg_fourier_buffer.h"
#include "ipg/internal/ipg_large_block.h"
#include "ipg/internal/ipg_local_ratio_median.h"

void Ipg_ReleaseCachedMemory()
{
  IPG_LARGE_BLOCK::ReleaseKept();
  Ipg_ReleaseFourierBuffer();
  Ipg_ReleaseRatioLists();
}
