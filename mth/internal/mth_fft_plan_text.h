// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

// Reading the plans FFTW prints, "(solver ... (child) ...)": which 1-D
// transform a 2-D plan runs on each line, so that the lines can be shared
// among threads through plans that print the same.

// The printed text with every run of white space made one space, none at the
// ends (the print indents children by depth).
std::string Mth_PlanText(const char* printed);

// The solver's name of a printed node and its parenthesised children.
struct MTH_PLAN_NODE {
  std::string Solver;
  std::vector<std::string> Children;
};

MTH_PLAN_NODE Mth_ParsePlanNode(const std::string& node);

// What a printed loop over count lines of length values runs on each line:
// the body of "(dft-vrank>=1-x<count>/1 (body))", or of a loop that FFTW
// buffers in full batches, "(dft-buffered-<length>-x<batch>/<count>-<skew>
// (dft-vrank>=1-x<batch>/1 (body)) (copy) (dft-nop))", whose body transforms
// each line out of place (throughScratch). "" for any other loop.
std::string Mth_PlanLineBody(const std::string& node, int count, int length, bool& throughScratch);
