// SPDX-License-Identifier: Apache-2.0
#pragma once

// Grey levels run from 0 to kIpgMaxGrey; larger values are marks the operators
// leave alone. Output mode 300 clamps to [0, kIpgMaxGrey] and lets kIpgRoiValue pass.
inline constexpr int kIpgMaxGrey = 16777216;  // highest value treated as a grey level
inline constexpr int kIpgRoiValue = 16777217; // set pixels of ROI and binary images
inline constexpr int kIpgMarginValue = 17000000; // margins a neighbourhood operation skips

// Messages shared across the framework.
inline constexpr const char* kIpgMsgNoOutput = "image de sortie non allouée";
inline constexpr const char* kIpgMsgNoOutputUnaccented = "image de sortie non allouee";
inline constexpr const char* kIpgMsgPhotometric = "Photometric Interpretation non générée actuellement!";
