#include "Bind.h"
#include "Calls.h"
#include "Elements.h"

#include <sstream>

#include <pybind11/stl.h>

namespace py = pybind11;
using korvane::DataSet;

namespace {

std::string KeyOf(const py::handle& key) {
    if (py::isinstance<py::tuple>(key)) {
        const auto [group, element] = key.cast<std::pair<unsigned, unsigned>>();
        char text[16];
        std::snprintf(text, sizeof text, "%04x,%04x", group & 0xFFFFU, element & 0xFFFFU);
        return text;
    }
    return key.cast<std::string>();
}

py::object OneOrAll(const py::list& values) {
    if (values.empty()) return py::none();
    return values.size() == 1 ? py::object(values[0]) : py::object(values);
}

py::object ValueOf(const Elements& self, const std::string& path) {
    const std::string way = self.To(path), type = self.set->TypeOf(way);
    py::list values;
    if (type == "SQ") {
        const std::size_t count = self.set->Items(way).size();
        for (std::size_t i = 0; i < count; ++i) {
            values.append(Elements{self.set, way + "[" + std::to_string(i) + "]."});
        }
        return values;
    }
    if (type == "IS" || type == "SL" || type == "SS" || type == "SV" || type == "UL" || type == "US" || type == "UV") {
        for (const std::int64_t value : self.set->Integers(way)) values.append(value);
        return OneOrAll(values);
    }
    if (type == "DS" || type == "FD" || type == "FL") {
        for (const double value : self.set->Reals(way)) values.append(value);
        return OneOrAll(values);
    }
    if (type.empty() || type.front() == 'O' || type == "UN") {
        const auto bytes = self.set->Bytes(way);
        return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    const std::vector<std::string> texts = self.set->Texts(way);
    if (texts.size() < 2) return py::str(self.set->Text(way));
    return py::cast(texts);
}

void SetValue(const Elements& self, const std::string& path, const py::handle& value) {
    const std::string way = self.To(path);
    if (PyBytes_Check(value.ptr()) != 0) {
        const std::string_view bytes = value.cast<std::string_view>();
        return self.set->SetBytes(way, {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
    }
    if (value.is_none()) return self.set->Set(way, std::string_view());
    if (py::isinstance<py::str>(value)) return self.set->Set(way, value.cast<std::string>());
    if (!py::isinstance<py::sequence>(value)) return self.set->Set(way, py::str(value).cast<std::string>());
    std::string text;
    for (const py::handle one : value) text += (text.empty() ? "" : "\\") + py::str(one).cast<std::string>();
    self.set->Set(way, text);
}

py::object Get(const Elements& self, const py::object& key, const py::object& otherwise) {
    const std::string path = KeyOf(key);
    return self.set->Has(self.To(path)) ? ValueOf(self, path) : otherwise;
}

py::object GetItem(const Elements& self, const py::object& key) {
    const std::string path = KeyOf(key);
    if (!self.set->Has(self.To(path))) throw py::key_error(path);
    return ValueOf(self, path);
}

// An element as a Python attribute, by keyword only. A name that is no keyword and an absent element are
// AttributeErrors.
py::object GetAttribute(const Elements& self, const std::string& keyword) {
    try {
        if (self.set->Has(self.To(keyword))) return ValueOf(self, keyword);
    } catch (const korvane::Error& error) {
        throw py::attribute_error(error.what());
    }
    throw py::attribute_error("the data set has no " + keyword);
}

void SetAttribute(const Elements& self, const std::string& keyword, const py::object& value) {
    SetValue(self, keyword, value);
}

void Delete(const Elements& self, const py::object& key) {
    const std::string path = KeyOf(key);
    if (!self.set->Delete(self.To(path))) throw py::key_error(path);
}

py::bytes ToBytes(const Elements& self, const std::string& syntax) {
    std::ostringstream stream;
    {
        const py::gil_scoped_release unlocked;
        self.set->Save(stream, {.syntax = syntax});
    }
    return py::bytes(stream.str());
}

void Save(const Elements& self, const py::object& path, const std::string& syntax, const py::object& progress) {
    const std::string name = PathOf(path);
    Run(progress, [&](korvane::Watcher& watcher) { self.set->Save(name, {syntax, &watcher}); });
}

Elements Read(const py::object& source, bool pixels, const py::object& progress) {
    if (PyBytes_Check(source.ptr()) != 0) {
        const auto bytes = source.cast<std::string_view>();
        auto set =
            DataSet::Parse({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, {.pixels = pixels});
        return {std::make_shared<DataSet>(std::move(set)), ""};
    }
    const std::string path = PathOf(source);
    return Run(progress, [&](korvane::Watcher& watcher) {
        return Elements{std::make_shared<DataSet>(DataSet::Read(path, {.pixels = pixels, .watcher = &watcher})), ""};
    });
}

std::string JsonOf(const Elements& self, bool meta) {
    if (self.way.empty()) return self.set->ToJson(meta);
    throw py::value_error("items have no JSON of their own; the data set's has them");
}

}  // namespace

void BindDataSet(py::module_& module) {
    py::class_<Elements>(module, "DataSet", R"(A DICOM data set, or an item of a sequence.

Elements are attributes by keyword (ds.PatientName), or indexed by keyword, tag or path: ds['0010,0010'],
ds[0x0010, 0x0010], ds['ReferencedSeriesSequence[0].SeriesInstanceUID']. Values are texts, numbers, bytes, lists of these
where there are several, and lists of items; None for an empty number. Setting pads, checks and converts by the
dictionary.

    ds = korvane.read('image.dcm')
    ds.PatientID = 'anonymous'
    ds.save('out.dcm', syntax='jpegll'))")
        .def(py::init([] {
            return Elements{std::make_shared<DataSet>(), ""};
        }))
        .def("__getattr__", GetAttribute)
        .def("__setattr__", SetAttribute)
        .def("__delattr__", [](const Elements& self, const std::string& keyword) { Delete(self, py::str(keyword)); })
        .def("__getitem__", GetItem)
        .def("__setitem__", [](const Elements& self, const py::object& key,
                               const py::object& value) { SetValue(self, KeyOf(key), value); })
        .def("__delitem__", Delete)
        .def("__contains__",
             [](const Elements& self, const py::object& key) { return self.set->Has(self.To(KeyOf(key))); })
        .def("get", Get, py::arg("key"), py::arg("default") = py::none())
        .def(
            "add_item", [](const Elements& self, const py::object& key) { self.set->AddItem(self.To(KeyOf(key))); },
            py::arg("key"), "Appends an empty item to a sequence, which is made where it is not there.")
        .def("to_json", JsonOf, py::arg("meta") = false, "The DICOM JSON model (PS3.18 F) as a text.")
        .def("to_bytes", ToBytes, py::arg("syntax") = "", "A whole Part 10 file.")
        .def("save", Save, py::arg("path"), py::kw_only(), py::arg("syntax") = "", py::arg("progress") = py::none(),
             "Writes a Part 10 file, whole or not at all. syntax: a UID, or 'implicit', 'explicit', 'big', 'rle', "
             "'jpegll'.")
        .def(
            "to_pydicom",
            [](const Elements& self) {
                const py::object stream = py::module_::import("io").attr("BytesIO")(ToBytes(self, ""));
                return py::module_::import("pydicom").attr("dcmread")(stream);
            },
            "The same data set as pydicom has it.")
        .def_property_readonly(
            "findings", [](const Elements& self) { return self.set->GetReport().findings; }, "What reading forgave.")
        .def("__repr__", [](const Elements& self) {
            return "<korvane.DataSet " + self.way + self.set->Text(self.To("SOPInstanceUID")) + ">";
        });
    module.def("read", Read, py::arg("source"), py::kw_only(), py::arg("pixels") = true,
               py::arg("progress") = py::none(), R"(Reads a DICOM file, or bytes.

pixels: False ends before Pixel Data. Raises NotDicom, NotFound; data that ends early is read as far as it goes, and
`findings` say so.

    korvane.read('image.dcm', pixels=False).PixelSpacing)");
}
