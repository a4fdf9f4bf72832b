// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// The DICOM attributes that travel with an image. Operators read BitsStored and
// PhotometricInterpretation; the rest is kept for reading and writing files.
struct DCM_HEADER {
  short BitsStored = 16;
  short BitsAllocated = 16;
  short HighBit = 15;
  unsigned short PixelRepresentation = 0;      // 0 unsigned, 1 two's complement
  unsigned short PhotometricInterpretation = 1; // 0 MONOCHROME1, 1 MONOCHROME2, 2+ colour
  unsigned short SamplesPerPixel = 1;
  unsigned short Rows = 0;
  unsigned short Columns = 0;
  double PixelSpacing[2] = {1.0, 1.0};          // row spacing, then column spacing (mm)
  double ImagePosition[3] = {0.0, 0.0, 0.0};    // patient-space position of the first pixel
  double RowDirection[3] = {1.0, 0.0, 0.0};     // direction cosines along a row
  double ColumnDirection[3] = {0.0, 1.0, 0.0};  // direction cosines along a column
  double RescaleSlope = 1.0;
  double RescaleIntercept = 0.0;
  double WindowCenter = 0.0;
  double WindowWidth = 0.0;                     // 0: no window given
  int NumberOfFrames = 1;
  int Frame = 0;                                // the frame these pixels come from
  std::string Modality = "OT";
  std::string PatientName;
  std::string PatientID;
  std::string StudyInstanceUID;
  std::string SeriesInstanceUID;
  std::string SOPInstanceUID;
  std::string SOPClassUID;
  std::string FrameOfReferenceUID;
  std::string TransferSyntax;                   // UID of the file's transfer syntax, when read
  std::string SourcePhotometric;                // the file's Photometric Interpretation, when read
};
