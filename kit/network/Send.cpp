#include "Send.h"

#include "../core/Error.h"
#include "../core/JsonText.h"
#include "../core/Paths.h"
#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/DataSetOutput.h"
#include "PeerConnection.h"

#include "Dicom/Lib/network/StorageUser.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

namespace korvane {

namespace {

constexpr int kMostBarren = 2;

class SendJob {
public:
    SendJob(const Peer& peer, const SendOptions& options) : m_Peer(peer), m_Watch(options.watcher) {}

    SendReport Run(const std::vector<std::string>& sources) {
        Find(sources);
        if (!m_Files.empty()) SendAll();
        return std::move(m_Report);
    }

private:
    void Find(const std::vector<std::string>& sources) {
        std::vector<std::pair<std::string, bool>> paths;  // each with whether it was found in a folder
        for (const std::string& source : sources) {
            std::error_code error;
            if (!std::filesystem::is_directory(PathFromText(source), error)) {
                paths.emplace_back(source, false);
                continue;
            }
            std::vector<std::string> files;
            std::vector<std::string> unreadable;
            ListFolder(PathFromText(source), files, unreadable, m_Watch);
            std::sort(files.begin(), files.end());
            for (const std::string& file : files) paths.emplace_back(file, true);
            for (const std::string& line : unreadable) m_Report.failed.push_back({source, line});
        }
        TaskProgress progress(m_Watch, "looking", static_cast<std::int64_t>(paths.size()));
        for (const auto& [path, fromFolder] : paths) {
            Examine(path, fromFolder);
            progress.Step();
        }
    }

    void Examine(const std::string& path, bool fromFolder) {
        StorageFile file;
        std::string why;
        if (file.Examine(path, why) != 0) {
            m_Bytes += file.dataLength;
            m_Files.push_back(std::move(file));
            return;
        }
        bool isMeant = true;
        try {
            const DataSetFile read = ReadDataSetFile(path, kStopBeforePixelData, m_Watch);
            if (read.dataSet == nullptr) {
                isMeant = false;
                why = "not DICOM";
            } else if (IsMediaDirectory(*read.dataSet)) {
                isMeant = false;
                why = "a DICOMDIR";
            }
        } catch (const Error& error) {  // a file that cannot be read: `why` says so already
            if (error.GetKind() == ErrorKind::Stopped) throw;
        }
        (isMeant || !fromFolder ? m_Report.failed : m_Report.leftOut).push_back({path, why});
    }

    void SendAll() {
        const auto start = std::chrono::steady_clock::now();
        PeerConnection peer(m_Peer, m_Watch);
        DictionaryCodec codec;
        StorageUser user(peer.GetService(), codec);
        TaskProgress progress(m_Watch, "sending", static_cast<std::int64_t>(m_Bytes), 1);
        std::size_t next = 0;
        for (int barren = 0; next < m_Files.size();) {
            const std::size_t before = m_Report.stored;
            const std::size_t end = user.Propose(m_Files, next);
            if (!Associate(peer, next)) break;
            SendSome(user, peer.GetService(), progress, next, end);
            barren = next == end || m_Report.stored > before ? 0 : barren + 1;
            if (barren < kMostBarren) continue;
            GiveUp(next, "the peer breaks off each association");
            break;
        }
        m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    // Makes an association for the files from `next` on; false when there is none.
    bool Associate(PeerConnection& peer, std::size_t next) {
        try {
            peer.Associate();
        } catch (const Error& failure) {
            if (failure.GetKind() == ErrorKind::Stopped) Stop();
            if (m_Report.associations == 0) throw;
            GiveUp(next, failure.what());
            return false;
        }
        ++m_Report.associations;
        return true;
    }

    // Sends the files from `next` to `end`, as long as the association lasts.
    void SendSome(StorageUser& user, DcmService& service, TaskProgress& progress, std::size_t& next, std::size_t end) {
        while (next < end && service.GetState() == DcmService::State::Established) {
            const StorageFile& file = m_Files[next++];
            std::uint64_t sent = 0;
            const auto advance = [&](std::uint64_t bytes) {
                const std::uint64_t now = std::min(bytes, file.dataLength);
                if (m_Watch.IsStopped()) return true;
                progress.Step(static_cast<std::int64_t>(now - sent));
                sent = now;
                return false;
            };
            user.SetProgress(advance);
            const StorageResult result = user.Send(file);
            if (advance(file.dataLength)) Stop();
            Note(file, result);
        }
        user.SetProgress(nullptr);
        if (service.GetState() == DcmService::State::Established) service.Release();
    }

    void Note(const StorageFile& file, const StorageResult& result) {
        if (!result.stored) {
            m_Report.failed.push_back({file.path, result.error, result.status});
            return;
        }
        ++m_Report.stored;
        m_Report.bytes += result.bytes;
        if (result.status != kStatusSuccess) {
            m_Report.warned.push_back({file.path, DimseStatusText(result.status), result.status});
        }
    }

    void GiveUp(std::size_t next, const std::string& why) {
        for (; next < m_Files.size(); ++next) m_Report.failed.push_back({m_Files[next].path, "not sent: " + why});
    }

    [[noreturn]] void Stop() const {
        if (m_Report.stored == 0) throw Error(ErrorKind::Stopped, "stopped");
        throw Error(ErrorKind::Stopped, "stopped; " + std::to_string(m_Report.stored) + " of " +
                                            std::to_string(m_Files.size()) + " files are stored at " + m_Peer.Name());
    }

    const Peer& m_Peer;
    Watch m_Watch;
    std::vector<StorageFile> m_Files;
    std::uint64_t m_Bytes = 0;
    SendReport m_Report;
};

nlohmann::ordered_json FilesJson(const std::vector<SendReport::File>& files) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& file : files) {
        array.push_back({{"path", JsonText(file.path)}, {"why", JsonText(file.why)}});
        if (file.status != 0) array.back()["status"] = file.status;
    }
    return array;
}

}  // namespace

SendReport Send(const Peer& peer, const std::vector<std::string>& sources, const SendOptions& options) {
    return SendJob(peer, options).Run(sources);
}

std::string ToJson(const SendReport& report) {
    nlohmann::ordered_json json;
    json["schema"] = "korvane.send";
    json["version"] = 1;
    json["stored"] = report.stored;
    json["bytes"] = report.bytes;
    json["associations"] = report.associations;
    json["seconds"] = report.seconds;
    json["failed"] = FilesJson(report.failed);
    json["warned"] = FilesJson(report.warned);
    json["leftOut"] = FilesJson(report.leftOut);
    return json.dump(2);
}

}  // namespace korvane
