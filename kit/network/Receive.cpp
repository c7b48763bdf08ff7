#include "Receive.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/TimeText.h"
#include "../core/Watch.h"
#include "Connection.h"
#include "ReceiveSession.h"
#include "ReceivedFiles.h"
#include "StudyCommands.h"

#include "Dicom/Lib/network/StorageProvider.h"
#include "platform/FolderLock.h"
#include "platform/Socket.h"
#include "platform/Sync.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace korvane {

namespace {

using Event = DcmService::Event;

constexpr int kLook = 50;  // milliseconds between two questions whether to stop
constexpr int kLongestLook = 20;
constexpr int kUsualQuiet = 30;          // seconds
constexpr unsigned kMostRejecting = 64;  // threads that only reject associations
constexpr int kRejectSeconds = 5;        // seconds for the request of a peer that will be rejected

// One connection, until it has been served.
struct Served {
    DcmService service;
    OwnSocket socket;  // until it belongs to the service
    std::string address;
    bool isRejected = false;
    std::atomic<bool> isOver = false;  // nothing uses the object any more
};

class Receiver {
public:
    Receiver(const ReceiveOptions& options, ReceiveObserver& observer)
        : m_Options(options), m_Observer(observer), m_Watch(options.watcher), m_Commands(options.onStudy, m_Watch) {
        m_Policy.aeTitle = options.ownTitle;
        m_Policy.callingTitles = options.callers;
        m_Policy.acceptsSyntax = [](std::string_view syntax) {
            return IsStorableSyntax(syntax) || IsDeflatedTransferSyntax(syntax);
        };
        m_Policy.acceptsClass = [this](std::string_view sopClass) {
            const bool isStored = !m_Options.folder.empty() && IsStorageOrVerification(sopClass);
            return isStored || sopClass == kVerificationClass || sopClass == kCommitmentClass;
        };
        if (options.takesReports) {
            m_Policy.acceptsProvider = [](std::string_view sopClass) { return sopClass == kCommitmentClass; };
            m_TakeReport = [this](const CommitmentNews& news) {
                bool isKnown = false;
                Observe([&] { isKnown = m_Observer.OnReport(news); });
                return isKnown;
            };
        }
        m_Busy = m_Policy;
        m_Busy.rejectResult = kRejectedTransient;
        m_Busy.rejectSource = kRejectProviderPresentation;
        m_Busy.rejectReason = kRejectPresentationLocalLimit;
        for (const std::string& address : options.addresses) m_Allowed.push_back(CheckAddress(address));
        if (options.tls.isOn) m_pTls = std::make_unique<TlsContext>(options.tls, TlsContext::Side::Accepts);
    }

    ~Receiver() {
        EndAll();
        m_pReporter.reset();
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    ReceiveReport Run() {
        platform::FolderLock lock;
        if (!m_Options.folder.empty()) PrepareFolder(lock);
        const std::string own = m_Options.bindAddress.empty() ? "" : CheckAddress(m_Options.bindAddress);
        OwnSocket listener(platform::ListenTo(own, m_Options.port));
        if (!listener.IsOpen()) {
            const std::error_code reason(platform::LastSocketError(), std::system_category());
            throw Error(ErrorKind::Disk,
                        "cannot listen on port " + std::to_string(m_Options.port) + ": " + SystemText(reason, ""));
        }
        Observe([&] { m_Observer.OnListening(platform::BoundPort(listener.Get())); });
        if (m_pReporter) m_pReporter->Begin();
        while (GoesOn()) {
            Reap();
            TellOfStudies(std::chrono::seconds(m_Options.studyQuiet));
            if (IsFull()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(kLongestLook));
                continue;
            }
            auto served = std::make_unique<Served>();
            if (Accept(listener, *served)) Begin(std::move(served));
        }
        listener.Close();
        EndAll();
        if (m_pReporter) m_pReporter->End();
        if (!m_Watch.IsStopped()) TellOfStudies(std::chrono::seconds(0));
        if (m_Failure) std::rethrow_exception(m_Failure);
        m_Commands.Finish();
        m_Report.failedCommands = m_Commands.GetFailed();
        if (m_bBrokenOff) throw Error(ErrorKind::Stopped, "stopped");
        return m_Report;
    }

private:
    void PrepareFolder(platform::FolderLock& lock) {
        MakeDirectory(m_Options.folder);
        const bool isAlone = lock.TakeAlone(m_Options.folder) && lock.IsHeld();
        if (isAlone) RemoveUnfinished(m_Options.folder, m_Watch);
        m_pReporter = std::make_unique<CommitmentReporter>(m_Options, [this](const ReceivedCommitment& commitment) {
            Observe([&] { m_Observer.OnCommitment(commitment); });
        });
        m_pReporter->Load(isAlone);
        lock.TakeShared(m_Options.folder);
    }

    static std::string CheckAddress(const std::string& text) {
        std::string address = platform::NormalAddress(text);
        if (!address.empty()) return address;
        throw Error(ErrorKind::WrongArgument, text + ": not an IPv4 or IPv6 address");
    }

    // Waits a moment for the next connection.
    static bool Accept(const OwnSocket& listener, Served& served) {
        if (platform::WaitReadable(listener.Get(), kLook) != 1) return false;
        platform::Endpoint peer;
        served.socket = OwnSocket(platform::AcceptFrom(listener.Get(), peer));
        if (served.socket.IsOpen()) served.address = platform::AddressText(peer);
        return served.socket.IsOpen();
    }

    struct Growing {
        ReceivedStudy study;
        std::chrono::steady_clock::time_point last;
    };

    // Called with `m_Mutex` held.
    void NoteStudy(const ReceivedFile& file) {
        if (m_Options.studyQuiet == 0 || file.path.empty()) return;
        Growing& growing = m_Studies[file.study];
        growing.study.study = file.study;
        growing.study.patient = file.patient;
        growing.study.caller = file.caller;
        growing.study.folder = file.path.substr(0, file.path.find_last_of('/'));
        ++growing.study.files;
        growing.last = std::chrono::steady_clock::now();
    }

    // Tells the observer of studies of which nothing has come for so long.
    void TellOfStudies(std::chrono::seconds quiet) {
        if (m_Options.studyQuiet == 0) return;
        const auto end = std::chrono::steady_clock::now() - quiet;
        Observe([&] {
            for (auto at = m_Studies.begin(); at != m_Studies.end();) {
                if (at->second.last > end) {
                    ++at;
                    continue;
                }
                const ReceivedStudy study = std::move(at->second.study);
                at = m_Studies.erase(at);
                m_Commands.Add(study);
                m_Observer.OnStudy(study);
            }
        });
    }

    // Calls a function of the observer. An exception from it is kept, and ends the work.
    template <class Function>
    void Observe(Function&& tell) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Failure) return;
        try {
            tell();
        } catch (...) {
            m_Failure = std::current_exception();
            m_bEnd = true;
        }
    }

    bool GoesOn() {
        m_Commands.Look();
        Observe([this] {
            if (!m_Observer.OnLook(kLongestLook)) m_bEnd = true;
        });
        return !IsStopped() && (m_Options.count == 0 || CountDone() < m_Options.count);
    }

    bool IsStopped() const { return m_bEnd || m_Watch.IsStopped(); }

    std::size_t CountDone() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Report.associations;
    }

    // Whether the associations at work may already be all that `count` still asks for.
    bool IsFull() {
        return m_Options.count > 0 && CountDone() + m_Served.size() >= m_Options.count && !m_Served.empty();
    }

    void Reap() {
        for (auto served = m_Served.begin(); served != m_Served.end();) {
            if (!(*served)->isOver) {
                ++served;
                continue;
            }
            served = m_Served.erase(served);
        }
    }

    void EndAll() {
        {
            const std::lock_guard<std::mutex> lock(m_WorkMutex);
            m_bEnd = m_bNoMoreWork = true;
        }
        m_HasWork.notify_all();
        for (std::thread& thread : m_Threads) thread.join();
        m_Threads.clear();
        m_Served.clear();
    }

    void Begin(std::unique_ptr<Served> served) {
        if (!m_Allowed.empty() && std::find(m_Allowed.begin(), m_Allowed.end(), served->address) == m_Allowed.end()) {
            Refuse(*served, "this address may not connect");
            return;
        }
        const auto count = [this](auto&& counts) {
            return static_cast<unsigned>(std::count_if(m_Served.begin(), m_Served.end(), counts));
        };
        const unsigned working = count([](const auto& other) { return !other->isRejected; });
        const unsigned same = count([&](const auto& o) { return !o->isRejected && o->address == served->address; });
        const unsigned perAddress = m_Options.limitPerAddress > 0 ? m_Options.limitPerAddress : m_Options.limit;
        served->isRejected = working >= m_Options.limit || same >= perAddress;
        if (served->isRejected && m_Served.size() - working >= kMostRejecting) {
            Refuse(*served, "too many connections");
            return;
        }
        platform::KeepAlive(served->socket.Get());
        m_Served.push_back(std::move(served));
        if (GiveWork(*m_Served.back())) return;
        Refuse(*m_Served.back(), "no thread for it");
        m_Served.pop_back();
    }

    // Threads serve one connection after the other: on a busy machine a new thread waits for its turn much longer than one
    // that is woken. False where another one is needed and not to be had.
    bool GiveWork(Served& served) {
        const std::lock_guard<std::mutex> lock(m_WorkMutex);
        try {
            if (m_nIdle <= m_Work.size()) m_Threads.emplace_back([this] { Work(); });
        } catch (const std::system_error&) {
            return false;
        }
        m_Work.push_back(&served);
        m_HasWork.notify_one();
        return true;
    }

    void Work() {
        platform::IgnoreFileLimitSignal();
        std::unique_lock<std::mutex> lock(m_WorkMutex);
        for (;;) {
            ++m_nIdle;
            m_HasWork.wait(lock, [this] { return m_bNoMoreWork || !m_Work.empty(); });
            --m_nIdle;
            if (m_Work.empty()) return;
            Served& served = *m_Work.front();
            m_Work.pop_front();
            lock.unlock();
            Serve(served);
            lock.lock();
        }
    }

    void Refuse(Served& served, const char* why) {
        ReceivedAssociation association;
        association.address = served.address;
        association.begin = association.end = TimeNow();
        association.rejected = true;
        association.error = why;
        served.socket.Close();
        TellOfEnd(association);
    }

    // A line of the log too, which is opened for each, so that it can be put away meanwhile.
    void TellOfEnd(const ReceivedAssociation& association) {
        Observe([&] {
            if (!m_Options.log.empty()) {
                std::ofstream log(PathFromText(m_Options.log), std::ios::app | std::ios::binary);
                log << ToJson(association) + '\n' << std::flush;
                if (!log) throw Error(ErrorKind::Disk, m_Options.log + ": cannot write the log").InFile(m_Options.log);
            }
            m_Observer.OnEnd(association);
        });
    }

    void Serve(Served& served) {
        try {
            ServeAssociation(served);
        } catch (...) {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            if (!m_Failure) m_Failure = std::current_exception();
            m_bEnd = true;
        }
        served.isOver = true;
    }

    void ServeAssociation(Served& served) {
        DcmService& service = served.service;
        const auto stop = [this] { return IsStopped(); };
        service.SetStopCheck(stop);
        service.SetTimeout(m_Options.timeout);
        ReceivedAssociation association;
        association.address = served.address;
        association.begin = TimeNow();
        association.encrypted = m_pTls != nullptr;
        association.error = Connect(served, stop);
        if (!association.error.empty()) {
            association.rejected = true;
            association.end = TimeNow();
            Count(association, false);
            return;
        }
        const std::function<void(const ReceivedFile&)> tell = [this](const ReceivedFile& file) {
            Observe([&] {
                NoteStudy(file);
                m_Observer.OnFile(file);
            });
        };
        ReceivedFiles files(m_Options, stop, tell);
        StorageProvider provider(service, files);
        provider.SetTakesAnyInstance(true);
        service.AAssociateRQ::m_CallingAETitle.clear();  // stays empty when no request comes
        Event end;
        {
            ReceiveSession session(service, provider, m_pReporter.get(), m_TakeReport);
            end = session.Serve(served.isRejected ? m_Busy : m_Policy);
        }
        association.caller = service.GetCallingTitle();
        if (!association.caller.empty()) association.called = service.GetCalledTitle();
        association.end = TimeNow();
        association.released = end == Event::Released;
        association.rejected = end == Event::Rejected || association.caller.empty();
        association.error = service.GetError();
        association.stored = files.GetStored();
        association.refused = files.GetRefused();
        Count(association, end == Event::Stopped && m_Watch.IsStopped());
    }

    // Gives the connection to the service, encrypted where it has to be; why not, or "". The time for that counts as the
    // peer's time for its request.
    std::string Connect(Served& served, const std::function<bool()>& stop) const {
        const auto begin = std::chrono::steady_clock::now();
        const std::chrono::seconds limit(served.isRejected ? std::min(m_Options.requestTimeout, kRejectSeconds)
                                                           : m_Options.requestTimeout);
        if (m_pTls == nullptr) {
            served.service.SetTransport(std::make_unique<PlainConnection>(std::move(served.socket)));
        } else {
            platform::TuneSocket(served.socket.Get(), m_Options.requestTimeout);
            std::string why;
            auto encrypted = m_pTls->Wrap(std::move(served.socket), "", begin + limit, stop, why);
            if (encrypted == nullptr) return why.empty() ? "stopped" : why;
            served.service.SetTransport(std::move(encrypted));
        }
        const auto taken = std::chrono::floor<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
        served.service.SetArtim(std::max(static_cast<int>((limit - taken).count()), 1));
        return "";
    }

    void Count(const ReceivedAssociation& association, bool brokenOff) {
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Report.stored += association.stored;
            m_Report.refused += association.refused;
            m_bBrokenOff = m_bBrokenOff || brokenOff;
            if (!association.rejected) {
                ++m_Report.associations;
                if (!association.released) ++m_Report.broken;
            }
        }
        if (!brokenOff) TellOfEnd(association);
    }

    const ReceiveOptions& m_Options;
    ReceiveObserver& m_Observer;
    Watch m_Watch;
    StudyCommands m_Commands;  // used by the calling thread only
    AcceptPolicy m_Policy;
    AcceptPolicy m_Busy;  // rejects everything, as transient
    ReceiveSession::TakeReport m_TakeReport;
    std::unique_ptr<CommitmentReporter> m_pReporter;
    SocketLibrary m_Library;
    std::unique_ptr<TlsContext> m_pTls;
    std::vector<std::string> m_Allowed;
    std::list<std::unique_ptr<Served>> m_Served;  // used by the calling thread only; `m_Threads` too
    std::list<std::thread> m_Threads;
    std::mutex m_WorkMutex;  // guards what follows
    std::condition_variable m_HasWork;
    std::deque<Served*> m_Work;  // that no thread has taken yet
    std::size_t m_nIdle = 0;     // threads that wait for work
    bool m_bNoMoreWork = false;
    std::atomic<bool> m_bEnd = false;
    std::mutex m_Mutex;                        // guards the members below, and calls of the observer
    std::map<std::string, Growing> m_Studies;  // that the observer has not been told of, by UID
    ReceiveReport m_Report;
    std::exception_ptr m_Failure;
    bool m_bBrokenOff = false;
};

}  // namespace

ReceiveObserver::~ReceiveObserver() = default;
void ReceiveObserver::OnListening(std::uint16_t /*port*/) {}
void ReceiveObserver::OnFile(const ReceivedFile& /*file*/) {}
void ReceiveObserver::OnEnd(const ReceivedAssociation& /*association*/) {}
void ReceiveObserver::OnStudy(const ReceivedStudy& /*study*/) {}
void ReceiveObserver::OnCommitment(const ReceivedCommitment& /*commitment*/) {}
bool ReceiveObserver::OnReport(const CommitmentNews& /*news*/) {
    return false;
}
bool ReceiveObserver::OnLook(int /*milliseconds*/) {
    return true;
}

ReceiveReport Receive(const ReceiveOptions& options, ReceiveObserver* observer) {
    ReceiveObserver silent;
    ReceiveOptions own = options;
    if (own.studyQuiet == 0 && !own.onStudy.empty()) own.studyQuiet = kUsualQuiet;
    return Receiver(own, observer != nullptr ? *observer : silent).Run();
}

}  // namespace korvane
