// SPDX-License-Identifier: Apache-2.0
#include "py_image_binding.h"

#include "cli/cli_io.h"
#include "dcm/dcm_io.h"
#include "dcm/dcm_phantom.h"
#include "dcm/dcm_struct.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace py = pybind11;

namespace {

[[noreturn]] void RaiseOSError(const std::string& text)
{
  PyErr_SetString(PyExc_OSError, text.c_str());
  throw py::error_already_set();
}

// A new image of the array's shape (rows x columns), every pixel 0.
std::unique_ptr<DCM_STRUCT> ImageOfShape(const py::array& a)
{
  if (a.ndim() != 2)
    throw py::value_error("an image is a 2-D array (rows x columns), not " + std::to_string(a.ndim()) + "-D");
  if (a.shape(0) < 1 || a.shape(1) < 1)
    throw py::value_error("an image needs at least one row and one column");
  if (a.shape(0) > DCM_STRUCT::MaxSide || a.shape(1) > DCM_STRUCT::MaxSide)
    throw py::value_error("an image has at most 65535 rows and columns");
  return std::make_unique<DCM_STRUCT>(static_cast<unsigned>(a.shape(1)), static_cast<unsigned>(a.shape(0)));
}

// Integer arrays hold raw pixel values, which must fit 32 bits.
void CopyIntegers(const py::array& a, DCM_DATA& data)
{
  const auto values = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>::ensure(a);
  const std::int64_t* v = values.data();
  int* out = data.GetIDataAddress();
  for (std::size_t i = 0; i < data.GetSize(); ++i) {
    if (v[i] < INT_MIN || v[i] > INT_MAX)
      throw py::value_error("pixel value " + std::to_string(v[i]) + " does not fit a 32-bit pixel");
    out[i] = static_cast<int>(v[i]);
  }
}

// Real arrays are stored as the library stores reals: times the precision,
// truncated toward zero.
void CopyReals(const py::array& a, DCM_DATA& data)
{
  const auto values = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(a);
  const double* v = values.data();
  int* out = data.GetIDataAddress();
  for (std::size_t i = 0; i < data.GetSize(); ++i)
    out[i] = data.ToRaw(v[i]);
}

std::unique_ptr<DCM_STRUCT> FromArray(const py::array& a, short precision)
{
  auto image = ImageOfShape(a);
  image->Data->SetPrecision(precision);
  const char kind = a.dtype().kind();
  if (kind == 'i' || kind == 'u' || kind == 'b')
    CopyIntegers(a, *image->Data);
  else if (kind == 'f')
    CopyReals(a, *image->Data);
  else
    throw py::type_error("an image is made of integers or reals, not of dtype " + py::str(a.dtype()).cast<std::string>());
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

std::unique_ptr<DCM_STRUCT> Read(const std::filesystem::path& path, int frame)
{
  if (frame < 0)
    throw py::value_error("frame must be 0 or more");
  std::string error;
  std::unique_ptr<DCM_STRUCT> image;
  {
    py::gil_scoped_release released;
    image = Dcm_ReadFile(path.string(), &error, static_cast<unsigned>(frame));
  }
  if (image == nullptr)
    RaiseOSError("cannot read " + error);
  return image;
}

void Write(const DCM_STRUCT& image, const std::filesystem::path& path)
{
  std::string error;
  bool written = false;
  {
    py::gil_scoped_release released;
    written = Dcm_WriteFile(image, path.string(), &error);
  }
  if (!written)
    RaiseOSError("cannot write " + error);
}

py::tuple Spacing(const DCM_STRUCT& image)
{
  const DCM_HEADER h = image.GetHeader();
  return py::make_tuple(h.PixelSpacing[0], h.PixelSpacing[1]);
}

void SetSpacing(DCM_STRUCT& image, std::pair<double, double> spacing)
{
  DCM_HEADER h = image.GetHeader();
  h.PixelSpacing[0] = spacing.first;
  h.PixelSpacing[1] = spacing.second;
  image.SetHeader(h);
}

// A header field as a read-write property.
template <typename T>
void HeaderProperty(py::class_<DCM_STRUCT>& cls, const char* name, T DCM_HEADER::*field, const char* doc)
{
  cls.def_property(
      name, [field](const DCM_STRUCT& image) { return image.GetHeader().*field; },
      [field](DCM_STRUCT& image, T value) {
        DCM_HEADER h = image.GetHeader();
        h.*field = value;
        image.SetHeader(h);
      },
      doc);
}

py::buffer_info Pixels(DCM_STRUCT& image)
{
  const auto cols = static_cast<py::ssize_t>(image.GetNbOfCols());
  const auto rows = static_cast<py::ssize_t>(image.GetNbOfRows());
  return py::buffer_info(image.Data->GetIDataAddress(), sizeof(std::int32_t),
                         py::format_descriptor<std::int32_t>::format(), 2, {rows, cols},
                         {cols * static_cast<py::ssize_t>(sizeof(std::int32_t)), static_cast<py::ssize_t>(sizeof(std::int32_t))});
}

std::string Describe(const DCM_STRUCT& image)
{
  return "<ipg.Image " + std::to_string(image.GetNbOfRows()) + " x " + std::to_string(image.GetNbOfCols()) +
         " (rows x columns), precision " + std::to_string(image.Data->GetPrecision()) + ", extremes " +
         std::to_string(image.Data->GetMin()) + " .. " + std::to_string(image.Data->GetMax()) + ">";
}

} // namespace

void Py_BindImage(py::module_& m)
{
  py::class_<DCM_STRUCT> image(m, "Image", py::buffer_protocol(), R"(An image of the library: signed 32-bit pixels, rows x columns.

numpy.asarray(image) is a view of the pixels, without a copy, that keeps the
image alive. After writing pixels through it, call update_extremes(): the
operators rely on the stored minimum and maximum.)");
  image.def_buffer(Pixels);
  image.def_static("from_array", &FromArray, py::arg("array"), py::arg("precision") = 1,
                   R"(A new image holding a copy of a 2-D array (rows x columns).

Integer arrays give the raw pixel values (which must fit 32 bits); real arrays
are stored as the library stores reals, multiplied by the precision and
truncated toward zero. The extremes are measured.)");
  image.def("copy", [](DCM_STRUCT& self) { return std::make_unique<DCM_STRUCT>(self, true); },
            "A new image with the same header, precision and pixels.");
  image.def_property_readonly("shape", [](const DCM_STRUCT& self) {
    return py::make_tuple(self.GetNbOfRows(), self.GetNbOfCols());
  }, "(rows, columns)");
  image.def_property(
      "precision", [](const DCM_STRUCT& self) { return self.Data->GetPrecision(); },
      [](DCM_STRUCT& self, short p) { self.Data->SetPrecision(p); },
      "Raw values per unit: a pixel's real value is raw / precision (when above 0).");
  image.def_property("spacing", &Spacing, &SetSpacing, "Pixel spacing in mm: (between rows, between columns).");
  image.def_property(
      "rgb", [](const DCM_STRUCT& self) { return self.Data->GetRGB(); },
      [](DCM_STRUCT& self, bool rgb) { self.Data->SetRGB(rgb); }, "True when read from a colour file, as luminance.");
  image.def_property_readonly("min", [](const DCM_STRUCT& self) { return self.Data->GetMin(); },
                              "Stored minimum (raw).");
  image.def_property_readonly("max", [](const DCM_STRUCT& self) { return self.Data->GetMax(); },
                              "Stored maximum (raw).");
  image.def("update_extremes", [](DCM_STRUCT& self) {
    self.Data->SetMin();
    self.Data->SetMax();
  }, "Measures the stored minimum and maximum again over every pixel.");
  HeaderProperty(image, "bits_stored", &DCM_HEADER::BitsStored, "Bits stored (output mode 301 re-scales to 2**bits).");
  HeaderProperty(image, "photometric", &DCM_HEADER::PhotometricInterpretation,
                 "0 MONOCHROME1, 1 MONOCHROME2, 2 and above colour.");
  HeaderProperty(image, "modality", &DCM_HEADER::Modality, "DICOM modality (\"OT\", \"US\"...).");
  image.def("write", &Write, py::arg("path"), "Writes the image as a DICOM file.");
  image.def("to_png", [](const DCM_STRUCT& self, const std::filesystem::path& path) {
    std::string failure;
    {
      py::gil_scoped_release released;
      try {
        Cli_WritePng(self, path.string());
      } catch (const CliFileError& error) {
        failure = error.what();
      }
    }
    if (!failure.empty())
      RaiseOSError(failure);
  }, py::arg("path"), "Writes an 8-bit PNG preview spanning the pixels' extremes.");
  image.def("__repr__", &Describe);

  m.def("read", &Read, py::arg("path"), py::arg("frame") = 0,
        "Reads one frame of a DICOM file; raises OSError with the reason when it cannot.");
  m.def("phantom", [](unsigned size, std::uint64_t seed, unsigned looks, bool linear) {
    if (size < 16 || size > 4096 || looks < 1 || looks > 64)
      throw py::value_error("phantom: size lies between 16 and 4096, looks between 1 and 64");
    DCM_PHANTOM phantom = Dcm_MakePhantom({size, seed, looks, linear});
    return py::make_tuple(py::cast(std::move(phantom.Image)), py::cast(std::move(phantom.Mask)));
  }, py::arg("size") = 256, py::arg("seed") = 1, py::arg("looks") = 1, py::arg("linear") = false,
        R"(A synthetic B-mode ultrasound image and its ground-truth mask (0 tissue,
1 layer, 2 cyst, 3 inclusion), as `ipg phantom` writes them.)");
}
