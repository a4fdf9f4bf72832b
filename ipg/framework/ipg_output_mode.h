#pragma once

class DCM_STRUCT;

// Output post-processing shared by the operators that write an image.
// Mode 300 clamps grey levels to [0, 16777216] (16777217, the ROI value, passes),
// 301 re-scales to [0, 2^BitsStored], 303 takes absolute values; any other mode
// only recomputes the stored extremes. Shows the operator's message and returns
// false for a null image or a colour header.
bool Ipg_ApplyModeToImage(DCM_STRUCT* out, short mode);

// Grey-level constants shared by every operator.
inline constexpr int kIpgMaxGrey = 16777216;  // highest value treated as a grey level
inline constexpr int kIpgRoiValue = 16777217; // set pixels of ROI and binary images
inline constexpr int kIpgMarginValue = 17000000; // margins a neighbourhood operation skips

// Messages shared across the framework.
inline constexpr const char* kIpgMsgNoOutput = "image de sortie non allouée";
inline constexpr const char* kIpgMsgNoOutputUnaccented = "image de sortie non allouee";
inline constexpr const char* kIpgMsgPhotometric = "Photometric Interpretation non générée actuellement!";
