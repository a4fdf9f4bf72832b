// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

// Settings of the simulated-annealing search.
struct SIMULATED_ANNEALING_PARAM {
  double InitialTemperature = 1.0;
  double CoolingFactor = 0.9;      // temperature multiplied by this after each stage
  int NbStages = 100;              // number of temperature stages
  int NbTrialsPerStage = 100;      // trial moves per stage
  double FinalTemperature = 1e-6;  // the search stops below it
};

// A cost function of n real variables and its minimisation by simulated annealing
// (Kirkpatrick, Gelatt and Vecchi, "Optimization by simulated annealing", Science
// 220, 1983): from the start point, each trial moves one variable by a uniform step
// in [-step_k, step_k]; a move that lowers the cost is taken, one that raises it by
// d is taken with probability exp(-d / T); T is cooled geometrically.
class MTH_FUNCT {
public:
  using CostFunction = std::function<double(const double* x, short n)>;

  MTH_FUNCT() = default;
  explicit MTH_FUNCT(CostFunction cost) : Cost(std::move(cost)) {}
  void SetCostFunction(CostFunction cost) { Cost = std::move(cost); }

  // x holds n start values and receives the best point found; step holds the n
  // largest moves per variable. The seed makes the run repeatable. Returns the
  // lowest cost found; without a cost function, null arrays or n < 1, returns 0
  // and leaves x unchanged.
  double ComputeOptimumSimmulatedAnnealing(SIMULATED_ANNEALING_PARAM* param, double* x, short n,
                                           double* step, short seed);

private:
  CostFunction Cost;
};
