#include "WebService.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kMostSaid = std::size_t{64} << 10;
constexpr std::size_t kMostWords = 300;
constexpr int kMostRedirections = 5;
constexpr std::chrono::milliseconds kLook{20};

const char* ReasonOf(int status) {
    switch (status) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308: return " (redirection)";
    case 400: return " (bad request)";
    case 401: return " (unauthorized)";
    case 403: return " (forbidden)";
    case 404: return " (not found)";
    case 405: return " (method not allowed)";
    case 406: return " (not acceptable)";
    case 409: return " (conflict)";
    case 413: return " (content too large)";
    case 415: return " (unsupported media type)";
    case 429: return " (too many requests)";
    case 500: return " (internal server error)";
    case 501: return " (not implemented)";
    case 502: return " (bad gateway)";
    case 503: return " (service unavailable)";
    case 504: return " (gateway timeout)";
    default: return "";
    }
}

bool IsRedirection(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

}  // namespace

bool WebOutcome::MayPass() const {
    return answer.status == 429 || (answer.status >= 502 && answer.status <= 504);
}

std::string WebOutcome::Words() const {
    std::string words = "HTTP status " + std::to_string(answer.status) + ReasonOf(answer.status);
    const std::string type = MediaTypeOf(answer.Header("content-type"));
    const bool isText = type == "text/plain" || type.ends_with("json");
    std::string text;
    for (const char c : isText ? said : std::string()) {
        const bool isBlank = c == ' ' || c == '\n' || c == '\r' || c == '\t';
        if (!isBlank) text += c;
        if (isBlank && !text.empty() && text.back() != ' ') text += ' ';
        if (text.size() >= kMostWords) break;
    }
    return text.empty() ? words : words + ": " + text;
}

bool WebRetry::Wait(const HttpAnswer& answer) {
    if (m_nLeft == 0) return false;
    --m_nLeft;
    int seconds = m_nSeconds;
    m_nSeconds = std::min(m_nSeconds * 2, kLongestWait);
    const std::string asked = answer.Header("retry-after");  // a number; dates count as nothing
    int wanted = 0;
    const auto read = std::from_chars(asked.data(), asked.data() + asked.size(), wanted);
    if (!asked.empty() && read.ec == std::errc() && read.ptr == asked.data() + asked.size()) {
        seconds = std::max(wanted, seconds);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::clamp(seconds, 0, kLongestWait));
    while (std::chrono::steady_clock::now() < end) {
        m_Watch.StopIfAsked();
        std::this_thread::sleep_for(kLook);
    }
    return true;
}

WebService::WebService(const Peer& peer, const Watch& watch)
    : m_Peer(peer), m_Watch(watch), m_Base(peer.host), m_Connection(peer, m_Base, watch) {}

WebOutcome WebService::Get(const std::string& path, const std::string& accept, const HttpConnection::Take& take) {
    HttpRequest request;
    request.address = m_Base.Below(path);
    request.headers = {"Accept: " + accept, "Accept-Encoding: identity"};
    for (int i = 0;; ++i) {
        WebOutcome outcome;
        outcome.answer = m_Connection.Do(request, [&](const HttpAnswer& answer, std::string_view bytes) {
            if (answer.status >= 200 && answer.status < 300) return take(answer, bytes);
            outcome.said += bytes.substr(0, kMostSaid - std::min(outcome.said.size(), kMostSaid));
        });
        if (!IsRedirection(outcome.answer.status)) return outcome;
        const std::string target = outcome.answer.Header("location");
        request.address = SameOriginTarget(m_Base, target);
        if (request.address.empty()) {
            Refuse("redirects to " + (target.empty() ? "nowhere" : target) + ", another place than was asked");
        }
        if (i >= kMostRedirections) Refuse("redirects without end");
    }
}

WebOutcome WebService::Post(const std::string& path, const std::string& type, const std::string& accept,
                            HttpRequest request, std::string& text) {
    request.address = m_Base.Below(path);
    request.headers = {"Content-Type: " + type, "Accept: " + accept, "Accept-Encoding: identity"};
    WebOutcome outcome;
    text.clear();
    outcome.answer = m_Connection.Do(request, [&](const HttpAnswer& answer, std::string_view bytes) {
        constexpr std::size_t kMostText = std::size_t{16} << 20;
        const bool isRead = (answer.status >= 200 && answer.status < 300) || answer.status == 409;
        if (isRead && text.size() + bytes.size() > kMostText) Refuse("an answer of more than 16 MB");
        if (isRead) {
            text += bytes;
        } else {
            outcome.said += bytes.substr(0, kMostSaid - std::min(outcome.said.size(), kMostSaid));
        }
    });
    return outcome;
}

WebOutcome WebService::Insist(const std::function<WebOutcome()>& attempt) {
    WebRetry retry(m_Peer.web.retries, m_Peer.web.retryWait, m_Watch);
    for (;;) {
        try {
            WebOutcome outcome = attempt();
            if (outcome.IsGood()) return outcome;
            if (!outcome.MayPass() || !retry.Wait(outcome.answer)) Refuse(outcome);
        } catch (const ConnectionLost& lost) {
            if (!retry.Wait()) throw Error(ErrorKind::Refused, lost.what());
        }
    }
}

WebOutcome WebService::GetText(const std::string& path, const std::string& type, std::size_t limit, std::string& text) {
    WebOutcome outcome = Insist([&] {
        text.clear();
        return Get(path, type, [&](const HttpAnswer& answer, std::string_view bytes) {
            const std::string got = MediaTypeOf(answer.Header("content-type"));
            if (got != type && got != "application/json") {
                Refuse("answers with " + (got.empty() ? "no content type" : got) + " where " + type + " was asked for");
            }
            if (text.size() + bytes.size() > limit)
                Refuse("an answer of more than " + std::to_string(limit >> 20) + " MB");
            text += bytes;
        });
    });
    return outcome;
}

void WebService::Refuse(const WebOutcome& outcome) const {
    Refuse(outcome.Words());
}

void WebService::Refuse(const std::string& why) const {
    throw Error(ErrorKind::Refused, m_Peer.host + ": " + why);
}

bool IsWebService(const Peer& peer) {
    if (peer.host.find("://") == std::string::npos) return false;
    if (!peer.port.empty()) throw Error(ErrorKind::WrongArgument, peer.host + ": an address has its port in itself");
    return true;
}

}  // namespace korvane
