#include "Send.h"

#include "../core/HostError.h"
#include "../core/Paths.h"
#include "../core/Progress.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/DataSetOutput.h"

#include "host/terminal/Terminal.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>

namespace korvane {

namespace {

constexpr std::uint64_t kUnit = 1024;  // of progress, whose counts have 32 bits
constexpr int kMostBarren = 2;

class SendJob {
public:
    explicit SendJob(const PeerOptions& options) : m_Options(options) {}

    SendReport Run(const std::vector<std::string>& sources) {
        Find(sources);
        if (!m_Files.empty()) SendAll();
        return std::move(m_Report);
    }

private:
    void Find(const std::vector<std::string>& sources) {
        std::vector<std::pair<std::string, bool>> paths;  // and whether found in a folder
        for (const std::string& source : sources) {
            std::error_code error;
            if (!std::filesystem::is_directory(PathFromText(source), error)) {
                paths.emplace_back(source, false);
                continue;
            }
            std::vector<std::string> files;
            std::vector<std::string> unreadable;
            ListFolder(PathFromText(source), files, unreadable);
            std::sort(files.begin(), files.end());
            for (const std::string& file : files) paths.emplace_back(file, true);
            for (const std::string& line : unreadable) m_Report.failed.push_back({source, line});
        }
        ProgressBar progress("looking", static_cast<long>(paths.size()));
        for (const auto& [path, fromFolder] : paths) {
            Examine(path, fromFolder);
            progress.Step();
        }
    }

    void Examine(const std::string& path, bool fromFolder) {
        StorageFile file;
        std::string why;
        if (file.Examine(path, why) != 0) {
            m_Units += static_cast<long>(file.dataLength / kUnit);
            m_Files.push_back(std::move(file));
            return;
        }
        bool isMeant = true;
        try {
            const DataSetFile read = ReadDataSetFile(path, kStopBeforePixelData);
            if (read.dataSet == nullptr) {
                isMeant = false;
                why = "not DICOM";
            } else if (IsMediaDirectory(*read.dataSet)) {
                isMeant = false;
                why = "a DICOMDIR";
            }
        } catch (const Error&) {  // it cannot be read, as `why` says already
        }
        (isMeant || !fromFolder ? m_Report.failed : m_Report.leftOut).push_back({path, why});
    }

    void SendAll() {
        const auto start = std::chrono::steady_clock::now();
        PeerConnection peer(m_Options);
        DictionaryCodec codec;
        StorageUser user(peer.GetService(), codec);
        ProgressBar progress("sending", m_Units, static_cast<double>(kUnit));
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

    /// False when the rest cannot be sent.
    bool Associate(PeerConnection& peer, std::size_t next) {
        try {
            peer.Associate();
        } catch (const Interrupted&) {
            Stop();
        } catch (const HostError& failure) {
            if (m_Report.associations == 0) throw;
            GiveUp(next, failure.what());
            return false;
        }
        ++m_Report.associations;
        return true;
    }

    /// The files from `next` to `end`, as far as the association lasts.
    void SendSome(StorageUser& user, DcmService& service, ProgressBar& progress, std::size_t& next, std::size_t end) {
        while (next < end && service.GetState() == DcmService::State::Established) {
            const StorageFile& file = m_Files[next++];
            long units = 0;
            const auto advance = [&](std::uint64_t bytes) {
                const auto now = static_cast<long>(std::min(bytes, file.dataLength) / kUnit);
                progress.FireProgress(now - units);
                units = now;
                return platform::WasInterrupted();
            };
            user.SetProgress(advance);
            const StorageResult result = user.Send(file);
            if (platform::WasInterrupted()) Stop();
            advance(file.dataLength);
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
        if (m_Report.stored == 0) throw Interrupted();
        throw HostError("stopped; " + std::to_string(m_Report.stored) + " of " + std::to_string(m_Files.size()) +
                        " files are stored at " + m_Options.Name());
    }

    const PeerOptions& m_Options;
    std::vector<StorageFile> m_Files;
    long m_Units = 0;
    SendReport m_Report;
};

}  // namespace

SendReport SendFiles(const PeerOptions& peer, const std::vector<std::string>& sources) {
    return SendJob(peer).Run(sources);
}

}  // namespace korvane
