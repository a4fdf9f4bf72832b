// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_funct.h"

#include "mth/mth_random.h"

#include <cmath>
#include <vector>

double MTH_FUNCT::ComputeOptimumSimmulatedAnnealing(SIMULATED_ANNEALING_PARAM* param, double* x, short n,
                                                    double* step, short seed)
{
  if (!Cost || param == nullptr || x == nullptr || step == nullptr || n < 1)
    return 0.0;
  Mth_InitRandom3(seed);
  std::vector<double> current(x, x + n);
  std::vector<double> best(current);
  double currentCost = Cost(current.data(), n);
  double bestCost = currentCost;
  double temperature = param->InitialTemperature;

  for (int stage = 0; stage < param->NbStages && temperature > param->FinalTemperature; ++stage) {
    for (int trial = 0; trial < param->NbTrialsPerStage; ++trial) {
      const int k = static_cast<int>(Mth_Random3(1) * n) % n;
      const double saved = current[static_cast<std::size_t>(k)];
      current[static_cast<std::size_t>(k)] += (2.0 * Mth_Random3(1) - 1.0) * step[k];
      const double cost = Cost(current.data(), n);
      const double delta = cost - currentCost;
      if (delta <= 0.0 || Mth_Random3(1) < std::exp(-delta / temperature)) {
        currentCost = cost;
        if (cost < bestCost) {
          bestCost = cost;
          best = current;
        }
      } else {
        current[static_cast<std::size_t>(k)] = saved;
      }
    }
    temperature *= param->CoolingFactor;
  }
  for (short k = 0; k < n; ++k)
    x[k] = best[static_cast<std::size_t>(k)];
  return bestCost;
}
