#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_statistic2.h"

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
  table->Code(100, "ComputeMutualInformation")
      .Code(101, "ComputeCorrelationRatio")
      .Code(102, "ComputeLeastSquared");
  table->SecondInput([](IPG_STATISTIC2& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->ResultFn("MutualInformationRecord", MutualInformationRecord);
  return Cli_Register(std::move(table));
}();

} // namespace
