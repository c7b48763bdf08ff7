#include "WebRetrieve.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "Part10Stream.h"
#include "ReceivedFiles.h"
#include "RetrieveUnits.h"
#include "WebParts.h"
#include "WebQuery.h"
#include "WebService.h"

#include "Dicom/Lib/network/DimseCommand.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kMostNamed = 1000;  // instances that a report lists as missing

// Stores the objects of an answer.
class ObjectTaker : public MultipartTaker {
public:
    explicit ObjectTaker(StorageSink& sink) : m_Stream(sink) {}

    void BeginPart(const WebHeaders& headers) override {
        const auto type = headers.find("content-type");
        const std::string media = type != headers.end() ? MediaTypeOf(type->second) : "application/dicom";
        if (media != "application/dicom") throw Error(ErrorKind::Refused, "a part that is " + media + ", no object");
    }
    void TakeBytes(std::string_view bytes) override { m_Stream.Feed(bytes); }
    void EndPart() override { m_Stream.End(); }

private:
    Part10Stream m_Stream;
};

bool EndsAll(const Error& error) {
    return error.GetKind() == ErrorKind::Stopped || error.GetKind() == ErrorKind::Disk;
}

class WebGetJob {
public:
    WebGetJob(const Peer& peer, const RetrieveOptions& options)
        : m_Peer(peer), m_Options(options), m_Watch(options.watcher), m_Service(peer, m_Watch) {
        m_Folder.folder = options.folder;
        m_Folder.replace = options.replace;
        m_Folder.sync = options.sync;
    }

    RetrieveReport Run() {
        const auto start = std::chrono::steady_clock::now();
        m_Report.peer = m_Peer.Name();
        m_Report.folder = m_Options.folder;
        const std::vector<RetrieveUnit> units = FindUnitsWithClasses(m_Peer, m_Options);
        MakeDirectory(m_Options.folder);
        std::size_t total = 0;
        for (const RetrieveUnit& unit : units) total += unit.instances;
        m_Report.asked = units.size();
        TaskProgress progress(m_Watch, "fetching", static_cast<std::int64_t>(total));
        for (const RetrieveUnit& unit : units) {
            if (m_Options.form == RetrievedForm::Objects) {
                FetchObjects(unit, progress);
            } else {
                FetchParts(unit, progress);
            }
        }
        m_Report.completed = m_Report.stored;
        if (m_Report.stored == 0 && m_Report.files.empty() && !m_Report.failures.empty()) {
            const auto& failure = m_Report.failures.front();
            throw Error(ErrorKind::Refused, failure.what + ": " + failure.why);
        }
        m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return std::move(m_Report);
    }

private:
    // Fetches a series at once, or an instance. What did not come, as when the connection broke off, is then fetched one
    // by one.
    void FetchObjects(const RetrieveUnit& unit, TaskProgress& progress) {
        std::set<std::string> missing(unit.uids.begin(), unit.uids.end());
        WebRetry retry(m_Peer.web.retries, m_Peer.web.retryWait, m_Watch);
        const std::string address = AddressOf(unit);
        std::string why;
        for (;;) {
            const std::size_t before = missing.size();
            const bool isWhole = before == unit.uids.size();
            bool mayPass = false;
            HttpAnswer answer;
            try {
                if (isWhole || m_Options.level == QueryLevel::Image) {
                    answer = FetchFrom(address, missing, progress);
                } else {
                    answer = FetchSingly(address, missing, progress, why);
                }
                if (why.empty()) why = "the answer did not have all of it";
                mayPass = missing.size() < before;
            } catch (const ConnectionLost& lost) {
                why = lost.what();
                mayPass = true;
            } catch (const Refused& refused) {
                why = refused.what();
                answer = refused.outcome.answer;
                mayPass = refused.outcome.MayPass();
            } catch (const Error& error) {
                if (EndsAll(error)) throw;
                why = error.what();
                mayPass = missing.size() < before;
            }
            if (missing.empty()) return;
            if (!mayPass || !retry.Wait(answer)) break;
        }
        NoteMissing(unit, missing, why);
    }

    // What the service does not give, or gives in a form that is none, does not keep the others from being asked for:
    // the first such reason is kept.
    HttpAnswer FetchSingly(const std::string& address, std::set<std::string>& missing, TaskProgress& progress,
                           std::string& why) {
        HttpAnswer answer;
        for (const std::string& uid : std::set<std::string>(missing)) {
            try {
                answer = FetchFrom(address + PathStep("instances", uid), missing, progress);
            } catch (const Refused& refused) {
                if (refused.outcome.MayPass()) throw;
                if (why.empty()) why = refused.what();
            } catch (const ConnectionLost&) {
                throw;
            } catch (const Error& error) {
                if (EndsAll(error)) throw;
                if (why.empty()) why = error.what();
            }
        }
        return answer;
    }

    // Takes the objects of one answer off the missing ones. Throws `Refused`, `ConnectionLost`, `Error`.
    HttpAnswer FetchFrom(const std::string& address, std::set<std::string>& missing, TaskProgress& progress) {
        const std::function<void(const ReceivedFile&)> tell = [&](const ReceivedFile& file) {
            Note(file, missing, progress);
        };
        ReceivedFiles files(m_Folder, m_Watch.GetStopQuestion(), tell);
        ObjectTaker taker(files);
        return FetchMultipart(m_Service, address, "application/dicom", taker);
    }

    void Note(const ReceivedFile& file, std::set<std::string>& missing, TaskProgress& progress) {
        const bool isNew = missing.erase(file.sopInstance) > 0;
        const bool isKnown = !isNew && m_Came.contains(file.sopInstance);
        if (isKnown && !file.path.empty()) return;  // once more, since the answer before broke off
        m_Came.insert(file.sopInstance);
        if (!file.path.empty()) ++m_Report.stored;
        m_Report.files.push_back(file);
        if (!isNew && !file.path.empty() && file.remark.empty()) {
            m_Report.files.back().remark = "came though the service had not named it";
        }
        if (isNew) progress.Step();
    }

    void NoteMissing(const RetrieveUnit& unit, const std::set<std::string>& missing, const std::string& why) {
        m_Report.failed += missing.size();
        m_Report.failures.push_back({unit.name, why});
        if (m_Options.level == QueryLevel::Image) return;
        for (const std::string& uid : missing) {
            if (m_Report.failures.size() < kMostNamed) m_Report.failures.push_back({uid, "did not come"});
        }
    }

    // What belongs to the instances of a unit: metadata of all at once, or frames of each.
    void FetchParts(const RetrieveUnit& unit, TaskProgress& progress) {
        const WebPartFiles files(m_Service, m_Options);
        const std::string address = AddressOf(unit);
        std::set<std::string> missing(unit.uids.begin(), unit.uids.end());
        std::string why;
        const auto note = [&](const std::string& uid, const std::vector<std::string>& paths) {
            missing.erase(uid);
            m_Report.stored += paths.size();
            for (const std::string& path : paths) {
                m_Report.files.emplace_back().path = path;
                m_Report.files.back().sopInstance = uid;
            }
            progress.Step();
        };
        try {
            if (m_Options.form == RetrievedForm::Metadata) {
                files.FetchMetadata(address, {unit.uids.begin(), unit.uids.end()}, note);
                why = "the answer did not have it";
            } else {
                for (const std::string& uid : unit.uids) {
                    const bool isImage = m_Options.level == QueryLevel::Image;
                    note(uid, files.FetchFrames(isImage ? address : address + PathStep("instances", uid), uid));
                }
            }
        } catch (const Error& error) {
            if (EndsAll(error)) throw;
            why = error.what();
        }
        if (!missing.empty()) NoteMissing(unit, missing, why);
    }

    std::string AddressOf(const RetrieveUnit& unit) const {
        std::string address = PathStep("studies", unit.identifier.Text("StudyInstanceUID")) +
                              PathStep("series", unit.identifier.Text("SeriesInstanceUID"));
        if (m_Options.level == QueryLevel::Image) {
            address += PathStep("instances", unit.identifier.Text("SOPInstanceUID"));
        }
        return address;
    }

    const Peer& m_Peer;
    const RetrieveOptions& m_Options;
    Watch m_Watch;
    WebService m_Service;
    ReceiveOptions m_Folder;
    std::set<std::string> m_Came;  // instances that were answered for, stored or not
    RetrieveReport m_Report;
};

}  // namespace

RetrieveReport WebGet(const Peer& peer, const RetrieveOptions& options) {
    CheckRetrieveKeys(options);
    if (options.folder.empty()) throw Error(ErrorKind::WrongArgument, "no folder is given");
    if (options.form == RetrievedForm::Frames && options.frames.empty()) {
        throw Error(ErrorKind::WrongArgument, "no numbers of frames are given");
    }
    return WebGetJob(peer, options).Run();
}

}  // namespace korvane
