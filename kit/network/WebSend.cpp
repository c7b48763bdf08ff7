#include "WebSend.h"

#include "../core/Error.h"
#include "../core/Threads.h"
#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "DecodedCopy.h"
#include "SendDecoder.h"
#include "SendList.h"
#include "SendQueue.h"
#include "StoreAnswer.h"
#include "StoreBody.h"
#include "WebService.h"

#include "Dicom/Lib/network/DimseCommand.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

namespace korvane {

namespace {

// For one request: an answer names each file, and all are sent again when the connection breaks off.
constexpr std::size_t kMostFiles = 50;
constexpr std::uint64_t kMostBytes = std::uint64_t{64} << 20;
constexpr unsigned kMostJobs = 64;
constexpr std::uint16_t kSyntaxRefused = 0xC122;  // PS3.18 I.2.2
constexpr int kTooLarge = 413;                    // statuses of HTTP
constexpr int kMediaTypeRefused = 415;

struct FileResult {
    std::size_t file = 0;
    bool stored = false;
    std::uint16_t reason = 0;
    std::string why{};    // of a failure or warning
    std::string again{};  // why it was sent once more
    bool syntaxRefused = false;
    std::shared_ptr<const DecodedCopy> decoded{};  // what is sent in its place
    std::uint64_t decodedLength = 0;               // of its data set, once it is stored
};

using Results = std::vector<FileResult>;

std::string ReasonText(std::uint16_t reason) {
    switch (reason) {
    case 0: return "no reason given";
    case 0x0111: return "an instance of this UID is there already (0x0111)";
    case kSyntaxRefused: return "the service does not take its transfer syntax (0xC122)";
    default: return DimseStatusText(reason);
    }
}

class WebSendJob {
public:
    WebSendJob(const Peer& peer, const SendOptions& options)
        : m_Peer(peer), m_Options(options), m_Watch(options.watcher) {
        m_Free.push_back(std::make_unique<WebService>(peer, m_Watch));  // which finds fault with address and token
        m_Report.associations = 1;
        if (!options.queue.empty()) m_Queue.emplace(options.queue, peer);
    }

    SendReport Run(const std::vector<std::string>& sources) {
        if (sources.empty() && !m_Queue) throw Error(ErrorKind::WrongArgument, "nothing to send");
        SendList list = ListFilesToSend(sources.empty() ? m_Queue->GetUnstored() : sources, m_Watch);
        m_Report.peer = m_Peer.Name();
        m_Report.sources = sources;
        m_Report.failed = std::move(list.failed);
        m_Report.leftOut = std::move(list.leftOut);
        m_Files = std::move(list.files);
        m_Stages.assign(m_Files.size(), SendQueue::Stage::Waiting);
        if (m_Queue) m_Stages = m_Queue->Enter(m_Files);
        m_Report.earlier =
            static_cast<std::size_t>(std::count(m_Stages.begin(), m_Stages.end(), SendQueue::Stage::Stored));
        const auto start = std::chrono::steady_clock::now();
        try {
            SendAll(static_cast<std::int64_t>(list.bytes));
        } catch (const Error& error) {
            if (error.GetKind() != ErrorKind::Stopped || m_nStored == 0) throw;
            throw Error(ErrorKind::Stopped, "stopped; " + std::to_string(m_nStored) + " of " +
                                                std::to_string(m_Files.size()) + " files are stored at " +
                                                m_Peer.Name());
        }
        if (m_Queue) m_Queue->Sync();
        if (m_Report.stored == 0 && !m_GivenUp.empty()) throw Error(ErrorKind::Refused, m_GivenUp);
        m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return std::move(m_Report);
    }

private:
    void SendAll(std::int64_t total) {
        const std::vector<std::vector<std::size_t>> batches = MakeBatches();
        std::vector<Results> results(batches.size());
        TaskProgress progress(m_Watch, "sending", total, 1);
        const unsigned jobs = std::clamp(m_Options.jobs, 1U, kMostJobs);
        ForEachInOrder(
            jobs, batches.size(), jobs, m_Watch, [&](std::size_t i) { results[i] = SendOnThread(batches[i]); },
            [&](std::size_t i) {
                for (const FileResult& result : results[i]) {
                    Note(result);
                    progress.Step(static_cast<std::int64_t>(m_Files[result.file].dataLength));
                }
                results[i] = {};
            });
    }

    // Two files of one instance do not go in one request: the answer tells them apart by their UIDs alone.
    std::vector<std::vector<std::size_t>> MakeBatches() const {
        std::vector<std::vector<std::size_t>> batches;
        std::set<std::string> uids;
        std::uint64_t bytes = 0;
        for (std::size_t i = 0; i < m_Files.size(); ++i) {
            if (m_Stages[i] == SendQueue::Stage::Stored) continue;
            const StorageFile& file = m_Files[i];
            bytes += file.dataLength;
            if (batches.empty() || batches.back().size() >= kMostFiles || bytes > kMostBytes ||
                uids.contains(file.sopInstance)) {
                batches.emplace_back();
                uids.clear();
                bytes = file.dataLength;
            }
            uids.insert(file.sopInstance);
            batches.back().push_back(i);
        }
        return batches;
    }

    Results SendOnThread(const std::vector<std::size_t>& batch) {
        std::unique_ptr<WebService> service;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            if (!m_Free.empty()) {
                service = std::move(m_Free.back());
                m_Free.pop_back();
            } else {
                ++m_Report.associations;
            }
        }
        if (service == nullptr) service = std::make_unique<WebService>(m_Peer, m_Watch);
        Results results;
        for (const std::size_t file : batch) {
            results.push_back({.file = file});
            if (m_Stages[file] == SendQueue::Stage::Begun) {
                results.back().again = "it was on its way when an earlier run ended";
            }
        }
        Results sent = SendBatch(*service, std::move(results));
        SendDecoder decoder(m_Options.decodeLossy, m_Watch);
        for (FileResult& result : sent) {
            if (result.syntaxRefused) SendDecoded(*service, decoder, result);
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Free.push_back(std::move(service));
        return sent;
    }

    // A file by itself that the service has refused as it is compressed.
    void SendDecoded(WebService& service, SendDecoder& decoder, FileResult& result) {
        std::string why;
        try {
            result.decoded = DecodedCopy::Make(m_Files[result.file], decoder, m_Watch, why);
        } catch (const Error& error) {
            if (error.GetKind() == ErrorKind::Stopped) throw;
            why = error.what();  // what is stored is still to be told
        }
        if (!why.empty()) result.why += "; " + why;
        if (result.decoded == nullptr) return;
        result.syntaxRefused = false;
        result.reason = 0;
        result.why.clear();
        result = SendBatch(service, {result}).front();
        if (result.stored) result.decodedLength = result.decoded->GetFile().dataLength;
        result.decoded.reset();
    }

    bool IsCompressed(const FileResult& result) const {
        const std::string& syntax = FileOf(result).transferSyntax;
        return !IsNativeTransferSyntax(syntax) || IsDeflatedTransferSyntax(syntax);
    }

    const StorageFile& FileOf(const FileResult& result) const {
        return result.decoded != nullptr ? result.decoded->GetFile() : m_Files[result.file];
    }

    static Results FailAll(Results batch, const std::string& why, const Results& lost) {
        for (FileResult& result : batch) result.why = why;
        batch.insert(batch.end(), lost.begin(), lost.end());
        return batch;
    }

    std::string GetGivenUp() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_GivenUp;
    }

    // The service takes nothing, so that there is no use in asking it for the other files.
    void GiveUp(const std::string& why) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_GivenUp.empty()) m_GivenUp = why;
    }

    Results SendBatch(WebService& service, Results batch) {
        WebRetry retry(m_Options.retries, m_Options.retryWait, m_Watch);
        Results lost;
        for (;;) {
            if (batch.empty()) return lost;
            if (const std::string why = GetGivenUp(); !why.empty())
                return FailAll(std::move(batch), "not sent: " + why, lost);
            std::string text;
            try {
                const WebOutcome outcome = Post(service, batch, text);
                if (outcome.MayPass() && retry.Wait(outcome.answer)) continue;
                if (batch.size() > 1 && WantsFewer(batch, outcome.answer.status)) {
                    Results sent = SendHalves(service, std::move(batch));
                    sent.insert(sent.end(), lost.begin(), lost.end());
                    return sent;
                }
                Judge(batch, outcome, text);
                batch.insert(batch.end(), lost.begin(), lost.end());
                return batch;
            } catch (const FileLost& file) {
                const auto place = batch.begin() + static_cast<std::ptrdiff_t>(file.index);
                place->why = file.what();
                lost.push_back(*place);
                batch.erase(place);
            } catch (const ConnectionLost& broken) {
                if (!retry.Wait()) {
                    GiveUp(broken.what());
                    return FailAll(std::move(batch), broken.what(), lost);
                }
                for (FileResult& result : batch) result.again = broken.what();
            } catch (const Error& error) {
                if (error.GetKind() == ErrorKind::Stopped) throw;
                GiveUp(error.what());  // what earlier requests have stored is still to be told
                return FailAll(std::move(batch), error.what(), lost);
            }
        }
    }

    // Whether the service may take some of the files, where it has refused all of them.
    bool WantsFewer(const Results& batch, int status) const {
        return status == kTooLarge ||
               (status == kMediaTypeRefused &&
                std::any_of(batch.begin(), batch.end(), [&](auto& r) { return IsCompressed(r); }));
    }

    Results SendHalves(WebService& service, Results batch) {
        Results second(batch.begin() + static_cast<std::ptrdiff_t>(batch.size() / 2), batch.end());
        batch.resize(batch.size() / 2);
        Results sent = SendBatch(service, std::move(batch));
        second = SendBatch(service, std::move(second));
        sent.insert(sent.end(), second.begin(), second.end());
        return sent;
    }

    WebOutcome Post(WebService& service, Results& batch, std::string& text) {
        std::vector<const StorageFile*> files;
        std::vector<std::size_t> numbers;
        for (const FileResult& result : batch) {
            files.push_back(&FileOf(result));
            numbers.push_back(result.file);
        }
        if (m_Queue) m_Queue->NoteBegun(numbers);
        StoreBody body(files);
        HttpRequest request;
        request.bodyLength = body.GetLength();
        request.body = [&](char* bytes, std::size_t capacity) { return body.Read(bytes, capacity); };
        request.rewind = [&] {
            body.Rewind();
            for (FileResult& result : batch) result.again = "the connection was closed while it was on its way";
        };
        return service.Post("/studies", body.GetType(), "application/dicom+json", std::move(request), text);
    }

    // What an answer that has come says of each file.
    void Judge(Results& batch, const WebOutcome& outcome, const std::string& text) {
        const int status = outcome.answer.status;
        const std::string words = outcome.Words();
        if (!outcome.IsGood() && status != 409) {
            for (FileResult& result : batch) {
                result.why = words;
                result.syntaxRefused = status == kMediaTypeRefused && IsCompressed(result);
                if (m_Queue) m_Queue->NoteRefused(result.file);
            }
            const bool isForAll = status == 401 || status == 403 || status == 404 || status == 405 || status == 501;
            if (isForAll || (status >= 300 && status < 400) || outcome.MayPass()) GiveUp(m_Peer.host + ": " + words);
            return;
        }
        std::vector<std::string> instances;
        for (const FileResult& result : batch) instances.push_back(m_Files[result.file].sopInstance);
        std::vector<StoreVerdict> verdicts(batch.size());
        std::string fault = "the answer (" + words + ") does not name it as stored";
        try {
            verdicts = ReadStoreAnswer(text, instances);
        } catch (const Error& error) {
            fault = "the answer (" + words + ") cannot be read: " + error.what();
        }
        for (std::size_t i = 0; i < batch.size(); ++i) Take(batch[i], verdicts[i], fault);
    }

    void Take(FileResult& result, const StoreVerdict& verdict, const std::string& fault) {
        using Kind = StoreVerdict::Kind;
        result.stored = verdict.kind == Kind::Stored || verdict.kind == Kind::Warned;
        result.reason = verdict.reason;
        result.syntaxRefused = verdict.kind == Kind::Failed && verdict.reason == kSyntaxRefused;
        if (verdict.kind == Kind::Warned) result.why = ReasonText(verdict.reason);
        if (verdict.kind == Kind::Failed) result.why = "refused: " + ReasonText(verdict.reason);
        if (verdict.kind == Kind::Unnamed) result.why = fault;
        if (result.stored) ++m_nStored;
        if (m_Queue && result.stored) m_Queue->NoteStored(result.file);
        if (m_Queue && verdict.kind == Kind::Failed) m_Queue->NoteRefused(result.file);
    }

    void Note(const FileResult& result) {
        const StorageFile& file = m_Files[result.file];
        if (!result.again.empty()) m_Report.again.push_back({file.path, result.again});
        if (!result.stored) {
            m_Report.failed.push_back({file.path, result.why, result.reason});
            return;
        }
        ++m_Report.stored;
        const bool isDecoded = result.decodedLength != 0;
        m_Report.bytes += isDecoded ? result.decodedLength : file.dataLength;
        if (isDecoded) {
            m_Report.decoded.push_back({file.path, "the peer does not accept " + DescribeSyntax(file.transferSyntax)});
        }
        if (!result.why.empty()) m_Report.warned.push_back({file.path, result.why, result.reason});
    }

    const Peer& m_Peer;
    const SendOptions& m_Options;
    Watch m_Watch;
    std::optional<SendQueue> m_Queue;
    std::vector<StorageFile> m_Files;
    std::vector<SendQueue::Stage> m_Stages;  // of each file when the job began
    std::atomic<std::size_t> m_nStored = 0;
    SendReport m_Report;

    std::mutex m_Mutex;  // guards the members below, and the number of associations, while threads run
    std::vector<std::unique_ptr<WebService>> m_Free;
    std::string m_GivenUp;
};

}  // namespace

SendReport WebSend(const Peer& peer, const std::vector<std::string>& sources, const SendOptions& options) {
    if (options.commit) throw Error(ErrorKind::WrongArgument, "web services have no storage commitment");
    return WebSendJob(peer, options).Run(sources);
}

}  // namespace korvane
