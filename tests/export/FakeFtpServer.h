// An FTP server (RFC 959, passive mode) for one session on the loopback interface. It takes the password "secret",
// refuses "/refused.hdr", and hangs up in the middle of a file named "cut".
#pragma once

#include <SystemSockets.h>
#include <map>
#include <string>
#include <thread>

class FakeFtpServer {
public:
    ~FakeFtpServer() { Finish(); }

    std::string Host() const { return "127.0.0.1:" + std::to_string(Port(m_Listener)); }

    /// Waits for the session's end; then what has been received may be looked at.
    void Finish() {
        if (m_Thread.joinable()) {
            const Socket visitor = socket(AF_INET, SOCK_STREAM, 0);  // where nobody else has connected
            sockaddr_in address = Address(m_Listener);
            connect(visitor, reinterpret_cast<sockaddr*>(&address), sizeof address);
            CloseSocket(visitor);
            m_Thread.join();
            CloseSocket(m_Listener);
        }
    }

    std::string m_Log;  // the commands, a blank behind each
    std::map<std::string, std::string> m_Files;

private:
    static Socket Listen() {
        StartSockets();
        const Socket listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};  // any free port
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(listener, 1);
        return listener;
    }
    static sockaddr_in Address(Socket listener) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        return address;
    }
    static int Port(Socket listener) { return ntohs(Address(listener).sin_port); }

    void Serve() {
        m_Control = accept(m_Listener, nullptr, nullptr);
        std::string reply = "220 Ready";
        for (std::string command = " "; !command.empty() && !reply.empty();) {
            Say(reply);
            command.clear();
            for (char c; recv(m_Control, &c, 1, 0) == 1 && c != '\n';) {
                command += c == '\r' ? ' ' : c;
            }
            m_Log += command;
            reply = Reply(command.substr(0, command.find_last_not_of(' ') + 1));
        }
        CloseSocket(m_Control);
    }
    void Say(const std::string& reply) {
        const std::string line = reply + "\r\n";
        send(m_Control, line.data(), line.size(), kQuietly);
    }

    std::string Reply(const std::string& command) {
        static const std::map<std::string, std::string> replies{
            {"USER me", "331 Password?"},          {"PASS secret", "230 Welcome"},
            {"PASS wrong", "530 Login incorrect"}, {"CWD missing", "550 No folder"},
            {"STOR /refused.hdr", "553 Not here"}, {"QUIT", ""}};
        if (command == "PASV") {
            m_Passive = Listen();
            const int port = Port(m_Passive);
            return "227 (127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ")";
        }
        const auto found = replies.find(command);
        return found != replies.end()           ? found->second
               : command.substr(0, 4) == "STOR" ? Receive(command.substr(5))
                                                : "200 Done";
    }

    std::string Receive(const std::string& name) {
        Say("150 Go on");
        const Socket data = accept(m_Passive, nullptr, nullptr);
        char block[4096];
        for (long got; (got = recv(data, block, sizeof block, 0)) > 0 && name != "cut";) {
            m_Files[name].append(block, static_cast<std::size_t>(got));
        }
        CloseSocket(data);
        CloseSocket(m_Passive);
        return name == "cut" ? "" : "226 Stored";
    }

    const Socket m_Listener = Listen();
    Socket m_Control{};
    Socket m_Passive{};
    std::thread m_Thread{[this] { Serve(); }};
};
