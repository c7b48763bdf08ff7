// C-FIND, C-GET and C-MOVE on an association: requests with identifiers, and answers.
#pragma once

#include "../core/Watch.h"
#include "PeerConnection.h"
#include "QueryJob.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

enum class QueryService { Find, Move, Get };

/// The SOP class (PS3.4 C.6, K.6) of a service at a level.
std::string_view ClassOf(QueryService service, QueryLevel level, bool patientRoot);

/// Sends requests and receives responses on a connection, whose association must have the SOP class (`Propose`).
class QueryUser {
public:
    QueryUser(PeerConnection& peer, const Watch& watch) : m_Peer(peer), m_Watch(watch) {}

    /// Proposes a SOP class; to be called before the association.
    void Propose(std::string_view sopClass);

    /// Sends a request. Throws `Error`.
    void Request(CommandField field, std::string_view sopClass, const DataSet& identifier,
                 const std::string& destination = {});

    /// The next response, or a request of the peer; its data set is to be read next. Throws `Error`.
    DimseCommand Receive();
    /// The presentation context of what `Receive` returned last.
    std::uint8_t GetContext() const { return m_Context; }
    /// Whether a command answers the request that was sent last.
    bool IsResponse(const DimseCommand& command) const;
    /// Reads the data set of a response, and adds its length to `bytes`. Throws `Error`.
    DataSet ReadIdentifier(std::size_t& bytes);
    /// Asks the peer to end the request that was sent last (C-CANCEL); its final response still follows.
    void Cancel();

    /// The failure that a final response tells of.
    Error MakeError(const DimseCommand& response) const;

private:
    PeerConnection& m_Peer;
    Watch m_Watch;
    DimseCommand m_Request;
    std::uint8_t m_Asked = 0;    // presentation context of the request
    std::uint8_t m_Context = 0;  // presentation context of what was received last
};

}  // namespace korvane
