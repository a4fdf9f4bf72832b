// SPDX-License-Identifier: Apache-2.0
#include "mth/internal/mth_fft_plan_text.h"

#include <cctype>

std::string Mth_PlanText(const char* printed)
{
  std::string text;
  for (const char* c = printed; *c != '\0'; ++c) {
    const bool space = std::isspace(static_cast<unsigned char>(*c)) != 0;
    if (!space)
      text += *c;
    else if (!text.empty() && text.back() != ' ')
      text += ' ';
  }
  while (!text.empty() && text.back() == ' ')
    text.pop_back();
  return text;
}

MTH_PLAN_NODE Mth_ParsePlanNode(const std::string& node)
{
  MTH_PLAN_NODE parsed;
  if (node.size() < 2 || node.front() != '(' || node.back() != ')')
    return parsed;
  const std::size_t nameEnd = node.find_first_of(" ()", 1);
  parsed.Solver = node.substr(1, nameEnd - 1);
  int depth = 0;
  std::size_t childStart = 0;
  for (std::size_t i = nameEnd; i + 1 < node.size(); ++i) {
    if (node[i] == '(' && depth++ == 0)
      childStart = i;
    else if (node[i] == ')' && --depth == 0)
      parsed.Children.push_back(node.substr(childStart, i - childStart + 1));
  }
  return parsed;
}

std::string Mth_PlanLineBody(const std::string& node, int count, int length, bool& throughScratch)
{
  const MTH_PLAN_NODE loop = Mth_ParsePlanNode(node);
  throughScratch = false;
  const std::string lines = std::to_string(count);
  if (loop.Solver == "dft-vrank>=1-x" + lines + "/1")
    return loop.Children.size() == 1 ? loop.Children[0] : std::string();
  const std::string buffered = "dft-buffered-" + std::to_string(length) + "-x";
  const std::size_t slash = loop.Solver.find('/');
  if (loop.Solver.rfind(buffered, 0) != 0 || slash == std::string::npos || loop.Children.size() != 3 ||
      loop.Children[2] != "(dft-nop)" || loop.Solver.compare(slash, lines.size() + 2, "/" + lines + "-") != 0)
    return {};
  const std::string batch = loop.Solver.substr(buffered.size(), slash - buffered.size());
  const MTH_PLAN_NODE inner = Mth_ParsePlanNode(loop.Children[0]);
  if (inner.Solver != "dft-vrank>=1-x" + batch + "/1" || inner.Children.size() != 1)
    return {};
  throughScratch = true;
  return inner.Children[0];
}
