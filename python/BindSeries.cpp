#include "Bind.h"
#include "Calls.h"

#include <pybind11/stl.h>

namespace py = pybind11;
using korvane::Found;
using korvane::Series;

namespace {

std::string SeriesText(const Series& series) {
    return "<korvane.Series " + std::to_string(series.GetNumber()) + ", " + series.GetModality() + ", " +
           std::to_string(series.CountImages()) + " images: " + series.GetDescription() + ">";
}

std::vector<std::pair<std::string, int>> SlicesOf(const Series& series) {
    std::vector<std::pair<std::string, int>> slices;
    for (const korvane::SeriesSlice& slice : series.GetSlices()) slices.emplace_back(slice.path, slice.frame);
    return slices;
}

std::vector<std::pair<std::string, std::vector<std::size_t>>> VolumesOf(const Series& series) {
    std::vector<std::pair<std::string, std::vector<std::size_t>>> volumes;
    for (korvane::VolumeInfo& volume : series.GetVolumes()) volumes.emplace_back(volume.key, std::move(volume.slices));
    return volumes;
}

std::vector<std::string> FilesOf(const Series& series) {
    std::vector<std::string> files;
    for (korvane::SeriesSlice& slice : series.GetSlices()) {
        if (files.empty() || files.back() != slice.path) files.push_back(std::move(slice.path));
    }
    return files;
}

void BindOneSeries(py::module_& module) {
    const auto text = [](const std::string& (Series::*get)() const) {
        return [get](const Series& self) { return (self.*get)(); };
    };
    py::class_<Series>(module, "Series",
                       R"(Images with one series UID, one orientation, one matrix and one pixel format.

Texts are '' where the files have none; those of the first slice count. Load it with korvane.load(series) or
series.load().

    for series in korvane.find('/data/study'):
        print(series.describe()))")
        .def_property_readonly("uid", text(&Series::GetUid))
        .def_property_readonly("number", &Series::GetNumber, "Series Number, 0 without one.")
        .def_property_readonly("modality", text(&Series::GetModality))
        .def_property_readonly("description", text(&Series::GetDescription))
        .def_property_readonly("sop_class", text(&Series::GetSopClass))
        .def_property_readonly("patient_name", text(&Series::GetPatientName), "As written, with its carets.")
        .def_property_readonly("patient_id", text(&Series::GetPatientId))
        .def_property_readonly("study_uid", text(&Series::GetStudyUid))
        .def_property_readonly("study_date", text(&Series::GetStudyDate), "YYYYMMDD.")
        .def_property_readonly("study_description", text(&Series::GetStudyDescription))
        .def_property_readonly("has_pixels", &Series::HasPixels)
        .def_property_readonly("files", FilesOf, "Paths, in the order of the slices.")
        .def_property_readonly("slices", SlicesOf, "(path, frame) of each slice; frame -1: the whole file.")
        .def_property_readonly("volumes", VolumesOf, "(key, indices of slices) of each volume that can be loaded.")
        .def_property_readonly("findings", &Series::GetFindings, "What should be known before it is trusted.")
        .def(
            "describe", [](const Series& self) { return korvane::Describe(self); }, "Several lines for people.")
        .def("__len__", &Series::CountImages)
        .def("__repr__", SeriesText);
}

void BindFound(py::module_& module) {
    py::class_<Found>(module, "Found", R"(What lies under some paths: a sequence of series, by number, UID and path.

What could not be read, or is in none of them, is in `unreadable` and `left_out`.

    found = korvane.find('/data/study')
    print(len(found), found[0].description, found.unreadable))")
        .def("__len__", [](const Found& self) { return self.GetSeries().size(); })
        .def("__getitem__",
             [](const Found& self, py::ssize_t index) {
                 const auto count = static_cast<py::ssize_t>(self.GetSeries().size());
                 if (index < 0) index += count;
                 if (index < 0 || index >= count) throw py::index_error("no such series");
                 return self.GetSeries()[static_cast<std::size_t>(index)];
             })
        .def("only", &Found::Only,
             "The one series that has pixels; raises WrongArgument with the choices where there are several.")
        .def("choose", &Found::Choose, py::arg("uid"), "The series with that UID.")
        .def_property_readonly("unreadable", &Found::GetUnreadable, "Files and folders that could not be read.")
        .def_property_readonly(
            "left_out",
            [](const Found& self) {
                std::vector<std::pair<std::string, std::string>> files;
                for (const korvane::LeftOutFile& file : self.GetLeftOut()) files.emplace_back(file.path, file.why);
                return files;
            },
            "(path, reason) of each file that is in no series.")
        .def(
            "to_dict", [](const Found& self) { return FromJson(korvane::ToJson(self)); },
            "What `korvane info --json` prints.")
        .def("__repr__", [](const Found& self) { return korvane::List(self); });
}

}  // namespace

void BindSeries(py::module_& module) {
    BindOneSeries(module);
    BindFound(module);
    module.def(
        "find",
        [](const py::object& paths, unsigned jobs, const py::object& progress) {
            return Run(progress, [all = PathsOf(paths), jobs](korvane::Watcher& watcher) {
                return korvane::Find(all, {.jobs = jobs, .watcher = &watcher});
            });
        },
        py::arg("paths"), py::kw_only(), py::arg("jobs") = 0, py::arg("progress") = py::none(),
        R"(Finds the DICOM series under paths: folders, with all below them, or files. Pixels are not read.

paths: one path or several. jobs: threads, 0 for one on each core. progress: called as progress(label, done, total), or
True for a bar by tqdm. Raises NotFound for a path that does not exist.

    for series in korvane.find('/data/study'):
        print(series.modality, len(series), series.findings))");
}
