// SPDX-License-Identifier: Apache-2.0
// One operator class driven as `ipg run` drives it, through the program's
// operator registry: fuzzed image sizes and pixels, operation code (the class's
// codes and a few invalid ones), output mode, ROI, second image and parameters
// (extreme integers, NaN and infinite reals, odd kernels and points).
// IPG_FUZZ_CLASS names the class; one program is built per class.
//
// Input layout: the decisions first (sizes, code, mode, parameters), the pixels
// last, so that a mutation of the pixels keeps the run's shape.
#include "cli/cli_pipeline.h"
#include "cli/operator_registry.h"
#include "fuzz/fuzz_input.h"
#include "ipg/internal/ipg_guard.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#ifndef IPG_FUZZ_CLASS
#error "IPG_FUZZ_CLASS must name the operator class to fuzz"
#endif

namespace {

constexpr int kMaxSide = 64; // keeps a run fast enough for thousands of runs
constexpr int kRoiValue = 16777217;

const int kExtremeInts[] = {0, 1, -1, 2, 3, 4, 5, 7, 8, 15, 16, 255, 256, 4095, 32767, -32768, 65535, 65536,
                            16777216, kRoiValue, 17000000, INT_MAX, INT_MIN, INT_MAX - 1, INT_MIN + 1};
const double kExtremeReals[] = {0.0, -0.0, 1.0, -1.0, 0.5, 2.0, 3.14159265358979, 1e-300, -1e-300, 1e300,
                                -1e300, 1e9, -1e9, 4.9e-324, std::numeric_limits<double>::quiet_NaN(),
                                std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};

std::string IntText(FuzzInput& in)
{
  switch (in.Range(0, 3)) {
  case 0: return std::to_string(in.Pick(kExtremeInts));
  case 1: return std::to_string(in.Range(-3, 100));
  case 2: return std::to_string(in.I32());
  default: return std::to_string(in.Range(0, 20));
  }
}

std::string RealText(FuzzInput& in)
{
  double v;
  switch (in.Range(0, 3)) {
  case 0: v = in.Pick(kExtremeReals); break;
  case 1: v = in.Range(-100, 100) / 10.0; break;
  case 2: v = in.Double(); break;
  default: v = in.Range(0, 40); break;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%.17g", v);
  return text;
}

// "WxH:c,c,..." (a kernel or structuring element), mostly well formed.
std::string KernelText(FuzzInput& in)
{
  const int sides[] = {1, 2, 3, 3, 4, 5, 5, 7, 9, 11, 31, 65, 0, -1};
  const int cols = in.Pick(sides), rows = in.Pick(sides);
  std::string text = std::to_string(cols) + "x" + std::to_string(rows) + ":";
  const int count = cols > 0 && rows > 0 ? cols * rows : 1;
  for (int i = 0; i < count; ++i)
    text += (i ? "," : "") + (in.Chance(4) ? std::to_string(in.Pick(kExtremeInts)) : std::to_string(in.Range(-2, 9)));
  return text;
}

bool CountsPasses(const std::string& name)
{
  return name == "NbIter" || name == "Iterations" || name == "GvfIterations";
}

// Thousands of valid passes only repeat the first few, at a cost that would
// hide everything else: a valid count is brought under 5, a refused one kept.
// The input's bytes are read as before: kept inputs still decode to the same run.
std::string FewPasses(const std::string& text)
{
  const long long count = std::strtoll(text.c_str(), nullptr, 10);
  return count > 4 && count <= kIpgMaxPasses ? std::to_string(count % 5) : text;
}

// The text of a parameter of that type; empty when the fuzzer must not set it
// (a path would make the run write files).
std::string ValueText(FuzzInput& in, const std::string& type)
{
  if (type == "real")
    return RealText(in);
  if (type == "bool")
    return in.Chance(2) ? "1" : "0";
  if (type == "text")
    return std::string(in.Range(0, 12), static_cast<char>('A' + in.Range(0, 25)));
  if (type == "path")
    return "";
  if (type == "x,y")
    return IntText(in) + "," + IntText(in);
  if (type == "real,real")
    return RealText(in) + "," + RealText(in);
  if (type == "real,real,...") // the speckle settings first,second,real: whole numbers, then a real
    return IntText(in) + "," + IntText(in) + "," + RealText(in);
  if (type.find(':') != std::string::npos || type == "kernel")
    return KernelText(in);
  return IntText(in); // "integer" and anything new
}

struct ImageShape {
  int cols = 1, rows = 1;
};

ImageShape Shape(FuzzInput& in) { return {in.Range(1, kMaxSide), in.Range(1, kMaxSide)}; }

// Where the second image and the ROI come from: absent, the input's size or another size.
std::optional<ImageShape> ExtraShape(FuzzInput& in, const ImageShape& input, bool required)
{
  const int choice = in.Range(0, 7);
  if (choice < 3 && !required)
    return std::nullopt;
  if (choice == 7)
    return Shape(in);
  return input;
}

std::unique_ptr<DCM_STRUCT> MakeImage(const ImageShape& shape)
{
  return std::make_unique<DCM_STRUCT>(static_cast<unsigned>(shape.cols), static_cast<unsigned>(shape.rows));
}

// Header fields that operators read, precision, then the pixels.
void FillImage(FuzzInput& in, DCM_STRUCT& image, bool mask)
{
  const short bits[] = {16, 16, 12, 8, 1, 0, 15, 24, 31, 32, -1};
  DCM_HEADER header = image.GetHeader();
  header.BitsStored = in.Pick(bits);
  header.PhotometricInterpretation = static_cast<unsigned short>(in.Range(0, 2));
  image.SetHeader(header);
  const short precisions[] = {1, 1, 1, 10, 1000};
  image.Data->SetPrecision(in.Pick(precisions));

  const int kind = mask ? in.Range(0, 1) : in.Range(0, 5);
  const int constant = in.Pick(kExtremeInts);
  for (unsigned r = 0; r < image.GetNbOfRows(); ++r)
    for (unsigned c = 0; c < image.GetNbOfCols(); ++c) {
      int v = 0;
      switch (kind) {
      case 0: v = in.Byte() & 1 ? kRoiValue : 0; break;
      case 1: v = in.Byte() < 8 ? in.Pick(kExtremeInts) : in.Byte(); break;
      case 2: v = in.I32(); break;
      case 3: v = constant; break;
      case 4: v = static_cast<int>(in.U32() % 4096); break;
      default: v = static_cast<signed char>(in.Byte()); break;
      }
      image.Data->SetValue(c, r, v);
    }
  image.Data->SetMin();
  image.Data->SetMax();
}

int Tools(FuzzInput& in, const CliOperator& op)
{
  const int invalid[] = {0, -1, 1, 99, 65535, INT_MAX, INT_MIN, 20000};
  if (op.Codes().empty() || in.Chance(8))
    return in.Chance(2) ? in.Pick(invalid) : (op.Codes().empty() ? 0 : op.Codes().back().code + 1);
  return op.Codes()[in.Byte() % op.Codes().size()].code;
}

std::optional<short> Mode(FuzzInput& in)
{
  const short modes[] = {300, 301, 302, 303, 304, 0, -1, 305, 32767, -32768};
  if (in.Chance(2))
    return std::nullopt;
  return in.Pick(modes);
}

void AddParameters(FuzzInput& in, const CliOperator& op, CliSettings& settings)
{
  const auto& parameters = op.Parameters();
  const int count = parameters.empty() ? 0 : in.Range(0, 4);
  for (int i = 0; i < count; ++i) {
    const CliParameter& p = parameters[in.Byte() % parameters.size()];
    if (p.name == "ClassType")
      continue;
    std::string text = ValueText(in, p.type);
    if (CountsPasses(p.name))
      text = FewPasses(text);
    if (!text.empty() || p.type == "text")
      settings.values.emplace_back(p.name, std::move(text));
  }
}

// IPG_CONTAINER takes its held class by class-type code; the code and the
// parameters are those of the held class.
const CliOperator* HeldClass(FuzzInput& in, const CliOperator& container, CliSettings& settings)
{
  const int invalid[] = {20000, 20012, 0, -1, 20015};
  const auto& types = container.Codes();
  const int type = in.Chance(16) || types.empty() ? in.Pick(invalid) : types[in.Byte() % types.size()].code;
  settings.values.emplace_back("ClassType", std::to_string(type));
  const std::string name = Cli_ContainerClassName(type);
  return name.empty() ? nullptr : Cli_FindOperator(name);
}

std::string ShapeText(const std::optional<ImageShape>& shape)
{
  return shape ? std::to_string(shape->cols) + "x" + std::to_string(shape->rows) : "none";
}

// The run as `ipg run` options, for reading a finding (IPG_FUZZ_VERBOSE=1).
void Describe(const CliOperator& op, const CliSettings& settings, const ImageShape& shape,
              const std::optional<ImageShape>& second, const std::optional<ImageShape>& roi)
{
  std::string text = op.Name() + " in " + ShapeText(shape) + " second " + ShapeText(second) + " roi " + ShapeText(roi);
  if (settings.tools)
    text += " --tools " + std::to_string(*settings.tools);
  if (settings.mode)
    text += " --mode " + std::to_string(*settings.mode);
  if (settings.precision)
    text += " --precision " + std::to_string(*settings.precision);
  for (const auto& [name, value] : settings.values)
    text += " --set " + name + "=" + value;
  std::fprintf(stderr, "%s\n", text.c_str());
}

int RunOperator(const CliOperator& op, const std::uint8_t* data, std::size_t size)
{
  FuzzInput in(data, size);
  CliSettings settings;
  const CliOperator* described = &op;
  if (op.Name() == "IPG_CONTAINER")
    described = HeldClass(in, op, settings);
  if (described == nullptr)
    described = &op;

  const ImageShape shape = Shape(in);
  const std::optional<ImageShape> secondShape = ExtraShape(in, shape, described->NeedsSecondInput());
  const std::optional<ImageShape> roiShape = ExtraShape(in, shape, false);
  settings.tools = Tools(in, *described);
  settings.mode = Mode(in);
  if (in.Chance(4)) {
    const short precisions[] = {1, 10, 1000, 32767};
    settings.precision = in.Pick(precisions);
  }
  AddParameters(in, *described, settings);

  auto image = MakeImage(shape);
  FillImage(in, *image, false);
  std::unique_ptr<DCM_STRUCT> second, roi;
  if (secondShape) {
    second = MakeImage(*secondShape);
    FillImage(in, *second, false);
  }
  if (roiShape) {
    roi = MakeImage(*roiShape);
    FillImage(in, *roi, !in.Chance(4));
  }
  if (std::getenv("IPG_FUZZ_VERBOSE") != nullptr)
    Describe(op, settings, shape, secondShape, roiShape);
  try {
    op.Run({image.get(), second.get(), roi.get()}, settings);
  } catch (const CliUsageError&) {
    // A value the program refuses before the operator sees it.
  }
  return 0;
}

const CliOperator* Target()
{
  static const CliOperator* op = Cli_FindOperator(IPG_FUZZ_CLASS);
  return op;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz_SilenceMessages();
  if (Target() == nullptr) {
    std::fprintf(stderr, "no operator class %s in the registry\n", IPG_FUZZ_CLASS);
    std::abort();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  return RunOperator(*Target(), data, size);
}
