// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

// ipg.Image (the library's DCM_STRUCT), ipg.read and ipg.phantom.
void Py_BindImage(pybind11::module_& module);
