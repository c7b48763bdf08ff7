#include "Bind.h"
#include "Calls.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace py = pybind11;
using korvane::Volume;
using korvane::VoxelType;

namespace {

using Affine = std::array<std::array<double, 4>, 4>;

// How far a plane may lie from its place in an even stack, as a fraction of the distance of planes.
constexpr double kUneven = 0.01;

py::dtype TypeOf(VoxelType type) {
    switch (type) {
    case VoxelType::Int8: return py::dtype::of<std::int8_t>();
    case VoxelType::UInt8:
    case VoxelType::Rgb24: return py::dtype::of<std::uint8_t>();
    case VoxelType::Int16: return py::dtype::of<std::int16_t>();
    case VoxelType::UInt16: return py::dtype::of<std::uint16_t>();
    case VoxelType::Int32: return py::dtype::of<std::int32_t>();
    case VoxelType::UInt32: return py::dtype::of<std::uint32_t>();
    case VoxelType::Float32: return py::dtype::of<float>();
    case VoxelType::Float64: return py::dtype::of<double>();
    }
    throw py::type_error("voxels of an unknown type");
}

// Shares the voxels; the array keeps `self` alive, and is not writable since a volume's voxels are constant.
py::array ArrayOf(const py::object& self) {
    const auto& volume = self.cast<const Volume&>();
    const auto [columns, rows, planes, times] = volume.GetSize();
    std::vector<std::size_t> shape = {planes, rows, columns};
    if (times > 1) shape.insert(shape.begin(), times);
    if (volume.GetType() == VoxelType::Rgb24) shape.push_back(3);
    py::array array(TypeOf(volume.GetType()), shape, volume.GetBytes().data(), self);
    array.attr("setflags")(py::arg("write") = false);
    return array;
}

// Maps (column, row, plane, 1) to patient millimetres, LPS. Exact for even stacks, tilted ones too; others have no
// affine.
Affine AffineOf(const Volume& volume) {
    if (!volume.HasSpacing() || !volume.HasPositions()) {
        throw korvane::Error(korvane::ErrorKind::Irregular,
                             "the files do not say where the voxels lie, so that there is no affine");
    }
    const auto& positions = volume.GetPositions();
    const Volume::Vector spacing = volume.GetSpacing(), row = volume.GetRowDirection(),
                         column = volume.GetColumnDirection(), normal = volume.GetNormal();
    Affine affine{};
    const double last = static_cast<double>(positions.size()) - 1;
    for (std::size_t i = 0; i < 3; ++i) {
        const double step = last > 0 ? (positions.back()[i] - positions.front()[i]) / last : normal[i] * spacing[2];
        affine[i] = {row[i] * spacing[0], column[i] * spacing[1], step, positions.front()[i]};
        for (std::size_t k = 0; k < positions.size(); ++k) {
            const double even = positions.front()[i] + step * static_cast<double>(k);
            if (std::abs(positions[k][i] - even) > kUneven * std::max(std::abs(spacing[2]), 0.01)) {
                throw korvane::Error(
                    korvane::ErrorKind::Irregular,
                    "the planes are unevenly spaced, so that no affine describes them; `positions` says "
                    "where each lies");
            }
        }
    }
    affine[3] = {0, 0, 0, 1};
    return affine;
}

py::array_t<double> ToArray(const Affine& affine, bool ras) {
    py::array_t<double> array({4, 4});
    for (std::size_t i = 0; i < 4; ++i) {
        for (std::size_t k = 0; k < 4; ++k) {
            // RAS has x and y in the opposite directions. Subtracting from 0 does not make -0.
            array.mutable_at(i, k) = ras && i < 2 ? 0.0 - affine[i][k] : affine[i][k];
        }
    }
    return array;
}

py::array_t<double> PositionsOf(const Volume& volume) {
    const auto& positions = volume.GetPositions();
    py::array_t<double> array({positions.size(), std::size_t{3}});
    for (std::size_t k = 0; k < positions.size(); ++k) {
        for (std::size_t i = 0; i < 3; ++i) array.mutable_at(k, i) = positions[k][i];
    }
    return array;
}

// Calls `work` with a plane's voxels in their own type.
template <class Work>
void WithVoxels(VoxelType type, std::span<const std::byte> bytes, Work work) {
    const auto as = [&]<class T>(const T*) {
        work(std::span<const T>(reinterpret_cast<const T*>(bytes.data()), bytes.size() / sizeof(T)));
    };
    switch (type) {
    case VoxelType::Int8: return as(static_cast<const std::int8_t*>(nullptr));
    case VoxelType::UInt8:
    case VoxelType::Rgb24: return as(static_cast<const std::uint8_t*>(nullptr));
    case VoxelType::Int16: return as(static_cast<const std::int16_t*>(nullptr));
    case VoxelType::UInt16: return as(static_cast<const std::uint16_t*>(nullptr));
    case VoxelType::Int32: return as(static_cast<const std::int32_t*>(nullptr));
    case VoxelType::UInt32: return as(static_cast<const std::uint32_t*>(nullptr));
    case VoxelType::Float32: return as(static_cast<const float*>(nullptr));
    case VoxelType::Float64: return as(static_cast<const double*>(nullptr));
    }
}

template <class Real>
py::array RealAs(const Volume& volume) {
    const auto [columns, rows, planes, times] = volume.GetSize();
    std::vector<std::size_t> shape = {planes, rows, columns};
    if (times > 1) shape.insert(shape.begin(), times);
    py::array_t<Real> array(shape);
    Real* out = array.mutable_data();
    const py::gil_scoped_release unlocked;
    for (std::size_t time = 0; time < times; ++time) {
        for (std::size_t plane = 0; plane < planes; ++plane) {
            const korvane::Rescale rescale = volume.GetRescale(plane, time);
            WithVoxels(volume.GetType(), volume.GetPlane(plane, time), [&](auto voxels) {
                for (const auto value : voxels) {
                    *out++ = static_cast<Real>(static_cast<double>(value) * rescale.slope + rescale.intercept);
                }
            });
        }
    }
    return array;
}

// Real values as an array of 32-bit floats for voxels of up to 16 bits, which those hold exactly, else of 64-bit
// floats.
py::array RealOf(const Volume& volume) {
    const VoxelType type = volume.GetType();
    if (type == VoxelType::Rgb24) throw py::type_error("colours have no real values");
    const bool isWide = type == VoxelType::Int32 || type == VoxelType::UInt32 || type == VoxelType::Float64;
    return isWide ? RealAs<double>(volume) : RealAs<float>(volume);
}

// The members that Python's Series and Volume have in common.
template <class Source>
py::object ExportOf(const Source& source, const std::string& format, const py::object& to, const std::string& irregular,
                    bool compress, unsigned jobs, const py::object& progress) {
    korvane::ExportOptions options;
    options.irregular = Choose(korvane::PolicyWords(), irregular, "irregular");
    options.compress = compress;
    options.jobs = jobs;
    const std::string target = PathOf(to);
    const bool isUrl = target.rfind("file:", 0) == 0 || target.rfind("ftp:", 0) == 0;
    const korvane::ExportReport report = Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::Export(source, format, isUrl ? target : "file:" + target, own);
    });
    return FromJson(korvane::ToJson(report));
}

constexpr const char* kExportText =
    R"(Writes files of a research format, all of them, whole, or none; returns the report.

format: one of korvane.formats(). to: a path without extension, or a 'file:' or 'ftp:' URL. irregular: 'keep', 'reject',
'resample' or 'split', what becomes of planes that are not even. compress: gzip, where the format has it. jobs: threads.

    volume.export('nifti', 'out/head', compress=True)['volumes'][0]['outputs'])";

template <class Source, class... Options>
void AddExport(py::class_<Source, Options...>& target) {
    target.def("export", ExportOf<Source>, py::arg("format"), py::arg("to"), py::kw_only(),
               py::arg("irregular") = "keep", py::arg("compress") = false, py::arg("jobs") = 0,
               py::arg("progress") = py::none(), kExportText);
}

std::shared_ptr<Volume> LoadSeries(const korvane::Series& series, const py::object& volume,
                                   const std::string& irregular, unsigned jobs, const py::object& progress) {
    korvane::LoadOptions options;
    if (py::isinstance<py::str>(volume)) {
        if (volume.cast<std::string>() != "all") throw py::value_error("volume is a number from 1, 'all' or None");
        options.volume = korvane::LoadOptions::kEvery;
    } else if (!volume.is_none()) {
        options.volume = volume.cast<int>();
        if (options.volume < 1) throw py::value_error("volumes count from 1");
    }
    const korvane::Irregular policy = Choose(korvane::PolicyWords(), irregular, "irregular");
    if (policy != korvane::Irregular::Keep && policy != korvane::Irregular::Reject) {
        throw py::value_error("irregular is 'keep' or 'reject' here; `export` can resample and split");
    }
    options.refuseIrregular = policy == korvane::Irregular::Reject;
    options.jobs = jobs;
    return Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return std::make_shared<Volume>(korvane::Load(series, own));
    });
}

std::string VolumeText(const Volume& volume) {
    const auto [columns, rows, planes, times] = volume.GetSize();
    std::string text =
        "<korvane.Volume " + std::to_string(columns) + " x " + std::to_string(rows) + " x " + std::to_string(planes);
    if (times > 1) text += " x " + std::to_string(times) + " times";
    return text + ", " + korvane::WordOf(volume.GetType()) + (volume.GetUnit().empty() ? "" : ", " + volume.GetUnit()) +
           ">";
}

}  // namespace

void BindVolume(py::module_& module) {
    constexpr const char* kLoadText = R"(Reads the voxels of a series.

volume: a number from 1 where the series makes several, 'all' for all of them, one behind the other (times), None for the
only one. irregular: 'keep' takes uneven and tilted planes as they are (`positions` and `findings` tell), 'reject' raises
Irregular. Threads and `progress` as of `find`.

    volume = series.load(irregular='reject'))";
    py::class_<Volume, std::shared_ptr<Volume>> volume(module, "Volume", R"(Voxels of a series and where they lie.

array[plane, row, column] (array[time, plane, row, column] with times, a last axis of 3 for colour) shares the voxels,
which live as long as any view of them. Lengths are millimetres in patient axes: LPS (x to the left, y to the back, z to
the head) or RAS, by name. Planes are in the order of `positions`.

    volume = korvane.find('/data/ct').only().load()
    volume.array[plane, row, column], volume.real().mean(), volume.affine_ras)");
    volume.def_property_readonly("array", ArrayOf, "The stored voxels, not copied, read-only.")
        .def("real", RealOf, "A new array of real values: stored * slope + intercept, in `unit`.")
        .def_property_readonly("unit", &Volume::GetUnit, "Of real values: 'HU', 'BQML' ...; '' where nothing tells.")
        .def_property_readonly("shape", [](const py::object& self) { return ArrayOf(self).attr("shape"); })
        .def_property_readonly("dtype", [](const Volume& self) { return TypeOf(self.GetType()); })
        .def_property_readonly("spacing", &Volume::GetSpacing, "Between columns, between rows, between planes.")
        .def_property_readonly("has_spacing", &Volume::HasSpacing)
        .def_property_readonly("has_positions", &Volume::HasPositions)
        .def_property_readonly("origin", &Volume::GetOrigin, "Centre of the first voxel, LPS.")
        .def_property_readonly("row_direction", &Volume::GetRowDirection)
        .def_property_readonly("column_direction", &Volume::GetColumnDirection)
        .def_property_readonly("normal", &Volume::GetNormal)
        .def_property_readonly("positions", PositionsOf, "Centre of each plane's first voxel, LPS: (planes, 3).")
        .def_property_readonly("times", &Volume::GetTimeKeys, "What each time is.")
        .def_property_readonly(
            "affine_lps", [](const Volume& self) { return ToArray(AffineOf(self), false); },
            "4 x 4, from (column, row, plane) to LPS; raises Irregular for uneven planes, and where nothing tells "
            "places.")
        .def_property_readonly(
            "affine_ras", [](const Volume& self) { return ToArray(AffineOf(self), true); },
            "The same to RAS, as NiBabel has it.")
        .def(
            "rescale",
            [](const Volume& self, std::size_t plane, std::size_t time) {
                const auto size = self.GetSize();
                if (plane >= size[2] || time >= size[3]) throw py::index_error("no such plane");
                const korvane::Rescale rescale = self.GetRescale(plane, time);
                return std::pair(rescale.slope, rescale.intercept);
            },
            py::arg("plane") = 0, py::arg("time") = 0, "(slope, intercept) of a plane.")
        .def_property_readonly("findings", &Volume::GetFindings)
        .def_property_readonly("series", &Volume::GetSeries, py::return_value_policy::copy)
        .def_property_readonly("source", korvane::SourceOf,
                               "The series it comes from; None for one of an array without any.")
        .def("__repr__", VolumeText);
    AddExport(volume);
    py::object series = module.attr("Series");
    py::class_<korvane::Series> seriesClass = series;
    AddExport(seriesClass);
    seriesClass.def("load", LoadSeries, py::kw_only(), py::arg("volume") = py::none(), py::arg("irregular") = "keep",
                    py::arg("jobs") = 0, py::arg("progress") = py::none(), kLoadText);
    module.def("load", LoadSeries, py::arg("series"), py::kw_only(), py::arg("volume") = py::none(),
               py::arg("irregular") = "keep", py::arg("jobs") = 0, py::arg("progress") = py::none(), kLoadText);
    module.def("formats", korvane::GetExportFormats, "The formats that `export` writes.");
}
