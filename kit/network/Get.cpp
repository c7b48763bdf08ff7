// Retrieval over the association that asks for it.
#include "../core/Error.h"
#include "../core/Paths.h"
#include "../dataset/Toolkit.h"
#include "ReceivedFiles.h"
#include "Retrieve.h"
#include "RetrieveUnits.h"
#include "WebRetrieve.h"
#include "WebService.h"

#include "Dicom/Lib/network/StorageProvider.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <set>

namespace korvane {

namespace {

// The compressed transfer syntaxes to propose. Each gets a presentation context of its own: the peer accepts contexts
// before it knows in which syntax a data set is.
std::vector<std::string> CompressedSyntaxes() {
    std::vector<std::string> uids;
    for (const TransferSyntaxRow& row : syntaxes::kTransferSyntaxes) {
        const bool isUsed = row.isEncapsulated && !row.name.empty();
        if (isUsed) uids.emplace_back(row.uid);
    }
    return uids;
}

// The storage classes that archives mostly hold. They are proposed where the peer does not tell the SOP classes, which
// it need not (PS3.4 C.6.1.1.5). They are few enough that two contexts for each fit into an association.
std::vector<std::string> UsualClasses() {
    constexpr const char* kEnds[] = {
        "1",      "1.1",    "1.1.1",  "1.2",      "1.2.1",    "1.3",      "1.3.1", "2",     "2.1",    "2.2",   "3.1",
        "4",      "4.1",    "4.2",    "4.3",      "6.1",      "6.2",      "6.3",   "7",     "7.1",    "7.2",   "7.3",
        "7.4",    "9.1.1",  "9.1.2",  "9.1.3",    "9.2.1",    "11.1",     "11.2",  "12.1",  "12.1.1", "12.2",  "12.2.1",
        "13.1.1", "13.1.2", "13.1.3", "14.1",     "20",       "30",       "66",    "66.1",  "66.2",   "66.4",  "66.5",
        "77.1.1", "77.1.2", "77.1.4", "77.1.4.1", "77.1.5.1", "77.1.5.4", "88.11", "88.22", "88.33",  "88.59", "88.67",
        "104.1",  "128",    "128.1",  "130",      "481.1",    "481.2",    "481.3", "481.5"};
    std::vector<std::string> uids;
    for (const char* const end : kEnds) uids.push_back(std::string("1.2.840.10008.5.1.4.1.1.") + end);
    return uids;
}

class GetJob {
public:
    GetJob(const Peer& peer, const RetrieveOptions& options)
        : m_Peer(peer), m_Options(options), m_Watch(options.watcher), m_Compressed(CompressedSyntaxes()) {
        m_Folder.folder = options.folder;
        m_Folder.replace = options.replace;
        m_Folder.sync = options.sync;
    }

    RetrieveReport Run() {
        CheckRetrieveKeys(m_Options);
        m_Report.peer = m_Peer.Name();
        m_Report.folder = m_Options.folder;
        if (m_Options.folder.empty()) throw Error(ErrorKind::WrongArgument, "no folder is given");
        const auto start = std::chrono::steady_clock::now();
        m_Units = FindUnitsWithClasses(m_Peer, m_Options);
        for (RetrieveUnit& unit : m_Units) {
            if (unit.classes.empty()) unit.classes = UsualClasses();
        }
        MakeDirectory(m_Options.folder);
        std::size_t total = 0;
        for (const RetrieveUnit& unit : m_Units) total += unit.instances;
        TaskProgress progress(m_Watch, "fetching", static_cast<std::int64_t>(total));
        m_Report.asked = m_Units.size();
        for (std::size_t next = 0; next < m_Units.size();) next = FetchBatch(next, progress);
        m_bSecond = true;
        m_Units = std::move(m_Again);
        for (std::size_t next = 0; next < m_Units.size();) next = FetchBatch(next, progress);
        m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return std::move(m_Report);
    }

private:
    // Fetches the units from `first` on whose SOP classes fit into one association, and returns the index behind them.
    std::size_t FetchBatch(std::size_t first, TaskProgress& progress) {
        PeerConnection connection(m_Peer, m_Watch);
        QueryUser user(connection, m_Watch);
        DcmService& service = connection.GetService();
        user.Propose(GetClass());
        std::set<std::string> classes;
        std::size_t end = first;
        for (; end < m_Units.size(); ++end) {
            std::set<std::string> more = classes;
            more.insert(m_Units[end].classes.begin(), m_Units[end].classes.end());
            if (end > first && 1 + more.size() * (1 + m_Compressed.size()) > kMostContexts) break;
            classes = std::move(more);
        }
        ProposeStorage(service, classes);
        connection.Associate();
        for (std::size_t i = first; i < end; ++i) {
            try {
                Fetch(m_Units[i], user, service, progress);
            } catch (const Error& error) {
                if (error.GetKind() == ErrorKind::Stopped || m_Report.files.empty()) throw;
                m_Report.failures.push_back({m_Units[i].name, error.what()});
                if (service.GetState() != DcmService::State::Established) return i + 1;
            }
        }
        service.Release();
        return end;
    }

    std::string_view GetClass() const { return ClassOf(QueryService::Get, m_Options.level, m_Options.patientRoot); }

    // Proposes the storage classes with the provider's role for this side, though it is the requestor (PS3.7 D.3.3.4).
    void ProposeStorage(DcmService& service, const std::set<std::string>& classes) const {
        const std::vector<std::string> plain = {std::string(kExplicitLittleEndianUid),
                                                std::string(kImplicitLittleEndianUid)};
        const bool fits = 1 + classes.size() * (1 + m_Compressed.size()) <= kMostContexts;
        auto& roles = service.AAssociateRQ::m_UserInformation.roles;
        roles.clear();
        for (const std::string& sopClass : classes) {
            roles.push_back({UidField(sopClass), 0, 1});
            if (m_bSecond) {
                std::vector<std::string> all = m_Compressed;
                all.insert(all.end(), plain.begin(), plain.end());
                service.Propose(sopClass, all);
                continue;
            }
            service.Propose(sopClass, plain);
            for (const std::string& syntax : m_Compressed) {
                if (fits) service.Propose(sopClass, {syntax});
            }
            if (!fits && 1 + 2 * classes.size() <= kMostContexts) service.Propose(sopClass, m_Compressed);
        }
    }

    void Fetch(RetrieveUnit& unit, QueryUser& user, DcmService& service, TaskProgress& progress) {
        const std::function<void(const ReceivedFile&)> tell = [&](const ReceivedFile& file) {
            if (!file.path.empty()) ++m_Report.stored;
            m_Report.files.push_back(file);
            progress.Step();
        };
        ReceivedFiles files(m_Folder, m_Watch.GetStopQuestion(), tell);
        StorageProvider provider(service, files);
        provider.SetTakesAnyInstance(true);
        const std::size_t before = m_Report.files.size();
        user.Request(kGetRQ, GetClass(), unit.identifier);
        for (;;) {
            const DimseCommand command = user.Receive();
            if (!command.IsResponse()) {
                const auto event = provider.Handle(user.GetContext(), command);
                m_Watch.StopIfAsked();
                if (event != DcmService::Event::Message) {
                    throw Error(ErrorKind::Refused, m_Peer.Name() + ": " + service.GetError());
                }
                continue;
            }
            std::size_t bytes = 0;
            DataSet failed;
            if (command.HasDataSet()) failed = user.ReadIdentifier(bytes);
            if (IsPending(command.status)) continue;
            if (!m_bSecond && command.failed > 0 && m_Report.files.size() == before) {
                m_Again.push_back(std::move(unit));
                return;
            }
            NoteEnd(m_Report, unit, command, failed);
            return;
        }
    }

    const Peer& m_Peer;
    const RetrieveOptions& m_Options;
    Watch m_Watch;
    std::vector<std::string> m_Compressed;
    ReceiveOptions m_Folder;
    std::vector<RetrieveUnit> m_Units;
    std::vector<RetrieveUnit> m_Again;  // units of which nothing came
    bool m_bSecond =
        false;  // those once more: some peers look at one context of a class alone, so all syntaxes are in that
    RetrieveReport m_Report;
};

}  // namespace

RetrieveReport Get(const Peer& peer, const RetrieveOptions& options) {
    if (IsWebService(peer)) return WebGet(peer, options);
    if (options.form != RetrievedForm::Objects) {
        throw Error(ErrorKind::WrongArgument, "metadata and frames alone come from web services only (https://...)");
    }
    return GetJob(peer, options).Run();
}

}  // namespace korvane
