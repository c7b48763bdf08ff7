// A DICOMweb service (PS3.18) as its user sees it: requests below its base address, with retries.
#pragma once

#include "../core/Watch.h"
#include "HttpConnection.h"
#include "Peer.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace korvane {

/// An answer that is over. `said`: the body of one that is not of status 2xx, up to 64 KB.
struct WebOutcome {
    HttpAnswer answer;
    std::string said;

    bool IsGood() const { return answer.status >= 200 && answer.status < 300; }
    /// Whether the service may take the same request later: 429, 502, 503, 504.
    bool MayPass() const;
    /// The status and what the body says, on one line of at most 300 characters.
    std::string Words() const;
};

/// How long to wait between attempts: twice as long each time, at most a minute, or what the service asks for.
class WebRetry {
public:
    WebRetry(unsigned retries, int seconds, const Watch& watch)
        : m_nLeft(retries), m_nSeconds(std::clamp(seconds, 0, kLongestWait)), m_Watch(watch) {}

    /// Waits for the next attempt. False at once when there is none. Throws `Error` of kind `Stopped`.
    bool Wait(const HttpAnswer& answer = {});

private:
    static constexpr int kLongestWait = 60;  // seconds

    unsigned m_nLeft;
    int m_nSeconds;
    Watch m_Watch;
};

/// For one thread. Failures name the peer.
class WebService {
public:
    /// `peer` must outlive the object. Throws `Error` as `HttpConnection`.
    WebService(const Peer& peer, const Watch& watch);

    /// A GET. The body of an answer with a status of 2xx goes to `take`. Redirections are followed within the origin of
    /// the service. Throws `Error`; `ConnectionLost`.
    WebOutcome Get(const std::string& path, const std::string& accept, const HttpConnection::Take& take);

    /// A POST of a body, read as `HttpRequest` says; `text` gets the body of an answer with a status of 2xx or 409.
    /// Throws `Error`; `ConnectionLost`.
    WebOutcome Post(const std::string& path, const std::string& type, const std::string& accept, HttpRequest request,
                    std::string& text);

    /// Makes attempts until one succeeds, fails for good, or was the last. Throws `Error` when the outcome is not good.
    WebOutcome Insist(const std::function<WebOutcome()>& attempt);

    /// An answer as text of the media type, "" for 204, with retries. Throws `Error`.
    WebOutcome GetText(const std::string& path, const std::string& type, std::size_t limit, std::string& text);

    /// Throws for an outcome that is not good, or not of that type.
    [[noreturn]] void Refuse(const WebOutcome& outcome) const;
    [[noreturn]] void Refuse(const std::string& why) const;

    /// The whole address of a path.
    std::string AddressOf(const std::string& path) const { return m_Base.Below(path); }

private:
    const Peer& m_Peer;
    Watch m_Watch;
    WebAddress m_Base;
    HttpConnection m_Connection;
};

}  // namespace korvane
