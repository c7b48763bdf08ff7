// An FTP server (RFC 959, passive mode) for one session on the loopback interface. It takes the password "secret",
// refuses "/refused.hdr", and hangs up in the middle of files named "cut".
#pragma once

#include <arpa/inet.h>
#include <map>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

class FakeFtpServer {
public:
    ~FakeFtpServer() { Finish(); }

    std::string Host() const { return "127.0.0.1:" + std::to_string(Port(m_Listener)); }

    /// Waits for the session's end; then what has been received may be looked at.
    void Finish() {
        if (m_Thread.joinable()) {
            shutdown(m_Listener, SHUT_RDWR);  // where nobody has connected yet
            m_Thread.join();
            close(m_Listener);
        }
    }

    std::string m_Log;  // the commands, a blank behind each
    std::map<std::string, std::string> m_Files;

private:
    static int Listen() {
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        listen(listener, 1);  // on any free port
        return listener;
    }
    static int Port(int listener) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    void Serve() {
        const int control = accept(m_Listener, nullptr, nullptr);
        std::string reply = "220 Ready";
        std::string line;
        do {
            reply += "\r\n";
            send(control, reply.data(), reply.size(), MSG_NOSIGNAL);
            line.clear();
            for (char c; read(control, &c, 1) == 1 && c != '\n';) {
                line += c == '\r' ? ' ' : c;
            }
            m_Log += line;
            reply = line.empty() ? "" : Reply(control, line.substr(0, line.find(' ')), line);
        } while (!reply.empty());
        close(control);
    }

    std::string Reply(int control, const std::string& verb, const std::string& line) {
        const std::string name = line.substr(verb.size() + 1, line.size() - verb.size() - 2);
        if (verb == "PASV") {
            m_Passive = Listen();
            return "227 Passive (127,0,0,1," + std::to_string(Port(m_Passive) / 256) + "," +
                   std::to_string(Port(m_Passive) % 256) + ")";
        }
        static const std::map<std::string, std::string> replies{
            {"USER", "331 Password, please"},         {"PASS", "530 Login incorrect"},
            {"PASS secret", "230 Welcome"},           {"CWD missing", "550 No such folder"},
            {"STOR /refused.hdr", "553 Not allowed"}, {"QUIT", ""}};
        for (const std::string& key : {verb + " " + name, verb}) {
            if (const auto found = replies.find(key); found != replies.end()) {
                return found->second;
            }
        }
        return verb == "STOR" ? Receive(control, name) : "200 Done";
    }

    std::string Receive(int control, const std::string& name) {
        send(control, "150 Go on\r\n", 11, MSG_NOSIGNAL);
        const int data = accept(m_Passive, nullptr, nullptr);
        char block[4096];
        for (ssize_t got; (got = read(data, block, sizeof block)) > 0 && name != "cut";) {
            m_Files[name].append(block, static_cast<std::size_t>(got));
        }
        close(data);
        close(m_Passive);
        return name == "cut" ? "" : "226 Stored";
    }

    int m_Listener = Listen();
    int m_Passive = -1;
    std::thread m_Thread{[this] { Serve(); }};
};
