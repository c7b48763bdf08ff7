// usage: send_and_receive FOLDER SOURCE...    a receiver that stores into FOLDER, and a sender of the sources
#include <Korvane/Kit.h>

#include <future>
#include <iostream>
#include <thread>

// Says on which port the receiver listens: 0 lets the system choose.
class Port : public korvane::ReceiveObserver {
public:
    void OnListening(std::uint16_t port) override { m_Port.set_value(port); }
    void OnFile(const korvane::ReceivedFile& file) override {
        if (!file.why.empty()) std::cerr << korvane::Visible(file.sopInstance) << ": " << file.why << '\n';
    }
    std::uint16_t Wait() { return m_Port.get_future().get(); }

private:
    std::promise<std::uint16_t> m_Port;
};

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    try {
        Port port;
        korvane::ReceiveOptions options;
        options.folder = argv[1];
        options.bindAddress = "127.0.0.1";
        options.count = 1;  // ends after one association
        std::future<korvane::ReceiveReport> received =
            std::async(std::launch::async, [&] { return korvane::Receive(options, &port); });

        korvane::Peer peer;
        peer.host = "127.0.0.1";
        peer.port = std::to_string(port.Wait());
        const korvane::SendReport sent = korvane::Send(peer, {argv + 2, argv + argc});
        for (const auto& file : sent.failed) std::cerr << file.path << ": " << file.why << '\n';
        std::cout << sent.stored << " sent, " << received.get().stored << " stored\n";
        return sent.failed.empty() ? 0 : 1;
    } catch (const korvane::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
