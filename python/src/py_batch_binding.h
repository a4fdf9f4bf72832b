// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

// The per-file work and the reports of `ipg batch`, for ipg.batch: records
// cross the binding as the JSON text of their report line, so that a cluster
// can carry them between processes and machines as plain strings.
void Py_BindBatch(pybind11::module_& module);
