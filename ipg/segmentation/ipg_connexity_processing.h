// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/tlist.h"
#include "ipg/segmentation/ipg_connected_component.h"

#include <memory>
#include <vector>

class IPG_RUN_LABELLING;

// Reduces labels (count entries, 65535 meaning "no label") to their distinct
// values in order of first appearance; nothing is sorted.
void Ipg_LabelsNumberCalculation(unsigned short* labels, short count, unsigned short* distinct,
                                 short* nbDistinct);
// List order for the keep-N operation: NbResidents(a) - NbResidents(b).
int Ipg_CompareNrOfResidents(void* a, void* b);

// The 8-connected components of the pixels equal to Value, and operations on them:
// keep the largest or the N largest, moments of order (P, Q), shape features.
// Labelling (800) must run first; the other codes work on the list it left.
//
// Codes: 800 Labelling_8Neighbors, 801 KeepLargestConnectedComponent,
// 802 KeepNLargestConnectedComponent, 803 nothing, 804 geometric moments,
// 805 central moments, 806 shape features.
class IPG_CONNEXITY_PROCESSING : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  IPG_CONNEXITY_PROCESSING(DCM_STRUCT* in, int value);
  IPG_CONNEXITY_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi, int value);
  // Copies this level's parameters and results (components and arrays deeply);
  // the base fields take their defaults, as for every operator.
  IPG_CONNEXITY_PROCESSING(const IPG_CONNEXITY_PROCESSING& source);
  IPG_CONNEXITY_PROCESSING& operator=(const IPG_CONNEXITY_PROCESSING&) = delete;
  ~IPG_CONNEXITY_PROCESSING();

  // Tools 800; no statistical or shape features, no moments.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_CONNEXITY_PROCESSING>& ClassInfo();

  // Two-pass raster labelling read as runs; equivalences are resolved with a
  // union-find that replays the pairwise merges of the equivalence table in the
  // table's order, so components, numbering, residents and the label limit
  // match Labelling_8NeighborsTwoPass.
  bool Labelling_8Neighbors();
  // The same labelling with the packed equivalence table and its quadratic
  // resolution, as first written; kept as the reference of the fast version.
  bool Labelling_8NeighborsTwoPass();
  bool KeepLargestConnectedComponent();
  bool KeepNLargestConnectedComponent();
  bool ComputeGeometricMomentOfComponents();
  bool ComputeCentralMomentOfComponents();
  bool ShapesFeaturesOfComponents();

  // The list of IPG_CONNECTED_COMPONENT* of the last labelling, or null (none).
  TList* GetComponents() const { return Components.get(); }
  int GetNbComponents() const { return Components != nullptr ? Components->Count() : 0; }
  IPG_CONNECTED_COMPONENT* GetComponent(int i) const;

  void SetNbCompMax(int nbCompMax) { NbCompMax = nbCompMax; }
  int GetNbCompMax() const { return NbCompMax; }
  void SetNrOfComponentsToKeep(int n) { NrOfComponentsToKeep = n; }
  int GetNrOfComponentsToKeep() const { return NrOfComponentsToKeep; }
  void SetValue(int value) { Value = value; }
  int GetValue() const { return Value; }
  void SetP(int p) { P = p; }
  void SetQ(int q) { Q = q; }
  int GetP() const { return P; }
  int GetQ() const { return Q; }
  void SetMinimalSizeOfComponent(int size) { MinimalSizeOfComponent = size; }
  int GetMinimalSizeOfComponent() const { return MinimalSizeOfComponent; }

  // One double per component of the list at the time of the computation.
  double* GetMomentGeo() const { return MomentGeo.get(); }
  double* GetMomentCent() const { return MomentCent.get(); }
  int GetNbMomentGeo() const { return NbMomentGeo; }
  int GetNbMomentCent() const { return NbMomentCent; }
  TList* GetStatFeat() const { return StatFeat; }
  // Item 0: the orientations, item 1: the elongations (double*, one per component).
  TList* GetShapeFeat() const { return ShapeFeat.get(); }
  int GetNbShapeFeat() const { return NbShapeFeat; }

private:
  bool StartLabelling();
  void DestroyComponents();
  void AdoptComponent(std::unique_ptr<IPG_CONNECTED_COMPONENT> component);
  void ClearShapeFeat();
  void CopyResults(const IPG_CONNEXITY_PROCESSING& source);
  bool LabelByRuns();
  bool BuildComponentsFromRuns(const IPG_RUN_LABELLING& scan, const std::vector<int>& componentOfLabel,
                               const std::vector<int>& sizes);
  bool BuildComponents(const unsigned short* labels, const int* componentOfLabel, const int* sizes,
                       int nbComponents);
  bool KeepCheck() const;
  void EraseComponent(const IPG_CONNECTED_COMPONENT* component);

  // The list hosts read (and 802 sorts) points into ComponentStore, which owns.
  std::unique_ptr<TList> Components;
  std::vector<std::unique_ptr<IPG_CONNECTED_COMPONENT>> ComponentStore;
  int NbCompMax = 2000;
  int Value = 0;
  int NrOfComponentsToKeep = 1;
  TList* StatFeat = nullptr; // filled by no operation
  std::unique_ptr<TList> ShapeFeat; // points at Orientations and Elongations
  std::unique_ptr<double[]> Orientations;
  std::unique_ptr<double[]> Elongations;
  int NbShapeFeat = 0;
  int P = 0;
  int Q = 0;
  std::unique_ptr<double[]> MomentGeo;
  int NbMomentGeo = 0;
  std::unique_ptr<double[]> MomentCent;
  int NbMomentCent = 0;
  int MinimalSizeOfComponent = 0;
};
