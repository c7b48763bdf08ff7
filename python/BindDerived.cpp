// Arrays of Python's as volumes and as derived series; korvane/_arrays.py prepares them.
#include "Bind.h"
#include "Calls.h"

#include <array>
#include <optional>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace py = pybind11;
using korvane::Volume;
using korvane::VoxelArray;
using korvane::VoxelType;

namespace {

using Affine = std::array<std::array<double, 4>, 4>;

VoxelType TypeOf(const py::array& array, bool colour) {
    if (colour) return VoxelType::Rgb24;
    const auto is = [&](const py::dtype& type) { return array.dtype().equal(type); };
    if (is(py::dtype::of<std::int8_t>())) return VoxelType::Int8;
    if (is(py::dtype::of<std::uint8_t>())) return VoxelType::UInt8;
    if (is(py::dtype::of<std::int16_t>())) return VoxelType::Int16;
    if (is(py::dtype::of<std::uint16_t>())) return VoxelType::UInt16;
    if (is(py::dtype::of<std::int32_t>())) return VoxelType::Int32;
    if (is(py::dtype::of<std::uint32_t>())) return VoxelType::UInt32;
    if (is(py::dtype::of<float>())) return VoxelType::Float32;
    if (is(py::dtype::of<double>())) return VoxelType::Float64;
    throw py::type_error("no voxels are of this type");
}

/// `array`: C-contiguous, (times, planes, rows, columns), a last axis of 3 for colour; it must outlive what is returned.
VoxelArray VoxelsOf(const py::array& array, bool colour, const std::pair<double, double>& rescale,
                    const std::string& unit) {
    VoxelArray made;
    made.type = TypeOf(array, colour);
    for (int axis = 0; axis < 4; ++axis)
        made.size[static_cast<std::size_t>(3 - axis)] = static_cast<std::size_t>(array.shape(axis));
    made.voxels = {static_cast<const std::byte*>(array.data()), static_cast<std::size_t>(array.nbytes())};
    made.rescale = {rescale.first, rescale.second};
    made.unit = unit;
    return made;
}

void Place(VoxelArray& array, const Affine& affine) {
    std::array<Volume::Vector, 3> steps;
    Volume::Vector origin;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis) steps[axis][i] = affine[i][axis];
        origin[i] = affine[i][3];
    }
    array.PlaceBy(origin, steps);
}

std::shared_ptr<Volume> FromArray(const py::array& array, bool colour, const Volume* like,
                                  const std::optional<Affine>& affine, const std::optional<korvane::Series>& source,
                                  const std::pair<double, double>& rescale, const std::string& unit,
                                  const std::string& description, const std::string& derivation,
                                  const py::object& progress) {
    VoxelArray voxels = VoxelsOf(array, colour, rescale, unit);
    affine ? Place(voxels, *affine) : voxels.PlaceAs(*like);
    korvane::DeriveOptions options;
    options.source = source;
    options.description = description;
    options.derivation = derivation;
    return Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return std::make_shared<Volume>(korvane::MakeVolume(voxels, own));
    });
}

py::dict SaveDicom(const Volume& volume, const py::object& folder, const std::string& description,
                   const std::string& derivation, int number, bool secondaryCapture, std::optional<double> maxError,
                   std::optional<double> nan, bool replace, const py::object& progress) {
    korvane::DeriveOptions options;
    options.description = description;
    options.derivation = derivation;
    options.number = number;
    options.secondaryCapture = secondaryCapture;
    options.mostError = maxError;
    options.replaceNonFinite = nan;
    options.replace = replace;
    const std::string path = PathOf(folder);
    const korvane::DerivedReport report = Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::WriteSeries(volume, path, own);
    });
    py::list files;
    for (const korvane::ExportOutput& file : report.files) files.append(py::cast(file.name));
    return py::dict(py::arg("series_uid") = report.seriesUid, py::arg("sop_class") = report.sopClass,
                    py::arg("error") = report.error, py::arg("replaced") = report.replaced, py::arg("files") = files,
                    py::arg("findings") = report.findings);
}

}  // namespace

void BindDerived(py::module_& module) {
    module.def("_from_array", FromArray);
    auto volume = static_cast<py::class_<Volume, std::shared_ptr<Volume>>>(module.attr("Volume"));
    volume.def("save_dicom", SaveDicom, py::arg("folder"), py::kw_only(), py::arg("description") = "",
               py::arg("derivation") = "", py::arg("number") = 0, py::arg("secondary_capture") = false,
               py::arg("max_error") = py::none(), py::arg("nan") = py::none(), py::arg("replace") = false,
               py::arg("progress") = py::none(),
               R"(Writes the volume as a derived DICOM series, FOLDER/0001.dcm and so on: all files or none.

Patient, study and frame of reference are those of the series it came from, UIDs are new, and each image refers to its
sources. The class is the CT, MR or PET image of the source where that holds the voxels, else Secondary Capture. Values
become 16-bit integers, with slope and intercept over their range where they are none.

description: of the series; derivation: what was done; number: of the series, 0 for 100 times the source's and 1.
secondary_capture: for masks and maps that are no image of their modality. max_error: the most that rounding may change a
real value; what needs more raises Unsupported. nan: what stands for values that are no finite numbers, which raise
Unsupported otherwise. replace: files of the same names. Returns 'series_uid', 'sop_class', 'error' (the most that rounding
changed a value, in `unit`), 'replaced' (values), 'files', 'findings'.

    smooth = korvane.from_array(gaussian_filter(volume.real(), 2), like=volume, unit='HU')
    smooth.save_dicom('smooth', derivation='Gaussian, sigma 2 voxels'))");
}
