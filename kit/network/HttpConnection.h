// HTTP requests to one web service, by libcurl.
#pragma once

#include "../core/Error.h"
#include "../core/Watch.h"
#include "Multipart.h"
#include "Peer.h"
#include "WebAddress.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

struct HttpRequest {
    std::string address;               ///< whole, of the service's origin
    std::vector<std::string> headers;  ///< "Accept: ..."
    /// A body makes it a POST. Gives the next bytes of it, 0 at its end; what it throws ends the request.
    std::function<std::size_t(char* bytes, std::size_t capacity)> body{};
    std::uint64_t bodyLength = 0;
    /// Goes back to the beginning of the body: a connection that was kept turned out to be closed, and a new one is made.
    std::function<void()> rewind{};
};

struct HttpAnswer {
    int status = 0;
    WebHeaders headers;
    std::string Header(const std::string& name) const;
};

/// The failure of a connection that might work another time: not made, silent, or broken off.
class ConnectionLost : public Error {
public:
    explicit ConnectionLost(const std::string& sentence) : Error(ErrorKind::Refused, sentence) {}
};

/// A connection that is kept from request to request; for one thread. Redirections are answers like others, nothing is
/// compressed, no proxy is used. Whatever a call waits for, it returns within a tenth of a second after the job is
/// stopped. Headers of an answer may have 128 KB in all. A peer has `Peer::timeout` seconds and a second for each KB that
/// moves, for the whole of a request, and may be silent for that time-out.
class HttpConnection {
public:
    /// Takes the pieces of an answer's body; what it throws ends the request.
    using Take = std::function<void(const HttpAnswer& answer, std::string_view bytes)>;

    /// `peer` must outlive the object. Throws `Error`: `Unsupported` where this build has no HTTP, `NotFound` for an
    /// unknown host, `WrongArgument` for a token that may not be shown.
    HttpConnection(const Peer& peer, const WebAddress& base, const Watch& watch);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    /// Throws `ConnectionLost`, `Error`, and what the functions throw.
    HttpAnswer Do(const HttpRequest& request, const Take& take);

private:
    struct Parts;
    std::unique_ptr<Parts> m_pParts;
};

}  // namespace korvane
