// Encryption by OpenSSL. The library gets and gives bytes in memory and never touches a socket, so that waiting, stopping
// and broken connections are the same as without it.
#include "../core/Error.h"
#include "../core/LateLibrary.h"
#include "Connection.h"

#include "platform/File.h"
#include "platform/Socket.h"

#include <algorithm>
#include <climits>
#include <utility>

#if defined(KORVANE_KIT_TLS)

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace korvane {

namespace {

// Calls below find these in place of the library's own.
constinit const LateLibrary kSsl(KORVANE_KIT_TLS);
KORVANE_LATE(kSsl, BIO_ctrl);
KORVANE_LATE(kSsl, BIO_ctrl_pending);
KORVANE_LATE(kSsl, BIO_free);
KORVANE_LATE(kSsl, BIO_new);
KORVANE_LATE(kSsl, BIO_read);
KORVANE_LATE(kSsl, BIO_s_mem);
KORVANE_LATE(kSsl, BIO_write);
KORVANE_LATE(kSsl, ERR_clear_error);
KORVANE_LATE(kSsl, ERR_peek_last_error);
KORVANE_LATE(kSsl, ERR_reason_error_string);
KORVANE_LATE(kSsl, OPENSSL_sk_new_null);
KORVANE_LATE(kSsl, SSL_CTX_clear_options);
KORVANE_LATE(kSsl, SSL_CTX_ctrl);
KORVANE_LATE(kSsl, SSL_CTX_free);
KORVANE_LATE(kSsl, SSL_CTX_load_verify_locations);
KORVANE_LATE(kSsl, SSL_CTX_new);
KORVANE_LATE(kSsl, SSL_CTX_set_cipher_list);
KORVANE_LATE(kSsl, SSL_CTX_set_ciphersuites);
KORVANE_LATE(kSsl, SSL_CTX_set_client_CA_list);
KORVANE_LATE(kSsl, SSL_CTX_set_default_passwd_cb);
KORVANE_LATE(kSsl, SSL_CTX_set_default_verify_paths);
KORVANE_LATE(kSsl, SSL_CTX_set_num_tickets);
KORVANE_LATE(kSsl, SSL_CTX_set_options);
KORVANE_LATE(kSsl, SSL_CTX_set_verify);
KORVANE_LATE(kSsl, SSL_CTX_set_verify_depth);
KORVANE_LATE(kSsl, SSL_CTX_use_PrivateKey_file);
KORVANE_LATE(kSsl, SSL_CTX_use_certificate_chain_file);
KORVANE_LATE(kSsl, SSL_add_file_cert_subjects_to_stack);
KORVANE_LATE(kSsl, SSL_ctrl);
KORVANE_LATE(kSsl, SSL_do_handshake);
KORVANE_LATE(kSsl, SSL_free);
KORVANE_LATE(kSsl, SSL_get0_param);
KORVANE_LATE(kSsl, SSL_get_error);
KORVANE_LATE(kSsl, SSL_get_rbio);
KORVANE_LATE(kSsl, SSL_get_verify_result);
KORVANE_LATE(kSsl, SSL_get_wbio);
KORVANE_LATE(kSsl, SSL_new);
KORVANE_LATE(kSsl, SSL_pending);
KORVANE_LATE(kSsl, SSL_read);
KORVANE_LATE(kSsl, SSL_set1_host);
KORVANE_LATE(kSsl, SSL_set_accept_state);
KORVANE_LATE(kSsl, SSL_set_bio);
KORVANE_LATE(kSsl, SSL_set_connect_state);
KORVANE_LATE(kSsl, SSL_shutdown);
KORVANE_LATE(kSsl, SSL_write);
KORVANE_LATE(kSsl, TLS_client_method);
KORVANE_LATE(kSsl, TLS_server_method);
KORVANE_LATE(kSsl, X509_VERIFY_PARAM_set1_ip_asc);
KORVANE_LATE(kSsl, X509_verify_cert_error_string);

using Clock = std::chrono::steady_clock;

constexpr int kPiece = 32 * 1024;
constexpr std::size_t kSendPiece = std::size_t{64} << 10;
constexpr std::chrono::milliseconds kLook{50};
constexpr int kDeepestChain = 10;

// PS3.15 B.10 and B.11. The sets of TLS 1.3 are all of this kind.
constexpr char kBcp195Ciphers[] = "ECDHE+AESGCM:DHE+AESGCM:ECDHE+CHACHA20:DHE+CHACHA20:!aDSS";
constexpr char kExtendedCiphers[] = "ECDHE+AESGCM+AES256:DHE+AESGCM+AES256:ECDHE+CHACHA20:DHE+CHACHA20:!aDSS";
constexpr char kExtendedSuites[] = "TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";

struct Free {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};

// The reason of the call that failed last.
std::string LastReason() {
    const unsigned long error = ERR_peek_last_error();
    const char* const reason = error != 0 ? ERR_reason_error_string(error) : nullptr;
    return reason != nullptr ? reason : "no reason given";
}

// An encrypted connection. Bytes of the peer go into the one memory buffer of `m_pSsl`, bytes for the peer come out of the
// other.
class TlsConnection : public Transport {
public:
    TlsConnection(SSL_CTX* context, OwnSocket socket) : m_pSsl(SSL_new(context)), m_Socket(std::move(socket)) {
        BIO* const in = BIO_new(BIO_s_mem());
        BIO* const out = BIO_new(BIO_s_mem());
        if (m_pSsl == nullptr || in == nullptr || out == nullptr) {
            BIO_free(in);
            BIO_free(out);
            m_pSsl.reset();
            throw std::bad_alloc();
        }
        BIO_set_mem_eof_return(in, -1);
        SSL_set_bio(m_pSsl.get(), in, out);
    }

    SSL* Get() const { return m_pSsl.get(); }

    bool Agree(Clock::time_point deadline, const std::function<bool()>& isStopped, std::string& why) {
        for (;;) {
            ERR_clear_error();
            const int done = SSL_do_handshake(m_pSsl.get());
            const int asks = SSL_get_error(m_pSsl.get(), done);
            const bool sent = Flush(isStopped);
            if (done == 1) return sent;
            if (isStopped && isStopped()) return false;
            if (asks != SSL_ERROR_WANT_READ) {
                why = WhyRefused();
                return false;
            }
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) {
                why = "the peer did not answer in time";
                return false;
            }
            const int ready = platform::WaitReadable(m_Socket.Get(), static_cast<int>(std::min(left, kLook).count()));
            if (!sent || ready < 0 || (ready > 0 && Feed() < 0)) {
                why = "the peer closed the connection while keys were agreed on; it may speak no TLS here";
                return false;
            }
        }
    }

    int Wait(int milliseconds) override {
        if (SSL_pending(m_pSsl.get()) > 0 || BIO_ctrl_pending(SSL_get_rbio(m_pSsl.get())) > 0) return 1;
        return platform::WaitReadable(m_Socket.Get(), milliseconds);
    }

    int ReceiveAvailable(void* bytes, int capacity) override {
        for (;;) {
            ERR_clear_error();
            const int got = SSL_read(m_pSsl.get(), bytes, capacity);
            if (got > 0) return got;
            const int asks = SSL_get_error(m_pSsl.get(), got);
            if (!Flush(nullptr) || asks != SSL_ERROR_WANT_READ) return -1;
            const int fed = Feed();
            if (fed <= 0) return fed == 0 ? platform::kNothingReceived : -1;
        }
    }

    bool Send(const void* bytes, std::size_t count, const std::function<bool()>& isStopped) override {
        const auto* place = static_cast<const unsigned char*>(bytes);
        while (count > 0) {
            const std::size_t step = std::min(count, kSendPiece);
            ERR_clear_error();
            const bool taken = SSL_write(m_pSsl.get(), place, static_cast<int>(step)) == static_cast<int>(step);
            if (!taken || !Flush(isStopped)) return false;
            place += step;
            count -= step;
        }
        return true;
    }

    void SetTimeout(int seconds) override { platform::TuneSocket(m_Socket.Get(), seconds); }

    void ShutDown() override {
        SSL_shutdown(m_pSsl.get());
        Flush(nullptr);
        platform::ShutDownSending(m_Socket.Get());
    }

private:
    // Gives what has arrived to the library: its length; 0: nothing; -1: the peer has closed, or an error.
    int Feed() {
        unsigned char piece[kPiece];
        const int got = platform::ReceiveAvailable(m_Socket.Get(), piece, sizeof piece);
        if (got == platform::kNothingReceived) return 0;
        if (got <= 0) return -1;
        return BIO_write(SSL_get_rbio(m_pSsl.get()), piece, got) == got ? got : -1;
    }

    // Sends what the library has for the peer.
    bool Flush(const std::function<bool()>& isStopped) {
        unsigned char piece[kPiece];
        for (;;) {
            const int got = BIO_read(SSL_get_wbio(m_pSsl.get()), piece, sizeof piece);
            if (got <= 0) return true;
            if (!platform::SendAll(m_Socket.Get(), piece, static_cast<std::size_t>(got), isStopped)) return false;
        }
    }

    std::string WhyRefused() const {
        const long verified = SSL_get_verify_result(m_pSsl.get());
        if (verified == X509_V_OK) return "no agreement on TLS: " + LastReason();
        return std::string("the peer's certificate is not accepted: ") + X509_verify_cert_error_string(verified);
    }

    std::unique_ptr<SSL, Free> m_pSsl;
    OwnSocket m_Socket;
};

[[noreturn]] void RefuseFile(const std::string& path, const char* what) {
    if (!platform::FileExists(path.c_str())) throw Error(ErrorKind::NotFound, path + ": no such file").InFile(path);
    throw Error(ErrorKind::WrongArgument, path + ": not " + what + " in PEM form: " + LastReason()).InFile(path);
}

}  // namespace

struct TlsContext::Parts {
    std::unique_ptr<SSL_CTX, Free> context;
    bool checksName = false;
    Side side = Side::Connects;
};

namespace {

void LoadOwn(SSL_CTX* context, const TlsOptions& options, TlsContext::Side side) {
    if (options.certificate.empty()) {
        if (side == TlsContext::Side::Accepts) {
            throw Error(ErrorKind::WrongArgument, "encrypted connections are accepted only with a certificate");
        }
        return;
    }
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(context, options.certificate.c_str()) != 1) {
        RefuseFile(options.certificate, "a certificate");
    }
    const std::string& key = options.key.empty() ? options.certificate : options.key;
    // Without a function that gives one, the library would ask for a password at the terminal.
    SSL_CTX_set_default_passwd_cb(context, [](char*, int, int, void*) { return 0; });
    if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        RefuseFile(key, "a private key without a password, for the certificate,");
    }
}

void LoadAuthorities(SSL_CTX* context, const TlsOptions& options, TlsContext::Side side) {
    const bool accepts = side == TlsContext::Side::Accepts;
    STACK_OF(X509_NAME)* const names = accepts ? sk_X509_NAME_new_null() : nullptr;
    if (names != nullptr) SSL_CTX_set_client_CA_list(context, names);  // which owns it from now on
    for (const std::string& path : options.authorities) {
        ERR_clear_error();
        if (SSL_CTX_load_verify_locations(context, path.c_str(), nullptr) != 1) {
            RefuseFile(path, "certificates of authorities");
        }
        if (names != nullptr) SSL_add_file_cert_subjects_to_stack(names, path.c_str());
    }
    if (!accepts && options.authorities.empty()) SSL_CTX_set_default_verify_paths(context);
    const bool verifies = !accepts || !options.authorities.empty();
    SSL_CTX_set_verify(context, verifies ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : SSL_VERIFY_NONE,
                       nullptr);
    SSL_CTX_set_verify_depth(context, kDeepestChain);
}

void Prepare(SSL_CTX* context, const TlsOptions& options, TlsContext::Side side) {
    const bool isExtended = options.profile == TlsProfile::ExtendedBcp195;
    const bool isSet = SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1 &&
                       SSL_CTX_set_cipher_list(context, isExtended ? kExtendedCiphers : kBcp195Ciphers) == 1 &&
                       (!isExtended || SSL_CTX_set_ciphersuites(context, kExtendedSuites) == 1);
    if (!isSet) throw Error(ErrorKind::Unsupported, "the system's OpenSSL does not have the TLS profile");
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE |
                                     SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context, 0);
    SSL_CTX_set_dh_auto(context, 1);
    LoadOwn(context, options, side);
    LoadAuthorities(context, options, side);
}

}  // namespace

TlsContext::TlsContext(const TlsOptions& options, Side side) : m_pParts(std::make_unique<Parts>()) {
    m_pParts->side = side;
    m_pParts->checksName = options.checksName && side == Side::Connects;
    m_pParts->context.reset(SSL_CTX_new(side == Side::Connects ? TLS_client_method() : TLS_server_method()));
    if (m_pParts->context == nullptr) throw std::bad_alloc();
    Prepare(m_pParts->context.get(), options, side);
}

void PrepareTls(void* context, const TlsOptions& options) {
    Prepare(static_cast<SSL_CTX*>(context), options, TlsContext::Side::Connects);
    // Here a connection that ends without a word is an answer that was cut off.
    SSL_CTX_clear_options(static_cast<SSL_CTX*>(context), SSL_OP_IGNORE_UNEXPECTED_EOF);
}

TlsContext::~TlsContext() = default;

std::unique_ptr<Transport> TlsContext::Wrap(OwnSocket socket, const std::string& host, Clock::time_point deadline,
                                            const std::function<bool()>& isStopped, std::string& why) const {
    auto made = std::make_unique<TlsConnection>(m_pParts->context.get(), std::move(socket));
    SSL* const ssl = made->Get();
    if (m_pParts->side == Side::Accepts) {
        SSL_set_accept_state(ssl);
    } else {
        SSL_set_connect_state(ssl);
        const bool isAddress = !platform::NormalAddress(host).empty();
        if (m_pParts->checksName && isAddress) X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.c_str());
        if (m_pParts->checksName && !isAddress) SSL_set1_host(ssl, host.c_str());
        if (!isAddress) SSL_set_tlsext_host_name(ssl, host.c_str());
    }
    if (!made->Agree(deadline, isStopped, why)) return nullptr;
    return made;
}

bool HasTls() {
    return true;
}

}  // namespace korvane

#else

namespace korvane {

struct TlsContext::Parts {};

TlsContext::TlsContext(const TlsOptions& /*options*/, Side /*side*/) {
    throw Error(ErrorKind::Unsupported, "this build has no TLS: it was made without OpenSSL");
}

TlsContext::~TlsContext() = default;

std::unique_ptr<Transport> TlsContext::Wrap(OwnSocket /*socket*/, const std::string& /*host*/,
                                            std::chrono::steady_clock::time_point /*deadline*/,
                                            const std::function<bool()>& /*isStopped*/, std::string& /*why*/) const {
    return nullptr;
}

bool HasTls() {
    return false;
}

}  // namespace korvane

#endif
