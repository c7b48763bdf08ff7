// Other DICOM programs: what korvane/_network.py is made of. Reports are given as `--json` prints them.
#include "Bind.h"
#include "Calls.h"
#include "Elements.h"

#include <atomic>
#include <optional>

#include <pybind11/stl.h>

namespace py = pybind11;
using korvane::Peer;
using korvane::TlsOptions;

namespace {

using Keys = std::vector<std::pair<std::string, std::string>>;

Peer PeerOf(const std::string& host, const py::object& port, const std::string& aet, const std::string& aec,
            const std::optional<TlsOptions>& tls, int timeout, int connectTimeout) {
    Peer peer;
    peer.host = host;
    peer.port = py::str(port).cast<std::string>();
    peer.ownTitle = aet;
    peer.peerTitle = aec;
    peer.timeout = timeout;
    peer.connectTimeout = connectTimeout;
    if (tls) peer.tls = *tls;
    return peer;
}

TlsOptions TlsOf(const py::object& certificate, const py::object& key, const py::object& authorities,
                 const std::string& profile, bool anyName) {
    TlsOptions tls;
    tls.isOn = true;
    tls.profile = Choose(korvane::TlsProfileWords(), profile, "profile");
    if (!certificate.is_none()) tls.certificate = PathOf(certificate);
    if (!key.is_none()) tls.key = PathOf(key);
    if (!authorities.is_none()) tls.authorities = PathsOf(authorities);
    tls.checksName = !anyName;
    return tls;
}

py::object Echo(const Peer& peer) {
    return FromJson(korvane::ToJson(
        Run(py::none(), [&](korvane::Watcher& watcher) { return korvane::Echo(peer, {.watcher = &watcher}); })));
}

py::object Send(const Peer& peer, const py::object& paths, unsigned jobs, unsigned retries, const py::object& queue,
                bool decodeLossy, const py::object& progress) {
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

std::vector<korvane::QueryKey> KeysOf(const Keys& keys) {
    std::vector<korvane::QueryKey> made;
    for (const auto& [path, value] : keys) made.push_back({path, value});
    return made;
}

py::tuple Query(const Peer& peer, const std::string& level, const Keys& keys, std::size_t limit, bool patientRoot,
                const py::object& progress) {
    korvane::QueryOptions options;
    options.level = korvane::QueryLevelOf(level);
    options.keys = KeysOf(keys);
    options.limit = limit;
    options.patientRoot = patientRoot;
    korvane::QueryReport report = Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::Query(peer, own);
    });
    py::list matches;
    for (korvane::DataSet& match : report.matches) {
        matches.append(Elements{std::make_shared<korvane::DataSet>(std::move(match)), ""});
    }
    return py::make_tuple(matches, report.isCut, report.ignoredKeys);
}

py::object Retrieve(const Peer& peer, bool isMove, const std::string& level, const Keys& keys, const py::object& folder,
                    const std::string& destination, std::uint16_t port, bool encrypted, bool replace, bool patientRoot,
                    const py::object& progress) {
    korvane::RetrieveOptions options;
    options.level = korvane::QueryLevelOf(level);
    options.keys = KeysOf(keys);
    options.patientRoot = patientRoot;
    if (!folder.is_none()) options.folder = PathOf(folder);
    options.replace = replace;
    options.destination = destination;
    options.port = port;
    options.encrypted = encrypted;
    return FromJson(korvane::ToJson(Run(progress, [&](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return isMove ? korvane::Move(peer, own) : korvane::Get(peer, own);
    })));
}

/// Asks whether the receiver shall end; set from any thread.
class Stop : public korvane::Watcher {
public:
    void Set() { m_bSet = true; }
    bool IsStopped() noexcept override { return m_bSet; }

private:
    std::atomic<bool> m_bSet = false;
};

/// Calls `tell(event, facts)`. What that raises ends the receiver, and reaches the caller.
class Observer : public korvane::ReceiveObserver {
public:
    explicit Observer(const py::object& tell) : m_Tell(tell) {}

    void OnListening(std::uint16_t port) override {
        const py::gil_scoped_acquire locked;
        m_Tell("listening", port);
    }
    void OnFile(const korvane::ReceivedFile& file) override { Tell("file", korvane::ToJson(file)); }
    void OnEnd(const korvane::ReceivedAssociation& association) override {
        Tell("association", korvane::ToJson(association));
    }
    void OnStudy(const korvane::ReceivedStudy& study) override { Tell("study", korvane::ToJson(study)); }

private:
    void Tell(const char* event, const std::string& json) {
        const py::gil_scoped_acquire locked;
        m_Tell(event, FromJson(json));
    }

    const py::object& m_Tell;
};

py::dict Receive(const py::dict& given, const std::optional<TlsOptions>& tls, const py::object& tell,
                 const std::shared_ptr<Stop>& stop) {
    korvane::ReceiveOptions options;
    const auto take = [&](const char* name, auto& member) {
        member = given[name].cast<std::remove_reference_t<decltype(member)>>();
    };
    options.folder = PathOf(given["folder"]);
    take("port", options.port);
    take("address", options.bindAddress);
    options.layout = Choose(korvane::LayoutWords(), given["layout"].cast<std::string>(), "layout");
    take("replace", options.replace);
    take("count", options.count);
    take("aet", options.ownTitle);
    take("callers", options.callers);
    take("addresses", options.addresses);
    take("limit", options.limit);
    take("timeout", options.timeout);
    take("study_quiet", options.studyQuiet);
    if (tls) options.tls = *tls;
    options.watcher = stop.get();
    Observer observer(tell);
    const py::gil_scoped_release unlocked;
    const korvane::ReceiveReport report = korvane::Receive(options, &observer);
    const py::gil_scoped_acquire locked;
    return py::dict(py::arg("associations") = report.associations, py::arg("stored") = report.stored,
                    py::arg("refused") = report.refused, py::arg("broken") = report.broken);
}

void BindPeer(py::module_& module) {
    const py::arg_v progress("progress", py::none());
    py::class_<TlsOptions>(module, "Tls", R"(Encrypted connections (TLS 1.2 or 1.3), with PEM files.

certificate: the own one, and those up to its authority; a receiver needs one. key: its private key, without a password;
None: in the file of the certificate. authorities: files of those whose peers are trusted; None: the system's, and for a
receiver everybody's. profile: 'bcp195' or 'bcp195-extended'. any_name: take a certificate that is for another host.

    korvane.Peer('pacs', 2762, tls=korvane.Tls(authorities='hospital.pem')).echo())")
        .def(py::init(&TlsOf), py::kw_only(), py::arg("certificate") = py::none(), py::arg("key") = py::none(),
             py::arg("authorities") = py::none(), py::arg("profile") = "bcp195", py::arg("any_name") = false)
        .def_readonly("certificate", &TlsOptions::certificate)
        .def_readonly("authorities", &TlsOptions::authorities);
    py::class_<Peer>(module, "Peer", R"(Another DICOM program: an archive, a scanner, a workstation.

host, port: its address. aet, aec: application entity titles of this program and of the other one. tls: a Tls, None for
plain connections. timeout: seconds for an answer; connect_timeout: for the connection. Calls raise NotFound for a host that
is not known, and Refused where the other one says no or nothing.

    pacs = korvane.Peer('pacs.hospital', 104, aet='KORVANE', aec='PACS')
    for study in pacs.find(PatientName='DOE*', StudyDate='20260101-'):
        pacs.get('in', StudyInstanceUID=study.StudyInstanceUID))")
        .def(py::init(&PeerOf), py::arg("host"), py::arg("port"), py::kw_only(), py::arg("aet") = "KORVANE",
             py::arg("aec") = "ANY-SCP", py::arg("tls") = py::none(), py::arg("timeout") = 300,
             py::arg("connect_timeout") = 20)
        .def_readonly("host", &Peer::host)
        .def_readonly("port", &Peer::port)
        .def("__repr__",
             [](const Peer& self) { return "<korvane.Peer " + self.peerTitle + " at " + self.Name() + ">"; })
        .def("echo", Echo, R"(Whether it answers (C-ECHO): 'milliseconds' and what it calls itself. Raises Refused.)")
        .def("send", Send, py::arg("paths"), py::kw_only(), py::arg("jobs") = 1, py::arg("retries") = 0,
             py::arg("queue") = py::none(), py::arg("decode_lossy") = false, progress,
             R"(Sends files, and all below folders (C-STORE); what became of each is in the result.

jobs: associations at once. retries: how often what broke off is tried again. queue: a file that keeps what is to be sent
and what was acknowledged, so that the same call goes on where an earlier one ended.)")
        .def("_find", Query)
        .def("_retrieve", Retrieve);
}

}  // namespace

void BindNetwork(py::module_& module) {
    BindPeer(module);
    py::class_<Stop, std::shared_ptr<Stop>>(module, "_Stop").def(py::init<>()).def("set", &Stop::Set);
    module.def("_receive", Receive);
}
