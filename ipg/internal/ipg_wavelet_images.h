// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

class DCM_STRUCT;
class MTH_MATRIX;
class TList;
struct IPG_WAVELET_BANK;

// Between images, real arrays and the matrices of IPG_WAVELET's discrete lists.

// "Dimensions de l'image non divisibles par 2^NbScale : <where>"
std::string Ipg_MsgWaveletSides(const std::string& where);

// Checks of the discrete operations; each shows its message (where names the
// method) and returns false. An input, an output of its size.
bool Ipg_WaveletImagesValid(const DCM_STRUCT* in, const DCM_STRUCT* out, const std::string& where);
// A known wavelet number; 1 <= scales and 2^scales <= the smaller side.
bool Ipg_WaveletScalesValid(int name, int scales, int cols, int rows, const std::string& where);
// The frame's 4 images per scale within 2^27 doubles (1 GiB).
bool Ipg_FrameFitsMemory(int scales, int cols, int rows, const std::string& where);
// Threshold factor finite and >= 0, odd window of 1 to 65535, the frame in memory.
struct IPG_DENOISE_SETTINGS;
bool Ipg_DenoiseSettingsValid(const IPG_DENOISE_SETTINGS& settings, int cols, int rows, const std::string& where);

// The raw pixels of in as reals, row-major; marks (above 16777216) take the
// mean of the grey levels (0 without any) so that they do not ring.
std::vector<double> Ipg_WaveletInput(const DCM_STRUCT& in);

// values (in's size) rounded half away from zero into out's raw pixels, except
// where the ROI is outside or in holds a mark: there in's pixel is copied.
void Ipg_WaveletWriteImage(const std::vector<double>& values, const DCM_STRUCT& in, const DCM_STRUCT* roi,
                           DCM_STRUCT& out);
// Every value rounded half away from zero (saturated to 32 bits) into out.
void Ipg_WaveletWriteMosaic(const std::vector<double>& values, DCM_STRUCT& out);

// The w x h block at (col, row) of a row-major image `cols` wide, as a matrix,
// and a matrix copied back into such a block.
MTH_MATRIX Ipg_MatrixOfBlock(const std::vector<double>& image, int cols, int col, int row, int w, int h);
void Ipg_BlockOfMatrix(const MTH_MATRIX& matrix, std::vector<double>& image, int cols, int col, int row);

// The discrete lists of IPG_WAVELET. A list holds MTH_MATRIX pointers; its
// matrices live in `owned`.
using IPG_OWNED_MATRICES = std::vector<std::unique_ptr<MTH_MATRIX>>;

// The bands of a decimated transform in the quad layout (cols x rows, `scales`
// scales) as a list: H, V, D of each scale from the finest, then A.
void Ipg_ListOfDwt(const std::vector<double>& layout, int cols, int rows, int scales, IPG_OWNED_MATRICES& owned,
                   TList& list);
// The quad layout back from such a list; false when the list does not have
// those shapes (sides at most 65535, at most 16 scales).
bool Ipg_DwtOfList(const TList* list, std::vector<double>& layout, int& cols, int& rows, int& scales);

// The undecimated frame of image over `scales` scales as a list: A, H, V, D of
// each scale from the finest. False, the list emptied, when the host cancels.
bool Ipg_ListOfFrame(const IPG_WAVELET_BANK& bank, const MTH_MATRIX& image, int scales, IPG_OWNED_MATRICES& owned,
                     TList& list);
// The image rebuilt from such a list (its coarsest approximation and every
// detail); false when the list is not 4 k matrices of one shape.
bool Ipg_ImageOfFrameList(const IPG_WAVELET_BANK& bank, const TList* list, MTH_MATRIX& image);
