// Jobs of files, media and the network: what they report is given as `--json` prints it.
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

korvane::Peer PeerOf(const std::string& host, const py::object& port, const std::string& aet, const std::string& aec) {
    korvane::Peer peer;
    peer.host = host;
    peer.port = py::str(port).cast<std::string>();
    peer.ownTitle = aet;
    peer.peerTitle = aec;
    return peer;
}

py::object Echo(const std::string& host, const py::object& port, const std::string& aet, const std::string& aec) {
    const korvane::Peer peer = PeerOf(host, port, aet, aec);
    return FromJson(korvane::ToJson(Run(py::none(), [&](korvane::Watcher& watcher) {
        korvane::EchoOptions own;
        own.watcher = &watcher;
        return korvane::Echo(peer, own);
    })));
}

py::object Send(const std::string& host, const py::object& port, const py::object& paths, const std::string& aet,
                const std::string& aec, unsigned jobs, unsigned retries, const py::object& queue, bool decodeLossy,
                const py::object& progress) {
    const korvane::Peer peer = PeerOf(host, port, aet, aec);
    korvane::SendOptions options;
    options.jobs = jobs;
    options.retries = retries;
    if (!queue.is_none()) options.queue = PathOf(queue);
    options.decodeLossy = decodeLossy;
    return FromJson(korvane::ToJson(Run(progress, [&, all = PathsOf(paths)](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::Send(peer, all, own);
    })));
}

py::object BuildMedium(const py::object& root, const py::object& paths, const std::string& fileSetId, bool transcode,
                       bool link, const py::object& progress) {
    korvane::MediumOptions options;
    options.fileSetId = fileSetId;
    options.transcode = transcode;
    options.link = link;
    const std::string folder = PathOf(root);
    return FromJson(korvane::ToJson(Run(progress, [&, all = PathsOf(paths)](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::BuildMedium(folder, all, own);
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
    const py::arg_v aet("aet", "KORVANE"), aec("aec", "ANY-SCP");
    module.def("convert", Convert, py::arg("source"), py::arg("target"), py::kw_only(), py::arg("syntax") = "explicit",
               py::arg("set") = Pairs(), py::arg("remove") = std::vector<std::string>(), progress,
               R"(Rewrites a file, or all files below a folder, in another transfer syntax.

set: (path, value) pairs, as DataSet takes them; remove: paths. Failures of single files of a folder are counted and told
in 'findings'.)");
    module.def("echo", Echo, py::arg("host"), py::arg("port"), py::kw_only(), aet, aec,
               "Whether a DICOM program answers (C-ECHO); raises Refused.");
    module.def("send", Send, py::arg("host"), py::arg("port"), py::arg("paths"), py::kw_only(), aet, aec,
               py::arg("jobs") = 1, py::arg("retries") = 0, py::arg("queue") = py::none(),
               py::arg("decode_lossy") = false, progress,
               R"(Sends files, and all below folders (C-STORE); what became of each is in the result.

jobs: associations at once. retries: how often what broke off is tried again. queue: a file that keeps what is to be sent
and what was acknowledged, so that the same call goes on where an earlier one ended.)");
    module.def("build_medium", BuildMedium, py::arg("root"), py::arg("paths"), py::kw_only(),
               py::arg("fileset_id") = "", py::arg("transcode") = false, py::arg("link") = false, progress,
               "Builds a file-set with its DICOMDIR.");
    module.def("phantom", Phantom, py::arg("folder"), py::kw_only(), py::arg("slices") = 120, py::arg("size") = 256,
               py::arg("volumes") = 1, py::arg("seed") = 1, py::arg("oblique") = false, py::arg("uneven") = false,
               "Writes a synthetic CT series; returns the paths.");
}
