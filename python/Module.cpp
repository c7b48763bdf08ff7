#include "Bind.h"

#include <Korvane/Version.h>

namespace py = pybind11;

std::string PathOf(const py::handle& path) {
    return py::module_::import("os").attr("fsdecode")(path).attr("encode")("utf-8").cast<std::string>();
}

std::vector<std::string> PathsOf(const py::object& paths) {
    if (py::isinstance<py::str>(paths) || py::hasattr(paths, "__fspath__")) return {PathOf(paths)};
    std::vector<std::string> all;
    for (const py::handle path : paths) all.push_back(PathOf(path));
    return all;
}

py::object FromJson(const std::string& json) {
    return py::module_::import("json").attr("loads")(py::bytes(json).attr("decode")("utf-8", "replace"));
}

PYBIND11_MODULE(_korvane, module) {
    module.doc() = "The compiled part of korvane.";
    module.attr("__version__") = KORVANE_VERSION;
    BindErrors(module);
    BindSeries(module);
    BindVolume(module);
    BindPictures(module);
    BindDerived(module);
    BindDataSet(module);
    BindJobs(module);
    BindNetwork(module);
    BindBatch(module);
}
