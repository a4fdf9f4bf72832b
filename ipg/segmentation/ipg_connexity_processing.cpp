// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_connexity_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_label_pairs.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_pixel_values.h"
#include "ipg/internal/ipg_resident_pool.h"
#include "ipg/internal/ipg_run_labelling.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace {

constexpr unsigned short kNoLabel = 65535;
constexpr int kLargestLabelCount = 65535; // labels are 16-bit, 65535 meaning "no label"
constexpr double kZeroDistance = 1e-9;

template <typename T>
std::unique_ptr<T[]> TryAllocate(std::size_t n)
{
  return std::unique_ptr<T[]>(new (std::nothrow) T[n]);
}

// Scratch memory shared by both labellings: the label image and the counts.
struct LabelScratch {
  std::unique_ptr<unsigned short[]> labels;
  std::unique_ptr<int[]> counts;
  int issued = 0;

  bool Allocate(std::size_t pixels, int nbCompMax)
  {
    labels = TryAllocate<unsigned short>(pixels);
    counts = TryAllocate<int>(static_cast<std::size_t>(nbCompMax));
    if (!labels || !counts)
      return false;
    std::fill_n(labels.get(), pixels, kNoLabel);
    std::fill_n(counts.get(), nbCompMax, 0);
    return true;
  }
};

// The distinct labels of labels[0, count) in order of first appearance, "no
// label" left out; inlined into the first pass, which calls it per pixel.
inline short DistinctLabels(const unsigned short* labels, short count, unsigned short* distinct)
{
  short found = 0;
  for (short i = 0; i < count; ++i) {
    if (labels[i] == kNoLabel)
      continue;
    if (std::find(distinct, distinct + found, labels[i]) == distinct + found)
      distinct[found++] = labels[i];
  }
  return found;
}

// First raster pass: provisional labels from the neighbours above, above-left,
// above-right and left, in that order. mark(a, b), a < b, records that two
// labels meet. The label limit is tested at every pixel before its value is
// read, so reaching it with pixels left to visit fails even when none of them
// is an object pixel: callers rely on that count.
template <class Mark>
bool FirstPass(const int* pixels, int cols, int rows, int value, int nbCompMax, LabelScratch& s, Mark mark)
{
  unsigned short* labels = s.labels.get();
  int* counts = s.counts.get();
  unsigned short neighbours[8];
  unsigned short distinct[8];
  int n = 0;
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      if (n == nbCompMax) {
        Ipg_Inform(kIpgMsgTooManyLabels);
        return false;
      }
      const std::size_t at = static_cast<std::size_t>(row) * cols + col;
      if (pixels[at] != value)
        continue;
      // With the pixel above set, its label comes first, and each other set
      // neighbour touches it and was paired with it when the later of the two
      // was labelled: nothing new to record.
      if (row > 0 && pixels[at - cols] == value) {
        const unsigned short above = labels[at - cols];
        labels[at] = above;
        ++counts[above];
        continue;
      }
      short found = 0;
      if (row > 0) {
        const std::size_t up = at - cols;
        if (pixels[up] == value) neighbours[found++] = labels[up];
        if (col >= 1 && pixels[up - 1] == value) neighbours[found++] = labels[up - 1];
        if (col < cols - 1 && pixels[up + 1] == value) neighbours[found++] = labels[up + 1];
      }
      if (col >= 1 && pixels[at - 1] == value) neighbours[found++] = labels[at - 1];
      const short nbDistinct = DistinctLabels(neighbours, found, distinct);
      if (nbDistinct == 0) {
        labels[at] = static_cast<unsigned short>(n);
        ++counts[n];
        ++n;
        continue;
      }
      const unsigned short first = distinct[0];
      labels[at] = first;
      ++counts[first];
      for (short k = 1; k < nbDistinct; ++k)
        mark(std::min(first, distinct[k]), std::max(first, distinct[k]));
    }
  s.issued = n;
  return true;
}

} // namespace

void Ipg_LabelsNumberCalculation(unsigned short* labels, short count, unsigned short* distinct,
                                 short* nbDistinct)
{
  const short found = labels != nullptr && distinct != nullptr ? DistinctLabels(labels, count, distinct) : 0;
  if (nbDistinct != nullptr)
    *nbDistinct = found;
}

int Ipg_CompareNrOfResidents(void* a, void* b)
{
  const long long na = static_cast<IPG_CONNECTED_COMPONENT*>(a)->GetNbResidents();
  const long long nb = static_cast<IPG_CONNECTED_COMPONENT*>(b)->GetNbResidents();
  return Ipg_SaturateToInt(na - nb);
}

IPG_CONNEXITY_PROCESSING::IPG_CONNEXITY_PROCESSING(DCM_STRUCT* in, int value)
    : IPG_CONNEXITY_PROCESSING(in, nullptr, value)
{
}

IPG_CONNEXITY_PROCESSING::IPG_CONNEXITY_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi, int value) : Value(value)
{
  SetImaIn(in);
  SetRoi(roi);
  NrOfComponentsToKeep = 1;
  NbCompMax = 2000;
  SetDefaultParameters();
}

IPG_CONNEXITY_PROCESSING::IPG_CONNEXITY_PROCESSING(const IPG_CONNEXITY_PROCESSING& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), NbCompMax(source.NbCompMax), Value(source.Value),
      NrOfComponentsToKeep(source.NrOfComponentsToKeep), P(source.P), Q(source.Q),
      MinimalSizeOfComponent(source.MinimalSizeOfComponent)
{
  CopyResults(source);
}

IPG_CONNEXITY_PROCESSING::~IPG_CONNEXITY_PROCESSING()
{
  DestroyComponents();
}

void IPG_CONNEXITY_PROCESSING::CopyResults(const IPG_CONNEXITY_PROCESSING& source)
{
  if (source.Components != nullptr) {
    Components = std::make_unique<TList>();
    for (int i = 0; i < source.Components->Count(); ++i)
      AdoptComponent(std::make_unique<IPG_CONNECTED_COMPONENT>(*source.GetComponent(i)));
  }
  auto copyArray = [](const std::unique_ptr<double[]>& from, int n) {
    std::unique_ptr<double[]> to;
    if (from) {
      to.reset(new double[static_cast<std::size_t>(std::max(n, 0))]);
      std::copy_n(from.get(), std::max(n, 0), to.get());
    }
    return to;
  };
  MomentGeo = copyArray(source.MomentGeo, NbMomentGeo = source.NbMomentGeo);
  MomentCent = copyArray(source.MomentCent, NbMomentCent = source.NbMomentCent);
  if (source.ShapeFeat) {
    NbShapeFeat = source.NbShapeFeat;
    Orientations = copyArray(source.Orientations, NbShapeFeat);
    Elongations = copyArray(source.Elongations, NbShapeFeat);
    ShapeFeat = std::make_unique<TList>();
    ShapeFeat->Add(Orientations.get());
    ShapeFeat->Add(Elongations.get());
  }
}

void IPG_CONNEXITY_PROCESSING::SetDefaultParameters()
{
  Tools = 800;
  StatFeat = nullptr;
  ClearShapeFeat();
  MomentGeo.reset();
  NbMomentGeo = 0;
  MomentCent.reset();
  NbMomentCent = 0;
}

const IPG_CLASS_INFO<IPG_CONNEXITY_PROCESSING>& IPG_CONNEXITY_PROCESSING::ClassInfo()
{
  using C = IPG_CONNEXITY_PROCESSING;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {800, "Labelling_8Neighbors", [](C& op) -> int { return op.Labelling_8Neighbors(); }},
      {801, "KeepLargestConnectedComponent", [](C& op) -> int { return op.KeepLargestConnectedComponent(); }},
      {802, "KeepNLargestConnectedComponent", [](C& op) -> int { return op.KeepNLargestConnectedComponent(); }},
      {803, "(nothing)", [](C& op) -> int { (void)op; return 0; }},
      {804, "ComputeGeometricMomentOfComponents", [](C& op) -> int { return op.ComputeGeometricMomentOfComponents(); }},
      {805, "ComputeCentralMomentOfComponents", [](C& op) -> int { return op.ComputeCentralMomentOfComponents(); }},
      {806, "ShapesFeaturesOfComponents", [](C& op) -> int { return op.ShapesFeaturesOfComponents(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetValue>("Value", "0", "grey value of the component pixels (default 16777217)"),
      Ipg_Parameter<C, &C::SetNbCompMax>("NbCompMax", "2000", "largest number of provisional labels (2000)"),
      Ipg_Parameter<C, &C::SetNrOfComponentsToKeep>("NrOfComponentsToKeep", "1", "N of code 802 (1)"),
      Ipg_Parameter<C, &C::SetP>("P", "0", "column order of the moments"),
      Ipg_Parameter<C, &C::SetQ>("Q", "0", "row order of the moments"),
      Ipg_Parameter<C, &C::SetMinimalSizeOfComponent>("MinimalSizeOfComponent", "0", "stored only"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_CONNEXITY_PROCESSING", operations, parameters};
  return info;
}

bool IPG_CONNEXITY_PROCESSING::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_CONNEXITY_PROCESSING"))
    return false;
  // Every code but the labelling works on the components it found.
  if (Tools != 800 && Components == nullptr)
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

IPG_CONNECTED_COMPONENT* IPG_CONNEXITY_PROCESSING::GetComponent(int i) const
{
  return Components != nullptr ? static_cast<IPG_CONNECTED_COMPONENT*>(Components->Get(i)) : nullptr;
}

void IPG_CONNEXITY_PROCESSING::DestroyComponents()
{
  Components.reset();
  ComponentStore.clear();
}

// Stored first, so that the list never points at a component nobody owns.
void IPG_CONNEXITY_PROCESSING::AdoptComponent(std::unique_ptr<IPG_CONNECTED_COMPONENT> component)
{
  ComponentStore.push_back(std::move(component));
  Components->Add(ComponentStore.back().get());
}

void IPG_CONNEXITY_PROCESSING::ClearShapeFeat()
{
  ShapeFeat.reset();
  Orientations.reset();
  Elongations.reset();
  NbShapeFeat = 0;
}

// Step 1 of both labellings. NbCompMax beyond what 16-bit labels can number (or
// negative) cannot be honoured and is refused as an allocation would be.
bool IPG_CONNEXITY_PROCESSING::StartLabelling()
{
  if (ImaIn == nullptr)
    return false;
  DestroyComponents();
  if (NbCompMax < 0 || NbCompMax > kLargestLabelCount) {
    Ipg_Inform(kIpgMsgAllocation);
    return false;
  }
  return true;
}

// Creates the components in the order of componentOfLabel's numbering and fills
// their residents in raster order.
bool IPG_CONNEXITY_PROCESSING::BuildComponents(const unsigned short* labels, const int* componentOfLabel,
                                               const int* sizes, int nbComponents)
{
  Components = std::make_unique<TList>();
  for (int k = 0; k < nbComponents; ++k) {
    std::unique_ptr<IPG_CONNECTED_COMPONENT> component(new (std::nothrow) IPG_CONNECTED_COMPONENT(sizes[k], k));
    if (component == nullptr || !component->IsAllocated()) {
      DestroyComponents();
      return false;
    }
    AdoptComponent(std::move(component));
  }
  // Each component's residents in raster order, written straight into its array
  // (sizes[k] places, which its pixels fill exactly).
  std::vector<int> next(static_cast<std::size_t>(nbComponents), 0);
  std::vector<MTH_2D_DOUBLE*> residents(static_cast<std::size_t>(nbComponents));
  for (int k = 0; k < nbComponents; ++k)
    residents[static_cast<std::size_t>(k)] = ComponentStore[static_cast<std::size_t>(k)]->GetResidents();
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const int* pixels = ImaIn->Data->GetIDataAddress();
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      const std::size_t at = static_cast<std::size_t>(row) * cols + col;
      if (pixels[at] != Value)
        continue;
      const std::size_t k = static_cast<std::size_t>(componentOfLabel[labels[at]]);
      if (next[k] < sizes[k])
        residents[k][next[k]++] = MTH_2D_DOUBLE(col, row);
    }
  return true;
}

bool IPG_CONNEXITY_PROCESSING::Labelling_8NeighborsTwoPass()
{
  if (!StartLabelling())
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const int N = NbCompMax;
  LabelScratch scratch;
  const std::size_t tableSize = static_cast<std::size_t>(static_cast<int>(N * (N - 1.0) * 0.5));
  auto table = TryAllocate<unsigned char>(tableSize);
  if (!scratch.Allocate(static_cast<std::size_t>(cols) * rows, N) || !table) {
    Ipg_Inform(kIpgMsgAllocation);
    return false;
  }
  std::fill_n(table.get(), tableSize, 0);
  // Packed upper triangle of the N x N equivalence matrix.
  auto slot = [N](int a, int b) {
    return static_cast<std::size_t>(static_cast<int>((2.0 * N - 1 - a) * a * 0.5) + b - a - 1);
  };
  const int* pixels = ImaIn->Data->GetIDataAddress();
  if (!FirstPass(pixels, cols, rows, Value, N, scratch,
                 [&](unsigned short a, unsigned short b) { table[slot(a, b)] = 1; }))
    return false;

  const int n = scratch.issued;
  int* counts = scratch.counts.get();
  std::vector<int> map(static_cast<std::size_t>(n));
  for (int l = 0; l < n; ++l)
    map[l] = l;
  for (int i = 0; i < n; ++i)
    for (int j = i + 1; j < n; ++j) {
      if (table[slot(i, j)] == 0 || map[i] == map[j])
        continue;
      const int r = map[i], s = map[j]; // toward the representative of the higher label
      counts[s] += counts[r];
      counts[r] = 0;
      std::replace(map.begin(), map.end(), r, s);
    }
  std::vector<int> sizes;
  for (int l = 0; l < n; ++l) {
    if (counts[l] <= 0)
      continue;
    std::replace(map.begin(), map.end(), l, static_cast<int>(sizes.size()));
    sizes.push_back(counts[l]);
  }
  return BuildComponents(scratch.labels.get(), map.data(), sizes.data(), static_cast<int>(sizes.size()));
}

bool IPG_CONNEXITY_PROCESSING::Labelling_8Neighbors()
{
  if (!StartLabelling())
    return false;
  try {
    return LabelByRuns();
  } catch (const std::bad_alloc&) {
    DestroyComponents();
    Ipg_Inform(kIpgMsgAllocation);
    return false;
  }
}

bool IPG_CONNEXITY_PROCESSING::LabelByRuns()
{
  Ipg_LabelPairs pairs;
  IPG_RUN_LABELLING scan;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  if (scan.Scan(ImaIn->Data->GetIDataAddress(), cols, rows, Value, NbCompMax, pairs) ==
      IPG_RUN_LABELLING::Outcome::TooManyLabels) {
    Ipg_Inform(kIpgMsgTooManyLabels);
    return false;
  }
  std::vector<int> componentOfLabel, sizes;
  scan.Resolve(pairs, componentOfLabel, sizes);
  return BuildComponentsFromRuns(scan, componentOfLabel, sizes);
}

// All residents live in one pool, each component's stretch in list order; the
// runs, in raster order, fill them without reading the image again.
bool IPG_CONNEXITY_PROCESSING::BuildComponentsFromRuns(const IPG_RUN_LABELLING& scan,
                                                       const std::vector<int>& componentOfLabel,
                                                       const std::vector<int>& sizes)
{
  std::size_t total = 0;
  for (const int size : sizes)
    total += static_cast<std::size_t>(size);
  std::shared_ptr<IPG_RESIDENT_POOL> pool = IPG_RESIDENT_POOL::Create(total);
  if (pool == nullptr)
    return false;
  Components = std::make_unique<TList>();
  std::vector<MTH_2D_DOUBLE*> starts(sizes.size());
  MTH_2D_DOUBLE* at = pool->Data();
  for (std::size_t k = 0; k < sizes.size(); ++k) {
    std::unique_ptr<IPG_CONNECTED_COMPONENT> component(
        new (std::nothrow) IPG_CONNECTED_COMPONENT(pool, at, sizes[k], static_cast<int>(k)));
    if (component == nullptr) {
      DestroyComponents();
      return false;
    }
    AdoptComponent(std::move(component));
    starts[k] = at;
    at += sizes[k];
  }
  scan.WriteResidents(componentOfLabel, starts, static_cast<int>(ImaIn->GetNbOfCols()));
  return true;
}

bool IPG_CONNEXITY_PROCESSING::KeepCheck() const
{
  if (ImaIn == nullptr || ImaOut == nullptr || Components == nullptr)
    return false;
  if (ImaOut->GetNbOfCols() != ImaIn->GetNbOfCols() || ImaOut->GetNbOfRows() != ImaIn->GetNbOfRows()) {
    Ipg_Inform(kIpgMsgOutputSize);
    return false;
  }
  std::copy_n(ImaIn->Data->GetIDataAddress(), ImaIn->Data->GetSize(), ImaOut->Data->GetIDataAddress());
  return true;
}

// Binary masks (16777217 on 0, or 0 on 16777217) lose the component; for any
// other Value the output deliberately stays a copy of the input.
void IPG_CONNEXITY_PROCESSING::EraseComponent(const IPG_CONNECTED_COMPONENT* component)
{
  int background;
  if (Value == kIpgMaskValue)
    background = 0;
  else if (Value == 0)
    background = kIpgMaskValue;
  else
    return;
  const MTH_2D_DOUBLE* residents = component->GetResidents();
  const int n = std::min(component->GetNbResidents(), component->GetCapacity());
  for (int i = 0; i < n; ++i)
    ImaOut->Data->SetValue(static_cast<unsigned>(residents[i].GetX()), static_cast<unsigned>(residents[i].GetY()),
                           background);
}

bool IPG_CONNEXITY_PROCESSING::KeepLargestConnectedComponent()
{
  if (!KeepCheck())
    return false;
  int largest = 0;
  for (int i = 1; i < GetNbComponents(); ++i)
    if (GetComponent(i)->GetNbResidents() > GetComponent(largest)->GetNbResidents())
      largest = i; // strictly greater: a tie keeps the earlier one
  for (int i = 0; i < GetNbComponents(); ++i)
    if (i != largest)
      EraseComponent(GetComponent(i));
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return true;
}

bool IPG_CONNEXITY_PROCESSING::KeepNLargestConnectedComponent()
{
  if (!KeepCheck())
    return false;
  Components->Sort(Ipg_CompareNrOfResidents); // the list stays sorted afterwards
  int kept = 0;
  for (int i = GetNbComponents() - 1; i >= 0; --i) {
    if (kept < NrOfComponentsToKeep)
      ++kept;
    else
      EraseComponent(GetComponent(i));
  }
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return true;
}

bool IPG_CONNEXITY_PROCESSING::ComputeGeometricMomentOfComponents()
{
  if (ImaIn == nullptr || Components == nullptr)
    return false;
  NbMomentGeo = GetNbComponents();
  MomentGeo.reset(new double[static_cast<std::size_t>(NbMomentGeo)]);
  for (int k = 0; k < NbMomentGeo; ++k) {
    const IPG_CONNECTED_COMPONENT* component = GetComponent(k);
    const MTH_2D_DOUBLE* residents = component->GetResidents();
    const int n = std::min(component->GetNbResidents(), component->GetCapacity());
    int sum = 0; // integer running sum, truncated after every addition: hosts compare with it
    for (int i = 0; i < n; ++i) {
      const double term = std::pow(static_cast<int>(residents[i].GetX()), P) *
                          std::pow(static_cast<int>(residents[i].GetY()), Q);
      sum = Ipg_TruncateOrIntMin(sum + term); // INT_MIN out of range, as the x86 conversion
    }
    MomentGeo[k] = sum;
  }
  return true;
}

bool IPG_CONNEXITY_PROCESSING::ComputeCentralMomentOfComponents()
{
  if (ImaIn == nullptr || Components == nullptr)
    return false;
  const int savedP = P, savedQ = Q;
  auto geometric = [this](int p, int q) {
    P = p;
    Q = q;
    ComputeGeometricMomentOfComponents();
    return std::vector<double>(MomentGeo.get(), MomentGeo.get() + NbMomentGeo);
  };
  const std::vector<double> m10 = geometric(1, 0);
  const std::vector<double> m01 = geometric(0, 1);
  const std::vector<double> m00 = geometric(0, 0); // MomentGeo is left holding m00
  P = savedP;
  Q = savedQ;
  NbMomentCent = GetNbComponents();
  MomentCent.reset(new double[static_cast<std::size_t>(NbMomentCent)]);
  for (int k = 0; k < NbMomentCent; ++k) {
    const IPG_CONNECTED_COMPONENT* component = GetComponent(k);
    const MTH_2D_DOUBLE* residents = component->GetResidents();
    const int n = std::min(component->GetNbResidents(), component->GetCapacity());
    const double xMean = m10[k] / m00[k];
    const double yMean = m01[k] / m00[k];
    double mu = 0.0;
    for (int i = 0; i < n; ++i) {
      double dx = residents[i].GetX() - xMean;
      double dy = residents[i].GetY() - yMean;
      if (dx == 0.0) dx = kZeroDistance; // keeps negative orders finite
      if (dy == 0.0) dy = kZeroDistance;
      mu += std::pow(dx, P) * std::pow(dy, Q);
    }
    MomentCent[k] = mu;
  }
  return true;
}

bool IPG_CONNEXITY_PROCESSING::ShapesFeaturesOfComponents()
{
  if (ImaIn == nullptr || Components == nullptr)
    return false;
  auto central = [this](int p, int q) {
    P = p;
    Q = q;
    ComputeCentralMomentOfComponents();
    return std::vector<double>(MomentCent.get(), MomentCent.get() + NbMomentCent);
  };
  const std::vector<double> mu20 = central(2, 0);
  const std::vector<double> mu02 = central(0, 2);
  const std::vector<double> mu11 = central(1, 1); // P and Q stay at (1, 1)
  ClearShapeFeat();
  NbShapeFeat = GetNbComponents();
  Orientations.reset(new double[static_cast<std::size_t>(NbShapeFeat)]);
  Elongations.reset(new double[static_cast<std::size_t>(NbShapeFeat)]);
  for (int k = 0; k < NbShapeFeat; ++k) {
    const double diff = mu20[k] - mu02[k];
    const double sum = mu20[k] + mu02[k];
    // The squared difference in the denominator is the historical formula.
    Orientations[k] = 0.5 * std::atan(2.0 * mu11[k] / (diff * diff));
    Elongations[k] = std::fabs((diff * diff - 4.0 * mu11[k] * mu11[k]) / (sum * sum));
  }
  ShapeFeat = std::make_unique<TList>();
  ShapeFeat->Add(Orientations.get());
  ShapeFeat->Add(Elongations.get());
  return true;
}
