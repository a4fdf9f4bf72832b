// SPDX-License-Identifier: Apache-2.0
#include "dcm/obj_objects_list.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_pixel_values.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace {

constexpr int kSetValue = kIpgMaskValue; // the set pixels of binary masks

struct Point {
  int x, y;
  bool operator==(const Point&) const = default;
};

// Clockwise on screen (rows grow downward), starting west.
constexpr Point kMoore[8] = {{-1, 0}, {-1, -1}, {0, -1}, {1, -1}, {1, 0}, {1, 1}, {0, 1}, {-1, 1}};

int DirectionOf(int dx, int dy)
{
  for (int d = 0; d < 8; ++d)
    if (kMoore[d].x == dx && kMoore[d].y == dy)
      return d;
  return 0;
}

class BinaryView {
public:
  explicit BinaryView(const DCM_STRUCT& mask)
      : Cols(static_cast<int>(mask.GetNbOfCols())), Rows(static_cast<int>(mask.GetNbOfRows())),
        Pixels(mask.Data->GetIDataAddress())
  {
  }
  bool Set(int x, int y) const
  {
    return x >= 0 && y >= 0 && x < Cols && y < Rows && Pixels[static_cast<std::size_t>(y) * Cols + x] == kSetValue;
  }
  int Cols, Rows;

private:
  const int* Pixels;
};

// Searches the neighbours of b clockwise, starting just after the background
// neighbour in direction from; returns the direction of the first set one, or -1.
int NextOnBoundary(const BinaryView& view, Point b, int from)
{
  for (int i = 1; i <= 8; ++i) {
    const int d = (from + i) % 8;
    if (view.Set(b.x + kMoore[d].x, b.y + kMoore[d].y))
      return d;
  }
  return -1;
}

// The outer boundary of the region whose first pixel in raster order is start
// (so its west neighbour is background).
std::vector<Point> TraceOuterBoundary(const BinaryView& view, Point start, std::size_t regionSize)
{
  std::vector<Point> boundary{start};
  Point b = start;
  int background = 0; // direction from b to the last background pixel examined
  Point second{};
  const std::size_t limit = 8 * regionSize + 16; // each pixel is entered at most 4 times
  for (std::size_t steps = 0; steps < limit; ++steps) {
    const int d = NextOnBoundary(view, b, background);
    if (d < 0)
      break; // a lone pixel
    const Point next{b.x + kMoore[d].x, b.y + kMoore[d].y};
    if (steps == 0)
      second = next;
    else if (b == start && next == second) {
      boundary.pop_back(); // start was entered again: the contour is closed
      break;
    }
    const int prev = (d + 7) % 8;
    background = DirectionOf(b.x + kMoore[prev].x - next.x, b.y + kMoore[prev].y - next.y);
    boundary.push_back(next);
    b = next;
  }
  return boundary;
}

// Marks the region of start (8-connected) in seen and returns its size.
std::size_t MarkRegion(const BinaryView& view, Point start, std::vector<char>& seen)
{
  std::vector<Point> todo{start};
  seen[static_cast<std::size_t>(start.y) * view.Cols + start.x] = 1;
  std::size_t size = 0;
  while (!todo.empty()) {
    const Point p = todo.back();
    todo.pop_back();
    ++size;
    for (const Point& m : kMoore) {
      const Point q{p.x + m.x, p.y + m.y};
      if (!view.Set(q.x, q.y))
        continue;
      char& mark = seen[static_cast<std::size_t>(q.y) * view.Cols + q.x];
      if (!mark) {
        mark = 1;
        todo.push_back(q);
      }
    }
  }
  return size;
}

class PolygonFill {
public:
  explicit PolygonFill(DCM_STRUCT& image)
      : Cols(static_cast<int>(image.GetNbOfCols())), Rows(static_cast<int>(image.GetNbOfRows())),
        Pixels(image.Data->GetIDataAddress())
  {
  }

  void Fill(const std::vector<MTH_2D_DOUBLE>& polygon)
  {
    if (polygon.empty())
      return;
    const std::size_t n = polygon.size();
    for (std::size_t k = 0; k < n; ++k)
      MarkSegment(polygon[k], polygon[(k + 1) % n]);
    FillInterior(polygon);
  }

private:
  void Mark(long long x, long long y)
  {
    if (x >= 0 && y >= 0 && x < Cols && y < Rows)
      Pixels[static_cast<std::size_t>(y) * Cols + static_cast<std::size_t>(x)] = kSetValue;
  }

  static bool IsWhole(double v) { return std::fabs(v - std::round(v)) < 1e-9; }

  // The pixel centres lying on the segment.
  void MarkSegment(const MTH_2D_DOUBLE& p, const MTH_2D_DOUBLE& q)
  {
    const double x0 = p.GetX(), y0 = p.GetY(), x1 = q.GetX(), y1 = q.GetY();
    if (std::fabs(y1 - y0) < 1e-12) {
      if (!IsWhole(y0))
        return;
      const double from = std::max(std::ceil(std::min(x0, x1) - 1e-9), 0.0);
      const double to = std::min(std::floor(std::max(x0, x1) + 1e-9), Cols - 1.0);
      for (double x = from; x <= to; ++x)
        Mark(static_cast<long long>(x), std::llround(y0));
      return;
    }
    const double from = std::max(std::ceil(std::min(y0, y1) - 1e-9), 0.0);
    const double to = std::min(std::floor(std::max(y0, y1) + 1e-9), Rows - 1.0);
    for (double y = from; y <= to; ++y) {
      const double x = x0 + (y - y0) * (x1 - x0) / (y1 - y0);
      if (IsWhole(x))
        Mark(std::llround(x), static_cast<long long>(y));
    }
  }

  // Even-odd spans of every row, crossings counted on half-open edges.
  void FillInterior(const std::vector<MTH_2D_DOUBLE>& polygon)
  {
    const std::size_t n = polygon.size();
    std::vector<double> crossings;
    for (int row = 0; row < Rows; ++row) {
      crossings.clear();
      const double y = row;
      for (std::size_t k = 0; k < n; ++k) {
        const MTH_2D_DOUBLE& p = polygon[k];
        const MTH_2D_DOUBLE& q = polygon[(k + 1) % n];
        if ((p.GetY() <= y && y < q.GetY()) || (q.GetY() <= y && y < p.GetY()))
          crossings.push_back(p.GetX() + (y - p.GetY()) * (q.GetX() - p.GetX()) / (q.GetY() - p.GetY()));
      }
      std::sort(crossings.begin(), crossings.end());
      for (std::size_t k = 0; k + 1 < crossings.size(); k += 2) {
        const double from = std::max(std::ceil(crossings[k] - 1e-9), 0.0);
        const double to = std::min(std::floor(crossings[k + 1] + 1e-9), Cols - 1.0);
        for (double x = from; x <= to; ++x)
          Mark(static_cast<long long>(x), row);
      }
    }
  }

  int Cols, Rows;
  int* Pixels;
};

} // namespace

void OBJ_OBJECTS_LIST::Add(OBJ_OBJECT* object)
{
  if (object != nullptr)
    Objects.emplace_back(object);
}

OBJ_OBJECT* OBJ_OBJECTS_LIST::GetObject(int i) const
{
  return i >= 0 && i < GetNbObjects() ? Objects[static_cast<std::size_t>(i)].get() : nullptr;
}

OBJ_OBJECT* OBJ_OBJECTS_LIST::GetObject(const std::string& name) const
{
  for (const auto& object : Objects)
    if (object->GetName() == name)
      return object.get();
  return nullptr;
}

int OBJ_OBJECTS_LIST::GetFromBinaryImageWithOffset(DCM_STRUCT* mask, OBJ_OBJECT* model, short step, int colOffset,
                                                   int rowOffset)
{
  if (mask == nullptr)
    return 0;
  const BinaryView view(*mask);
  const std::size_t every = step < 1 ? 1 : static_cast<std::size_t>(step);
  std::vector<char> seen(static_cast<std::size_t>(view.Cols) * view.Rows, 0);
  int added = 0;
  for (int y = 0; y < view.Rows; ++y)
    for (int x = 0; x < view.Cols; ++x) {
      if (!view.Set(x, y) || seen[static_cast<std::size_t>(y) * view.Cols + x])
        continue;
      const std::size_t size = MarkRegion(view, {x, y}, seen);
      const std::vector<Point> boundary = TraceOuterBoundary(view, {x, y}, size);
      auto object = std::make_unique<OBJ_OBJECT>(Owner, model);
      for (std::size_t k = 0; k < boundary.size(); k += every)
        object->AddPoint(static_cast<double>(boundary[k].x) + colOffset, static_cast<double>(boundary[k].y) + rowOffset);
      Add(object.release());
      ++added;
    }
  return added;
}

DCM_STRUCT* OBJ_OBJECTS_LIST::GetBinaryImage(const std::string& name) const
{
  if (Owner == nullptr)
    return nullptr;
  auto* image = new DCM_STRUCT(Owner->GetNbOfCols(), Owner->GetNbOfRows(), Owner);
  PolygonFill fill(*image);
  for (const auto& object : Objects)
    if (object->GetName() == name)
      fill.Fill(object->GetPoints());
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}
