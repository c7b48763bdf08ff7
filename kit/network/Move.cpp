// C-MOVE: the peer sends, to this program or to another one.
#include "../core/Error.h"
#include "Retrieve.h"
#include "RetrieveUnits.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace korvane {

namespace {

constexpr std::chrono::milliseconds kLook{20};
constexpr std::chrono::seconds kLastWait{10};  // for data sets that the peer says it has sent

// A receiver on a thread of its own, for as long as the object lives.
class OwnReceiver : public ReceiveObserver, public Watcher {
public:
    OwnReceiver(const Peer& peer, const RetrieveOptions& options, const Watch& watch) : m_Watch(watch) {
        m_Options.port = options.port;
        m_Options.folder = options.folder;
        m_Options.replace = options.replace;
        m_Options.sync = options.sync;
        m_Options.ownTitle = peer.ownTitle;
        m_Options.tls = peer.tls;
        m_Options.tls.isOn = options.encrypted;
        m_Options.watcher = this;
        m_Thread = std::thread([this] { Run(); });
    }
    ~OwnReceiver() override {
        m_bEnd = true;
        if (m_Thread.joinable()) m_Thread.join();
    }
    OwnReceiver(const OwnReceiver&) = delete;
    OwnReceiver& operator=(const OwnReceiver&) = delete;

    // Waits until the receiver listens. Throws the exception that kept it from that.
    void AwaitListening() {
        while (!WaitFor(kLook, [this] { return m_bListens || m_Failure; })) m_Watch.StopIfAsked();
        if (m_Failure) std::rethrow_exception(m_Failure);
    }

    // Waits until so many data sets have come and, unless it is none, an association has ended; at most for
    // `kLastWait`.
    void AwaitFiles(std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + kLastWait;
        const auto isThere = [&] { return m_Failure || (m_Files.size() >= count && (count == 0 || m_nEnded > 0)); };
        while (!WaitFor(kLook, isThere) && std::chrono::steady_clock::now() < end) m_Watch.StopIfAsked();
    }

    // Ends the receiver and returns what it has received.
    std::vector<ReceivedFile> Finish() {
        m_bEnd = true;
        m_Thread.join();
        if (m_Failure) std::rethrow_exception(m_Failure);
        return std::move(m_Files);
    }

    void OnListening(std::uint16_t /*port*/) override {
        Change([this] { m_bListens = true; });
    }
    void OnFile(const ReceivedFile& file) override {
        Change([&] { m_Files.push_back(file); });
    }
    void OnEnd(const ReceivedAssociation& association) override {
        Change([&] { m_nEnded += association.rejected ? 0 : 1; });
    }
    bool OnLook(int /*milliseconds*/) override { return !m_bEnd; }
    bool IsStopped() noexcept override { return m_Watch.IsStopped(); }

private:
    void Run() {
        try {
            Receive(m_Options, this);
        } catch (...) {
            Change([this] { m_Failure = std::current_exception(); });
        }
    }

    template <class Function>
    void Change(Function&& change) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        change();
        m_Changed.notify_all();
    }

    template <class Condition>
    bool WaitFor(std::chrono::milliseconds time, Condition&& condition) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, time, condition);
    }

    Watch m_Watch;
    ReceiveOptions m_Options;
    std::atomic<bool> m_bEnd = false;
    std::mutex m_Mutex;  // guards the members below
    std::condition_variable m_Changed;
    bool m_bListens = false;
    std::size_t m_nEnded = 0;
    std::vector<ReceivedFile> m_Files;
    std::exception_ptr m_Failure;
    std::thread m_Thread;
};

class MoveJob {
public:
    MoveJob(const Peer& peer, const RetrieveOptions& options)
        : m_Peer(peer), m_Options(options), m_Watch(options.watcher),
          m_Destination(options.destination.empty() ? peer.ownTitle : options.destination) {}

    RetrieveReport Run() {
        CheckRetrieveKeys(m_Options);
        m_Report.peer = m_Peer.Name();
        m_Report.folder = m_Options.folder;
        m_Report.destination = m_Options.destination;
        if (const std::string fault = FaultOfTitle(m_Destination); !fault.empty()) {
            throw Error(ErrorKind::WrongArgument, fault);
        }
        const auto start = std::chrono::steady_clock::now();
        const std::vector<RetrieveUnit> units = FindUnits(m_Peer, m_Options);
        m_Report.asked = units.size();
        if (m_Options.destination.empty()) {
            MoveHere(units);
        } else {
            MoveAll(units);
        }
        m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return std::move(m_Report);
    }

private:
    void MoveHere(const std::vector<RetrieveUnit>& units) {
        if (m_Options.folder.empty() || m_Options.port == 0) {
            throw Error(ErrorKind::WrongArgument, "a folder and the port that the peer knows, or another destination");
        }
        OwnReceiver receiver(m_Peer, m_Options, m_Watch);
        receiver.AwaitListening();
        MoveAll(units);
        receiver.AwaitFiles(m_Report.completed);
        m_Report.files = receiver.Finish();
        for (const ReceivedFile& file : m_Report.files) m_Report.stored += file.path.empty() ? 0 : 1;
        if (m_Report.stored >= m_Report.completed) return;
        m_Report.failures.push_back({m_Destination, "the peer says that it has sent " +
                                                        std::to_string(m_Report.completed) + ", and " +
                                                        std::to_string(m_Report.stored) + " came here"});
    }

    void MoveAll(const std::vector<RetrieveUnit>& units) {
        const std::string_view sopClass = ClassOf(QueryService::Move, m_Options.level, m_Options.patientRoot);
        PeerConnection connection(m_Peer, m_Watch);
        QueryUser user(connection, m_Watch);
        user.Propose(sopClass);
        connection.Associate();
        TaskProgress progress(m_Watch, "moving", static_cast<std::int64_t>(units.size()));
        for (const RetrieveUnit& unit : units) {
            user.Request(kMoveRQ, sopClass, unit.identifier, m_Destination);
            MoveUnit(unit, user);
            progress.Step();
        }
        if (connection.GetService().GetState() == DcmService::State::Established) connection.GetService().Release();
    }

    void MoveUnit(const RetrieveUnit& unit, QueryUser& user) {
        for (;;) {
            const DimseCommand response = user.Receive();
            if (!response.IsResponse()) throw Error(ErrorKind::Refused, m_Peer.Name() + ": a request during a C-MOVE");
            std::size_t bytes = 0;
            DataSet failed;
            if (response.HasDataSet()) failed = user.ReadIdentifier(bytes);
            if (IsPending(response.status)) continue;
            if (response.status == kStatusDestinationUnknown) {
                throw Error(ErrorKind::Refused, m_Peer.Name() + ": the peer does not know the title " + m_Destination +
                                                    ": it must be told the title, the host and the port of the program "
                                                    "that it shall send to");
            }
            NoteEnd(m_Report, unit, response, failed);
            const bool isRefused = response.completed + response.failed + response.warned + response.remaining == 0;
            if (response.status != kStatusSuccess &&
                isRefused) {  // some peers answer this to a title that they do not know
                m_Report.failures.back().why += "; it may not know the title " + m_Destination;
            }
            return;
        }
    }

    const Peer& m_Peer;
    const RetrieveOptions& m_Options;
    Watch m_Watch;
    std::string m_Destination;
    RetrieveReport m_Report;
};

}  // namespace

RetrieveReport Move(const Peer& peer, const RetrieveOptions& options) {
    return MoveJob(peer, options).Run();
}

}  // namespace korvane
