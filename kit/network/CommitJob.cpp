#include "CommitJob.h"

#include "../core/Error.h"
#include "../core/Watch.h"
#include "CommitmentMessages.h"
#include "PeerConnection.h"
#include "Receive.h"

#include "Dicom/Lib/dataset/NewUid.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace korvane {

namespace {

using Event = DcmService::Event;
using Outcome = CommitReport::Outcome;

constexpr std::size_t kMostInRequest = 1000;
constexpr std::chrono::milliseconds kLook{20};
constexpr std::chrono::seconds kHold{5};  // that an association is held open for a report where a port is open too

// A request and its reports. They may come over the association that asked, or to a receiver on a thread of its own.
class CommitJob : public ReceiveObserver, public Watcher {
public:
    CommitJob(const Peer& peer, const std::vector<StorageFile>& files, const CommitOptions& options)
        : m_Peer(peer), m_Options(options), m_Watch(options.watcher) {
        m_Report.peer = peer.Name();
        std::map<std::pair<std::string, std::string>, bool> seen;
        for (const StorageFile& file : files) {
            if (!seen.try_emplace({file.sopClass, file.sopInstance}, true).second) continue;
            CommitReport::Instance& instance = m_Report.instances.emplace_back();
            instance.path = file.path;
            instance.sopClass = file.sopClass;
            instance.sopInstance = file.sopInstance;
        }
    }
    ~CommitJob() override { EndReceiver(); }
    CommitJob(const CommitJob&) = delete;
    CommitJob& operator=(const CommitJob&) = delete;

    CommitReport Run() {
        const auto start = Clock::now();
        StartReceiver();
        PeerConnection connection(m_Peer, m_Watch);
        DcmService& service = connection.GetService();
        ProposeCommitment(service, false);
        connection.Associate();
        if (service.FindContext(kCommitmentClass) == nullptr) {
            service.Release();
            throw Error(ErrorKind::Refused, m_Peer.Name() + ": the peer does not offer storage commitment");
        }
        TaskProgress progress(m_Watch, "asking for commitment", static_cast<std::int64_t>(m_Report.instances.size()));
        for (std::size_t begin = 0; begin < m_Report.instances.size() && IsOpen(service); begin += kMostInRequest) {
            Ask(service, begin, std::min(begin + kMostInRequest, m_Report.instances.size()));
        }
        Await(service, progress);
        m_Watch.StopIfAsked();
        EndReceiver();
        if (m_Failure) std::rethrow_exception(m_Failure);
        Conclude(service);
        m_Report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        return std::move(m_Report);
    }

    // All of it, for a reason that kept the job from asking, or from waiting to the end.
    CommitReport Unanswered(const std::string& why) {
        EndReceiver();
        for (CommitReport::Instance& instance : m_Report.instances) {
            m_Report.committed += instance.outcome == Outcome::Committed ? 1 : 0;
            if (instance.outcome == Outcome::Unanswered) instance.why = why;
        }
        return std::move(m_Report);
    }

    // --- of the receiver ---
    void OnListening(std::uint16_t /*port*/) override {
        Change([this] { m_bListens = true; });
    }
    bool OnReport(const CommitmentNews& news) override {
        CommitmentData data{news.transaction, {}};
        for (const CommitmentNews::Instance& one : news.instances) {
            data.items.push_back({one.sopClass, one.sopInstance, one.failure});
        }
        return Take(data);
    }
    bool OnLook(int /*milliseconds*/) override { return !m_bEnd; }
    bool IsStopped() noexcept override { return m_Watch.IsStopped(); }

private:
    using Clock = std::chrono::steady_clock;
    struct Part {
        std::size_t begin;
        std::size_t end;
    };

    static bool IsOpen(const DcmService& service) { return service.GetState() == DcmService::State::Established; }

    template <class Function>
    void Change(Function&& change) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        change();
        m_Changed.notify_all();
    }

    void StartReceiver() {
        if (m_Options.port == 0) return;
        m_Receive.port = m_Options.port;
        m_Receive.bindAddress = m_Options.bindAddress;
        m_Receive.ownTitle = m_Peer.ownTitle;
        m_Receive.tls = m_Peer.tls;
        m_Receive.tls.isOn = m_Options.encrypted;
        m_Receive.takesReports = true;
        m_Receive.watcher = this;
        m_Thread = std::thread([this] {
            try {
                Receive(m_Receive, this);
            } catch (...) {
                Change([this] { m_Failure = std::current_exception(); });
            }
        });
        std::unique_lock<std::mutex> lock(m_Mutex);
        while (!m_Changed.wait_for(lock, kLook, [this] { return m_bListens || m_Failure; })) m_Watch.StopIfAsked();
        if (m_Failure) std::rethrow_exception(m_Failure);
    }

    void EndReceiver() {
        m_bEnd = true;
        if (m_Thread.joinable()) m_Thread.join();
    }

    // Sends the request for some of the instances.
    void Ask(DcmService& service, std::size_t begin, std::size_t end) {
        CommitmentData data{NewUid(), {}};
        for (std::size_t i = begin; i < end; ++i) {
            data.items.push_back({m_Report.instances[i].sopClass, m_Report.instances[i].sopInstance});
        }
        // Known before it is sent: some peers report before they answer.
        Change([&] { m_Open.try_emplace(data.transaction, Part{begin, end}); });
        DimseCommand request;
        if (!SendCommitment(service, kActionRQ, data, request)) return;
        std::uint16_t status = kStatusSuccess;
        std::string comment;
        if (!AwaitAnswer(service, request, status, comment) || status == kStatusSuccess) return;
        Change([&] {
            m_Open.erase(data.transaction);
            for (std::size_t i = begin; i < end; ++i) {
                CommitReport::Instance& instance = m_Report.instances[i];
                if (instance.outcome != Outcome::Unanswered) continue;
                instance.outcome = Outcome::Failed;
                instance.status = status;
                instance.why = "the request was refused: " + DimseStatusText(status);
                if (!comment.empty()) instance.why += ": " + comment;
            }
        });
    }

    // Waits for the response to a request, and takes reports meanwhile. False when the association ended.
    bool AwaitAnswer(DcmService& service, const DimseCommand& request, std::uint16_t& status, std::string& comment) {
        while (IsOpen(service)) {
            std::uint8_t context = 0;
            DimseCommand command;
            if (service.ReceiveCommand(context, command) != Event::Message) return false;
            if (!command.IsResponse()) {
                if (!TakeRequest(service, context, command)) return false;
                continue;
            }
            if (!IsAnswerTo(command, request)) break;
            Event event;
            ReceiveCommitment(service, context, command, event);  // an answer may have a data set, which says nothing
            if (event != Event::Message) return false;
            status = command.status;
            comment = command.errorComment;
            return true;
        }
        service.Abort();
        return false;
    }

    // Takes what the peer asks on this association: reports. False when the association ended.
    bool TakeRequest(DcmService& service, std::uint8_t context, const DimseCommand& command) {
        Event event;
        const auto data = ReceiveCommitment(service, context, command, event);
        if (event != Event::Message) return false;
        std::uint16_t status = kStatusUnrecognizedOperation;
        if (command.field == kEventReportRQ) {
            status = !data ? kStatusInvalidArgument : Take(*data) ? kStatusSuccess : kStatusProcessingFailure;
        }
        return service.SendCommand(context, command.MakeResponse(status)) != 0;
    }

    // Notes what a report says; false when nobody asked for it.
    bool Take(const CommitmentData& data) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Open.find(data.transaction);
        if (found == m_Open.end()) return false;
        std::map<std::pair<std::string, std::string>, std::uint16_t> said;
        for (const CommitmentItem& item : data.items) {
            // An instance that is in both lists has failed.
            std::uint16_t& failure = said[{item.sopClass, item.sopInstance}];
            failure = std::max(failure, item.failure);
        }
        for (std::size_t i = found->second.begin; i < found->second.end; ++i) {
            CommitReport::Instance& instance = m_Report.instances[i];
            const auto about = said.find({instance.sopClass, instance.sopInstance});
            if (about == said.end()) {
                instance.why = "the report does not name it";
                continue;
            }
            instance.status = about->second;
            instance.outcome = about->second == 0 ? Outcome::Committed : Outcome::Failed;
            if (about->second != 0) instance.why = DimseStatusText(about->second);
        }
        m_Open.erase(found);
        m_Changed.notify_all();
        return true;
    }

    // Waits until all requests are reported of, or the time is up.
    void Await(DcmService& service, TaskProgress& progress) {
        const auto start = Clock::now();
        const auto end = start + std::chrono::seconds(m_Options.wait);
        if (IsOpen(service)) service.SetTimeout(std::clamp(m_Options.wait, 1, std::max(m_Peer.timeout, 1)));
        while (!IsDone() && Clock::now() < end) {
            m_Watch.StopIfAsked();
            if (IsOpen(service)) {
                if (service.WaitForData(static_cast<int>(kLook.count()))) Listen(service);
                const bool isHeld = m_Options.port == 0 || Clock::now() < start + kHold;
                if (!isHeld && IsOpen(service)) service.Release();  // for peers that report only then
                continue;
            }
            if (m_Options.port == 0) break;  // no report can come any more
            std::unique_lock<std::mutex> lock(m_Mutex);
            m_Changed.wait_for(lock, kLook);
        }
        if (IsOpen(service)) service.Release();
        progress.Step(static_cast<std::int64_t>(m_Report.instances.size()));
    }

    bool IsDone() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Open.empty() || m_Failure;
    }

    void Listen(DcmService& service) {
        std::uint8_t context = 0;
        DimseCommand command;
        if (service.ReceiveCommand(context, command) != Event::Message) return;
        if (command.IsResponse()) {
            service.Abort();
        } else {
            TakeRequest(service, context, command);
        }
    }

    // What is left has no answer, and the end of the association may say why.
    void Conclude(const DcmService& service) {
        for (CommitReport::Instance& instance : m_Report.instances) {
            m_Report.committed += instance.outcome == Outcome::Committed ? 1 : 0;
            if (instance.outcome != Outcome::Unanswered || !instance.why.empty()) continue;
            instance.why = "no report came";
            if (!service.GetError().empty()) instance.why += ": " + service.GetError();
        }
    }

    const Peer& m_Peer;
    const CommitOptions& m_Options;
    Watch m_Watch;
    ReceiveOptions m_Receive;
    std::atomic<bool> m_bEnd = false;
    std::thread m_Thread;
    std::mutex m_Mutex;  // guards the members below, but for the parts of the report that no request names
    std::condition_variable m_Changed;
    bool m_bListens = false;
    std::exception_ptr m_Failure;
    std::map<std::string, Part> m_Open;  // requests that no report has come for, by Transaction UID
    CommitReport m_Report;
};

}  // namespace

CommitReport CommitFiles(const Peer& peer, const std::vector<StorageFile>& files, const CommitOptions& options,
                         bool keepsFailure) {
    if (files.empty()) return {};
    CommitJob job(peer, files, options);
    try {
        return job.Run();
    } catch (const Error& error) {
        if (!keepsFailure || error.GetKind() == ErrorKind::Stopped) throw;
        return job.Unanswered(error.what());
    }
}

}  // namespace korvane
