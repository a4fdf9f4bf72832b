// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

// The operator classes as the program's registry describes and runs them:
// ipg._ipg.classes(), run(), check_settings() and median().
void Py_BindOperators(pybind11::module_& module);
