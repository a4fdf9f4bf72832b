// SPDX-License-Identifier: Apache-2.0
// ipg._ipg: the compiled half of the Python package ipg. The package's
// __init__.py builds the public interface on it.
#include "py_batch_binding.h"
#include "py_image_binding.h"
#include "py_library_call.h"
#include "py_operator_binding.h"
#include "py_progress_sink.h"

#include "ipg/framework/ipg_memory.h"
#include "ipg/framework/ipg_threads.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

PYBIND11_MODULE(_ipg, m)
{
  m.doc() = "Operators of the IPG library for 2-D medical images (compiled module of the package ipg)";
  PyLibraryCall::InstallHostSinks();
  Py_BindImage(m);
  Py_BindOperators(m);
  Py_BindBatch(m);
  m.def("set_num_threads", &Ipg_SetNumThreads, py::arg("n"),
        "Threads of the operators; 0 or less returns to the default (IPG_NUM_THREADS, else every core).");
  m.def("get_num_threads", &Ipg_GetNumThreads, "Threads the operators use.");
  m.def("release_cached_memory", &Ipg_ReleaseCachedMemory,
        "Frees the working memory the operators keep for their next call (the last large block, the calling "
        "thread's Fourier buffer).");
  m.def("set_progress", [](py::object callback) { return PyProgressSink::Instance().SetCallback(std::move(callback)); },
        py::arg("callback").none(true),
        "Sets fn(label, done, total), called as long operators progress; None for none. Returns the previous one.");
}
