#pragma once

#include <vector>

// Slope of the least-squares line y = a + b x through the points (x[k], y[k]):
// b = sum((x - xbar)(y - ybar)) / sum((x - xbar)^2) over the first min(|x|, |y|)
// points. Returns 0 when fewer than two points are given or all x are equal.
double Mth_Pente(const std::vector<double>& x, const std::vector<double>& y);
