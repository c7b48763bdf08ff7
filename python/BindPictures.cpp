#include "Bind.h"
#include "Calls.h"

#include <array>
#include <memory>
#include <optional>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace py = pybind11;
using korvane::SliceOptions;
using korvane::SlicePicture;

namespace {

// The arguments of `slice` in Python; the members are those of SliceOptions.
struct Wanted {
    std::string view, interpolation, slabMode;
    std::optional<int> index;
    std::optional<std::array<double, 3>> point, normal, up;
    std::optional<std::pair<double, double>> window;
    double slab, pixelSize;
    bool annotate;
    // Of a slicer alone:
    double shift = 0;
    std::optional<std::array<int, 2>> frame{};
    unsigned jobs = 0;
};

SliceOptions OptionsOf(const Wanted& wanted) {
    SliceOptions options;
    options.view = Choose(korvane::ViewWords(), wanted.view, "view");
    options.interpolation = Choose(korvane::InterpolationWords(), wanted.interpolation, "interpolation");
    options.slabMode = Choose(korvane::SlabModeWords(), wanted.slabMode, "slab_mode");
    if (wanted.normal) {
        options.view.reset();
        options.plane = {wanted.point, *wanted.normal, wanted.up};
    } else if (wanted.point || wanted.up) {
        throw py::value_error("point and up go with a normal");
    }
    options.index = wanted.index;
    if (wanted.window) options.window = korvane::Window{wanted.window->first, wanted.window->second};
    options.slab = wanted.slab;
    options.pixelSize = wanted.pixelSize;
    options.annotate = wanted.annotate;
    options.shift = wanted.shift;
    options.frame = wanted.frame;
    options.jobs = wanted.jobs;
    return options;
}

SlicePicture SliceOf(const korvane::Volume& volume, const Wanted& wanted, const py::object& progress) {
    SliceOptions options = OptionsOf(wanted);
    return Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::Slice(volume, own);
    });
}

// The arguments of both calls of a slicer, for `take`.
template <class Take>
auto SlicerCall(Take take) {
    return [take](korvane::Slicer& self, const std::string& view, std::optional<int> index,
                  std::optional<std::array<double, 3>> normal, std::optional<std::array<double, 3>> point,
                  std::optional<std::array<double, 3>> up, double shift, std::optional<std::array<int, 2>> frame,
                  std::optional<std::pair<double, double>> window, const std::string& interpolation, double slab,
                  const std::string& slabMode, double pixelSize, unsigned jobs) {
        SliceOptions options = OptionsOf({view, interpolation, slabMode, index, point, normal, up, window, slab,
                                          pixelSize, false, shift, frame, jobs});
        return take(self, options);
    };
}

template <class Take>
void AddSlicerCall(py::class_<korvane::Slicer>& slicer, const char* name, Take take, const char* text) {
    slicer.def(name, SlicerCall(take), py::arg("view") = "axial", py::arg("index") = py::none(), py::kw_only(),
               py::arg("normal") = py::none(), py::arg("point") = py::none(), py::arg("up") = py::none(),
               py::arg("shift") = 0.0, py::arg("frame") = py::none(), py::arg("window") = py::none(),
               py::arg("interpolation") = "linear", py::arg("slab") = 0.0, py::arg("slab_mode") = "mean",
               py::arg("pixel_size") = 0.0, py::arg("jobs") = 0, text);
}

SlicePicture DrawWith(korvane::Slicer& slicer, SliceOptions& options) {
    return RunHere([&](korvane::Watcher& watcher) {
        options.watcher = &watcher;
        return slicer.Draw(options);
    });
}

py::array_t<float> ValuesWith(korvane::Slicer& slicer, SliceOptions& options) {
    auto taken = std::make_unique<korvane::SliceValues>(RunHere([&](korvane::Watcher& watcher) {
        options.watcher = &watcher;
        return slicer.TakeValues(options);
    }));
    const std::array<py::ssize_t, 2> shape{taken->height, taken->width};
    const float* const values = taken->values.data();
    const py::capsule owner(taken.release(), [](void* last) { delete static_cast<korvane::SliceValues*>(last); });
    return py::array_t<float>(shape, values, owner);
}

void BindSlicer(py::module_& module) {
    py::class_<korvane::Slicer> slicer(module, "Slicer",
                                       "Pictures and values of one plane after the other; see Volume.slicer.");
    AddSlicerCall(slicer, "slice", DrawWith,
                  R"(A Picture with the pixels of `Volume.slice`, sooner.

frame: (width, height) in pixels, the plane's point in the middle; None: the whole cut. shift: millimetres that a plane with a
normal is moved along it. Slabs keep their layers: moves by `slab_step` cost a layer.)");
    AddSlicerCall(slicer, "values", ValuesWith,
                  "(height, width) real values of 32 bits, with the arguments of `slice`.");
    slicer.def_property_readonly(
        "slab_step", [](const korvane::Slicer& self) { return self.GetFacts().slabStep; },
        "Millimetres between the layers of the last slab; 0 where none were kept.");
    slicer.def_property_readonly(
        "layer_bytes", [](const korvane::Slicer& self) { return self.GetFacts().layerBytes; },
        "Bytes that kept layers take.");
}

// An array that shares the picture's pixels and keeps the picture alive.
py::array ArrayOf(const py::object& self) {
    const auto& picture = self.cast<const SlicePicture&>().picture;
    const auto height = static_cast<std::size_t>(picture.GetHeight()),
               width = static_cast<std::size_t>(picture.GetWidth());
    std::vector<std::size_t> shape{height, width};
    if (picture.IsColour()) shape.push_back(3);
    py::array array(py::dtype::of<std::uint8_t>(), shape, picture.GetPixels(), self);
    array.attr("setflags")(py::arg("write") = false);
    return array;
}

void Save(const SlicePicture& self, const py::object& path) {
    const std::string name = PathOf(path);
    const py::gil_scoped_release unlocked;
    korvane::SavePicture(self.picture, name, self.report.pixelSize);
}

SlicePicture DrawFile(const py::object& path, int frame, std::optional<std::pair<double, double>> window, int size,
                      bool annotate, const py::object& progress) {
    SliceOptions options;
    if (window) options.window = korvane::Window{window->first, window->second};
    options.size = size;
    options.annotate = annotate;
    const std::string name = PathOf(path);
    return Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::Draw(name, frame, own);
    });
}

}  // namespace

void BindPictures(py::module_& module) {
    py::class_<SlicePicture>(module, "Picture", "A picture of a plane, and what it shows. Notebooks draw it.")
        .def_property_readonly(
            "array", ArrayOf,
            "(height, width) of 8 bits, 0 is black, or (height, width, 3) of colour; not copied, read-only.")
        .def_property_readonly("what", [](const SlicePicture& self) { return self.report.what; })
        .def_property_readonly(
            "right", [](const SlicePicture& self) { return self.report.right; },
            "Patient directions of the right edge: letters of L R P A H F.")
        .def_property_readonly("below", [](const SlicePicture& self) { return self.report.below; })
        .def_property_readonly(
            "values", [](const SlicePicture& self) { return self.report.values; }, "Where grey values come from.")
        .def_property_readonly(
            "pixel_size", [](const SlicePicture& self) { return self.report.pixelSize; }, "Millimetres.")
        .def("save", Save, py::arg("path"),
             "Writes a PNG file, or a JPEG file where the name ends in .jpg, whole or not at all.");

    module.def("draw", DrawFile, py::arg("path"), py::arg("frame") = 0, py::kw_only(), py::arg("window") = py::none(),
               py::arg("size") = 0, py::arg("annotate") = false, py::arg("progress") = py::none(),
               R"(Draws an image of a file as it is stored, grey or colour, with or without a place in the patient.

window: (centre, width) of real values; None for that of the image, else a fitting one. size: pixels of the longer side.

    korvane.draw('image.dcm', size=256).save('image.png'))");

    auto volume = static_cast<py::class_<korvane::Volume, std::shared_ptr<korvane::Volume>>>(module.attr("Volume"));
    volume.def(
        "slice",
        [](const korvane::Volume& self, const std::string& view, std::optional<int> index,
           std::optional<std::array<double, 3>> normal, std::optional<std::array<double, 3>> point,
           std::optional<std::array<double, 3>> up, std::optional<std::pair<double, double>> window,
           const std::string& interpolation, double slab, const std::string& slabMode, double pixelSize, bool annotate,
           const py::object& progress) {
            const Wanted wanted = {view, interpolation, slabMode, index,     point,   normal,
                                   up,   window,        slab,     pixelSize, annotate};
            return SliceOf(self, wanted, progress);
        },
        py::arg("view") = "axial", py::arg("index") = py::none(), py::kw_only(), py::arg("normal") = py::none(),
        py::arg("point") = py::none(), py::arg("up") = py::none(), py::arg("window") = py::none(),
        py::arg("interpolation") = "linear", py::arg("slab") = 0.0, py::arg("slab_mode") = "mean",
        py::arg("pixel_size") = 0.0, py::arg("annotate") = false, py::arg("progress") = py::none(),
        R"(Draws a plane as a Picture, in radiological convention.

view: 'axial', 'coronal' or 'sagittal', and index, from 0 (None: the middle one); or normal, with point and up, in patient
millimetres (LPS). window: (centre, width) of real values; None for that of the series, else a fitting one.
interpolation: 'nearest', 'linear', 'shaped'. slab: millimetres across the plane that are taken together by slab_mode
('mean', 'maximum', 'minimum'). pixel_size: millimetres.

    volume.slice('coronal', window=(40, 400), slab=10, slab_mode='maximum').save('mip.png'))");
    BindSlicer(module);
    volume.def(
        "slicer",
        [](const std::shared_ptr<korvane::Volume>& self, std::size_t slabMemory) {
            const py::gil_scoped_release unlocked;
            return korvane::Slicer(std::shared_ptr<const korvane::Volume>(self), {.slabMemory = slabMemory});
        },
        py::kw_only(), py::arg("slab_memory") = korvane::SlicerOptions().slabMemory,
        R"(A Slicer: for many planes of this volume one after the other, as in a view that follows the mouse.

slab_memory: bytes that kept layers of slabs may take.

    slicer = volume.slicer()
    for n in range(100):
        show(slicer.slice(normal=(0, -1, 1), shift=n, frame=(512, 512), window=(40, 400)).array))");
}
