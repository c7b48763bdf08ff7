// Jobs of files and media: what they report is given as `--json` prints it.
#include "Bind.h"
#include "Calls.h"

#include <pybind11/stl.h>

namespace py = pybind11;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

py::object Convert(const py::object& source, const py::object& target, const std::string& syntax, const Pairs& set,
                   const std::vector<std::string>& remove, const py::object& progress) {
    korvane::ConvertOptions options;
    options.syntax = syntax;
    for (const auto& [path, value] : set) options.set.emplace_back(path, value);
    for (const std::string& path : remove) options.remove.emplace_back(path);
    const std::string from = PathOf(source), to = PathOf(target);
    const korvane::ConvertReport report = Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::Convert(from, to, own);
    });
    return py::dict(py::arg("syntax") = report.syntax, py::arg("written") = report.written,
                    py::arg("not_dicom") = report.notDicom, py::arg("failed") = report.failed,
                    py::arg("findings") = report.findings);
}

py::object BuildMedium(const py::object& root, const py::object& paths, const std::string& fileSetId, bool transcode,
                       bool link, const std::string& profile, bool append, bool icons, bool inventPatientId,
                       const py::object& progress) {
    const korvane::MediumOptions options{.fileSetId = fileSetId,
                                         .transcode = transcode,
                                         .link = link,
                                         .profile = profile,
                                         .append = append,
                                         .icons = icons,
                                         .inventPatientId = inventPatientId};
    const std::string folder = PathOf(root);
    return FromJson(korvane::ToJson(Run(progress, [&, all = PathsOf(paths)](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::BuildMedium(folder, all, own);
    })));
}

py::object RemoveFromMedium(const py::object& root, const std::vector<std::string>& ids, const py::object& progress) {
    const std::string folder = PathOf(root);
    return FromJson(korvane::ToJson(
        Run(progress, [&](korvane::Watcher& watcher) { return korvane::RemoveFromMedium(folder, ids, &watcher); })));
}

py::object CheckMedium(const py::object& root, const std::string& profile, const py::object& progress) {
    const std::string folder = PathOf(root);
    return FromJson(korvane::ToJson(Run(progress, [&](korvane::Watcher& watcher) {
        return korvane::CheckMedium(folder, korvane::MediumDepth::Contents, &watcher, profile);
    })));
}

std::vector<std::string> Phantom(const py::object& folder, int slices, int size, int volumes, std::uint32_t seed,
                                 bool oblique, bool uneven) {
    korvane::PhantomOptions options;
    options.slices = slices;
    options.columns = options.rows = size;
    options.volumes = volumes;
    options.seed = seed;
    options.oblique = oblique;
    options.uneven = uneven;
    const std::string path = PathOf(folder);
    return Run(py::none(), [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::WritePhantom(path, own);
    });
}

}  // namespace

void BindJobs(py::module_& module) {
    const py::arg_v progress("progress", py::none());
    module.def("convert", Convert, py::arg("source"), py::arg("target"), py::kw_only(), py::arg("syntax") = "explicit",
               py::arg("set") = Pairs(), py::arg("remove") = std::vector<std::string>(), progress,
               R"(Rewrites a file, or all files below a folder, in another transfer syntax.

set: (path, value) pairs, as DataSet takes them; remove: paths. Failures of single files of a folder are counted and told
in 'findings'.

    korvane.convert('in.dcm', 'out.dcm', syntax='rle', set=[('PatientID', 'anonymous')]))");
    module.def(
        "build_medium", BuildMedium, py::arg("root"), py::arg("paths"), py::kw_only(), py::arg("fileset_id") = "",
        py::arg("transcode") = false, py::arg("link") = false, py::arg("profile") = "", py::arg("append") = false,
        py::arg("icons") = false, py::arg("invent_patient_id") = false, progress,
        R"(Builds a file-set with its DICOMDIR (PS3.10) in the folder `root`, of files and all below folders, or adds to one (append).

fileset_id: up to 16 capital letters, digits and underscores. transcode: what is compressed, deflated or big endian is decoded. link: files are
linked, not copied, where that does. profile: an application profile such as "STD-GEN-CD"; what it does not allow is
decoded, told in 'rewritten'. What could not be taken is in 'faults'.

    korvane.build_medium('/media/usb', '/data/study', fileset_id='STUDY', profile='STD-GEN-USB-JPEG'))");
    module.def(
        "remove_from_medium", RemoveFromMedium, py::arg("root"), py::arg("ids"), py::kw_only(), progress,
        R"(Takes patients, studies, series and instances out of a file-set, by Patient ID or UID; the result names the files.

    korvane.remove_from_medium('/media/usb', ['1.2.840.99.1']))");
    module.def(
        "check_medium", CheckMedium, py::arg("root"), py::kw_only(), py::arg("profile") = "", progress,
        R"(Follows every record of a DICOMDIR and reads each file that it names; 'problems' is empty when all is well.

    assert not korvane.check_medium('/media/usb')['problems'])");
    module.def("phantom", Phantom, py::arg("folder"), py::kw_only(), py::arg("slices") = 120, py::arg("size") = 256,
               py::arg("volumes") = 1, py::arg("seed") = 1, py::arg("oblique") = false, py::arg("uneven") = false,
               R"(Writes a synthetic CT series of a head, of slices x size x size; returns the paths.

volumes: as many at the same places. seed: another noise, other UIDs. oblique: turned planes. uneven: their distances differ.

    korvane.phantom('/tmp/head', slices=40, size=128))");
}
