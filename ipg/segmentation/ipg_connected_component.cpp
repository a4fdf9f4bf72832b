// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_connected_component.h"

#include <algorithm>
#include <new>
#include <utility>

IPG_CONNECTED_COMPONENT::IPG_CONNECTED_COMPONENT(int nbResidents, int index)
    : NbResidents(nbResidents), Index(index)
{
  if (nbResidents > 0) {
    Residents = new (std::nothrow) MTH_2D_DOUBLE[static_cast<std::size_t>(nbResidents)];
    Capacity = Residents != nullptr ? nbResidents : 0;
  }
}

IPG_CONNECTED_COMPONENT::IPG_CONNECTED_COMPONENT(std::shared_ptr<void> block, MTH_2D_DOUBLE* residents,
                                                 int nbResidents, int index)
    : Residents(residents), NbResidents(nbResidents), Index(index),
      Capacity(residents != nullptr ? std::max(nbResidents, 0) : 0), Block(std::move(block))
{
}

IPG_CONNECTED_COMPONENT::IPG_CONNECTED_COMPONENT(const IPG_CONNECTED_COMPONENT& source)
    : NbResidents(source.NbResidents), Index(source.Index)
{
  if (source.Residents != nullptr && source.Capacity > 0) {
    Residents = new MTH_2D_DOUBLE[static_cast<std::size_t>(source.Capacity)];
    std::copy_n(source.Residents, source.Capacity, Residents);
    Capacity = source.Capacity;
  }
}

IPG_CONNECTED_COMPONENT::~IPG_CONNECTED_COMPONENT()
{
  if (Block == nullptr)
    delete[] Residents;
}

void IPG_CONNECTED_COMPONENT::SetResidents(MTH_2D_DOUBLE point, int i)
{
  if (Residents != nullptr && i >= 0 && i < Capacity)
    Residents[i] = point;
}

void IPG_CONNECTED_COMPONENT::SetResidents(double x, double y, int i)
{
  SetResidents(MTH_2D_DOUBLE(x, y), i);
}

void IPG_CONNECTED_COMPONENT::SetResidents(MTH_2D_DOUBLE* residents)
{
  if (residents == Residents)
    return;
  if (Block == nullptr)
    delete[] Residents;
  Block.reset();
  Residents = residents;
  Capacity = residents != nullptr ? std::max(NbResidents, 0) : 0;
}
