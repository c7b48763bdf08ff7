#include "Send.h"

#include "../core/Error.h"
#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "CommitJob.h"
#include "PeerConnection.h"
#include "SendDecoder.h"
#include "SendList.h"
#include "SendQueue.h"
#include "WebSend.h"
#include "WebService.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <list>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr unsigned kMostBarren = 2;
constexpr unsigned kMostJobs = 64;
constexpr int kLongestWait = 60;  // seconds
constexpr std::chrono::milliseconds kLook{20};

// Files whose contexts fit into one association, and which of them are still to be sent.
struct Batch {
    std::size_t begin = 0;
    std::deque<std::size_t> waiting;
};

using Noted = std::vector<std::pair<std::size_t, SendReport::File>>;  // files with their numbers, in any order

// The threads of a job, each with an association at a time. The calling thread reports and waits; it starts one of them
// first, and the others once that has an association, so that a peer that refuses is not asked by all.
class SendJob {
public:
    SendJob(const Peer& peer, const SendOptions& options) : m_Peer(peer), m_Options(options), m_Watch(options.watcher) {
        if (!options.queue.empty()) m_Queue.emplace(options.queue, peer);
    }

    SendReport Run(const std::vector<std::string>& sources) {
        if (sources.empty() && !m_Queue) throw Error(ErrorKind::WrongArgument, "nothing to send");
        m_Report.peer = m_Peer.Name();
        m_Report.sources = sources;
        SendList list = ListFilesToSend(sources.empty() ? m_Queue->GetUnstored() : sources, m_Watch);
        m_Report.failed = std::move(list.failed);
        m_Report.leftOut = std::move(list.leftOut);
        m_Files = std::move(list.files);
        Enter();
        MakeBatches();
        if (m_nWaiting > 0) SendAll(static_cast<std::int64_t>(list.bytes));
        if (m_Options.commit) AskForCommitment();
        return std::move(m_Report);
    }

private:
    // Puts the files on the queue's list, and finds out which of them are to be sent.
    void Enter() {
        m_Attempts.assign(m_Files.size(), 0);
        m_Stages.assign(m_Files.size(), SendQueue::Stage::Waiting);
        if (m_Queue) m_Stages = m_Queue->Enter(m_Files);
        m_Report.earlier =
            static_cast<std::size_t>(std::count(m_Stages.begin(), m_Stages.end(), SendQueue::Stage::Stored));
    }

    // A failure of that leaves the report as it is: what was stored is stored.
    void AskForCommitment() {
        std::vector<StorageFile> stored;
        for (std::size_t i = 0; i < m_Files.size(); ++i) {
            if (m_Stages[i] == SendQueue::Stage::Stored) stored.push_back(m_Files[i]);
        }
        if (stored.empty()) return;
        CommitOptions options = *m_Options.commit;
        options.watcher = m_Options.watcher;
        m_Report.commitment = CommitFiles(m_Peer, stored, options, true);
    }

    void MakeBatches() {
        DcmService service;
        DictionaryCodec codec;
        SendDecoder decoder(m_Options.decodeLossy, m_Watch);
        StorageUser user(service, codec);
        user.SetDecoder(&decoder);
        for (std::size_t begin = 0; begin < m_Files.size();) {
            const std::size_t end = user.Propose(m_Files, begin);
            Batch batch{begin, {}};
            for (; begin < end; ++begin) {
                if (m_Stages[begin] != SendQueue::Stage::Stored) batch.waiting.push_back(begin);
            }
            m_nWaiting += batch.waiting.size();
            m_Batches.push_back(std::move(batch));
        }
    }

    void SendAll(std::int64_t total) {
        const auto start = std::chrono::steady_clock::now();
        TaskProgress progress(m_Watch, "sending", total, 1);
        std::list<std::thread> threads;
        try {
            Attend(threads, progress, total);
        } catch (...) {
            m_bEnd = true;
            for (std::thread& thread : threads) thread.join();
            if (m_Watch.IsStopped()) Stop();
            throw;
        }
        for (std::thread& thread : threads) thread.join();
        if (m_Watch.IsStopped()) Stop();
        if (m_Failure) std::rethrow_exception(m_Failure);
        if (m_Queue) m_Queue->Sync();
        Collect(m_Failed, m_Report.failed);
        Collect(m_Again, m_Report.again);
        Collect(m_Decoded, m_Report.decoded);
        Collect(m_Warned, m_Report.warned);
        m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    // Starts the threads, and reports until they have ended.
    void Attend(std::list<std::thread>& threads, TaskProgress& progress, std::int64_t total) {
        std::size_t jobs = std::min<std::size_t>(std::clamp(m_Options.jobs, 1U, kMostJobs), m_nWaiting);
        std::int64_t shown = 0;
        const auto add = [&] {  // with the threads that the system gives, if it gives one
            try {
                threads.emplace_back([this] { Work(); });
                ++m_nWorking;
            } catch (const std::system_error&) {
                if (threads.empty()) throw Error(ErrorKind::Disk, "the system has no thread to send with");
                jobs = threads.size();
            }
        };
        std::unique_lock<std::mutex> lock(m_Mutex);
        add();
        while (m_nWorking > 0) {
            m_Changed.wait_for(lock, kLook);
            while (m_Report.associations > 0 && threads.size() < jobs && !m_bEnd) add();
            lock.unlock();
            const std::int64_t sent = std::clamp(m_nSent.load(), shown, total);
            progress.Step(sent - std::exchange(shown, sent));
            lock.lock();
        }
    }

    static void Collect(Noted& noted, std::vector<SendReport::File>& files) {
        std::stable_sort(noted.begin(), noted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (auto& entry : noted) files.push_back(std::move(entry.second));
    }

    bool IsOver() const { return m_bEnd || m_Watch.IsStopped(); }

    void Work() {
        try {
            PeerConnection peer(m_Peer, m_Watch);
            DictionaryCodec codec;
            SendDecoder decoder(m_Options.decodeLossy, m_Watch);
            StorageUser user(peer.GetService(), codec);
            user.SetDecoder(&decoder);
            while (Batch* const batch = NextBatch()) {
                user.Propose(m_Files, batch->begin);
                if (!Associate(peer)) break;
                Serve(user, peer.GetService(), *batch);
            }
        } catch (...) {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            if (!m_Failure) m_Failure = std::current_exception();
            m_bEnd = true;
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        --m_nWorking;
        m_Changed.notify_all();
    }

    // The first batch with files to be sent; null when there is none, or the job is over.
    Batch* NextBatch() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (IsOver()) return nullptr;
        const auto found =
            std::find_if(m_Batches.begin(), m_Batches.end(), [](const Batch& b) { return !b.waiting.empty(); });
        return found != m_Batches.end() ? &*found : nullptr;
    }

    // Makes an association. False when there is none: others go on then, or all is given up.
    bool Associate(PeerConnection& peer) {
        for (;;) {
            unsigned failures = 0;
            try {
                peer.GetService().AAssociateRJ::m_Result = 0;
                peer.Associate();
                const std::lock_guard<std::mutex> lock(m_Mutex);
                ++m_Report.associations;
                ++m_nOpen;
                m_nRefused = 0;
                m_Changed.notify_all();
                return true;
            } catch (const Error& failure) {
                if (failure.GetKind() == ErrorKind::Stopped) throw;
                const std::lock_guard<std::mutex> lock(m_Mutex);
                if (m_nOpen > 0) return false;
                const bool isFinal = peer.GetService().AAssociateRJ::m_Result == kRejectedPermanent;
                failures = ++m_nRefused;
                if (isFinal || failures > m_Options.retries) {
                    if (m_Report.associations == 0) throw;
                    GiveUp(failure.what());
                    return false;
                }
            }
            Pause(failures);
            if (IsOver()) return false;
        }
    }

    // Waits before another attempt.
    void Pause(unsigned attempt) {
        int seconds = std::max(m_Options.retryWait, 0);
        for (unsigned i = 1; i < attempt && seconds < kLongestWait; ++i) seconds *= 2;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::min(seconds, kLongestWait));
        while (!IsOver() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kLook);
    }

    // Sends files of a batch, as long as the association lasts.
    void Serve(StorageUser& user, DcmService& service, Batch& batch) {
        const auto isThere = [&] { return service.GetState() == DcmService::State::Established; };
        std::size_t stored = 0;
        std::size_t file = 0;
        while (isThere() && Take(batch, file)) {
            if (m_Attempts[file] > 0) Pause(m_Attempts[file]);
            if (IsOver()) break;
            stored += SendOne(user, file, batch, isThere) ? 1 : 0;
        }
        const bool brokeOff = !isThere();
        if (!brokeOff) service.Release();
        if (IsOver()) return;
        unsigned barren = 0;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            --m_nOpen;
            m_nBarren = brokeOff && stored == 0 ? m_nBarren + 1 : 0;
            barren = m_nBarren;
            if (barren >= std::max(kMostBarren, m_Options.retries + 1)) GiveUp("the peer breaks off each association");
        }
        if (brokeOff && m_Options.retries > 0) Pause(std::max(barren, 1U));
    }

    bool Take(Batch& batch, std::size_t& file) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (batch.waiting.empty() || IsOver()) return false;
        file = batch.waiting.front();
        batch.waiting.pop_front();
        return true;
    }

    // Sends a file, and notes what became of it; whether it was stored.
    template <class IsThere>
    bool SendOne(StorageUser& user, std::size_t index, Batch& batch, const IsThere& isThere) {
        const StorageFile& file = m_Files[index];
        if (m_Queue) m_Queue->NoteBegun({index});
        std::int64_t sent = 0;
        user.SetProgress([&](std::uint64_t bytes) {
            const auto now = static_cast<std::int64_t>(std::min(bytes, file.dataLength));
            m_nSent += now - std::exchange(sent, now);
            return IsOver();
        });
        const StorageResult result = user.Send(file);
        user.SetProgress(nullptr);
        if (IsOver() && !result.stored) return false;
        if (m_Queue && result.stored) m_Queue->NoteStored(index);
        if (m_Queue && result.status != kStatusSuccess && !result.stored) m_Queue->NoteRefused(index);
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Stages[index] == SendQueue::Stage::Begun && m_Attempts[index] == 0) {
            m_Again.push_back({index, {file.path, "it was on its way when an earlier run ended"}});
        }
        const bool brokeOff = !isThere() && result.status == kStatusSuccess;
        const bool hasNoRoom = (result.status & 0xFF00U) == kStatusOutOfResources;
        if (!result.stored && (brokeOff || hasNoRoom) && m_Attempts[index] < m_Options.retries) {
            ++m_Attempts[index];
            m_nSent -= sent;
            batch.waiting.push_back(index);
            if (brokeOff) m_Again.push_back({index, {file.path, result.error}});
            return false;
        }
        m_nSent += static_cast<std::int64_t>(file.dataLength) - sent;
        Note(index, result);
        return result.stored;
    }

    void Note(std::size_t index, const StorageResult& result) {
        const StorageFile& file = m_Files[index];
        if (!result.stored) {
            m_Failed.push_back({index, {file.path, result.error, result.status}});
            return;
        }
        m_Stages[index] = SendQueue::Stage::Stored;
        ++m_Report.stored;
        m_Report.bytes += result.bytes;
        if (result.status != kStatusSuccess) {
            m_Warned.push_back({index, {file.path, DimseStatusText(result.status), result.status}});
        }
        if (result.decoded) {
            m_Decoded.push_back(
                {index, {file.path, "the peer does not accept " + DescribeSyntax(file.transferSyntax)}});
        }
    }

    // What waits is failed.
    void GiveUp(const std::string& why) {
        for (Batch& batch : m_Batches) {
            for (const std::size_t file : batch.waiting)
                m_Failed.push_back({file, {m_Files[file].path, "not sent: " + why}});
            batch.waiting.clear();
        }
    }

    [[noreturn]] void Stop() {
        if (m_Queue) m_Queue->Sync();
        if (m_Report.stored == 0) throw Error(ErrorKind::Stopped, "stopped");
        throw Error(ErrorKind::Stopped, "stopped; " + std::to_string(m_Report.stored) + " of " +
                                            std::to_string(m_Files.size()) + " files are stored at " + m_Peer.Name());
    }

    const Peer& m_Peer;
    const SendOptions& m_Options;
    Watch m_Watch;
    std::optional<SendQueue> m_Queue;
    std::vector<StorageFile> m_Files;
    std::vector<SendQueue::Stage> m_Stages;  // of each file, `Stored` by this run too; guarded by the mutex below
    std::size_t m_nWaiting = 0;              // files at the beginning
    std::atomic<std::int64_t> m_nSent = 0;
    std::atomic<bool> m_bEnd = false;

    std::mutex m_Mutex;  // guards the members below while threads run
    std::condition_variable m_Changed;
    std::vector<Batch> m_Batches;
    std::vector<unsigned> m_Attempts;  // that failed, of each file; each belongs to who has taken the file
    std::size_t m_nWorking = 0;        // threads
    unsigned m_nOpen = 0;              // associations
    unsigned m_nRefused = 0;           // associations that could not be made since the last that was
    unsigned m_nBarren = 0;            // associations in a row that broke off before anything was stored
    Noted m_Failed;
    Noted m_Warned;
    Noted m_Decoded;
    Noted m_Again;
    std::exception_ptr m_Failure;
    SendReport m_Report;
};

}  // namespace

SendReport Send(const Peer& peer, const std::vector<std::string>& sources, const SendOptions& options) {
    if (IsWebService(peer)) return WebSend(peer, sources, options);
    return SendJob(peer, options).Run(sources);
}

}  // namespace korvane
