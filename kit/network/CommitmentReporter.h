// Reports what is committed to the titles whose addresses are known.
#pragma once

#include "../core/Watch.h"
#include "CommitmentData.h"
#include "OpenCommitments.h"
#include "Peer.h"
#include "Receive.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace korvane {

/// Keeps the requests of all associations of a receiver, and reports those that no association was told of: on a thread for
/// each title, so that one that is not there keeps no other from its reports.
class CommitmentReporter : public Watcher {
public:
    /// `tell` is called after each attempt, on any thread. It and the options must outlive the object. Throws `Error` of kind
    /// `WrongArgument` for an address that is none.
    CommitmentReporter(const ReceiveOptions& options, std::function<void(const ReceivedCommitment&)> tell);
    ~CommitmentReporter() override;
    CommitmentReporter(const CommitmentReporter&) = delete;
    CommitmentReporter& operator=(const CommitmentReporter&) = delete;

    /// Takes up what an earlier receiver left (see `OpenCommitments::Load`).
    void Load(bool alone) { m_Left = m_Open.Load(alone); }
    /// Starts the threads.
    void Begin();
    /// Ends the threads; what was not tried yet is tried once before, unless the receiver was stopped.
    void End();

    /// Keeps a request; 0, or the status that refuses it.
    std::uint16_t Keep(const std::string& caller, const std::string& called, const CommitmentData& request);
    /// The report about a request, as the disk is now. False when that was stopped, or the request is none any more.
    bool Look(const std::string& transaction, CommitmentData& report);
    /// The peer has answered the report with this status: the request is closed.
    void NoteAnswer(const CommitmentData& report, std::uint16_t status);
    /// An association has ended that was to be told of the request.
    void HandOver(const std::string& transaction);

    bool IsStopped() noexcept override { return (m_bEnd && !m_bLast) || m_Watch.IsStopped(); }

private:
    struct Destination {
        Peer peer;
        std::deque<std::string> waiting;
        std::deque<std::string> tried;
        std::thread thread;
    };

    void AddDestination(const std::string& text);
    void Serve(Destination& destination);
    void Attempt(Destination& destination, const std::string& transaction, bool& delivered);
    std::string Deliver(const Peer& peer, const CommitmentData& report);
    void Tell(const OpenCommitment& commitment, const CommitmentData& report, const std::string& why, bool reported,
              bool isOver);

    const ReceiveOptions& m_Options;
    Watch m_Watch;
    std::function<void(const ReceivedCommitment&)> m_Tell;
    OpenCommitments m_Open;
    std::atomic<bool> m_bEnd = false;
    std::atomic<bool> m_bLast = false;
    std::mutex m_Mutex;  // guards the lists of the destinations
    std::condition_variable m_Changed;
    std::list<Destination> m_Destinations;
    std::vector<OpenCommitment> m_Left;
};

}  // namespace korvane
