#include "Bind.h"

#include <Korvane/Kit.h>

#include <pybind11/stl.h>

namespace py = pybind11;

namespace {

void Translate(std::exception_ptr failure) {  // NOLINT(performance-unnecessary-value-param): pybind11's signature
    try {
        if (failure) std::rethrow_exception(failure);
    } catch (const korvane::Error& error) {
        const py::object make = py::module_::import("korvane._errors").attr("make");
        const auto text = [](const std::string& bytes) {
            return py::reinterpret_steal<py::object>(
                PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogateescape"));
        };
        const py::object exception = make(text(error.what()), korvane::WordOf(error.GetKind()), text(error.GetFile()),
                                          error.GetElement(), error.GetOffset(), text(error.GetChoices()));
        PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
    }
}

}  // namespace

void BindErrors(py::module_& module) {
    py::register_exception_translator(Translate);
    using korvane::Finding;
    py::class_<Finding>(module, "Finding", "Something odd about a file, a series or a job.")
        .def_property_readonly(
            "kind", [](const Finding& self) { return korvane::WordOf(self.kind); }, "A stable word, such as 'tilt'.")
        .def_readonly("text", &Finding::text, "The sentence for people.")
        .def_readonly("slices", &Finding::slices, "Indices in the series' list of slices.")
        .def_readonly("files", &Finding::files, "Paths.")
        .def_readonly("lengths", &Finding::lengths, "Millimetres.")
        .def_readonly("angles", &Finding::angles, "Degrees.")
        .def_readonly("count", &Finding::count)
        .def("__repr__", [](const Finding& self) {
            return "<korvane.Finding " + std::string(korvane::WordOf(self.kind)) + ": " + self.text + ">";
        });
}
