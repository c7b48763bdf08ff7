// The Kit's network services at work in many threads: several associations of a sender, a receiver, and commitment.
#include "FolderTest.h"
#include "Latch.h"

#include <Korvane/Kit.h>

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

using namespace korvane;

namespace {

// A receiver on a thread of its own, which ends with the object.
class Running : public ReceiveObserver {
public:
    explicit Running(ReceiveOptions options) : m_Options(std::move(options)) {
        m_Thread = std::thread([this] { m_Report = Receive(m_Options, this); });
        m_Listens.ArriveAndWait();
    }
    ~Running() override { End(); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    ReceiveReport End() {
        m_bEnd = true;
        if (m_Thread.joinable()) m_Thread.join();
        return m_Report;
    }
    std::string GetPort() const { return std::to_string(m_Port); }

    void OnListening(std::uint16_t port) override {
        m_Port = port;
        m_Listens.ArriveAndWait();
    }
    void OnCommitment(const ReceivedCommitment& commitment) override { m_nFailed += commitment.failed; }
    bool OnLook(int /*milliseconds*/) override { return !m_bEnd; }

    std::size_t m_nFailed = 0;  // instances

private:
    ReceiveOptions m_Options;
    Latch m_Listens{2};
    std::uint16_t m_Port = 0;
    std::atomic<bool> m_bEnd = false;
    std::thread m_Thread;
    ReceiveReport m_Report;
};

class NetworkThreads : public FolderTest {
protected:
    // Sends a series by four associations at once, from two threads, and asks for commitment.
    void SendFrom(const TlsOptions& own, const TlsOptions& theirs) {
        WritePhantom(Path("sent"), {.slices = 24, .columns = 16, .rows = 16});
        ReceiveOptions options;
        options.folder = Path("in");
        options.bindAddress = "127.0.0.1";
        options.tls = theirs;
        Running receiver(options);
        std::atomic<std::size_t> committed = 0;
        const auto send = [&] {
            Peer peer{.host = "127.0.0.1", .port = receiver.GetPort()};
            peer.tls = own;
            SendOptions sending;
            sending.jobs = 4;
            sending.commit.emplace();
            const SendReport report = Send(peer, {Path("sent")}, sending);
            committed += report.commitment ? report.commitment->committed : 0;
            Echo(peer);
        };
        std::thread other(send);
        send();
        other.join();
        EXPECT_EQ(committed, 48U);
        const ReceiveReport report = receiver.End();
        EXPECT_EQ(report.stored, 48U);
        EXPECT_EQ(report.broken, 0U);
        EXPECT_EQ(receiver.m_nFailed, 0U);
    }
};

}  // namespace

TEST_F(NetworkThreads, Plain) {
    SendFrom({}, {});
}

TEST_F(NetworkThreads, Encrypted) {
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "
        "/CN=localhost -addext subjectAltName=IP:127.0.0.1 -keyout \"" +
        Path("key") + "\" -out \"" + Path("cert") + "\"";
    if (std::system((command + " 2>" + Path("said")).c_str()) != 0) GTEST_SKIP() << "no openssl program";
    TlsOptions both;
    both.isOn = true;
    both.certificate = Path("cert");
    both.key = Path("key");
    both.authorities = {Path("cert")};
    try {
        SendFrom(both, both);
    } catch (const Error& error) {
        if (error.GetKind() != ErrorKind::Unsupported) throw;
        GTEST_SKIP() << error.what();
    }
}
