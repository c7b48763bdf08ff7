#include "NetworkPeers.h"

#include <Korvane/platform/Socket.h>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <system_error>

TEST(DcmSocket, PortsAndErrorTexts) {
    DcmSocket socket;
    EXPECT_EQ(socket.GetTimeout(), 300);
    const auto resolved = [&](const char* port, const char* protocol) {
        const platform::ServiceEntry* const entry = socket.ResolvePort(port, protocol);
        return entry != nullptr ? entry->port : 0;
    };
    EXPECT_EQ(resolved("104", nullptr), platform::ToNetworkOrder(104));
    EXPECT_EQ(resolved(" 104x", "tcp"), platform::ToNetworkOrder(104)) << "as atoi reads it";
    EXPECT_EQ(resolved("0", nullptr), 0);
    EXPECT_STREQ(socket.GetErrorText(), "Error getservbyname(0, NULL)");
    EXPECT_EQ(resolved("no-such-service", "tcp"), 0);
    EXPECT_STREQ(socket.GetErrorText(), "Error getservbyname(no-such-service, tcp)");
    EXPECT_EQ(socket.Open("127.0.0.1", "no-such-service"), 0);
    EXPECT_STREQ(socket.GetErrorText(), "Open(127.0.0.1,no-such-service): could not resolve port[no-such-service]");

    DcmSocket listener;
    ASSERT_EQ(listener.Listen(0, true), 1) << listener.GetErrorText();
    const std::string port = std::to_string(listener.GetListeningPort());
    std::vector<std::uint32_t> addresses;  // a bare system may know no names at all
    const char* const host = platform::FindHost("localhost", addresses) ? "localhost" : "127.0.0.1";
    EXPECT_EQ(socket.Open(host, port.c_str()), 1) << socket.GetErrorText();
    EXPECT_TRUE(socket.IsConnected());
    listener.Close();
    EXPECT_EQ(socket.Open("127.0.0.1", port.c_str()), 0);
    EXPECT_FALSE(socket.IsConnected());
    const int error = errno;  // what the text shows, whatever the socket library says
    EXPECT_EQ(socket.GetErrorText(), "Open(127.0.0.1," + port + "): Error on connect errno=" + std::to_string(error) +
                                         " msg=" + std::generic_category().message(error));
    EXPECT_EQ(socket.Send("a", 1), 0);
    char byte;
    EXPECT_EQ(socket.Recv(&byte, 1), -1);
}

TEST(DcmSocket, ReceivesWhatIsThereAndWaitsNoLongerThanTold) {
    DcmSocket server;
    DcmSocket client;
    ASSERT_TRUE(ConnectPair(server, client));
    EXPECT_EQ(server.GetPeer().address, client.GetPeer().address);
    client.SetTimeout(0);
    char bytes[8] = {};
    EXPECT_EQ(client.Recv(bytes, 8), 0) << "nothing there, and no time";
    client.SetTimeout(1);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(client.Recv(bytes, 8), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(900));
    EXPECT_EQ(server.Send("abcdef", 6), 1);
    EXPECT_EQ(client.Recv(bytes, 4), 4);
    EXPECT_EQ(client.Recv(bytes + 4, 4), 2);
    EXPECT_STREQ(bytes, "abcdef");
    server.Close();
    EXPECT_EQ(client.Recv(bytes, 8), -1) << "closed";
}

TEST(DcmSocket, LargeSendsArriveWholeAndBrokenOnesAreRemembered) {
    DcmService service;  // its buffer
    DcmSocket client;
    ASSERT_TRUE(ConnectPair(service.GetSocket(), client));
    Bytes sent(8 << 20);
    for (std::size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<unsigned char>(i * 2654435761U >> 24);
    Bytes received;
    std::thread reader([&] { received = ReceiveAll(client); });
    EXPECT_TRUE(service.Buffer::Write(sent.data(), sent.size()) && service.Flush());
    service.GetSocket().ShutDown();
    reader.join();
    EXPECT_TRUE(received == sent);
    client.Close();
    bool flushed = true;
    for (int i = 0; i < 100 && flushed; ++i) flushed = service.WriteUINT32(1) && service.Flush();
    EXPECT_FALSE(flushed);
    EXPECT_TRUE(service.GetSocket().HasFailed());
}

TEST(DcmSocket, TracesWhatGoesOverTheWire) {
    DcmSocket server;
    DcmSocket client;
    ASSERT_TRUE(ConnectPair(server, client));
    const std::string text = Traced(kDumpSocket, [&] {
        char bytes[4];
        EXPECT_EQ(server.Send("AB", 2), 1);
        EXPECT_EQ(client.Recv(bytes, 4), 2);
    });
    const std::string dump = "\n\n000000-000001 41 42 ";  // the line's own end and that of a stamped line
    const std::size_t sent = text.find(" : Sending 2 bytes" + dump);
    EXPECT_NE(sent, std::string::npos) << text;
    EXPECT_NE(text.find(" : received 2 bytes" + dump, sent), std::string::npos) << text;
}
