// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_holder.h"
#include "ipg/measurement/ipg_statistic2.h"

#include <algorithm>
#include <cmath>

namespace {

// The mutual-information record, or null before code 100 has run.
Json MutualInformationRecord(IPG_STATISTIC2& op)
{
  const double* record = op.GetMutualInformationRecord();
  if (record == nullptr)
    return Json();
  Json entries(Json::Object{});
  entries.Set("MutualInformation", record[IPG_STATISTIC2::kMutualInformation]);
  entries.Set("NormalisedMutualInformation", record[IPG_STATISTIC2::kNormalisedMutualInformation]);
  entries.Set("JointEntropy", record[IPG_STATISTIC2::kJointEntropy]);
  entries.Set("FirstEntropy", record[IPG_STATISTIC2::kFirstEntropy]);
  entries.Set("SecondEntropy", record[IPG_STATISTIC2::kSecondEntropy]);
  return entries;
}

const bool registeredStatistic2 = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_STATISTIC2>>(
      "IPG_STATISTIC2", "similarity of two images: distance, mutual information, correlation ratio",
      [](const CliImages& im) { return std::make_unique<IPG_STATISTIC2>(im.in, im.second, im.roi); });
  table->SecondInput([](IPG_STATISTIC2& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->ResultFn("MutualInformationRecord", MutualInformationRecord);
  table->FilledBy("MutualInformationRecord", {100});
  return Cli_Register(std::move(table));
}();

// The exponents are written as the image "holder": raw pixel = exponent x 1000,
// truncated toward zero, with the store's precision set to 1000.
constexpr short kHolderPrecision = 1000;

void AddHolderImage(IPG_HOLDER& op, const CliImages& images, CliRunOutcome& outcome)
{
  const double* holder = op.GetHolder();
  if (holder == nullptr || images.in == nullptr)
    return;
  auto image = std::make_unique<DCM_STRUCT>(*images.in, false);
  image->Data->SetPrecision(kHolderPrecision);
  const unsigned cols = image->Data->GetNbOfCols();
  const unsigned rows = image->Data->GetNbOfRows();
  double low = 0.0, high = 0.0, sum = 0.0;
  std::size_t finite = 0;
  for (unsigned row = 0; row < rows; ++row)
    for (unsigned col = 0; col < cols; ++col) {
      const double v = holder[static_cast<std::size_t>(row) * cols + col];
      image->Data->SetValue(col, row, v);
      if (!std::isfinite(v))
        continue;
      low = finite == 0 ? v : std::min(low, v);
      high = finite == 0 ? v : std::max(high, v);
      sum += v;
      ++finite;
    }
  image->Data->SetMin();
  image->Data->SetMax();
  outcome.images.emplace_back("holder", std::move(image));
  Json summary(Json::Object{});
  summary.Set("image", "holder");
  summary.Set("precision", static_cast<int>(kHolderPrecision));
  summary.Set("min", low);
  summary.Set("max", high);
  summary.Set("mean", finite == 0 ? 0.0 : sum / static_cast<double>(finite));
  summary.Set("finite", static_cast<long long>(finite));
  outcome.results.Set("Holder", summary);
}

const bool registeredHolder = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_HOLDER>>(
      "IPG_HOLDER",
      "local Hölder exponents by capacity measures; image \"holder\" holds exponent x 1000 (precision 1000)",
      [](const CliImages& im) { return std::make_unique<IPG_HOLDER>(im.in, im.roi); });
  table->Result("MeasType", &IPG_HOLDER::GetMeasType);
  table->Result("WindowSize", &IPG_HOLDER::GetWindowSize);
  table->After(AddHolderImage);
  return Cli_Register(std::move(table));
}();

} // namespace
