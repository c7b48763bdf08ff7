#include "HttpConnection.h"

#include "Connection.h"
#include "HostLookUp.h"

#include "../core/LateLibrary.h"

#include "platform/File.h"
#include "platform/Signals.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#if defined(KORVANE_KIT_WEB)
#include <curl/curl.h>
#undef curl_easy_setopt  // macros that count arguments, in the way of a declaration by that name
#endif

namespace korvane {

namespace {

// Whether a text is a token that fits into a header (RFC 6750 2.1).
bool IsToken(std::string_view text) {
    constexpr std::string_view kSigns = "-._~+/=";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               kSigns.find(c) != std::string_view::npos;
    });
}

}  // namespace

std::string ReadToken(const std::string& path) {
    constexpr std::size_t kLongest = std::size_t{64} << 10;
    platform::InputFile file;
    if (!file.Open(path.c_str())) throw Error(ErrorKind::Disk, path + ": " + SystemText(errno)).InFile(path);
    std::string text(kLongest + 1, '\0');
    text.resize(file.Read(text.data(), text.size()));
    if (file.HasFailed()) throw Error(ErrorKind::Disk, path + ": " + SystemText(file.GetError())).InFile(path);
    constexpr const char* kBlanks = " \t\r\n";
    const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    std::string token = text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
    if (text.size() > kLongest || !IsToken(token)) {
        throw Error(ErrorKind::WrongArgument, path + ": not a file with a bearer token alone").InFile(path);
    }
    return token;
}

std::string HttpAnswer::Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : std::string();
}

#if defined(KORVANE_KIT_WEB)

namespace {

// Calls below find these in place of the library's own.
constinit const LateLibrary kCurl(KORVANE_KIT_WEB);
KORVANE_LATE(kCurl, curl_easy_cleanup);
KORVANE_LATE(kCurl, curl_easy_init);
KORVANE_LATE(kCurl, curl_easy_setopt);
KORVANE_LATE(kCurl, curl_easy_strerror);
KORVANE_LATE(kCurl, curl_global_init);
KORVANE_LATE(kCurl, curl_multi_add_handle);
KORVANE_LATE(kCurl, curl_multi_cleanup);
KORVANE_LATE(kCurl, curl_multi_info_read);
KORVANE_LATE(kCurl, curl_multi_init);
KORVANE_LATE(kCurl, curl_multi_perform);
KORVANE_LATE(kCurl, curl_multi_poll);
KORVANE_LATE(kCurl, curl_multi_remove_handle);
KORVANE_LATE(kCurl, curl_slist_append);
KORVANE_LATE(kCurl, curl_slist_free_all);

using Clock = std::chrono::steady_clock;

constexpr int kLook = 50;  // milliseconds
constexpr std::size_t kMostHeaderBytes = std::size_t{128} << 10;

// The library's own types for both are `void`.
struct FreeEasy {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct FreeMulti {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using List = std::unique_ptr<curl_slist, FreeList>;

void Append(List& list, const std::string& text) {
    curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    list.release();  // NOLINT(bugprone-unused-return-value): the longer list begins with it
    list.reset(longer);
}

// Failures that end in another attempt: the peer may have come back by then.
bool MayPass(CURLcode code) {
    constexpr CURLcode kPassing[] = {CURLE_COULDNT_CONNECT, CURLE_PARTIAL_FILE, CURLE_OPERATION_TIMEDOUT,
                                     CURLE_GOT_NOTHING,     CURLE_SEND_ERROR,   CURLE_RECV_ERROR,
                                     CURLE_SEND_FAIL_REWIND};
    return std::find(std::begin(kPassing), std::end(kPassing), code) != std::end(kPassing);
}

// A request that is under way, as libcurl's callbacks see it. Exceptions do not go through a C library: they are kept.
struct Exchange {
    const std::string& who;
    const HttpRequest& request;
    const HttpConnection::Take& take;
    HttpAnswer answer{};
    std::size_t headerBytes = 0;
    std::uint64_t moved = 0;  // bytes, both ways
    std::exception_ptr thrown{};

    template <class Function>
    bool Guarded(Function&& function) {
        if (thrown) return false;
        try {
            function();
            return true;
        } catch (...) {
            thrown = std::current_exception();
            return false;
        }
    }

    void TakeHeader(std::string_view line) {
        headerBytes += line.size();
        moved += line.size();
        if (headerBytes > kMostHeaderBytes) throw Error(ErrorKind::Damaged, who + ": an answer with endless headers");
        while (line.ends_with('\r') || line.ends_with('\n')) line.remove_suffix(1);
        if (line.starts_with("HTTP/")) {  // of the next answer: one with a status of 1xx may come before
            const std::size_t blank = std::min(line.find(' '), line.size() - 1);
            answer = {};
            answer.status = std::atoi(std::string(line.substr(blank + 1)).c_str());
            return;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) return;
        std::string name(line.substr(0, colon));
        for (char& c : name) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        std::string_view value = line.substr(colon + 1);
        while (value.starts_with(' ') || value.starts_with('\t')) value.remove_prefix(1);
        std::string& kept = answer.headers[name];
        kept += (kept.empty() ? "" : ", ") + std::string(value);
    }

    void TakeBody(std::string_view bytes) {
        moved += bytes.size();
        const std::string encoding = answer.Header("content-encoding");
        if (!encoding.empty() && encoding != "identity") {
            throw Error(ErrorKind::Unsupported, who + ": an answer that is compressed, which was not asked for");
        }
        take(answer, bytes);
    }
};

std::size_t OnHeader(char* bytes, std::size_t size, std::size_t count, void* user) {
    Exchange& exchange = *static_cast<Exchange*>(user);
    return exchange.Guarded([&] { exchange.TakeHeader({bytes, size * count}); }) ? size * count : 0;
}

std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* user) {
    Exchange& exchange = *static_cast<Exchange*>(user);
    return exchange.Guarded([&] { exchange.TakeBody({bytes, size * count}); }) ? size * count : 0;
}

std::size_t OnRead(char* bytes, std::size_t size, std::size_t count, void* user) {
    Exchange& exchange = *static_cast<Exchange*>(user);
    std::size_t given = 0;
    if (!exchange.Guarded([&] { given = exchange.request.body(bytes, size * count); })) return CURL_READFUNC_ABORT;
    exchange.moved += given;
    return given;
}

int OnSeek(void* user, curl_off_t offset, int origin) {
    Exchange& exchange = *static_cast<Exchange*>(user);
    if (offset != 0 || origin != SEEK_SET || !exchange.request.rewind) return CURL_SEEKFUNC_FAIL;
    return exchange.Guarded([&] { exchange.request.rewind(); }) ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

}  // namespace

struct HttpConnection::Parts {
    const Peer& peer;
    WebAddress base;
    Watch watch;
    List addresses{};  // these three outlive the handle that points to them
    char why[CURL_ERROR_SIZE] = {};
    std::exception_ptr refused{};  // why the TLS options cannot be used
    std::unique_ptr<CURLM, FreeMulti> multi{};
    std::unique_ptr<CURL, FreeEasy> easy{};

    template <class Value>
    void Set(CURLoption option, Value value) const {
        if (curl_easy_setopt(easy.get(), option, value) != CURLE_OK) {
            throw Error(ErrorKind::Unsupported, "the system's libcurl lacks what a web service needs");
        }
    }

    // Options that hold for all requests.
    void SetUp() {
        // No signals, no settings from the environment or from files of the user: the library does what it is told.
        Set(CURLOPT_NOSIGNAL, 1L);
        Set(CURLOPT_PROXY, "");
        Set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
        Set(CURLOPT_PROTOCOLS_STR, base.IsEncrypted() ? "https" : "http");
        Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        Set(CURLOPT_HTTP09_ALLOWED, 0L);
        Set(CURLOPT_FOLLOWLOCATION, 0L);
        Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(peer.connectTimeout));
        Set(CURLOPT_BUFFERSIZE, 256L << 10);
        Set(CURLOPT_UPLOAD_BUFFERSIZE, 256L << 10);
        Set(CURLOPT_ERRORBUFFER, why);
        Set(CURLOPT_HEADERFUNCTION, &OnHeader);
        Set(CURLOPT_WRITEFUNCTION, &OnBody);
        Set(CURLOPT_READFUNCTION, &OnRead);
        Set(CURLOPT_SEEKFUNCTION, &OnSeek);
        if (base.IsEncrypted()) SetUpTls();
    }

    void SetUpTls() {
        Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
        Set(CURLOPT_SSL_VERIFYPEER, 1L);
        Set(CURLOPT_SSL_VERIFYHOST, peer.tls.checksName ? 2L : 0L);
        if (!peer.tls.authorities.empty()) {
            Set(CURLOPT_CAINFO, static_cast<char*>(nullptr));
            Set(CURLOPT_CAPATH, static_cast<char*>(nullptr));
        }
        Set(CURLOPT_SSL_CTX_DATA, this);
        Set(
            CURLOPT_SSL_CTX_FUNCTION, +[](CURL*, void* context, void* user) -> CURLcode {
                Parts& parts = *static_cast<Parts*>(user);
                try {
                    PrepareTls(context, parts.peer.tls);
                    return CURLE_OK;
                } catch (...) {
                    parts.refused = std::current_exception();
                    return CURLE_ABORTED_BY_CALLBACK;
                }
            });
    }

    // The library's own look-up of a name could not be broken off.
    void LookUp() {
        if (!platform::NormalAddress(base.GetHost()).empty()) return;
        std::string entry = base.GetHost() + ":" + base.GetPort() + ":";
        for (const platform::Endpoint& endpoint : LookUpHost(base.GetHost(), base.GetPort(), watch)) {
            const std::string address = platform::AddressText(endpoint);
            const bool isLong = address.find(':') != std::string::npos;
            entry += (entry.back() == ':' ? "" : ",") + (isLong ? "[" + address + "]" : address);
        }
        Append(addresses, entry);
        Set(CURLOPT_RESOLVE, addresses.get());
    }

    List MakeHeaders(const HttpRequest& request) const {
        List headers;
        for (const std::string& header : request.headers) Append(headers, header);
        Append(headers, "User-Agent: korvane");
        const bool isOurs = request.address.starts_with(base.GetOrigin() + "/");
        const bool isSafe = base.IsEncrypted() || (peer.web.tokenToLoopback && base.IsLoopback());
        if (!peer.web.token.empty() && isOurs && isSafe) Append(headers, "Authorization: Bearer " + peer.web.token);
        return headers;
    }

    // Until the exchange is over. What ends it early is thrown.
    CURLcode Perform(Exchange& exchange) const {
        const Clock::time_point begin = Clock::now();
        Clock::time_point last = begin;
        std::uint64_t moved = 0;
        const std::chrono::seconds silence(peer.timeout);
        for (int running = 1;;) {
            if (curl_multi_perform(multi.get(), &running) != CURLM_OK) throw std::bad_alloc();
            if (running == 0) break;
            watch.StopIfAsked();
            const Clock::time_point now = Clock::now();
            if (exchange.moved != moved) last = now;
            moved = exchange.moved;
            const std::chrono::seconds whole(peer.timeout + peer.connectTimeout +
                                             static_cast<std::int64_t>(moved >> 10));
            if (now - last > silence || now - begin > whole)
                throw ConnectionLost(peer.host + ": the peer did not answer in time");
            curl_multi_poll(multi.get(), nullptr, 0, kLook, nullptr);
        }
        int left = 0;
        const CURLMsg* const message = curl_multi_info_read(multi.get(), &left);
        return message != nullptr ? message->data.result : CURLE_RECV_ERROR;
    }

    [[noreturn]] void Fail(CURLcode code) const {
        const std::string text = peer.host + ": " + (why[0] != '\0' ? why : curl_easy_strerror(code));
        if (MayPass(code)) throw ConnectionLost(text);
        throw Error(ErrorKind::Refused, text);
    }
};

HttpConnection::HttpConnection(const Peer& peer, const WebAddress& base, const Watch& watch)
    : m_pParts(std::make_unique<Parts>(Parts{peer, base, watch})) {
    if (peer.tls.isOn && !base.IsEncrypted()) {
        throw Error(ErrorKind::WrongArgument, peer.host + ": encryption is asked for, and this is no https address");
    }
    const bool isSafe = base.IsEncrypted() || (peer.web.tokenToLoopback && base.IsLoopback());
    if (!peer.web.token.empty() && !isSafe) {
        throw Error(ErrorKind::WrongArgument, peer.host + ": a token is shown over https alone");
    }
    if (!peer.web.token.empty() && !IsToken(peer.web.token)) {
        throw Error(ErrorKind::WrongArgument, "not a bearer token");
    }
    static const CURLcode kReady = curl_global_init(CURL_GLOBAL_DEFAULT);
    m_pParts->easy.reset(curl_easy_init());
    m_pParts->multi.reset(curl_multi_init());
    if (kReady != CURLE_OK || m_pParts->easy == nullptr || m_pParts->multi == nullptr) throw std::bad_alloc();
    m_pParts->SetUp();
    m_pParts->LookUp();
}

HttpConnection::~HttpConnection() {
    const platform::BlockBrokenPipe block;
    m_pParts.reset();
}

HttpAnswer HttpConnection::Do(const HttpRequest& request, const Take& take) {
    const platform::BlockBrokenPipe block;
    Parts& parts = *m_pParts;
    Exchange exchange{parts.peer.host, request, take};
    const List headers = parts.MakeHeaders(request);
    CURL* const easy = parts.easy.get();
    parts.Set(CURLOPT_URL, request.address.c_str());
    parts.Set(CURLOPT_HTTPHEADER, headers.get());
    parts.Set(CURLOPT_HEADERDATA, &exchange);
    parts.Set(CURLOPT_WRITEDATA, &exchange);
    parts.Set(CURLOPT_READDATA, &exchange);
    parts.Set(CURLOPT_SEEKDATA, &exchange);
    parts.Set(request.body ? CURLOPT_POST : CURLOPT_HTTPGET, 1L);
    if (request.body) parts.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.bodyLength));
    parts.why[0] = '\0';
    parts.refused = nullptr;
    if (curl_multi_add_handle(parts.multi.get(), easy) != CURLM_OK) throw std::bad_alloc();
    CURLcode code = CURLE_OK;
    std::exception_ptr ended;
    try {
        code = parts.Perform(exchange);
    } catch (...) {
        ended = std::current_exception();
    }
    curl_multi_remove_handle(parts.multi.get(), easy);
    if (exchange.thrown) std::rethrow_exception(exchange.thrown);
    if (parts.refused) std::rethrow_exception(parts.refused);
    if (ended) std::rethrow_exception(ended);
    if (code != CURLE_OK) parts.Fail(code);
    return std::move(exchange.answer);
}

bool HasWeb() {
    return true;
}

#else

struct HttpConnection::Parts {};

HttpConnection::HttpConnection(const Peer& /*peer*/, const WebAddress& /*base*/, const Watch& /*watch*/) {
    throw Error(ErrorKind::Unsupported, "this build has no DICOMweb: it was made without libcurl");
}

HttpConnection::~HttpConnection() = default;

HttpAnswer HttpConnection::Do(const HttpRequest& /*request*/, const Take& /*take*/) {
    return {};
}

bool HasWeb() {
    return false;
}

#endif

}  // namespace korvane
