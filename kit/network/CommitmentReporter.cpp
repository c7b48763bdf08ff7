#include "CommitmentReporter.h"

#include "../core/Error.h"
#include "../core/TimeText.h"
#include "CommitmentMessages.h"
#include "CommittedFiles.h"
#include "PeerConnection.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

namespace korvane {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kKeepSeconds = 7 * 24 * 3600;
constexpr std::chrono::seconds kLongestPause{3600};
constexpr int kAnswerSeconds = 30;
constexpr std::size_t kMostTold = 100;

std::int64_t SecondsNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

CommitmentReporter::CommitmentReporter(const ReceiveOptions& options,
                                       std::function<void(const ReceivedCommitment&)> tell)
    : m_Options(options), m_Watch(options.watcher), m_Tell(std::move(tell)), m_Open(options.folder) {
    for (const std::string& text : options.commitTo) AddDestination(text);
}

CommitmentReporter::~CommitmentReporter() {
    m_bLast = false;
    m_bEnd = true;
    m_Changed.notify_all();
    for (Destination& destination : m_Destinations) {
        if (destination.thread.joinable()) destination.thread.join();
    }
}

// "TITLE=HOST:PORT", or "TITLE=[HOST]:PORT" for an IPv6 address.
void CommitmentReporter::AddDestination(const std::string& text) {
    const std::size_t equals = text.rfind('=');
    const std::size_t colon = text.rfind(':');
    const bool hasParts = equals != std::string::npos && colon != std::string::npos && colon > equals + 1;
    Destination& added = m_Destinations.emplace_back();
    if (hasParts) {
        added.peer.peerTitle = text.substr(0, equals);
        added.peer.host = text.substr(equals + 1, colon - equals - 1);
        added.peer.port = text.substr(colon + 1);
        const bool isBracketed = added.peer.host.starts_with('[') && added.peer.host.ends_with(']');
        if (isBracketed) added.peer.host = added.peer.host.substr(1, added.peer.host.size() - 2);
    }
    if (!hasParts || !FaultOfTitle(added.peer.peerTitle).empty() || added.peer.host.empty() ||
        added.peer.port.empty()) {
        throw Error(ErrorKind::WrongArgument, text + ": not a title and its address, TITLE=HOST:PORT");
    }
    added.peer.tls = m_Options.tls;
    added.peer.timeout = std::min(m_Options.timeout, kAnswerSeconds);
}

void CommitmentReporter::Begin() {
    for (const OpenCommitment& open : m_Left) HandOver(open.transaction);
    for (Destination& destination : m_Destinations) {
        destination.thread = std::thread([this, &destination] { Serve(destination); });
    }
}

void CommitmentReporter::End() {
    m_bLast = !m_Watch.IsStopped();
    m_bEnd = true;
    m_Changed.notify_all();
    for (Destination& destination : m_Destinations) {
        if (destination.thread.joinable()) destination.thread.join();
    }
}

std::uint16_t CommitmentReporter::Keep(const std::string& caller, const std::string& called,
                                       const CommitmentData& request) {
    if (!FaultOfTitle(caller).empty() || !FaultOfTitle(called).empty()) return kStatusNotAuthorized;
    return m_Open.Keep({request.transaction, caller, called, SecondsNow(), request.items.size()}, request);
}

bool CommitmentReporter::Look(const std::string& transaction, CommitmentData& report) {
    auto request = m_Open.Read(transaction);
    if (!request) return false;
    report = std::move(*request);
    return CheckCommitted(m_Options, report, [this] { return IsStopped(); });
}

void CommitmentReporter::NoteAnswer(const CommitmentData& report, std::uint16_t status) {
    const auto commitment = m_Open.Find(report.transaction);
    if (!commitment) return;
    m_Open.Close(report.transaction);
    Tell(*commitment, report, status == kStatusSuccess ? "" : "the answer was " + DimseStatusText(status), true, true);
}

void CommitmentReporter::HandOver(const std::string& transaction) {
    const auto commitment = m_Open.Find(transaction);
    if (!commitment) return;
    const auto isFor = [&](const Destination& to) { return to.peer.peerTitle == commitment->caller; };
    const auto found = std::find_if(m_Destinations.begin(), m_Destinations.end(), isFor);
    if (found == m_Destinations.end()) {
        Tell(*commitment, {transaction, {}},
             "the association ended before the report, and no address is known for the title", false, false);
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    found->waiting.push_back(transaction);
    m_Changed.notify_all();
}

// Reports one after the other. After a failure all wait, for the next one would fail as well.
void CommitmentReporter::Serve(Destination& destination) {
    Clock::time_point next{};
    std::chrono::seconds pause(std::max(m_Options.commitRetry, 1));
    std::unique_lock<std::mutex> lock(m_Mutex);
    for (;;) {
        const bool isLast = m_bEnd;
        if (isLast && (!m_bLast || destination.waiting.empty())) return;
        std::deque<std::string>& due = destination.waiting.empty() ? destination.tried : destination.waiting;
        if (due.empty() || (!isLast && Clock::now() < next)) {
            constexpr std::chrono::milliseconds kLook{100};
            m_Changed.wait_for(lock, kLook);
            if (m_Watch.IsStopped()) return;
            continue;
        }
        const std::string transaction = due.front();
        due.pop_front();
        lock.unlock();
        bool delivered = false;
        Attempt(destination, transaction, delivered);
        lock.lock();
        if (delivered) {
            pause = std::chrono::seconds(std::max(m_Options.commitRetry, 1));
            continue;
        }
        destination.tried.push_back(transaction);
        next = Clock::now() + pause;
        pause = std::min(pause * 2, kLongestPause);
    }
}

void CommitmentReporter::Attempt(Destination& destination, const std::string& transaction, bool& delivered) {
    const auto commitment = m_Open.Find(transaction);
    CommitmentData report;
    delivered = !commitment;
    if (delivered) return;
    std::string why;
    try {
        if (!Look(transaction, report)) {
            if (IsStopped()) return;
            why = "the file of the request is damaged or has gone";
            delivered = true;
        } else {
            Peer peer = destination.peer;
            peer.ownTitle = commitment->called;
            why = Deliver(peer, report);
            if (why.empty()) {
                delivered = true;
                return;
            }
        }
    } catch (const std::exception& error) {
        if (IsStopped()) return;
        why = error.what();
    }
    const bool isTooOld = SecondsNow() - commitment->since > kKeepSeconds;
    if (isTooOld) why = "given up after a week: " + why;
    delivered = delivered || isTooOld;
    if (delivered) m_Open.Close(transaction);
    Tell(*commitment, report, why, false, delivered);
}

// Over an association of our own; why that did not work, or "".
std::string CommitmentReporter::Deliver(const Peer& peer, const CommitmentData& report) {
    PeerConnection connection(peer, Watch(this));
    DcmService& service = connection.GetService();
    ProposeCommitment(service, true);
    connection.Associate();
    if (service.FindContext(kCommitmentClass) == nullptr) {
        service.Release();
        return peer.Name() + ": the peer takes no reports of commitment";
    }
    DimseCommand sent;
    if (!SendCommitment(service, kEventReportRQ, report, sent)) return connection.GetError();
    std::uint8_t context = 0;
    DimseCommand answer;
    if (service.ReceiveCommand(context, answer) != DcmService::Event::Message) return connection.GetError();
    if (!IsAnswerTo(answer, sent)) {
        service.Abort();
        return peer.Name() + ": a message that is no answer to the report";
    }
    DcmService::Event event;
    ReceiveCommitment(service, context, answer, event);  // an answer may have a data set, which says nothing
    NoteAnswer(report, answer.status);
    if (service.GetState() == DcmService::State::Established) service.Release();
    return "";
}

void CommitmentReporter::Tell(const OpenCommitment& commitment, const CommitmentData& report, const std::string& why,
                              bool reported, bool isOver) {
    ReceivedCommitment told;
    told.transaction = commitment.transaction;
    told.caller = commitment.caller;
    told.time = TimeNow();
    told.instances = commitment.instances;
    told.failed = report.CountFailed();
    for (const CommitmentItem& item : report.items) {
        if (item.failure == 0 || told.failures.size() == kMostTold) continue;
        told.failures.push_back({item.sopClass, item.sopInstance, item.failure, DimseStatusText(item.failure)});
    }
    told.reported = reported;
    told.isOver = isOver;
    told.why = why;
    m_Tell(told);
}

}  // namespace korvane
