// SPDX-License-Identifier: Apache-2.0
#pragma once

// Whether the kernels take their AVX2 copies: the processor has AVX2 and they
// are not switched off (IPG_SIMD=0 in the environment, or
// Ipg_SetSimdEnabled(false)). Both copies give the same pixels.
bool Ipg_UseAvx2();
void Ipg_SetSimdEnabled(bool enabled);
